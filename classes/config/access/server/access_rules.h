/// Whom a server serves: which addresses may do what.
///
///     AccessRules rules;
///     rules.Add("10.1.0.0/16=write");
#pragma once

#include <netinet/in.h>

#include <compare>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "config/base/export.h"

namespace vexa::corvalis::config::access {

/// Each includes those before it.
enum class Right : uint8_t {
    kNone,
    kRead,   ///< get, list and listen, but for passwords
    kWrite,  ///< set, but for passwords and what the device only reports
    kAdmin,  ///< everything
};
/// "none", "read", "write", "admin".
VEXA_EXPORT const char* NameOf(Right right);

/// An address of IPv4 or IPv6. One of IPv4 that IPv6 carries ("::ffff:10.0.0.8") is that of IPv4.
class VEXA_EXPORT PeerAddress {
  public:
    /// As the system has them, in network order.
    explicit PeerAddress(const in_addr& address);
    /// @overload
    explicit PeerAddress(const in6_addr& address) : m_bytes(address) {}
    /// @param text  without port, brackets and interface. @return nothing when it is none.
    static std::optional<PeerAddress> Parse(const std::string& text);

    /// Also of one that IPv6 carries.
    bool IsIPv4() const;
    /// 127.0.0.0/8 or ::1.
    bool IsLoopback() const;
    /// "10.0.0.8", "fe80::1".
    std::string Text() const;
    /// Who shares limits and lines of the log: over IPv6 a host may use all of its 64 bits.
    PeerAddress Site() const;
    /// Whether the first bits are those of another one; the 96 before an address of IPv4 count.
    bool BeginsLike(const PeerAddress& other, unsigned int bits) const;
    /// It, with zeros behind the first bits.
    PeerAddress Prefix(unsigned int bits) const;

    /// By their bytes, so that they can be kept in order.
    std::strong_ordering operator<=>(const PeerAddress& other) const
    {
        return memcmp(&m_bytes, &other.m_bytes, sizeof m_bytes) <=> 0;
    }
    /// The same address.
    bool operator==(const PeerAddress& other) const { return (*this <=> other) == 0; }

  private:
    in6_addr m_bytes{};  // of IPv4 behind the prefix ::ffff:0:0/96
};

/// The rules of a server. The one with the longest prefix that fits counts. Without any, this machine may do
/// everything, and nobody else anything. Thread: any, once all are added.
class VEXA_EXPORT AccessRules {
  public:
    AccessRules();
    /// @param text  ADDRESS[/BITS][=none|read|write|admin], without a right "read".
    /// @return why it is none, as the end of a sentence; empty when it was added.
    std::string Add(const std::string& text);
    /// @param isOwn  whether the address is one of this machine's.
    Right Of(const PeerAddress& peer, bool isOwn) const;
    /// As they are written, in the order in which they match.
    std::vector<std::string> Texts() const;

  private:
    struct Rule {
        PeerAddress address;
        unsigned int bits;  // of 128
        Right right;
        bool isBuiltIn;

        bool Fits(const PeerAddress& peer) const;
        std::string Text() const;
    };
    static std::string Parse(const std::string& text, std::optional<Rule>& rule);

    std::vector<Rule> m_rules;  // the longest first
};

}  // namespace vexa::corvalis::config::access
