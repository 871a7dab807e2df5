#include "config/access/protocol/uri.h"
#include "config/base/log.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <sstream>
#include <vector>

namespace {

constexpr size_t kMaxText = 1023;
constexpr size_t kMaxPart = 99;

struct Endpoints {
    const char* transport;
    const char* config;
    const char* events;
};

/// All on the loopback interface: configuration on port 43110, multicast events on 63110.
constexpr Endpoints kEndpoints[] = {
    {"socket", "socket://127.0.0.1:43110/caching=true", "socket://127.0.0.1:43110"},
    {"udp", "udp://127.0.0.1:43110", "multicast://127.0.0.1:63110"},
    {"tcp", "tcp://127.0.0.1:43110", "tcp://127.0.0.1:43110"},
};
constexpr Endpoints kInvalid = {"", "INVALID_URI", "INVALID_URI"};

const Endpoints& FindEndpoints(const std::string& transport)
{
    const auto* const found = std::ranges::find(kEndpoints, transport, &Endpoints::transport);
    return found == std::end(kEndpoints) ? kInvalid : *found;
}

/// The first parts of a text, at most three, up to one that is too long.
std::vector<std::string> Split(std::string text)
{
    std::ranges::replace_if(
        text, [](char c) { return c == ':' || c == '/'; }, ' ');
    std::istringstream words(text);
    std::vector<std::string> parts;
    std::string word;
    while (parts.size() < 3 && words >> word && word.size() <= kMaxPart) parts.push_back(word);
    return parts;
}

}  // namespace

std::string GetConfigURI(const std::string& transport)
{
    return FindEndpoints(transport).config;
}

std::string GetEventsURI(const std::string& transport)
{
    return FindEndpoints(transport).events;
}

bool url::parse(std::string& text)
{
    const std::vector<std::string> parts =
        text.size() > kMaxText ? std::vector<std::string>{} : Split(text.c_str());
    if (parts.size() != 3)
        return vexa::Report("url::parse - unable to parse url, found %d matches\n",
                            static_cast<int>(parts.size()));
    scheme = parts[0];
    address = parts[1];
    port = parts[2];
    return true;
}

namespace vexa::uri {

bool Contains(const std::string& uri, std::string_view word)
{
    return uri.find(word) != std::string::npos;
}

std::optional<std::string> Option(const std::string& uri, std::string_view name)
{
    const std::string key = std::string(name) + "=";
    const size_t found = uri.find(key);
    if (found == std::string::npos) return std::nullopt;
    return uri.substr(found + key.size());
}

std::optional<eConfigID_t> ParseConfigID(const std::string& text)
{
    using Limits = std::numeric_limits<eConfigID_t>;
    char* end;
    const long number = strtol(text.c_str(), &end, 10);
    if (end == text.c_str()) return std::nullopt;
    return static_cast<eConfigID_t>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

std::optional<std::string> ResolveHost(const std::string& host, std::string& reason)
{
    in_addr dotted;
    if (inet_pton(AF_INET, host.c_str(), &dotted) == 1) return host;
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;  // else each address comes once per type
    addrinfo* found = nullptr;
    const int error = getaddrinfo(host.c_str(), nullptr, &wanted, &found);
    if (error != 0) {
        reason = error == EAI_SYSTEM ? strerror(errno) : gai_strerror(error);
        return std::nullopt;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
    for (; found; found = found->ai_next) {
        const in_addr address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
        char text[INET_ADDRSTRLEN];
        // Any address would be this host.
        if (address.s_addr != INADDR_ANY && inet_ntop(AF_INET, &address, text, sizeof text)) return text;
    }
    reason = "No address";
    return std::nullopt;
}

}  // namespace vexa::uri
