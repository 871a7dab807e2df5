/// The response queues of clients that have ended without removing them. A client holds a file lock on its
/// queue, which ends with it. Thread: any, for all operations.
#pragma once

#include <mqueue.h>

#include <cstdint>
#include <vector>

namespace vexa::config::access {

/// Where the system lists the queues, if that is mounted.
inline constexpr char kQueueFolder[] = "/dev/mqueue";

/// Locks a queue for its client; the lock ends with the descriptor. @return false when it is locked already.
bool LockQueue(mqd_t queue);
/// Whether another descriptor holds the lock.
bool IsLocked(mqd_t queue);
/// The process that holds the lock, as far as the system tells; else 0.
pid_t LockHolder(mqd_t queue);
/// Whether the queue can still be opened by its name.
bool HasName(mqd_t queue);

/// The connections whose response queues the folder lists.
std::vector<uint32_t> ListClientQueues(const char* folder = kQueueFolder);
/// Removes the response queue of a client of this user that has ended. A queue without a lock may belong to a
/// client that does not lock: so it stays while there is another process of its number.
bool RemoveIfLeft(uint32_t connectionID);
/// The same for all that are listed. @return whether one was removed.
bool RemoveLeftQueues(const char* folder = kQueueFolder);

}  // namespace vexa::config::access
