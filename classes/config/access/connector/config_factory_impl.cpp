#include "config/access/connector/config_factory_impl.h"

#include <map>
#include <utility>
#include <vector>

#include "config/access/client/cache/config_cache.h"
#include "config/access/client/network/network_client.h"
#include "config/access/client/network/network_factory.h"
#include "config/access/connector/local_config_factory.h"
#include "config/access/protocol/uri.h"
#include "config/base/log.h"
#include "config/base/no_destructor.h"
#include "config/base/semaphore_helper.h"

using vexa::corvalis::config::access::NetworkClient;
using vexa::corvalis::config::access::NetworkFactory;

namespace {

StaticLock instanceLock;
ConfigFactoryImpl* instance VEXA_GUARDED_BY(instanceLock) = nullptr;

bool IsNetworkUri(const std::string& uri)
{
    return vexa::uri::Contains(uri, "tcp:") || vexa::uri::Contains(uri, "udp:") ||
           vexa::uri::Contains(uri, "multicast:");
}

/// Caches live as long as the process; the list keeps them reachable, so that no tool reports them as leaked.
struct KeptCaches {
    StaticLock lock;
    std::vector<ConfigCache*> caches VEXA_GUARDED_BY(lock);
};

void Keep(ConfigCache* cache)
{
    static vexa::NoDestructor<KeptCaches> kept;
    SemaphoreHelper hold(kept->lock);
    kept->caches.push_back(cache);
}

/// The network clients that were handed out and not given back. They are the process's and not one connector's:
/// a client may be given back to the next one.
struct Clients {
    StaticLock lock;
    std::map<Config*, NetworkClient*> clients VEXA_GUARDED_BY(lock);
};

Clients& HandedOut()
{
    static vexa::NoDestructor<Clients> handedOut;
    return *handedOut;
}

Config* HandOut(NetworkClient* client)
{
    Clients& handedOut = HandedOut();
    SemaphoreHelper hold(handedOut.lock);
    handedOut.clients.emplace(client, client);
    return client;
}

/// @return null for anything else: only the pointer is looked at, which may be that of a client that is gone.
NetworkClient* TakeBack(Config* config)
{
    Clients& handedOut = HandedOut();
    SemaphoreHelper hold(handedOut.lock);
    const auto entry = handedOut.clients.extract(config);
    return entry ? entry.mapped() : nullptr;
}

/// @return null when the cache would not hear of changes: it would answer old values for ever.
ConfigCache* AddCache(NetworkClient& client)
{
    auto cache = std::make_unique<ConfigCache>(&client);
    client.AddConnectionListener(cache->Follower());
    if (client.AddConfigEventListener(cache.get())) {
        Keep(cache.get());
        return cache.release();
    }
    client.RemoveConnectionListener(cache->Follower());
    return nullptr;
}

}  // namespace

ConfigFactory* ConfigFactoryImpl::GetInstance()
{
    SemaphoreHelper hold(instanceLock);
    if (!instance) instance = new ConfigFactoryImpl;
    return instance;
}

void ConfigFactoryImpl::DestroyInstance()
{
    SemaphoreHelper hold(instanceLock);
    delete instance;
    instance = nullptr;
}

ConfigFactoryImpl::ConfigFactoryImpl()
    : m_networkFactory(std::make_unique<NetworkFactory>()),
      m_localFactory(std::make_unique<vexa::config::access::LocalConfigFactory>())
{
}

ConfigFactoryImpl::~ConfigFactoryImpl() = default;

Config* ConfigFactoryImpl::Connect(std::string uri)
{
    if (IsNetworkUri(uri)) return ConnectNetwork(uri);
    if (!vexa::uri::Contains(uri, "local:")) return nullptr;
    Config* const config = m_localFactory->Connect(uri);
    if (!config)
        vexa::Print("ConfigFactoryImpl::Connect - local factory return NULL Config* for uri = %s\n",
                    uri.c_str());
    return config;
}

Config* ConfigFactoryImpl::ConnectNetwork(const std::string& uri)
{
    NetworkClient* const client = m_networkFactory->Connect(uri);
    Config* config = nullptr;
    if (client) config = vexa::uri::Contains(uri, "caching=true") ? AddCache(*client) : HandOut(client);
    if (client && !config) m_networkFactory->Disconnect(client);
    if (!config) vexa::Print("ConfigFactoryImpl::Connect - _network_factory->Connect() failed\n");
    return config;
}

void ConfigFactoryImpl::Disconnect(Config* config)
{
    if (NetworkClient* const client = TakeBack(config))
        m_networkFactory->Disconnect(client);
    else
        m_localFactory->Disconnect(config);
}
