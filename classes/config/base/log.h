/// Lines on standard error that never wait for their reader.
#pragma once

#include <cstddef>

#include "config/base/export.h"

namespace vexa {

/// The longest text of one call: as much as a pipe takes in one piece.
inline constexpr size_t kMaxLogBytes = 4096;

/// Prints, as printf. A text that standard error does not take at once is left out and counted; the number of
/// texts that were left out precedes the next one. Characters that a terminal would obey are spelled out. Keeps
/// errno. Thread: any.
[[gnu::format(printf, 1, 2)]] VEXA_EXPORT void Print(const char* format, ...);
/// Prints the text and the reason in errno, as perror. Thread: any.
VEXA_EXPORT void PrintError(const char* what);
/// Prints, as printf; for operations that return false after one line. @return false. Thread: any.
[[gnu::format(printf, 1, 2)]] VEXA_EXPORT bool Report(const char* format, ...);

/// For a thread that works for peers: whatever it prints while the object lives passes one limiter of the
/// process, so that no peer can fill the log. What does not pass is counted as well.
class VEXA_EXPORT PeerLog {
  public:
    /// How many lines pass at once, and how many a second from then on.
    static constexpr double kBurst = 500, kLinesPerSecond = 10;

    PeerLog();
    ~PeerLog();
    PeerLog(const PeerLog&) = delete;
    PeerLog& operator=(const PeerLog&) = delete;
};

}  // namespace vexa
