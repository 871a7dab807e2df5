#include "config/access/diagnostic_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

void DiagnosticLog(const char* format, ...)
{
    static const bool on = getenv("VEXA_LOG") != nullptr;
    if (!on) return;
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
}
