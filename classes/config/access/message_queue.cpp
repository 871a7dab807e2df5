#include "config/access/message_queue.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <fstream>

namespace vexa::config::access {

namespace {

mqd_t Open(const std::string& name, int flags, long depth, long messageBytes)
{
    mq_attr attributes{};
    attributes.mq_maxmsg = depth;
    attributes.mq_msgsize = messageBytes;
    return mq_open(name.c_str(), flags | O_CREAT | O_CLOEXEC, kQueueMode, &attributes);
}

/// A limit of the system; the wanted number when it cannot be read.
long Limit(const char* name, long wanted)
{
    long limit = wanted;
    std::ifstream(std::string("/proc/sys/fs/mqueue/") + name) >> limit;
    return std::min(limit, wanted);
}

/// Doubles what this user's queues may take together, as far as the process is allowed to.
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
    // One after the other goes what may be too much: the limit of this user, the depth, the message size.
    long depth = kQueueDepth, messageBytes = kQueueMessageBytes;
    mqd_t queue = Open(name, flags, depth, messageBytes);
    if (queue == -1 && errno == EINVAL) {
        depth = Limit("msg_max", kQueueDepth);
        messageBytes = Limit("msgsize_max", kQueueMessageBytes);
        queue = Open(name, flags, depth, messageBytes);
    }
    if (queue == -1 && (errno == ENOMEM || errno == EMFILE)) {
        RaiseQueueLimit();
        queue = Open(name, flags, depth, messageBytes);
    }
    if (queue == -1 && (errno == ENOMEM || errno == EMFILE)) {
        constexpr long kFewMessages = 10;
        queue = Open(name, flags, std::min(depth, kFewMessages), messageBytes);
    }
    return queue;
}

bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority)
{
    int result;
    do {
        result = mq_send(queue, static_cast<const char*>(data), length, priority);
    } while (result == -1 && errno == EINTR);
    return result == 0;
}

bool ReceiveMessage(mqd_t queue, std::vector<char>& message, size_t& length)
{
    mq_attr attributes{};
    if (mq_getattr(queue, &attributes) != 0) return false;
    const auto room = static_cast<size_t>(attributes.mq_msgsize);
    message.assign(std::max(room, kQueueResponseBytes) + 1, '\0');
    constexpr timespec kNow{};  // long past: do not wait
    ssize_t count;
    do {
        count = mq_timedreceive(queue, message.data(), message.size(), nullptr, &kNow);
    } while (count == -1 && errno == EINTR);
    if (count == -1 && errno == ETIMEDOUT) errno = EAGAIN;
    if (count == -1) return false;
    length = static_cast<size_t>(count);
    return true;
}

}  // namespace vexa::config::access
