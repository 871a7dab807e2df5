/// The control daemon: its store and the servers by which applications reach it.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vexa::corvalis::config::access {
class NetworkServer;
}
class Config;

struct Options {
    int tcpPort = 0, udpPort = 0;  ///< 0: a free one
    bool noTcp = false, noUdp = false;
};

/// Thread: the main thread.
class Daemon {
  public:
    ~Daemon();

    /// Opens the store and starts the servers.
    /// @return false after one line of what is wrong.
    bool Start(const Options& options);
    /// "TCP port 43110, UDP port 43110".
    std::string Endpoints() const { return m_endpoints; }

  private:
    using Server = vexa::corvalis::config::access::NetworkServer;
    bool StartServer(int socketType, int port, const char* name);

    Config* m_store = nullptr;
    std::vector<Server*> m_servers;  // each is freed by its own thread after Stop
    std::string m_endpoints;
};
