/// Whether a configuration that the connector handed out can be reached, and who is told when that changes.
#pragma once

#include "config/access/protocol/connection.h"
#include "config/base/export.h"

class Config;

namespace vexa {

/// False after the last exchange with the server failed or its connection was lost, until one succeeds, and
/// while no events can come although somebody listens. A cache answers for the client that it wraps. True for
/// configurations that cannot be lost. Thread: any.
VEXA_EXPORT bool IsReachable(const Config& config);

/// Tells the listener when the configuration is lost or restored, and when its events may be missing. A TCP
/// client notices a loss at once while somebody listens to its events, else with the next exchange; a UDP
/// client that listens asks its server every few seconds whether it is still there, and cannot reach one that
/// was restarted: connect anew.
/// @param listener  borrowed until it is removed; remove it before the configuration is given back.
/// @return false, with nothing done, for a configuration that cannot be lost and without memory. Thread: any.
VEXA_EXPORT bool AddConnectionListener(Config& config, ConnectionListener* listener);
/// Waits for a running callback of another thread. Thread: any.
VEXA_EXPORT void RemoveConnectionListener(Config& config, ConnectionListener* listener);

}  // namespace vexa
