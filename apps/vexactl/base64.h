/// Bytes in JSON. Thread: any.
#pragma once

#include <optional>
#include <string>

std::string ToBase64(const std::string& bytes);
/// @return nothing for what is none.
std::optional<std::string> FromBase64(std::string text);
