/// POSIX message queues, as both ends use them. Thread: any, for all operations.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "config/access/protocol/mq_protocol.h"
#include "config/base/deadline.h"

namespace vexa::config::access {

/// Creates or opens a queue with the agreed depth and message size or, where the system refuses them, with
/// the largest that it allows. Where a limit of the user or of the system is the obstacle, removes the queues
/// that ended clients have left, then raises the process's limit once.
/// @param flags  of mq_open; O_CREAT is added.
/// @return -1, with errno, on failure.
mqd_t CreateQueue(const std::string& name, int flags);

/// Whether the queue of a descriptor can still be reached by its name. If it was removed, and there is another
/// one of that name, the descriptor becomes that one's.
bool ReopenIfRemoved(const char* name, mqd_t queue);

/// How often a wait without a limit looks whether the other end is still there, in milliseconds.
inline constexpr unsigned int kLookMs = 1000;
/// The end of the wait up to the next look.
inline Deadline NextLook(const Deadline& deadline)
{
    return Deadline(std::min(deadline.Left(), kLookMs));
}

/// Waits until a queue has a message (POLLIN) or room for one (POLLOUT).
/// @param wake  a descriptor that ends the wait when it is readable; -1: none.
/// @return false, with errno: ETIMEDOUT, ECANCELED when woken.
bool WaitForQueue(mqd_t queue, short events, const Deadline& deadline, int wake = -1);

/// Sends one message, and waits for room without a limit. Interrupted calls are repeated.
/// @return false, with errno; at once with EAGAIN for a full queue that is non-blocking.
bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority);
/// The same with a limit, whatever the queue's mode.
/// @return false, with errno, also those of WaitForQueue. ETIMEDOUT may come early, for a look.
bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority,
                 const Deadline& deadline, int wake = -1);

/// Takes the next message that is there, and its size; zeros follow it, at least up to a whole response.
/// @return false, with errno: EAGAIN when there is none, whatever the queue's mode.
bool ReceiveMessage(mqd_t queue, std::vector<char>& message, size_t& length);
/// The same into a buffer that is long enough for any message of the queue. @return -1, with errno, instead
/// of false.
ssize_t ReceiveNow(mqd_t queue, char* buffer, size_t size);

/// Waits for a message, though not for long: kLookMs. It takes less than a wait with WaitForQueue before it.
/// @param queue  blocking. @return -1, with errno: ETIMEDOUT, EINTR.
ssize_t ReceiveOrLook(mqd_t queue, char* buffer, size_t size);

/// Drops the messages that are in a queue, up to a limit.
void DrainQueue(mqd_t queue);

}  // namespace vexa::config::access
