/// NetworkServer: lets other programs and hosts reach the stores of this process, over TCP or UDP.
///
///     auto* const server = new NetworkServer(AF_INET, SOCK_STREAM);
///     if (!server->Init() || !server->Start()) ...      // delete it
///     ...
///     server->Stop();                                   // its thread deletes it
///     NetworkServer::WaitUntilStopped(std::chrono::seconds(2));
///
/// The server listens on every address of the host. Who reaches the port may read and write every parameter,
/// restart and password included: the port belongs behind a firewall.
#pragma once

#include <bit>
#include <chrono>
#include <memory>
#include <vector>

#include "config/access/io/socket.h"
#include "config/access/protocol/network_protocol.h"

namespace vexa::corvalis::config::access {

class NetworkTCPConnection;
class NetworkUDPConnection;

/// Made with new: from a successful Start on it belongs to its thread, which deletes it after Stop, also when
/// it ended by itself earlier.
class NetworkServer {
  public:
    /// @param domain  AF_INET or AF_UNIX.
    /// @param type    SOCK_STREAM: TCP, a thread per client. SOCK_DGRAM: UDP, one thread for all.
    /// @param port    0 lets the system choose; see Port.
    NetworkServer(int domain, int type, int port = kNetworkPort);
    ~NetworkServer();
    NetworkServer(const NetworkServer&) = delete;
    NetworkServer& operator=(const NetworkServer&) = delete;

    /// Makes the socket, in place of an earlier one. Before Start. @return false after one line and the
    /// socket's own.
    bool Init();
    /// The port that it serves; valid from Init until Start.
    int Port() const;
    /// Of texts as the clients read and write them. Default the host's own. Before Start.
    void SetPayloadOrder(std::endian order) { m_payloadOrder = order; }
    /// Changes of this configuration are multicast from the start of the server, whether or not a client
    /// connected to it. UDP only; before Start.
    void Announce(eConfigID_t configID);
    /// @return false, after its lines, without thread or Init: the server is still the caller's.
    bool Start();
    /// Ends the server, soon; connections that TCP clients have go on. Once, on any thread; after a
    /// successful Start the server must not be used any more.
    void Stop();

    /// Waits until every server of the process that was started has been stopped and deleted.
    /// @return false when that takes longer.
    static bool WaitUntilStopped(std::chrono::milliseconds timeout);

  private:
    struct Ending;
    static void* pthread_start(void* server);
    static void Finish(NetworkServer* server);

    void Run();
    void RunTCP();
    void RunUDP();
    template <class Step>
    void RepeatUntilStopped(const Step& step);
    void ServeConnection();
    std::unique_ptr<NetworkTCPConnection> WaitForConnection();
    void WaitForDatagram();
    void PauseIfExhausted(int error);

    const int m_domain, m_type, m_port;
    const std::shared_ptr<Ending> m_ending;  // shared with a Stop that is running while the server goes
    std::unique_ptr<Socket> m_socket;
    std::unique_ptr<NetworkUDPConnection> m_udpConnection;  // of the server's thread
    std::vector<eConfigID_t> m_announced;
    std::endian m_payloadOrder = std::endian::native;
};

}  // namespace vexa::corvalis::config::access
