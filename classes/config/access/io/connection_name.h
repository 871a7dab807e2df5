/// The names that logs give to network connections.
#pragma once

#include <cstdint>
#include <string>

namespace vexa::corvalis::config::access {

/// The program of the process that a connection identifier holds in its low half; "event" for the identifiers
/// of events; empty when there is no such process. The name of a process is cached for good. It is right only
/// for peers on this host, if they send their own identifier. Thread: any.
std::string GetConnectionName(uint32_t connectionID);

}  // namespace vexa::corvalis::config::access
