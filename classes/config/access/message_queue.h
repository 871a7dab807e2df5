/// POSIX message queues, as both ends use them.
#pragma once

#include <string>
#include <vector>

#include "config/access/mq_protocol.h"

namespace vexa::config::access {

/// Creates or opens a queue with the agreed depth and message size or, where the system refuses them, with the
/// largest that it allows. Raises the process's limit for queues once, if that is what is missing.
/// @param flags  of mq_open; O_CREAT is added.
/// @return -1, with errno, on failure.
mqd_t CreateQueue(const std::string& name, int flags);

/// One message, however long the queue waits for room. Interrupted calls are repeated.
/// @return false, with errno; at once with EAGAIN for a full queue that is non-blocking.
bool SendMessage(mqd_t queue, const void* data, size_t length, unsigned int priority);

/// The next message that is there, and its size; zeros follow it, at least up to a whole response.
/// @return false, with errno: EAGAIN when there is none, whatever the queue's mode.
bool ReceiveMessage(mqd_t queue, std::vector<char>& message, size_t& length);

}  // namespace vexa::config::access
