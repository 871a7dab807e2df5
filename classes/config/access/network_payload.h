/// Value objects as payloads of network messages.
#pragma once

#include <memory>
#include <string>

#include "config/serializable.h"

namespace vexa::corvalis::config::access {

/// The object in the stream format; empty for null. The object may change meanwhile: a copy is written.
std::string WritePayload(Serializable* object);

/// The object that a payload holds, the caller's own; null when it holds no whole object of a known class.
std::unique_ptr<Serializable> ReadPayload(const char* payload, size_t length);
/// The same, only for a text.
/// @return false, with the text untouched, when the payload holds none.
bool ReadTextPayload(const char* payload, size_t length, std::string& text);

}  // namespace vexa::corvalis::config::access
