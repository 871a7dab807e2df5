#include "config/access/connector/local_config_factory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>

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
    constexpr std::string_view kKey = "configid=";
    using Limits = std::numeric_limits<eConfigID_t>;
    const size_t key = uri.find(kKey);
    if (key == std::string::npos) return 0;
    const long number = strtol(uri.c_str() + key + kKey.size(), nullptr, 10);
    return static_cast<eConfigID_t>(std::clamp<long>(number, Limits::min(), Limits::max()));
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
        fputs("LocalConfigFactory::Connect - Init() failed\n", stderr);
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
    if (found == m_stores.end() || found->second != store) {
        fprintf(stderr, "LocalConfigFactory::Disconnect - This instance not tracking configID %d\n", id);
        return false;
    }
    if (store->DecrementUseCount() != 0) return true;
    m_stores.erase(found);
    delete store;
    return true;
}

}  // namespace vexa::config::access
