/// The generic catalogue: the few parameters that every model shares, in a registry of its own.
///
/// Same contracts as the main registry's namesakes (config/descriptors/registry/registry.h).
#pragma once

#include <list>
#include <string>

#include "config/descriptors/descriptor_table.h"

namespace vexa::config::generic {

extern DescriptorTable& g_paramDescriptors;

void CreateGroup_0();
void CreateGroup_1();
void CreateDescriptors();
void DestroyDescriptors();
ParamDescriptor* GetDescriptor(eParam_t id);
ParamDescriptor* GetDescriptor(std::string paramIDName);
std::list<std::string> GetParamIDNames();
std::list<eParam_t> GetParamIDs();
bool IsValidParamID(eParam_t id);

}  // namespace vexa::config::generic
