#include "config/access/server/peer_stores.h"

#include <map>
#include <string>

#include "config/access/connector/config_factory_impl.h"
#include "config/base/log.h"
#include "config/base/no_destructor.h"
#include "config/base/semaphore_helper.h"
#include "config/config.h"

namespace vexa::corvalis::config::access {

namespace {

struct OpenStores {
    StaticLock lock;
    std::map<eConfigID_t, size_t> uses VEXA_GUARDED_BY(lock);
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
    if (open.uses.size() >= kMaxPeerStores && !open.uses.contains(configID)) return false;
    ++open.uses[configID];
    return true;
}

void Release(eConfigID_t configID)
{
    OpenStores& open = Stores();
    SemaphoreHelper hold(open.lock);
    const auto entry = open.uses.find(configID);
    if (--entry->second == 0) open.uses.erase(entry);
}

}  // namespace

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
