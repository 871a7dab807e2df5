/// A time limit for what the tool asks of a device.
#pragma once

#include <string>

/// Ends the tool with one line and ExitStatus::kTimedOut when it lives longer than it may: the library has no
/// time limit that a user would wait for. Thread: the main thread, one at a time.
class Deadline {
  public:
    /// @param seconds  0: no limit. @param message  the line, on descriptor `messages`; empty: none.
    Deadline(double seconds, const std::string& message, int messages);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
};
