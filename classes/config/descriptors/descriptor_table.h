/// What the two registries, the main and the generic one, do with their tables.
#pragma once

#include <algorithm>
#include <list>
#include <map>
#include <string>

#include "config/descriptors/param_descriptor.h"

/// Descriptors by identifier. The table owns them.
using DescriptorTable = std::map<eParam_t, ParamDescriptor*>;

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

inline std::list<std::string> ParamIDNamesOf(const DescriptorTable& table)
{
    std::list<std::string> names;
    for (const auto& [id, descriptor] : table) names.push_back(descriptor->GetParamIDName());
    return names;
}

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
