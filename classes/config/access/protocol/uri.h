/// Addresses of configurations: the device's own, and how a network address is taken apart.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "config/base/export.h"
#include "config/param_ids.h"

/// Where a transport ("socket", "udp", "tcp"; exactly so) serves the configuration of this device, and its
/// events: "tcp://127.0.0.1:43110". "INVALID_URI" for any other transport.
VEXA_EXPORT std::string GetConfigURI(const std::string& transport);
VEXA_EXPORT std::string GetEventsURI(const std::string& transport);

/// A network address in its parts: "tcp://127.0.0.1:43110" is "tcp", "127.0.0.1" and "43110".
struct VEXA_EXPORT url {
    std::string scheme, address, port;

    /// Splits at ':' and '/'; what follows the port is ignored. Texts of 1,024 characters and more, and parts
    /// of more than 99, are refused.
    /// @return false, after one line on standard error, with the parts unchanged, unless three parts were
    /// found.
    bool parse(std::string& text);
};

/// What a configuration's URI says besides the address: "local:configid=3", "tcp://192.0.2.7:43110/caching=true". Words
/// count wherever they stand. Thread: any.
namespace vexa::uri {

/// Whether the URI holds the word: "tcp:", "caching=true".
VEXA_EXPORT bool Contains(const std::string& uri, std::string_view word);
/// What follows "NAME=", to the end of the URI; nothing when the URI has no such option.
VEXA_EXPORT std::optional<std::string> Option(const std::string& uri, std::string_view name);
/// The number that a text begins with, limited to what a configuration ID holds; nothing when it begins with none.
VEXA_EXPORT std::optional<eConfigID_t> ParseConfigID(const std::string& text);

}  // namespace vexa::uri
