#include "config/access/server/access_rules.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>

namespace vexa::corvalis::config::access {

namespace {

constexpr unsigned int kBits = 128, kMappedBits = 96;
constexpr const char* kRightNames[] = {"none", "read", "write", "admin"};

}  // namespace

const char* NameOf(Right right)
{
    return kRightNames[static_cast<size_t>(right)];
}

// --- addresses ---

PeerAddress::PeerAddress(const in_addr& address)
{
    m_bytes.s6_addr[10] = m_bytes.s6_addr[11] = 0xFF;
    memcpy(&m_bytes.s6_addr[12], &address, sizeof address);
}

std::optional<PeerAddress> PeerAddress::Parse(const std::string& text)
{
    in_addr four{};
    in6_addr six{};
    if (inet_pton(AF_INET, text.c_str(), &four) == 1) return PeerAddress(four);
    if (inet_pton(AF_INET6, text.c_str(), &six) == 1) return PeerAddress(six);
    return std::nullopt;
}

bool PeerAddress::IsIPv4() const
{
    return IN6_IS_ADDR_V4MAPPED(&m_bytes);
}

bool PeerAddress::IsLoopback() const
{
    return IsIPv4() ? m_bytes.s6_addr[12] == IN_LOOPBACKNET : IN6_IS_ADDR_LOOPBACK(&m_bytes) != 0;
}

std::string PeerAddress::Text() const
{
    char text[INET6_ADDRSTRLEN] = "";
    if (IsIPv4())
        inet_ntop(AF_INET, &m_bytes.s6_addr[12], text, sizeof text);
    else
        inet_ntop(AF_INET6, &m_bytes, text, sizeof text);
    return text;
}

PeerAddress PeerAddress::Site() const
{
    constexpr unsigned int kNetworkBits = 64;
    return IsIPv4() ? *this : Prefix(kNetworkBits);
}

PeerAddress PeerAddress::Prefix(unsigned int bits) const
{
    PeerAddress prefix = *this;
    for (unsigned int i = 0; i < sizeof m_bytes; ++i) {
        const int kept = std::clamp(static_cast<int>(bits) - static_cast<int>(8 * i), 0, 8);
        prefix.m_bytes.s6_addr[i] &= static_cast<uint8_t>(0xFF00U >> kept);
    }
    return prefix;
}

bool PeerAddress::BeginsLike(const PeerAddress& other, unsigned int bits) const
{
    return Prefix(bits) == other.Prefix(bits);
}

// --- rules ---

AccessRules::AccessRules()
{
    for (const char* const own : {"127.0.0.0/8=admin", "::1=admin"}) Add(own);
    for (Rule& rule : m_rules) rule.isBuiltIn = true;
}

/// Short prefixes of IPv6 are no rules for IPv4, whose addresses begin with zeros there.
bool AccessRules::Rule::Fits(const PeerAddress& peer) const
{
    return peer.IsIPv4() == address.IsIPv4() && peer.BeginsLike(address, bits);
}

std::string AccessRules::Rule::Text() const
{
    const unsigned int written = address.IsIPv4() ? bits - kMappedBits : bits;
    return address.Text() + (bits == kBits ? "" : "/" + std::to_string(written)) + "=" + NameOf(right);
}

std::string AccessRules::Parse(const std::string& text, std::optional<Rule>& rule)
{
    const size_t equals = text.find('='), slash = text.find('/');
    const auto address = PeerAddress::Parse(text.substr(0, std::min(equals, slash)));
    if (!address) return "it begins with no address of IPv4 or IPv6";
    const bool isWrittenAsIPv4 = text.substr(0, slash).find(':') == std::string::npos;
    const unsigned int before = isWrittenAsIPv4 ? kMappedBits : 0;
    unsigned int bits = kBits - before;
    if (slash < equals) {
        const std::string number = text.substr(slash + 1, equals - slash - 1);
        const char* const end = number.data() + number.size();
        const auto [rest, error] = std::from_chars(number.data(), end, bits);
        if (error != std::errc() || rest != end || bits > kBits - before)
            return "behind the \"/\" stand 0 to " + std::to_string(kBits - before) + " bits";
    }
    bits += before;
    Right right = Right::kRead;
    if (equals != std::string::npos) {
        const auto* const name = std::ranges::find(kRightNames, std::string_view(text).substr(equals + 1));
        if (name == std::end(kRightNames)) return "the right is none, read, write or admin";
        right = static_cast<Right>(std::distance(kRightNames, name));
    }
    rule = Rule{address->Prefix(bits), bits, right, false};
    if (rule->address == *address) return "";
    return "it has bits behind its prefix: " + rule->Text() + " has none";
}

std::string AccessRules::Add(const std::string& text)
{
    std::optional<Rule> rule;
    if (std::string reason = Parse(text, rule); !reason.empty()) return reason;
    const auto same = [&](const Rule& known) {
        return known.bits == rule->bits && known.address == rule->address;
    };
    const auto known = std::ranges::find_if(m_rules, same);
    if (known != m_rules.end()) {
        if (!known->isBuiltIn) return "there is " + known->Text() + " already";
        m_rules.erase(known);
    }
    const auto shorter =
        std::ranges::find_if(m_rules, [&](const Rule& other) { return other.bits < rule->bits; });
    m_rules.insert(shorter, *rule);
    return "";
}

Right AccessRules::Of(const PeerAddress& peer, bool isOwn) const
{
    const auto rule = std::ranges::find_if(m_rules, [&](const Rule& known) { return known.Fits(peer); });
    // Loopback addresses have a rule of their own.
    if (isOwn && !peer.IsLoopback() && (rule == m_rules.end() || rule->bits < kBits)) return Right::kAdmin;
    return rule == m_rules.end() ? Right::kNone : rule->right;
}

std::vector<std::string> AccessRules::Texts() const
{
    std::vector<std::string> texts;
    const auto behindWhole =
        std::ranges::find_if(m_rules, [](const Rule& rule) { return rule.bits < kBits; });
    for (auto rule = m_rules.begin(); rule != m_rules.end(); ++rule) {
        if (rule == behindWhole) texts.emplace_back("addresses of this machine=admin");
        texts.push_back(rule->Text());
    }
    if (behindWhole == m_rules.end()) texts.emplace_back("addresses of this machine=admin");
    return texts;
}

}  // namespace vexa::corvalis::config::access
