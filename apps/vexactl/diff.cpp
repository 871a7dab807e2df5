#include "vexactl/diff.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <memory>

#include "device/address.h"
#include "vexactl/changes.h"
#include "vexactl/description.h"
#include "vexactl/settings_file.h"

namespace {

/// One of the two that are compared.
class Side {
  public:
    enum class Kind : uint8_t { kFile, kDevice, kDefaults };

    /// Reads a file, connects to a device. Throws ConnectionError.
    Side(Session& session, const std::string& word);

    /// Its model, where it is known already.
    std::optional<std::string> Model() const;
    /// The values by parameter. @return a failure after its message.
    ExitStatus Read(const vexa::Catalogue& catalogue);
    bool IsFile() const { return m_kind == Kind::kFile; }
    std::optional<Value> At(eParam_t id) const
    {
        const auto found = m_values.find(id);
        return found == m_values.end() ? std::nullopt : std::optional(found->second);
    }

    const std::string word;

  private:
    Session& Own() const { return m_other ? *m_other : m_session; }
    ExitStatus ReadFile(const vexa::Catalogue& catalogue);
    void ReadDevice(const vexa::Catalogue& catalogue);
    void ReadDefaults(const vexa::Catalogue& catalogue);

    Session& m_session;
    std::unique_ptr<Session> m_other;  // at a device of its own
    const Kind m_kind;
    SettingsFile m_file;
    std::map<eParam_t, Value> m_values;
};

[[noreturn]] void NotUnderstood(const std::string& word, const std::string& why)
{
    throw ConnectionError(Quoted(word) + " " + why, ExitStatus::kUsage);
}

bool IsThere(const std::string& path)
{
    struct stat found {};
    return stat(path.c_str(), &found) == 0 && !S_ISDIR(found.st_mode);
}

bool LooksLikeAddress(const std::string& word)
{
    return word.find("://") != std::string::npos || word.starts_with("mq:") || word.starts_with("local:") ||
           word.find("/configid=") != std::string::npos;
}

Side::Kind KindOf(const std::string& word)
{
    const bool isThere = IsThere(word);
    if (isThere && (word == "defaults" || LooksLikeAddress(word)))
        NotUnderstood(word, "is ambiguous: a file has this name, too, which is ./" + word);
    if (word.empty()) return Side::Kind::kDevice;
    if (word == "defaults") return Side::Kind::kDefaults;
    if (LooksLikeAddress(word)) return Side::Kind::kDevice;
    if (isThere || word.find('/') != std::string::npos || word.ends_with(".toml")) return Side::Kind::kFile;
    return Side::Kind::kDevice;
}

void RequireAddress(const std::string& word)
{
    std::string reason;
    if (!vexa::DeviceAddress::Parse(word, reason))
        NotUnderstood(word, "is no file, not \"defaults\", and no device: " + reason);
}

Side::Side(Session& session, const std::string& name)
    : word(name.empty() ? session.Place() : name), m_session(session), m_kind(KindOf(name))
{
    if (m_kind == Kind::kFile) m_file = SettingsFile::Read(name);
    if (m_kind != Kind::kDevice) return;
    if (!name.empty()) {
        RequireAddress(name);
        if (!session.verbose && !session.isOneOfMany) session.Lines().HideLibraryMessages();
        m_other = std::make_unique<Session>(session.Lines(), session, name);
    }
    Own().Connect();
}

std::optional<std::string> Side::Model() const
{
    if (m_kind == Kind::kFile) return m_file.model;
    if (m_kind == Kind::kDevice) return Own().Parameters().Model();
    return std::nullopt;
}

ExitStatus Side::Read(const vexa::Catalogue& catalogue)
{
    if (m_kind == Kind::kFile) return ReadFile(catalogue);
    if (m_kind == Kind::kDevice)
        ReadDevice(catalogue);
    else
        ReadDefaults(catalogue);
    return ExitStatus::kDone;
}

ExitStatus Side::ReadFile(const vexa::Catalogue& catalogue)
{
    ExitStatus status = ExitStatus::kDone;
    for (const SettingsLine& line : m_file.lines) {
        ParamDescriptor* const descriptor = catalogue.Find(line.name);
        std::string reason = "unknown parameter";
        const auto value = descriptor ? ValueOf(*descriptor, line.value, reason) : std::nullopt;
        if (value) {
            m_values.insert_or_assign(descriptor->GetParamID(), *value);
            continue;
        }
        const ExitStatus failure = descriptor ? ExitStatus::kRefused : ExitStatus::kUnknownParameter;
        m_session.Fail(failure, m_file.PlaceOf(line) + ": " + line.name + ": " + reason,
                       {{"param", line.name}});
        if (status == ExitStatus::kDone) status = failure;
    }
    return status;
}

void Side::ReadDevice(const vexa::Catalogue& catalogue)
{
    std::vector<Parameter> settings;
    for (const auto& [id, descriptor] : catalogue.All())
        if (vexa::IsSetting(*descriptor)) settings.emplace_back(descriptor);
    const auto results = Own().Read(*Own().Connect(), settings);
    for (size_t i = 0; i < settings.size(); ++i)
        if (results[i].value) m_values.emplace(settings[i].Id(), *results[i].value);
}

void Side::ReadDefaults(const vexa::Catalogue& catalogue)
{
    for (const auto& [id, descriptor] : catalogue.All())
        if (vexa::IsSetting(*descriptor))
            if (const auto value = FactoryDefault(Parameter(descriptor))) m_values.emplace(id, *value);
}

// --- what is compared ---

/// Throws ConnectionError where there is none for both.
const vexa::Catalogue& CatalogueOf(Session& session, const Side& first, const Side& second)
{
    const auto one = first.Model(), other = second.Model();
    if (one && other && one != other)
        throw ConnectionError("not comparable: " + first.word + " is of model " + Quoted(*one) + ", " +
                                  second.word + " of " + Quoted(*other),
                              ExitStatus::kRefused);
    if (!one && !other) return session.Described();
    const auto catalogue = vexa::Catalogue::Of(one ? *one : *other);  // kept for the life of the process
    if (!catalogue) throw ConnectionError("unknown model " + Quoted(one ? *one : *other), ExitStatus::kUsage);
    return *catalogue;
}

struct Difference {
    Parameter parameter;
    std::optional<Value> from, to;
};

/// What a file does not name, it has no opinion about, but another file may.
std::vector<Difference> DifferencesOf(const vexa::Catalogue& catalogue, const Side& first, const Side& second)
{
    std::vector<Difference> differences;
    const bool isPartial = first.IsFile() != second.IsFile();
    for (const auto& [id, descriptor] : catalogue.All()) {
        const auto from = first.At(id), to = second.At(id);
        const bool isNotNamed = isPartial && !(first.IsFile() ? from : to);
        if (from != to && !isNotNamed) differences.push_back({Parameter(descriptor), from, to});
    }
    return differences;
}

void Print(Session& session, const Difference& difference, size_t width)
{
    const Parameter& parameter = difference.parameter;
    if (session.json) {
        const auto json = [&](const std::optional<Value>& value) {
            return value ? ValueJson(parameter, *value) : Json();
        };
        return session.Print(Json{{"id", parameter.IdText()},
                                  {"param", parameter.Name()},
                                  {"from", json(difference.from)},
                                  {"to", json(difference.to)}});
    }
    const auto text = [&](const std::optional<Value>& value) { return value ? parameter.Text(*value) : "-"; };
    session.Print(Padded(parameter.Name(), width) + "  " + text(difference.from) + " -> " +
                  text(difference.to));
}

}  // namespace

ExitStatus Diff(Session& session, const std::string& firstWord, const std::string& secondWord)
{
    Side first(session, firstWord), second(session, secondWord);
    const vexa::Catalogue& catalogue = CatalogueOf(session, first, second);
    for (Side* const side : {&first, &second})
        if (const ExitStatus status = side->Read(catalogue); status != ExitStatus::kDone) return status;
    const std::vector<Difference> differences = DifferencesOf(catalogue, first, second);
    size_t width = 0;
    for (const Difference& difference : differences)
        width = std::max(width, difference.parameter.Name().size());
    for (const Difference& difference : differences) Print(session, difference, width);
    return differences.empty() ? ExitStatus::kDone : ExitStatus::kFalse;
}
