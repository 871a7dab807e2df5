/// PosixMQClient: a Config whose store is in the control daemon, behind message queues.
#pragma once

#include <mqueue.h>
#include <signal.h>

#include <memory>

#include "config/access/protocol/connection.h"
#include "config/base/export.h"
#include "config/config_factory.h"
#include "config/descriptors/catalogue_config.h"

namespace vexa::config::access {

class MQConnection;
struct SharedExchanges;
struct XCONFIGMGR_RESPONSE_T;

/// PosixMQFactory makes clients and takes them back.
///
/// Numbers and texts come from the daemon; parameters and descriptors from this process's own catalogue. A
/// number or text must fit into one message of the queue. Data values do not travel over queues: GetData and
/// SetData are those of Config, which end the process.
/// Thread: any. Listeners are called one at a time, on threads that the system starts or on one that waits
/// for events. They may use the client and disconnect it; adding and removing listeners of the same client,
/// and waiting for its events, is refused in a callback. The connection is lost after an exchange without an
/// answer, and when the daemon has ended or events may be missing, until an exchange is answered.
class VEXA_EXPORT PosixMQClient : public vexa::CatalogueConfig, public Runnable, public vexa::Connection {
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
    eConfigID_t GetConfigID() override;
    /// The time that the last answer carried.
    timeval GetLastConfigUpdate() override;
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
    /// @return false on failure and when the client is disconnected; true with the event untouched after a
    /// message that is neither a number nor a text.
    bool WaitForConfigEvent(ConfigEvent& event, long, long) override;

    /// Does nothing: the daemon resets its own values. @return false.
    virtual bool ResetToFactory(eParam_t) { return false; }
    /// Does nothing.
    void Run() override {}
    /// A client keeps no values that could be. @return false.
    virtual bool IsDirty(eParam_t, eConfigID_t) { return false; }

    /// Turns the system's notification of messages on or off. @return false after one line.
    bool EnableMQEvents(bool on);
    /// Called by the system. @param value  a client, which may be gone.
    static void MQNotifyHandler(sigval value);
    /// Delivers the events in the queue. @return false after one line or more when it cannot be read.
    bool ProcessEvents();
    /// Calls the listeners with an event. @param response  a number's. @param event  filled, unless it is null.
    /// @return false for an event of another connection.
    bool ProcessConfigParamEvent(const XCONFIGMGR_RESPONSE_T* response, ConfigEvent* event);
    /// The same for a text, whose stream follows the record in memory.
    bool ProcessConfigStreamParamEvent(const XCONFIGMGR_RESPONSE_T* response, ConfigEvent* event);

    /// In milliseconds. Default no limit.
    void SetReplyTimeout(unsigned int timeout);

    // For the factory, which disconnects.
    /// Ends all waits. No further callback begins.
    void Stop();
    /// Whether this thread is in a callback of this client.
    bool IsInCallback() const;
    /// The queues and the priority. Borrowed.
    const MQConnection& Connection() const;
    /// The number by which the daemon knows this client, behind "/mqd_" in the name of its queue.
    unsigned int ConnectionID() const;

  private:
    struct Parts;

    template <class Work>
    auto Do(const char* operation, const Work& work);
    void StartDelivery();

    const std::unique_ptr<Parts> m_parts;
};

}  // namespace vexa::config::access
