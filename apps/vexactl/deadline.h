/// A time limit for the tool's requests to a device.
#pragma once

#include <string>

/// Ends the tool with one line and ExitStatus::kTimedOut when it lives longer than its limit: the library's
/// own limits are longer than a user would wait. Thread: the main thread, one at a time.
class Deadline {
  public:
    /// @param seconds  0: no limit. @param message  the line, on descriptor `messages`; empty: none.
    Deadline(double seconds, const std::string& message, int messages);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
};
