/// Reading, writing and streaming a value in a local store.
#include <benchmark/benchmark.h>

#include <cstring>
#include <map>

#include "bare_store.h"
#include "config/access/connector/config_factory_impl.h"
#include "config/config.h"
#include "config/descriptors/registry/registry.h"
#include "config/streams/memory_serializer.h"
#include "config/values/config_value.h"
#include "parts.h"
#include "table.h"

namespace {

class CountingListener : public ConfigEventListener {
  public:
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t, unsigned int, timeval) override { return ++m_changes != 0; }
    bool ParamChanged(eParam_t, std::string, timeval) override { return true; }

  private:
    unsigned int m_changes = 0;
};

std::vector<eParam_t> NumericParameters(Config& config)
{
    std::vector<eParam_t> ids;
    for (const eParam_t id : config.GetParamIDs())
        if (config.GetParamDescriptor(id)->GetParamType() != eCParam_StringValue) ids.push_back(id);
    return ids;
}

template <class Store>
void ReadAll(benchmark::State& state, Store& store, const std::vector<eParam_t>& ids)
{
    size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.Get(ids[next]));
        if (++next == ids.size()) next = 0;
    }
}

void Write(benchmark::State& state, Config& config, size_t listeners)
{
    std::vector<CountingListener> counting(listeners);
    for (CountingListener& listener : counting) config.AddConfigEventListener(&listener);
    unsigned int value = 0;
    for (auto _ : state) benchmark::DoNotOptimize(config.Set(eParamID_RegisterSave, value++ % 20 + 1));
    for (CountingListener& listener : counting) config.RemoveConfigEventListener(&listener);
}

void MeasureAndWrite(benchmark::State& state, size_t length)
{
    StringValue value(0, eParamID_CustomClipName, eCParam_StringValue, std::string(length, 'x'));
    std::vector<char> buffer(length + 64);
    for (auto _ : state) {
        MemorySerializer serializer(eSerializationFormat_Memory, buffer.data(), buffer.data() + buffer.size(),
                                    false);
        const unsigned int size = MemorySerializerSizer::GetSize(&value, &serializer);
        serializer.Write("Serializable", &value);
        if (serializer.GetBytesWritten() != size) state.SkipWithError("measured and written sizes differ");
        benchmark::ClobberMemory();
    }
}

void CopyThroughString(benchmark::State& state, size_t length)
{
    const std::string value(length, 'x');
    std::vector<char> buffer(length + 64);
    for (auto _ : state) {
        const std::string copy = value;
        memcpy(buffer.data(), copy.c_str(), copy.size() + 1);
        benchmark::ClobberMemory();
    }
}

/// Collects the times of all repetitions by benchmark name.
class Times : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                m_nanoseconds[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
    }
    double operator[](const std::string& name) { return Median(m_nanoseconds[name]); }

  private:
    std::map<std::string, std::vector<double>> m_nanoseconds;
};

constexpr size_t kLengths[] = {64, 1024, 16384};
constexpr size_t kListeners[] = {0, 1, 10, 100, 1000};

void RunAll(Times& times, Config& config)
{
    const std::vector<eParam_t> ids = NumericParameters(config);
    BareStore bare(ids);
    using benchmark::RegisterBenchmark;
    RegisterBenchmark("bare", [&](benchmark::State& state) { ReadAll(state, bare, ids); });
    RegisterBenchmark("get", [&](benchmark::State& state) { ReadAll(state, config, ids); });
    for (const size_t count : kListeners)
        RegisterBenchmark(("set " + std::to_string(count)).c_str(),
                          [&config, count](benchmark::State& state) { Write(state, config, count); });
    for (const size_t length : kLengths) {
        RegisterBenchmark(("copy " + std::to_string(length)).c_str(), CopyThroughString, length);
        RegisterBenchmark(("stream " + std::to_string(length)).c_str(), MeasureAndWrite, length);
    }
    char name[] = "vexa_bench", interleave[] = "--benchmark_enable_random_interleaving=true",
         repeat[] = "--benchmark_repetitions=15", shortly[] = "--benchmark_min_time=0.05";
    char* arguments[] = {name, interleave, repeat, shortly};
    int count = std::size(arguments);
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks(&times);
}

void PrintTimes(const std::string& what, double floor, double library, std::optional<double> atMost)
{
    PrintRow(what, Format(floor, 1, "ns"), Format(library, 1, "ns"), library / floor,
             atMost ? std::optional(Target{Target::kAtMost, *atMost}) : std::nullopt);
}

}  // namespace

void MeasureStore()
{
    PrintPart("local store");
    CreateDescriptors();
    Config* const config = ConfigFactoryImpl::GetInstance()->Connect("local:");
    Times times;
    RunAll(times, *config);
    ConfigFactoryImpl::GetInstance()->Disconnect(config);

    PrintTimes("Get of a number", times["bare"], times["get"], 2);
    PrintTimes("Set of a number", times["bare"], times["set 0"], 8);
    for (const size_t count : {1u, 10u, 100u, 1000u})
        PrintTimes("Set with " + std::to_string(count) + " listeners, against none", times["set 0"],
                   times["set " + std::to_string(count)], std::nullopt);
    // Linear: each of many more listeners costs as much as each of the first hundred.
    PrintTimes("each of the listeners 101 to 1000, against 11 to 100",
               (times["set 100"] - times["set 10"]) / 90, (times["set 1000"] - times["set 100"]) / 900, 1.5);
    for (const size_t length : kLengths) {
        const std::string size = std::to_string(length);
        PrintTimes("text of " + size + " bytes, measured and written", times["copy " + size],
                   times["stream " + size], 3);
    }
}
