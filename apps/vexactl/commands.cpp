#include "vexactl/commands.h"

#include <fnmatch.h>

#include <algorithm>

#include "vexactl/alarms.h"
#include "vexactl/catalogue.h"
#include "vexactl/description.h"

namespace {

using Names = std::vector<std::string>;

/// Runs one step per named parameter and ends with the first failure's status; the others are still done.
template <class Step>
ExitStatus ForEachNamed(Session& session, const Names& names, Step step)
{
    if (!session.Connect()) return ExitStatus::kCannotConnect;
    ExitStatus result = ExitStatus::kDone;
    for (const std::string& name : names) {
        const auto parameter = session.Find(name);
        const ExitStatus status = parameter ? step(*parameter) : ExitStatus::kUnknownParameter;
        if (result == ExitStatus::kDone) result = status;
    }
    return result;
}

// --- list, info ---

/// Selects the parameters that meet every condition given.
struct Filter {
    Names patterns;
    std::optional<unsigned int> group;  ///< the high byte of the identifier
    std::string className;
    bool changed = false;
};

bool Matches(const Filter& filter, const Parameter& parameter, const std::optional<Value>& value)
{
    if (filter.group && parameter.Id() >> 24 != *filter.group) return false;
    if (!filter.className.empty() && !parameter.Descriptor().HasClassName(filter.className)) return false;
    if (filter.changed && (!value || value == FactoryDefault(parameter))) return false;
    const std::string name = parameter.Name();
    return filter.patterns.empty() || std::ranges::any_of(filter.patterns, [&](const std::string& pattern) {
               return fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
           });
}

ExitStatus List(Session& session, const Filter& filter)
{
    Config* const config = session.Connect();
    if (!config) return ExitStatus::kCannotConnect;
    ExitStatus result = ExitStatus::kFalse;
    for (const eParam_t id : config->GetParamIDs()) {
        const Parameter parameter(config->GetParamDescriptor(id));
        const auto value = session.Read(parameter);
        if (!Matches(filter, parameter, value)) continue;
        result = ExitStatus::kDone;
        if (session.json)
            session.Print(value ? parameter.ToJson(*value)
                                : Json{{"id", parameter.IdText()}, {"param", parameter.Name()}});
        else
            session.Print(parameter.IdText() + "  " + Padded(parameter.Kind(), 5) + "  " +
                          Padded(parameter.Name(), 32) + "  " + (value ? parameter.Text(*value) : "-"));
    }
    if (result == ExitStatus::kFalse) session.Complain("no parameter matches");
    return result;
}

void AddList(CLI::App& app, Session& session, ExitStatus& status)
{
    auto* const list = app.add_subcommand("list", "Show parameters with their values");
    const auto filter = std::make_shared<Filter>();
    list->add_option("PATTERN", filter->patterns, "Only names like this, with * and ?");
    list->add_option("--group", filter->group, "Only this group, the high byte of the identifier")
        ->check(CLI::Range(0, 255));
    list->add_option("--class", filter->className, "Only parameters with this class name");
    list->add_flag("--changed", filter->changed, "Only values that differ from the factory default");
    list->callback([=, &session, &status] { status = List(session, *filter); });
}

ExitStatus Info(Session& session, const Names& names)
{
    return ForEachNamed(session, names, [&](const Parameter& parameter) {
        Config& config = *session.Connect();
        const auto value = session.Read(parameter);
        if (session.json) {
            Json description = Describe(config, parameter);
            if (value) description["current"] = parameter.ToJson(*value);
            session.Print(description);
        } else {
            session.Print(DescriptionText(config, parameter) + Padded("value:", 14) +
                          (value ? parameter.Text(*value) : "-"));
        }
        return ExitStatus::kDone;
    });
}

// --- get, set ---

ExitStatus Get(Session& session, const Names& names)
{
    return ForEachNamed(session, names, [&](const Parameter& parameter) {
        const auto value = session.Read(parameter);
        if (!value) {
            session.Complain(parameter.Name() + ": " + session.WhyNothing());
            return ExitStatus::kFalse;
        }
        if (session.json)
            session.Print(parameter.ToJson(*value));
        else
            session.Print(parameter.Name() + " = " + parameter.Text(*value));
        return ExitStatus::kDone;
    });
}

/// For a value that is not known to be stored.
void PrintFailure(Session& session, const Parameter& parameter, const std::string& typed, const char* result,
                  const std::string& reason)
{
    if (session.json)
        session.Print(
            Json{{"param", parameter.Name()}, {"result", result}, {"requested", typed}, {"reason", reason}});
}

ExitStatus Refused(Session& session, const Parameter& parameter, const std::string& typed,
                   const std::string& reason)
{
    PrintFailure(session, parameter, typed, "refused", reason);
    session.Complain(parameter.Name() + ": " + Quoted(typed) + " refused: " + reason);
    return ExitStatus::kRefused;
}

ExitStatus Unknown(Session& session, const Parameter& parameter, const std::string& typed,
                   const std::string& reason)
{
    PrintFailure(session, parameter, typed, "unknown", reason);
    session.Complain(parameter.Name() + ": " + Quoted(typed) + " sent; " + reason);
    return ExitStatus::kFalse;
}

/// Why the value cannot even be asked for; empty when it can.
std::string Obstacle(const Session& session, const Parameter& parameter, const std::optional<Value>& wanted,
                     bool force)
{
    if (!wanted) return "neither a named value nor a number from 0 to 4294967295";
    if (!force && parameter.Descriptor().HasClassName("readonly"))
        return "the device reports it; --force sets it all the same";
    if (parameter.HoldsBytes()) return "it holds data, not a text";
    const auto* const text = std::get_if<std::string>(&*wanted);
    if (text && text->size() > session.LongestText())
        return "longer than " + std::to_string(session.LongestText()) + " bytes";
    return "";
}

/// Where the device does not report the result, an unchanged value means that the wanted one was refused,
/// unless it is the value to which the wanted number is corrected.
bool IsCorrection(const Parameter& parameter, const std::optional<Value>& before, const Value& wanted,
                  const Value& stored)
{
    if (parameter.Kind() == std::string_view("int") && parameter.Objection(wanted)) return true;
    return before && stored != *before;
}

/// @param reason  of a correction, for people.
void PrintStored(Session& session, const Parameter& parameter, const Value& stored, bool corrected,
                 const std::string& reason)
{
    if (session.json) {
        Json json = parameter.ToJson(stored);
        json["result"] = corrected ? "corrected" : "stored";
        session.Print(json);
    } else {
        session.Print(parameter.Name() + (corrected ? " corrected to " : " stored ") +
                      parameter.Text(stored) + reason);
    }
}

ExitStatus Set(Session& session, const Parameter& parameter, const std::string& typed, bool force)
{
    const auto wanted = parameter.Parse(typed);
    const std::string obstacle = Obstacle(session, parameter, wanted, force);
    if (!obstacle.empty()) return Refused(session, parameter, typed, obstacle);
    const std::string objection = parameter.Objection(*wanted).value_or("");
    const auto refuse = [&] {
        return Refused(session, parameter, typed,
                       objection.empty() ? "the configuration does not accept it" : objection);
    };
    const auto before = session.Read(parameter);
    if (!session.Write(parameter, *wanted)) return refuse();
    const auto stored = session.Read(parameter);
    if (!stored) return Unknown(session, parameter, typed, "could not be read back");

    const bool corrected = *stored != *wanted;
    if (corrected && !session.ConfirmsWrites(parameter) &&
        !IsCorrection(parameter, before, *wanted, *stored)) {
        if (before) return refuse();
        return Unknown(session, parameter, typed,
                       "could not be read before, and is now " + parameter.Text(*stored));
    }
    PrintStored(session, parameter, *stored, corrected,
                objection.empty() ? "" : " (" + typed + " is " + objection + ")");
    return corrected ? ExitStatus::kCorrected : ExitStatus::kDone;
}

// --- watch ---

struct WatchLimits {
    unsigned int changes = 0;
    double seconds = 0;
};

ExitStatus Watch(Session& session, const Names& names, WatchLimits limits, bool inShell)
{
    constexpr double kLongest = 1e9;  // seconds, some thirty years
    if (!(limits.seconds >= 0 && limits.seconds <= kLongest)) {
        session.Complain("--for takes 0 to 1000000000 seconds");
        return ExitStatus::kUsage;
    }
    std::vector<eParam_t> only;
    const ExitStatus found = ForEachNamed(session, names, [&](const Parameter& parameter) {
        only.push_back(parameter.Id());
        return ExitStatus::kDone;
    });
    if (found != ExitStatus::kDone) return found;
    if (inShell) {
        session.StartWatch(std::move(only));
        return ExitStatus::kDone;
    }
    Interrupts::Instance().Start();
    try {
        session.StartWatch(std::move(only), limits.changes);
        session.WaitForWatch(limits.seconds);
    } catch (const Interrupted&) {  // as a watch usually ends
    }
    return ExitStatus::kDone;
}

/// @param names  of the parameters to watch; called when the command runs.
template <class GetNames>
void AddWatchLimits(CLI::App& watch, Session& session, ExitStatus& status, bool inShell, GetNames names)
{
    const auto limits = std::make_shared<WatchLimits>();
    if (!inShell) {
        watch.add_option("--count", limits->changes, "End after so many changes");
        watch.add_option("--for", limits->seconds, "End after so many seconds");
    }
    watch.callback([=, &session, &status] {
        status = session.Connect() ? Watch(session, names(), *limits, inShell) : ExitStatus::kCannotConnect;
    });
}

void AddWatch(CLI::App& app, Session& session, ExitStatus& status, bool inShell)
{
    auto* const watch = app.add_subcommand("watch", "Tell of every change: time, parameter, value");
    const auto names = std::make_shared<Names>();
    watch->add_option("PARAMETER", *names, "Only these; all when none is named");
    AddWatchLimits(*watch, session, status, inShell, [=] { return *names; });
    if (inShell)
        app.add_subcommand("unwatch", "Tell of changes no longer")->callback([&] { session.StopWatch(); });
}

void AddAlarms(CLI::App& app, Session& session, ExitStatus& status, bool inShell)
{
    struct Words {
        std::string name, severity, text;
    };
    const auto words = std::make_shared<Words>();
    auto* const alarms = app.add_subcommand("alarms", "Show, raise, clear and watch alarms");
    alarms->require_subcommand(1);
    alarms->add_subcommand("list", "All alarms of the model")->callback([&] {
        status = ListAlarms(session, false);
    });
    alarms->add_subcommand("raised", "Those that are raised")->callback([&] {
        status = ListAlarms(session, true);
    });
    auto* const raise = alarms->add_subcommand("raise", "Raise an alarm");
    raise->add_option("ALARM", words->name)->required();
    raise->add_option("TEXT", words->text, "What happened");
    raise->add_option("--severity", words->severity, "INFORMATION, WARNING, ERROR or CRITICAL");
    raise->callback(
        [=, &session, &status] { status = RaiseAlarm(session, words->name, words->severity, words->text); });
    auto* const clear = alarms->add_subcommand("clear", "Put an alarm back to rest");
    clear->add_option("ALARM", words->name)->required();
    clear->callback([=, &session, &status] { status = ClearAlarm(session, words->name); });
    auto* const watch = alarms->add_subcommand("watch", "Tell of every change of an alarm");
    AddWatchLimits(*watch, session, status, inShell, [&session] { return AlarmNames(session); });
}

}  // namespace

void AddCommands(CLI::App& app, Session& session, ExitStatus& status, bool inShell)
{
    using Verb = ExitStatus (*)(Session&, const Names&);
    const auto add = [&](const char* verb, const char* help, Verb run) {
        auto* const command = app.add_subcommand(verb, help);
        const auto names = std::make_shared<Names>();
        command->add_option("PARAMETER", *names)->required();
        command->callback([=, &session, &status] { status = run(session, *names); });
    };
    AddList(app, session, status);
    add("info", "Describe parameters", Info);
    add("get", "Show values", Get);

    auto* const set = app.add_subcommand("set", "Change a value and read it back");
    const auto words = std::make_shared<std::pair<std::string, std::string>>();
    const auto force = std::make_shared<bool>(false);
    set->add_option("PARAMETER", words->first)->required();
    set->add_option(
           "VALUE", words->second,
           "A number, the name of an enumerated value, or a text; one that begins with - goes behind --")
        ->required();
    set->add_flag("--force", *force, "Set what the device normally reports");
    set->callback([=, &session, &status] {
        status = ForEachNamed(session, {words->first}, [&](const Parameter& parameter) {
            return Set(session, parameter, words->second, *force);
        });
    });
    AddWatch(app, session, status, inShell);
    AddAlarms(app, session, status, inShell);

    auto* const catalogue = app.add_subcommand("catalogue", "Describe all parameters of the model as JSON");
    const auto markdown = std::make_shared<bool>(false);
    catalogue->add_flag("--markdown", *markdown, "As a reference page to read");
    catalogue->callback([=, &session, &status] { status = PrintCatalogue(session, *markdown); });
}

std::string Explain(const CLI::App& app, const CLI::ParseError& error)
{
    const auto unknown = app.remaining();
    if (app.get_subcommands().empty() && !unknown.empty())
        return "unknown command " + Quoted(unknown.front());
    return error.what();
}
