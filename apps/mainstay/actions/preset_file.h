/// A preset as bytes, as media and front ends carry it from unit to unit: a PackageHeader, then the values, in the
/// library's stream format. The words are big-endian, as on the device, wherever the file is written.
#pragma once

#include <optional>
#include <string>

#include "mainstay/state/settings_file.h"

namespace actions {

/// Larger ones are no presets: in base64 they have to fit into a request of the control socket.
inline constexpr size_t kMaxPresetFile = size_t{512} << 10;

/// @param productID  of the model that the preset belongs to. Thread: any, like the other operation.
std::string PackPreset(unsigned int productID, const state::Values& values);
/// @param reason  why the bytes are no preset of this model. @return nothing then.
std::optional<state::Values> UnpackPreset(unsigned int productID, std::string bytes, std::string& reason);

}  // namespace actions
