#include "vexactl/apply.h"

#include <fnmatch.h>

#include <algorithm>
#include <map>

#include "vexactl/changes.h"
#include "vexactl/description.h"
#include "vexactl/settings_file.h"
#include "vexactl/show.h"

namespace {

bool IsPattern(const std::string& text)
{
    return text.find_first_of("*?[") != std::string::npos;
}

// --- the file ---

/// A line and what it asks for.
struct Wish {
    const SettingsLine& line;
    Parameter parameter;
    Value value;
};

/// Looks for all that speaks against a file before anything is changed.
class Checks {
  public:
    Checks(Session& session, const SettingsFile& file) : m_session(session), m_file(file) {}

    /// The lines that the catalogue has nothing against.
    std::vector<Wish> WishesOf(const std::vector<const SettingsLine*>& lines);
    /// Those that the device does not fulfil yet, and may; so with the other ones, which may change along.
    ValueChanges ChangesFor(vexa::Device& device, const std::vector<Wish>& wishes);
    void RequireModel();
    /// Tells all objections, as they follow one another in the file. @return the status of the first one.
    ExitStatus Tell();

  private:
    struct Objection {
        std::string place, name, reason;
        ExitStatus status;
    };
    void ObjectTo(const SettingsLine& line, const std::string& reason,
                  ExitStatus status = ExitStatus::kRefused)
    {
        m_objections.emplace(line.line, Objection{m_file.PlaceOf(line), line.name, reason, status});
    }
    std::optional<Wish> WishOf(const SettingsLine& line);

    Session& m_session;
    const SettingsFile& m_file;
    std::map<eParam_t, unsigned int> m_lineOf;
    std::multimap<unsigned int, Objection> m_objections;  // by line
};

ExitStatus Checks::Tell()
{
    for (const auto& [line, objection] : m_objections)
        m_session.Fail(objection.status, objection.place + ": " + objection.name + ": " + objection.reason,
                       {{"param", objection.name}, {"place", objection.place}, {"reason", objection.reason}});
    return m_objections.empty() ? ExitStatus::kDone : m_objections.begin()->second.status;
}

void Checks::RequireModel()
{
    const std::string model = m_session.Parameters().Model();
    if (!m_file.model || *m_file.model == model) return;
    m_objections.emplace(
        0, Objection{m_file.path, "model",
                     "the file is of " + Quoted(*m_file.model) + ", the device is " + Quoted(model),
                     ExitStatus::kRefused});
}

std::string UnknownReason(const vexa::Catalogue& catalogue, const std::string& name)
{
    const std::string meant = DidYouMean(catalogue, name);
    return "unknown parameter" + (meant.empty() ? "" : "; " + meant);
}

std::optional<Wish> Checks::WishOf(const SettingsLine& line)
{
    ParamDescriptor* const descriptor = m_session.Parameters().Find(line.name);
    if (!descriptor) {
        ObjectTo(line, UnknownReason(m_session.Parameters(), line.name), ExitStatus::kUnknownParameter);
        return std::nullopt;
    }
    const auto [other, isNew] = m_lineOf.try_emplace(descriptor->GetParamID(), line.line);
    std::string reason;
    std::optional<Value> value;
    if (!isNew)
        reason = "named in line " + std::to_string(other->second) + " already";
    else if (descriptor->HasClassName("readonly"))
        reason = "the device reports it";
    else if (!vexa::IsSetting(*descriptor))
        reason = "no setting: the device does not keep it";
    else
        value = ValueOf(*descriptor, line.value, reason);
    if (value) return Wish{line, Parameter(descriptor), *value};
    ObjectTo(line, reason);
    return std::nullopt;
}

std::vector<Wish> Checks::WishesOf(const std::vector<const SettingsLine*>& lines)
{
    std::vector<Wish> wishes;
    for (const SettingsLine* const line : lines)
        if (auto wish = WishOf(*line)) wishes.push_back(*wish);
    return wishes;
}

/// Why a device would not store a value as it is. @return nothing when it should.
std::optional<std::string> ObjectionOf(vexa::Device& device, const Parameter& parameter, const Value& value)
{
    const auto* const text = std::get_if<std::string>(&value);
    if (text && text->size() > device.LongestText())
        return "longer than the " + std::to_string(device.LongestText()) + " bytes that can be sent";
    if (text && !parameter.HoldsBytes() && text->find('\0') != std::string::npos)
        return "a text has no zero bytes";
    return vexa::Objection(parameter.Descriptor(), value);
}

ValueChanges Checks::ChangesFor(vexa::Device& device, const std::vector<Wish>& wishes)
{
    std::vector<Parameter> parameters;
    parameters.reserve(wishes.size());
    for (const Wish& wish : wishes) parameters.push_back(wish.parameter);
    const auto results = m_session.Read(device, parameters);
    ValueChanges changes;
    for (size_t i = 0; i < wishes.size(); ++i) {
        const Wish& wish = wishes[i];
        if (!results[i]) {
            ObjectTo(wish.line, results[i].reason);
            continue;
        }
        const Value& now = *results[i].value;
        const auto objection =
            now == wish.value ? std::nullopt : ObjectionOf(device, wish.parameter, wish.value);
        if (objection) ObjectTo(wish.line, *objection);
        changes.push_back({wish.parameter, now, wish.value});
    }
    return changes;
}

/// The lines that a user wants.
std::vector<const SettingsLine*> LinesOf(Session& session, const SettingsFile& file,
                                         const std::vector<std::string>& patterns)
{
    std::vector<const SettingsLine*> lines;
    for (const SettingsLine& line : file.lines) {
        ParamDescriptor* const descriptor = session.Parameters().Find(line.name);
        const std::string name = descriptor ? vexa::Catalogue::NameOf(*descriptor) : line.name;
        const bool isWanted =
            patterns.empty() || std::ranges::any_of(patterns, [&](const std::string& pattern) {
                return fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
            });
        if (isWanted) lines.push_back(&line);
    }
    return lines;
}

// --- the changes ---

ExitStatus Carry(Session& session, vexa::Device& device, const ValueChanges& changes,
                 const ChangeOptions& options)
{
    if (std::ranges::none_of(changes, &ValueChange::Differs)) {
        if (!session.json) session.Print(std::string("nothing to change"));
        return ExitStatus::kDone;
    }
    if (!options.dryRun) return MakeChanges(session, device, changes, options.confirm);
    for (const ValueChange& change : InOrder(changes))
        if (change.Differs())
            PrintChanged(session, change.parameter, change.from, change.to, "would be stored");
    return ExitStatus::kDone;
}

// --- reset ---

bool IsReset(const Parameter& parameter, bool withNetwork)
{
    const eFactoryReset_t reset = parameter.Descriptor().GetFactoryResetType();
    return !parameter.Descriptor().HasClassName("readonly") &&
           (reset == eFactoryReset_Include || (withNetwork && reset == eFactoryReset_Network));
}

bool MayBeReset(const Parameter& parameter)
{
    return vexa::IsSetting(parameter.Descriptor()) || IsReset(parameter, true);
}

/// Those of one word; a name that is no setting is refused, a pattern passes it over.
std::vector<Parameter> NamedBy(Session& session, const std::string& word, ExitStatus& status)
{
    std::vector<Parameter> named = Chosen(session, {word}, status);
    if (status != ExitStatus::kDone) return {};
    std::erase_if(named, [](const Parameter& parameter) { return !MayBeReset(parameter); });
    if (!named.empty()) return named;
    if (IsPattern(word))
        status = session.Fail(ExitStatus::kFalse, "no setting matches " + word);
    else
        status = session.Fail(ExitStatus::kRefused, word + ": no setting, so it has no default to go back to",
                              {{"param", word}});
    return {};
}

std::vector<Parameter> ToBeReset(Session& session, const ResetOptions& options, ExitStatus& status)
{
    std::map<eParam_t, Parameter> chosen;  // each once
    for (const std::string& word : options.names) {
        ExitStatus one = ExitStatus::kDone;
        for (const Parameter& parameter : NamedBy(session, word, one))
            chosen.emplace(parameter.Id(), parameter);
        if (status == ExitStatus::kDone) status = one;
    }
    for (const auto& [id, descriptor] : session.Parameters().All())
        if (options.all && IsReset(Parameter(descriptor), options.network))
            chosen.emplace(id, Parameter(descriptor));
    std::vector<Parameter> parameters;
    parameters.reserve(chosen.size());
    for (const auto& [id, parameter] : chosen) parameters.push_back(parameter);
    return parameters;
}

}  // namespace

ExitStatus Apply(Session& session, const ApplyOptions& options)
{
    const SettingsFile file = SettingsFile::Read(options.file);
    vexa::Device& device = *session.Connect();
    const auto lines = LinesOf(session, file, options.only);
    if (lines.empty() && !options.only.empty())
        return session.Fail(ExitStatus::kFalse, "no setting in " + Quoted(options.file) + " matches");
    Checks checks(session, file);
    checks.RequireModel();
    const ValueChanges changes = checks.ChangesFor(device, checks.WishesOf(lines));
    if (const ExitStatus status = checks.Tell(); status != ExitStatus::kDone) {
        session.Note("nothing is changed");
        return status;
    }
    return Carry(session, device, changes, options);
}

ExitStatus Reset(Session& session, const ResetOptions& options)
{
    if (options.all == !options.names.empty())
        return session.Fail(ExitStatus::kUsage, "reset takes names and patterns of parameters, or --all");
    vexa::Device& device = *session.Connect();
    ExitStatus status = ExitStatus::kDone;
    const std::vector<Parameter> parameters = ToBeReset(session, options, status);
    if (status != ExitStatus::kDone) return status;
    const auto results = session.Read(device, parameters);
    ValueChanges changes;
    for (size_t i = 0; i < parameters.size(); ++i) {
        const auto standard = FactoryDefault(parameters[i]);
        if (results[i] && standard) changes.push_back({parameters[i], *results[i].value, *standard});
    }
    return Carry(session, device, changes, options);
}
