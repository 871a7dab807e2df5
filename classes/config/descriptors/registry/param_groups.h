/// Parameter groups: the pages of the front ends.
#pragma once

#include <list>

#include "config/param_ids.h"

/// The registered parameters of one group, ascending: those whose identifier has the group in its high byte.
/// A group that no catalogue builder fills is empty.
/// @param visibleOnly  leaves out parameters with the class name "hidden_param".
std::list<eParam_t> GetParamGroup(int group, bool visibleOnly);

/// The groups of one front-end page each.
std::list<int> GetWBColorGroups();
std::list<int> GetEIShutterGroups();
std::list<int> GetFormatFPSParamGroups();
std::list<int> GetMediaParamGroups();
std::list<int> GetConfigParamGroups();
