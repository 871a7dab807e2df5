#include "config/access/client/cache/config_cache.h"
#include "config/base/log.h"
#include "config/descriptors/param_descriptor.h"

namespace {

timeval MakeBindingKey()
{
    timeval now{};
    if (gettimeofday(&now, nullptr) == 0) return now;
    vexa::PrintError("Unable to get bindingKey for ConfigCache");
    return {};
}

/// For an operation that an exception has ended, which is mostly one that found no memory.
bool Failed(const char* operation)
{
    return vexa::Report("ConfigCache::%s - ended by an exception\n", operation);
}

/// @param keep  a value. Without memory everything becomes unknown: an older value must not stay.
template <class Value, class Operation>
void KeepOrForget(vexa::CachedValues<Value>& values, const Operation& keep)
{
    try {
        keep();
    } catch (...) {
        values.ForgetAll();
    }
}

}  // namespace

ConfigCache::ConfigCache(Config* config) : m_config(config), m_bindingKey(MakeBindingKey())
{
    SemaphoreHelper::Init(m_lock);
}

ConfigCache::~ConfigCache()
{
    SemaphoreHelper::Destroy(m_lock);
}

// --- volatility ---

ConfigCache::Volatility ConfigCache::KnownVolatility(eParam_t id) const
{
    SemaphoreHelper hold(m_lock);
    const auto found = m_volatility.find(id);
    return found == m_volatility.end() ? Volatility::Unknown : found->second;
}

/// @return whether it was not known before.
bool ConfigCache::LearnVolatility(eParam_t id, Volatility volatility)
{
    SemaphoreHelper hold(m_lock);
    return std::exchange(m_volatility[id], volatility) == Volatility::Unknown;
}

bool ConfigCache::LookUpVolatility(eParam_t id)
{
    const Volatility known = KnownVolatility(id);
    if (known != Volatility::Unknown) return known == Volatility::Volatile;
    ParamDescriptor* const descriptor = m_config->GetParamDescriptor(id);
    const bool isVolatile = descriptor && descriptor->HasClassName("volatile");
    const bool news = LearnVolatility(id, isVolatile ? Volatility::Volatile : Volatility::NotVolatile);
    if (!descriptor && news)
        vexa::Print("%s: paramID: %08X has a NULL descriptor, please fix.\n", "IsVolatile", id);
    return isVolatile;
}

bool ConfigCache::IsVolatile(eParam_t id)
try {
    return LookUpVolatility(id);
} catch (...) {
    return Failed("IsVolatile");
}

// --- reading and writing ---

unsigned int ConfigCache::Get(eParam_t id)
try {
    if (LookUpVolatility(id)) return m_config->Get(id);
    unsigned int value = 0;
    if (m_numbers.Find(id, value)) return value;
    const auto before = m_numbers.Now(id);
    value = m_config->Get(id);
    KeepOrForget(m_numbers, [&] { m_numbers.StoreFetched(id, value, before); });
    return value;
} catch (...) {
    Failed("Get");
    return 0;
}

bool ConfigCache::Get(eParam_t id, unsigned int& value)
{
    value = Get(id);
    return value != 0;
}

/// @return what the wrapped configuration says.
template <class Value, class Write>
bool ConfigCache::WriteThrough(eParam_t id, vexa::CachedValues<Value>& values, const Value& value,
                               const Write& write)
{
    const auto before = values.Now(id);
    vexa::NoteAnswer(vexa::Answer::kGiven);  // a store in this process notes none
    if (!write()) return false;
    const bool isConfirmed = vexa::LastAnswer() == vexa::Answer::kGiven;
    KeepOrForget(values, [&] { values.StoreWritten(id, value, before, isConfirmed); });
    return true;
}

/// Whether the wrapped configuration has the value, too.
template <class Value, class Fetch>
bool ConfigCache::IsConfirmed(eParam_t id, vexa::CachedValues<Value>& values, const Value& value,
                              const Fetch& fetch)
{
    if (!values.MayBeOvertaken(id, value)) return true;
    const auto before = values.Now(id);
    vexa::NoteAnswer(vexa::Answer::kGiven);  // a store in this process notes none
    Value current{};
    if (!fetch(current) || current != value) return false;
    if (vexa::LastAnswer() == vexa::Answer::kGiven)
        KeepOrForget(values, [&] { values.StoreConfirmed(id, value, before); });
    return true;
}

bool ConfigCache::HasAlready(eParam_t id, unsigned int value)
{
    const auto fetch = [&](unsigned int& current) {
        current = m_config->Get(id);
        return true;
    };
    return Get(id) == value && IsConfirmed(id, m_numbers, value, fetch);
}

bool ConfigCache::HasAlready(eParam_t id, const std::string& data)
{
    const auto fetch = [&](std::string& current) { return m_config->GetData(id, current); };
    return m_data.Holds(id, data) && IsConfirmed(id, m_data, data, fetch);
}

bool ConfigCache::Set(eParam_t id, unsigned int value, timeval time)
try {
    // Without a connection a fetched 0 says nothing.
    if (!LookUpVolatility(id) && HasAlready(id, value) && IsReachable()) {
        vexa::Print(
            "ConfigCache::Set(uint32_t) - non-volatile param, new value is the same as the cached value, "
            "suppressing Set operation\n");
        return true;
    }
    return WriteThrough(id, m_numbers, value, [&] { return m_config->Set(id, value, time); });
} catch (...) {
    return Failed("Set(uint32_t)");
}

bool ConfigCache::Get(eParam_t id, std::string& value)
try {
    if (LookUpVolatility(id)) return m_config->Get(id, value);
    if (m_texts.Find(id, value)) return true;
    const auto before = m_texts.Now(id);
    if (!m_config->Get(id, value)) return false;
    KeepOrForget(m_texts, [&] { m_texts.StoreFetched(id, value, before); });
    return true;
} catch (...) {
    return Failed("Get");
}

bool ConfigCache::Set(eParam_t id, std::string value, timeval time)
try {
    if (LookUpVolatility(id)) return m_config->Set(id, std::move(value), time);
    return WriteThrough(id, m_texts, value, [&] { return m_config->Set(id, value, time); });
} catch (...) {
    return Failed("Set(std::string)");
}

bool ConfigCache::GetData(eParam_t id, std::string& data)
try {
    if (LookUpVolatility(id)) return m_config->GetData(id, data);
    if (m_data.Find(id, data)) return true;
    const auto before = m_data.Now(id);
    if (!m_config->GetData(id, data)) return false;
    KeepOrForget(m_data, [&] { m_data.StoreFetched(id, data, before); });
    return true;
} catch (...) {
    return Failed("GetData");
}

bool ConfigCache::SetData(eParam_t id, std::string& data, timeval time)
try {
    if (LookUpVolatility(id)) return m_config->SetData(id, data, time);
    if (HasAlready(id, data)) return true;
    return WriteThrough(id, m_data, data, [&] { return m_config->SetData(id, data, time); });
} catch (...) {
    return Failed("SetData");
}

// --- events of the wrapped configuration ---

/// @return whether the listeners hear of it.
template <class Value>
bool ConfigCache::IsNews(eParam_t id, vexa::CachedValues<Value>& values, const Value& value)
{
    bool changed = true;  // as far as one knows without memory
    KeepOrForget(values, [&] { changed = values.StoreEvent(id, value); });
    return changed || IsVolatile(id);
}

bool ConfigCache::ParamChanged(eParam_t id, unsigned int value, timeval time)
{
    if (IsNews(id, m_numbers, value)) fireParamChangedEvent(id, value, time);
    return true;
}

bool ConfigCache::ParamChanged(eParam_t id, std::string value, timeval time)
{
    if (IsNews(id, m_texts, value)) fireParamChangedEvent(id, std::move(value), time);
    return true;
}

bool ConfigCache::DataChanged(eParam_t id, std::string& data, timeval time)
{
    if (IsNews(id, m_data, data)) fireDataChangedEvent(id, data, time);
    return true;
}

// --- connection of the wrapped configuration ---

/// Whatever has changed, events were not heard meanwhile.
void ConfigCache::FollowConnection(vexa::ConnectionChange change)
{
    m_numbers.ForgetAll();
    m_texts.ForgetAll();
    m_data.ForgetAll();
    if (change == vexa::ConnectionChange::kEventsMissing)
        TellEventsMissing();
    else
        SetReachable(change == vexa::ConnectionChange::kRestored);
}

// --- own listeners ---

/// The listeners have missed a change, for want of memory.
void ConfigCache::LoseEvent()
{
    Failed("fireParamChangedEvent");
    TellEventsMissing();
}

void ConfigCache::fireParamChangedEvent(eParam_t id, unsigned int value, timeval time)
try {
    m_listeners.TellNumber(id, value, time);
} catch (...) {
    LoseEvent();
}

void ConfigCache::fireParamChangedEvent(eParam_t id, std::string value, timeval time)
try {
    m_listeners.TellText(id, std::move(value), time);
} catch (...) {
    LoseEvent();
}

void ConfigCache::fireDataChangedEvent(eParam_t id, std::string& data, timeval time)
try {
    m_listeners.TellData(id, data, time);
} catch (...) {
    LoseEvent();
}

bool ConfigCache::AddConfigEventListener(ConfigEventListener* listener)
try {
    if (!listener) return false;
    m_listeners.Add(listener);
    return true;
} catch (...) {
    return Failed("AddConfigEventListener");
}

bool ConfigCache::AddConfigEventListener(eParam_t id, ConfigEventListener* listener)
{
    return PassOn(listener, [&] { return m_config->AddConfigEventListener(id, listener); });
}

bool ConfigCache::AddConfigEventListener(std::list<eParam_t> ids, ConfigEventListener* listener)
{
    return PassOn(listener, [&] { return m_config->AddConfigEventListener(std::move(ids), listener); });
}

bool ConfigCache::RemoveConfigEventListener(ConfigEventListener* listener)
{
    m_listeners.RemoveAll(listener);
    m_listeners.WaitForDelivery();
    for (size_t left = ForgetPassedOn(listener); left > 0; --left)
        m_config->RemoveConfigEventListener(listener);
    return true;
}

/// The wrapped configuration borrows the listener until it is removed there, and the caller knows only this
/// cache.
template <class Add>
bool ConfigCache::PassOn(ConfigEventListener* listener, const Add& add)
try {
    std::list<ConfigEventListener*> entry{listener};
    if (!add()) return false;
    SemaphoreHelper hold(m_lock);
    m_passedOn.splice(m_passedOn.end(), entry);
    return true;
} catch (...) {
    return Failed("AddConfigEventListener");
}

/// @return how often it was passed on.
size_t ConfigCache::ForgetPassedOn(ConfigEventListener* listener)
{
    SemaphoreHelper hold(m_lock);
    return std::erase(m_passedOn, listener);
}

// --- passed on ---

ParamDescriptor* ConfigCache::GetParamDescriptor(std::string paramIDName)
{
    return m_config->GetParamDescriptor(std::move(paramIDName));
}

bool ConfigCache::WaitForConfigEvent(ConfigEvent& event, long seconds, long microseconds)
{
    return m_config->WaitForConfigEvent(event, seconds, microseconds);
}

std::vector<ParamDescriptor*> ConfigCache::GetDescriptorsByClassName(std::string name)
{
    return m_config->GetDescriptorsByClassName(std::move(name));
}

// --- binding ---

timeval ConfigCache::bindingKey() const
{
    SemaphoreHelper hold(m_lock);
    return m_bindingKey;
}

bool ConfigCache::bind(const ConfigCache& other)
{
    const timeval key = other.bindingKey();
    SemaphoreHelper hold(m_lock);
    m_bindingKey = key;
    return key.tv_sec != 0 || key.tv_usec != 0;
}
