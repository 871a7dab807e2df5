/// Times as people type and read them, and as the daemon writes them. Thread: any.
#pragma once

#include <sys/time.h>

#include <ctime>
#include <optional>
#include <string>

/// "30s", "10m", "2h" or "7d" ago; "2026-02-28", "2026-02-28 13:05", "2026-02-28T13:05:09", of this time zone unless
/// "Z" or "+01:00" follows.
/// @return nothing for another text.
std::optional<time_t> ParseTime(const std::string& text, time_t now);
/// "2026-02-28T13:05:09Z".
std::string UtcText(time_t time);
/// A time of the daemon as people read it: "2026-02-28 13:05:09", of this time zone; "-" for none, and what cannot be
/// read as it is.
std::string LocalText(const std::string& text);
/// "2026-03-01T12:00:00.000123+01:00", of this time zone.
std::string TimeText(timeval time);
/// Of seconds that a person has typed, as many as a deadline takes.
unsigned int MillisecondsOf(double seconds);
