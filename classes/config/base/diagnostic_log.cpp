#include "config/base/diagnostic_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

bool DiagnosticLogIsOn()
{
    static const bool on = getenv("VEXA_LOG") != nullptr;
    return on;
}

void DiagnosticLog(const char* format, ...)
{
    if (!DiagnosticLogIsOn()) return;
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start has just run
    vfprintf(stderr, format, arguments);
    va_end(arguments);
}
