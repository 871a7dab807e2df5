/// NetworkTCPClient: the client whose events come over its connection.
#pragma once

#include "config/access/client/network/network_client.h"

namespace vexa::corvalis::config::access {

class StreamReplies;

/// Data values do not travel over TCP: GetData and SetData are those of Config, which end the process.
class NetworkTCPClient final : public NetworkClient {
  public:
    using NetworkClient::NetworkClient;
    ~NetworkTCPClient() override;

    using NetworkClient::RegisterForEvents;
    bool RegisterForEvents(eParam_t id) override;
    bool UnregisterForEvents() override;
    void ProcessEvents() override;

  private:
    void ProcessEvent(StreamReplies& stream);
    std::string ListenerRequest(eMessageType_t type, eParam_t id) const;
};

}  // namespace vexa::corvalis::config::access
