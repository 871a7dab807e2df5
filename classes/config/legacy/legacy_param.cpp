#include "config/legacy/legacy_param.h"

#include <algorithm>
#include <cstdlib>

#include "config/access/connector/config_factory_impl.h"
#include "config/access/protocol/uri.h"
#include "config/base/log.h"
#include "config/base/semaphore_helper.h"
#include "config/config.h"
#include "config/descriptors/enum_descriptor.h"

namespace {

StaticLock connectLock;

struct ClassOfType {
    uint32_t type;
    int classID;
};

constexpr uint32_t kTypes = 12;
/// The search leaves out the last row, which is the answer for type 12: see GetClassID.
constexpr ClassOfType kClassOfType[kTypes + 1] = {{0, 0}, {1, 0},  {3, 0},  {4, 0},  {5, 0}, {6, 0}, {7, 0},
                                                  {8, 0}, {10, 0}, {11, 0}, {12, 1}, {0, 0}, {0, 0}};

}  // namespace

Config* GetMappingConfig(const std::string& transport)
{
    return ConfigFactoryImpl::GetInstance()->Connect(GetConfigURI(transport));
}

std::atomic<Config*> CParam_ZK9::_pConfigAccess = nullptr;

CParam_ZK9::CParam_ZK9(eParam_t id, eParamType_t type) : CParam(id, type)
{
    if (ConnectOnce()) return;
    vexa::Print("CParam_ZK9::CParam_ZK9 Connect failed\n");
    ConfigFactoryImpl::GetInstance()->Disconnect(nullptr);
    exit(1);
}

CParam_ZK9::CParam_ZK9(eParam_t id, eParamType_t type, Config* config) : CParam(id, type)
{
    SemaphoreHelper hold(connectLock);
    _pConfigAccess = config;
}

namespace {

bool MakeConnection(std::atomic<Config*>& shared) VEXA_REQUIRES(connectLock)
{
    if (!shared) shared = GetMappingConfig("udp");
    return shared != nullptr;
}

}  // namespace

/// @return whether there is a shared connection; first objects on two threads make a single one.
bool CParam_ZK9::ConnectOnce()
{
    SemaphoreHelper hold(connectLock);
    return MakeConnection(_pConfigAccess);
}

unsigned int CParam_ZK9::GetParamValue()
{
    Config* const config = _pConfigAccess;
    return config ? config->Get(GetParamID()) : 0;
}

bool CParam_ZK9::GetParamValue(std::string& value)
{
    Config* const config = _pConfigAccess;
    return config && config->Get(GetParamID(), value);
}

ParamDescriptor* CParam_ZK9::GetParamDescriptor(eParam_t id)
{
    Config* const config = _pConfigAccess;
    return config ? config->GetParamDescriptor(id) : nullptr;
}

eParamType_t CParam_ZK9::GetParamType(eParam_t id)
{
    if (ParamDescriptor* const descriptor = GetParamDescriptor(id)) return descriptor->GetParamType();
    vexa::Print("Bogus descriptor for paramID %0X\n", id);
    return eCParam_Unset;
}

unsigned int CParam_ZK9::GetFactoryValue(eParam_t id)
{
    auto* const integer = dynamic_cast<IntegerDescriptor*>(GetParamDescriptor(id));
    if (!integer || integer->GetParamType() == eCParam_StringValue) return 0;
    return integer->GetFactoryDefault();
}

// The answer comes from the row at the position of the type's number, not from the row of the type: 10 gives
// the class of texts, and 12, the texts themselves, that of numbers. Applications store values by these
// answers, so they stay.
int CParam_ZK9::GetClassID(eParamType_t type)
{
    const auto* const end = kClassOfType + kTypes;
    if (std::find_if(kClassOfType, end, [type](const ClassOfType& row) { return row.type == type; }) != end)
        return kClassOfType[type].classID;
    vexa::Print("Unable to find classID for paramType %d\n", static_cast<int>(type));
    return -1;
}

std::string CParam_ZK9::GetParamName(eParam_t id)
{
    ParamDescriptor* const descriptor = GetParamDescriptor(id);
    return descriptor ? descriptor->GetName() : "BOGUS";
}

std::string CParam_ZK9::GetParamNumber(eParam_t id)
{
    return std::to_string(id >> 24) + "." + std::to_string(id >> 16 & 255) + "." +
           std::to_string(id >> 8 & 255);
}

std::string CParam_ZK9::ToString(eParam_t id)
{
    std::string name = GetParamName(id);
    if (name.empty()) name = GetParamName(static_cast<eParam_t>(id & ~0xff00u));
    if (name.empty()) name = '(' + std::to_string(static_cast<int32_t>(id)) + ')';
    return GetParamNumber(id) + ": " + name;
}

std::string CParam_ZK9::GetParamEnumName(eParam_t id, unsigned int value)
{
    auto* const named = dynamic_cast<EnumDescriptor*>(GetParamDescriptor(id));
    return named ? named->GetEnumValueDescriptor(value).name : "BOGUS";
}
