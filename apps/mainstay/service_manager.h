/// What the daemon tells the service manager that started it.
#pragma once

#include <string>

/// Sends a state, such as "READY=1", to the socket that $NOTIFY_SOCKET names; does nothing without one.
void NotifyServiceManager(const std::string& state);
