/// Addresses of configurations: those of this device, and the parts of a network address.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "config/base/export.h"
#include "config/param_ids.h"

/// Where a transport ("socket", "udp", "tcp"; exactly so) serves the configuration of this device, and its
/// events: "tcp://127.0.0.1:43110". "INVALID_URI" for any other transport. Thread: any.
VEXA_EXPORT std::string GetConfigURI(const std::string& transport);
/// See GetConfigURI.
VEXA_EXPORT std::string GetEventsURI(const std::string& transport);

/// The parts of a network address: "tcp://127.0.0.1:43110" is "tcp", "127.0.0.1" and "43110". Thread: one at
/// a time.
struct VEXA_EXPORT url {
    /// As they stand in the text, without the delimiters.
    std::string scheme, address, port;

    /// Splits at ':' and '/'; text behind the port is ignored. Texts of 1,024 characters and more, and parts
    /// of more than 99, are refused.
    /// @return false, after one line on standard error, with the parts unchanged, unless three parts were
    /// found.
    bool parse(std::string& text);
};

/// The options of a configuration's URI: "local:configid=3", "tcp://192.0.2.7:43110/caching=true". A word
/// counts wherever it stands. Thread: any.
namespace vexa::uri {

/// Whether the URI holds the word: "tcp:", "caching=true".
VEXA_EXPORT bool Contains(const std::string& uri, std::string_view word);
/// The text behind "NAME=", to the end of the URI; nothing when the URI has no such option.
VEXA_EXPORT std::optional<std::string> Option(const std::string& uri, std::string_view name);
/// The number that a text begins with, limited to the range of a configuration ID; nothing when it begins
/// with none.
VEXA_EXPORT std::optional<eConfigID_t> ParseConfigID(const std::string& text);
/// The dotted IPv4 address of a host: a dotted one as it is, any other text looked up, which may take long.
/// @param reason  why there is none. @return nothing then, and for a name that stands for any address.
VEXA_EXPORT std::optional<std::string> ResolveHost(const std::string& host, std::string& reason);

}  // namespace vexa::uri
