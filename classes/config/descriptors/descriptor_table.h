/// The process-wide table of all parameters, and the operations that the main and the generic registry share.
///
/// Thread: the table is built, and its language switched, by one thread before the first Config is connected
/// (registry/registry.h); afterwards it is only read, by any thread and without a lock. The table owns every
/// descriptor.
#pragma once

#include <algorithm>
#include <cstddef>
#include <list>
#include <map>
#include <string>

#include "config/base/export.h"
#include "config/descriptors/param_descriptor.h"

/// Descriptors by identifier. The table owns them.
using DescriptorTable = std::map<eParam_t, ParamDescriptor*>;

/// Null when the table has none.
inline ParamDescriptor* FindIn(const DescriptorTable& table, eParam_t id)
{
    const auto found = table.find(id);
    return found == table.end() ? nullptr : found->second;
}

/// The first descriptor with this symbolic name, exactly; null when there is none.
inline ParamDescriptor* FindNameIn(const DescriptorTable& table, const std::string& paramIDName)
{
    const auto found = std::ranges::find_if(
        table, [&](const auto& entry) { return entry.second->GetParamIDName() == paramIDName; });
    return found == table.end() ? nullptr : found->second;
}

/// The symbolic names, in the order of the table.
inline std::list<std::string> ParamIDNamesOf(const DescriptorTable& table)
{
    std::list<std::string> names;
    for (const auto& [id, descriptor] : table) names.push_back(descriptor->GetParamIDName());
    return names;
}

/// The identifiers, in the order of the table.
inline std::list<eParam_t> ParamIDsOf(const DescriptorTable& table)
{
    std::list<eParam_t> ids;
    for (const auto& [id, descriptor] : table) ids.push_back(id);
    return ids;
}

/// Deletes in identifier order; each descriptor leaves the table right after.
inline void DeleteAllIn(DescriptorTable& table)
{
    while (!table.empty()) {
        delete table.begin()->second;
        table.erase(table.begin());
    }
}

/// The table itself, ascending by identifier, which is the order of every listing below.
VEXA_EXPORT extern DescriptorTable& g_paramDescriptors;

/// The descriptor of an identifier. Never null: an unknown identifier gets a bare placeholder named "1.2.3.4"
/// after its four bytes. Each call makes a new one that is never freed, so this is not for identifiers from a
/// peer.
VEXA_EXPORT ParamDescriptor* GetDescriptor(eParam_t id);
/// The first descriptor with this symbolic name, exactly; null when there is none.
VEXA_EXPORT ParamDescriptor* GetDescriptor(std::string paramIDName);
/// Refused: a literal 0 would otherwise be converted to a text.
VEXA_EXPORT ParamDescriptor* GetDescriptor(std::nullptr_t) = delete;
/// The descriptor of an identifier, or null when it is not registered. For identifiers from anywhere.
VEXA_EXPORT ParamDescriptor* FindDescriptor(eParam_t id);
/// Whether the identifier is registered.
VEXA_EXPORT bool IsValidParamID(eParam_t id);
/// The identifier with this symbolic name, 0 when there is none.
VEXA_EXPORT eParam_t GetParamNameParamID(std::string paramIDName);
/// All symbolic names.
VEXA_EXPORT std::list<std::string> GetParamIDNames();
/// All identifiers.
VEXA_EXPORT std::list<eParam_t> GetParamIDs();

/// Two-line value names for the front panel that has two lines; takes effect at the next build.
VEXA_EXPORT void SetEncodeDescriptors(bool encode);
VEXA_EXPORT bool GetEncodeDescriptors();
