#include "config/descriptors/string_descriptor.h"

#include <cstdio>
#include <cstdlib>

void StringDescriptor::SetParamType(eParamType_t type)
{
    if (type != eCParam_StringValue) {
        fputs("StringDescriptor::SetParamType - ERROR: Invalid paramType - must be eCParam_StringValue",
              stderr);
        exit(-1);
    }
    ParamDescriptor::SetParamType(type);
}
