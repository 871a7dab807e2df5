/// NetworkTCPClient: the client whose events come over its connection.
#pragma once

#include "config/access/client/network/network_client.h"

namespace vexa::corvalis::config::access {

class StreamReplies;

/// Data values do not travel over TCP: GetData and SetData are those of Config, which end the process.
/// Thread: any, as NetworkClient.
class NetworkTCPClient final : public NetworkClient {
  public:
    /// @param socket  owned from now on; connected.
    NetworkTCPClient(unsigned int connectionID, Socket* socket, eConfigID_t configID);
    ~NetworkTCPClient() override;

    using NetworkClient::RegisterForEvents;
    bool RegisterForEvents(eParam_t id) override;
    bool UnregisterForEvents() override;
    void ProcessEvents() override;

  private:
    NetworkTCPClient(unsigned int connectionID, std::unique_ptr<Socket> socket, StreamReplies* replies,
                     eConfigID_t configID);
    void ProcessEvent();
    std::string ListenerRequest(eMessageType_t type, eParam_t id) const;

    StreamReplies& m_stream;  // the base's replies
};

}  // namespace vexa::corvalis::config::access
