/// NetworkEventListener: changes of a configuration as a queue, for a thread that waits for them.
#pragma once

#include <pthread.h>

#include <ctime>
#include <deque>
#include <string>

#include "config/base/export.h"
#include "config/base/mutex.h"
#include "config/config_event_listener.h"

class Config;

namespace vexa::corvalis::config::access {

/// Thread: any, but Open, Close and the destructor belong to one thread and not into a callback of the
/// configuration.
class VEXA_EXPORT NetworkEventListener : public ConfigEventListener {
  public:
    /// For SetTimeoutInMS: a wait has no limit.
    static constexpr unsigned int kNoTimeout = 0xFFFFFFFF;

    /// Closed; waits have no limit, the queue keeps 100 events.
    NetworkEventListener() = default;
    /// Closes.
    ~NetworkEventListener() override;
    NetworkEventListener(const NetworkEventListener&) = delete;
    NetworkEventListener& operator=(const NetworkEventListener&) = delete;

    /// Connects through the connector and listens.
    /// @return false when it is open, when nothing answers at the URI, or when no events would come.
    bool Open(const std::string& uri);
    /// Listens to a connection that the caller got from the connector. Close gives it back there, as if it
    /// had been opened here.
    /// @return false for null, when it is open, and when no events would come: the connection stays the caller's.
    bool Open(Config* config);
    /// Stops listening, gives the configuration back to the connector and returns when every waiting thread
    /// has left. Events that were not taken stay. Does nothing when it is closed.
    void Close();

    /// From the next wait on; kNoTimeout: no limit. A wait may end up to a second early, see Deadline.
    void SetTimeoutInMS(unsigned int milliseconds);
    /// From the next event on. With 0 nothing is kept, and waiting threads are woken all the same.
    void SetMaximumQueueSize(unsigned int events);

    /// The oldest event, waiting for one if there is none.
    /// @param event  untouched on failure.
    /// @return false when closed, at once; on time-out, after one line on standard error; and on a wake-up
    /// without an event.
    bool WaitForConfigEvent(ConfigEvent& event);
    /// Wakes one waiting thread, without an event.
    void Signal();
    /// Appends an event. When there are too many, the oldest go without notice.
    void AddEvent(ConfigEvent& event);

    using ConfigEventListener::ParamChanged;
    /// A change of the configuration: appended. @return true.
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;
    /// The same for data. @return true.
    bool DataChanged(eParam_t id, std::string& data, timeval time) override;

    /// When a wait that starts now ends, on the real-time clock.
    static timespec Deadline(timespec now, unsigned int timeoutInMS);

  private:
    Config* Current();
    bool TakeOldest(ConfigEvent& event) VEXA_REQUIRES(m_mutex);
    int WaitForSignal() VEXA_REQUIRES(m_mutex);
    int SignalOne() VEXA_REQUIRES(m_mutex) { return pthread_cond_signal(&m_changed); }

    Mutex m_mutex;
    pthread_cond_t m_changed = PTHREAD_COND_INITIALIZER;
    Config* m_config VEXA_GUARDED_BY(m_mutex) = nullptr;  // null while closed
    unsigned int m_timeoutInMS VEXA_GUARDED_BY(m_mutex) = kNoTimeout;
    unsigned int m_maximumQueueSize VEXA_GUARDED_BY(m_mutex) = 100;
    std::deque<ConfigEvent> m_queue VEXA_GUARDED_BY(m_mutex);  // oldest first
    // The threads inside a wait. Close returns when they have left, because they use this object until then.
    unsigned int m_waiters VEXA_GUARDED_BY(m_mutex) = 0;
    CondVar m_waiterLeft;
};

}  // namespace vexa::corvalis::config::access
