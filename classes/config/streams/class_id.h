/// Identifiers of the serializable classes.
#pragma once

#include <cstdint>

/// Precedes an object in a stream. A peer may send any 32-bit number.
enum eClassID_t : uint32_t {
    eClassID_IntegerValue = 0,
    eClassID_StringValue = 1,
    eClassID_SectorHeader = 6,
    eClassID_Checkpoint = 7,
    eClassID_PresetsParamVector = 8,
    eClassID_Vector = 9,
    eClassID_PackageHeader = 14,
    eClassID_Unset = 17,  ///< of objects that the class factory has not labelled yet; not registered
};
