/// Parameter groups: the pages of the front ends.
#pragma once

#include <list>

#include "config/base/export.h"
#include "config/param_ids.h"

/// The registered parameters of one group, ascending: those whose identifier has the group in its high byte.
/// A group that no catalogue builder fills is empty.
/// @param visibleOnly  leaves out parameters with the class name "hidden_param".
VEXA_EXPORT std::list<eParam_t> GetParamGroup(int group, bool visibleOnly);

// The groups of one front-end page each.

/// White balance and colour.
VEXA_EXPORT std::list<int> GetWBColorGroups();
/// Exposure index and shutter.
VEXA_EXPORT std::list<int> GetEIShutterGroups();
/// Formats and frame rates.
VEXA_EXPORT std::list<int> GetFormatFPSParamGroups();
/// Recording, clips and media.
VEXA_EXPORT std::list<int> GetMediaParamGroups();
/// Settings of the unit.
VEXA_EXPORT std::list<int> GetConfigParamGroups();
