/// EventQueue: events that wait for a slow receiver.
#pragma once

#include <deque>
#include <utility>

#include "config/base/log.h"

namespace vexa {

/// Bounded: a full queue drops its oldest event. The first drop prints one line on standard error; further
/// drops print none until the queue has been empty. Thread: one at a time; the owner's lock guards it.
template <class Event>
class EventQueue {
  public:
    /// @param name  of the receiver, for that line; a literal.
    explicit EventQueue(const char* name) : m_name(name) {}

    bool IsEmpty() const { return m_events.empty(); }
    void Push(Event event)
    {
        if (m_events.size() == kMaxEvents) {
            m_events.pop_front();
            if (!m_dropped) Print("%s - too many events, the oldest are lost\n", m_name);
            m_dropped = true;
        }
        m_events.push_back(std::move(event));
    }
    /// @param event  untouched when there is none. @return false then.
    bool Pop(Event& event)
    {
        if (m_events.empty()) return false;
        event = std::move(m_events.front());
        m_events.pop_front();
        if (m_events.empty()) m_dropped = false;
        return true;
    }
    void Clear()
    {
        m_events.clear();
        m_dropped = false;
    }

    static constexpr size_t kMaxEvents = 10'000;

  private:
    const char* const m_name;
    std::deque<Event> m_events;
    bool m_dropped = false;
};

}  // namespace vexa
