#include "vexactl/alarms.h"

#include <cctype>

#include "config/descriptors/string_descriptor.h"
#include "services/alarms/alarm_producer.h"

using vexa::alarms::Alarm;

namespace {

std::vector<Parameter> AllAlarms(Config& config)
{
    std::vector<Parameter> alarms;
    for (const eParam_t id : config.GetParamIDs()) {
        ParamDescriptor* const descriptor = config.GetParamDescriptor(id);
        if (dynamic_cast<AlarmDescriptor*>(descriptor)) alarms.emplace_back(descriptor);
    }
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

/// Alarms are data values.
void RequireData(const Session& session)
{
    if (!session.CarriesData())
        throw ConnectionError("this connection carries no alarms: --uri udp://ADDRESS:PORT does");
}

/// The alarm of this name, or nothing after a message.
std::optional<Parameter> FindAlarm(Session& session, const std::string& name, ExitStatus& status)
{
    status = ExitStatus::kCannotConnect;
    if (!session.Connect()) return std::nullopt;
    RequireData(session);
    session.RequireAnswers();
    status = ExitStatus::kUnknownParameter;
    const auto parameter = session.Find(name);
    if (!parameter || std::string_view(parameter->Kind()) == "alarm") return parameter;
    session.Complain(parameter->Name() + " is no alarm");
    return std::nullopt;
}

void PrintAlarm(Session& session, const Parameter& parameter, const Value& value)
{
    if (session.json)
        session.Print(parameter.ToJson(value));
    else
        session.Print(parameter.Name() + " = " + parameter.Text(value));
}

/// Reads the written alarm back and shows it.
ExitStatus Finish(Session& session, const Parameter& parameter, bool written)
{
    const auto value = session.Read(parameter);
    if (!written || !value) {
        session.Complain(parameter.Name() + ": the configuration does not accept it");
        return ExitStatus::kRefused;
    }
    PrintAlarm(session, parameter, *value);
    return ExitStatus::kDone;
}

}  // namespace

std::vector<std::string> AlarmNames(Session& session)
{
    std::vector<std::string> names;
    if (Config* const config = session.Connect()) {
        RequireData(session);
        for (const Parameter& parameter : AllAlarms(*config)) names.push_back(parameter.Name());
    }
    return names;
}

ExitStatus ListAlarms(Session& session, bool raisedOnly)
{
    Config* const config = session.Connect();
    if (!config) return ExitStatus::kCannotConnect;
    RequireData(session);
    for (const Parameter& parameter : AllAlarms(*config)) {
        const auto value = session.Read(parameter);
        if (value && (!raisedOnly || IsRaised(*value))) PrintAlarm(session, parameter, *value);
    }
    return ExitStatus::kDone;
}

ExitStatus RaiseAlarm(Session& session, const std::string& name, const std::string& severity,
                      const std::string& text)
{
    ExitStatus status;
    const auto parameter = FindAlarm(session, name, status);
    if (!parameter) return status;
    Alarm atRest;
    atRest.ParseFromString(dynamic_cast<AlarmDescriptor&>(parameter->Descriptor()).GetFactoryDefault());
    const auto level = severity.empty() ? atRest.severity() : SeverityByName(severity);
    if (!level) {
        session.Complain("unknown severity " + Quoted(severity) + ": " + SeverityNames());
        return ExitStatus::kUsage;
    }
    return Finish(session, *parameter, session.Ask([&](Config& config) {
        return AlarmProducer::raise(&config, parameter->Id(), *level, text);
    }));
}

ExitStatus ClearAlarm(Session& session, const std::string& name)
{
    ExitStatus status;
    const auto parameter = FindAlarm(session, name, status);
    if (!parameter) return status;
    return Finish(session, *parameter, session.Ask([&](Config& config) {
        return AlarmProducer::clear(&config, parameter->Id());
    }));
}
