#include "vexactl/show.h"

#include <fnmatch.h>

#include <algorithm>
#include <chrono>
#include <map>

#include "vexactl/description.h"
#include "vexactl/groups.h"

namespace {

bool IsLike(const std::string& name, const std::string& pattern)
{
    return fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
}

bool IsPattern(const std::string& text)
{
    return text.find_first_of("*?[") != std::string::npos;
}

/// All that the value is not needed for.
bool Matches(const Filter& filter, const Parameter& parameter)
{
    if (filter.group && parameter.Id() >> 24 != *filter.group) return false;
    if (!filter.className.empty() && !parameter.Descriptor().HasClassName(filter.className)) return false;
    const std::string name = parameter.Name();
    return filter.patterns.empty() || std::ranges::any_of(filter.patterns, [&](const std::string& pattern) {
               return IsLike(name, pattern);
           });
}

/// A pattern without marks is a part of a name that its user had in mind.
ExitStatus NothingMatches(Session& session, const Filter& filter)
{
    std::string message = "no parameter matches";
    if (filter.changed && filter.patterns.empty() && !filter.group && filter.className.empty())
        message = "no value differs from its factory default";
    for (const std::string& pattern : filter.patterns)
        if (!IsPattern(pattern)) message += "; \"list '*" + pattern + "*'\" looks inside names";
    return session.Fail(ExitStatus::kFalse, message);
}

std::string Plural(size_t count, const std::string& what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

void PrintListed(Session& session, const Parameter& parameter, const std::optional<Value>& value)
{
    session.PrintValue(parameter, value,
                       parameter.IdText() + "  " + Padded(parameter.Kind(), 5) + "  " +
                           Padded(parameter.Name(), 32) + "  " + (value ? parameter.Text(*value) : "-"));
}

std::vector<Parameter> Matching(const Session& session, const std::string& pattern)
{
    std::vector<Parameter> matching;
    for (const auto& [id, descriptor] : session.Parameters().All())
        if (const Parameter parameter(descriptor); IsLike(parameter.Name(), pattern))
            matching.push_back(parameter);
    return matching;
}

}  // namespace

std::vector<Parameter> Chosen(Session& session, const std::vector<std::string>& names, ExitStatus& status)
{
    std::vector<Parameter> chosen;
    status = ExitStatus::kDone;
    const auto note = [&](ExitStatus failure) { status = status == ExitStatus::kDone ? failure : status; };
    for (const std::string& name : names) {
        if (IsPattern(name)) {
            const auto matching = Matching(session, name);
            if (matching.empty()) note(session.Fail(ExitStatus::kFalse, "no parameter matches " + name));
            chosen.insert(chosen.end(), matching.begin(), matching.end());
        } else if (const auto parameter = session.Find(name)) {
            chosen.push_back(*parameter);
        } else {
            note(ExitStatus::kUnknownParameter);
        }
    }
    return chosen;
}

ExitStatus Get(Session& session, const std::vector<std::string>& names, bool isBare)
{
    vexa::Device& device = *session.Connect();
    ExitStatus status;
    const auto parameters = Chosen(session, names, status);
    const auto results = session.Read(device, parameters);
    for (size_t i = 0; i < parameters.size(); ++i) {
        const Parameter& parameter = parameters[i];
        const auto& value = results[i].value;
        if (!value) {
            session.Fail(ExitStatus::kFalse, parameter.Name() + ": " + results[i].reason,
                         {{"id", parameter.IdText()}, {"param", parameter.Name()}});
            if (status == ExitStatus::kDone) status = ExitStatus::kFalse;
        } else if (isBare) {
            session.PrintExactly(parameter.Bare(*value));
        } else {
            session.PrintValue(parameter, value, parameter.Name() + " = " + parameter.Text(*value));
        }
    }
    return status;
}

ExitStatus List(Session& session, const Filter& filter)
{
    vexa::Device& device = *session.Connect();
    bool isEmpty = true;
    for (const auto& [id, descriptor] : session.Parameters().All()) {
        const Parameter parameter(descriptor);
        if (!Matches(filter, parameter)) continue;
        // The device's values are all there already, but for those that change without telling.
        const vexa::GetResult now = device.Kept(id);
        Interrupts::Instance().Check();
        session.RequireConnection(now.failure, now.reason);
        if (filter.changed && (!now.value || now.value == FactoryDefault(parameter))) continue;
        // Many alarms without a value say nothing, unless somebody or a program asks for them.
        const bool isMute = !now.value && parameter.HoldsBytes() && filter.patterns.empty() && !session.json;
        if (isMute) continue;
        isEmpty = false;
        PrintListed(session, parameter, now.value);
    }
    return isEmpty ? NothingMatches(session, filter) : ExitStatus::kDone;
}

ExitStatus Info(Session& session, const std::vector<std::string>& names)
{
    vexa::Device* const device = session.NeedsNoDevice() ? nullptr : session.Connect();
    const vexa::Catalogue& catalogue = device ? session.Parameters() : session.Described();
    ExitStatus status;
    const auto parameters = Chosen(session, names, status);
    const auto results = device ? session.Read(*device, parameters) : std::vector<vexa::GetResult>();
    for (size_t i = 0; i < parameters.size(); ++i) {
        const Parameter& parameter = parameters[i];
        const auto value = device ? results[i].value : std::nullopt;
        if (session.json) {
            Json description = Describe(catalogue, parameter);
            if (value) description["current"] = parameter.ToJson(*value);
            session.Print(std::move(description));
            continue;
        }
        const std::string shown = value ? parameter.Text(*value) : "-";
        session.Print(DescriptionText(catalogue, parameter) + (device ? Padded("value:", 14) + shown : ""));
    }
    return status;
}

ExitStatus Groups(Session& session)
{
    if (!session.NeedsNoDevice()) session.Connect();
    const vexa::Catalogue& catalogue = session.NeedsNoDevice() ? session.Described() : session.Parameters();
    std::map<unsigned int, size_t> counts;
    for (const auto& [id, descriptor] : catalogue.All()) ++counts[id >> 24];
    for (const auto& [group, count] : counts) {
        if (session.json)
            session.Print(Json{{"group", group}, {"groupName", GroupName(group)}, {"parameters", count}});
        else
            session.Print(Padded(std::to_string(group), 3) + "  " + Padded(GroupName(group), 14) + "  " +
                          Plural(count, "parameter"));
    }
    return ExitStatus::kDone;
}

ExitStatus Ping(Session& session)
{
    vexa::Device& device = *session.Connect();
    const auto begin = std::chrono::steady_clock::now();
    const vexa::GetResult answer = device.Get(eParamID_ProductID);
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
    session.RequireConnection(answer.failure, answer.reason);
    const vexa::DeviceStatus status = device.Status();
    const auto serial = device.Kept(eParamID_SerialNumber).value;
    ParamDescriptor* const descriptor = session.Parameters().Find(eParamID_SerialNumber);
    const std::string serialText = serial && descriptor ? Parameter(descriptor).Bare(*serial) : "";
    const size_t count = session.Parameters().All().size();
    if (session.json) {
        session.Print(Json{{"uri", session.Place()},
                           {"model", status.model},
                           {"serial", serialText},
                           {"software", status.software},
                           {"parameters", count},
                           {"milliseconds", time.count()}});
        return ExitStatus::kDone;
    }
    char milliseconds[32];
    snprintf(milliseconds, sizeof milliseconds, "%.2f ms", time.count());
    std::string line = session.isOneOfMany ? "" : session.Place() + "  ";
    line += status.model.empty() ? "no model" : status.model;
    if (!serialText.empty()) line += "  serial " + serialText;
    if (!status.software.empty()) line += "  software " + status.software;
    session.Print(line + "  " + Plural(count, "parameter") + "  " + milliseconds);
    return ExitStatus::kDone;
}
