/// ListenerList: the listeners of a client-side Config, and how an event reaches them.
#pragma once

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <vector>

#include "config/base/semaphore_helper.h"
#include "config/config_event_listener.h"

/// The list has its own lock, which is never held during a callback: a callback may add and remove listeners.
/// Deliveries take turns, so a listener is never in two calls at once. Thread: any.
class ListenerList {
  public:
    ListenerList() { SemaphoreHelper::Init(m_lock); }
    ~ListenerList() { SemaphoreHelper::Destroy(m_lock); }
    ListenerList(const ListenerList&) = delete;
    ListenerList& operator=(const ListenerList&) = delete;

    /// @param listener  borrowed until it is erased.
    void Append(ConfigEventListener* listener)
    {
        SemaphoreHelper hold(m_lock);
        m_listeners.push_back(listener);
    }
    /// Removes every entry of the listener. A callback may still be running: see WaitForDelivery.
    /// @return whether there was one.
    bool Erase(ConfigEventListener* listener)
    {
        SemaphoreHelper hold(m_lock);
        return std::erase(m_listeners, listener) > 0;
    }
    void Clear()
    {
        SemaphoreHelper hold(m_lock);
        m_listeners.clear();
    }
    bool Contains(ConfigEventListener* listener) const
    {
        SemaphoreHelper hold(m_lock);
        return std::ranges::find(m_listeners, listener) != m_listeners.end();
    }
    bool IsEmpty() const
    {
        SemaphoreHelper hold(m_lock);
        return m_listeners.empty();
    }

    /// Returns when no other thread is inside a callback; after Erase, the listener is not called again.
    /// Hold no lock that a callback takes.
    void WaitForDelivery() { const std::lock_guard turn(m_delivery); }

    /// Deliveries wait meanwhile. Taken before an event leaves its queue, so that the event cannot outlast
    /// WaitForDelivery and reach a listener that came later.
    [[nodiscard]] std::unique_lock<std::recursive_mutex> TakeTurn() { return std::unique_lock(m_delivery); }

    /// Calls every listener, in the order of registration. One that throws is reported and the others are
    /// still called.
    template <class Call>
    void Deliver(const Call& call)
    {
        const std::lock_guard turn(m_delivery);
        for (ConfigEventListener* const listener : Snapshot()) {
            if (!Contains(listener)) continue;  // removed by a callback of this delivery
            try {
                call(*listener);
            } catch (...) {
                fputs("ListenerList::Deliver - a listener failed with an exception\n", stderr);
            }
        }
    }

  private:
    std::vector<ConfigEventListener*> Snapshot() const
    {
        SemaphoreHelper hold(m_lock);
        return m_listeners;
    }

    std::recursive_mutex m_delivery;  // recursive: a callback may cause a delivery or remove a listener
    mutable LockSemaphore m_lock;
    std::vector<ConfigEventListener*> m_listeners VEXA_GUARDED_BY(m_lock);  // borrowed
};
