/// QueueEvents: the changes that are on their way from the threads that make them to the queue service.
#pragma once

#include <atomic>
#include <string>

#include "config/base/mutex.h"
#include "config/delivery/backlog.h"

namespace vexa::config::access {

/// A message to every client that wants events.
struct QueueEvent {
    eParam_t id{};
    std::string bytes;    ///< with connection identifier 0
    uint64_t number = 0;  ///< the receiver's
};

/// Nobody waits here for more than a moment. Thread: any.
class QueueEvents {
  public:
    /// Throws std::system_error without a descriptor.
    QueueEvents();
    ~QueueEvents();
    QueueEvents(const QueueEvents&) = delete;
    QueueEvents& operator=(const QueueEvents&) = delete;

    /// Whether there is a receiver: without one no event needs to be made.
    bool AreWanted() const { return m_wanted; }
    void SetWanted(bool wanted) { m_wanted = wanted; }

    /// @param wake  whether the receiver is to be woken.
    void Add(QueueEvent event, bool wake);
    bool IsEmpty() const { return m_isEmpty; }
    /// The oldest event. @return false when there is none.
    bool Take(QueueEvent& event);
    /// Events that were left out because newer ones have overtaken them, since the last call.
    uint64_t TakeLeftOut();

    /// Becomes readable when there are events, and by Wake.
    int Descriptor() const { return m_descriptor; }
    void Wake();
    /// Makes the descriptor unreadable.
    void Clear();

  private:
    const int m_descriptor;
    std::atomic<bool> m_wanted = false, m_isEmpty = true;
    Mutex m_lock;
    Backlog<QueueEvent> m_events VEXA_GUARDED_BY(m_lock);
    bool m_isWoken VEXA_GUARDED_BY(m_lock) = false;  // since it has taken them all
    uint64_t m_leftOut VEXA_GUARDED_BY(m_lock) = 0;  // that the receiver has heard of
};

}  // namespace vexa::config::access
