/// The clients of the message queues: their response queues and the messages to them.
#pragma once

#include <mqueue.h>
#include <poll.h>

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "config/access/protocol/mq_protocol.h"
#include "config/base/semaphore_helper.h"

namespace vexa::config::access {

/// No operation waits for a client: replies to a client whose queue is full are kept until there is room,
/// events are lost. Thread: any.
class QueueClients {
  public:
    /// Connections at a time; each one has a descriptor.
    static constexpr size_t kMaxClients = 1024;
    /// Replies that are kept for a client. A client waits for each of its replies, so further ones have no
    /// receiver.
    static constexpr size_t kMaxReplies = 64;

    QueueClients();
    ~QueueClients();
    QueueClients(const QueueClients&) = delete;
    QueueClients& operator=(const QueueClients&) = delete;

    /// Opens the response queue of a connection, anew if it is known. @return false after one line.
    bool Connect(uint32_t connectionID);
    /// Forgets a connection, after the replies that wait.
    void Disconnect(uint32_t connectionID);
    /// @param wanted  whether the connection gets events from now on. @return false when it cannot be opened.
    bool SetEvents(uint32_t connectionID, bool wanted);

    /// Sends the bytes of a reply. A connection that is not known is connected first: its client has outlived
    /// an earlier daemon.
    void Reply(uint32_t connectionID, const std::string& reply);
    /// Sends an event to every client that wants it. @param event  with any connection identifier.
    void SendEvent(XCONFIGMGR_RESPONSE_T event, const std::string& stream);
    /// The longest stream that fits beside the record into a message for a connection; 0 when it is not
    /// known.
    size_t MaxStream(uint32_t connectionID) const;

    /// Whether replies wait for room.
    bool HasWaitingReplies() const;
    /// Sends them, as far as there is room.
    void SendWaitingReplies();
    /// Appends the queues for whose room replies wait.
    void AppendPollEntries(std::vector<pollfd>& descriptors) const;

  private:
    struct Client {
        mqd_t queue = -1;
        size_t messageBytes = 0;
        bool wantsEvents = false;
        unsigned int lostEvents = 0;  // since the last one that was sent
        std::deque<std::string> replies;
        bool isLeaving = false;  // is dropped after the last reply
    };
    using Clients = std::map<uint32_t, Client>;

    bool Open(uint32_t connectionID) VEXA_REQUIRES(m_lock);
    Clients::iterator Drop(Clients::iterator client) VEXA_REQUIRES(m_lock);
    void DropWithoutQueue() VEXA_REQUIRES(m_lock);
    bool SendOrQueue(Client& client, const std::string& reply) VEXA_REQUIRES(m_lock);
    void SendWaitingReplies(Client& client) VEXA_REQUIRES(m_lock);
    bool CountLost(const Clients::value_type& entry, Client& client) VEXA_REQUIRES(m_lock);

    mutable LockSemaphore m_lock;
    Clients m_clients VEXA_GUARDED_BY(m_lock);
    size_t m_waitingReplies VEXA_GUARDED_BY(m_lock) = 0;  // of all of them
};

}  // namespace vexa::config::access
