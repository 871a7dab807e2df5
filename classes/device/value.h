/// Values of parameters, as vexa::Device hands them out.
#pragma once

#include <string>
#include <variant>

namespace vexa {

/// A number, or a text: also the bytes of a data or alarm parameter.
using Value = std::variant<unsigned int, std::string>;

}  // namespace vexa
