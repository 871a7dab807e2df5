/// POSIX message queues, as both ends use them.
#pragma once

#include <string>
#include <vector>

#include "config/access/protocol/mq_protocol.h"
#include "config/base/deadline.h"

namespace vexa::config::access {

/// Creates or opens a queue with the agreed depth and message size or, where the system refuses them, with the
/// largest that it allows. Raises the process's limit for queues once, if that is what is missing.
/// @param flags  of mq_open; O_CREAT is added.
/// @param asked  receives what was asked for last: a queue that was there already may differ.
/// @return -1, with errno, on failure.
mqd_t CreateQueue(const std::string& name, int flags, mq_attr* asked = nullptr);

/// Waits until a queue has a message (POLLIN) or room for one (POLLOUT).
/// @param wake  a descriptor that ends the wait when it is readable; -1: none.
/// @return false, with errno: ETIMEDOUT, ECANCELED when woken.
bool WaitForQueue(mqd_t queue, short events, const Deadline& deadline, int wake = -1);

/// One message, however long the queue waits for room. Interrupted calls are repeated.
/// @return false, with errno; at once with EAGAIN for a full queue that is non-blocking.
bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority);
/// The same with a limit, whatever the queue's mode.
/// @return false, with errno, also those of WaitForQueue.
bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority,
                 const Deadline& deadline, int wake = -1);

/// The next message that is there, and its size; zeros follow it, at least up to a whole response.
/// @return false, with errno: EAGAIN when there is none, whatever the queue's mode.
bool ReceiveMessage(mqd_t queue, std::vector<char>& message, size_t& length);
/// The same into a buffer that no message of the queue exceeds. @return -1, with errno, instead of false.
ssize_t ReceiveNow(mqd_t queue, char* buffer, size_t size);

/// Drops what is in a queue.
void DrainQueue(mqd_t queue);

}  // namespace vexa::config::access
