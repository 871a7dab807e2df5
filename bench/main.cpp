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

int seconds = 60;  // of the rows that take their time

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
    {"state", [] { MeasureState(seconds); }},
};

}  // namespace

/// Arguments name the parts to measure; none: all. "--seconds N" before them shortens the long rows.
int main(int argc, char** argv)
{
    std::vector<std::string> wanted(argv + 1, argv + argc);
    if (wanted.size() >= 2 && wanted[0] == "--seconds") {
        seconds = std::max(1, atoi(wanted[1].c_str()));
        wanted.erase(wanted.begin(), wanted.begin() + 2);
    }
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
