/// What the device says of itself.
#pragma once

#include <string>

#include "config/config.h"

namespace actions {

/// As eParamID_SystemState numbers them. The end is missing deliberately: clients take 9 for the end of the
/// device and stop listening, which is wrong when only the daemon starts anew.
enum class SystemState : unsigned int { kRunning = 4, kShuttingDown = 8 };

/// Serial number, Ethernet address, software version, flash information: what of it the unit and its model have.
void SetIdentity(Config& store, const std::string& version);
void SetSystemState(Config& store, SystemState state);

}  // namespace actions
