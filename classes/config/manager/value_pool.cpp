#include "config/manager/value_pool.h"

#include <utility>

#include "config/config_value.h"
#include "config/semaphore_helper.h"

namespace value_pool {

namespace {

// Two stores of one configuration ID may have lived at once, hence a multimap.
using Pool = std::multimap<std::pair<eConfigID_t, eParam_t>, ConfigValue*>;

StaticLock poolLock;
Pool& pool VEXA_GUARDED_BY(poolLock) = *new Pool;

ConfigValue* TakeAsIs(eConfigID_t configID, eParam_t paramID)
{
    SemaphoreHelper hold(poolLock);
    const auto found = pool.find({configID, paramID});
    if (found == pool.end()) return nullptr;
    ConfigValue* const value = found->second;
    pool.erase(found);
    return value;
}

}  // namespace

void Give(eConfigID_t configID, const std::map<eParam_t, Serializable*>& values)
{
    SemaphoreHelper hold(poolLock);
    for (const auto& [id, object] : values)
        if (auto* const value = dynamic_cast<ConfigValue*>(object)) pool.insert({{configID, id}, value});
}

ConfigValue* Take(eConfigID_t configID, eParam_t paramID)
{
    ConfigValue* const value = TakeAsIs(configID, paramID);
    if (!value) return nullptr;
    value->ResetToFactory();
    value->SetDirty(false);
    return value;
}

}  // namespace value_pool
