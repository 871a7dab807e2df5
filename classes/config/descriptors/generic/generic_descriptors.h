/// The generic catalogue: the few parameters that every model shares, in a registry of its own.
///
/// Same contracts as the main registry's namesakes (config/descriptors/registry/registry.h).
#pragma once

#include <list>
#include <string>

#include "config/base/export.h"
#include "config/descriptors/descriptor_table.h"

namespace vexa::config::generic {

VEXA_EXPORT extern DescriptorTable& g_paramDescriptors;

VEXA_EXPORT void CreateGroup_0();
VEXA_EXPORT void CreateGroup_1();
VEXA_EXPORT void CreateDescriptors();
VEXA_EXPORT void DestroyDescriptors();
VEXA_EXPORT ParamDescriptor* GetDescriptor(eParam_t id);
VEXA_EXPORT ParamDescriptor* GetDescriptor(std::string paramIDName);
VEXA_EXPORT std::list<std::string> GetParamIDNames();
VEXA_EXPORT std::list<eParam_t> GetParamIDs();
VEXA_EXPORT bool IsValidParamID(eParam_t id);

}  // namespace vexa::config::generic
