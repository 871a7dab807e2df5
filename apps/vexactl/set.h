/// The verb set. Thread: that of the session.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vexactl/session.h"

struct SetOptions {
    bool force = false;             ///< also read-only parameters
    bool yes = false;               ///< nobody is asked
    std::optional<double> confirm;  ///< seconds, see rollback.h
};

/// @param words  "FanSpeed 70", or "FanSpeed=70 ReelName=x", of which all are checked before one is sent. The
/// value "-" is read from standard input.
ExitStatus Set(Session& session, const std::vector<std::string>& words, const SetOptions& options);
