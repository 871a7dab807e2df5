/// Text that others chose, made fit for a terminal and for a log.
#pragma once

#include <string>
#include <string_view>

#include "config/base/export.h"

namespace vexa {

/// The text with everything spelled out that a terminal would obey instead of showing it, in either form of its
/// control characters, and that would make a line read otherwise than it is: "\u001b", and "\x9b" for a byte
/// that is no UTF-8. Line ends and tabs stay. Inside JSON the result is the same text. Thread: any.
VEXA_EXPORT std::string Harmless(std::string_view text);
/// Whether the text has only printable ASCII, line ends and tabs. Thread: any.
VEXA_EXPORT bool IsPlain(std::string_view text);

}  // namespace vexa
