/// ListenerList: the listeners of a Config, and how an event reaches them.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "config/base/export.h"
#include "config/base/mutex.h"
#include "config/config_event_listener.h"
#include "config/listeners/listener_lock.h"

namespace vexa {

/// Deliveries take turns: one thread at a time calls listeners, in the order of registration. A delivery that
/// a callback causes waits until the running one has reached every listener, so that all listeners hear the
/// changes in one order.
///
/// The list has a lock of its own, which is never held during a callback: a callback may add and remove
/// listeners. A removed listener is not called any more, not even for the event that is being delivered; a
/// new listener hears the next event. Thread: any.
class VEXA_EXPORT ListenerList {
  public:
    /// @param reportException  prints one line about a listener that threw.
    explicit ListenerList(void (*reportException)() = &ReportException) : m_reportException(reportException)
    {
    }
    ListenerList(const ListenerList&) = delete;
    ListenerList& operator=(const ListenerList&) = delete;

    /// One more registration: a listener that is added twice is called twice.
    /// @param listener  borrowed until it is removed.
    void Add(ConfigEventListener* listener);
    /// Removes the oldest registration of the listener. A callback may still run: see WaitForDelivery.
    /// @return whether there was one.
    bool RemoveOne(ConfigEventListener* listener);
    /// Removes all registrations of the listener. @return whether there was one.
    bool RemoveAll(ConfigEventListener* listener);
    /// Removes all registrations of all listeners. Callbacks may still run.
    void Clear();
    /// Whether the listener is registered.
    bool Contains(ConfigEventListener* listener) const;
    /// Whether nobody listens.
    bool IsEmpty() const;

    /// Blocks other deliveries for the life of a scope; nested scopes of one thread hold the turn together. A
    /// change is made, or an event taken from its queue, under the turn in which it is delivered: so no other
    /// change overtakes it, and it cannot outlast WaitForDelivery and reach a listener that was added later.
    class VEXA_SCOPED_CAPABILITY Turn {
      public:
        /// Waits for the turn. @param list  borrowed.
        explicit Turn(ListenerList& list) VEXA_ACQUIRE(list.m_turn) : m_hold(list.m_turn) {}
        ~Turn() VEXA_RELEASE() {}

      private:
        ListenerLock::Guard m_hold;
    };

    /// Waits until no other thread is inside a callback: a listener that was removed before is not called
    /// again. Hold no lock that a callback takes.
    void WaitForDelivery() { const Turn turn(*this); }

    /// Calls every listener: now or, from a callback of this list, after the running delivery. An exception
    /// of one listener is reported, and the others are still called.
    void TellNumber(eParam_t id, unsigned int value, timeval time);
    /// The same for a text.
    void TellText(eParam_t id, std::string text, timeval time);
    /// Each listener gets a copy of its own.
    void TellData(eParam_t id, std::string data, timeval time);

    /// An event that is ready to be told.
    struct Event {
        /// What happened, and to which parameter.
        enum Kind { kNumber, kText, kData };
        Kind kind;                             ///< which of the fields counts
        eParam_t id;                           ///< the parameter
        timeval time;                          ///< of the change
        unsigned int number = 0;               ///< of kNumber
        std::string text = {};                 ///< of kText and kData
        std::vector<std::string> copies = {};  ///< of the text, for the listeners
    };
    /// One event; lists exchange their elements without allocating.
    using Ready = std::list<Event>;

    /// The same in two steps: whoever stores a value first makes the event ready, which needs memory, then stores the
    /// value, and then tells it, which cannot fail any more. Both under one turn.
    Ready ReadyNumber(eParam_t id, unsigned int value, timeval time);
    /// See ReadyNumber.
    Ready ReadyText(eParam_t id, std::string text, timeval time);
    /// See ReadyNumber; each listener gets a copy of its own.
    Ready ReadyData(eParam_t id, std::string data, timeval time);
    /// Delivers what one of them has made.
    void Tell(Ready event);

  private:
    struct Registration {
        ConfigEventListener* listener;
        uint32_t number;  // distinguishes registrations of one listener
    };

    Ready WithCopies(Event event);
    void CallAll(Event& event) VEXA_REQUIRES(m_turn);
    static void CallWithCopy(ConfigEventListener& listener, Event& event);
    void Refresh() VEXA_REQUIRES(m_turn);
    bool Has(const Registration& registration) const;
    static void ReportException();

    void (*const m_reportException)();

    ListenerLock m_turn;
    bool m_delivering VEXA_GUARDED_BY(m_turn) = false;
    Ready m_deferred VEXA_GUARDED_BY(m_turn);
    // The registrations as of m_callingVersion: a delivery looks at the list again only when it has changed.
    std::vector<Registration> m_calling VEXA_GUARDED_BY(m_turn);
    uint32_t m_callingVersion VEXA_GUARDED_BY(m_turn) = 0;

    std::atomic<uint32_t> m_version = 0;  // of m_registrations; changed under m_lock
    mutable Mutex m_lock;                 // after m_turn
    std::vector<Registration> m_registrations VEXA_GUARDED_BY(m_lock);
    std::vector<Registration> m_spare
        VEXA_GUARDED_BY(m_lock);  // room for m_calling: Refresh allocates nothing
    uint32_t m_nextNumber VEXA_GUARDED_BY(m_lock) = 0;
};

}  // namespace vexa
