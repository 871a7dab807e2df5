/// Several devices as one. Thread: the main thread.
#pragma once

#include <functional>

#include "vexactl/session.h"

/// Runs a command at the device of the session or, when it names several, at all of them, many at a time.
/// @param endsSoon  so that a bar can show how many have ended.
/// @return the status; of several devices the highest one.
ExitStatus OnDevices(Session& session, const std::function<ExitStatus(Session&)>& command, bool endsSoon);
