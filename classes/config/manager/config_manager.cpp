#include "config/manager/config_manager.h"

#include <algorithm>

#include "config/base/log.h"
#include "config/base/no_destructor.h"
#include "config/descriptors/integer_descriptor.h"
#include "config/descriptors/registry/registry.h"
#include "config/descriptors/string_descriptor.h"
#include "config/values/config_value.h"

using vexa::config::IntegerQueue;
using vexa::config::StringQueue;
using vexa::config::UpdatePrecondition;

namespace {

/// Readers of the log know the three places by these numbers, which stay when the code moves.
enum DescriptorErrorLine { kSetInteger = 109, kSetString = 206, kSetData = 266 };

void PrintDescriptorError(DescriptorErrorLine line)
{
    vexa::Print("GetParamDescriptor Error in %s at line %d\n", "config_manager", line);
}

const char* NameOf(const IntegerQueue&)
{
    return "uint32_t";
}

const char* NameOf(const StringQueue&)
{
    return "std::string";
}

/// For an operation that an exception has ended, which is mostly one that found no memory.
bool Failed(const char* operation)
{
    return vexa::Report("ConfigManager::%s - ended by an exception\n", operation);
}

struct LiveStores {
    StaticLock lock;
    std::map<const Config*, eConfigID_t> numbers VEXA_GUARDED_BY(lock);
};

LiveStores& Live()
{
    static vexa::NoDestructor<LiveStores> live;
    return *live;
}

void Enter(const ConfigManager& store, eConfigID_t id)
{
    LiveStores& live = Live();
    SemaphoreHelper hold(live.lock);
    live.numbers.emplace(&store, id);
}

void Leave(const ConfigManager& store)
{
    LiveStores& live = Live();
    SemaphoreHelper hold(live.lock);
    live.numbers.erase(&store);
}

}  // namespace

/// An operation that calls out, to listeners, preconditions or the media library, and goes on with the store after that.
class ConfigManager::Operation {
  public:
    explicit Operation(ConfigManager& store) : m_store(store), m_outer(s_innermost) { s_innermost = this; }
    ~Operation()
    {
        s_innermost = m_outer;
        if (m_deletesStore) delete &m_store;
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    /// @return whether this thread is in an operation of the store, which will delete it.
    static bool LeaveToOutermost(const ConfigManager& store)
    {
        Operation* outermost = nullptr;
        for (Operation* operation = s_innermost; operation; operation = operation->m_outer)
            if (&operation->m_store == &store) outermost = operation;
        if (outermost) outermost->m_deletesStore = true;
        return outermost != nullptr;
    }

  private:
    static thread_local Operation* s_innermost;

    ConfigManager& m_store;
    Operation* const m_outer;
    bool m_deletesStore = false;
};

thread_local ConfigManager::Operation* ConfigManager::Operation::s_innermost = nullptr;

// --- life ---

ConfigManager::ConfigManager(eConfigID_t configID)
    : m_configID(configID),
      m_formerValues(configID),
      m_rangeRules(*this, [this](eParam_t id, unsigned int value) { SetConfigParam(id, value); })
{
    Enter(*this, configID);
}

ConfigManager::~ConfigManager()
{
    Leave(*this);
    DeleteAllUpdatePreconditions();
    SemaphoreHelper::Destroy(m_useCountLock);
    LeaveValues();
}

void ConfigManager::Release(ConfigManager* store)
{
    if (Operation::LeaveToOutermost(*store))
        store->m_listeners.Clear();
    else
        delete store;
}

std::optional<eConfigID_t> ConfigManager::IDOf(const Config* config)
{
    LiveStores& live = Live();
    SemaphoreHelper hold(live.lock);
    const auto found = live.numbers.find(config);
    if (found == live.numbers.end()) return std::nullopt;
    return found->second;
}

void ConfigManager::LeaveValues()
{
    SemaphoreHelper hold(m_valueLock);
    m_formerValues.Return(m_values);
}

bool ConfigManager::Init()
{
    m_lastUpdateSeconds = 0;
    m_lastUpdateMicroseconds = 0;
    vexa::Print("ConfigManager::Init - calling AddDefaultPreconditions!\n");
    return AddDefaultPreconditions() && InitDefaultConfig();
}

/// @return false only without memory: the store is not whole then.
bool ConfigManager::InitDefaultConfig()
try {
    for (const eParam_t id : ::GetParamIDs()) {
        Serializable* value = nullptr;
        if (!FindOrMakeByID(id, value))
            vexa::Print("ConfigManager::InitDefaultConfig - GetConfigValue failed for paramid %d!!!!\n",
                        static_cast<int>(id));
    }
    vexa::Print("ConfigManager::InitDefaultConfig() - end\n");
    return true;
} catch (...) {
    return Failed("InitDefaultConfig");
}

int32_t ConfigManager::IncrementUseCount()
{
    SemaphoreHelper hold(m_useCountLock);
    return ++m_useCount;
}

int32_t ConfigManager::DecrementUseCount()
{
    SemaphoreHelper hold(m_useCountLock);
    return --m_useCount;
}

int32_t ConfigManager::GetUseCount()
{
    SemaphoreHelper hold(m_useCountLock);
    return m_useCount;
}

// --- descriptors and preconditions ---

ParamDescriptor* ConfigManager::GetParamDescriptor(std::string paramIDName)
try {
    return CatalogueConfig::GetParamDescriptor(std::move(paramIDName));
} catch (...) {
    Failed("GetParamDescriptor");
    return nullptr;
}

std::list<eParam_t> ConfigManager::GetParamIDs()
try {
    return CatalogueConfig::GetParamIDs();
} catch (...) {
    Failed("GetParamIDs");
    return {};
}

bool ConfigManager::AddDefaultPreconditions()
try {
    auto values = std::make_unique<vexa::config::UpdatePreconditionValues>();
    if (!AddUpdatePrecondition(values.get())) return false;
    static_cast<void>(values.release());
    return true;
} catch (...) {
    return Failed("AddDefaultPreconditions");
}

bool ConfigManager::AddUpdatePrecondition(UpdatePrecondition* precondition)
try {
    if (!precondition) return false;
    vexa::Print("%s: adding precondition(%p)\n", "AddUpdatePrecondition", static_cast<void*>(precondition));
    m_preconditions.push_back(precondition);
    return true;
} catch (...) {
    return Failed("AddUpdatePrecondition");
}

bool ConfigManager::RemoveUpdatePrecondition(UpdatePrecondition* precondition)
{
    const auto found = std::ranges::find(m_preconditions, precondition);
    if (found == m_preconditions.end()) return false;
    m_preconditions.erase(found);
    return true;
}

bool ConfigManager::DeleteAllUpdatePreconditions()
{
    std::vector<UpdatePrecondition*> all;
    all.swap(m_preconditions);
    // One that was added twice is deleted once. Without allocating: the end of a store must not need memory.
    std::ranges::sort(all);
    const auto end = std::unique(all.begin(), all.end());
    std::for_each(all.begin(), end, [](UpdatePrecondition* precondition) { delete precondition; });
    return true;
}

/// An exception counts as a veto: the writer expects none.
template <class Queue>
bool ConfigManager::PassesPrecondition(UpdatePrecondition& precondition, Queue& queue)
{
    try {
        return precondition.IsUpdateValid(this, queue);
    } catch (...) {
        return vexa::Report("ConfigManager::Set - a precondition failed with an exception\n");
    }
}

template <class Queue>
bool ConfigManager::PassesPreconditions(ParamDescriptor* descriptor, Queue& queue)
{
    static vexa::NoDestructor<const std::string> kDoNotValidate("do_not_validate");
    if (descriptor->HasClassName(*kDoNotValidate)) return true;
    for (UpdatePrecondition* const precondition : m_preconditions) {
        if (queue.empty()) return true;  // an earlier one dropped the change: nothing is left to test
        if (PassesPrecondition(*precondition, queue)) continue;
        return vexa::Report("ConfigManager::Set(%s) - update precondition failed, returning false\n",
                            NameOf(queue));
    }
    return true;
}

// --- single values ---

/// @return null for a descriptor of neither kind.
std::unique_ptr<ConfigValue> ConfigManager::MakeValue(ParamDescriptor& descriptor) const
{
    const eParam_t id = descriptor.GetParamID();
    std::unique_ptr<ConfigValue> value;
    if (auto* const integer = dynamic_cast<IntegerDescriptor*>(&descriptor))
        value.reset(IntegerValue::Create(id, integer->GetParamType(), integer->GetFactoryDefault()));
    else if (auto* const text = dynamic_cast<StringDescriptor*>(&descriptor))
        value.reset(StringValue::Create(id, text->GetParamType(), text->GetFactoryDefault()));
    if (value) value->SetConfigID(m_configID);
    return value;
}

/// @return null when the parameter can have no value.
Serializable* ConfigManager::FindOrMake(ParamDescriptor& descriptor)
{
    const eParam_t id = descriptor.GetParamID();
    SemaphoreHelper hold(m_valueLock);
    const auto found = m_values.find(id);
    if (found != m_values.end()) return found->second;
    if (auto former = m_formerValues.Take(descriptor))
        return m_values.insert(std::move(former)).position->second;
    auto made = MakeValue(descriptor);
    if (!made) return nullptr;
    Serializable*& entry = m_values[id];
    return entry = made.release();
}

bool ConfigManager::FindOrMakeByID(eParam_t id, Serializable*& value)
{
    ParamDescriptor* const descriptor = FindDescriptor(id);
    if (!descriptor) return false;
    Serializable* const object = FindOrMake(*descriptor);
    if (!object)
        return vexa::Report(
            "ConfigManager::GetConfigValue - Clone() returned defaultValue == NULL, paramID = 0x%0X\n", id);
    value = object;
    return true;
}

bool ConfigManager::GetConfigValue(eParam_t id, Serializable*& value)
try {
    return FindOrMakeByID(id, value);
} catch (...) {
    return Failed("GetConfigValue");
}

Serializable* ConfigManager::GetConfigValue(eParam_t id)
{
    if (!IsValidParamID(id)) return nullptr;
    SemaphoreHelper hold(m_valueLock);
    const auto found = m_values.find(id);
    return found == m_values.end() ? nullptr : found->second;
}

void ConfigManager::StampUpdate()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    m_lastUpdateSeconds.store(static_cast<uint32_t>(now.tv_sec), std::memory_order_relaxed);
    m_lastUpdateMicroseconds.store(static_cast<uint32_t>(now.tv_usec), std::memory_order_relaxed);
}

bool ConfigManager::SetConfigParam(eParam_t id, unsigned int value)
{
    auto* const integer = dynamic_cast<IntegerValue*>(GetConfigValue(id));
    if (!integer)
        return vexa::Report("ConfigManager::SetConfigParam() - configValue == NULL for paramID = %X\n", id);
    integer->Set(value);
    StampUpdate();
    return true;
}

// Unlike the integer form it makes the value on demand, and prints all eight digits; the two differ on
// purpose.
bool ConfigManager::SetConfigParam(eParam_t id, std::string value)
try {
    Serializable* object = nullptr;
    if (!GetConfigValue(id, object))
        return vexa::Report("ConfigManager::SetConfigParam() - configValue == NULL for paramID = %08X\n", id);
    auto* const text = dynamic_cast<StringValue*>(object);
    if (!text) return false;
    text->Set(std::move(value));
    StampUpdate();
    return true;
} catch (...) {
    return Failed("SetConfigParam");
}

bool ConfigManager::GetConfigParam(eParam_t id, unsigned int& value)
{
    auto* const integer = dynamic_cast<IntegerValue*>(GetConfigValue(id));
    if (integer) integer->Get(value);
    return integer != nullptr;
}

bool ConfigManager::GetConfigParam(eParam_t id, std::string& value)
try {
    Serializable* object = nullptr;
    if (!GetConfigValue(id, object))
        return vexa::Report("ConfigManager::GetConfigParam() - configValue == NULL for paramID = %X\n", id);
    auto* const text = dynamic_cast<StringValue*>(object);
    if (!text) return vexa::Report("ConfigManager::GetConfigParam - error - not a StringValue\n");
    text->Get(value);
    return true;
} catch (...) {
    return Failed("GetConfigParam");
}

unsigned int ConfigManager::Get(eParam_t id)
{
    unsigned int value = 0;
    GetConfigParam(id, value);
    return value;
}

bool ConfigManager::Get(eParam_t id, unsigned int& value)
{
    return GetConfigParam(id, value);
}

bool ConfigManager::Get(eParam_t id, std::string& value)
{
    return GetConfigParam(id, value);
}

Serializable* ConfigManager::GetSerializable(eParam_t id)
{
    return GetConfigValue(id);
}

bool ConfigManager::SetSerializable(eParam_t, Serializable*)
{
    return false;
}

bool ConfigManager::GetData(eParam_t id, std::string& data)
{
    return GetConfigParam(id, data);
}

// --- writing ---

vexa::ListenerList::Ready ConfigManager::ReadyEvent(eParam_t id, unsigned int value, timeval time)
{
    return m_listeners.ReadyNumber(id, value, time);
}

vexa::ListenerList::Ready ConfigManager::ReadyEvent(eParam_t id, const std::string& value, timeval time)
{
    return m_listeners.ReadyText(id, value, time);
}

void ConfigManager::AfterStoring(eParam_t id, unsigned int)
{
    m_rangeRules.AfterNumber(id);
}

void ConfigManager::AfterStoring(eParam_t id, const std::string&)
{
    m_rangeRules.AfterText(id);
}

/// From storing to the event nothing needs memory: either both happen, or the change is refused.
template <class Value>
bool ConfigManager::StoreAndAnnounce(const vexa::ListenerList::Turn&, eParam_t id, Value& value, timeval time)
{
    auto event = ReadyEvent(id, value, time);
    if (!SetConfigParam(id, value)) return false;  // stamps the update
    AfterStoring(id, value);
    m_listeners.Tell(std::move(event));
    FireDependents(id, time);
    return true;
}

bool ConfigManager::Set(eParam_t id, unsigned int value, timeval time)
try {
    const Operation operation(*this);
    IntegerQueue queue{{id, value}};
    while (!queue.empty())
        if (!SetFront(queue, time)) return false;
    return true;
} catch (...) {
    return Failed("Set(uint32_t)");
}

bool ConfigManager::SetFront(IntegerQueue& queue, timeval time)
{
    auto [id, value] = queue.front();
    ParamDescriptor* const descriptor = GetParamDescriptor(id);
    if (!descriptor) {
        PrintDescriptorError(kSetInteger);
        return false;
    }
    if (!PassesPreconditions(descriptor, queue)) return false;
    if (queue.empty()) return false;

    // The range rules run for their effect on other parameters: the value that is stored is the one that the
    // preconditions left in the queue.
    EnforceRangeLimits(id, value);
    std::tie(id, value) = queue.front();

    const vexa::ListenerList::Turn turn(m_listeners);
    if (!StoreAndAnnounce(turn, id, value, time)) return false;
    queue.pop_front();
    return true;
}

bool ConfigManager::Set(eParam_t id, std::string value, timeval time)
try {
    const Operation operation(*this);
    StringQueue queue{{id, std::move(value)}};
    while (!queue.empty())
        if (!SetFront(queue, time)) return false;
    return true;
} catch (...) {
    return Failed("Set(std::string)");
}

// A precondition cannot change or drop the string in front, only veto it: what is stored is the string as it was before.
// What it adds to the queue is asked about and stored in its turn.
bool ConfigManager::SetFront(StringQueue& queue, timeval time)
{
    auto [id, value] = queue.front();
    ParamDescriptor* const descriptor = GetParamDescriptor(id);
    if (!descriptor) {
        PrintDescriptorError(kSetString);
        return false;
    }
    if (!PassesPreconditions(descriptor, queue)) return false;

    const vexa::ListenerList::Turn turn(m_listeners);
    if (!StoreAndAnnounce(turn, id, value, time)) return false;
    if (!queue.empty()) queue.pop_front();
    return true;
}

bool ConfigManager::SetData(eParam_t id, std::string& data, timeval time)
try {
    const Operation operation(*this);
    ParamDescriptor* const descriptor = GetParamDescriptor(id);
    if (!descriptor) {
        PrintDescriptorError(kSetData);
        return false;
    }
    const vexa::ListenerList::Turn turn(m_listeners);
    return StoreAndAnnounceData(turn, *descriptor, data, time);
} catch (...) {
    return Failed("SetData");
}

bool ConfigManager::StoreAndAnnounceData(const vexa::ListenerList::Turn&, ParamDescriptor& descriptor,
                                         std::string& data, timeval time)
{
    const eParam_t id = descriptor.GetParamID();
    auto event = m_listeners.ReadyData(id, data, time);
    const bool stored = SetConfigParam(id, data);
    StampUpdate();
    m_listeners.Tell(std::move(event));
    FireDependentsData(descriptor, time);
    return stored;
}

bool ConfigManager::EnforceRangeLimits(eParam_t id, unsigned int& value)
{
    const Operation operation(*this);
    m_rangeRules.Limit(id, value);
    return true;
}

bool ConfigManager::EnforceTakeLimits(unsigned int& value)
{
    const Operation operation(*this);
    m_rangeRules.LimitTake(value);
    return true;
}

bool ConfigManager::ExecutePostTriggers(eParam_t id, unsigned int&)
{
    const Operation operation(*this);
    m_rangeRules.AfterNumber(id);
    return true;
}

bool ConfigManager::ExecutePostTriggers(eParam_t id, std::string)
{
    const Operation operation(*this);
    m_rangeRules.AfterText(id);
    return true;
}

// --- listeners ---

bool ConfigManager::AddConfigEventListener(ConfigEventListener* listener)
try {
    if (!listener) return false;
    m_listeners.Add(listener);
    return true;
} catch (...) {
    return Failed("AddConfigEventListener");
}

bool ConfigManager::AddConfigEventListener(eParam_t, ConfigEventListener* listener)
{
    return AddConfigEventListener(listener);
}

bool ConfigManager::RemoveConfigEventListener(ConfigEventListener* listener)
{
    const bool removed = m_listeners.RemoveOne(listener);
    m_listeners.WaitForDelivery();
    return removed;
}

bool ConfigManager::FireParamChangedEvent(eParam_t id, unsigned int value, timeval time)
try {
    const Operation operation(*this);
    m_listeners.TellNumber(id, value, time);
    return true;
} catch (...) {
    return Failed("FireParamChangedEvent");
}

bool ConfigManager::FireParamChangedEvent(eParam_t id, std::string value, timeval time)
try {
    const Operation operation(*this);
    m_listeners.TellText(id, std::move(value), time);
    return true;
} catch (...) {
    return Failed("FireParamChangedEvent");
}

bool ConfigManager::FireDataChangedEvent(eParam_t id, std::string& data, timeval time)
try {
    const Operation operation(*this);
    m_listeners.TellData(id, data, time);
    return true;
} catch (...) {
    return Failed("FireDataChangedEvent");
}

bool ConfigManager::FireParamsChangedEvents(std::vector<eParam_t> ids, timeval time)
try {
    const Operation operation(*this);
    for (const eParam_t id : ids) {
        ParamDescriptor* const descriptor = GetParamDescriptor(id);
        if (!descriptor) continue;
        const vexa::ListenerList::Turn turn(m_listeners);
        AnnounceCurrent(turn, *descriptor, time);
    }
    return true;
} catch (...) {
    return Failed("FireParamsChangedEvents");
}

/// Nothing is stored between reading and announcing.
void ConfigManager::AnnounceCurrent(const vexa::ListenerList::Turn&, ParamDescriptor& descriptor,
                                    timeval time)
{
    const eParam_t id = descriptor.GetParamID();
    if (descriptor.GetParamType() == eCParam_StringValue) {
        std::string text;
        Get(id, text);
        FireParamChangedEvent(id, text, time);
    } else {
        unsigned int value = 0;
        Get(id, value);
        FireParamChangedEvent(id, value, time);
    }
}

bool ConfigManager::FireDataChangedEvents(std::vector<eParam_t> ids, timeval time)
try {
    const Operation operation(*this);
    for (const eParam_t id : ids) {
        if (!GetParamDescriptor(id)) continue;
        const vexa::ListenerList::Turn turn(m_listeners);
        AnnounceCurrentData(turn, id, time);
    }
    return true;
} catch (...) {
    return Failed("FireDataChangedEvents");
}

void ConfigManager::AnnounceCurrentData(const vexa::ListenerList::Turn&, eParam_t id, timeval time)
{
    std::string data;
    GetData(id, data);
    FireDataChangedEvent(id, data, time);
}

/// The change itself has been announced by then, so a failure here does not refuse it.
void ConfigManager::FireDependents(eParam_t id, timeval time)
try {
    if (ParamDescriptor* const descriptor = GetParamDescriptor(id))
        FireParamsChangedEvents(descriptor->GetDependentParamIDs(), time);
} catch (...) {
    Failed("FireParamsChangedEvents");
}

void ConfigManager::FireDependentsData(ParamDescriptor& descriptor, timeval time)
try {
    FireDataChangedEvents(descriptor.GetDependentParamIDs(), time);
} catch (...) {
    Failed("FireDataChangedEvents");
}
