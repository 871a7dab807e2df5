#include "config/base/report.h"

#include <cstdarg>
#include <cstdio>

namespace vexa {

bool Report(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start has just run
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    return false;
}

}  // namespace vexa
