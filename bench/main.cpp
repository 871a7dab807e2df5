/// Measures what the library costs beside the least that the same work could cost, and prints one table. The
/// two sides of a row take turns within one run; every figure is a median.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "parts.h"
#include "table.h"

int main()
{
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    setenv("PRODUCT_ID", "ROWAN", 1);  // the largest catalogue
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = descriptors.rlim_max;
    setrlimit(RLIMIT_NOFILE, &descriptors);

    PrintHead();
    MeasureNumberOfParameters();  // first: in processes that have built nothing yet
    MeasureStore();
    MeasureNetwork();
    MeasureQueues();
    MeasureDaemon();
    printf("\n%s.\n", Summary().c_str());
    fflush(stdout);
    _exit(0);  // threads of servers are still there
}
