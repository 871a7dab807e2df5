/// NetworkClient: a Config whose store is in another process, behind a network server.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <bit>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "config/access/client/network/reply_source.h"
#include "config/config.h"
#include "config/listeners/listener_list.h"

namespace vexa::corvalis::config::access {

/// What TCP and UDP clients share: requests and their replies, the listeners and the thread that calls them.
/// NetworkFactory makes clients and takes them back.
///
/// A Get whose reply does not come within a minute ends the process, deliberately: an application of the
/// device cannot go on without its configuration server. A reply that cannot come any more, because the
/// connection is gone, only fails. Numbers, parameters and descriptors are this process's own catalogue's.
/// Nothing is thrown at the caller of a request: without memory it fails, after one line.
/// Thread: any. Listeners are called on the client's own threads, one at a time, and may use the client.
class NetworkClient : public Config {
  public:
    /// @param socket  owned from now on; connected, or bound for multicast.
    NetworkClient(unsigned int connectionID, Socket* socket, eConfigID_t configID);
    /// Derived classes end their threads before.
    ~NetworkClient() override;
    NetworkClient(const NetworkClient&) = delete;
    NetworkClient& operator=(const NetworkClient&) = delete;

    using Config::Set;
    unsigned int Get(eParam_t id) override;
    /// @return the value as a bool, so a stored 0 looks like a failure; old callers depend on it.
    bool Get(eParam_t id, unsigned int& value) override;
    bool Get(eParam_t id, std::string& value) override;
    /// Over TCP nothing is answered: true says that the request was sent.
    bool Set(eParam_t id, unsigned int value, timeval time) override;
    /// True says that the request was sent. More than a request can hold is a programming error and ends the
    /// process, in release builds as well.
    bool Set(eParam_t id, std::string value, timeval time) override;
    eConfigID_t GetConfigID() override { return m_configID; }
    timeval GetLastConfigUpdate() override { return {}; }
    ParamDescriptor* GetParamDescriptor(eParam_t id) override;
    ParamDescriptor* GetParamDescriptor(std::string paramIDName) override;
    std::list<eParam_t> GetParamIDs() override;

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
    /// Deletes a client, which may be in a callback of its own: then it goes after the callback.
    static void Release(NetworkClient* client);

    /// False after an exchange failed or the connection was lost, until an exchange succeeds.
    bool IsReachable() const { return m_reachable; }
    /// In milliseconds. Default a minute.
    void SetReplyTimeout(unsigned int timeout) { m_replyTimeout = timeout; }
    /// Of texts as the server reads and writes them. Default the host's own. Before the first use of the client.
    void SetPayloadOrder(std::endian order) { m_payloadOrder = order; }

  protected:
    enum class Outcome { kReplied, kNotSent, kTimedOut, kFailed };

    XCONFIGMGR_CONNECTION_REQUEST_T Prefix(eMessageType_t type) const;
    XCONFIGMGR_REQUEST_T Request(eMessageType_t type, eParam_t id) const;
    /// Sends a request and waits for its reply. @param otherType  of a reply that will do as well; 0: none.
    Outcome Exchange(const XCONFIGMGR_REQUEST_T& request, uint32_t replyType, Message& reply,
                     uint32_t otherType = 0);
    Outcome Exchange(const std::string& request, const ReplyMatch& match, unsigned int timeout,
                     Message& reply);
    bool SendOnly(const std::string& request);
    unsigned int ReplyTimeout() const { return m_replyTimeout; }
    /// Whether a Get was answered; if not, prints one line. Without an answer in time it ends the process.
    /// @param operation, fatal  what the lines begin with.
    bool HasReply(Outcome outcome, const char* operation, const char* fatal);
    /// For an operation that ends by an exception, for want of memory: prints one line. @return false.
    bool Failed(const char* operation);
    /// Whether the parameter exists; if not, prints one line that names the operation.
    bool Knows(eParam_t id, const char* operation);
    std::string WithStringPayload(eParam_t id, const std::string& value, timeval time) const;
    /// @return false, with the text untouched, when the message holds none.
    bool ReadText(const Message& message, std::string& text) const;

    bool StartEventsThread();
    /// A thread that calls listeners. One of them may release the client: the thread deletes it at its end.
    /// Signals are left to the application's own threads.
    /// @param name  of the thread, at most 15 characters.
    std::thread StartDeliveryThread(const char* name, std::function<void()> body);
    static void Join(std::thread& thread);
    void Deliver(const XCONFIGMGR_RESPONSE_T& event);
    void Deliver(const XCONFIGMGR_RESPONSE_T& event, const std::string& text);
    void RunEventsThread();

    const unsigned int m_connectionID;
    const eConfigID_t m_configID;
    const std::unique_ptr<Socket> m_socket;
    const std::unique_ptr<ReplySource> m_replies;
    std::unique_ptr<Socket> m_eventSocket;  // of its own, for UDP clients that listen
    ListenerList m_listeners;
    std::atomic<bool> m_stopEvents = false;
    std::atomic<bool> m_reachable = true;

  private:
    [[noreturn]] void EndProcess(const char* operation);
    Outcome Receive(char* bytes, unsigned int length);
    bool FinishHandshake(const char* operation, eMessageType_t request, Outcome outcome,
                         const XCONFIGMGR_CONNECTION_RESPONSE_T& response);

    std::atomic<unsigned int> m_replyTimeout = kReplyTimeoutMs;
    std::endian m_payloadOrder = std::endian::native;
    LockSemaphore m_exchangeLock;   // one exchange at a time
    std::mutex m_registrationLock;  // first registration and last removal; before m_exchangeLock
    bool m_registered = false;      // guarded by m_registrationLock
    std::mutex m_threadLock;        // guards the next two
    std::thread m_eventsThread;
    bool m_eventsRunning = false;
    std::atomic<std::thread::id> m_deletingThread;  // the delivery thread that has to delete the client
};

}  // namespace vexa::corvalis::config::access
