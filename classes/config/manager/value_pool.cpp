#include "config/manager/value_pool.h"

#include "config/base/no_destructor.h"
#include "config/base/semaphore_helper.h"
#include "config/values/config_value.h"

namespace value_pool {

namespace {

using Pool = std::multimap<eParam_t, ConfigValue*>;  // several of one parameter if stores lived at once

StaticLock poolLock;
vexa::NoDestructor<Pool> pool VEXA_GUARDED_BY(poolLock);

ConfigValue* TakeUnchanged(eParam_t paramID)
{
    SemaphoreHelper hold(poolLock);
    const auto found = pool->find(paramID);
    if (found == pool->end()) return nullptr;
    ConfigValue* const value = found->second;
    pool->erase(found);
    return value;
}

}  // namespace

void Give(const std::map<eParam_t, Serializable*>& values)
{
    for (const auto& [id, object] : values) {
        auto* const value = dynamic_cast<ConfigValue*>(object);
        if (!value) continue;
        if (dynamic_cast<StringValue*>(value))
            value->ResetToFactory();  // do not keep the memory of a long text
        SemaphoreHelper hold(poolLock);
        pool->insert(pool->lower_bound(id), {id, value});  // in front: taken first
    }
}

ConfigValue* Take(eConfigID_t configID, eParam_t paramID)
{
    ConfigValue* const value = TakeUnchanged(paramID);
    if (!value) return nullptr;
    value->SetConfigID(configID);
    value->ResetToFactory();
    value->SetDirty(false);
    return value;
}

}  // namespace value_pool
