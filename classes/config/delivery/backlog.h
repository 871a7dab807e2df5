/// Backlog: the events that wait for those who hear them later.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <utility>

#include "config/param_ids.h"

namespace vexa {

/// Keeps events in their order. A receiver that keeps up gets every one. For one that lags, events which a
/// newer event of the same parameter has overtaken are left out, oldest first, once there are more than
/// a certain size of them; the newest event of each parameter always stays, in the order of the last change.
/// So memory is bounded by the catalogue, and nobody ends with an old value.
///
/// One receiver calls Take. Several of them each keep a Position and call Read; the owner drops what all have
/// read. Thread: one at a time; the owner's lock guards it.
template <class Event>
class Backlog {
  public:
    /// The number of the last event that a receiver has read, counted from 1.
    using Position = uint64_t;
    /// Overtaken events that are kept, by default: several thousand changes of numbers.
    static constexpr size_t kHistoryBytes = size_t{4} * 1024 * 1024;

    /// @param maxBytes  of the newest events of all parameters: a limit for events that peers send.
    explicit Backlog(size_t maxBytes = SIZE_MAX) : m_maxBytes(maxBytes) {}

    /// Bytes of overtaken events that are kept, from the next event on.
    void LimitHistory(size_t bytes) { m_maxHistoryBytes = bytes; }
    size_t HistoryBytes() const { return m_historyBytes; }
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
    enum class State { kNewest, kOvertaken, kGone };
    struct Entry {
        Position position;
        eParam_t id;
        size_t bytes;
        State state;
        Event event;
    };
    using Events = std::deque<Entry>;

    void Overtake(Entry& older);
    void LeaveOutOldest();
    void DropGone();
    void PopFront();
    auto After(Position position) const
    {
        return std::ranges::upper_bound(m_events, position, {}, &Entry::position);
    }

    const size_t m_maxBytes;
    size_t m_maxHistoryBytes = kHistoryBytes;
    Position m_end = 0;
    uint64_t m_leftOut = 0;
    Events m_events;  // the last one is the newest of its parameter, so there is none that is only gone
    std::unordered_map<uint32_t, Entry*> m_newest;  // by parameter
    std::deque<Position> m_overtaken;  // some of them may be gone; those at the front go with the events
    size_t m_gone = 0;                 // entries without an event
    size_t m_newestBytes = 0, m_historyBytes = 0;
};

template <class Event>
bool Backlog<Event>::Add(eParam_t id, Event event, size_t bytes)
{
    bytes += sizeof(Entry);
    Entry*& newest = m_newest.try_emplace(uint32_t{id}, nullptr).first->second;
    Entry* const older = newest;
    if (m_newestBytes - (older ? older->bytes : 0) + bytes > m_maxBytes) {
        if (!older) m_newest.erase(uint32_t{id});
        return false;
    }
    m_events.push_back({m_end + 1, id, bytes, State::kNewest, std::move(event)});
    newest = &m_events.back();
    ++m_end;
    m_newestBytes += bytes;
    if (older) Overtake(*older);
    return true;
}

template <class Event>
void Backlog<Event>::Overtake(Entry& older)
{
    m_newestBytes -= older.bytes;
    m_historyBytes += older.bytes;
    older.state = State::kOvertaken;
    m_overtaken.push_back(older.position);
    while (m_historyBytes > m_maxHistoryBytes) LeaveOutOldest();
}

template <class Event>
void Backlog<Event>::LeaveOutOldest()
{
    const auto oldest = std::ranges::lower_bound(m_events, m_overtaken.front(), {}, &Entry::position);
    m_overtaken.pop_front();
    if (oldest->state != State::kOvertaken) return;  // it has been dropped
    m_historyBytes -= oldest->bytes;
    oldest->state = State::kGone;
    oldest->event = Event{};
    ++m_leftOut;
    if (++m_gone > m_events.size() / 2) DropGone();
}

template <class Event>
void Backlog<Event>::DropGone()
{
    std::erase_if(m_events, [](const Entry& entry) { return entry.state == State::kGone; });
    m_gone = 0;
    for (Entry& entry : m_events)
        if (entry.state == State::kNewest) m_newest[uint32_t{entry.id}] = &entry;
}

template <class Event>
void Backlog<Event>::PopFront()
{
    const Entry& front = m_events.front();
    switch (front.state) {
        case State::kNewest:
            m_newestBytes -= front.bytes;
            m_newest.erase(uint32_t{front.id});
            break;
        case State::kOvertaken:
            m_historyBytes -= front.bytes;
            break;
        case State::kGone:
            --m_gone;
    }
    m_events.pop_front();
}

template <class Event>
bool Backlog<Event>::Take(Event& event)
{
    if (m_events.empty()) return false;
    while (m_events.front().state == State::kGone) PopFront();
    event = std::move(m_events.front().event);
    Drop(m_events.front().position);
    return true;
}

template <class Event>
template <class Visit>
uint64_t Backlog<Event>::Read(Position& position, const Visit& visit) const
{
    uint64_t missed = 0;
    for (auto next = After(position); next != m_events.end(); ++next) {
        if (next->state == State::kGone) continue;
        if (!visit(next->event)) break;
        missed += next->position - position - 1;
        position = next->position;
    }
    return missed;
}

template <class Event>
void Backlog<Event>::Drop(Position position)
{
    while (!m_events.empty() && m_events.front().position <= position) PopFront();
    while (!m_overtaken.empty() && m_overtaken.front() <= position) m_overtaken.pop_front();
}

}  // namespace vexa
