#include "vexactl/times.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace {

std::optional<time_t> Ago(const std::string& text, time_t now)
{
    constexpr time_t kLongest = 100'000;  // of any unit
    unsigned int count = 0;
    const char* const end = text.data() + text.size();
    const auto [unit, error] = std::from_chars(text.data(), end, count);
    if (error != std::errc() || unit + 1 != end || count > kLongest) return std::nullopt;
    switch (*unit) {
        case 's':
            return now - time_t{count};
        case 'm':
            return now - time_t{count} * 60;
        case 'h':
            return now - time_t{count} * 3600;
        case 'd':
            return now - time_t{count} * 86'400;
        default:
            return std::nullopt;
    }
}

/// The fraction of a second and the time zone. @return false for anything else.
bool ParseRest(const char* rest, tm& parts, time_t& time)
{
    if (*rest == '.') rest += 1 + strspn(rest + 1, "0123456789");
    if (!*rest) {
        parts.tm_isdst = -1;
        time = mktime(&parts);
        return true;
    }
    tm offset{};
    const char* const end = strptime(rest, "%z", &offset);
    if (!end || *end) return false;
    time = timegm(&parts) - offset.tm_gmtoff;
    return true;
}

}  // namespace

std::optional<time_t> ParseTime(const std::string& text, time_t now)
{
    if (const auto ago = Ago(text, now)) return ago;
    for (const char* const form :
         {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M", "%Y-%m-%d"}) {
        tm parts{};
        time_t time = 0;
        const char* const rest = strptime(text.c_str(), form, &parts);
        if (rest && ParseRest(rest, parts, time)) return time;
    }
    return std::nullopt;
}

std::string UtcText(time_t time)
{
    tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string LocalText(const std::string& text)
{
    if (text.empty()) return "-";
    const auto time = ParseTime(text, 0);
    if (!time) return text;
    tm parts{};
    localtime_r(&*time, &parts);
    char shown[32];
    strftime(shown, sizeof shown, "%Y-%m-%d %H:%M:%S", &parts);
    return shown;
}

std::string TimeText(timeval time)
{
    tm parts{};
    localtime_r(&time.tv_sec, &parts);
    // A peer may send anything.
    const auto microseconds = static_cast<long>(std::clamp<suseconds_t>(time.tv_usec, 0, 999'999));
    char date[32], zone[8], text[56];
    strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
    strftime(zone, sizeof zone, "%z", &parts);
    snprintf(text, sizeof text, "%s.%06ld%.3s:%s", date, microseconds, zone, zone + 3);
    return text;
}

unsigned int MillisecondsOf(double seconds)
{
    constexpr double kMost = 2e9;  // some three weeks; who waits longer is not in a hurry
    return static_cast<unsigned int>(std::min(seconds * 1000, kMost));
}
