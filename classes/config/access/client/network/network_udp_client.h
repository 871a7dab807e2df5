/// NetworkUDPClient: the client whose events come by multicast.
#pragma once

#include "config/access/client/network/datagram_replies.h"
#include "config/access/client/network/event_gaps.h"
#include "config/access/client/network/network_client.h"
#include "config/delivery/backlog.h"

namespace vexa::corvalis::config::access {

/// A client on a connected socket asks its server and listens on a socket of its own for events; a client on
/// a socket bound for multicast only listens: every request fails there.
///
/// Events go through a queue with a thread of its own, so that the receiving thread is back at its socket at
/// once, however slow a listener is: they are heard in the order in which they came. Both threads end at the
/// event that announces the system's shutdown, after which the client counts as lost until a listener is
/// added. What is lost on the way is told to the connection's listeners; what is received while nobody
/// listens is dropped. While somebody listens, the server is asked every few seconds whether it is still
/// there. Its threads log with VEXA_LOG only: datagrams of other configurations are nothing unusual.
/// Thread: any, as NetworkClient.
class NetworkUDPClient final : public NetworkClient {
  public:
    /// Of the newest events of all parameters: what finds no room is told as missing.
    static constexpr size_t kMaxEventBytes = size_t{16} * 1024 * 1024;
    /// How often the server is asked whether it is there, by default. It has half of that for the answer, in
    /// two requests, for one may be lost.
    static constexpr unsigned int kProbeMs = 4'000;

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
    /// In milliseconds; from the next time on.
    void SetProbeInterval(unsigned int interval) { m_probeMs = interval; }
    /// Keeps its place in the order of operations; no value is ever dirty here.
    virtual bool IsDirty(eParam_t, eConfigID_t) { return false; }

  private:
    NetworkUDPClient(unsigned int connectionID, std::unique_ptr<Socket> socket, DatagramReplies* replies,
                     eConfigID_t configID);
    void DropEvents(bool keepLaterOnes);
    bool HasQueue();
    bool StartQueue();
    void ResponseQueueHandler();
    void DeliverQueued(const Message& message);
    bool ReceiveEvents(const vexa::Deadline& probe);
    bool ProcessEvent(const char* data, size_t length, const sockaddr_in& from);
    void NoteGaps(const XCONFIGMGR_RESPONSE_T& event, const sockaddr_in& from);
    void Enqueue(eParam_t id, Message event);
    void Probe();
    bool AwaitQueuedEvent();
    bool TakeQueuedEvent(const ListenerList::Turn& turn, Message& event);
    void StopQueue();

    DatagramReplies& m_datagrams;  // the base's replies
    std::atomic<unsigned int> m_probeMs = kProbeMs;
    Mutex m_queueLock;
    CondVar m_queueChanged;
    std::atomic<bool> m_stopQueue = false;  // set under the lock
    bool m_receiverEnded VEXA_GUARDED_BY(m_queueLock) = false, m_queueEnded
                                                               VEXA_GUARDED_BY(m_queueLock) = false;
    bool m_keepsEvents VEXA_GUARDED_BY(m_queueLock) = false;  // somebody listens
    Backlog<Message> m_queue VEXA_GUARDED_BY(m_queueLock){kMaxEventBytes};
    EventGaps m_gaps VEXA_GUARDED_BY(m_queueLock);
    EventsThread m_queueThread{Threads()};
};

}  // namespace vexa::corvalis::config::access
