/// ConfigEvent: one change of a parameter, as a record.
#pragma once

#include <sys/time.h>

#include <string>

#include "config/param_ids.h"
#include "config/param_types.h"

/// A plain value. A producer fills the fields of its kind and leaves the others empty. Thread: one at a time.
struct ConfigEvent {
    eParam_t paramID{};
    /// eCParam_EnumValue (3): an integer change. eCParam_StringValue (12): a string or a data change.
    eParamType_t paramType = eCParam_Unset;
    unsigned int value = 0;
    std::string text;
    std::string data;
    timeval time{};  ///< of the change
};
