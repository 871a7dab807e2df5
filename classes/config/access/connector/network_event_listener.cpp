#include "config/access/connector/network_event_listener.h"

#include <cerrno>

#include "config/access/connector/config_factory_impl.h"
#include "config/base/log.h"
#include "config/config.h"

namespace vexa::corvalis::config::access {

NetworkEventListener::~NetworkEventListener()
{
    Close();
    pthread_cond_destroy(&m_changed);
}

bool NetworkEventListener::Open(const std::string& uri)
{
    if (Current()) return false;
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    Config* const config = connector->Connect(uri);
    if (Open(config)) return true;
    connector->Disconnect(config);
    return false;
}

bool NetworkEventListener::Open(Config* config)
{
    if (!config || Current()) return false;
    {
        const MutexLock hold(m_mutex);
        m_config = config;
    }
    // Without the mutex: a running callback, which this may wait for, may be about to add an event here.
    if (config->AddConfigEventListener(this)) return true;
    const MutexLock hold(m_mutex);
    m_config = nullptr;
    return Report("NetworkEventListener::Open - no events come from this configuration\n");
}

void NetworkEventListener::Close()
{
    Config* const config = Current();
    if (!config) return;
    // Other users may keep the configuration alive, which must not call this object any more.
    config->RemoveConfigEventListener(this);
    ConfigFactoryImpl::GetInstance()->Disconnect(config);
    const MutexLock hold(m_mutex);
    m_config = nullptr;
    pthread_cond_broadcast(&m_changed);
    while (m_waiters > 0) m_waiterLeft.Wait(m_mutex);
}

/// @return null while closed.
Config* NetworkEventListener::Current()
{
    const MutexLock hold(m_mutex);
    return m_config;
}

void NetworkEventListener::SetTimeoutInMS(unsigned int milliseconds)
{
    const MutexLock hold(m_mutex);
    m_timeoutInMS = milliseconds;
}

void NetworkEventListener::SetMaximumQueueSize(unsigned int events)
{
    const MutexLock hold(m_mutex);
    m_maximumQueueSize = events;
}

// --- waiting ---

bool NetworkEventListener::TakeOldest(ConfigEvent& event)
{
    if (m_queue.empty()) return false;
    event = std::move(m_queue.front());
    m_queue.pop_front();
    return true;
}

// The remainder below a second replaces the nanoseconds of now instead of being added to them: waits of one
// time-out end at the same point of a wall-clock second, wherever in a second they began. So a wait ends up
// to a second early, and one of less than a second may end at once. Front ends poll to this beat.
timespec NetworkEventListener::Deadline(timespec now, unsigned int timeoutInMS)
{
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(timeoutInMS / 1000);
    deadline.tv_nsec = static_cast<long>(timeoutInMS % 1000) * 1'000'000;
    return deadline;
}

/// Waits once. @return the error of the wait.
int NetworkEventListener::WaitForSignal()
{
    if (m_timeoutInMS == kNoTimeout) return pthread_cond_wait(&m_changed, m_mutex.NativeHandle());
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const timespec deadline = Deadline(now, m_timeoutInMS);
    return pthread_cond_timedwait(&m_changed, m_mutex.NativeHandle(), &deadline);
}

bool NetworkEventListener::WaitForConfigEvent(ConfigEvent& event)
{
    const MutexLock hold(m_mutex);
    if (!m_config) return false;
    if (TakeOldest(event)) return true;
    ++m_waiters;
    const int error = WaitForSignal();
    if (--m_waiters == 0) m_waiterLeft.NotifyAll();
    if (error == 0) return TakeOldest(event);
    if (error == ETIMEDOUT) return Report("NetworkEventListener::WaitForConfigEvent - Timed out\n");
    return Report("NetworkEventListener::WaitForConfigEvent - Error %d\n", error);
}

void NetworkEventListener::Signal()
{
    const MutexLock hold(m_mutex);
    const int error = SignalOne();
    if (error != 0) Print("NetworkEventListener::Signal - Error %d\n", error);
}

// --- events ---

void NetworkEventListener::AddEvent(ConfigEvent& event)
{
    const MutexLock hold(m_mutex);
    m_queue.push_back(event);
    while (m_queue.size() > m_maximumQueueSize) m_queue.pop_front();
    SignalOne();
}

bool NetworkEventListener::ParamChanged(eParam_t id, unsigned int value, timeval time)
{
    ConfigEvent event{.paramID = id, .paramType = eCParam_EnumValue, .value = value, .time = time};
    AddEvent(event);
    return true;
}

bool NetworkEventListener::ParamChanged(eParam_t id, std::string value, timeval time)
{
    ConfigEvent event{
        .paramID = id, .paramType = eCParam_StringValue, .text = std::move(value), .time = time};
    AddEvent(event);
    return true;
}

bool NetworkEventListener::DataChanged(eParam_t id, std::string& data, timeval time)
{
    ConfigEvent event{.paramID = id, .paramType = eCParam_StringValue, .data = data, .time = time};
    AddEvent(event);
    return true;
}

}  // namespace vexa::corvalis::config::access
