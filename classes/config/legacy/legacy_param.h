/// CParam: an older handle on one parameter, for application code that was written before Config.
///
///     CParam_ZK9 take(eParamID_Take, eCParam_IntegerValue);
///     printf("%s is %u\n", take.ToString(take.GetParamID()).c_str(), take.GetParamValue());
///
/// New code uses Config and the descriptors.
#pragma once

#include <atomic>
#include <string>

#include "config/base/export.h"
#include "config/param_ids.h"
#include "config/param_types.h"

class Config;
class ParamDescriptor;

/// Connects to this device's configuration over a transport ("udp", "tcp").
/// @return null on failure. Give it back to the connector.
/// Thread: any; blocks while the server is looked for, as long as the transport does.
VEXA_EXPORT Config* GetMappingConfig(const std::string& transport);

/// A plain value: an identifier and a type.
/// The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT CParam {
  public:
    /// @param type  kept as given; the descriptor may know another one.
    CParam(eParam_t id, eParamType_t type) : m_paramID(id), m_paramType(type) {}
    CParam(const CParam&) = default;
    CParam& operator=(const CParam&) = default;
    virtual ~CParam() = default;

    /// Holds a place in the order; never called.
    virtual unsigned int Reserved() = 0;
    /// The number; 0 when there is none.
    virtual unsigned int GetParamValue() = 0;
    /// The text. @return false, with `value` untouched, when there is none.
    virtual bool GetParamValue(std::string& value) = 0;
    /// Whether there is a value that was not saved.
    virtual bool IsDirty() = 0;
    /// Borrowed; null when there is none.
    virtual ParamDescriptor* GetParamDescriptor(eParam_t id) = 0;
    /// The identifier, by its other old name.
    virtual eParam_t GetParamEnum() { return m_paramID; }
    /// As given to the constructor; the descriptor may know another one.
    virtual eParamType_t GetParamType() { return m_paramType; }
    /// As given to the constructor.
    virtual eParam_t GetParamID() { return m_paramID; }
    /// Whether menus show the parameter while it is disabled: never.
    virtual bool ShowWhenDisabled() { return false; }

  private:
    eParam_t m_paramID;
    eParamType_t m_paramType;
};

/// Works through one connection that all objects of the process share.
/// Thread: any, as far as the connection allows it.
class VEXA_EXPORT CParam_ZK9 : public CParam {
  public:
    /// The first object connects over UDP, and waits for the server as long as that transport does. The
    /// connection is never released. Without one the process ends with exit status 1 after a message: these
    /// applications can do nothing else.
    CParam_ZK9(eParam_t id, eParamType_t type);
    /// Replaces the shared connection of all objects, without releasing the earlier one.
    /// @param config  borrowed as long as any object is used; with null the accessors find nothing and the
    /// next object connects.
    CParam_ZK9(eParam_t id, eParamType_t type, Config* config);

    using CParam::GetParamType;
    unsigned int Reserved() override { return 0; }
    unsigned int GetParamValue() override;
    bool GetParamValue(std::string& value) override;
    /// Always false.
    bool IsDirty() override { return false; }
    ParamDescriptor* GetParamDescriptor(eParam_t id) override;
    /// Holds a place in the order; never called.
    virtual unsigned int ReservedToo() { return 0; }
    /// Of this object's parameter.
    virtual ParamDescriptor* GetParamDescriptor() { return GetParamDescriptor(GetParamID()); }

    // About any parameter that the connection knows.
    /// Of the descriptor; 0, after one line on standard error, when there is none.
    eParamType_t GetParamType(eParam_t id);
    /// 0 for parameters without a number.
    unsigned int GetFactoryValue(eParam_t id);
    /// The class of the value object of a type; -1, after one line on standard error, when it is unknown.
    int GetClassID(eParamType_t type);
    int GetClassID(eParam_t id) { return GetClassID(GetParamType(id)); }
    /// The display name; "BOGUS" when there is no descriptor.
    std::string GetParamName(eParam_t id);
    /// "125.2.1": group, item and sub-item.
    std::string GetParamNumber(eParam_t id);
    /// "125.2.1: Name".
    std::string ToString(eParam_t id);
    /// The name of a value, "Invalid" for one that is not listed; "BOGUS" when the parameter has no named
    /// values.
    std::string GetParamEnumName(eParam_t id, unsigned int value);

  private:
    static bool ConnectOnce();

    static std::atomic<Config*> _pConfigAccess;
};
