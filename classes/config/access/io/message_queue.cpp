#include "config/access/io/message_queue.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <fstream>
#include <new>

#include "config/access/io/left_queues.h"

namespace vexa::config::access {

namespace {

constexpr timespec kNow{};  // long past: do not wait

/// A limit of the system; the wanted number when it cannot be read.
long Limit(const char* name, long wanted)
{
    long limit = wanted;
    std::ifstream(std::string("/proc/sys/fs/mqueue/") + name) >> limit;
    return std::min(limit, wanted);
}

/// @param attributes  become those that the system allows.
mqd_t Open(const std::string& name, int flags, mq_attr& attributes)
{
    constexpr int kCreate = O_CREAT | O_CLOEXEC;
    const mqd_t queue = mq_open(name.c_str(), flags | kCreate, kQueueMode, &attributes);
    if (queue != -1 || errno != EINVAL) return queue;
    attributes.mq_maxmsg = Limit("msg_max", attributes.mq_maxmsg);
    attributes.mq_msgsize = Limit("msgsize_max", attributes.mq_msgsize);
    return mq_open(name.c_str(), flags | kCreate, kQueueMode, &attributes);
}

bool IsUserLimit(int error)
{
    return error == ENOMEM || error == EMFILE;
}

/// Leaves errno as it was.
bool HasMadeRoom()
{
    const int error = errno;
    const bool removed = (IsUserLimit(error) || error == ENOSPC) && RemoveLeftQueues();
    errno = error;
    return removed;
}

/// Doubles the limit of this user's queues, as far as the process is allowed to.
void RaiseQueueLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_MSGQUEUE, &limit) != 0) return;
    const auto doubled = [](rlim_t value) { return value > RLIM_INFINITY / 2 ? RLIM_INFINITY : value * 2; };
    rlimit raised{doubled(limit.rlim_cur), doubled(limit.rlim_max)};
    if (setrlimit(RLIMIT_MSGQUEUE, &raised) == 0) return;
    raised = {std::min(raised.rlim_cur, limit.rlim_max), limit.rlim_max};
    setrlimit(RLIMIT_MSGQUEUE, &raised);
}

}  // namespace

mqd_t CreateQueue(const std::string& name, int flags)
{
    // Each attempt avoids one obstacle more: first the system's limits of depth and message size, then what
    // ended clients hold, then the limit of this user.
    mq_attr attributes{};
    attributes.mq_maxmsg = kQueueDepth;
    attributes.mq_msgsize = kQueueMessageBytes;
    mqd_t queue = Open(name, flags, attributes);
    if (queue == -1 && HasMadeRoom()) queue = Open(name, flags, attributes);
    if (queue == -1 && IsUserLimit(errno)) {
        RaiseQueueLimit();
        queue = Open(name, flags, attributes);
    }
    if (queue == -1 && IsUserLimit(errno)) {
        constexpr long kFewMessages = 10;
        attributes.mq_maxmsg = std::min(attributes.mq_maxmsg, kFewMessages);
        queue = Open(name, flags, attributes);
    }
    return queue;
}

bool ReopenIfRemoved(const char* name, mqd_t queue)
{
    if (HasName(queue)) return true;
    const mqd_t next = mq_open(name, O_RDWR | O_CLOEXEC);
    if (next == -1) return false;
    const bool isReopened = dup3(next, queue, O_CLOEXEC) != -1;
    mq_close(next);
    return isReopened;
}

// --- waiting ---

bool WaitForQueue(mqd_t queue, short events, const Deadline& deadline, int wake)
{
    for (;;) {
        pollfd descriptors[] = {{queue, events, 0}, {wake, POLLIN, 0}};
        const int count = poll(descriptors, 2, deadline.PollTimeout());
        if (count == -1 && errno == EINTR) continue;
        if (count == -1) return false;
        if (descriptors[0].revents & POLLNVAL)
            errno = EBADF;
        else if (descriptors[1].revents)
            errno = ECANCELED;
        else if (descriptors[0].revents)
            return true;
        else if (deadline.IsOver())
            errno = ETIMEDOUT;
        else
            continue;  // the deadline is beyond the longest wait of poll
        return false;
    }
}

// --- messages ---

bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority)
{
    int result;
    do {
        result = mq_send(queue, static_cast<const char*>(data), length, priority);
    } while (result == -1 && errno == EINTR);
    return result == 0;
}

/// Mostly there is room, so poll is called only when there was none.
bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority,
                 const Deadline& deadline, int wake)
{
    for (;;) {
        if (mq_timedsend(queue, static_cast<const char*>(data), length, priority, &kNow) == 0) return true;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != ETIMEDOUT) return false;
        if (!WaitForQueue(queue, POLLOUT, NextLook(deadline), wake)) return false;
    }
}

ssize_t ReceiveNow(mqd_t queue, char* buffer, size_t size)
{
    ssize_t count;
    do {
        count = mq_timedreceive(queue, buffer, size, nullptr, &kNow);
    } while (count == -1 && errno == EINTR);
    if (count == -1 && errno == ETIMEDOUT) errno = EAGAIN;
    return count;
}

ssize_t ReceiveOrLook(mqd_t queue, char* buffer, size_t size)
{
    timespec look{};  // of the clock that the call takes: where that is set, the look comes early or late
    clock_gettime(CLOCK_REALTIME_COARSE, &look);
    look.tv_sec += kLookMs / 1000;
    return mq_timedreceive(queue, buffer, size, nullptr, &look);
}

bool ReceiveMessage(mqd_t queue, std::vector<char>& message, size_t& length)
{
    mq_attr attributes{};
    if (mq_getattr(queue, &attributes) != 0) return false;
    const auto room = static_cast<size_t>(attributes.mq_msgsize);
    message.assign(std::max(room, kQueueResponseBytes) + 1, '\0');
    const ssize_t count = ReceiveNow(queue, message.data(), message.size());
    if (count == -1) return false;
    length = static_cast<size_t>(count);
    return true;
}

void DrainQueue(mqd_t queue)
try {
    constexpr int kEnough = 1000;  // a peer that floods must not delay the caller
    std::vector<char> message;
    size_t length = 0;
    for (int i = 0; i < kEnough && ReceiveMessage(queue, message, length); ++i) {
    }
} catch (const std::bad_alloc&) {  // old messages differ from answers by their request identifiers
}

}  // namespace vexa::config::access
