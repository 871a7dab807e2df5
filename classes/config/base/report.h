/// Report: prints why an operation failed.
#pragma once

namespace vexa {

/// Prints to standard error, as printf; for operations that return false after one line.
/// @return false. Thread: any.
[[gnu::format(printf, 1, 2)]] bool Report(const char* format, ...);

}  // namespace vexa
