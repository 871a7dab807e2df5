#include "config/listeners/listener_list.h"

#include <algorithm>

#include "config/base/log.h"

namespace vexa {

void ListenerList::Add(ConfigEventListener* listener)
{
    const MutexLock hold(m_lock);
    if (m_registrations.size() == m_registrations.capacity())
        m_registrations.reserve(2 * m_registrations.size() + 4);
    m_spare.reserve(m_registrations.capacity());
    m_registrations.push_back({listener, m_nextNumber++});
    ++m_version;
}

bool ListenerList::RemoveOne(ConfigEventListener* listener)
{
    const MutexLock hold(m_lock);
    const auto found = std::ranges::find(m_registrations, listener, &Registration::listener);
    if (found == m_registrations.end()) return false;
    m_registrations.erase(found);
    ++m_version;
    return true;
}

bool ListenerList::RemoveAll(ConfigEventListener* listener)
{
    bool removed = false;
    while (RemoveOne(listener)) removed = true;
    return removed;
}

void ListenerList::Clear()
{
    const MutexLock hold(m_lock);
    m_registrations.clear();
    ++m_version;
}

bool ListenerList::Contains(ConfigEventListener* listener) const
{
    const MutexLock hold(m_lock);
    return std::ranges::find(m_registrations, listener, &Registration::listener) != m_registrations.end();
}

bool ListenerList::IsEmpty() const
{
    const MutexLock hold(m_lock);
    return m_registrations.empty();
}

// --- delivery ---

ListenerList::Ready ListenerList::ReadyNumber(eParam_t id, unsigned int value, timeval time)
{
    Ready ready;
    ready.emplace_back(Event{Event::kNumber, id, time, value});
    return ready;
}

ListenerList::Ready ListenerList::ReadyText(eParam_t id, std::string text, timeval time)
{
    return WithCopies({Event::kText, id, time, 0, std::move(text)});
}

ListenerList::Ready ListenerList::ReadyData(eParam_t id, std::string data, timeval time)
{
    return WithCopies({Event::kData, id, time, 0, std::move(data)});
}

ListenerList::Ready ListenerList::WithCopies(Event event)
{
    size_t listeners;
    {
        const MutexLock hold(m_lock);
        listeners = m_registrations.size();
    }
    event.copies.assign(listeners, event.text);
    Ready ready;
    ready.push_back(std::move(event));
    return ready;
}

void ListenerList::Tell(Ready event)
{
    const Turn turn(*this);
    m_deferred.splice(m_deferred.end(), event);
    if (m_delivering) return;
    m_delivering = true;
    while (!m_deferred.empty()) {
        Ready next;
        next.splice(next.end(), m_deferred, m_deferred.begin());
        CallAll(next.front());
    }
    m_delivering = false;
}

void ListenerList::CallAll(Event& event)
{
    if (m_version != m_callingVersion) Refresh();
    for (const Registration& registration : m_calling) {
        if (m_version != m_callingVersion && !Has(registration)) continue;
        try {
            if (event.kind == Event::kNumber)
                registration.listener->ParamChanged(event.id, event.number, event.time);
            else
                CallWithCopy(*registration.listener, event);
        } catch (...) {
            m_reportException();
        }
    }
}

void ListenerList::CallWithCopy(ConfigEventListener& listener, Event& event)
{
    std::string own;
    if (event.copies.empty()) {
        own = event.text;  // for a listener that was added after the event had been made ready
    } else {
        own = std::move(event.copies.back());
        event.copies.pop_back();
    }
    if (event.kind == Event::kText)
        listener.ParamChanged(event.id, std::move(own), event.time);
    else
        listener.DataChanged(event.id, own, event.time);
}

void ListenerList::TellNumber(eParam_t id, unsigned int value, timeval time)
{
    const Turn turn(*this);
    Tell(ReadyNumber(id, value, time));
}

void ListenerList::TellText(eParam_t id, std::string text, timeval time)
{
    const Turn turn(*this);
    Tell(ReadyText(id, std::move(text), time));
}

void ListenerList::TellData(eParam_t id, std::string data, timeval time)
{
    const Turn turn(*this);
    Tell(ReadyData(id, std::move(data), time));
}

void ListenerList::Refresh()
{
    const MutexLock hold(m_lock);
    if (m_calling.capacity() < m_registrations.size()) m_calling.swap(m_spare);
    m_calling.assign(m_registrations.begin(), m_registrations.end());
    m_callingVersion = m_version;
}

bool ListenerList::Has(const Registration& registration) const
{
    const MutexLock hold(m_lock);
    return std::ranges::find(m_registrations, registration.number, &Registration::number) !=
           m_registrations.end();
}

void ListenerList::ReportException()
{
    Print("ListenerList::Deliver - a listener failed with an exception\n");
}

}  // namespace vexa
