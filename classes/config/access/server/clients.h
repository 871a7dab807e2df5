/// Who the servers of this process serve, and what they have counted.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <string>
#include <vector>

#include "config/base/export.h"
#include "config/param_ids.h"

namespace vexa::corvalis::config::access {

/// One client, as it was at one moment.
struct ClientInfo {
    std::string transport;       ///< "tcp", "unix", "udp", "queue"
    std::string address;         ///< "10.0.0.5:51234", "pid 4711 user engineer"
    std::string program;         ///< of a client on this host, if it can be known
    timeval since{};             ///< when it was accepted; over UDP and queues, when it connected
    bool listens = false;        ///< never over UDP: there the daemon does not know who hears its events
    uint64_t waitingEvents = 0;  ///< at most: some of them may have been overtaken
    uint64_t skippedEvents = 0;  ///< overtaken by newer ones of their parameters before they could be sent
    uint64_t requests = 0, setRequests = 0;
    eConfigID_t configID = 0;
    uint64_t denied = 0;  ///< requests that it may not make
    std::string right;    ///< "read", "write", "admin"
};

/// All clients. Nobody waits for it longer than for a few of them. Thread: any; hold no lock.
VEXA_EXPORT std::vector<ClientInfo> Clients();

/// A count since the start of the process.
struct ServerCount {
    const char* transport;  ///< "tcp", "udp", "queue"
    const char* name;       ///< "requests", "bytes_in", ...
    const char* kind;       ///< of requests: "get", "set", ...; otherwise empty
    uint64_t value;
};

/// All counts, always the same ones in the same order. Thread: any.
VEXA_EXPORT std::vector<ServerCount> ServerCounts();

}  // namespace vexa::corvalis::config::access
