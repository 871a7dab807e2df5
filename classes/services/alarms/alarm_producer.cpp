#include "services/alarms/alarm_producer.h"

#include <iostream>

#include "config/config.h"
#include "config/descriptors/string_descriptor.h"

using vexa::alarms::Alarm;
using vexa::alarms::Alarm_Severity;
using vexa::alarms::Alarm_State;

namespace {

/// A value that the message does not know is reported and stored anyway: a newer producer may know more.
void SetState(Alarm& alarm, Alarm_State state)
{
    if (!vexa::alarms::Alarm_State_IsValid(state))
        std::cerr << "CHECK failed: ::vexa::alarms::Alarm_State_IsValid(value): " << std::endl;
    alarm.set_state(state);
}

void SetSeverity(Alarm& alarm, Alarm_Severity severity)
{
    if (!vexa::alarms::Alarm_Severity_IsValid(severity))
        std::cerr << "CHECK failed: ::vexa::alarms::Alarm_Severity_IsValid(value): " << std::endl;
    alarm.set_severity(severity);
}

/// The alarm at rest, which the factory default holds. A default that does not parse gives an empty alarm.
Alarm AtRest(StringDescriptor& descriptor)
{
    Alarm alarm;
    if (!alarm.ParseFromString(descriptor.GetFactoryDefault())) alarm.Clear();
    return alarm;
}

bool Write(Config& config, eParam_t id, const Alarm& alarm)
{
    std::string bytes = alarm.SerializeAsString();
    return config.SetData(id, bytes);
}

AlarmDescriptor* FindAlarm(Config& config, eParam_t id, const char* operation)
{
    auto* const descriptor = dynamic_cast<AlarmDescriptor*>(config.GetParamDescriptor(id));
    if (!descriptor)
        std::cerr << "AlarmProducer::" << operation << " - " << uint32_t{id} << " Has no descriptor"
                  << std::endl;
    return descriptor;
}

}  // namespace

AlarmProducer::AlarmProducer(Config* config, eParam_t id)
    : m_config(config), m_paramID(id), m_descriptor(config->GetParamDescriptor(id))
{
    if (!m_descriptor) std::cerr << "AlarmProducer: " << uint32_t{id} << " Has no descriptor" << std::endl;
    if (auto* const text = dynamic_cast<StringDescriptor*>(m_descriptor)) m_alarm = AtRest(*text);
}

bool AlarmProducer::Publish()
{
    return Write(*m_config, m_paramID, m_alarm);
}

bool AlarmProducer::Set(Alarm_Severity severity)
{
    if (m_alarm.severity() == severity && m_alarm.state() == Alarm::RAISED) return true;
    SetState(m_alarm, Alarm::RAISED);
    SetSeverity(m_alarm, severity);
    return Publish();
}

bool AlarmProducer::Set()
{
    if (m_alarm.state() == Alarm::RAISED) return true;
    SetState(m_alarm, Alarm::RAISED);
    return Publish();
}

bool AlarmProducer::Clear()
{
    if (m_alarm.state() == Alarm::CLEAR) return true;
    SetState(m_alarm, Alarm::CLEAR);
    return Publish();
}

bool AlarmProducer::AddError(std::string text)
{
    m_alarm.add_error()->set_text(std::move(text));
    return true;
}

void AlarmProducer::ClearErrors()
{
    m_alarm.clear_error();
}

bool AlarmProducer::raise(Config* config, eParam_t id, Alarm_State state, Alarm_Severity severity,
                          std::string text)
{
    if (!config) return false;
    AlarmDescriptor* const descriptor = FindAlarm(*config, id, "assert");
    if (!descriptor) return false;
    Alarm alarm = AtRest(*descriptor);
    if (!text.empty()) alarm.add_error()->set_text(std::move(text));
    SetState(alarm, state);
    SetSeverity(alarm, severity);
    return Write(*config, id, alarm);
}

bool AlarmProducer::raise(Config* config, eParam_t id, Alarm_Severity severity, std::string text)
{
    return raise(config, id, Alarm::RAISED, severity, std::move(text));
}

bool AlarmProducer::raise(Config* config, eParam_t id)
{
    if (!config) return false;
    AlarmDescriptor* const descriptor = FindAlarm(*config, id, "assert");
    return descriptor && raise(config, id, Alarm::RAISED, AtRest(*descriptor).severity(), "");
}

bool AlarmProducer::clear(Config* config, eParam_t id)
{
    if (!config) return false;
    AlarmDescriptor* const descriptor = FindAlarm(*config, id, "clear");
    if (!descriptor) return false;
    std::string atRest = descriptor->GetFactoryDefault();
    return config->SetData(id, atRest);
}
