#include "mainstay/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "config/base/log.h"

void NotifyServiceManager(const std::string& state)
{
    const char* const path = getenv("NOTIFY_SOCKET");
    if (!path || (*path != '/' && *path != '@')) return;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t length = strlen(path);
    if (length >= sizeof address.sun_path) return;
    memcpy(address.sun_path, path, length);
    if (*path == '@') address.sun_path[0] = '\0';  // a name that is no file

    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1) return;
    if (sendto(descriptor, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&address),
               static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length)) == -1)
        vexa::PrintError("mainstay: cannot notify the service manager");
    close(descriptor);
}

std::optional<std::chrono::nanoseconds> WatchdogInterval()
{
    const char* const process = getenv("WATCHDOG_PID");  // the variables may be inherited
    const char* const time = getenv("WATCHDOG_USEC");
    if (!time || (process && atoll(process) != getpid())) return std::nullopt;
    const long long microseconds = atoll(time);
    if (microseconds < 2) return std::nullopt;
    return std::chrono::microseconds(microseconds / 2);
}
