#include "config/access/connector/local_config_factory.h"

#include <memory>

#include "config/access/protocol/uri.h"
#include "config/base/log.h"
#include "config/manager/config_manager.h"

namespace vexa::config::access {

LocalConfigFactory::LocalConfigFactory()
{
    SemaphoreHelper::Init(m_tableLock);
}

LocalConfigFactory::~LocalConfigFactory()
{
    SemaphoreHelper::Destroy(m_tableLock);
}

eConfigID_t LocalConfigFactory::GetConfigID(std::string uri)
{
    const auto text = vexa::uri::Option(uri, "configid");
    return text ? vexa::uri::ParseConfigID(*text).value_or(0) : 0;
}

Config* LocalConfigFactory::Connect(std::string uri)
{
    SemaphoreHelper hold(m_tableLock);
    const eConfigID_t id = GetConfigID(std::move(uri));
    const auto found = m_stores.find(id);
    if (found != m_stores.end()) {
        static_cast<ConfigManager*>(found->second)->IncrementUseCount();
        return found->second;
    }
    auto store = std::make_unique<ConfigManager>(id);
    if (!store->Init()) {
        Print("LocalConfigFactory::Connect - Init() failed\n");
        return nullptr;
    }
    store->IncrementUseCount();
    return m_stores[id] = store.release();
}

bool LocalConfigFactory::Disconnect(Config* config)
{
    SemaphoreHelper hold(m_tableLock);
    auto* const store = dynamic_cast<ConfigManager*>(config);
    if (!store) return false;
    const eConfigID_t id = store->GetConfigID();
    const auto found = m_stores.find(id);
    // Another factory's store may have a number that is in the table too: it is not this factory's to count.
    if (found == m_stores.end() || found->second != store)
        return Report("LocalConfigFactory::Disconnect - This instance not tracking configID %d\n", id);
    if (store->DecrementUseCount() != 0) return true;
    m_stores.erase(found);
    delete store;
    return true;
}

}  // namespace vexa::config::access
