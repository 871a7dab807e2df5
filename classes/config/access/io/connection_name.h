/// The names that logs give to network connections.
#pragma once

#include <cstdint>
#include <string>

namespace vexa::corvalis::config::access {

/// The program of the process that a connection identifier holds in its low half; "event" for the identifiers
/// of events; empty when there is no such process. The answer for a process is kept for good, and holds only
/// for peers on this host: the identifier is what the peer says. Thread: any.
std::string GetConnectionName(uint32_t connectionID);

}  // namespace vexa::corvalis::config::access
