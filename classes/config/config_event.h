/// ConfigEvent: one change of a parameter, as a record.
#pragma once

#include <sys/time.h>

#include <string>

#include "config/param_ids.h"
#include "config/param_types.h"

/// A plain value. A producer fills the fields of its kind and leaves the others empty. Thread: one at a time.
struct ConfigEvent {
    eParam_t paramID{};  ///< the parameter that changed
    /// eCParam_EnumValue (3): an integer change. eCParam_StringValue (12): a string or a data change.
    eParamType_t paramType = eCParam_Unset;
    unsigned int value = 0;  ///< of an integer change
    std::string text;        ///< of a string change
    std::string data;        ///< of a data change
    timeval time{};          ///< of the change
};
