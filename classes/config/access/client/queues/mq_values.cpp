#include "config/access/client/queues/mq_values.h"

#include "config/access/io/connection_utilities.h"
#include "config/access/protocol/connection.h"
#include "config/base/log.h"
#include "config/streams/memory_serializer.h"
#include "config/values/config_value.h"

namespace vexa::config::access {

namespace {

/// Once with the meaning of errno, and once without.
void PrintTwice(const char* text)
{
    PrintError(text);
    Print("%s\n", text);
}

}  // namespace

XCONFIGMGR_REQUEST_T MQValues::Request(eMessageType_t type, eParam_t id, eConfigID_t configID) const
{
    XCONFIGMGR_REQUEST_T request;
    request.msgtype = type;
    request.info = m_connection.Info(configID);
    request.paramID = id;
    return request;
}

/// Notes what became of the request: an answer that makes no sense counts as none until it has been stored.
Outcome MQValues::Exchange(XCONFIGMGR_REQUEST_T& request, const std::string& stream, MQMessage& answer)
{
    NoteAnswer(Answer::kNone);
    const Outcome outcome = m_connection.ExchangeValue(request, stream, answer);
    if (outcome == Outcome::kReceived && answer.error != 0) NoteAnswer(Answer::kRefused);
    return outcome;
}

void MQValues::StoreLastUpdate(const MQMessage& answer)
{
    if (answer.error == 0) NoteAnswer(Answer::kGiven);
    const MutexLock hold(m_timeLock);
    m_lastUpdate = TimeOf(answer);
}

timeval MQValues::LastUpdate()
{
    const MutexLock hold(m_timeLock);
    return m_lastUpdate;
}

// --- numbers ---

unsigned int MQValues::GetNumber(eParam_t id)
{
    unsigned int value = 0;
    FetchNumber(id, value);
    return value;
}

bool MQValues::FetchNumber(eParam_t id, unsigned int& value)
{
    auto request = Request(XCFG_GET_PARAM_REQUEST, id, m_configID);
    MQMessage answer;
    switch (Exchange(request, "", answer)) {
        case Outcome::kNotSent:
            PrintTwice("PosixMQClient::Get - mq_send failed");
            return false;
        default:
            PrintError("PosixMQClient::Get - mq_receive failed");
            return Report("PosixMQClient::Get(): mq_receive returned -1, FAILED");
        case Outcome::kReceived:
            break;
    }
    // A Get tests the error first, a Set the identifiers: an error is no update, whichever request it
    // answers.
    if (answer.error != 0) return Report("PosixMQClient::Get(): response message indicated an error\n");
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info))
        return Report("PosixMQClient::Get(): response message did not match response message info\n");
    StoreLastUpdate(answer);
    value = answer.value;
    return true;
}

bool MQValues::SetNumber(eParam_t id, unsigned int value)
{
    auto request = Request(XCFG_SET_PARAM_REQUEST, id, m_configID);
    request.value = value;
    MQMessage answer;
    switch (Exchange(request, "", answer)) {
        case Outcome::kNotSent:
            PrintError("PosixMQClient::Set mq_send failed");
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

bool MQValues::GetText(eParam_t id, std::string& value)
{
    auto request = Request(XCFG_GET_STREAM_PARAM_REQUEST, id, m_configID);
    MQMessage answer;
    switch (Exchange(request, "", answer)) {
        case Outcome::kNotSent:
            PrintTwice("PosixMQClient::Get - mq_send failed");
            return false;
        default:
            PrintError("PosixMQClient::Get - mq_receive failed");
            return Report("PosixMQClient::Get(): mq_receive returned -1, FAILED");
        case Outcome::kReceived:
            break;
    }
    if (answer.error != 0) return Report("PosixMQClient::Get - response error != 0\n");
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info))
        return Report("PosixMQClient::Get - response does not match request\n");
    if (!answer.HasStream()) return Report("PosixMQClient::Get - invalid streamLength\n");
    StoreLastUpdate(answer);
    if (answer.ReadText(value)) return true;
    NoteAnswer(Answer::kNone);
    return false;
}

bool MQValues::SetText(eParam_t id, const std::string& value)
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
    switch (Exchange(request, stream, answer)) {
        case Outcome::kNotSent:
            return Report("PosixMQClient::Set: mq_send failed\n");
        default:
            PrintError("PosixMQClient::Set - mq_receive failed");
            return false;
        case Outcome::kReceived:
            break;
    }
    if (answer.error != 0) return HandleErrorResponse(&answer);
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info)) {
        // The text of a Get, on purpose: tools that watch the log count both.
        return Report("PosixMQClient::Get - response does not match request\n");
    }
    StoreLastUpdate(answer);
    if (answer.HasStream()) answer.ReadObject();  // the stored value, which is not needed
    return true;
}

}  // namespace vexa::config::access
