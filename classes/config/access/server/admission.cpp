#include "config/access/server/admission.h"

#include <ifaddrs.h>

#include <map>

#include "config/base/mutex.h"
#include "config/base/no_destructor.h"
#include "config/config.h"
#include "config/descriptors/param_descriptor.h"

namespace vexa::corvalis::config::access {

namespace {

/// What an address uses.
struct Used {
    size_t connections = 0;
    std::map<eConfigID_t, size_t> stores, datagramStores;  // users of each

    std::map<eConfigID_t, size_t>& StoresOf(Transport transport)
    {
        return transport == Transport::kUdp ? datagramStores : stores;
    }
};

struct Shares {
    Mutex lock;
    std::map<PeerAddress, Used> used VEXA_GUARDED_BY(lock);

    void EraseIfUnused(const PeerAddress& site) VEXA_REQUIRES(lock)
    {
        const auto found = used.find(site);
        if (found->second.connections == 0 && found->second.stores.empty() &&
            found->second.datagramStores.empty())
            used.erase(found);
    }
};

Shares& AllShares()
{
    static NoDestructor<Shares> shares;  // connections outlive main
    return *shares;
}

Share Unlimited()
{
    static NoDestructor<Share> share(std::make_shared<int>(0));
    return *share;
}

/// Calls a function with its last copy.
template <class GiveBack>
Share ShareThat(const GiveBack& giveBack)
{
    return {&AllShares(), [giveBack](const void*) { giveBack(); }};
}

void GiveConnectionBack(const PeerAddress& site)
{
    Shares& all = AllShares();
    const MutexLock hold(all.lock);
    --all.used[site].connections;
    all.EraseIfUnused(site);
}

void GiveStoreBack(Transport transport, const PeerAddress& site, eConfigID_t configID)
{
    Shares& all = AllShares();
    const MutexLock hold(all.lock);
    auto& stores = all.used[site].StoresOf(transport);
    if (--stores[configID] == 0) stores.erase(configID);
    all.EraseIfUnused(site);
}

bool HasClass(Config& config, eParam_t id, const char* name)
{
    ParamDescriptor* const descriptor = config.GetParamDescriptor(id);
    return descriptor && descriptor->HasClassName(name);
}

}  // namespace

// --- rights ---

std::optional<PeerAddress> AddressOf(const sockaddr_storage& peer)
{
    if (peer.ss_family == AF_INET) return PeerAddress(reinterpret_cast<const sockaddr_in&>(peer).sin_addr);
    if (peer.ss_family == AF_INET6) return PeerAddress(reinterpret_cast<const sockaddr_in6&>(peer).sin6_addr);
    return std::nullopt;
}

Admitted Admission::Ask(const sockaddr_storage& peer)
{
    if (!m_rules) return {Right::kAdmin, std::nullopt};
    const std::optional<PeerAddress> address = AddressOf(peer);
    if (!address) return {};
    const bool isOwn = address->IsLoopback() || IsOwn(peer);
    return {m_rules->Of(*address, isOwn), isOwn ? std::nullopt : std::optional(address->Site())};
}

Admission::OwnAddress Admission::WithInterface(const sockaddr_storage& address)
{
    const auto& ipv6 = reinterpret_cast<const sockaddr_in6&>(address);
    const bool isOfLink = address.ss_family == AF_INET6 && IN6_IS_ADDR_LINKLOCAL(&ipv6.sin6_addr);
    return {*AddressOf(address), isOfLink ? ipv6.sin6_scope_id : 0};
}

/// The machine's addresses may change, and asking for them for each of many peers would take too long.
bool Admission::IsOwn(const sockaddr_storage& peer)
{
    const auto now = std::chrono::steady_clock::now();
    if (now >= m_nextLook) {
        m_nextLook = now + kKnownFor;
        ifaddrs* all = nullptr;
        if (getifaddrs(&all) != 0) return m_own.contains(WithInterface(peer));
        m_own.clear();
        for (const ifaddrs* one = all; one; one = one->ifa_next) {
            sockaddr_storage address{};
            if (!one->ifa_addr) continue;
            const bool isIPv4 = one->ifa_addr->sa_family == AF_INET;
            if (!isIPv4 && one->ifa_addr->sa_family != AF_INET6) continue;
            memcpy(&address, one->ifa_addr, isIPv4 ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
            m_own.insert(WithInterface(address));
        }
        freeifaddrs(all);
    }
    return m_own.contains(WithInterface(peer));
}

bool IsPassword(Config& config, eParam_t id)
{
    return HasClass(config, id, "password");
}

bool IsProtected(Config& config, eParam_t id)
{
    return IsPassword(config, id) || HasClass(config, id, "readonly");
}

// --- shares ---

Share ShareOfConnections(const Admitted& peer)
{
    if (!peer.limitedAs) return Unlimited();
    const PeerAddress site = *peer.limitedAs;
    Shares& all = AllShares();
    {
        const MutexLock hold(all.lock);
        if (const auto known = all.used.find(site);
            known != all.used.end() && known->second.connections >= kMaxConnectionsOfAddress)
            return nullptr;
        ++all.used[site].connections;
    }
    return ShareThat([site] { GiveConnectionBack(site); });
}

Share ShareOfStores(Transport transport, const Admitted& peer, eConfigID_t configID)
{
    if (!peer.limitedAs || configID == 0) return Unlimited();
    const PeerAddress site = *peer.limitedAs;
    Shares& all = AllShares();
    {
        const MutexLock hold(all.lock);
        auto& stores = all.used[site].StoresOf(transport);
        if (stores.size() >= kMaxStoresOfAddress && !stores.contains(configID)) return nullptr;
        ++stores[configID];
    }
    return ShareThat([transport, site, configID] { GiveStoreBack(transport, site, configID); });
}

}  // namespace vexa::corvalis::config::access
