/// Letting peers in: what each may do, and how much of the daemon one address may take.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "config/access/server/access_rules.h"
#include "config/access/server/traffic.h"
#include "config/param_ids.h"

class Config;

namespace vexa::corvalis::config::access {

/// Connections of one address at a time: many more than its programs need, and so few that thirty addresses together
/// leave room for others.
inline constexpr size_t kMaxConnectionsOfAddress = 64;
/// Configurations of one address at a time, but for configuration 0, over TCP and as many over UDP, whose senders may be
/// forged and must not take what TCP needs: eight addresses may have their own, of kMaxPeerStores.
inline constexpr size_t kMaxStoresOfAddress = 4;

/// What was found out of a peer when it came.
struct Admitted {
    Right right = Right::kNone;
    /// Whose limits it is under; nothing: only those of all, as this machine's own programs are.
    std::optional<PeerAddress> limitedAs;
};

/// A peer's address; nothing if it is none of IPv4 or IPv6.
std::optional<PeerAddress> AddressOf(const sockaddr_storage& peer);

/// Asks the rules about the peers of one server. Thread: one.
class Admission {
  public:
    /// How long what was found out of an address holds at least: the machine's own may change.
    static constexpr std::chrono::milliseconds kKnownFor{100};

    /// @param rules  null: whoever comes may do everything.
    explicit Admission(std::shared_ptr<const AccessRules> rules) : m_rules(std::move(rules)) {}
    /// @param peer  of IPv4 or IPv6; to any other one nothing is permitted.
    Admitted Ask(const sockaddr_storage& peer);

  private:
    /// With the interface, where hosts behind several may have the same address; 0 elsewhere.
    using OwnAddress = std::pair<PeerAddress, uint32_t>;
    static OwnAddress WithInterface(const sockaddr_storage& address);
    bool IsOwn(const sockaddr_storage& peer);

    std::shared_ptr<const AccessRules> m_rules;
    std::set<OwnAddress> m_own;  // as the machine had them when they were last asked for
    std::chrono::steady_clock::time_point m_nextLook;
};

/// What a peer takes of its address's share, until the last copy is gone; null when there is nothing left.
using Share = std::shared_ptr<const void>;
/// One connection. Thread: any.
Share ShareOfConnections(const Admitted& peer);
/// One user of a configuration. Configuration 0, which is open anyway, is nobody's share. Thread: any.
Share ShareOfStores(Transport transport, const Admitted& peer, eConfigID_t configID);

/// Whether the value of a parameter is a password. Thread: any.
bool IsPassword(Config& config, eParam_t id);
/// Whether a parameter takes the right admin to be set. Thread: any.
bool IsProtected(Config& config, eParam_t id);

/// Whether a peer may set a parameter: for a program of this machine one comparison. Thread: any.
inline bool MaySet(Right right, Config& config, eParam_t id)
{
    return right == Right::kAdmin || (right == Right::kWrite && !IsProtected(config, id));
}
/// Whether it may know its value.
inline bool MayRead(Right right, Config& config, eParam_t id)
{
    return right == Right::kAdmin || (right != Right::kNone && !IsPassword(config, id));
}

}  // namespace vexa::corvalis::config::access
