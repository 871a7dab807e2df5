#include "config/access/connector/config_factory_impl.h"

#include <list>
#include <map>
#include <memory>

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
    std::list<ConfigCache*> caches VEXA_GUARDED_BY(lock);
};

/// @param entry  of one cache.
void Keep(std::list<ConfigCache*> entry)
{
    static vexa::NoDestructor<KeptCaches> kept;
    SemaphoreHelper hold(kept->lock);
    kept->caches.splice(kept->caches.end(), entry);
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
    std::list<ConfigCache*> entry{cache.get()};  // once the client knows the cache, nothing may fail
    client.AddConnectionListener(cache->Follower());
    if (client.AddConfigEventListener(cache.get())) {
        Keep(std::move(entry));
        return cache.release();
    }
    client.RemoveConnectionListener(cache->Follower());
    return nullptr;
}

/// In place of the connector when there is no memory to make it.
class NoConnector : public ConfigFactory {
  public:
    void Run() override {}
    Config* Connect(std::string) override { return nullptr; }
    void Disconnect(Config*) override {}
};

}  // namespace

ConfigFactory* ConfigFactoryImpl::GetInstance()
try {
    SemaphoreHelper hold(instanceLock);
    if (!instance) instance = new ConfigFactoryImpl;
    return instance;
} catch (...) {
    static vexa::NoDestructor<NoConnector> none;
    vexa::Print("ConfigFactoryImpl::GetInstance - no memory\n");
    return &*none;
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
try {
    if (IsNetworkUri(uri)) return ConnectNetwork(uri);
    if (!vexa::uri::Contains(uri, "local:")) return nullptr;
    Config* const config = m_localFactory->Connect(uri);
    if (!config)
        vexa::Print("ConfigFactoryImpl::Connect - local factory return NULL Config* for uri = %s\n",
                    uri.c_str());
    return config;
} catch (...) {
    vexa::Print("ConfigFactoryImpl::Connect - ended by an exception\n");
    return nullptr;
}

Config* ConfigFactoryImpl::ConnectNetwork(const std::string& uri)
{
    const auto giveBack = [this](NetworkClient* unused) { m_networkFactory->Disconnect(unused); };
    std::unique_ptr<NetworkClient, decltype(giveBack)> client(m_networkFactory->Connect(uri), giveBack);
    Config* config = nullptr;
    if (client) config = vexa::uri::Contains(uri, "caching=true") ? AddCache(*client) : HandOut(client.get());
    if (config)
        static_cast<void>(client.release());
    else
        vexa::Print("ConfigFactoryImpl::Connect - _network_factory->Connect() failed\n");
    return config;
}

void ConfigFactoryImpl::Disconnect(Config* config)
{
    if (NetworkClient* const client = TakeBack(config))
        m_networkFactory->Disconnect(client);
    else
        m_localFactory->Disconnect(config);
}
