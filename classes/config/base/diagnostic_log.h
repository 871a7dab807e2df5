/// The diagnostic log: lines for developers, off unless the environment variable VEXA_LOG is set.
#pragma once

/// Whether the log is on; the environment is read once.
/// Thread: any.
bool DiagnosticLogIsOn();
/// Prints one or more lines to standard error, as printf, if the log is on.
/// Thread: any.
[[gnu::format(printf, 1, 2)]] void DiagnosticLog(const char* format, ...);
