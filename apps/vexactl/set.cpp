#include "vexactl/set.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <iostream>
#include <map>
#include <set>

#include "config/base/mutex.h"
#include "vexactl/rollback.h"
#include "vexactl/words.h"

namespace {

using Outcome = vexa::SetResult::Outcome;
using Words = std::vector<std::string>;

/// A parameter and what was typed for it.
struct Assignment {
    std::string name, typed;
};

struct Setting {
    Parameter parameter;
    std::string typed;
    Value value;
};

std::optional<std::vector<Assignment>> AssignmentsOf(const Words& words)
{
    std::vector<Assignment> assignments;
    if (words.size() == 2 && words[0].find('=') == std::string::npos) return {{{words[0], words[1]}}};
    for (const std::string& word : words) {
        const size_t equals = word.find('=');
        if (equals == std::string::npos || equals == 0) return std::nullopt;
        assignments.push_back({word.substr(0, equals), word.substr(equals + 1)});
    }
    return assignments;
}

// --- what is typed while the command runs ---

/// Switches off what is typed, for the life of a scope.
class NoEcho {
  public:
    NoEcho(Output& output, bool isWanted)
        : m_output(output), m_isOff(isWanted && tcgetattr(STDIN_FILENO, &m_before) == 0)
    {
        if (!m_isOff) return;
        termios silent = m_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~NoEcho()
    {
        if (!m_isOff) return;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_before);
        m_output.Ask("\n");
    }
    NoEcho(const NoEcho&) = delete;
    NoEcho& operator=(const NoEcho&) = delete;

  private:
    Output& m_output;
    termios m_before{};
    const bool m_isOff;
};

/// A terminal hands over whole lines, so whoever reads can wait for a signal as well.
std::string ReadTyped(Output& output, const std::string& prompt, bool isSecret)
{
    const NoEcho silence(output, isSecret);  // first: it drops what was typed before
    output.Ask(prompt + ": ");
    pollfd events[] = {{STDIN_FILENO, POLLIN, 0}, {Interrupts::Instance().Fd(), POLLIN, 0}};
    poll(events, 2, -1);
    Interrupts::Instance().Check();
    std::string line;
    std::getline(std::cin, line);
    return line;
}

std::string ReadLine(Output& output, const std::string& prompt, bool isSecret)
{
    if (isatty(STDIN_FILENO)) return ReadTyped(output, prompt, isSecret);
    const Interrupts::Idle idle([] {});
    std::string line;
    std::getline(std::cin, line);
    return line;
}

/// The first line of standard input, the same for each of several devices.
std::string TypedFor(const Session& session, const Parameter& parameter)
{
    static vexa::Mutex lock;
    static std::map<std::string, std::string> known;
    if (!session.isOneOfMany) return ReadLine(session.Lines(), parameter.Name(), parameter.IsSecret());
    const vexa::MutexLock hold(lock);
    const auto [line, isNew] = known.try_emplace(parameter.Name());
    if (isNew) line->second = ReadLine(session.Lines(), parameter.Name(), parameter.IsSecret());
    return line->second;
}

// --- before ---

ExitStatus Refused(Session& session, const Parameter& parameter, const std::string& typed,
                   const std::string& reason)
{
    return session.Fail(ExitStatus::kRefused,
                        parameter.Name() + ": " + parameter.Typed(typed) + " refused: " + reason,
                        {{"param", parameter.Name()},
                         {"result", "refused"},
                         {"requested", parameter.IsHidden() ? parameter.Typed(typed) : typed},
                         {"reason", reason}});
}

/// What can be sent; a failure, and those of the others, with their messages.
std::optional<Setting> Prepared(Session& session, const Assignment& assignment, const SetOptions& options,
                                ExitStatus& status)
{
    const auto note = [&](ExitStatus failure) { status = status == ExitStatus::kDone ? failure : status; };
    const auto parameter = session.Find(assignment.name);
    if (!parameter) {
        note(ExitStatus::kUnknownParameter);
        return std::nullopt;
    }
    const std::string typed = assignment.typed == "-" ? TypedFor(session, *parameter) : assignment.typed;
    std::string reason;
    auto value = vexa::Parse(parameter->Descriptor(), typed, reason);
    if (value && !options.force && parameter->Descriptor().HasClassName("readonly")) {
        reason = "the device reports it; --force sets it all the same";
        value.reset();
    }
    if (!value) {
        note(Refused(session, *parameter, typed, reason));
        return std::nullopt;
    }
    return Setting{*parameter, typed, *value};
}

/// What cannot be taken back is asked for once more, where there is somebody to ask.
bool IsMeant(Output& output, const Setting& setting, const SetOptions& options)
{
    const bool isGrave =
        setting.parameter.Id() == eParamID_SystemCommand || setting.parameter.Id() == eParamID_FormatMedia;
    if (!isGrave || options.yes || !isatty(STDIN_FILENO) || !output.IsTerminal()) return true;
    const std::string answer = ReadLine(
        output,
        "set " + setting.parameter.Name() + " to " + setting.parameter.Text(setting.value) + "? [y/N]",
        false);
    return IsYes(answer);
}

// --- after ---

/// "IPConfig is 0 DHCP": the condition under which the value has no effect; empty when there is none.
std::string WhyWithoutEffect(Session& session, vexa::Device& device, const Parameter& parameter)
{
    std::map<eParam_t, std::set<unsigned int>> enabling;
    const auto relations = parameter.Descriptor().GetRelations();
    if (const auto list = relations.find("enabled_by"); list != relations.end())
        for (const auto& relation : list->second) enabling[relation.paramID].insert(relation.value);
    for (const auto& [id, values] : enabling) {
        const auto now = device.Kept(id).value;
        const auto* const number = now ? std::get_if<unsigned int>(&*now) : nullptr;
        ParamDescriptor* const other = session.Parameters().Find(id);
        if (!number || !other || values.contains(*number)) continue;
        return Parameter(other).Name() + " is " + Parameter(other).Text(*now);
    }
    return "";
}

std::string InBrackets(const std::vector<std::string>& remarks)
{
    std::string list;
    for (const std::string& remark : remarks) list += (list.empty() ? " (" : "; ") + remark;
    return list.empty() ? "" : list + ")";
}

/// What is to be said of a value that is stored; empty texts where there is nothing.
struct Remarks {
    std::string objection, effect;
};

Json StoredJson(const Setting& setting, const vexa::SetResult& result, const Remarks& remarks)
{
    const Parameter& parameter = setting.parameter;
    const bool isCorrected = result.outcome == Outcome::kCorrected;
    Json json = parameter.ToJson(*result.now);
    json["result"] = isCorrected ? "corrected" : "stored";
    if (isCorrected) json["requested"] = parameter.IsHidden() ? parameter.Typed("") : setting.typed;
    if (!remarks.objection.empty()) json["reason"] = remarks.objection;
    if (!remarks.effect.empty()) json["without_effect"] = remarks.effect;
    return json;
}

std::string StoredText(const Setting& setting, const vexa::SetResult& result, const Remarks& remarks)
{
    const Parameter& parameter = setting.parameter;
    const bool isText = vexa::HoldsText(parameter.Descriptor());  // stored all the same, and shown already
    std::vector<std::string> list;
    if (!remarks.objection.empty())
        list.push_back(isText ? remarks.objection : setting.typed + " is " + remarks.objection);
    if (!remarks.effect.empty()) list.push_back("without effect while " + remarks.effect);
    return parameter.Name() + (result.outcome == Outcome::kCorrected ? " corrected to " : " stored ") +
           parameter.Text(*result.now) + InBrackets(list);
}

ExitStatus PrintStored(Session& session, vexa::Device& device, const Setting& setting,
                       const vexa::SetResult& result)
{
    const Remarks remarks{vexa::Objection(setting.parameter.Descriptor(), setting.value).value_or(""),
                          WhyWithoutEffect(session, device, setting.parameter)};
    if (session.json)
        session.Print(StoredJson(setting, result, remarks));
    else
        session.Print(StoredText(setting, result, remarks));
    return result.outcome == Outcome::kCorrected ? ExitStatus::kCorrected : ExitStatus::kDone;
}

ExitStatus PrintUnknown(Session& session, const Setting& setting, const vexa::SetResult& result)
{
    ExitStatus status = ExitStatus::kFalse;
    if (result.failure == vexa::Failure::kTimedOut) status = ExitStatus::kTimedOut;
    if (result.failure == vexa::Failure::kNotConnected) status = ExitStatus::kCannotConnect;
    const Parameter& parameter = setting.parameter;
    const std::string typed = parameter.Typed(setting.typed);
    return session.Fail(status,
                        parameter.Name() + ": " + typed + " sent, but not seen afterwards: " + result.reason,
                        {{"param", parameter.Name()},
                         {"result", "unknown"},
                         {"requested", parameter.IsHidden() ? typed : setting.typed},
                         {"reason", result.reason}});
}

ExitStatus PrintResult(Session& session, vexa::Device& device, const Setting& setting,
                       const vexa::SetResult& result)
{
    switch (result.outcome) {
        case Outcome::kStored:
        case Outcome::kCorrected:
            return PrintStored(session, device, setting, result);
        case Outcome::kUnknown:
            return PrintUnknown(session, setting, result);
        case Outcome::kNotSent:
            session.RequireConnection(result.failure, result.reason);
            return Refused(session, setting.parameter, setting.typed, result.reason);
        case Outcome::kRefused:
            break;
    }
    const auto objection = vexa::Objection(setting.parameter.Descriptor(), setting.value);
    const std::string kept = result.now ? "the device kept " + setting.parameter.Text(*result.now) : "";
    return Refused(session, setting.parameter, setting.typed,
                   objection || kept.empty() ? result.reason : kept);
}

/// One may be corrected; of several none is sent that the device would not take as it is.
std::vector<vexa::SetResult> Send(vexa::Device& device, const std::vector<Setting>& settings)
{
    if (settings.size() == 1) return {device.Set(settings[0].parameter.Id(), settings[0].value)};
    std::vector<std::pair<eParam_t, Value>> values;
    values.reserve(settings.size());
    for (const Setting& setting : settings) values.emplace_back(setting.parameter.Id(), setting.value);
    return device.SetMany(values);
}

ExitStatus SendAll(Session& session, vexa::Device& device, const std::vector<Setting>& settings)
{
    const auto results = Send(device, settings);
    Interrupts::Instance().Check();
    ExitStatus status = ExitStatus::kDone;
    for (size_t i = 0; i < settings.size(); ++i) {
        const ExitStatus one = PrintResult(session, device, settings[i], results[i]);
        if (status == ExitStatus::kDone) status = one;
    }
    return status;
}

/// What the device has now, and is to have.
ValueChanges ChangesOf(Session& session, vexa::Device& device, const std::vector<Setting>& settings)
{
    std::vector<Parameter> parameters;
    parameters.reserve(settings.size());
    for (const Setting& setting : settings) parameters.push_back(setting.parameter);
    const auto results = session.Read(device, parameters);
    ValueChanges changes;
    for (size_t i = 0; i < settings.size(); ++i)
        if (results[i]) changes.push_back({parameters[i], *results[i].value, settings[i].value, true});
    return changes;
}

/// @return the status of the settings where they stay.
ExitStatus SendAndAsk(Session& session, vexa::Device& device, const std::vector<Setting>& settings,
                      double seconds)
{
    if (session.isOneOfMany) return session.Fail(ExitStatus::kUsage, "--confirm takes one device");
    const ValueChanges changes = ChangesOf(session, device, settings);
    Rollback rollback(session, device, seconds);
    rollback.Start(changes);
    try {
        const ExitStatus status = SendAll(session, device, settings);
        if (!rollback.HasChanges()) {
            rollback.Confirm();
            return status;
        }
        const ExitStatus answer = AskWhetherToKeep(session, device, rollback);
        return answer == ExitStatus::kDone ? status : answer;
    } catch (...) {
        rollback.Undo();
        throw;
    }
}

}  // namespace

ExitStatus Set(Session& session, const Words& words, const SetOptions& options)
{
    const auto assignments = AssignmentsOf(words);
    if (!assignments)
        return session.Fail(ExitStatus::kUsage, "set takes PARAMETER VALUE, or PARAMETER=VALUE once or more");
    vexa::Device& device = *session.Connect();
    ExitStatus status = ExitStatus::kDone;
    std::vector<Setting> settings;
    for (const Assignment& assignment : *assignments)
        if (auto setting = Prepared(session, assignment, options, status)) settings.push_back(*setting);
    if (status != ExitStatus::kDone) return status;
    for (const Setting& setting : settings)
        if (!IsMeant(session.Lines(), setting, options))
            return Refused(session, setting.parameter, setting.typed, "not meant");
    return options.confirm ? SendAndAsk(session, device, settings, *options.confirm)
                           : SendAll(session, device, settings);
}
