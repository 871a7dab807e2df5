/// Messages to the service manager that started the daemon.
#pragma once

#include <string>

/// Sends a state, such as "READY=1", to the socket that $NOTIFY_SOCKET names; does nothing without one.
/// Thread: any.
void NotifyServiceManager(const std::string& state);
