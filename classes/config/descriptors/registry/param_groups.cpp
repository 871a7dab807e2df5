#include "config/descriptors/registry/param_groups.h"

#include "config/descriptors/registry/registry.h"

std::list<eParam_t> GetParamGroup(int group, bool visibleOnly)
{
    std::list<eParam_t> ids;
    for (const auto& [id, descriptor] : g_paramDescriptors) {
        if (static_cast<int>(id >> 24) != group) continue;
        if (visibleOnly && descriptor->HasClassName("hidden_param")) continue;
        ids.push_back(id);
    }
    return ids;
}

// clang-format off
std::list<int> GetWBColorGroups()        { return {23}; }
std::list<int> GetEIShutterGroups()      { return {24}; }
std::list<int> GetFormatFPSParamGroups() { return {2, 14, 41}; }
std::list<int> GetMediaParamGroups()     { return {12, 15, 16, 17, 19, 22}; }
std::list<int> GetConfigParamGroups()    { return {1, 2, 4, 6, 8, 9, 13, 32, 35, 41, 50, 55, 70, 80, 91, 99}; }
// clang-format on
