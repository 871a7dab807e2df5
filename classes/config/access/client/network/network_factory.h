/// NetworkFactory: makes network clients for URIs.
#pragma once

#include <atomic>
#include <string>

namespace vexa::corvalis::config::access {

class NetworkClient;

/// Applications use the connector (config/access/connector/config_factory_impl.h), which has one. Thread:
/// any.
class NetworkFactory {
  public:
    /// A client for "tcp://HOST:PORT", "udp://..." (connected when this returns) or "multicast://..." (which
    /// only listens), for the configuration behind "configid=", else 0. With "byteorder=big" texts have the
    /// device's byte order, for a server on a host of the other order; else the host's own.
    /// @return null after one line or more; give a client back with Disconnect.
    NetworkClient* Connect(std::string uri);
    /// @param client  must not be used any more; null is ignored.
    void Disconnect(NetworkClient* client);

  private:
    static std::atomic<unsigned int> s_connection_counter;
};

}  // namespace vexa::corvalis::config::access
