/// Measures what the library costs beside the least that the same work could cost, and prints one table. The
/// two sides of a row take turns within one run; every figure is a median.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "parts.h"
#include "table.h"

namespace {

struct {
    const char* name;
    void (*measure)();
} const kParts[] = {
    {"parameters", MeasureNumberOfParameters},  // first: in processes that have built nothing yet
    {"store", MeasureStore},
    {"network", MeasureNetwork},
    {"queues", MeasureQueues},
    {"daemon", MeasureDaemon},
    {"devices", MeasureDevices},
};

}  // namespace

/// Arguments name the parts to measure; none: all.
int main(int argc, char** argv)
{
    const std::vector<std::string> wanted(argv + 1, argv + argc);
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    setenv("PRODUCT_ID", "ROWAN", 1);  // the largest catalogue
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = descriptors.rlim_max;
    setrlimit(RLIMIT_NOFILE, &descriptors);

    PrintHead();
    for (const auto& [name, measure] : kParts)
        if (wanted.empty() || std::ranges::find(wanted, name) != wanted.end()) measure();
    printf("\n%s.\n", Summary().c_str());
    fflush(stdout);
    _exit(0);  // threads of servers are still there
}
