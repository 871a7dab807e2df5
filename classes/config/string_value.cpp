#include "config/config_value.h"
#include "config/descriptors/registry.h"
#include "config/descriptors/string_descriptor.h"
#include "config/deserializer.h"
#include "config/serializer.h"

// The lock is not recursive: nothing below calls a virtual operation or another value while it is held.

StringValue::StringValue()
{
    SemaphoreHelper::Init(m_lock);
}

StringValue::StringValue(eConfigID_t configID, eParam_t paramID, eParamType_t type, std::string value)
    : ConfigValue(eClassID_StringValue, configID, paramID, type), m_value(std::move(value))
{
    SemaphoreHelper::Init(m_lock);
}

StringValue::~StringValue()
{
    SemaphoreHelper::Destroy(m_lock);
}

StringValue* StringValue::Create(eConfigID_t configID, eParam_t paramID, eParamType_t type, std::string value)
{
    return new StringValue(configID, paramID, type, std::move(value));
}

StringValue* StringValue::Create(eParam_t paramID, eParamType_t type, std::string value)
{
    return Create(0, paramID, type, std::move(value));
}

void StringValue::Get(std::string& value)
{
    SemaphoreHelper hold(m_lock);
    value = m_value;
}

void StringValue::Set(std::string value)
{
    {
        SemaphoreHelper hold(m_lock);
        if (m_value == value) return;
        m_value = std::move(value);
    }
    SetDirty(true);
}

bool StringValue::IsEqual(Serializable* other)
{
    if (!ConfigValue::IsEqual(other)) return false;
    auto* const text = dynamic_cast<StringValue*>(other);
    if (!text) return false;
    std::string theirs;
    text->Get(theirs);
    SemaphoreHelper hold(m_lock);
    return m_value == theirs;
}

bool StringValue::Serialize(Serializer* serializer)
{
    ConfigValue::Serialize(serializer);
    SemaphoreHelper hold(m_lock);
    serializer->Write("StringValue", m_value);
    return true;
}

bool StringValue::Deserialize(DeSerializer* deserializer)
{
    ConfigValue::Deserialize(deserializer);
    SemaphoreHelper hold(m_lock);
    return deserializer->Read("StringValue", m_value);
}

ConfigValue* StringValue::Clone()
{
    SemaphoreHelper hold(m_lock);
    return new StringValue(GetConfigID(), GetParamID(), GetParamType(), m_value);
}

void StringValue::Copy(ConfigValue& other)
{
    ConfigValue::Copy(other);
    CopyValue(other);
}

void StringValue::CopyValue(ConfigValue& other)
{
    auto* const text = dynamic_cast<StringValue*>(&other);
    if (!text) return;
    std::string value;
    text->Get(value);
    Set(std::move(value));
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
