#include "services/alarms/alarm_consumer.h"

#include <cerrno>

#include "config/base/log.h"
#include "config/config.h"
#include "config/descriptors/param_descriptor.h"

AlarmConsumer::AlarmConsumer(Config* config) : m_config(config)
{
    SemaphoreHelper::Init(m_semaphore);
    SemaphoreHelper::Init(m_waitingLock);
}

AlarmConsumer::~AlarmConsumer()
{
    SemaphoreHelper::Destroy(m_semaphore);
    SemaphoreHelper::Destroy(m_waitingLock);
}

/// Takes the lock if it is free. A real failure is reported and the work goes on, as with every lock of this
/// library.
bool AlarmConsumer::TryTake()
{
    if (sem_trywait(&m_semaphore.raw) == 0) return true;
    if (errno == EAGAIN || errno == EINTR) return false;
    vexa::PrintError("Semaphore(): call to sem_wait failed\n");
    return true;
}

/// Runs on a thread that writes to the store: it must not wait for the display, which may be waiting for that
/// write.
void AlarmConsumer::AlarmChanged(eParam_t id, std::string data)
{
    {
        SemaphoreHelper hold(m_waitingLock);
        m_waiting.emplace(id, std::move(data));
    }
    if (TryTake()) Post();
}

/// With the lock held: the change that waits becomes the last change.
void AlarmConsumer::ApplyWaiting()
{
    SemaphoreHelper hold(m_waitingLock);
    if (!m_waiting) return;
    m_paramID = m_waiting->first;
    if (!m_alarm.ParseFromString(m_waiting->second)) m_alarm.Clear();
    m_changed = true;
    m_waiting.reset();
}

/// Releases the lock with no change left waiting: a change that found the lock taken is applied now.
void AlarmConsumer::Post()
{
    for (;;) {
        ApplyWaiting();
        if (sem_post(&m_semaphore.raw) != 0)
            vexa::PrintError("SemaphoreHelper::~SemaphoreHelper failed to post\n");
        {
            SemaphoreHelper hold(m_waitingLock);
            if (!m_waiting) return;
        }
        if (!TryTake()) return;  // the new holder applies it
    }
}

bool AlarmConsumer::isAlarm(Config* config, eParam_t id)
{
    ParamDescriptor* const descriptor = config->GetParamDescriptor(id);
    return descriptor && descriptor->HasClassName("alarm");
}

std::string AlarmConsumer::GetError() const
{
    return m_alarm.error_size() > 0 ? m_alarm.error(0).text() : "";
}

std::string AlarmConsumer::GetShortError() const
{
    return m_alarm.error_size() > 0 ? m_alarm.error(0).short_text() : "";
}

void AlarmConsumer::Lock()
{
    int result;
    do result = sem_wait(&m_semaphore.raw);
    while (result != 0 && errno == EINTR);
    if (result != 0) vexa::PrintError("Semaphore(): call to sem_wait failed\n");
    m_locked = true;
}

void AlarmConsumer::Unlock()
{
    if (m_locked.exchange(false)) Post();
}

bool AlarmConsumer::LockIfChanged()
{
    Lock();
    ApplyWaiting();
    const bool changed = m_changed;
    m_changed = false;
    if (!changed) Unlock();
    return changed;
}
