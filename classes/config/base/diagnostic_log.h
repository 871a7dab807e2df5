/// The diagnostic log: what a developer wants to see and an operator does not.
#pragma once

/// One or more lines, as printf, to standard error; silent unless the environment variable VEXA_LOG is set.
/// Thread: any.
bool DiagnosticLogIsOn();
[[gnu::format(printf, 1, 2)]] void DiagnosticLog(const char* format, ...);
