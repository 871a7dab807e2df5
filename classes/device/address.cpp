#include "device/address.h"

#include <charconv>
#include <limits>
#include <string_view>

#include "config/access/protocol/network_protocol.h"

namespace vexa {

static_assert(DeviceAddress::kUsualPort == corvalis::config::access::kNetworkPort);

namespace {

template <class Number>
bool ParseWhole(std::string_view text, Number& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

/// The text before a mark, which goes with it; all of it when there is no such mark.
std::string_view TakeUpTo(std::string_view& text, char mark)
{
    const size_t end = text.find(mark);
    const std::string_view taken = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    return taken;
}

bool IsHost(std::string_view host)
{
    constexpr std::string_view kLetters =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._:%";
    return !host.empty() && host.find_first_not_of(kLetters) == std::string_view::npos;
}

bool ParseOptions(std::string_view options, DeviceAddress& address, std::string& reason)
{
    constexpr std::string_view kConfigID = "configid=";
    while (!options.empty()) {
        const std::string_view option = TakeUpTo(options, '/');
        if (option.starts_with(kConfigID) && address.transport != Transport::kQueue &&
            ParseWhole(option.substr(kConfigID.size()), address.configID))
            continue;
        reason = "unknown option \"" + std::string(option) + "\"";
        return false;
    }
    return true;
}

bool ParseHostAndPort(std::string_view text, DeviceAddress& address, std::string& reason)
{
    std::string_view host;
    std::optional<std::string_view> port;
    if (text.starts_with('[')) {
        if (text.find(']') == std::string_view::npos) {
            reason = "\"" + std::string(text) + "\" has no end of its brackets";
            return false;
        }
        host = TakeUpTo(text, ']').substr(1);
        if (text.starts_with(':'))
            port = text.substr(1);
        else if (!text.empty())
            port = text;  // refused below
    } else {
        const bool hasPort = text.find(':') != std::string_view::npos;
        host = TakeUpTo(text, ':');
        if (hasPort) port = text;
    }
    if (!IsHost(host)) {
        reason = host.empty() ? "it names no host" : "\"" + std::string(host) + "\" is no host name";
        return false;
    }
    constexpr int kMaxPort = std::numeric_limits<uint16_t>::max();
    if (port && !(ParseWhole(*port, address.port) && address.port > 0 && address.port <= kMaxPort)) {
        reason = "\"" + std::string(*port) + "\" is no port";
        return false;
    }
    address.host = host;
    return true;
}

}  // namespace

std::optional<DeviceAddress> DeviceAddress::Parse(const std::string& text, std::string& reason)
{
    DeviceAddress address;
    std::string_view rest = text;
    if (rest.starts_with("mq:") || rest.starts_with("local:")) {
        address.transport = rest.starts_with("mq:") ? Transport::kQueue : Transport::kLocal;
        TakeUpTo(rest, ':');
        return ParseOptions(rest, address, reason) ? std::optional(address) : std::nullopt;
    }
    const size_t scheme = rest.find("://");
    if (scheme != std::string_view::npos) {
        const std::string_view name = rest.substr(0, scheme);
        if (name != "tcp" && name != "udp") {
            reason = "\"" + std::string(name) + "\" is none of tcp, udp, mq and local";
            return std::nullopt;
        }
        address.transport = name == "tcp" ? Transport::kTcp : Transport::kUdp;
        rest.remove_prefix(scheme + 3);
    }
    const std::string_view place = TakeUpTo(rest, '/');
    if (!ParseHostAndPort(place, address, reason) || !ParseOptions(rest, address, reason))
        return std::nullopt;
    return address;
}

std::string DeviceAddress::Text() const
{
    const std::string option = configID == 0 ? "" : "configid=" + std::to_string(configID);
    switch (transport) {
        case Transport::kQueue:
            return "mq:";
        case Transport::kLocal:
            return "local:" + option;
        case Transport::kTcp:
        case Transport::kUdp:
            break;
    }
    const bool isNumeric6 = host.find(':') != std::string::npos;
    return (transport == Transport::kTcp ? "tcp://" : "udp://") + (isNumeric6 ? "[" + host + "]" : host) +
           ":" + std::to_string(port) + (option.empty() ? "" : "/" + option);
}

}  // namespace vexa
