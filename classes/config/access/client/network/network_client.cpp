#include "config/access/client/network/network_client.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#undef NDEBUG  // release builds, too, need what stands behind assert()
#include <cassert>

#include "config/access/client/network/stream_replies.h"
#include "config/access/protocol/value_payload.h"
#include "config/descriptors/registry/registry.h"
#include "config/values/config_value.h"

namespace vexa::corvalis::config::access {

namespace {

std::unique_ptr<ReplySource> MakeReplySource(Socket& socket)
{
    if (socket.type == SOCK_STREAM) return std::make_unique<StreamReplies>(socket);
    return std::make_unique<DatagramReplies>(socket);
}

}  // namespace

NetworkClient::NetworkClient(unsigned int connectionID, Socket* socket, eConfigID_t configID)
    : m_connectionID(connectionID),
      m_configID(configID),
      m_socket(socket),
      m_replies(MakeReplySource(*socket))
{
    SemaphoreHelper::Init(m_exchangeLock);
}

NetworkClient::~NetworkClient()
{
    SemaphoreHelper::Destroy(m_exchangeLock);
}

// Exchanges

XCONFIGMGR_CONNECTION_REQUEST_T NetworkClient::Prefix(eMessageType_t type) const
{
    XCONFIGMGR_CONNECTION_REQUEST_T request;
    request.msgtype = type;
    request.connectionID = m_connectionID;
    request.configID = m_configID;
    return request;
}

XCONFIGMGR_REQUEST_T NetworkClient::Request(eMessageType_t type, eParam_t id) const
{
    XCONFIGMGR_REQUEST_T request;
    static_cast<MessagePrefix&>(request) = Prefix(type);
    request.paramID = id;
    return request;
}

NetworkClient::Outcome NetworkClient::Exchange(const std::string& request, const ReplyMatch& match,
                                               unsigned int timeout, Message& reply)
{
    SemaphoreHelper hold(m_exchangeLock);
    Outcome outcome = Outcome::kNotSent;
    if (m_replies->Send(request, match, timeout)) {
        const ReplyResult result = m_replies->Await(timeout, reply);
        outcome = result == ReplyResult::kReceived   ? Outcome::kReplied
                  : result == ReplyResult::kTimedOut ? Outcome::kTimedOut
                                                     : Outcome::kFailed;
    }
    m_reachable = outcome == Outcome::kReplied;
    return outcome;
}

NetworkClient::Outcome NetworkClient::Exchange(const XCONFIGMGR_REQUEST_T& request, uint32_t replyType,
                                               Message& reply, uint32_t otherType)
{
    return Exchange(MessageBytes(request), {replyType, otherType, m_connectionID, request.paramID},
                    m_replyTimeout, reply);
}

bool NetworkClient::SendOnly(const std::string& request)
{
    SemaphoreHelper hold(m_exchangeLock);
    if (m_replies->Send(request, {}, m_replyTimeout)) return true;
    m_reachable = false;
    return false;
}

bool NetworkClient::Failed(const char* operation)
{
    fprintf(stderr, "NetworkClient::%s - ended by an exception\n", operation);
    m_reachable = false;
    return false;
}

void NetworkClient::EndProcess(const char* operation)
{
    const int error = errno;
    fprintf(stderr, "%s - select failed on port %d (PID:%d)\n", operation, m_socket->port, getpid());
    exit(error == 0 ? -1 : error);
}

bool NetworkClient::HasReply(Outcome outcome, const char* operation, const char* fatal)
{
    switch (outcome) {
        case Outcome::kReplied:
            return true;
        case Outcome::kTimedOut:
            EndProcess(fatal);
        case Outcome::kNotSent:
            fprintf(stderr, "%s - send failed\n", operation);
            return false;
        case Outcome::kFailed:
            break;
    }
    fprintf(stderr, "%s - receive failed\n", operation);
    return false;
}

bool NetworkClient::Knows(eParam_t id, const char* operation)
{
    if (GetParamDescriptor(id)) return true;
    fprintf(stderr, "%s - invalid paramid 0x%08X \n", operation, id);
    return false;
}

bool NetworkClient::FinishHandshake(const char* operation, eMessageType_t request, Outcome outcome,
                                    const XCONFIGMGR_CONNECTION_RESPONSE_T& response)
{
    const auto complain = [&](const std::string& what) {
        fprintf(stderr, "NetworkClient::%s%s\n", operation, what.c_str());
        return false;
    };
    switch (outcome) {
        case Outcome::kNotSent:
            return complain(": send failed");
        case Outcome::kTimedOut:
            return complain(" - select failed on port " + std::to_string(m_socket->port));
        case Outcome::kFailed:
            return complain(" - receive failed");
        case Outcome::kReplied:
            break;
    }
    if (response.msgtype != ResponseTo(request))
        return complain(": unexpected msgtype == " + std::to_string(static_cast<int>(response.msgtype)));
    if (response.error == 0) return true;
    return complain(": server responded with error " + std::to_string(static_cast<int>(response.error)));
}

/// The first bytes of a connection, or of one datagram.
NetworkClient::Outcome NetworkClient::Receive(char* bytes, unsigned int length)
{
    const ReplySource::Deadline deadline = DeadlineIn(m_replyTimeout);
    unsigned int received = 0;
    while (received < length) {
        if (!m_socket->read_select(MillisecondsUntil(deadline))) return Outcome::kTimedOut;
        const int count = m_socket->recv_some(bytes + received, length - received);
        if (count <= 0) return Outcome::kFailed;
        received += static_cast<unsigned int>(count);
        if (m_socket->type == SOCK_DGRAM && received < length) return Outcome::kFailed;
    }
    return Outcome::kReplied;
}

/// Nothing can precede this reply, so whatever comes is taken for it.
bool NetworkClient::ConfirmConnection()
try {
    SemaphoreHelper hold(m_exchangeLock);
    XCONFIGMGR_CONNECTION_RESPONSE_T response;
    Outcome outcome = Outcome::kNotSent;
    if (m_replies->Send(MessageBytes(Prefix(XCFG_CONNECT_REQUEST)), {}, m_replyTimeout)) {
        char bytes[wire::Size<XCONFIGMGR_CONNECTION_RESPONSE_T>()] = {};
        outcome = Receive(bytes, sizeof bytes);
        Decode(bytes, sizeof bytes, response);
    }
    return FinishHandshake("ConfirmConnection", XCFG_CONNECT_REQUEST, outcome, response);
} catch (...) {
    return Failed("ConfirmConnection");
}

bool NetworkClient::ConfirmDisconnect()
try {
    Message reply;
    const Outcome outcome =
        Exchange(MessageBytes(Prefix(XCFG_DISCONNECT_REQUEST)),
                 {XCFG_DISCONNECT_RESPONSE, 0, m_connectionID, {}}, kDisconnectTimeoutMs, reply);
    return FinishHandshake("ConfirmDisconnect", XCFG_DISCONNECT_REQUEST, outcome,
                           reply.As<XCONFIGMGR_CONNECTION_RESPONSE_T>());
} catch (...) {
    return Failed("ConfirmDisconnect");
}

// Config

unsigned int NetworkClient::Get(eParam_t id)
try {
    if (!Knows(id, "NetworkClient::Get(eParam_t)")) return 0;
    Message reply;
    const Outcome outcome = Exchange(Request(XCFG_GET_PARAM_REQUEST, id), XCFG_GET_PARAM_RESPONSE, reply);
    if (!HasReply(outcome, "NetworkClient::Get", "NetworkClient::Get")) return 0;
    const auto response = reply.As<XCONFIGMGR_RESPONSE_T>();
    if (response.error == 0) return response.value;
    fputs("NetworkClient::Get - response message indicated an error\n", stderr);
    return 0;
} catch (...) {
    return Failed("Get");
}

bool NetworkClient::Get(eParam_t id, unsigned int& value)
{
    value = Get(id);
    return value != 0;
}

bool NetworkClient::Get(eParam_t id, std::string& value)
try {
    if (!Knows(id, "NetworkClient::Get(eParam_t, std::string)")) return false;
    Message reply;
    const Outcome outcome =
        Exchange(Request(XCFG_GET_STREAM_PARAM_REQUEST, id), XCFG_GET_STREAM_PARAM_RESPONSE, reply);
    if (!HasReply(outcome, "NetworkClient::Get", "NetworkClient::Get [Stream]")) return false;
    const auto response = reply.As<XCONFIGMGR_RESPONSE_T>();
    if (response.error != 0) {
        fputs("NetworkClient::Get - response error != 0\n", stderr);
        return false;
    }
    if (response.streamLength == 0) {
        fputs("NetworkClient::Get - invalid streamLength\n", stderr);
        return false;
    }
    if (response.streamLength != reply.payload.size()) {
        fputs("NetworkClient::Get - bytes read do not equal streamLength\n", stderr);
        return false;
    }
    if (ReadText(reply, value)) return true;
    fputs("NetworkClient::Get - warning! deserialized non-StringValue\n", stderr);
    return false;
} catch (...) {
    return Failed("Get");
}

bool NetworkClient::Set(eParam_t id, unsigned int value, timeval time)
try {
    if (!Knows(id, "NetworkClient::Set(eParam_t)")) return false;
    auto request = Request(XCFG_SET_PARAM_REQUEST, id);
    request.value = value;
    SetTime(request, time);
    if (SendOnly(MessageBytes(request))) return true;
    fputs("NetworkClient::Set - send failed\n", stderr);
    return false;
} catch (...) {
    return Failed("Set");
}

bool NetworkClient::ReadText(const Message& message, std::string& text) const
{
    return ReadTextPayload(message.payload.data(), message.payload.size(), text, m_payloadOrder);
}

std::string NetworkClient::WithStringPayload(eParam_t id, const std::string& value, timeval time) const
{
    StringValue object(m_configID, id, eCParam_StringValue, value);
    const std::string payload = WritePayload(&object, m_payloadOrder);
    const auto requestLength = static_cast<int>(kRequestBytes);
    const auto streamLength = static_cast<int>(payload.size());
    // The assertion is printed as it stands here.
    // clang-format off
    assert((requestLength + streamLength) <= (24*1024));
    // clang-format on

    auto request = Request(XCFG_SET_STREAM_PARAM_REQUEST, id);
    SetTime(request, time);
    request.streamLength = static_cast<uint32_t>(streamLength);
    request.streamFormat = kStreamFormat;
    return MessageBytes(request, payload);
}

bool NetworkClient::Set(eParam_t id, std::string value, timeval time)
try {
    if (!Knows(id, "NetworkClient::Set(eParam_t, std::string)")) return false;
    if (SendOnly(WithStringPayload(id, value, time))) return true;
    fputs("NetworkClient::Set: socket send failed (stream data)\n", stderr);
    return false;
} catch (...) {
    return Failed("Set");
}

ParamDescriptor* NetworkClient::GetParamDescriptor(eParam_t id)
{
    return FindDescriptor(id);
}

ParamDescriptor* NetworkClient::GetParamDescriptor(std::string paramIDName)
{
    return GetDescriptor(std::move(paramIDName));
}

std::list<eParam_t> NetworkClient::GetParamIDs()
{
    return ::GetParamIDs();
}

}  // namespace vexa::corvalis::config::access
