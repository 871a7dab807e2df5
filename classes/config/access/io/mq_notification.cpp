#include "config/access/io/mq_notification.h"

#if defined(__SANITIZE_THREAD__)
#define VEXA_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VEXA_THREAD_SANITIZER
#endif
#endif

#ifdef VEXA_THREAD_SANITIZER
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#endif

namespace vexa::config::access {

#ifndef VEXA_THREAD_SANITIZER

int NotifyOnThread(mqd_t queue, void (*function)(sigval), void* value)
{
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_notify_function = function;
    event.sigev_value.sival_ptr = value;
    return mq_notify(queue, &event);
}

#else

// The thread sanitizer does not support threads that the C library starts by itself. So its builds do the
// library's work: the kernel sends a cookie of 32 bytes to a socket when a message has arrived.

namespace {

struct Cookie {
    void (*function)(sigval);
    void* value;
    char unused[32 - 2 * sizeof(void*) - 1];
    char code;  // of the kernel
};
static_assert(sizeof(Cookie) == 32);
constexpr char kWokenUp = 1;

[[noreturn]] void Serve(int socket)
{
    for (;;) {
        Cookie cookie;
        if (recv(socket, &cookie, sizeof cookie, MSG_WAITALL) != sizeof cookie || cookie.code != kWokenUp)
            continue;
        std::thread([cookie] {
            sigval value{};
            value.sival_ptr = cookie.value;
            cookie.function(value);
        }).detach();
    }
}

int StartServing()
{
    const int socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, 0);
    std::thread(Serve, socket).detach();
    return socket;
}

}  // namespace

int NotifyOnThread(mqd_t queue, void (*function)(sigval), void* value)
{
    static const int socket = StartServing();
    Cookie cookie{};
    cookie.function = function;
    cookie.value = value;
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD;
    event.sigev_signo = socket;
    event.sigev_value.sival_ptr = &cookie;
    return static_cast<int>(syscall(SYS_mq_notify, queue, &event));
}

#endif

}  // namespace vexa::config::access
