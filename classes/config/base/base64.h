/// Bytes as text, for JSON.
#pragma once

#include <optional>
#include <string>

#include "config/base/export.h"

namespace vexa {

/// Thread: any, like the other operation.
VEXA_EXPORT std::string ToBase64(const std::string& bytes);
/// @return nothing for what is none.
VEXA_EXPORT std::optional<std::string> FromBase64(std::string text);

}  // namespace vexa
