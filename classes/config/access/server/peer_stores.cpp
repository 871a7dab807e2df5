#include "config/access/server/peer_stores.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "config/access/connector/config_factory_impl.h"
#include "config/base/log.h"
#include "config/base/mutex.h"
#include "config/base/no_destructor.h"
#include "config/config.h"

namespace vexa::corvalis::config::access {

namespace {

struct OpenStore {
    size_t users = 0;
    Config* config = nullptr;             // null until it is open
    bool isBusy = true;                   // opens, closes, or a watcher is told of it: others wait
    PeerStoreWatcher* watcher = nullptr;  // that has been told of the store
    std::map<eParam_t, size_t> texts;     // bytes of those that are stored

    /// An unknown parameter, of which peers may name many, has no entry.
    size_t BytesOf(eParam_t id) const
    {
        const auto found = texts.find(id);
        return found == texts.end() ? 0 : found->second;
    }
};

struct OpenStores {
    Mutex lock;
    CondVar changed;
    PeerStoreWatcher* watcher VEXA_GUARDED_BY(lock) = nullptr;
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

/// The entry of a store that is not busy, or none.
std::map<eConfigID_t, OpenStore>::iterator Await(OpenStores& open, eConfigID_t configID)
    VEXA_REQUIRES(open.lock)
{
    auto entry = open.stores.find(configID);
    for (; entry != open.stores.end() && entry->second.isBusy; entry = open.stores.find(configID))
        open.changed.Wait(open.lock);
    return entry;
}

void Erase(OpenStores& open, eConfigID_t configID) VEXA_REQUIRES(open.lock)
{
    const auto entry = open.stores.find(configID);
    for (const auto& [id, bytes] : entry->second.texts) open.textBytes -= bytes;
    open.stores.erase(entry);
    open.changed.NotifyAll();
}

/// @param watcher  null: nobody is told.
void Tell(PeerStoreWatcher* watcher, void (PeerStoreWatcher::*what)(Config&), Config* store)
{
    if (!watcher) return;
    try {
        (watcher->*what)(*store);
    } catch (...) {
        Print("OpenPeerStore - a watcher of the stores ended by an exception\n");
    }
}

Config* ConnectStore(eConfigID_t configID)
try {
    // As a signed number: the connector limits larger ones, and an unsigned -1 would become another
    // configuration.
    return ConfigFactoryImpl::GetInstance()->Connect("local:configid=" + std::to_string(configID));
} catch (...) {
    Print("OpenPeerStore - no memory for another store\n");
    return nullptr;
}

/// The watcher of a store changes, with the lock free while they are told. The store is not busy.
void SetWatcher(OpenStores& open, OpenStore& store, PeerStoreWatcher* watcher) VEXA_REQUIRES(open.lock)
{
    PeerStoreWatcher* const before = std::exchange(store.watcher, watcher);
    if (before == watcher) return;
    store.isBusy = true;
    {
        const MutexUnlock free(open.lock);
        Tell(before, &PeerStoreWatcher::Closing, store.config);
        Tell(watcher, &PeerStoreWatcher::Opened, store.config);
    }
    store.isBusy = false;
    open.changed.NotifyAll();
}

}  // namespace

PeerText::PeerText(Config& config, eParam_t id, size_t bytes)
    : m_configID(config.GetConfigID()), m_id(id), m_bytes(bytes)
{
    OpenStores& open = Stores();
    const MutexLock hold(open.lock);
    OpenStore* const store = open.Find(m_configID);
    if (!store) return;
    m_hasRoom = open.textBytes - store->BytesOf(id) + bytes <= kMaxPeerTextBytes;
    if (m_hasRoom) open.textBytes += bytes;
}

PeerText::~PeerText()
{
    OpenStores& open = Stores();
    const MutexLock hold(open.lock);
    if (m_hasRoom && !m_isStored && open.Find(m_configID)) open.textBytes -= m_bytes;
}

void PeerText::Keep()
{
    OpenStores& open = Stores();
    const MutexLock hold(open.lock);
    OpenStore* const store = open.Find(m_configID);
    if (!store) return;
    size_t& known = store->texts[m_id];
    open.textBytes -= std::exchange(known, m_bytes);
    m_isStored = true;
}

void WatchPeerStores(PeerStoreWatcher* watcher)
{
    OpenStores& open = Stores();
    const MutexLock hold(open.lock);
    open.watcher = watcher;
    std::vector<eConfigID_t> known;
    for (const auto& [configID, store] : open.stores) known.push_back(configID);
    for (const eConfigID_t configID : known) {
        const auto entry = Await(open, configID);
        if (entry != open.stores.end()) SetWatcher(open, entry->second, watcher);
    }
}

Config* OpenPeerStore(eConfigID_t configID)
{
    OpenStores& open = Stores();
    const MutexLock hold(open.lock);
    const auto known = Await(open, configID);
    if (known == open.stores.end() && open.stores.size() >= kMaxPeerStores) return nullptr;
    OpenStore& store = known == open.stores.end() ? open.stores[configID] : known->second;
    store.isBusy = true;
    Config* config = nullptr;
    {
        const MutexUnlock free(open.lock);
        config = ConnectStore(configID);
    }
    store.isBusy = false;
    if (!config && store.users == 0) {
        Erase(open, configID);
        return nullptr;
    }
    open.changed.NotifyAll();
    if (!config) return nullptr;
    store.config = config;
    ++store.users;
    SetWatcher(open, store, open.watcher);
    return config;
}

void ClosePeerStore(Config* config)
{
    if (!config) return;
    const eConfigID_t configID = config->GetConfigID();
    OpenStores& open = Stores();
    const MutexLock hold(open.lock);
    OpenStore& store = Await(open, configID)->second;
    if (store.users == 1) SetWatcher(open, store, nullptr);
    store.isBusy = true;
    {
        const MutexUnlock free(open.lock);
        ConfigFactoryImpl::GetInstance()->Disconnect(config);
    }
    store.isBusy = false;
    if (--store.users == 0) return Erase(open, configID);
    open.changed.NotifyAll();
}

}  // namespace vexa::corvalis::config::access
