#include "vexactl/commands.h"

#include <fnmatch.h>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/string_descriptor.h"

namespace {

using Names = std::vector<std::string>;

std::string Padded(std::string text, size_t width)
{
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

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

bool Matches(const std::string& name, const Names& patterns)
{
    return patterns.empty() || std::ranges::any_of(patterns, [&](const std::string& pattern) {
               return fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
           });
}

ExitStatus List(Session& session, const Names& patterns)
{
    Config* const config = session.Connect();
    if (!config) return ExitStatus::kCannotConnect;
    ExitStatus result = ExitStatus::kFalse;
    for (const eParam_t id : config->GetParamIDs()) {
        const Parameter parameter(config->GetParamDescriptor(id));
        if (!Matches(parameter.Name(), patterns)) continue;
        result = ExitStatus::kDone;
        const auto value = parameter.Read(*config);
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

// --- info ---

Json LimitsOf(const Parameter& parameter)
{
    Json json;
    if (auto* const integer = dynamic_cast<IntegerDescriptor*>(&parameter.Descriptor())) {
        json["min"] = integer->GetMinValue();
        json["max"] = integer->GetMaxValue();
        json["default"] = integer->GetFactoryDefault();
        if (!integer->GetUnits().empty()) json["units"] = integer->GetUnits();
        if (integer->GetScaleBy() > 1) json["scale"] = integer->GetScaleBy();
    } else if (auto* const text = dynamic_cast<StringDescriptor*>(&parameter.Descriptor())) {
        json["minLength"] = text->GetMinLength();
        json["maxLength"] = text->GetMaxLength();
        json["default"] = text->GetFactoryDefault();
    }
    if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(&parameter.Descriptor()))
        for (const EnumValueDescriptor& entry : enumeration->GetOrderedEnumValueDescriptors())
            json["values"].push_back({{"value", entry.value}, {"name", entry.name}});
    return json;
}

Json RelationsOf(Config& config, ParamDescriptor& descriptor)
{
    const auto nameOf = [&](eParam_t id) {
        ParamDescriptor* const other = config.GetParamDescriptor(id);
        return other ? Parameter(other).Name() : std::to_string(id);
    };
    Json json;
    for (const auto& [name, relations] : descriptor.GetRelations())
        for (const auto& relation : relations)
            json[name].push_back({{"param", nameOf(relation.paramID)}, {"value", relation.value}});
    for (const eParam_t id : descriptor.GetDependentParamIDs()) json["dependents"].push_back(nameOf(id));
    for (const eParam_t id : descriptor.GetDependsOnParamIDs()) json["depends_on"].push_back(nameOf(id));
    return json;
}

Json Describe(Config& config, const Parameter& parameter)
{
    ParamDescriptor& descriptor = parameter.Descriptor();
    std::string description, menu;
    descriptor.GetAttribute("description", description);
    descriptor.GetAttribute("menu_number", menu);
    Json json{{"id", parameter.IdText()},
              {"param", parameter.Name()},
              {"name", descriptor.GetName()},
              {"shortName", descriptor.GetShortName()},
              {"kind", parameter.Kind()},
              {"description", description},
              {"menu", menu},
              {"persistent", descriptor.GetPersistenceType() == ePersist},
              {"inRegisters", descriptor.GetRegisterType() == eRegister_Include},
              {"factoryReset", static_cast<unsigned int>(descriptor.GetFactoryResetType())},
              {"classNames", descriptor.GetClassNames()}};
    for (const Json& part : {LimitsOf(parameter), RelationsOf(config, descriptor)})
        if (!part.is_null()) json.update(part);
    return json;
}

/// The same facts for people: one a line, the values of an enumeration one below the other.
void PrintDescription(Session& session, const Json& description)
{
    for (const auto& [key, fact] : description.items()) {
        if (fact.empty() || fact == "") continue;
        if (key == "values") {
            session.Print(std::string("values:"));
            for (const Json& entry : fact)
                session.Print("  " + entry["value"].dump() + " " + entry["name"].get<std::string>());
        } else {
            const bool plain = fact.is_string() && key != "default";
            session.Print(Padded(key + ":", 14) + (plain ? fact.get<std::string>() : Dump(fact)));
        }
    }
}

ExitStatus Info(Session& session, const Names& names)
{
    return ForEachNamed(session, names, [&](const Parameter& parameter) {
        Config& config = *session.Connect();
        Json description = Describe(config, parameter);
        const auto value = parameter.Read(config);
        if (session.json) {
            if (value) description["current"] = parameter.ToJson(*value);
            session.Print(description);
        } else {
            PrintDescription(session, description);
            session.Print(Padded("value:", 14) + (value ? parameter.Text(*value) : "-"));
        }
        return ExitStatus::kDone;
    });
}

// --- get, set ---

ExitStatus Get(Session& session, const Names& names)
{
    return ForEachNamed(session, names, [&](const Parameter& parameter) {
        const auto value = parameter.Read(*session.Connect());
        if (!value) {
            session.Complain(parameter.Name() + " has no value");
            return ExitStatus::kFalse;
        }
        if (session.json)
            session.Print(parameter.ToJson(*value));
        else
            session.Print(parameter.Name() + " = " + parameter.Text(*value));
        return ExitStatus::kDone;
    });
}

ExitStatus Refused(Session& session, const Parameter& parameter, const std::string& typed,
                   const std::string& reason)
{
    if (session.json)
        session.Print(Json{
            {"param", parameter.Name()}, {"result", "refused"}, {"requested", typed}, {"reason", reason}});
    session.Complain(parameter.Name() + ": " + Quoted(typed) + " refused: " + reason);
    return ExitStatus::kRefused;
}

bool Write(Config& config, const Parameter& parameter, const Value& value)
{
    if (const auto* text = std::get_if<std::string>(&value)) return config.Set(parameter.Id(), *text);
    return config.Set(parameter.Id(), std::get<unsigned int>(value));
}

ExitStatus Set(Session& session, const Parameter& parameter, const std::string& typed, bool force)
{
    Config& config = *session.Connect();
    const auto wanted = parameter.Parse(typed);
    if (!wanted)
        return Refused(session, parameter, typed, "neither a named value nor a number from 0 to 4294967295");
    if (!force && parameter.Descriptor().HasClassName("readonly"))
        return Refused(session, parameter, typed, "the device reports it; --force sets it all the same");
    if (std::string_view kind = parameter.Kind(); kind == "data" || kind == "alarm")
        return Refused(session, parameter, typed, "it holds data, not a text");
    const std::string objection = parameter.Objection(*wanted).value_or("");
    if (!Write(config, parameter, *wanted))
        return Refused(session, parameter, typed,
                       objection.empty() ? "the configuration does not accept it" : objection);

    const Value stored = parameter.Read(config).value_or(*wanted);
    const bool corrected = stored != *wanted;
    if (session.json) {
        Json json = parameter.ToJson(stored);
        json["result"] = corrected ? "corrected" : "stored";
        session.Print(json);
    } else {
        const std::string reason = objection.empty() ? "" : " (" + typed + " is " + objection + ")";
        session.Print(parameter.Name() + (corrected ? " corrected to " : " stored ") +
                      parameter.Text(stored) + reason);
    }
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
    session.StartWatch(std::move(only));
    if (!inShell) session.WaitForWatch(limits.changes, limits.seconds);
    return ExitStatus::kDone;
}

void AddWatch(CLI::App& app, Session& session, ExitStatus& status, bool inShell)
{
    auto* const watch = app.add_subcommand("watch", "Tell of every change: time, parameter, value");
    const auto names = std::make_shared<Names>();
    const auto limits = std::make_shared<WatchLimits>();
    watch->add_option("PARAMETER", *names, "Only these; all when none is named");
    if (inShell) {
        auto* const unwatch = app.add_subcommand("unwatch", "Tell of changes no longer");
        unwatch->callback([&] { session.StopWatch(); });
    } else {
        watch->add_option("--count", limits->changes, "End after so many changes");
        watch->add_option("--for", limits->seconds, "End after so many seconds");
    }
    watch->callback([=, &session, &status] { status = Watch(session, *names, *limits, inShell); });
}

}  // namespace

void AddCommands(CLI::App& app, Session& session, ExitStatus& status, bool inShell)
{
    using Verb = ExitStatus (*)(Session&, const Names&);
    const auto add = [&](const char* verb, const char* help, const char* argument, bool required, Verb run) {
        auto* const command = app.add_subcommand(verb, help);
        const auto names = std::make_shared<Names>();
        command->add_option(argument, *names)->required(required);
        command->callback([=, &session, &status] { status = run(session, *names); });
    };
    add("list", "Show parameters with their values", "PATTERN", false, List);
    add("info", "Describe parameters", "PARAMETER", true, Info);
    add("get", "Show values", "PARAMETER", true, Get);

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
}

std::string Explain(const CLI::App& app, const CLI::ParseError& error)
{
    const auto unknown = app.remaining();
    if (app.get_subcommands().empty() && !unknown.empty())
        return "unknown command " + Quoted(unknown.front());
    return error.what();
}
