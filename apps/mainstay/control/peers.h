/// The processes at the other end of the control socket.
#pragma once

#include <sys/types.h>

#include <string>

namespace control {

/// A process of this host, as the system names it.
struct Peer {
    pid_t process = 0;
    uid_t user = 0;
    gid_t group = 0;
    std::string text;  ///< "control pid 4711 user engineer program vexactl"
};

/// Who has connected. Thread: any.
Peer PeerOf(int socket);
/// Whether it may control the daemon: root, the daemon's user, and members of the daemon's group. Thread: any.
bool IsPermitted(const Peer& peer);

}  // namespace control
