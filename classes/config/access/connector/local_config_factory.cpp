#include "config/access/connector/local_config_factory.h"

#include <algorithm>
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
try {
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
    m_stores.emplace(id, store.get());
    store->IncrementUseCount();
    return store.release();
} catch (...) {
    Print("LocalConfigFactory::Connect - ended by an exception\n");
    return nullptr;
}

/// @param last  receives the store if that was its last use.
/// @return whether the store is one of this factory's: another factory's may have a number that is in the table too.
bool LocalConfigFactory::TakeUse(Config* config, ConfigManager*& last)
{
    SemaphoreHelper hold(m_tableLock);
    // The pointer is compared before it is followed: it may be that of a store which is gone.
    const auto found = std::ranges::find(m_stores, config, [](const auto& entry) { return entry.second; });
    if (found == m_stores.end()) return false;
    auto* const store = static_cast<ConfigManager*>(config);
    if (store->DecrementUseCount() != 0) return true;
    m_stores.erase(found);
    last = store;
    return true;
}

bool LocalConfigFactory::Disconnect(Config* config)
{
    ConfigManager* last = nullptr;
    if (!TakeUse(config, last)) {
        const auto id = ConfigManager::IDOf(config);
        return id && Report("LocalConfigFactory::Disconnect - This instance not tracking configID %d\n", *id);
    }
    // Without the table lock: preconditions that clients have added may connect and disconnect while they are deleted.
    if (last) ConfigManager::Release(last);
    return true;
}

}  // namespace vexa::config::access
