/// PosixMQClient: a Config whose store is in the control daemon, behind message queues.
#pragma once

#include <mqueue.h>
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <vector>

#include "config/access/client/queues/exchange_lock.h"
#include "config/access/client/queues/live_clients.h"
#include "config/access/client/queues/mq_reader.h"
#include "config/config.h"
#include "config/config_factory.h"

namespace vexa::config::access {

/// PosixMQFactory makes clients and takes them back.
///
/// Numbers and texts are the daemon's; parameters and descriptors are this process's own catalogue's. A
/// number or text must fit into one message of the queue.
/// Thread: any. Listeners are called one at a time, on threads that the system starts or on one that waits for
/// events. They may use the client and disconnect it; adding and removing listeners of the same client, and
/// waiting for its events, is refused to them.
class PosixMQClient : public Config, public Runnable {
  public:
    /// @param requestQueue  borrowed. @param responseQueue  owned from now on.
    /// A queue that cannot be asked for its message size ends the process.
    PosixMQClient(unsigned int connectionID, unsigned int priority, mqd_t requestQueue, mqd_t responseQueue,
                  std::shared_ptr<SharedExchanges> shared, eConfigID_t configID);
    ~PosixMQClient() override;
    PosixMQClient(const PosixMQClient&) = delete;
    PosixMQClient& operator=(const PosixMQClient&) = delete;

    using Config::Set;
    /// A stored 0 and a failure look alike.
    unsigned int Get(eParam_t id) override;
    eConfigID_t GetConfigID() override { return m_configID; }
    /// As the last answer told it.
    timeval GetLastConfigUpdate() override;
    ParamDescriptor* GetParamDescriptor(eParam_t id) override;
    ParamDescriptor* GetParamDescriptor(std::string paramIDName) override;
    std::list<eParam_t> GetParamIDs() override;
    /// The daemon stamps the change; the time is not sent.
    bool Set(eParam_t id, unsigned int value, timeval time) override;
    /// @return the value as a bool, so a stored 0 looks like a failure; old callers depend on it.
    bool Get(eParam_t id, unsigned int& value) override;
    bool Set(eParam_t id, std::string value, timeval time) override;
    bool Get(eParam_t id, std::string& value) override;

    using Config::AddConfigEventListener;
    /// The same listener can be added twice and then hears everything twice.
    bool AddConfigEventListener(ConfigEventListener* listener) override;
    bool AddConfigEventListener(eParam_t, ConfigEventListener*) override { return false; }
    /// Removes one entry. True also for a listener that was not there.
    bool RemoveConfigEventListener(ConfigEventListener* listener) override;
    /// Waits without a limit; the two numbers are ignored. Listeners are called on this thread meanwhile.
    /// @return false when the client is disconnected, among others; true with the event untouched after a
    /// message that is no number nor text.
    bool WaitForConfigEvent(ConfigEvent& event, long, long) override;

    virtual bool ResetToFactory(eParam_t) { return false; }
    void Run() override {}
    virtual bool IsDirty(eParam_t, eConfigID_t) { return false; }

    /// Has the system tell of messages, or not. @return false after one line.
    bool EnableMQEvents(bool on);
    /// For the system. @param value  a client, which may be gone.
    static void MQNotifyHandler(sigval value);
    /// Delivers what is in the queue. @return false after one line or more when it cannot be read.
    bool ProcessEvents();

    /// False after an exchange got no answer, until one does.
    bool IsReachable() const { return m_reachable; }
    /// In milliseconds. Default no limit.
    void SetReplyTimeout(unsigned int timeout) { m_replyTimeout = timeout; }

    // For the factory, which disconnects.
    /// Ends all waits. No callback begins any more.
    void Stop();
    /// Whether this thread is in a callback of this client.
    bool IsInCallback() const;
    unsigned int ConnectionID() const { return m_connectionID; }
    unsigned int Priority() const { return m_priority; }
    mqd_t RequestQueue() const { return m_requestQueue; }
    mqd_t ResponseQueue() const { return m_responseQueue; }

  private:
    enum class Outcome { kAnswered, kNotSent, kFailed };
    class CallbackScope;

    template <class Work>
    auto Do(const char* operation, const Work& work);
    XCONFIGMGR_REQUEST_T Request(eMessageType_t type, eParam_t id, eConfigID_t configID) const;
    Outcome Exchange(uint32_t requestID, const char* data, size_t length, MQMessage& answer);
    template <class Record>
    Outcome Exchange(Record& request, MQMessage& answer);
    Outcome ValueExchange(XCONFIGMGR_REQUEST_T& request, const std::string& stream, MQMessage& answer);
    void StoreLastUpdate(const MQMessage& answer);
    unsigned int GetNumber(eParam_t id);
    bool SetNumber(eParam_t id, unsigned int value);
    bool GetText(eParam_t id, std::string& value);
    bool SetText(eParam_t id, const std::string& value);

    XCONFIGMGR_EVENT_HANDLER_REQUEST_T ListenerRequest(eMessageType_t type) const;
    bool AddListener(ConfigEventListener* listener) VEXA_EXCLUDES(m_listenerLock);
    bool RemoveListener(ConfigEventListener* listener) VEXA_EXCLUDES(m_listenerLock);
    bool TellDaemon(eMessageType_t type, const char* operation);
    bool RegisterWait();
    bool WaitForEvent(ConfigEvent& event) VEXA_EXCLUDES(m_listenerLock);

    bool Arm();
    bool HandleNotification();
    void StartDelivery();
    void DeliverEvents();
    bool DeliverNext() VEXA_EXCLUDES(m_listenerLock);
    bool ProcessConfigParamEvent(const MQMessage& message, ConfigEvent* event) VEXA_REQUIRES(m_listenerLock);
    bool ProcessConfigStreamParamEvent(const MQMessage& message, ConfigEvent* event)
        VEXA_REQUIRES(m_listenerLock);
    template <class Call>
    void CallListeners(const Call& call) VEXA_REQUIRES(m_listenerLock);

    const unsigned int m_connectionID;
    const unsigned int m_priority;
    const mqd_t m_requestQueue;
    const mqd_t m_responseQueue;
    const std::shared_ptr<SharedExchanges> m_shared;
    const eConfigID_t m_configID;
    MQReader m_reader;
    std::atomic<unsigned int> m_replyTimeout = kNoQueueTimeout;
    std::atomic<bool> m_reachable = true;
    std::atomic<bool> m_waitRegistered = false;  // the daemon knows that somebody waits for events

    std::mutex m_timeLock;
    timeval m_lastUpdate{};  // guarded by m_timeLock

    // Before the exchange lock and the reader's. Held over callbacks and over the exchanges that register, so
    // no exchange waits for it.
    LockSemaphore m_listenerLock;
    std::vector<ConfigEventListener*> m_listeners VEXA_GUARDED_BY(m_listenerLock);  // borrowed

    std::mutex m_notifyLock;
    bool m_notifyWanted = false;  // guarded by m_notifyLock
};

/// What every operation does around its work: the client stays, and nothing is thrown at the caller.
template <class Work>
auto PosixMQClient::Do(const char* operation, const Work& work)
{
    const LiveClients::Use use(this);
    if (!use) return decltype(work()){};
    try {
        return work();
    } catch (...) {
        fprintf(stderr, "PosixMQClient::%s - ended by an exception\n", operation);
        m_reachable = false;
        return decltype(work()){};
    }
}

/// Gives a request its number and waits for its answer. @return kNotSent or kFailed with errno.
template <class Record>
PosixMQClient::Outcome PosixMQClient::Exchange(Record& request, MQMessage& answer)
{
    request.info.requestID = m_shared->nextRequestID++;
    const auto bytes = wire::Encode<wire::HostOrder>(request);
    return Exchange(request.info.requestID, bytes.data(), bytes.size(), answer);
}

}  // namespace vexa::config::access
