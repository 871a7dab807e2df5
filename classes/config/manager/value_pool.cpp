#include "config/manager/value_pool.h"

#include <algorithm>

#include "config/base/no_destructor.h"
#include "config/base/semaphore_helper.h"
#include "config/descriptors/integer_descriptor.h"
#include "config/descriptors/string_descriptor.h"
#include "config/values/config_value.h"

namespace vexa {

struct FormerValues::Pool {
    StaticLock lock;
    Sets resting VEXA_GUARDED_BY(lock);  // the one that has rested longest first
};

FormerValues::Pool& FormerValues::ThePool()
{
    static NoDestructor<Pool> pool;
    return *pool;
}

namespace {

/// Whether a new value of that descriptor would be of the same class and type.
bool Fits(Serializable& object, ParamDescriptor& descriptor)
{
    auto* const value = dynamic_cast<ConfigValue*>(&object);
    if (!value || value->GetParamType() != descriptor.GetParamType()) return false;
    return dynamic_cast<IntegerDescriptor*>(&descriptor)
               ? dynamic_cast<IntegerValue*>(value) != nullptr
               : dynamic_cast<StringDescriptor*>(&descriptor) && dynamic_cast<StringValue*>(value);
}

void Renew(ConfigValue& value, eConfigID_t configID)
{
    value.ResetToFactory();
    value.SetConfigID(configID);
    value.SetDirty(configID != 0);
}

}  // namespace

FormerValues::FormerValues(eConfigID_t configID)
{
    Pool& pool = ThePool();
    SemaphoreHelper hold(pool.lock);
    auto found = std::ranges::find(pool.resting, configID, &Set::configID);
    if (found == pool.resting.end() && pool.resting.size() >= kKeptApart) found = pool.resting.begin();
    if (found == pool.resting.end())
        m_own.emplace_back();
    else
        m_own.splice(m_own.end(), pool.resting, found);
    m_own.front().configID = configID;
}

FormerValues::Values::node_type FormerValues::Take(ParamDescriptor& descriptor)
{
    auto& [configID, values] = m_own.front();
    const auto [first, last] = values.equal_range(descriptor.GetParamID());
    const auto found =
        std::find_if(first, last, [&](const auto& entry) { return Fits(*entry.second, descriptor); });
    if (found == last) return {};
    Renew(static_cast<ConfigValue&>(*found->second), configID);
    return values.extract(found);
}

void FormerValues::Return(Values& values)
{
    for (const auto& [id, value] : values)
        if (auto* const text = dynamic_cast<StringValue*>(value))
            text->Set({});  // do not keep the memory of a long one
    m_own.front().values.merge(values);
    Pool& pool = ThePool();
    SemaphoreHelper hold(pool.lock);
    pool.resting.splice(pool.resting.end(), m_own);
}

}  // namespace vexa
