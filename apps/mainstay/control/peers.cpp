#include "mainstay/control/peers.h"

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <vector>

#include "config/base/local_process.h"

namespace control {

namespace {

bool IsMember(const Peer& peer, gid_t group)
{
    std::array<char, 4096> strings;
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(peer.user, &entry, strings.data(), strings.size(), &found);
    if (!found) return false;
    int count = 64;
    std::vector<gid_t> groups(static_cast<size_t>(count));
    while (getgrouplist(found->pw_name, peer.group, groups.data(), &count) == -1 &&
           static_cast<size_t>(count) > groups.size())
        groups.resize(static_cast<size_t>(count));
    groups.resize(std::min(groups.size(), static_cast<size_t>(std::max(count, 0))));
    return std::ranges::find(groups, group) != groups.end();
}

}  // namespace

Peer PeerOf(int socket)
{
    ucred process{};
    process.uid = process.gid = static_cast<uid_t>(-1);
    socklen_t length = sizeof process;
    getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &process, &length);
    Peer peer{process.pid, process.uid, process.gid, ""};
    peer.text = "control " + vexa::ProcessText(peer.process, peer.user);
    if (const std::string program = vexa::ProgramName(peer.process); !program.empty())
        peer.text += " program " + program;
    return peer;
}

bool IsPermitted(const Peer& peer)
{
    if (peer.user == static_cast<uid_t>(-1)) return false;  // the system did not say
    return peer.user == 0 || peer.user == geteuid() || peer.group == getegid() || IsMember(peer, getegid());
}

}  // namespace control
