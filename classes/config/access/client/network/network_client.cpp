#include "config/access/client/network/network_client.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#undef NDEBUG  // assert() stays in release builds
#include <cassert>

#include "config/access/protocol/value_payload.h"
#include "config/base/log.h"
#include "config/descriptors/registry/registry.h"
#include "config/values/config_value.h"

namespace vexa::corvalis::config::access {

NetworkClient::NetworkClient(unsigned int connectionID, std::unique_ptr<Socket> socket,
                             std::unique_ptr<ReplySource> replies, eConfigID_t configID,
                             const char* eventsThreadName)
    : m_connectionID(connectionID),
      m_configID(configID),
      m_eventsThreadName(eventsThreadName),
      m_socket(std::move(socket)),
      m_replies(std::move(replies)),
      m_hasServer(m_socket->is_connected())
{
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

bool NetworkClient::Send(const std::string& request, const ReplyMatch& match, unsigned int timeout)
{
    return m_replies->Send(request, match, timeout);
}

Outcome NetworkClient::Exchange(const std::string& request, const ReplyMatch& match, unsigned int timeout,
                                Message& reply)
{
    NoteAnswer(Answer::kNone);
    Outcome outcome = Outcome::kNotSent;
    {
        SemaphoreHelper hold(m_exchangeLock);
        m_isExchanging = true;
        if (Send(request, match, timeout)) outcome = m_replies->Await(timeout, reply);
        m_isExchanging = false;
    }
    NoteExchange(outcome == Outcome::kReceived);
    return outcome;
}

Outcome NetworkClient::Exchange(const XCONFIGMGR_REQUEST_T& request, uint32_t replyType, Message& reply,
                                uint32_t otherType)
{
    return Exchange(MessageBytes(request), {replyType, otherType, m_connectionID, request.paramID},
                    m_replyTimeout, reply);
}

bool NetworkClient::SendOnly(const std::string& request)
{
    NoteAnswer(Answer::kNone);
    {
        SemaphoreHelper hold(m_exchangeLock);
        if (Send(request, {}, m_replyTimeout)) return true;
    }
    NoteExchange(false);
    return false;
}

void NetworkClient::NoteExchange(bool isAnswered)
{
    if (m_hasServer) SetReachable(isAnswered && !m_isDeaf);
}

void NetworkClient::SetDeaf(bool isDeaf)
{
    if (m_isDeaf.exchange(isDeaf) == isDeaf) return;
    if (isDeaf || !m_hasServer) SetReachable(!isDeaf);  // a server may be gone: the next exchange shows it
}

bool NetworkClient::IsGiven(uint32_t error)
{
    NoteAnswer(error == 0 ? Answer::kGiven : Answer::kRefused);
    return error == 0;
}

bool NetworkClient::Failed(const char* operation)
{
    Print("NetworkClient::%s - ended by an exception\n", operation);
    NoteAnswer(Answer::kNone);
    NoteExchange(false);
    return false;
}

void NetworkClient::EndProcess(const char* operation)
{
    const int error = errno;
    Print("%s - select failed on port %d (PID:%d)\n", operation, m_socket->port, getpid());
    exit(error == 0 ? -1 : error);
}

bool NetworkClient::HasReply(Outcome outcome, const char* operation, const char* fatal)
{
    switch (outcome) {
        case Outcome::kReceived:
            return true;
        case Outcome::kTimedOut:
            EndProcess(fatal);
        case Outcome::kNotSent:
            return Report("%s - send failed\n", operation);
        case Outcome::kStopped:
        case Outcome::kFailed:
            break;
    }
    return Report("%s - receive failed\n", operation);
}

bool NetworkClient::Knows(eParam_t id, const char* operation)
{
    NoteAnswer(Answer::kNone);
    if (GetParamDescriptor(id)) return true;
    return Report("%s - invalid paramid 0x%08X \n", operation, id);
}

bool NetworkClient::FinishHandshake(const char* operation, eMessageType_t request, Outcome outcome,
                                    const XCONFIGMGR_CONNECTION_RESPONSE_T& response)
{
    switch (outcome) {
        case Outcome::kNotSent:
            return Report("NetworkClient::%s: send failed\n", operation);
        case Outcome::kTimedOut:
            return Report("NetworkClient::%s - select failed on port %d\n", operation, m_socket->port);
        case Outcome::kStopped:
        case Outcome::kFailed:
            return Report("NetworkClient::%s - receive failed\n", operation);
        case Outcome::kReceived:
            break;
    }
    if (response.msgtype != ResponseTo(request))
        return Report("NetworkClient::%s: unexpected msgtype == %d\n", operation,
                      static_cast<int>(response.msgtype));
    if (response.error == 0) return true;
    return Report("NetworkClient::%s: server responded with error %d\n", operation,
                  static_cast<int>(response.error));
}

bool NetworkClient::ConfirmConnection()
try {
    SemaphoreHelper hold(m_exchangeLock);
    XCONFIGMGR_CONNECTION_RESPONSE_T response;
    Outcome outcome = Outcome::kNotSent;
    if (Send(MessageBytes(Prefix(XCFG_CONNECT_REQUEST)), {}, m_replyTimeout)) {
        char bytes[wire::Size<XCONFIGMGR_CONNECTION_RESPONSE_T>()] = {};
        outcome = m_replies->AwaitFirst(bytes, sizeof bytes, m_replyTimeout);
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
    if (IsGiven(response.error)) return response.value;
    Print("NetworkClient::Get - response message indicated an error\n");
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
    if (!IsGiven(response.error)) return Report("NetworkClient::Get - response error != 0\n");
    NoteAnswer(Answer::kNone);  // until it has turned out to be a text
    if (response.streamLength == 0) return Report("NetworkClient::Get - invalid streamLength\n");
    if (response.streamLength != reply.payload.size())
        return Report("NetworkClient::Get - bytes read do not equal streamLength\n");
    if (!ReadText(reply, value))
        return Report("NetworkClient::Get - warning! deserialized non-StringValue\n");
    NoteAnswer(Answer::kGiven);
    return true;
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
    return Report("NetworkClient::Set - send failed\n");
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
    return Report("NetworkClient::Set: socket send failed (stream data)\n");
} catch (...) {
    return Failed("Set");
}

// Listeners

bool NetworkClient::AddConfigEventListener(ConfigEventListener* listener)
{
    if (!listener) return false;
    const MutexLock hold(m_registrationLock);
    if (m_listeners.Contains(listener)) return true;
    if (m_listeners.IsEmpty() && !m_registered) {
        // A class of clients implements one of the two.
        m_registered = RegisterForEvents(eParam_t{}) || RegisterForEvents();
        if (!m_registered) return false;
    }
    try {
        m_listeners.Add(listener);  // before the thread starts, or it might miss the first event
        if (StartEventsThread()) return true;
    } catch (...) {
        Failed("AddConfigEventListener");
    }
    m_listeners.RemoveAll(listener);
    return false;
}

bool NetworkClient::AddConfigEventListener(eParam_t, ConfigEventListener* listener)
{
    return AddConfigEventListener(listener);
}

bool NetworkClient::RemoveConfigEventListener(ConfigEventListener* listener)
{
    bool removed;
    {
        const MutexLock hold(m_registrationLock);
        removed = m_listeners.RemoveAll(listener);
        if (removed && m_listeners.IsEmpty()) {
            UnregisterForEvents();
            m_registered = false;
        }
    }
    m_listeners.WaitForDelivery();
    return removed;
}

bool NetworkClient::StartEventsThread()
{
    return m_eventsThread.Start(m_eventsThreadName, m_stopEvents, [this] { ProcessEvents(); });
}

void NetworkClient::StopEventsThread()
{
    m_stopEvents = true;
    m_replies->Stop();
    m_socket->close();
    // Not from a callback: the events thread is this one, or may be waiting for the turn to deliver, which
    // this one has. The destructor joins it.
    if (!m_threads.IsCurrent()) m_eventsThread.Join();
}

void NetworkClient::Deliver(const XCONFIGMGR_RESPONSE_T& event)
{
    timeval now{};  // integer events carry no time over TCP, so all of them get the time of delivery
    gettimeofday(&now, nullptr);
    m_listeners.TellNumber(event.paramID, event.value, now);
}

void NetworkClient::Deliver(const XCONFIGMGR_RESPONSE_T& event, std::string text)
{
    m_listeners.TellText(event.paramID, std::move(text), TimeOf(event));
}

void NetworkClient::Release(NetworkClient* client)
{
    client->StopEventsThread();
    if (!client->m_threads.IsCurrent()) {
        delete client;
        return;
    }
    client->m_listeners.Clear();  // no further calls, although the callback is not over
    client->m_threads.DeleteClientAtEnd();
}

}  // namespace vexa::corvalis::config::access
