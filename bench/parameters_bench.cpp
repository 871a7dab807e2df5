/// The cost of a larger or smaller catalogue.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "bare_store.h"
#include "config/access/connector/config_factory_impl.h"
#include "config/config.h"
#include "config/descriptors/integer_descriptor.h"
#include "config/descriptors/registry/registry.h"
#include "parts.h"
#include "process.h"
#include "table.h"

namespace {

constexpr double kStartTarget = 3e-3;  // seconds to the first connection

Config* ConnectFirst()
{
    return ConfigFactoryImpl::GetInstance()->Connect("local:");
}

/// A catalogue of so many numbers.
void MakeCatalogue(size_t parameters)
{
    CreateDescriptors();
    DestroyDescriptors();
    for (uint32_t id = 1; id <= parameters; ++id) {
        auto* const descriptor = new IntegerDescriptor;
        descriptor->SetParamID(eParam_t{id << 8});
        descriptor->SetParamType(eCParam_IntegerValue);
        descriptor->SetMaxValue(UINT32_MAX);
        g_paramDescriptors[descriptor->GetParamID()] = descriptor;
    }
}

void MeasureAccess(size_t parameters)
{
    MakeCatalogue(parameters);
    const double before = ResidentKiB(getpid());
    Config* store = nullptr;
    const double start = SecondsOf([&] { store = ConnectFirst(); });
    const double memory = ResidentKiB(getpid()) - before;

    const auto listed = store->GetParamIDs();
    const std::vector<eParam_t> ids(listed.begin(), listed.end());
    BareStore bare(ids);
    const auto all = [&](auto operation) -> Work {
        return [&ids, operation](int count) {
            for (int i = 0; i < count; ++i) operation(ids[static_cast<size_t>(i) * 7919 % ids.size()]);
        };
    };
    const Work floor = all([&](eParam_t id) { bare.Get(id); });
    const std::string among = " among " + std::to_string(parameters) + " parameters";
    CompareTimes("Get" + among, 100'000, floor, all([&](eParam_t id) { store->Get(id); }), {});
    CompareTimes("Set" + among, 100'000, floor, all([&](eParam_t id) { store->Set(id, 1u); }), {});
    PrintFigure("making the store of " + std::to_string(parameters) + " parameters",
                Format(start * 1e3, 2, "ms"));
    PrintFigure("its memory", Format(memory, 0, "KiB"));
}

double SecondsToFirstConnection()
{
    return SecondsOf([] {
        CreateDescriptors();
        ConnectFirst();
    });
}

void InFreshProcess(const std::function<void()>& work)
{
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        work();
        fflush(stdout);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

double MeasureStart()
{
    std::vector<double> times;
    for (int i = 0; i < 15; ++i) {
        int ends[2];
        if (pipe(ends) != 0) exit(1);
        InFreshProcess([&] {
            const double time = SecondsToFirstConnection();
            if (write(ends[1], &time, sizeof time) != sizeof time) _exit(1);
        });
        double time = 0;
        if (read(ends[0], &time, sizeof time) == sizeof time) times.push_back(time);
        close(ends[0]);
        close(ends[1]);
    }
    return Median(times);
}

}  // namespace

void MeasureNumberOfParameters()
{
    PrintPart("catalogue");
    const double start = MeasureStart();
    PrintRow("descriptors and first connection", Format(kStartTarget * 1e3, 2, "ms"),
             Format(start * 1e3, 2, "ms"), start / kStartTarget, Target{Target::kAtMost, 1});
    for (const size_t parameters : {50u, 500u, 5000u}) InFreshProcess([&] { MeasureAccess(parameters); });
}
