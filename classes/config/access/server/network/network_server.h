/// NetworkServer: lets other programs and hosts reach the stores of this process, over TCP or UDP.
///
///     auto* const server = new NetworkServer(AF_INET, SOCK_STREAM);
///     if (!server->Init() || !server->Start()) ...      // delete it
///     ...
///     server->Stop();                                   // its thread deletes it
///     NetworkServer::WaitUntilStopped(std::chrono::seconds(2));
///
/// Without ListenOn the server listens on every IPv4 address of the host, and without SetRules a program that reaches
/// the port may read and write every parameter, restart and password included.
#pragma once

#include <sys/socket.h>

#include <bit>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "config/access/server/access_rules.h"
#include "config/base/export.h"
#include "config/param_ids.h"

namespace vexa::corvalis::config::access {

/// Made with new. Once Start succeeded, the server's thread owns it and deletes it after Stop, even if the
/// server ended by itself before.
/// Thread: one; Stop and WaitUntilStopped on any.
class VEXA_EXPORT NetworkServer {
  public:
    /// TCP connections of the process at a time: each has a thread.
    static constexpr size_t kMaxConnections = 2048;
    /// Descriptors that connections, which take up to two each, leave to everything else: the response queues of
    /// 1,024 clients, files, other sockets. Half of them all where the process may have few.
    static constexpr size_t kOtherDescriptors = 1100;

    /// @param domain  AF_INET or AF_UNIX.
    /// @param type    SOCK_STREAM: TCP, a thread per client. SOCK_DGRAM: UDP, one thread for all.
    /// @param port    0 lets the system choose; see Port.
    NetworkServer(int domain, int type, int port = 43110);
    ~NetworkServer();
    NetworkServer(const NetworkServer&) = delete;
    NetworkServer& operator=(const NetworkServer&) = delete;

    /// The addresses on which an AF_INET server listens, numeric: of IPv6 only over TCP. "0.0.0.0" and "::" are all of
    /// their kind. All have the same port. Default: every IPv4 address. Before Init.
    void ListenOn(std::vector<std::string> addresses);
    /// Whom it serves, and what they may do. Default: everybody, everything. Before Start.
    void SetRules(std::shared_ptr<const AccessRules> rules);
    /// Makes the socket, in place of an earlier one. Before Start. @return false after one line and the
    /// socket's own.
    bool Init();
    /// The port of the server; valid from Init until Start.
    int Port() const;
    /// The byte order of texts as the clients read and write them. Default the host's own. Before Start.
    void SetPayloadOrder(std::endian order);
    /// How long a TCP client may take nothing although there is something for it, take to connect, and leave a
    /// request unfinished; then it is cut off. Default a minute. Before Start.
    void SetStallTimeout(std::chrono::milliseconds timeout);
    /// Changes of this configuration are multicast from the start of the server, whether or not a client
    /// connected to it. UDP only; before Start.
    void Announce(eConfigID_t configID);
    /// @return false, after its lines, without thread or Init: the caller still owns the server.
    bool Start();
    /// Ends the server, soon; open connections of TCP clients go on. Call it once, on any thread; after a
    /// successful Start the server must not be used any more.
    void Stop();

    /// Waits until every server of the process that was started has been stopped and deleted.
    /// @return false when that takes longer.
    static bool WaitUntilStopped(std::chrono::milliseconds timeout);

  private:
    class Running;
    const std::unique_ptr<Running> m_running;
};

}  // namespace vexa::corvalis::config::access
