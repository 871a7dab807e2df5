/// MQEvents: the listeners of a message-queue connection, and how events reach them.
#pragma once

#include <signal.h>

#include <atomic>

#include "config/access/client/queues/mq_connection.h"
#include "config/listeners/listener_list.h"

namespace vexa::config::access {

/// Listeners are called on a thread that the system starts for a message in the empty queue, on one that a
/// request starts for the events that it has read, or on one that waits for an event.
/// Thread: any.
class MQEvents {
  public:
    /// @param connection  borrowed.
    /// @param onMessage, value  called by the system, on a new thread, for a message in the empty queue.
    MQEvents(MQConnection& connection, void (*onMessage)(sigval), void* value);
    MQEvents(const MQEvents&) = delete;
    MQEvents& operator=(const MQEvents&) = delete;

    // Not from a callback of this object: see IsInCallback.
    /// Registers the connection with the daemon for its first listener.
    bool AddListener(ConfigEventListener* listener);
    bool RemoveListener(ConfigEventListener* listener);
    /// Waits without a limit for an event, calls the listeners and fills the record. @return false when
    /// stopped.
    bool WaitForEvent(ConfigEvent& event);

    /// Whether this thread is in a callback of this object.
    bool IsInCallback() const;
    /// Turns the system's notification of messages on or off. @return false after one line.
    bool Enable(bool on);
    /// Turns the system's notification off, if it is on. No further callback begins.
    void Stop();
    /// Handles a notification. @return false when the next one cannot be turned on.
    bool HandleNotification();
    /// Delivers the events in the queue. @return false after one line or more when it cannot be read.
    bool ProcessEvents();
    /// Delivers the events that the reader has kept. Only for the thread that the reader has chosen for it.
    void DeliverEvents();
    /// Calls the listeners with an event. @param event  filled, unless it is null. @return false when it is not
    /// for this connection, or holds no text.
    bool ProcessNumber(const MQMessage& message, ConfigEvent* event);
    bool ProcessText(const MQMessage& message, ConfigEvent* event);
    /// One line that begins with the process's name.
    static void ReportOfProcess(const char* what);
    static void ReportException() { ReportOfProcess("exception!!!!"); }

  private:
    class CallbackScope;

    XCONFIGMGR_EVENT_HANDLER_REQUEST_T ListenerRequest(eMessageType_t type) const;
    /// Under the turn: no event is delivered meanwhile.
    bool TellDaemon(const ListenerList::Turn& turn, eMessageType_t type, const char* operation);
    bool RegisterWait();
    bool AwaitEvent(MQReader::EventWait& wait);
    void RegisterAnew(const ListenerList::Turn& turn);
    bool Arm() VEXA_REQUIRES(m_notifyLock);
    bool DeliverNext();

    MQConnection& m_connection;
    MQReader& m_reader;
    void (*const m_onMessage)(sigval);
    void* const m_value;
    std::atomic<bool> m_waitRegistered = false;  // the daemon knows that a caller waits for events

    // Taken before the exchange lock and the reader's lock. The turn is held over the exchanges that register
    // as well, so no exchange may wait for it.
    ListenerList m_listeners{&ReportException};
    Mutex m_notifyLock;
    bool m_notifyWanted VEXA_GUARDED_BY(m_notifyLock) = false;
};

}  // namespace vexa::config::access
