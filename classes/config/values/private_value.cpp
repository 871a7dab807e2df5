#include "config/values/private_value.h"

#include <typeinfo>

#include "config/streams/deserializer.h"
#include "config/values/checkpoint.h"
#include "config/values/config_value.h"
#include "config/values/sector_header.h"

namespace {

std::unique_ptr<Serializable> CopyShared(Serializable* object)
{
    if (auto* const value = dynamic_cast<ConfigValue*>(object))
        return std::unique_ptr<Serializable>(value->Clone());
    if (auto* const header = dynamic_cast<SectorHeader*>(object))
        return std::make_unique<SectorHeader>(*header);
    if (auto* const mark = dynamic_cast<Checkpoint*>(object)) return std::make_unique<Checkpoint>(*mark);
    return nullptr;
}

bool IsSameKind(const ConfigValue& a, const ConfigValue& b)
{
    return typeid(a) == typeid(b);
}

std::unique_ptr<Serializable> ReadLocked(DeSerializer& stream) VEXA_REQUIRES(ClassFactory::PrototypeMutex())
{
    Serializable* object = nullptr;
    if (!stream.Read("Serializable", object) || !object) return nullptr;
    if (ClassFactory::IsShared(object)) return CopyShared(object);
    return std::unique_ptr<Serializable>(object);
}

}  // namespace

PrivateCopy::PrivateCopy(Serializable* object) : m_object(object)
{
    auto* const value = dynamic_cast<ConfigValue*>(object);
    if (!value) return;
    std::unique_ptr<ConfigValue> clone(value->Clone());
    if (!clone || !IsSameKind(*clone, *value)) return;
    clone->SetClassID(value->GetClassID());
    m_clone = std::move(clone);
    m_object = m_clone.get();
}

std::unique_ptr<Serializable> ReadPrivate(DeSerializer& stream)
{
    const vexa::RecursiveMutexLock hold(ClassFactory::PrototypeMutex());
    return ReadLocked(stream);
}
