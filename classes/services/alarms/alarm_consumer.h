/// AlarmConsumer: follows the alarms of a configuration for a display.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <utility>

#include "config/base/export.h"
#include "config/base/semaphore_helper.h"
#include "config/param_ids.h"
#include "messages/alarm.pb.h"

class Config;

/// The component that displays alarms passes on its DataChanged, for parameters that isAlarm accepts; its
/// display thread shows the last change:
///
///     if (consumer.LockIfChanged()) { Show(consumer.GetParamID(), consumer.GetError()); consumer.Unlock(); }
///
/// A change never waits for the display: a change that finds the lock taken is kept and shown next.
/// Thread: AlarmChanged on any; the getters between LockIfChanged (or Lock) and Unlock.
class VEXA_EXPORT AlarmConsumer {
  public:
    /// @param config  borrowed.
    explicit AlarmConsumer(Config* config);
    virtual ~AlarmConsumer();
    AlarmConsumer(const AlarmConsumer&) = delete;
    AlarmConsumer& operator=(const AlarmConsumer&) = delete;

    /// Takes a change over. @param data  the serialized message.
    void AlarmChanged(eParam_t id, std::string data);
    /// Whether it is an alarm of the configuration. @param config  borrowed; may not be null.
    static bool isAlarm(Config* config, eParam_t id);

    /// Of the last change.
    vexa::alarms::Alarm_Severity GetSeverity() const { return m_alarm.severity(); }
    /// Of the last change.
    vexa::alarms::Alarm_State GetState() const { return m_alarm.state(); }
    /// The parameter of the last change.
    eParam_t GetParamID() const { return m_paramID; }
    /// The first error of the last change, "" when it has none.
    std::string GetError() const;
    /// The short form of the same error.
    std::string GetShortError() const;

    /// Waits until the lock is free.
    void Lock();
    /// Without a lock it does nothing.
    void Unlock();
    /// Takes the lock when something changed since the last time; else leaves it free and returns false.
    bool LockIfChanged();

  private:
    void ApplyWaiting();
    bool TryTake();
    void Post();

    Config* const m_config;
    eParam_t m_paramID{};
    vexa::alarms::Alarm m_alarm;
    bool m_changed = false;
    std::atomic<bool> m_locked = false;
    LockSemaphore m_semaphore;  // guards all of the above, from Lock to Unlock; hence without annotations

    LockSemaphore m_waitingLock;  // a leaf: nothing is called while it is held
    std::optional<std::pair<eParam_t, std::string>> m_waiting VEXA_GUARDED_BY(m_waitingLock);
};
