/// The requests that tell about the servers of the process: clients, stats, version.
#pragma once

#include <sys/time.h>

#include <string>

#include "mainstay/control/control.h"

namespace control {

/// "2026-02-28T13:05:09.123Z". Thread: any.
std::string TimeText(timeval time);
std::string Now();

/// Adds them, and help, which names all that are there when it is asked for.
/// @param handlers  complete but for these.
void AddReports(Handlers& handlers);

}  // namespace control
