/// The control daemon: its store and the servers by which applications reach it.
#pragma once

#include <bit>
#include <memory>
#include <string>
#include <vector>

namespace vexa::corvalis::config::access {
class NetworkServer;
}
class Config;
namespace vexa::config::access {
class QueueService;
}

/// Where and how the daemon serves.
struct Options {
    int tcpPort = 0, udpPort = 0;                    ///< 0: a free one
    std::endian payloadOrder = std::endian::native;  ///< of texts on the network
    int stallSeconds = 60;                           ///< that a TCP client may take nothing
    bool noTcp = false, noUdp = false, noQueues = false;
};

/// Thread: the main thread.
class Daemon {
  public:
    Daemon();
    ~Daemon();

    /// Opens the store and starts the servers.
    /// @return false after one line with the reason.
    bool Start(const Options& options);
    /// "queue /mainstay, TCP port 43110, UDP port 43110".
    std::string Endpoints() const { return m_endpoints; }

  private:
    using Server = vexa::corvalis::config::access::NetworkServer;
    bool StartServer(int socketType, int port, const Options& options, const char* name);

    bool StartQueues();
    void AddEndpoint(const std::string& endpoint);

    Config* m_store = nullptr;
    std::unique_ptr<vexa::config::access::QueueService> m_queues;
    std::vector<Server*> m_servers;  // each is freed by its own thread after Stop
    std::string m_endpoints;
};
