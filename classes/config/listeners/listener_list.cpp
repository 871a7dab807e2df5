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

/// @param call  owns the content of the event: it may run after this returned.
template <class Call>
void ListenerList::Deliver(const Call& call)
{
    const Turn turn(*this);
    if (m_delivering) {
        m_deferred.emplace_back(call);
        return;
    }
    m_delivering = true;
    CallAll(call);
    while (!m_deferred.empty()) {
        const Delivery next = std::move(m_deferred.front());
        m_deferred.pop_front();
        CallAll(next);
    }
    m_delivering = false;
}

template <class Call>
void ListenerList::CallAll(const Call& call)
{
    if (m_version != m_callingVersion) Refresh();
    for (const Registration& registration : m_calling) {
        if (m_version != m_callingVersion && !Has(registration)) continue;
        try {
            call(*registration.listener);
        } catch (...) {
            m_reportException();
        }
    }
}

void ListenerList::TellNumber(eParam_t id, unsigned int value, timeval time)
{
    Deliver([=](ConfigEventListener& listener) { listener.ParamChanged(id, value, time); });
}

void ListenerList::TellText(eParam_t id, std::string text, timeval time)
{
    Deliver([id, text = std::move(text), time](ConfigEventListener& listener) {
        listener.ParamChanged(id, text, time);
    });
}

void ListenerList::TellData(eParam_t id, std::string data, timeval time)
{
    Deliver([id, data = std::move(data), time](ConfigEventListener& listener) {
        std::string own = data;
        listener.DataChanged(id, own, time);
    });
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
