/// Messages to the service manager that started the daemon.
#pragma once

#include <chrono>
#include <optional>
#include <string>

/// Sends a state, such as "READY=1", to the socket that $NOTIFY_SOCKET names; does nothing without one.
/// Thread: any.
void NotifyServiceManager(const std::string& state);
/// How often the service manager wants to hear "WATCHDOG=1": twice in its time. Nothing where it does not.
std::optional<std::chrono::nanoseconds> WatchdogInterval();
