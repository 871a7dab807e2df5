/// AlarmProducer: raises and clears an alarm.
#pragma once

#include <string>

#include "config/base/export.h"
#include "config/param_ids.h"
#include "messages/alarm.pb.h"

class Config;
class ParamDescriptor;

/// For the component that detects a condition. Added errors stay in the alarm until ClearErrors; it is
/// published only when its state or severity changes.
/// Thread: one object belongs to one thread. The order of the virtual operations is part of the contract.
class VEXA_EXPORT AlarmProducer {
  public:
    /// @param config  borrowed; must carry data values (a local store or UDP, not TCP nor
    /// message queues, which end the process: see Config::SetData).
    AlarmProducer(Config* config, eParam_t id);
    virtual ~AlarmProducer() = default;
    AlarmProducer(const AlarmProducer&) = delete;
    AlarmProducer& operator=(const AlarmProducer&) = delete;

    /// Raises the alarm. @return whether it was published, or was raised like that already.
    virtual bool Set(vexa::alarms::Alarm_Severity severity);
    virtual bool Set();
    /// Clears it. Added errors stay in the published alarm until ClearErrors.
    virtual bool Clear();
    /// Adds an error, which is published with the next change of the alarm.
    virtual bool AddError(std::string text);
    /// Forgets what was added; the next change of the alarm publishes that.
    virtual void ClearErrors();

    // Without an object: these start from the alarm at rest, so errors never accumulate.

    /// @param text  of the one error; empty: none.
    /// @return false for null, for anything that is no alarm (with a message), and when it cannot be written.
    static bool raise(Config* config, eParam_t id, vexa::alarms::Alarm_State state,
                      vexa::alarms::Alarm_Severity severity, std::string text);
    static bool raise(Config* config, eParam_t id, vexa::alarms::Alarm_Severity severity, std::string text);
    /// With the severity of the alarm at rest.
    static bool raise(Config* config, eParam_t id);
    /// Back to the alarm at rest.
    static bool clear(Config* config, eParam_t id);

  private:
    bool Publish();

    Config* const m_config;
    const eParam_t m_paramID;
    vexa::alarms::Alarm m_alarm;
    ParamDescriptor* const m_descriptor;
};
