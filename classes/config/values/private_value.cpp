#include "config/values/private_value.h"

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

std::unique_ptr<Serializable> ReadLocked(DeSerializer& stream) VEXA_REQUIRES(ClassFactory::PrototypeMutex())
{
    Serializable* object = nullptr;
    if (!stream.Read("Serializable", object) || !object) return nullptr;
    if (ClassFactory::IsShared(object->GetClassID())) return CopyShared(object);
    return std::unique_ptr<Serializable>(object);
}

}  // namespace

PrivateCopy::PrivateCopy(Serializable* object) : m_object(object)
{
    if (auto* const value = dynamic_cast<ConfigValue*>(object)) {
        m_clone.reset(value->Clone());
        m_object = m_clone.get();
    }
}

std::unique_ptr<Serializable> ReadPrivate(DeSerializer& stream)
{
    const vexa::RecursiveMutexLock hold(ClassFactory::PrototypeMutex());
    return ReadLocked(stream);
}
