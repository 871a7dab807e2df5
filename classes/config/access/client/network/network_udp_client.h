/// NetworkUDPClient: the client whose events come by multicast.
#pragma once

#include "config/access/client/network/datagram_replies.h"
#include "config/access/client/network/network_client.h"
#include "config/base/event_queue.h"

namespace vexa::corvalis::config::access {

/// A client on a connected socket asks its server and listens on a socket of its own for events; a client on
/// a socket bound for multicast only listens: every request fails there.
///
/// Integer events go through a queue with a thread of its own, so that the receiving thread is back at its
/// socket at once. The order of integer events stays, and that of string and data events; the order between
/// the two groups does not. Both threads end at the event that announces the system's shutdown. Thread: any,
/// as NetworkClient.
class NetworkUDPClient final : public NetworkClient {
  public:
    /// @param socket  owned from now on; connected, or bound for multicast.
    NetworkUDPClient(unsigned int connectionID, Socket* socket, eConfigID_t configID);
    ~NetworkUDPClient() override;

    using NetworkClient::Get;
    using NetworkClient::Set;
    bool Get(eParam_t id, std::string& value) override;
    /// @return whether the store accepted the value; false after a minute without an answer as well.
    bool Set(eParam_t id, unsigned int value, timeval time) override;
    bool GetData(eParam_t id, std::string& data) override;
    /// True says that the request was sent. False for more than a request can hold.
    using NetworkClient::SetData;
    bool SetData(eParam_t id, std::string& data, timeval time) override;

    bool ConfirmDisconnect() override;
    using NetworkClient::RegisterForEvents;
    bool RegisterForEvents() override;
    bool UnregisterForEvents() override;
    void ProcessEvents() override;
    /// Keeps its place in the order of operations; no value is ever dirty here.
    virtual bool IsDirty(eParam_t, eConfigID_t) { return false; }

  private:
    NetworkUDPClient(unsigned int connectionID, std::unique_ptr<Socket> socket, DatagramReplies* replies,
                     eConfigID_t configID);
    void DropEvents();
    void ResponseQueueHandler();
    bool ProcessEvent(const char* data, size_t length);
    void Enqueue(const XCONFIGMGR_RESPONSE_T& event);
    bool AwaitQueuedEvent();
    bool TakeQueuedEvent(const ListenerList::Turn& turn, XCONFIGMGR_RESPONSE_T& event);
    void StopQueue();

    DatagramReplies& m_datagrams;  // the base's replies
    Mutex m_queueLock;
    CondVar m_queueChanged;
    bool m_stopQueue VEXA_GUARDED_BY(m_queueLock) = false;
    EventQueue<XCONFIGMGR_RESPONSE_T> m_queue VEXA_GUARDED_BY(m_queueLock){"NetworkUDPClient"};
    std::thread m_queueThread;
};

}  // namespace vexa::corvalis::config::access
