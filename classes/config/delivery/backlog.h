/// Backlog: the events that wait for those who hear them later.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <unordered_map>
#include <utility>

#include "config/param_ids.h"

namespace vexa {

/// Keeps events in their order. A receiver that keeps up gets every one. For one that lags, events which a
/// newer event of the same parameter has overtaken are left out, oldest first, once there are more than
/// kHistoryBytes of them; the newest event of each parameter always stays, in the order of the last change.
/// So memory is bounded by the catalogue, and nobody ends with an old value.
///
/// One receiver calls Take. Several of them each keep a Position and call Read; the owner drops what all have
/// read. Thread: one at a time; the owner's lock guards it.
template <class Event>
class Backlog {
  public:
    /// The number of the last event that a receiver has read, counted from 1.
    using Position = uint64_t;
    /// Overtaken events that are kept: several thousand changes of numbers.
    static constexpr size_t kHistoryBytes = size_t{4} * 1024 * 1024;

    /// @param maxBytes  of the newest events of all parameters: a limit for events that peers send.
    explicit Backlog(size_t maxBytes = SIZE_MAX) : m_maxBytes(maxBytes) {}

    bool IsEmpty() const { return m_events.empty(); }
    /// The number of the newest event.
    Position End() const { return m_end; }
    /// Events that were left out since the construction.
    uint64_t LeftOut() const { return m_leftOut; }

    /// @param bytes  that the event holds beside itself.
    /// @return false, with nothing changed, when the newest events would need too much memory.
    bool Add(eParam_t id, Event event, size_t bytes = 0);
    /// The oldest event. @param event  untouched when there is none. @return false then.
    bool Take(Event& event);
    /// Calls visit with every event after the position, and moves the position, until visit returns false.
    /// @return how many events the reader has missed.
    template <class Visit>
    uint64_t Read(Position& position, const Visit& visit) const;
    /// Forgets the events up to a position.
    void Drop(Position position);
    void Clear() { Drop(m_end); }

  private:
    struct Entry {
        eParam_t id;
        Event event;
        size_t bytes;
        bool isOvertaken = false;
    };
    using Events = std::map<Position, Entry>;

    void Overtake(typename Events::iterator older);
    void LeaveOutOldest();
    void Erase(typename Events::iterator entry);

    const size_t m_maxBytes;
    Position m_end = 0;
    uint64_t m_leftOut = 0;
    Events m_events;
    std::unordered_map<uint32_t, typename Events::iterator> m_newest;  // by parameter
    std::deque<Position> m_overtaken;  // some of them may be gone; those at the front go with the events
    size_t m_newestBytes = 0, m_historyBytes = 0;
};

template <class Event>
bool Backlog<Event>::Add(eParam_t id, Event event, size_t bytes)
{
    constexpr size_t kNodeBytes = sizeof(typename Events::value_type) + 10 * sizeof(void*);
    bytes += kNodeBytes;
    auto& newest = m_newest.try_emplace(uint32_t{id}, m_events.end()).first->second;
    const auto older = newest;
    const size_t freed = older == m_events.end() ? 0 : older->second.bytes;
    if (m_newestBytes - freed + bytes > m_maxBytes) return false;

    newest = m_events.emplace_hint(m_events.end(), m_end + 1, Entry{id, std::move(event), bytes});
    ++m_end;
    m_newestBytes += bytes;
    if (older != m_events.end()) Overtake(older);
    return true;
}

template <class Event>
void Backlog<Event>::Overtake(typename Events::iterator older)
{
    m_newestBytes -= older->second.bytes;
    m_historyBytes += older->second.bytes;
    older->second.isOvertaken = true;
    m_overtaken.push_back(older->first);
    while (m_historyBytes > kHistoryBytes) LeaveOutOldest();
}

template <class Event>
void Backlog<Event>::LeaveOutOldest()
{
    const auto oldest = m_events.find(m_overtaken.front());
    m_overtaken.pop_front();
    if (oldest == m_events.end()) return;
    Erase(oldest);
    ++m_leftOut;
}

template <class Event>
void Backlog<Event>::Erase(typename Events::iterator entry)
{
    if (entry->second.isOvertaken) {
        m_historyBytes -= entry->second.bytes;
    } else {
        m_newestBytes -= entry->second.bytes;
        m_newest.erase(uint32_t{entry->second.id});
    }
    m_events.erase(entry);
}

template <class Event>
bool Backlog<Event>::Take(Event& event)
{
    if (m_events.empty()) return false;
    const auto oldest = m_events.begin();
    event = std::move(oldest->second.event);
    Drop(oldest->first);
    return true;
}

template <class Event>
template <class Visit>
uint64_t Backlog<Event>::Read(Position& position, const Visit& visit) const
{
    uint64_t missed = 0;
    for (auto next = m_events.upper_bound(position); next != m_events.end(); ++next) {
        if (!visit(next->second.event)) break;
        missed += next->first - position - 1;
        position = next->first;
    }
    return missed;
}

template <class Event>
void Backlog<Event>::Drop(Position position)
{
    while (!m_events.empty() && m_events.begin()->first <= position) Erase(m_events.begin());
    while (!m_overtaken.empty() && m_overtaken.front() <= position) m_overtaken.pop_front();
}

}  // namespace vexa
