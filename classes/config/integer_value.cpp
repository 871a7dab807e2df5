#include <cstdio>

#include "config/config_value.h"
#include "config/descriptors/integer_descriptor.h"
#include "config/descriptors/registry.h"
#include "config/deserializer.h"
#include "config/serializer.h"

// The lock is not recursive: nothing below calls a virtual operation or another value while it is held.

IntegerValue::IntegerValue()
{
    SemaphoreHelper::Init(m_lock);
}

IntegerValue::IntegerValue(eConfigID_t configID, eParam_t paramID, eParamType_t type, unsigned int value)
    : ConfigValue(eClassID_IntegerValue, configID, paramID, type), m_value(value)
{
    SemaphoreHelper::Init(m_lock);
}

IntegerValue::~IntegerValue()
{
    SemaphoreHelper::Destroy(m_lock);
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

void IntegerValue::Get(unsigned int& value)
{
    SemaphoreHelper hold(m_lock);
    value = m_value;
}

void IntegerValue::Set(unsigned int value)
{
    {
        SemaphoreHelper hold(m_lock);
        if (m_value == value) return;
        m_value = value;
    }
    SetDirty(true);
}

bool IntegerValue::IsEqual(Serializable* other)
{
    if (!ConfigValue::IsEqual(other)) return false;
    auto* const integer = dynamic_cast<IntegerValue*>(other);
    if (!integer) return false;
    unsigned int theirs = 0;
    integer->Get(theirs);
    SemaphoreHelper hold(m_lock);
    return m_value == theirs;
}

bool IntegerValue::Serialize(Serializer* serializer)
{
    ConfigValue::Serialize(serializer);
    SemaphoreHelper hold(m_lock);
    serializer->Write("IntegerValue", m_value);
    return true;
}

bool IntegerValue::Deserialize(DeSerializer* deserializer)
{
    ConfigValue::Deserialize(deserializer);
    SemaphoreHelper hold(m_lock);
    return deserializer->Read("IntegerValue", m_value);
}

ConfigValue* IntegerValue::Clone()
{
    SemaphoreHelper hold(m_lock);
    return new IntegerValue(GetConfigID(), GetParamID(), GetParamType(), m_value);
}

void IntegerValue::Copy(ConfigValue& other)
{
    ConfigValue::Copy(other);
    CopyValue(other);
}

void IntegerValue::CopyValue(ConfigValue& other)
{
    auto* const integer = dynamic_cast<IntegerValue*>(&other);
    if (!integer) return;
    unsigned int value = 0;
    integer->Get(value);
    Set(value);
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
