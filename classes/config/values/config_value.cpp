#include "config/values/config_value.h"

#include <cstdio>

#include "config/descriptors/integer_descriptor.h"
#include "config/descriptors/registry/registry.h"
#include "config/descriptors/string_descriptor.h"
#include "config/streams/deserializer.h"
#include "config/streams/serializer.h"

bool ConfigValue::IsEqual(Serializable* other)
{
    if (!Serializable::IsEqual(other)) return false;
    auto* const value = dynamic_cast<ConfigValue*>(other);
    return value && value->GetConfigID() == GetConfigID() && value->GetParamID() == GetParamID() &&
           value->GetParamType() == GetParamType() && value->IsDirty() == IsDirty();
}

bool ConfigValue::Serialize(Serializer* serializer)
{
    serializer->Write("ConfigID", static_cast<int>(m_configID));
    serializer->Write("ParamID", static_cast<unsigned int>(m_paramID));
    serializer->Write("ParamType", static_cast<int>(m_paramType));
    return true;
}

bool ConfigValue::Deserialize(DeSerializer* deserializer)
{
    unsigned int configID = 0, paramID = 0, paramType = 0;
    deserializer->Read("ConfigID", configID);
    deserializer->Read("ParamID", paramID);
    const bool ok = deserializer->Read("ParamType", paramType);
    m_configID = static_cast<eConfigID_t>(configID);
    m_paramID = eParam_t{paramID};
    m_paramType = eParamType_t{paramType};
    return ok;
}

void ConfigValue::SetConfigID(eConfigID_t id)
{
    if (id == m_configID) return;
    m_configID = id;
    SetDirty(true);
}

void ConfigValue::SetParamID(eParam_t id)
{
    if (id == m_paramID) return;
    m_paramID = id;
    SetDirty(true);
}

void ConfigValue::SetParamType(eParamType_t type)
{
    if (type == m_paramType) return;
    m_paramType = type;
    SetDirty(true);
}

void ConfigValue::Copy(ConfigValue& other)
{
    SetConfigID(other.GetConfigID());
}

std::string ConfigValue::ToString()
{
    char text[80];
    snprintf(text, sizeof text, "configID = %d, paramID = 0x%0X, paramType = %d", GetConfigID(),
             static_cast<unsigned int>(GetParamID()), static_cast<int>(GetParamType()));
    return text;
}

// --- TypedValue: the lock is not recursive, so nothing here calls another value or an override under it ---

template <class T>
TypedValue<T>::TypedValue(const char* fieldName) : m_fieldName(fieldName)
{
    SemaphoreHelper::Init(m_lock);
}

template <class T>
TypedValue<T>::TypedValue(const char* fieldName, eClassID_t classID, eConfigID_t configID, eParam_t paramID,
                          eParamType_t type, T value)
    : ConfigValue(classID, configID, paramID, type), m_fieldName(fieldName), m_value(std::move(value))
{
    SemaphoreHelper::Init(m_lock);
}

template <class T>
TypedValue<T>::~TypedValue()
{
    SemaphoreHelper::Destroy(m_lock);
}

template <class T>
void TypedValue<T>::Get(T& value)
{
    SemaphoreHelper hold(m_lock);
    value = m_value;
}

template <class T>
void TypedValue<T>::Set(T value)
{
    {
        SemaphoreHelper hold(m_lock);
        if (m_value == value) return;
        std::swap(m_value, value);  // a moved-to text would keep the memory of a longer one
    }
    SetDirty(true);
}

template <class T>
bool TypedValue<T>::IsEqual(Serializable* other)
{
    if (!ConfigValue::IsEqual(other)) return false;
    auto* const value = dynamic_cast<TypedValue*>(other);
    if (!value) return false;
    T theirs{};
    value->Get(theirs);
    SemaphoreHelper hold(m_lock);
    return m_value == theirs;
}

template <class T>
bool TypedValue<T>::Serialize(Serializer* serializer)
{
    ConfigValue::Serialize(serializer);
    SemaphoreHelper hold(m_lock);
    serializer->Write(m_fieldName, m_value);
    return true;
}

template <class T>
bool TypedValue<T>::Deserialize(DeSerializer* deserializer)
{
    ConfigValue::Deserialize(deserializer);
    SemaphoreHelper hold(m_lock);
    return deserializer->Read(m_fieldName, m_value);
}

template <class T>
void TypedValue<T>::Copy(ConfigValue& other)
{
    ConfigValue::Copy(other);
    CopyValue(other);
}

template <class T>
void TypedValue<T>::CopyValue(ConfigValue& other)
{
    auto* const value = dynamic_cast<TypedValue*>(&other);
    if (!value) return;
    T theirs{};
    value->Get(theirs);
    Set(std::move(theirs));
}

template class TypedValue<unsigned int>;
template class TypedValue<std::string>;

// --- IntegerValue ---

IntegerValue::IntegerValue() : TypedValue("IntegerValue") {}

IntegerValue::IntegerValue(eConfigID_t configID, eParam_t paramID, eParamType_t type, unsigned int value)
    : TypedValue("IntegerValue", eClassID_IntegerValue, configID, paramID, type, value)
{
}

IntegerValue* IntegerValue::Create(eConfigID_t configID, eParam_t paramID, eParamType_t type,
                                   unsigned int value)
{
    return new IntegerValue(configID, paramID, type, value);
}

IntegerValue* IntegerValue::Create(eParam_t paramID, eParamType_t type, unsigned int value)
{
    return Create(0, paramID, type, value);
}

ConfigValue* IntegerValue::Clone()
{
    unsigned int value = 0;
    Get(value);
    return new IntegerValue(GetConfigID(), GetParamID(), GetParamType(), value);
}

void IntegerValue::ResetToFactory()
{
    if (auto* const descriptor = dynamic_cast<IntegerDescriptor*>(FindDescriptor(GetParamID())))
        Set(descriptor->GetFactoryDefault());
}

std::string IntegerValue::ToString()
{
    unsigned int value = 0;
    Get(value);
    char text[48];
    snprintf(text, sizeof text, ", value = %d = 0X%x", static_cast<int>(value), value);
    return ConfigValue::ToString() + text;
}

// --- StringValue ---

StringValue::StringValue() : TypedValue("StringValue") {}

StringValue::StringValue(eConfigID_t configID, eParam_t paramID, eParamType_t type, std::string value)
    : TypedValue("StringValue", eClassID_StringValue, configID, paramID, type, std::move(value))
{
}

StringValue* StringValue::Create(eConfigID_t configID, eParam_t paramID, eParamType_t type, std::string value)
{
    return new StringValue(configID, paramID, type, std::move(value));
}

StringValue* StringValue::Create(eParam_t paramID, eParamType_t type, std::string value)
{
    return Create(0, paramID, type, std::move(value));
}

ConfigValue* StringValue::Clone()
{
    std::string value;
    Get(value);
    return new StringValue(GetConfigID(), GetParamID(), GetParamType(), std::move(value));
}

void StringValue::ResetToFactory()
{
    if (auto* const descriptor = dynamic_cast<StringDescriptor*>(FindDescriptor(GetParamID())))
        Set(descriptor->GetFactoryDefault());
}

std::string StringValue::ToString()
{
    std::string value;
    Get(value);
    return ConfigValue::ToString() + ", value = " + value;
}
