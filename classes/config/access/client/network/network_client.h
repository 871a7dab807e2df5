/// NetworkClient: a Config whose store is in another process, behind a network server.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <bit>
#include <memory>

#include "config/access/client/network/delivery_threads.h"
#include "config/access/client/network/reply_source.h"
#include "config/access/io/socket.h"
#include "config/access/protocol/connection.h"
#include "config/base/semaphore_helper.h"
#include "config/descriptors/catalogue_config.h"
#include "config/listeners/listener_list.h"

namespace vexa::corvalis::config::access {

/// The common part of TCP and UDP clients: requests and their replies, the listeners and the thread that
/// calls them. NetworkFactory makes clients and takes them back.
///
/// A Get whose reply does not come within a minute ends the process, deliberately: an application of the
/// device cannot go on without its configuration server. A reply that cannot come any more, because the
/// connection is gone, only fails. Parameters and descriptors come from this process's own catalogue. A
/// request lets no exception out: without memory it fails, after one line.
/// Thread: any. Listeners are called on the client's own threads, one at a time, and may use the client.
class NetworkClient : public vexa::CatalogueConfig, public vexa::Connection {
  public:
    /// The destructors of derived classes end the threads before.
    ~NetworkClient() override;
    NetworkClient(const NetworkClient&) = delete;
    NetworkClient& operator=(const NetworkClient&) = delete;

    using Config::Set;
    unsigned int Get(eParam_t id) override;
    /// @return the value as a bool, so a stored 0 looks like a failure; old callers depend on it.
    bool Get(eParam_t id, unsigned int& value) override;
    bool Get(eParam_t id, std::string& value) override;
    /// Over TCP the server sends no answer: true says that the request was sent.
    bool Set(eParam_t id, unsigned int value, timeval time) override;
    /// True says that the request was sent. More than a request can hold is a programming error and ends the
    /// process, in release builds as well.
    bool Set(eParam_t id, std::string value, timeval time) override;
    eConfigID_t GetConfigID() override { return m_configID; }
    timeval GetLastConfigUpdate() override { return {}; }

    using Config::AddConfigEventListener;
    bool AddConfigEventListener(ConfigEventListener* listener) override;
    bool AddConfigEventListener(eParam_t id, ConfigEventListener* listener) override;
    bool RemoveConfigEventListener(ConfigEventListener* listener) override;

    /// The handshakes. @return whether the server agreed in time (a minute, a second).
    virtual bool ConfirmConnection();
    virtual bool ConfirmDisconnect();
    /// Asks for events of one parameter (0: all), or of all.
    virtual bool RegisterForEvents(eParam_t) { return false; }
    virtual bool RegisterForEvents() { return false; }
    virtual bool UnregisterForEvents() = 0;
    /// The events thread: receives and delivers until there is nothing more to come.
    virtual void ProcessEvents() = 0;

    /// Ends the events thread; the client is of no further use. From a callback, the thread ends after it.
    void StopEventsThread();
    /// Deletes a client, which may be in a callback of its own: then it is deleted after the callback.
    static void Release(NetworkClient* client);

    /// In milliseconds. Default a minute.
    void SetReplyTimeout(unsigned int timeout) { m_replyTimeout = timeout; }
    /// The byte order of texts as the server reads and writes them. Default the host's own. Before the first
    /// use of the client.
    void SetPayloadOrder(std::endian order) { m_payloadOrder = order; }

  protected:
    /// @param socket   connected, or bound for multicast.
    /// @param replies  of that socket.
    /// @param eventsThreadName  at most 15 characters.
    NetworkClient(unsigned int connectionID, std::unique_ptr<Socket> socket,
                  std::unique_ptr<ReplySource> replies, eConfigID_t configID, const char* eventsThreadName);

    unsigned int ConnectionID() const { return m_connectionID; }
    Socket& GetSocket() const { return *m_socket; }
    ListenerList& Listeners() { return m_listeners; }
    DeliveryThreads& Threads() { return m_threads; }
    /// Whether the client is ending: no further event is delivered.
    bool IsStopping() const { return m_stopEvents; }
    /// For the end of ProcessEvents: a listener that is added later has it started anew.
    void MarkEventsEnded() { m_eventsThread.MarkEnded(); }
    /// Whether there is a server that answers: not for a client that is bound for multicast.
    bool HasServer() const { return m_hasServer; }
    void NoteExchange(bool isAnswered);
    /// Whether a thread is in an exchange, which will show whether the server is there.
    bool IsExchanging() const { return m_isExchanging; }
    /// Whether events come, which a listener waits for: without them the client counts as lost.
    void SetDeaf(bool isDeaf);

    XCONFIGMGR_CONNECTION_REQUEST_T Prefix(eMessageType_t type) const;
    XCONFIGMGR_REQUEST_T Request(eMessageType_t type, eParam_t id) const;
    /// Sends a request and waits for its reply. @param otherType  of a reply that is accepted as well; 0:
    /// none.
    Outcome Exchange(const XCONFIGMGR_REQUEST_T& request, uint32_t replyType, Message& reply,
                     uint32_t otherType = 0);
    Outcome Exchange(const std::string& request, const ReplyMatch& match, unsigned int timeout,
                     Message& reply);
    bool SendOnly(const std::string& request);
    unsigned int ReplyTimeout() const { return m_replyTimeout; }
    /// Whether a Get was answered; if not, prints one line. Without an answer in time it ends the process.
    /// @param operation, fatal  the beginnings of the lines.
    bool HasReply(Outcome outcome, const char* operation, const char* fatal);
    /// Notes whether the server answered without an error. @return the same.
    static bool IsGiven(uint32_t error);
    /// For an operation that an exception has ended: prints one line. @return false.
    bool Failed(const char* operation);
    /// Whether the parameter exists; if not, prints one line that names the operation.
    bool Knows(eParam_t id, const char* operation);
    std::string WithStringPayload(eParam_t id, const std::string& value, timeval time) const;
    /// @return false, with the text untouched, when the message holds none.
    bool ReadText(const Message& message, std::string& text) const;

    StaticLock m_exchangeLock;  // one exchange at a time

    /// Call the listeners.
    void Deliver(const XCONFIGMGR_RESPONSE_T& event);
    void Deliver(const XCONFIGMGR_RESPONSE_T& event, std::string text);

  private:
    bool StartEventsThread();
    bool Send(const std::string& request, const ReplyMatch& match, unsigned int timeout)
        VEXA_REQUIRES(m_exchangeLock);
    [[noreturn]] void EndProcess(const char* operation);
    bool FinishHandshake(const char* operation, eMessageType_t request, Outcome outcome,
                         const XCONFIGMGR_CONNECTION_RESPONSE_T& response);

    const unsigned int m_connectionID;
    const eConfigID_t m_configID;
    const char* const m_eventsThreadName;
    const std::unique_ptr<Socket> m_socket;
    const std::unique_ptr<ReplySource> m_replies;
    std::atomic<unsigned int> m_replyTimeout = kReplyTimeoutMs;
    std::endian m_payloadOrder = std::endian::native;
    const bool m_hasServer;
    std::atomic<bool> m_isDeaf = false, m_isExchanging = false;
    ListenerList m_listeners;
    Mutex m_registrationLock VEXA_ACQUIRED_BEFORE(m_exchangeLock);  // first registration and last removal
    bool m_registered VEXA_GUARDED_BY(m_registrationLock) = false;
    std::atomic<bool> m_stopEvents = false;
    DeliveryThreads m_threads{[this] { delete this; }};
    EventsThread m_eventsThread{m_threads};
};

}  // namespace vexa::corvalis::config::access
