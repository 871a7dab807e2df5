#include "mainstay/actions/presets.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>

#include "config/base/log.h"
#include "config/base/origin.h"
#include "config/descriptors/descriptor_table.h"
#include "device/catalogue.h"
#include "mainstay/actions/preset_file.h"
#include "mainstay/state/keeper.h"

namespace fs = std::filesystem;

namespace actions {

namespace {

/// A file that closes itself.
class File {
  public:
    /// Media may hold anything: what is a link, or would keep a reader waiting, is not followed.
    File(const std::string& path, int flags)
        : m_descriptor(open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0660))
    {
    }
    ~File()
    {
        if (m_descriptor != -1) close(m_descriptor);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    int Get() const { return m_descriptor; }
    bool IsOpen() const { return m_descriptor != -1; }
    bool IsRegular() const
    {
        struct stat status {};
        return fstat(m_descriptor, &status) == 0 && S_ISREG(status.st_mode);
    }

  private:
    const int m_descriptor;
};

[[noreturn]] void ThrowErrno(const std::string& what)
{
    throw std::runtime_error(what + ": " + strerror(errno));
}

void WriteAll(const File& file, const std::string& bytes, const std::string& path)
{
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t n = write(file.Get(), bytes.data() + done, bytes.size() - done);
        if (n == -1 && errno == EINTR) continue;
        if (n <= 0) ThrowErrno("cannot write " + path);
        done += static_cast<size_t>(n);
    }
    if (fsync(file.Get()) != 0) ThrowErrno("cannot write " + path);
}

/// Beside, synced, renamed: so there is an old file or a new one, and no half.
void WriteWhole(const std::string& path, const std::string& bytes)
{
    const std::string fresh = path + ".new";
    unlink(fresh.c_str());
    try {
        const File file(fresh, O_WRONLY | O_CREAT | O_EXCL);
        if (!file.IsOpen()) ThrowErrno("cannot write " + fresh);
        WriteAll(file, bytes, fresh);
        if (rename(fresh.c_str(), path.c_str()) != 0) ThrowErrno("cannot write " + path);
    } catch (...) {
        unlink(fresh.c_str());
        throw;
    }
    const File directory(path.substr(0, path.rfind('/')), O_RDONLY | O_DIRECTORY);
    if (directory.IsOpen()) fsync(directory.Get());
}

/// @return nothing when there is no such file.
std::optional<std::string> ReadWhole(const std::string& path)
{
    const File file(path, O_RDONLY);
    if (!file.IsOpen()) {
        if (errno == ENOENT) return std::nullopt;
        ThrowErrno("cannot read " + path);
    }
    if (!file.IsRegular()) throw std::runtime_error(path + " is no file");
    std::string bytes(kMaxPresetFile + 1, '\0');
    size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t n = read(file.Get(), bytes.data() + size, bytes.size() - size);
        if (n == -1 && errno == EINTR) continue;
        if (n == -1) ThrowErrno("cannot read " + path);
        if (n == 0) break;
        size += static_cast<size_t>(n);
    }
    if (size > kMaxPresetFile) throw std::runtime_error(path + " is too large for a preset");
    bytes.resize(size);
    return bytes;
}

std::vector<ParamDescriptor*> IncludedParams()
{
    std::vector<ParamDescriptor*> included;
    for (const eParam_t id : GetParamIDs()) {
        ParamDescriptor* const descriptor = FindDescriptor(id);
        if (descriptor && descriptor->GetRegisterType() != eRegister_Exclude) included.push_back(descriptor);
    }
    return vexa::InSettingOrder(included);
}

/// There is no preset of the number: an outcome of its own.
struct Empty {};

}  // namespace

Presets::Presets(Config& store, state::SettingsFile& file, std::string media)
    : m_store(store),
      m_file(file),
      m_media(std::move(media)),
      m_productID(store.Get(eParamID_ProductID)),
      m_params(IncludedParams())
{
}

void Presets::Announce(eParam_t command, Outcome outcome)
{
    static const std::map<eParam_t, eParam_t> kResults{
        {eParamID_RegisterSave, eParamID_RegisterSaveResult},
        {eParamID_RegisterRecall, eParamID_RegisterRecallResult},
        {eParamID_RegisterStore, eParamID_RegisterStoreResult},
        {eParamID_RegisterLoad, eParamID_RegisterLoadResult}};
    const auto result = kResults.find(command);
    if (result != kResults.end()) Tell(result->second, outcome);
}

void Presets::Tell(eParam_t result, Outcome outcome)
{
    if (FindDescriptor(result)) m_store.Set(result, static_cast<unsigned int>(outcome));
}

state::Values Presets::Snapshot() const
{
    state::Values values;
    for (ParamDescriptor* const descriptor : m_params)
        if (auto value = state::ReadValue(m_store, *descriptor))
            values[descriptor->GetParamID()] = std::move(*value);
    return values;
}

/// Tells the progress of the work, which throws when it fails, in the result parameter.
template <class Work>
PresetResult Presets::Run(eParam_t result, unsigned int number, Work work)
{
    vexa::MutexLock one(m_lock);
    PresetResult told;
    Tell(result, Outcome::kRunning);
    try {
        if (!IsNumber(number)) throw std::runtime_error("presets have the numbers 1 to 20");
        work(told);
        told.outcome = Outcome::kComplete;
    } catch (const Empty&) {
        // Saving has no such outcome, and nothing to find empty.
        told = {Outcome::kEmpty, "preset " + std::to_string(number) + " is empty", {}};
    } catch (const std::exception& error) {
        told = {Outcome::kFailed, error.what(), {}};
        vexa::Print("mainstay: preset %u: %s\n", number, error.what());
    }
    Tell(result, told.outcome);
    return told;
}

PresetResult Presets::Save(unsigned int number, std::optional<state::Values> values)
{
    return Run(eParamID_RegisterSaveResult, number, [&](PresetResult&) {
        m_file.SavePreset({number, state::Now(), values ? std::move(*values) : Snapshot()});
    });
}

PresetResult Presets::Recall(unsigned int number)
{
    return Run(eParamID_RegisterRecallResult, number, [&](PresetResult& result) {
        const auto preset = m_file.LoadPreset(number);
        if (!preset) throw Empty();
        const vexa::OriginScope origin("recall " + std::to_string(number));
        result.refusals = Apply(preset->values);
        for (const Refusal& refusal : result.refusals)
            vexa::Print("mainstay: preset %u: %s: %s\n", number, state::NameOf(refusal.param).c_str(),
                        refusal.reason.c_str());
    });
}

/// @return why it does not hold the value now; nothing when it does.
std::optional<std::string> Presets::Bring(ParamDescriptor& descriptor, const vexa::Value& value)
{
    if (state::ReadValue(m_store, descriptor) == value) return std::nullopt;
    if (auto misfit = state::Misfit(descriptor, value)) return misfit;
    if (!state::WriteValue(m_store, descriptor, value)) return "refused by the device";
    return std::nullopt;
}

/// Some values set others back when they are set: so the second pass sets what the first one has changed again.
std::vector<Refusal> Presets::Apply(state::Values values)
{
    std::vector<Refusal> refusals;
    for (int pass = 0; pass < 2; ++pass) {
        refusals.clear();
        for (ParamDescriptor* const descriptor : m_params) {
            const auto wanted = values.find(descriptor->GetParamID());
            if (wanted == values.end()) continue;
            if (auto reason = Bring(*descriptor, wanted->second))
                refusals.push_back({descriptor->GetParamID(), std::move(*reason)});
        }
    }
    for (ParamDescriptor* const descriptor : m_params) values.erase(descriptor->GetParamID());
    for (const auto& [param, value] : values) refusals.push_back({param, "not part of presets here"});
    return refusals;
}

/// The directory of the media in the selected slot, if the device names one. Throws where there is none.
fs::path Presets::MediaDirectory() const
{
    if (m_media.empty()) throw std::runtime_error("there is no media: mainstay was started without --media");
    std::string path;
    if (FindDescriptor(eParamID_StoragePath)) m_store.Get(eParamID_StoragePath, path);
    const fs::path root = fs::canonical(m_media);
    fs::path directory = fs::canonical(root / path);
    if (std::mismatch(root.begin(), root.end(), directory.begin(), directory.end()).first != root.end())
        throw std::runtime_error("StoragePath is not in " + m_media);
    return directory;
}

std::string Presets::MediaFile(unsigned int number) const
{
    std::array<char, 32> name{};
    snprintf(name.data(), name.size(), "preset_%02u.vexa", number);
    return MediaDirectory() / name.data();
}

std::string Presets::Packed(const state::SavedPreset& preset) const
{
    std::string bytes = PackPreset(m_productID, preset.values);
    if (bytes.size() > kMaxPresetFile) throw std::runtime_error("the preset is too large for a file");
    return bytes;
}

PresetResult Presets::Store(unsigned int number)
{
    return Run(eParamID_RegisterStoreResult, number, [&](PresetResult&) {
        const auto preset = m_file.LoadPreset(number);
        if (!preset) throw Empty();
        WriteWhole(MediaFile(number), Packed(*preset));
    });
}

PresetResult Presets::Load(unsigned int number)
{
    return Run(eParamID_RegisterLoadResult, number, [&](PresetResult&) {
        const std::string path = MediaFile(number);
        const auto bytes = ReadWhole(path);
        if (!bytes) throw Empty();
        std::string reason;
        auto values = UnpackPreset(m_productID, *bytes, reason);
        if (!values) throw std::runtime_error(path + ": " + reason);
        m_file.SavePreset({number, state::Now(), std::move(*values)});
    });
}

PresetResult Presets::Export(unsigned int number, std::string& bytes)
{
    return Run(eParamID_RegisterExportResult, number, [&](PresetResult&) {
        const auto preset = m_file.LoadPreset(number);
        if (!preset) throw Empty();
        bytes = Packed(*preset);
    });
}

PresetResult Presets::Import(unsigned int number, const std::string& bytes)
{
    return Run(eParamID_RegisterImportResult, number, [&](PresetResult&) {
        std::string reason;
        if (bytes.size() > kMaxPresetFile) throw std::runtime_error("it is too large for a preset");
        auto values = UnpackPreset(m_productID, bytes, reason);
        if (!values) throw std::runtime_error(reason);
        m_file.SavePreset({number, state::Now(), std::move(*values)});
    });
}

PresetResult Presets::Delete(unsigned int number)
{
    PresetResult result;
    try {
        result.outcome = m_file.DeletePreset(number) ? Outcome::kComplete : Outcome::kEmpty;
    } catch (const std::exception& error) {
        result.reason = error.what();
    }
    return result;
}

void Presets::EraseAll()
{
    m_file.DeleteAllPresets();
}

}  // namespace actions
