/// POSIX message queues, as both ends use them. Thread: any, for all operations.
#pragma once

#include <string>
#include <vector>

#include "config/access/protocol/mq_protocol.h"
#include "config/base/deadline.h"

namespace vexa::config::access {

/// Creates or opens a queue with the agreed depth and message size or, where the system refuses them, with
/// the largest that it allows. Raises the process's limit for queues once, if that limit is the obstacle.
/// @param flags  of mq_open; O_CREAT is added.
/// @param asked  receives the attributes that were asked for last: those of a queue that existed already may
/// differ.
/// @return -1, with errno, on failure.
mqd_t CreateQueue(const std::string& name, int flags, mq_attr* asked = nullptr);

/// Waits until a queue has a message (POLLIN) or room for one (POLLOUT).
/// @param wake  a descriptor that ends the wait when it is readable; -1: none.
/// @return false, with errno: ETIMEDOUT, ECANCELED when woken.
bool WaitForQueue(mqd_t queue, short events, const Deadline& deadline, int wake = -1);

/// Sends one message, and waits for room without a limit. Interrupted calls are repeated.
/// @return false, with errno; at once with EAGAIN for a full queue that is non-blocking.
bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority);
/// The same with a limit, whatever the queue's mode.
/// @return false, with errno, also those of WaitForQueue.
bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority,
                 const Deadline& deadline, int wake = -1);

/// Takes the next message that is there, and its size; zeros follow it, at least up to a whole response.
/// @return false, with errno: EAGAIN when there is none, whatever the queue's mode.
bool ReceiveMessage(mqd_t queue, std::vector<char>& message, size_t& length);
/// The same into a buffer that is long enough for any message of the queue. @return -1, with errno, instead
/// of false.
ssize_t ReceiveNow(mqd_t queue, char* buffer, size_t size);

/// Drops the messages that are in a queue, up to a limit.
void DrainQueue(mqd_t queue);

}  // namespace vexa::config::access
