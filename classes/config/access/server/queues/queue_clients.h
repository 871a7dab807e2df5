/// The clients of the message queues: their response queues and the messages to them.
#pragma once

#include <mqueue.h>
#include <poll.h>

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/access/protocol/mq_protocol.h"
#include "config/access/server/access_rules.h"
#include "config/access/server/queues/queue_events.h"
#include "config/access/server/traffic.h"

namespace vexa::config::access {

/// What is known of a client.
struct QueueClient {
    corvalis::config::access::ClientInfo info;  ///< from its connection
    std::string origin;                         ///< of the changes that it asks for
    corvalis::config::access::Traffic traffic;
    std::atomic<bool> isGone = false;
};

/// Each client gets its replies and its events in the order in which they were made. No operation waits for a
/// client: what finds its queue full is sent when there is room. Of the events of a client that lags, only
/// the newest of each parameter are sure to be kept.
/// Thread: any; the service has one for requests and one that sends what waits.
class QueueClients {
  public:
    /// Connections at a time; each one has a descriptor.
    static constexpr size_t kMaxClients = 1024;
    /// Replies that are kept for a client. A client waits for each of its replies, so further ones have no
    /// receiver.
    static constexpr size_t kMaxReplies = 64;

    /// @param events  borrowed.
    explicit QueueClients(QueueEvents& events) : m_changes(events) {}
    ~QueueClients();
    QueueClients(const QueueClients&) = delete;
    QueueClients& operator=(const QueueClients&) = delete;

    /// What is listed as the right of each. Before the first client.
    void SetRight(corvalis::config::access::Right right) { m_right = right; }
    /// Opens the response queue of a connection, anew if it is known. @return false after one line.
    bool Connect(uint32_t connectionID);
    /// Forgets a connection, after the replies that wait.
    void Disconnect(uint32_t connectionID);
    /// @param wanted  whether the connection gets events from now on. @return false when it cannot be opened.
    bool SetEvents(uint32_t connectionID, bool wanted);

    /// Null: the connection is not known.
    std::shared_ptr<QueueClient> Find(uint32_t connectionID);
    /// Sends the bytes of a reply. A connection that is not known is connected first: its client has outlived
    /// an earlier daemon, and gets events, because it may have listened.
    void Reply(uint32_t connectionID, const std::string& reply);
    /// The longest stream that fits beside the record into a message for a connection; 0 when it cannot be
    /// opened.
    size_t MaxStream(uint32_t connectionID);

    /// Wakes the thread that sends what waits, if a client waits for an event.
    void PassOn();
    /// Sends what waits, as far as there is room, but not much at a time. @return whether more can be sent
    /// now.
    bool SendWaiting();
    /// Appends the queues for whose room something waits.
    void AppendPollEntries(std::vector<pollfd>& descriptors);
    /// For after a poll that has found room in one of them.
    void RetryFull();
    /// Forgets the clients that have ended without saying so, and removes their queues.
    void DropGone();
    /// Tells the clients that they are not connected any more.
    void SayGoodbye();
    /// The same to those that an earlier daemon may have known.
    static void SayGoodbyeToStrangers();

  private:
    using Position = Backlog<QueueEvent>::Position;
    struct WaitingReply {
        std::string bytes;
        Position after;  // the event before it
    };
    struct Client {
        uint32_t connectionID = 0;
        std::shared_ptr<QueueClient> known;
        mqd_t queue = -1;
        size_t messageBytes = 0;
        bool holdsLock = false;  // on its queue, as long as it lives
        bool wantsEvents = false;
        bool isFull = false;  // the queue was, when something was sent last
        Position position = 0;
        uint64_t missed = 0;  // events
        std::deque<WaitingReply> replies;
        bool isLeaving = false;  // is dropped after the last reply
    };
    using Clients = std::map<uint32_t, Client>;

    /// Holds the lock for a request, which the sending of events gives way to.
    class VEXA_SCOPED_CAPABILITY Request {
      public:
        explicit Request(QueueClients& clients) VEXA_ACQUIRE(clients.m_lock);
        ~Request() VEXA_RELEASE();
        Request(const Request&) = delete;
        Request& operator=(const Request&) = delete;

      private:
        QueueClients& m_clients;
    };

    void AppendClients(std::vector<corvalis::config::access::ClientInfo>& clients) const;
    Client* Open(uint32_t connectionID) VEXA_REQUIRES(m_lock);
    Client* FindOrAdopt(uint32_t connectionID) VEXA_REQUIRES(m_lock);
    Clients::iterator Drop(Clients::iterator client) VEXA_REQUIRES(m_lock);
    static bool IsGone(const Client& client);
    void DropAllGone() VEXA_REQUIRES(m_lock);
    void SetWanted(Client& client, bool wanted) VEXA_REQUIRES(m_lock);
    void SetFull(Client& client, bool isFull) VEXA_REQUIRES(m_lock);
    void TakeChanges() VEXA_REQUIRES(m_lock);
    void SendToAll() VEXA_REQUIRES(m_lock);
    bool SendOrKeep(Client& client, const std::string& reply) VEXA_REQUIRES(m_lock);
    bool SendAll(Client& client, size_t maxEvents) VEXA_REQUIRES(m_lock);
    bool SendEvents(Client& client, Position end, size_t maxEvents) VEXA_REQUIRES(m_lock);
    static bool SendEvent(const Client& client, const QueueEvent& event, std::string& message);
    static void CountMissed(Client& client, uint64_t count);
    void DropRead() VEXA_REQUIRES(m_lock);

    QueueEvents& m_changes;
    corvalis::config::access::Right m_right = corvalis::config::access::Right::kAdmin;
    std::atomic<unsigned int> m_requests = 0;  // that hold the lock or wait for it
    mutable Mutex m_lock;
    CondVar m_requestEnded;
    Clients m_clients VEXA_GUARDED_BY(m_lock);
    Backlog<QueueEvent> m_events VEXA_GUARDED_BY(m_lock);  // that some client has yet to get
    size_t m_listeners VEXA_GUARDED_BY(m_lock) = 0, m_fullClients VEXA_GUARDED_BY(m_lock) = 0;
    bool m_hasNews VEXA_GUARDED_BY(m_lock) = false;  // since SendWaiting
    const corvalis::config::access::ListedSource m_listed{[this](auto& clients) { AppendClients(clients); }};
};

}  // namespace vexa::config::access
