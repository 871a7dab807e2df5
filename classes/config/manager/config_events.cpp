/// The listeners of ConfigManager and how changes reach them.
#include <algorithm>
#include <cstdio>

#include "config/descriptors/param_descriptor.h"
#include "config/manager/config_manager.h"

bool ConfigManager::AddConfigEventListener(ConfigEventListener* listener)
{
    if (!listener) return false;
    ListenerLock::Guard hold(m_listenerLock);
    m_listeners.push_back(listener);
    return true;
}

bool ConfigManager::AddConfigEventListener(eParam_t, ConfigEventListener* listener)
{
    return AddConfigEventListener(listener);
}

bool ConfigManager::RemoveConfigEventListener(ConfigEventListener* listener)
{
    ListenerLock::Guard hold(m_listenerLock);
    const auto found = std::ranges::find(m_listeners, listener);
    if (found == m_listeners.end()) return false;
    const auto index = static_cast<size_t>(found - m_listeners.begin());
    m_listeners.erase(found);
    if (index < m_nextListener) --m_nextListener;
    if (index < m_endListener) --m_endListener;
    return true;
}

template <class Call>
void ConfigManager::CallListeners(const Call& call)
{
    m_nextListener = 0;
    m_endListener = m_listeners.size();
    while (m_nextListener < m_endListener) {
        ConfigEventListener* const listener = m_listeners[m_nextListener++];
        try {
            call(*listener);
        } catch (...) {
            // The others still have to hear of the change, and the writer expects no exception.
            fputs("ConfigManager::CallListeners - a listener failed with an exception\n", stderr);
        }
    }
    m_nextListener = m_endListener = 0;
}

/// Calls every listener now or, when a listener of this delivery made the change, after it. So everybody
/// hears the changes in the order in which they were stored.
template <class Call>
bool ConfigManager::Deliver(const Call& call)
{
    ListenerLock::Guard hold(m_listenerLock);
    if (m_delivering) {
        m_deferred.emplace_back(call);
        return true;
    }
    m_delivering = true;
    CallListeners(call);
    while (!m_deferred.empty()) {
        const Delivery next = std::move(m_deferred.front());
        m_deferred.pop_front();
        CallListeners(next);
    }
    m_delivering = false;
    return true;
}

bool ConfigManager::FireParamChangedEvent(eParam_t id, unsigned int value, timeval time)
{
    return Deliver([=](ConfigEventListener& listener) { listener.ParamChanged(id, value, time); });
}

bool ConfigManager::FireParamChangedEvent(eParam_t id, std::string value, timeval time)
{
    return Deliver([id, value = std::move(value), time](ConfigEventListener& listener) {
        listener.ParamChanged(id, value, time);
    });
}

bool ConfigManager::FireDataChangedEvent(eParam_t id, std::string& data, timeval time)
{
    return Deliver([id, data, time](ConfigEventListener& listener) {
        std::string own = data;
        listener.DataChanged(id, own, time);
    });
}

bool ConfigManager::FireParamsChangedEvents(std::vector<eParam_t> ids, timeval time)
{
    for (const eParam_t id : ids) {
        ParamDescriptor* const descriptor = GetParamDescriptor(id);
        if (!descriptor) continue;
        ListenerLock::Guard hold(m_listenerLock);  // nothing is stored between reading and telling
        if (descriptor->GetParamType() == eCParam_StringValue) {
            std::string text;
            Get(id, text);
            FireParamChangedEvent(id, text, time);
        } else {
            unsigned int value = 0;
            Get(id, value);
            FireParamChangedEvent(id, value, time);
        }
    }
    return true;
}

bool ConfigManager::FireDataChangedEvents(std::vector<eParam_t> ids, timeval time)
{
    for (const eParam_t id : ids) {
        if (!GetParamDescriptor(id)) continue;
        ListenerLock::Guard hold(m_listenerLock);
        std::string data;
        GetData(id, data);
        FireDataChangedEvent(id, data, time);
    }
    return true;
}

void ConfigManager::FireDependents(eParam_t id, timeval time)
{
    if (ParamDescriptor* const descriptor = GetParamDescriptor(id))
        FireParamsChangedEvents(descriptor->GetDependentParamIDs(), time);
}
