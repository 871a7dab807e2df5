#include "config/access/client/queues/posix_mq_client.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "config/access/io/connection_utilities.h"
#include "config/base/no_signals.h"
#include "config/base/report.h"
#include "config/descriptors/registry/registry.h"
#include "config/streams/memory_serializer.h"
#include "config/values/config_value.h"

namespace vexa::config::access {

namespace {

/// With errno's meaning, and without.
void PrintTwice(const char* text)
{
    perror(text);
    fprintf(stderr, "%s\n", text);
}

}  // namespace

PosixMQClient::PosixMQClient(unsigned int connectionID, unsigned int priority, mqd_t requestQueue,
                             mqd_t responseQueue, std::shared_ptr<SharedExchanges> shared,
                             eConfigID_t configID)
    : m_configID(configID),
      m_connection(connectionID, priority, requestQueue, responseQueue, std::move(shared),
                   [this] { StartDelivery(); }),
      m_events(m_connection, MQNotifyHandler, this)
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
    m_connection.Stop();
    m_events.Stop();
}

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
        m_connection.SetUnreachable();
        return decltype(work()){};
    }
}

XCONFIGMGR_REQUEST_T PosixMQClient::Request(eMessageType_t type, eParam_t id, eConfigID_t configID) const
{
    XCONFIGMGR_REQUEST_T request;
    request.msgtype = type;
    request.info = m_connection.Info(configID);
    request.paramID = id;
    return request;
}

void PosixMQClient::StoreLastUpdate(const MQMessage& answer)
{
    const MutexLock hold(m_timeLock);
    m_lastUpdate = TimeOf(answer);
}

timeval PosixMQClient::GetLastConfigUpdate()
{
    const MutexLock hold(m_timeLock);
    return m_lastUpdate;
}

// --- numbers ---

unsigned int PosixMQClient::Get(eParam_t id)
{
    return Do("Get", [&] { return GetNumber(id); });
}

unsigned int PosixMQClient::GetNumber(eParam_t id)
{
    auto request = Request(XCFG_GET_PARAM_REQUEST, id, m_configID);
    MQMessage answer;
    switch (m_connection.ExchangeValue(request, "", answer)) {
        case Outcome::kNotSent:
            PrintTwice("PosixMQClient::Get - mq_send failed");
            return 0;
        default:
            perror("PosixMQClient::Get - mq_receive failed");
            fputs("PosixMQClient::Get(): mq_receive returned -1, FAILED", stderr);
            return 0;
        case Outcome::kReceived:
            break;
    }
    // A Get looks at the error first, a Set at the identifiers: an error is no update, whoever it is for.
    if (answer.error != 0) {
        fputs("PosixMQClient::Get(): response message indicated an error\n", stderr);
        return 0;
    }
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info)) {
        fputs("PosixMQClient::Get(): response message did not match response message info\n", stderr);
        return 0;
    }
    StoreLastUpdate(answer);
    return answer.value;
}

bool PosixMQClient::Get(eParam_t id, unsigned int& value)
{
    value = Get(id);
    return value != 0;
}

bool PosixMQClient::Set(eParam_t id, unsigned int value, timeval)
{
    return Do("Set", [&] { return SetNumber(id, value); });
}

bool PosixMQClient::SetNumber(eParam_t id, unsigned int value)
{
    auto request = Request(XCFG_SET_PARAM_REQUEST, id, m_configID);
    request.value = value;
    MQMessage answer;
    switch (m_connection.ExchangeValue(request, "", answer)) {
        case Outcome::kNotSent:
            perror("PosixMQClient::Set mq_send failed");
            return Report("PosixMQClient::Set - mq_send failed\n");
        default:
            PrintTwice("PosixMQClient::Set - mq_receive failed");
            return false;
        case Outcome::kReceived:
            break;
    }
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info))
        return Report("PosixMQClient::Set - invalid response for the given request\n");
    StoreLastUpdate(answer);
    return HandleErrorResponse(&answer);
}

// --- texts ---

bool PosixMQClient::Get(eParam_t id, std::string& value)
{
    return Do("Get", [&] { return GetText(id, value); });
}

bool PosixMQClient::GetText(eParam_t id, std::string& value)
{
    auto request = Request(XCFG_GET_STREAM_PARAM_REQUEST, id, m_configID);
    MQMessage answer;
    switch (m_connection.ExchangeValue(request, "", answer)) {
        case Outcome::kNotSent:
            PrintTwice("PosixMQClient::Get - mq_send failed");
            return false;
        default:
            perror("PosixMQClient::Get - mq_receive failed");
            return Report("PosixMQClient::Get(): mq_receive returned -1, FAILED");
        case Outcome::kReceived:
            break;
    }
    if (answer.error != 0) return Report("PosixMQClient::Get - response error != 0\n");
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info))
        return Report("PosixMQClient::Get - response does not match request\n");
    if (!answer.HasStream()) return Report("PosixMQClient::Get - invalid streamLength\n");
    StoreLastUpdate(answer);
    return answer.ReadText(value);
}

bool PosixMQClient::Set(eParam_t id, std::string value, timeval)
{
    return Do("Set", [&] { return SetText(id, value); });
}

bool PosixMQClient::SetText(eParam_t id, const std::string& value)
{
    StringValue object(0, id, eCParam_StringValue, value);
    std::string stream(MemorySerializerSizer::GetSize(&object, nullptr), '\0');
    MemorySerializer serializer(static_cast<eSerializationFormat>(kQueueStreamFormat), stream.data(),
                                stream.data() + stream.size(), false);
    serializer.Write("Serializable", &object);

    auto request = Request(XCFG_SET_STREAM_PARAM_REQUEST, id, 0);
    request.streamLength = static_cast<uint32_t>(stream.size());
    request.streamFormat = kQueueStreamFormat;
    MQMessage answer;
    switch (m_connection.ExchangeValue(request, stream, answer)) {
        case Outcome::kNotSent:
            return Report("PosixMQClient::Set: mq_send failed\n");
        default:
            perror("PosixMQClient::Set - mq_receive failed");
            return false;
        case Outcome::kReceived:
            break;
    }
    if (answer.error != 0) return HandleErrorResponse(&answer);
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info)) {
        // The words of a Get, on purpose: tools that watch for them count both.
        return Report("PosixMQClient::Get - response does not match request\n");
    }
    StoreLastUpdate(answer);
    if (answer.HasStream()) answer.ReadObject();  // what was stored; nobody asks for it
    return true;
}

// --- descriptors ---

// --- events ---

bool PosixMQClient::AddConfigEventListener(ConfigEventListener* listener)
{
    if (!listener || IsInCallback()) return false;
    return Do("AddConfigEventListener", [&] { return m_events.AddListener(listener); });
}

bool PosixMQClient::RemoveConfigEventListener(ConfigEventListener* listener)
{
    if (IsInCallback()) return false;
    return Do("RemoveConfigEventListener", [&] { return m_events.RemoveListener(listener); });
}

bool PosixMQClient::WaitForConfigEvent(ConfigEvent& event, long, long)
{
    if (IsInCallback()) return false;
    return Do("WaitForConfigEvent", [&] { return m_events.WaitForEvent(event); });
}

bool PosixMQClient::EnableMQEvents(bool on)
{
    return m_events.Enable(on);
}

bool PosixMQClient::ProcessEvents()
{
    const LiveClients::Use use(this);  // a callback may disconnect the client
    return use && m_events.ProcessEvents();
}

void PosixMQClient::MQNotifyHandler(sigval value)
{
    const NoSignals inCallbacks;
    bool healthy = true;
    try {
        const LiveClients::Use client(static_cast<PosixMQClient*>(value.sival_ptr));
        if (client) healthy = client->m_events.HandleNotification();
    } catch (...) {
        MQEvents::ReportException();
    }
    if (healthy) return;
    MQEvents::ReportOfProcess("call to EnableMQEvents failed!");
    exit(-1);
}

/// For events that a request has met. Its thread may hold locks that a callback takes.
void PosixMQClient::StartDelivery()
{
    LiveClients::Use use(this);
    if (!use) return;
    try {
        const NoSignals inherited;
        std::thread([use = std::move(use)] { use->m_events.DeliverEvents(); }).detach();
    } catch (...) {
        m_connection.Reader().EndDelivery();  // no thread, or no memory, for now
    }
}

}  // namespace vexa::config::access
