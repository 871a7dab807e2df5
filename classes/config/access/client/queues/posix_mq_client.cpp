#include "config/access/client/queues/posix_mq_client.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "config/access/io/connection_utilities.h"
#include "config/access/io/message_queue.h"
#include "config/descriptors/registry/registry.h"
#include "config/streams/memory_serializer.h"
#include "config/values/config_value.h"

namespace vexa::config::access {

namespace {

size_t MessageBytes(mqd_t queue)
{
    mq_attr attributes{};
    if (mq_getattr(queue, &attributes) == 0) return static_cast<size_t>(attributes.mq_msgsize);
    perror("PosixMQClient::PosixMQClient - mq_getattr failed");
    fputs("PosixMQClient::PosixMQClient - mq_getattr failed", stderr);
    exit(1);
}

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
    : m_connectionID(connectionID),
      m_priority(priority),
      m_requestQueue(requestQueue),
      m_responseQueue(responseQueue),
      m_shared(std::move(shared)),
      m_configID(configID),
      m_reader(responseQueue, ConnectionUtilities::GetQueueName(connectionID), MessageBytes(responseQueue),
               [this] { StartDelivery(); })
{
    SemaphoreHelper::Init(m_listenerLock);
    LiveClients::Add(this);
}

PosixMQClient::~PosixMQClient()
{
    Stop();
    LiveClients::Remove(this);
    mq_close(m_responseQueue);
    SemaphoreHelper::Destroy(m_listenerLock);
}

void PosixMQClient::Stop()
{
    m_reader.Stop();
    m_shared->lock.End(this);
    bool notifying;
    {
        const std::lock_guard hold(m_notifyLock);
        notifying = m_notifyWanted;
    }
    if (notifying) EnableMQEvents(false);
}

// --- exchanges ---

PosixMQClient::Outcome PosixMQClient::Exchange(uint32_t requestID, const char* data, size_t length,
                                               MQMessage& answer)
{
    const QueueDeadline deadline(m_replyTimeout);
    MQReader::Exchange exchange(m_reader, requestID);
    Outcome outcome = Outcome::kAnswered;
    if (m_reader.IsStopped()) {  // nothing may follow the goodbye
        errno = ECANCELED;
        exchange.Cancel();
        outcome = Outcome::kNotSent;
    } else if (!SendMessage(m_requestQueue, data, length, m_priority, deadline, m_reader.WakeDescriptor())) {
        exchange.Cancel();
        outcome = Outcome::kNotSent;
    } else if (exchange.Await(deadline, answer) != MQReader::Result::kReceived) {
        outcome = Outcome::kFailed;
    }
    m_reachable = outcome == Outcome::kAnswered;
    return outcome;
}

/// One at a time over all connections of the factory.
PosixMQClient::Outcome PosixMQClient::ValueExchange(XCONFIGMGR_REQUEST_T& request, const std::string& stream,
                                                    MQMessage& answer)
{
    const ExchangeLock::Turn turn(m_shared->lock, this, m_reader.IsStopped());
    if (!turn) {
        errno = ECANCELED;
        return Outcome::kNotSent;
    }
    if (stream.empty()) return Exchange(request, answer);
    request.info.requestID = m_shared->nextRequestID++;
    const auto record = wire::Encode<wire::HostOrder>(request);
    const std::string bytes = std::string(record.data(), record.size()) + stream;
    return Exchange(request.info.requestID, bytes.data(), bytes.size(), answer);
}

XCONFIGMGR_REQUEST_T PosixMQClient::Request(eMessageType_t type, eParam_t id, eConfigID_t configID) const
{
    XCONFIGMGR_REQUEST_T request;
    request.msgtype = type;
    request.info = {m_connectionID, 0, configID, m_priority};
    request.paramID = id;
    return request;
}

void PosixMQClient::StoreLastUpdate(const MQMessage& answer)
{
    const std::lock_guard hold(m_timeLock);
    m_lastUpdate = TimeOf(answer);
}

timeval PosixMQClient::GetLastConfigUpdate()
{
    const std::lock_guard hold(m_timeLock);
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
    switch (ValueExchange(request, "", answer)) {
        case Outcome::kNotSent:
            PrintTwice("PosixMQClient::Get - mq_send failed");
            return 0;
        case Outcome::kFailed:
            perror("PosixMQClient::Get - mq_receive failed");
            fputs("PosixMQClient::Get(): mq_receive returned -1, FAILED", stderr);
            return 0;
        case Outcome::kAnswered:
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
    switch (ValueExchange(request, "", answer)) {
        case Outcome::kNotSent:
            perror("PosixMQClient::Set mq_send failed");
            fputs("PosixMQClient::Set - mq_send failed\n", stderr);
            return false;
        case Outcome::kFailed:
            PrintTwice("PosixMQClient::Set - mq_receive failed");
            return false;
        case Outcome::kAnswered:
            break;
    }
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info)) {
        fputs("PosixMQClient::Set - invalid response for the given request\n", stderr);
        return false;
    }
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
    switch (ValueExchange(request, "", answer)) {
        case Outcome::kNotSent:
            PrintTwice("PosixMQClient::Get - mq_send failed");
            return false;
        case Outcome::kFailed:
            perror("PosixMQClient::Get - mq_receive failed");
            fputs("PosixMQClient::Get(): mq_receive returned -1, FAILED", stderr);
            return false;
        case Outcome::kAnswered:
            break;
    }
    const auto complain = [](const char* what) {
        fprintf(stderr, "PosixMQClient::Get - %s\n", what);
        return false;
    };
    if (answer.error != 0) return complain("response error != 0");
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info))
        return complain("response does not match request");
    if (!answer.HasStream()) return complain("invalid streamLength");
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
    switch (ValueExchange(request, stream, answer)) {
        case Outcome::kNotSent:
            fputs("PosixMQClient::Set: mq_send failed\n", stderr);
            return false;
        case Outcome::kFailed:
            perror("PosixMQClient::Set - mq_receive failed");
            return false;
        case Outcome::kAnswered:
            break;
    }
    if (answer.error != 0) return HandleErrorResponse(&answer);
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info)) {
        // The words of a Get, on purpose: tools that watch for them count both.
        fputs("PosixMQClient::Get - response does not match request\n", stderr);
        return false;
    }
    StoreLastUpdate(answer);
    if (answer.HasStream()) answer.ReadObject();  // what was stored; nobody asks for it
    return true;
}

// --- descriptors ---

ParamDescriptor* PosixMQClient::GetParamDescriptor(eParam_t id)
{
    return FindDescriptor(id);
}

ParamDescriptor* PosixMQClient::GetParamDescriptor(std::string paramIDName)
{
    return GetParamDescriptor(GetParamNameParamID(std::move(paramIDName)));
}

std::list<eParam_t> PosixMQClient::GetParamIDs()
{
    return ::GetParamIDs();
}

}  // namespace vexa::config::access
