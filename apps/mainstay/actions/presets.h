/// Presets: sets of values under the numbers 1 to 20, in the settings file and on the media.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "config/base/mutex.h"
#include "config/config.h"
#include "config/descriptors/param_descriptor.h"
#include "mainstay/state/settings_file.h"

namespace actions {

/// As the ...Result parameters number the outcomes.
enum class Outcome : unsigned int { kRunning = 1, kComplete = 2, kFailed = 3, kEmpty = 4 };

/// A value that a recall could not set.
struct Refusal {
    eParam_t param{};
    std::string reason;
};

/// What became of a preset command. Each sets its result parameter: running, then the outcome.
struct PresetResult {
    Outcome outcome = Outcome::kFailed;
    std::string reason;  ///< of a failure
    std::vector<Refusal> refusals;
};

/// Thread: any; one command at a time.
class Presets {
  public:
    /// @param media  the directory of the media, "" for none. eParamID_StoragePath may name one in it, as of a slot, and
    /// none outside: everybody may set it.
    Presets(Config& store, state::SettingsFile& file, std::string media);

    /// The values that a preset has.
    state::Values Snapshot() const;

    /// @param values  nothing: those of now.
    PresetResult Save(unsigned int number, std::optional<state::Values> values = {});
    /// Sets the values in an order in which enabling ones come first, as the store allows.
    PresetResult Recall(unsigned int number);
    /// Copies a preset to the media.
    PresetResult Store(unsigned int number);
    /// Copies a preset from the media.
    PresetResult Load(unsigned int number);
    /// For front ends that carry presets themselves.
    PresetResult Export(unsigned int number, std::string& bytes);
    PresetResult Import(unsigned int number, const std::string& bytes);
    PresetResult Delete(unsigned int number);
    /// Where a factory reset does that.
    void EraseAll();

    /// Tells that the command, as eParamID_RegisterSave, is under way, before whoever set it can ask for the outcome; or
    /// that it is not.
    void Announce(eParam_t command, Outcome outcome);

    static bool IsNumber(unsigned int number) { return number >= 1 && number <= 20; }

  private:
    template <class Work>
    PresetResult Run(eParam_t result, unsigned int number, Work work);
    void Tell(eParam_t result, Outcome outcome);
    std::filesystem::path MediaDirectory() const;
    std::string MediaFile(unsigned int number) const;
    std::string Packed(const state::SavedPreset& preset) const;
    std::optional<std::string> Bring(ParamDescriptor& descriptor, const vexa::Value& value);
    std::vector<Refusal> Apply(state::Values values);

    Config& m_store;
    state::SettingsFile& m_file;
    const std::string m_media;
    const unsigned int m_productID;
    vexa::Mutex m_lock;  // held over a whole command, so before those of the store and the file
    const std::vector<ParamDescriptor*> m_params;  // of every preset, enabling ones first
};

}  // namespace actions
