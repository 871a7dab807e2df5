#include "config/access/server/peer_stores.h"

#include <map>
#include <string>
#include <utility>

#include "config/access/connector/config_factory_impl.h"
#include "config/base/log.h"
#include "config/base/no_destructor.h"
#include "config/base/semaphore_helper.h"
#include "config/config.h"

namespace vexa::corvalis::config::access {

namespace {

struct OpenStore {
    size_t users = 0;
    std::map<eParam_t, size_t> texts;  // bytes of those that are stored

    /// An unknown parameter, of which peers may name many, has no entry.
    size_t BytesOf(eParam_t id) const
    {
        const auto found = texts.find(id);
        return found == texts.end() ? 0 : found->second;
    }
};

struct OpenStores {
    StaticLock lock;
    std::map<eConfigID_t, OpenStore> stores VEXA_GUARDED_BY(lock);
    size_t textBytes VEXA_GUARDED_BY(lock) = 0;  // of all stores, and of those that are about to be stored

    /// Null for a store without a limit.
    OpenStore* Find(eConfigID_t configID) VEXA_REQUIRES(lock)
    {
        const auto found = configID == 0 ? stores.end() : stores.find(configID);
        return found == stores.end() ? nullptr : &found->second;
    }
};

OpenStores& Stores()
{
    static NoDestructor<OpenStores> open;  // connections outlive main
    return *open;
}

bool Reserve(eConfigID_t configID)
{
    OpenStores& open = Stores();
    SemaphoreHelper hold(open.lock);
    if (open.stores.size() >= kMaxPeerStores && !open.stores.contains(configID)) return false;
    ++open.stores[configID].users;
    return true;
}

void Release(eConfigID_t configID)
{
    OpenStores& open = Stores();
    SemaphoreHelper hold(open.lock);
    const auto entry = open.stores.find(configID);
    if (--entry->second.users > 0) return;
    for (const auto& [id, bytes] : entry->second.texts) open.textBytes -= bytes;
    open.stores.erase(entry);
}

}  // namespace

PeerText::PeerText(Config& config, eParam_t id, size_t bytes)
    : m_configID(config.GetConfigID()), m_id(id), m_bytes(bytes)
{
    OpenStores& open = Stores();
    SemaphoreHelper hold(open.lock);
    OpenStore* const store = open.Find(m_configID);
    if (!store) return;
    m_hasRoom = open.textBytes - store->BytesOf(id) + bytes <= kMaxPeerTextBytes;
    if (m_hasRoom) open.textBytes += bytes;
}

PeerText::~PeerText()
{
    OpenStores& open = Stores();
    SemaphoreHelper hold(open.lock);
    if (m_hasRoom && !m_isStored && open.Find(m_configID)) open.textBytes -= m_bytes;
}

void PeerText::Keep()
{
    OpenStores& open = Stores();
    SemaphoreHelper hold(open.lock);
    OpenStore* const store = open.Find(m_configID);
    if (!store) return;
    size_t& known = store->texts[m_id];
    open.textBytes -= std::exchange(known, m_bytes);
    m_isStored = true;
}

Config* OpenPeerStore(eConfigID_t configID)
{
    if (!Reserve(configID)) return nullptr;
    Config* config = nullptr;
    try {
        // As a signed number: the connector limits larger ones, and an unsigned -1 would become another
        // configuration.
        config = ConfigFactoryImpl::GetInstance()->Connect("local:configid=" + std::to_string(configID));
    } catch (...) {
        Print("OpenPeerStore - no memory for another store\n");
    }
    if (!config) Release(configID);
    return config;
}

void ClosePeerStore(Config* config)
{
    if (!config) return;
    const eConfigID_t configID = config->GetConfigID();
    ConfigFactoryImpl::GetInstance()->Disconnect(config);
    Release(configID);
}

}  // namespace vexa::corvalis::config::access
