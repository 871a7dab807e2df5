#include "config/streams/class_factory.h"

#include <list>
#include <map>

#include "config/base/log.h"
#include "config/base/no_destructor.h"
#include "config/base/semaphore_helper.h"

namespace {

/// The peer chooses the class, so look-ups of unknown classes leave no more entries than this.
constexpr size_t kMaxEntries = 1024;

using Registry = std::map<eClassID_t, ClassFactory*>;

StaticLock initLock;  // taken before registryLock, which the standard factories take to register themselves
StaticLock registryLock;
vexa::NoDestructor<Registry> registry VEXA_GUARDED_BY(registryLock);
vexa::NoDestructor<std::list<ClassFactory*>> replaced VEXA_GUARDED_BY(registryLock);

ClassFactory* Find(eClassID_t id)
{
    SemaphoreHelper hold(registryLock);
    const auto found = registry->find(id);
    if (found != registry->end()) return found->second;
    // An entry in an empty registry would keep the standard factories out.
    if (!registry->empty() && registry->size() < kMaxEntries) (*registry)[id] = nullptr;
    return nullptr;
}

bool IsRegistryEmpty()
{
    SemaphoreHelper hold(registryLock);
    return registry->empty();
}

void Empty()
{
    SemaphoreHelper hold(registryLock);
    for (const auto& [id, factory] : *registry) delete factory;
    registry->clear();
}

void RegisterAllOrNone(void (*registerAll)()) VEXA_REQUIRES(initLock)
{
    if (!IsRegistryEmpty()) return;
    try {
        registerAll();
    } catch (...) {
        Empty();
    }
}

bool HasSharedObjects(eClassID_t id)
{
    return id == eClassID_IntegerValue || id == eClassID_StringValue || id == eClassID_SectorHeader ||
           id == eClassID_Checkpoint;
}

/// Whether the factory has one object for all. It is asked, since applications register factories that were
/// written before anybody asked.
/// @param object  that it, or the factory that it replaced meanwhile, has made.
bool Shares(ClassFactory& factory, const Serializable* object)
{
    Serializable* const next = factory.Create();
    if (next == object) return true;
    Serializable* const nextButOne = factory.Create();
    if (next == nextButOne) return true;
    delete next;
    delete nextButOne;
    return false;
}

}  // namespace

void ClassFactory::RegisterIfEmpty(void (*registerAll)())
{
    SemaphoreHelper hold(initLock);
    RegisterAllOrNone(registerAll);
}

void ClassFactory::Register(ClassFactory* factory)
{
    SemaphoreHelper hold(registryLock);
    ClassFactory*& slot = (*registry)[factory->GetClassID()];
    if (slot) replaced->push_back(slot);
    slot = factory;
}

Serializable* ClassFactory::Create(eClassID_t id)
try {
    InitFactories();
    ClassFactory* const factory = Find(id);
    if (!factory) {
        vexa::Print("Unable to find class factory for classID = %d\n", static_cast<int>(id));
        return nullptr;
    }
    Serializable* const object = factory->Create();
    if (object) object->SetClassID(id);
    return object;
} catch (...) {
    return nullptr;
}

void ClassFactory::DestroyFactories()
{
    SemaphoreHelper hold(registryLock);
    for (auto& [id, factory] : *registry) {
        delete factory;
        factory = nullptr;
    }
}

bool ClassFactory::IsShared(Serializable* object)
try {
    if (!HasSharedObjects(object->GetClassID())) return false;
    ClassFactory* const factory = Find(object->GetClassID());
    return !factory || Shares(*factory, object);
} catch (...) {
    return true;  // one that is lost does less harm than one that is deleted twice
}

void ClassFactory::Release(Serializable* object)
{
    if (object && !IsShared(object)) delete object;
}

vexa::RecursiveMutex& ClassFactory::PrototypeMutex()
{
    static vexa::NoDestructor<vexa::RecursiveMutex> mutex;
    return *mutex;
}
