#include "config/access/client/queues/posix_mq_client.h"

#include <cstdlib>
#include <thread>

#include "config/access/client/queues/live_clients.h"
#include "config/access/client/queues/mq_events.h"
#include "config/access/client/queues/mq_values.h"
#include "config/base/log.h"
#include "config/base/no_signals.h"

namespace vexa::config::access {

struct PosixMQClient::Parts {
    MQConnection connection;
    MQEvents events;
    MQValues values;
    const eConfigID_t configID;

    Parts(PosixMQClient* client, unsigned int connectionID, unsigned int priority, mqd_t requestQueue,
          mqd_t responseQueue, std::shared_ptr<SharedExchanges> shared, eConfigID_t configuration)
        : connection(
              connectionID, priority, requestQueue, responseQueue, std::move(shared),
              [client] { client->StartDelivery(); },
              [client](bool reachable) { client->SetReachable(reachable); }),
          events(connection, MQNotifyHandler, client),
          values(connection, configuration),
          configID(configuration)
    {
    }
};

PosixMQClient::PosixMQClient(unsigned int connectionID, unsigned int priority, mqd_t requestQueue,
                             mqd_t responseQueue, std::shared_ptr<SharedExchanges> shared,
                             eConfigID_t configID)
    : m_parts(std::make_unique<Parts>(this, connectionID, priority, requestQueue, responseQueue,
                                      std::move(shared), configID))
{
    LiveClients::Add(this);
}

PosixMQClient::~PosixMQClient()
{
    Stop();
    LiveClients::Remove(this);
}

void PosixMQClient::Stop()
{
    m_parts->connection.Stop();
    m_parts->events.Stop();
}

/// Runs the work of an operation: keeps the client alive meanwhile, and lets no exception out.
template <class Work>
auto PosixMQClient::Do(const char* operation, const Work& work)
{
    const LiveClients::Use use(this);
    if (!use) return decltype(work()){};
    try {
        return work();
    } catch (...) {
        Print("PosixMQClient::%s - ended by an exception\n", operation);
        m_parts->connection.SetReachable(false);
        return decltype(work()){};
    }
}

void PosixMQClient::SetReplyTimeout(unsigned int timeout)
{
    m_parts->connection.SetReplyTimeout(timeout);
}

bool PosixMQClient::IsInCallback() const
{
    return m_parts->events.IsInCallback();
}

const MQConnection& PosixMQClient::Connection() const
{
    return m_parts->connection;
}

unsigned int PosixMQClient::ConnectionID() const
{
    return m_parts->connection.connectionID;
}

eConfigID_t PosixMQClient::GetConfigID()
{
    return m_parts->configID;
}

timeval PosixMQClient::GetLastConfigUpdate()
{
    return m_parts->values.LastUpdate();
}

// --- values ---

unsigned int PosixMQClient::Get(eParam_t id)
{
    return Do("Get", [&] { return m_parts->values.GetNumber(id); });
}

bool PosixMQClient::Get(eParam_t id, unsigned int& value)
{
    value = Get(id);
    return value != 0;
}

bool PosixMQClient::Set(eParam_t id, unsigned int value, timeval)
{
    return Do("Set", [&] { return m_parts->values.SetNumber(id, value); });
}

bool PosixMQClient::Get(eParam_t id, std::string& value)
{
    return Do("Get", [&] { return m_parts->values.GetText(id, value); });
}

bool PosixMQClient::Set(eParam_t id, std::string value, timeval)
{
    return Do("Set", [&] { return m_parts->values.SetText(id, value); });
}

// --- events ---

bool PosixMQClient::AddConfigEventListener(ConfigEventListener* listener)
{
    if (!listener || IsInCallback()) return false;
    return Do("AddConfigEventListener", [&] { return m_parts->events.AddListener(listener); });
}

bool PosixMQClient::RemoveConfigEventListener(ConfigEventListener* listener)
{
    if (IsInCallback()) return false;
    return Do("RemoveConfigEventListener", [&] { return m_parts->events.RemoveListener(listener); });
}

bool PosixMQClient::WaitForConfigEvent(ConfigEvent& event, long, long)
{
    if (IsInCallback()) return false;
    return Do("WaitForConfigEvent", [&] { return m_parts->events.WaitForEvent(event); });
}

bool PosixMQClient::EnableMQEvents(bool on)
{
    return m_parts->events.Enable(on);
}

bool PosixMQClient::ProcessEvents()
{
    const LiveClients::Use use(this);  // a callback may disconnect the client
    return use && m_parts->events.ProcessEvents();
}

bool PosixMQClient::ProcessConfigParamEvent(const XCONFIGMGR_RESPONSE_T* response, ConfigEvent* event)
{
    return m_parts->events.ProcessNumber(MQMessage::FromMemory(response), event);
}

bool PosixMQClient::ProcessConfigStreamParamEvent(const XCONFIGMGR_RESPONSE_T* response, ConfigEvent* event)
{
    return m_parts->events.ProcessText(MQMessage::FromMemory(response), event);
}

void PosixMQClient::MQNotifyHandler(sigval value)
{
    const NoSignals inCallbacks;
    bool healthy = true;
    try {
        const LiveClients::Use client(static_cast<PosixMQClient*>(value.sival_ptr));
        if (client) healthy = client->m_parts->events.HandleNotification();
    } catch (...) {
        MQEvents::ReportException();
    }
    if (healthy) return;
    MQEvents::ReportOfProcess("call to EnableMQEvents failed!");
    exit(-1);
}

/// Delivers the events that a request has read on a thread of their own: the request's thread may hold locks
/// that a callback takes.
void PosixMQClient::StartDelivery()
{
    LiveClients::Use use(this);
    if (!use) return;
    try {
        const NoSignals inherited;
        std::thread([use = std::move(use)] { use->m_parts->events.DeliverEvents(); }).detach();
    } catch (...) {
        m_parts->connection.Reader().EndDelivery();  // no thread, or no memory, for now
    }
}

}  // namespace vexa::config::access
