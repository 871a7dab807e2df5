#include "config/descriptors/string_descriptor.h"

#include <cstdlib>

#include "config/base/log.h"

void StringDescriptor::SetParamType(eParamType_t type)
{
    if (type != eCParam_StringValue) {
        vexa::Print(
            "StringDescriptor::SetParamType - ERROR: Invalid paramType - must be eCParam_StringValue");
        exit(-1);
    }
    ParamDescriptor::SetParamType(type);
}
