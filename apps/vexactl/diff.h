/// The verb diff. Thread: that of the session.
#pragma once

#include <string>

#include "vexactl/session.h"

/// Compares settings. @param first, second  each a file, a device, or "defaults"; an empty second one is the device of
/// the session. @return kFalse when they differ.
ExitStatus Diff(Session& session, const std::string& first, const std::string& second);
