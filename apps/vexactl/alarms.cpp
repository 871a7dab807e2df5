#include "vexactl/alarms.h"

#include <cctype>

#include "config/descriptors/string_descriptor.h"

using vexa::alarms::Alarm;

namespace {

std::vector<Parameter> AllAlarms(const vexa::Catalogue& catalogue)
{
    std::vector<Parameter> alarms;
    for (const auto& [id, descriptor] : catalogue.All())
        if (const Parameter parameter(descriptor); parameter.IsAlarm()) alarms.push_back(parameter);
    return alarms;
}

bool IsRaised(const Value& value)
{
    Alarm alarm;
    return alarm.ParseFromString(std::get<std::string>(value)) && alarm.state() != Alarm::CLEAR;
}

std::optional<vexa::alarms::Alarm_Severity> SeverityByName(std::string name)
{
    for (char& c : name) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    vexa::alarms::Alarm_Severity severity;
    return Alarm::Severity_Parse(name, &severity) ? std::optional(severity) : std::nullopt;
}

/// "INFORMATION, WARNING, ERROR or CRITICAL".
std::string SeverityNames()
{
    std::string names;
    for (int severity = Alarm::Severity_MIN; severity <= Alarm::Severity_MAX; ++severity) {
        if (severity > Alarm::Severity_MIN) names += severity < Alarm::Severity_MAX ? ", " : " or ";
        names += Alarm::Severity_Name(static_cast<vexa::alarms::Alarm_Severity>(severity));
    }
    return names;
}

/// The alarm of this name, or nothing after a message.
std::optional<Parameter> FindAlarm(Session& session, const std::string& name)
{
    const auto parameter = session.Find(name);
    if (!parameter || parameter->IsAlarm()) return parameter;
    session.Fail(ExitStatus::kUnknownParameter, parameter->Name() + " is no alarm",
                 {{"param", parameter->Name()}});
    return std::nullopt;
}

std::string AtRest(const Parameter& parameter)
{
    return dynamic_cast<AlarmDescriptor&>(parameter.Descriptor()).GetFactoryDefault();
}

void PrintAlarm(Session& session, const Parameter& parameter, const Value& value)
{
    session.PrintValue(parameter, value, parameter.Name() + " = " + parameter.Text(value));
}

/// Writes an alarm, and shows it as it was read back.
ExitStatus Write(Session& session, vexa::Device& device, const Parameter& parameter, const std::string& bytes)
{
    const vexa::SetResult result = device.Set(parameter.Id(), bytes);
    Interrupts::Instance().Check();
    session.RequireConnection(result.failure, result.reason);
    if (result) {
        PrintAlarm(session, parameter, *result.now);
        return ExitStatus::kDone;
    }
    const bool isUnknown = result.outcome == vexa::SetResult::Outcome::kUnknown;
    return session.Fail(isUnknown ? ExitStatus::kFalse : ExitStatus::kRefused,
                        parameter.Name() + ": " + result.reason, {{"param", parameter.Name()}});
}

}  // namespace

std::vector<std::string> AlarmNames(Session& session)
{
    std::vector<std::string> names;
    session.ConnectForData();
    for (const Parameter& parameter : AllAlarms(session.Parameters())) names.push_back(parameter.Name());
    return names;
}

ExitStatus ListAlarms(Session& session, bool raisedOnly)
{
    vexa::Device& device = *session.ConnectForData();
    const auto alarms = AllAlarms(session.Parameters());
    const auto results = session.Read(device, alarms);
    for (size_t i = 0; i < alarms.size(); ++i) {
        const auto& value = results[i].value;
        if (value && (!raisedOnly || IsRaised(*value))) PrintAlarm(session, alarms[i], *value);
    }
    return ExitStatus::kDone;
}

ExitStatus RaiseAlarm(Session& session, const std::string& name, const std::string& severity,
                      const std::string& text)
{
    vexa::Device& device = *session.ConnectForData();
    const auto parameter = FindAlarm(session, name);
    if (!parameter) return ExitStatus::kUnknownParameter;
    Alarm alarm;
    if (!alarm.ParseFromString(AtRest(*parameter))) alarm.Clear();
    const auto level = severity.empty() ? alarm.severity() : SeverityByName(severity);
    if (!level)
        return session.Fail(ExitStatus::kUsage,
                            "unknown severity " + Quoted(severity) + ": " + SeverityNames());
    alarm.set_state(Alarm::RAISED);
    alarm.set_severity(*level);
    if (!text.empty()) alarm.add_error()->set_text(text);
    return Write(session, device, *parameter, alarm.SerializeAsString());
}

ExitStatus ClearAlarm(Session& session, const std::string& name)
{
    vexa::Device& device = *session.ConnectForData();
    const auto parameter = FindAlarm(session, name);
    return parameter ? Write(session, device, *parameter, AtRest(*parameter)) : ExitStatus::kUnknownParameter;
}
