/// The enumerations on a descriptor. All are 32-bit and may hold any number that came from elsewhere.
#pragma once

#include <cstdint>

/// Value type of a parameter. In change events 3 marks an integer change and 12 a string or data change.
enum eParamType_t : uint32_t {
    eCParam_Unset = 0,
    eCParam_Boolean = 1,
    eCParam_Signed = 2,
    eCParam_EnumValue = 3,     ///< the usual type of an EnumDescriptor
    eCParam_IntegerValue = 4,  ///< the usual type of an IntegerDescriptor
    eCParam_Decimal = 5,       ///< known to the legacy accessor only
    eCParam_IPAddress = 6,
    eCParam_Date = 7,
    eCParam_Time = 8,
    eCParam_Counter = 10,
    eCParam_Legacy = 11,       ///< known to the legacy accessor only
    eCParam_StringValue = 12,  ///< every StringDescriptor, DataDescriptor and AlarmDescriptor
};

/// Feature class of a parameter.
enum eFeature_t : uint32_t { eFeature_0 = 0, eFeature_1 = 1, eFeature_2 = 2, eFeature_3 = 3, eFeature_5 = 5 };

/// Whether the value is kept across restarts.
enum ePersist_t : uint32_t { ePersist = 0, ePersist_Exclude = 1 };

/// Whether the value is part of user registers and presets.
enum eUserRegisterData_t : uint32_t { eRegister_Include = 0, eRegister_Exclude = 1 };

/// Which factory reset sets the value to its default.
enum eFactoryReset_t : uint32_t {
    eFactoryReset_Exclude = 0,
    eFactoryReset_Include = 1,
    eFactoryReset_Network = 2,  ///< settings that survive an ordinary reset: network, clock, identity
};

/// Has one value, and no effect.
enum eAccess_t : uint32_t { eAccess_Default = 0 };
