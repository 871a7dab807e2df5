/// Measures what reading, writing and streaming a value costs beside the least that it could cost, and prints
/// one table. Each ratio comes from one run, in which the two sides take turns; every figure is a median.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/access/config_factory_impl.h"
#include "config/config.h"
#include "config/config_value.h"
#include "config/descriptors/registry.h"
#include "config/memory_serializer.h"

namespace {

double Median(std::vector<double> values)
{
    if (values.empty()) return 0;
    std::ranges::sort(values);
    return values[values.size() / 2];
}

// --- reading and writing ---

/// The least that a store of values can do: find one in an ordered map, under a lock of the map and a lock of
/// the value.
class BareStore {
  public:
    explicit BareStore(const std::vector<eParam_t>& ids)
    {
        sem_init(&m_mapLock, 0, 1);
        for (const eParam_t id : ids) sem_init(&m_values[id].lock, 0, 1);
    }
    unsigned int Get(eParam_t id)
    {
        sem_wait(&m_mapLock);
        Value& value = m_values.find(id)->second;
        sem_post(&m_mapLock);
        sem_wait(&value.lock);
        const unsigned int number = value.number;
        sem_post(&value.lock);
        return number;
    }

  private:
    struct Value {
        sem_t lock;
        unsigned int number = 0;
    };
    sem_t m_mapLock;
    std::map<eParam_t, Value> m_values;
};

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

// --- streaming ---

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

// --- starting ---

double MillisecondsToFirstConnection()
{
    const auto start = std::chrono::steady_clock::now();
    CreateDescriptors();
    if (!ConfigFactoryImpl::GetInstance()->Connect("local:")) return 1e9;
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

/// Each in a process that has built nothing yet.
std::vector<double> StartsInFreshProcesses(int count)
{
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        int ends[2];
        if (pipe(ends) != 0) break;
        const pid_t child = fork();
        if (child == 0) {
            const double time = MillisecondsToFirstConnection();
            _exit(write(ends[1], &time, sizeof time) == sizeof time ? 0 : 1);
        }
        close(ends[1]);
        double time = 0;
        if (child > 0 && read(ends[0], &time, sizeof time) == sizeof time) times.push_back(time);
        close(ends[0]);
        if (child > 0) waitpid(child, nullptr, 0);
    }
    return times;
}

// --- the table ---

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

/// Prints the table and remembers whether all targets were met.
class Table {
  public:
    Table()
    {
        printf("| %-44s | %12s | %12s | %6s | %6s | %-6s |\n", "what", "floor", "library", "ratio", "target",
               "result");
        printf("|%s|%s:|%s:|%s:|%s:|%s|\n", std::string(46, '-').c_str(), std::string(13, '-').c_str(),
               std::string(13, '-').c_str(), std::string(7, '-').c_str(), std::string(7, '-').c_str(),
               std::string(8, '-').c_str());
    }
    void Ratio(const std::string& what, double floor, double library, double target)
    {
        char floorText[32], libraryText[32], ratioText[32];
        snprintf(floorText, sizeof floorText, "%.1f ns", floor);
        snprintf(libraryText, sizeof libraryText, "%.1f ns", library);
        snprintf(ratioText, sizeof ratioText, "%.2f", library / floor);
        Print(what, floorText, libraryText, ratioText, std::to_string(target).substr(0, 3),
              library / floor <= target);
    }
    void Milliseconds(const std::string& what, double time, double target)
    {
        char text[32];
        snprintf(text, sizeof text, "%.2f ms", time);
        Print(what, "", text, "", std::to_string(target).substr(0, 1) + " ms", time > 0 && time <= target);
    }
    bool AllMet() const { return m_allMet; }

  private:
    void Print(const std::string& what, const char* floor, const char* library, const char* ratio,
               const std::string& target, bool met)
    {
        printf("| %-44s | %12s | %12s | %6s | %6s | %-6s |\n", what.c_str(), floor, library, ratio,
               target.c_str(), met ? "met" : "MISSED");
        m_allMet = m_allMet && met;
    }
    bool m_allMet = true;
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
    benchmark::RunSpecifiedBenchmarks(&times);
}

bool PrintTable(Times& times, double start)
{
    Table table;
    table.Ratio("number: Get", times["bare"], times["get"], 2);
    table.Ratio("number: Set, no listener", times["bare"], times["set 0"], 8);
    // Linear: each of many more listeners costs what each of the first hundred does.
    table.Ratio("number: Set, listeners 101 to 1000, each", (times["set 100"] - times["set 10"]) / 90,
                (times["set 1000"] - times["set 100"]) / 900, 1.5);
    for (const size_t length : kLengths) {
        const std::string size = std::to_string(length);
        table.Ratio("text of " + size + " bytes: measure and write", times["copy " + size],
                    times["stream " + size], 3);
    }
    table.Milliseconds("descriptors and first connection", start, 3);
    printf("\nSet with 1, 10 and 100 listeners: %.0f, %.0f and %.0f ns.\n", times["set 1"], times["set 10"],
           times["set 100"]);
    return table.AllMet();
}

}  // namespace

int main()
{
    setenv("PRODUCT_ID", "ROWAN", 0);                         // the largest catalogue
    const double start = Median(StartsInFreshProcesses(15));  // before anything is built

    char name[] = "vexa_bench", interleave[] = "--benchmark_enable_random_interleaving=true",
         repeat[] = "--benchmark_repetitions=15", shortly[] = "--benchmark_min_time=0.05";
    char* arguments[] = {name, interleave, repeat, shortly};
    int count = std::size(arguments);
    benchmark::Initialize(&count, arguments);

    CreateDescriptors();
    Config* const config = ConfigFactoryImpl::GetInstance()->Connect("local:");
    if (!config) return 1;
    Times times;
    RunAll(times, *config);
    ConfigFactoryImpl::GetInstance()->Disconnect(config);
    return PrintTable(times, start) ? 0 : 1;
}
