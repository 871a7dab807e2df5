/// Addresses of configurations: the device's own, and how a network address is taken apart.
#pragma once

#include <string>

/// Where a transport ("socket", "udp", "tcp"; exactly so) serves the configuration of this device, and its
/// events: "tcp://127.0.0.1:43110". "INVALID_URI" for any other transport.
std::string GetConfigURI(const std::string& transport);
std::string GetEventsURI(const std::string& transport);

/// A network address in its parts: "tcp://127.0.0.1:43110" is "tcp", "127.0.0.1" and "43110".
struct url {
    std::string scheme, address, port;

    /// Splits at ':' and '/'; what follows the port is ignored. Texts of 1,024 characters and more, and parts
    /// of more than 99, are refused.
    /// @return false, after one line on standard error, with the parts unchanged, unless three parts were
    /// found.
    bool parse(std::string& text);
};
