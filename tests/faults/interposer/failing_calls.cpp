/// A library to preload: system calls fail as the plan of a test says.
#include <dlfcn.h>
#include <fcntl.h>
#include <mqueue.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <new>

#include "faults/plan.h"

namespace {

using namespace faults;

Plan* plan = nullptr;  // without one nothing fails

/// Before main. Programs that this one starts are left alone.
__attribute__((constructor)) void MapPlan()
{
    const char* const path = getenv(kPlanVariable);
    const int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (file == -1) return;
    void* const memory = mmap(nullptr, sizeof(Plan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory != MAP_FAILED) plan = static_cast<Plan*>(memory);
    close(file);
    unsetenv("LD_PRELOAD");
    unsetenv(kPlanVariable);
}

/// @return the error of this call, 0 for none.
int ErrorOf(Call call)
{
    if (!plan) return 0;
    Rule& rule = plan->rules[call];
    ++rule.begun;
    if (rule.times <= 0 || rule.skip-- > 0 || rule.times-- <= 0) return 0;
    ++rule.failed;
    return rule.error;
}

template <class Function>
Function* Real(Function*, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

/// One that reports its failure by -1 and errno. `promise` is what the system's header declares.
#define FAILING_CALL(call, result, name, parameters, arguments, promise) \
    extern "C" result name parameters promise                            \
    {                                                                    \
        static const auto real = Real(&name, #name);                     \
        const int error = ErrorOf(call);                                 \
        if (error == 0) return real arguments;                           \
        errno = error;                                                   \
        return -1;                                                       \
    }

/// One whose failure may be that it transfers less than was asked for.
#define SHORT_CALL(call, name, parameters, arguments) \
    extern "C" ssize_t name parameters                \
    {                                                 \
        static const auto real = Real(&name, #name);  \
        const int error = ErrorOf(call);              \
        if (error == kOneByte && n > 1) n = 1;        \
        if (error <= 0) return real arguments;        \
        errno = error;                                \
        return -1;                                    \
    }

FAILING_CALL(kSocket, int, socket, (int d, int t, int p), (d, t, p), noexcept)
FAILING_CALL(kSetsockopt, int, setsockopt, (int s, int l, int o, const void* v, socklen_t n), (s, l, o, v, n),
             noexcept)
FAILING_CALL(kBind, int, bind, (int s, const sockaddr* a, socklen_t n), (s, a, n), noexcept)
FAILING_CALL(kListen, int, listen, (int s, int n), (s, n), noexcept)
FAILING_CALL(kConnect, int, connect, (int s, const sockaddr* a, socklen_t n), (s, a, n), )
FAILING_CALL(kAccept4, int, accept4, (int s, sockaddr* a, socklen_t* n, int f), (s, a, n, f), )
SHORT_CALL(kSend, send, (int s, const void* b, size_t n, int f), (s, b, n, f))
SHORT_CALL(kRecv, recv, (int s, void* b, size_t n, int f), (s, b, n, f))
FAILING_CALL(kSendto, ssize_t, sendto,
             (int s, const void* b, size_t n, int f, const sockaddr* a, socklen_t l), (s, b, n, f, a, l), )
FAILING_CALL(kRecvfrom, ssize_t, recvfrom, (int s, void* b, size_t n, int f, sockaddr* a, socklen_t* l),
             (s, b, n, f, a, l), )
FAILING_CALL(kPoll, int, poll, (pollfd * d, nfds_t n, int t), (d, n, t), )
FAILING_CALL(kEventfd, int, eventfd, (unsigned int v, int f), (v, f), noexcept)
FAILING_CALL(kMqSend, int, mq_send, (mqd_t q, const char* b, size_t n, unsigned int p), (q, b, n, p), )
FAILING_CALL(kMqTimedsend, int, mq_timedsend,
             (mqd_t q, const char* b, size_t n, unsigned int p, const timespec* t), (q, b, n, p, t), )
FAILING_CALL(kMqReceive, ssize_t, mq_receive, (mqd_t q, char* b, size_t n, unsigned int* p), (q, b, n, p), )
FAILING_CALL(kMqTimedreceive, ssize_t, mq_timedreceive,
             (mqd_t q, char* b, size_t n, unsigned int* p, const timespec* t), (q, b, n, p, t), )
FAILING_CALL(kMqGetattr, int, mq_getattr, (mqd_t q, mq_attr* a), (q, a), noexcept)
FAILING_CALL(kMqSetattr, int, mq_setattr, (mqd_t q, const mq_attr* a, mq_attr* o), (q, a, o), noexcept)
FAILING_CALL(kMqNotify, int, mq_notify, (mqd_t q, const sigevent* e), (q, e), noexcept)
FAILING_CALL(kFlock, int, flock, (int d, int o), (d, o), noexcept)

FAILING_CALL(kFsync, int, fsync, (int d), (d), )
FAILING_CALL(kFsync, int, fdatasync, (int d), (d), )
FAILING_CALL(kRename, int, rename, (const char* a, const char* b), (a, b), noexcept)
FAILING_CALL(kPwrite, ssize_t, pwrite, (int d, const void* b, size_t n, off_t o), (d, b, n, o), )
FAILING_CALL(kPwrite, ssize_t, pwrite64, (int d, const void* b, size_t n, off64_t o), (d, b, n, o), )

/// SQLite has neither of the two on some systems. What a program prints may be a file as well.
extern "C" ssize_t write(int descriptor, const void* bytes, size_t length)
{
    static const auto real = Real(&write, "write");
    struct stat status;
    const bool isFile =
        descriptor > STDERR_FILENO && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    const int error = isFile ? ErrorOf(kPwrite) : 0;
    if (error == 0) return real(descriptor, bytes, length);
    errno = error;
    return -1;
}

/// Both names of one call.
#define FAILING_OPEN(name)                                                 \
    extern "C" int name(const char* path, int flags, ...)                  \
    {                                                                      \
        static const auto real = Real(&name, #name);                       \
        va_list more;                                                      \
        va_start(more, flags);                                             \
        const auto mode = flags & O_CREAT ? va_arg(more, mode_t) : 0;      \
        va_end(more);                                                      \
        const int error = ErrorOf(kOpen);                                  \
        return error == 0 ? real(path, flags, mode) : (errno = error, -1); \
    }
FAILING_OPEN(open)
FAILING_OPEN(open64)

extern "C" mqd_t mq_open(const char* name, int flags, ...) noexcept
{
    static const auto real = Real(&mq_open, "mq_open");
    va_list optional;
    va_start(optional, flags);
    const auto mode = flags & O_CREAT ? va_arg(optional, mode_t) : 0;
    mq_attr* const attributes = flags & O_CREAT ? va_arg(optional, mq_attr*) : nullptr;
    va_end(optional);
    const int error = ErrorOf(kMqOpen);
    if (error == 0) return real(name, flags, mode, attributes);
    errno = error;
    return -1;
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                              void* argument) noexcept
{
    static const auto real = Real(&pthread_create, "pthread_create");
    const int error = ErrorOf(kPthreadCreate);
    return error ? error : real(thread, attributes, body, argument);
}

void* operator new(size_t size)
{
    static const auto real =
        Real(static_cast<void* (*)(size_t)>(nullptr), sizeof size == 8 ? "_Znwm" : "_Znwj");
    if (ErrorOf(kNew)) throw std::bad_alloc();
    return real(size);
}
