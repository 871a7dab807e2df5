/// The generic catalogue: the few parameters that every model shares, in a registry of its own.
///
/// Same contracts as the main registry's namesakes (config/descriptors/registry/registry.h).
#pragma once

#include <list>
#include <string>

#include "config/base/export.h"
#include "config/descriptors/descriptor_table.h"

namespace vexa::config::generic {

/// The table of the generic parameters; owns the descriptors.
VEXA_EXPORT extern DescriptorTable& g_paramDescriptors;

/// Registers the password and what asks for it.
VEXA_EXPORT void CreateGroup_0();
/// Registers backup and restore.
VEXA_EXPORT void CreateGroup_1();
/// Registers both groups, unless that was done.
VEXA_EXPORT void CreateDescriptors();
/// Deletes the descriptors: pointers handed out earlier dangle.
VEXA_EXPORT void DestroyDescriptors();
/// Borrowed from the table; a placeholder, never null, for an unknown identifier.
VEXA_EXPORT ParamDescriptor* GetDescriptor(eParam_t id);
VEXA_EXPORT ParamDescriptor* GetDescriptor(std::string paramIDName);
/// The symbolic names, "eParamID_Authentication", ascending by identifier.
VEXA_EXPORT std::list<std::string> GetParamIDNames();
/// Ascending.
VEXA_EXPORT std::list<eParam_t> GetParamIDs();
/// Whether it is one of the generic parameters.
VEXA_EXPORT bool IsValidParamID(eParam_t id);

}  // namespace vexa::config::generic
