#include "config/base/log.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "config/base/diagnostic_log.h"
#include "config/base/harmless.h"
#include "config/base/mutex.h"
#include "config/base/no_destructor.h"

namespace vexa {

namespace {

using Clock = std::chrono::steady_clock;

struct Log {
    Mutex lock;  // so that two threads do not share the room that one has found
    unsigned long leftOut VEXA_GUARDED_BY(lock) = 0;
    double allowed VEXA_GUARDED_BY(lock) = PeerLog::kBurst;
    Clock::time_point refilled VEXA_GUARDED_BY(lock) = Clock::now();
};

Log& TheLog()
{
    static NoDestructor<Log> log;  // threads print until the process has ended
    return *log;
}

thread_local unsigned int t_peerLogs = 0;

/// @return false when the reader is behind.
bool WriteNow(const char* text, size_t length)
{
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) != 1 || !(output.revents & POLLOUT)) return false;
    const ssize_t sent = send(STDERR_FILENO, text, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent != -1 || errno != ENOTSOCK) return sent != -1;
    return write(STDERR_FILENO, text, length) != -1;
}

bool Passes(Log& log) VEXA_REQUIRES(log.lock)
{
    const auto now = Clock::now();
    const std::chrono::duration<double> passed = now - log.refilled;
    log.refilled = now;
    log.allowed = std::min(PeerLog::kBurst, log.allowed + passed.count() * PeerLog::kLinesPerSecond);
    if (log.allowed < 1) return false;
    --log.allowed;
    return true;
}

/// @return whether the reader has been told of the texts that it does not get.
bool TellLeftOut(Log& log) VEXA_REQUIRES(log.lock)
{
    if (log.leftOut == 0) return true;
    char line[64];
    const int length = snprintf(line, sizeof line, "%lu more lines were left out\n", log.leftOut);
    if (!WriteNow(line, static_cast<size_t>(length))) return false;
    log.leftOut = 0;
    return true;
}

void Write(const char* text, size_t length, bool limited)
{
    Log& log = TheLog();
    const MutexLock hold(log.lock);
    if ((limited && !Passes(log)) || !TellLeftOut(log) || !WriteNow(text, length)) ++log.leftOut;
}

/// What peers chose goes to whatever terminal shows the log.
void WriteHarmless(std::string_view text, bool limited)
try {
    if (IsPlain(text)) return Write(text.data(), text.size(), limited);
    std::string harmless = Harmless(text);
    harmless.resize(std::min(harmless.size(), kMaxLogBytes - 1));
    Write(harmless.data(), harmless.size(), limited);
} catch (const std::bad_alloc&) {
    constexpr std::string_view kInstead = "a line was left out for want of memory\n";
    Write(kInstead.data(), kInstead.size(), limited);
}

void Format(const char* format, va_list arguments, bool limited)
{
    const int error = errno;
    char text[kMaxLogBytes];
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the callers have called va_start
    const int length = vsnprintf(text, sizeof text, format, arguments);
    if (length > 0) WriteHarmless({text, std::min(static_cast<size_t>(length), sizeof text - 1)}, limited);
    errno = error;
}

}  // namespace

// NOLINTBEGIN(clang-analyzer-valist.Uninitialized): va_start has just run

void Print(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Format(format, arguments, t_peerLogs > 0);
    va_end(arguments);
}

void PrintError(const char* what)
{
    Print("%s: %s\n", what, strerror(errno));
}

bool Report(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Format(format, arguments, t_peerLogs > 0);
    va_end(arguments);
    return false;
}

PeerLog::PeerLog()
{
    ++t_peerLogs;
}

PeerLog::~PeerLog()
{
    --t_peerLogs;
}

}  // namespace vexa

bool DiagnosticLogIsOn()
{
    static const bool on = getenv("VEXA_LOG") != nullptr;
    return on;
}

/// Not limited: whoever turns it on wants every line.
void DiagnosticLog(const char* format, ...)
{
    if (!DiagnosticLogIsOn()) return;
    va_list arguments;
    va_start(arguments, format);
    vexa::Format(format, arguments, false);
    va_end(arguments);
}

// NOLINTEND(clang-analyzer-valist.Uninitialized)
