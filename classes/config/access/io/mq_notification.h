/// The notification of a message-queue client that its queue has a message.
#pragma once

#include <mqueue.h>
#include <signal.h>

namespace vexa::config::access {

/// As mq_notify: once, when a message arrives in the empty queue and no thread waits for it, a new thread
/// calls the function. Thread: any. @return -1, with errno, on failure: EBUSY when this process, or another,
/// is registered.
int NotifyOnThread(mqd_t queue, void (*function)(sigval), void* value);

}  // namespace vexa::config::access
