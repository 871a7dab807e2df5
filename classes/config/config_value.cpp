#include "config/config_value.h"

#include <cstdio>

#include "config/deserializer.h"
#include "config/serializer.h"

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
