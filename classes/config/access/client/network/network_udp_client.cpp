#include "config/access/client/network/network_udp_client.h"

#include <unistd.h>

#include <cerrno>

#include "config/access/protocol/value_payload.h"
#include "config/base/diagnostic_log.h"
#include "config/base/log.h"

namespace vexa::corvalis::config::access {

namespace {

/// Whether the event announces the system's shutdown: nothing comes after it.
bool IsShutdown(const XCONFIGMGR_RESPONSE_T& event)
{
    constexpr unsigned int kShuttingDown = 9;
    return event.paramID == eParamID_SystemState && event.value == kShuttingDown;
}

}  // namespace

NetworkUDPClient::NetworkUDPClient(unsigned int connectionID, Socket* socket, eConfigID_t configID)
    : NetworkUDPClient(connectionID, std::unique_ptr<Socket>(socket), new DatagramReplies(*socket), configID)
{
}

NetworkUDPClient::NetworkUDPClient(unsigned int connectionID, std::unique_ptr<Socket> socket,
                                   DatagramReplies* replies, eConfigID_t configID)
    : NetworkClient(connectionID, std::move(socket), std::unique_ptr<ReplySource>(replies), configID,
                    "UDPClntPrcsEvts"),
      m_datagrams(*replies)
{
    constexpr int kBufferBytes = 108'544;
    GetSocket().set_buffer_size(SO_SNDBUF, kBufferBytes);
    GetSocket().set_buffer_size(SO_RCVBUF, kBufferBytes);
    m_queueThread = Threads().Start("UDPClntRespQ", [this] { ResponseQueueHandler(); });
}

NetworkUDPClient::~NetworkUDPClient()
{
    StopEventsThread();
    StopQueue();
    DeliveryThreads::Join(m_queueThread);
}

void NetworkUDPClient::StopQueue()
{
    const MutexLock hold(m_queueLock);
    m_stopQueue = true;
    m_queueChanged.NotifyAll();
}

bool NetworkUDPClient::ConfirmDisconnect()
{
    if (GetSocket().port == kMulticastPort) return true;  // never connected
    return NetworkClient::ConfirmDisconnect();
}

// Requests

bool NetworkUDPClient::Set(eParam_t id, unsigned int value, timeval time)
try {
    if (!Knows(id, "NetworkClient::Set(eParam_t)")) return false;
    auto request = Request(XCFG_SET_PARAM_REQUEST, id);
    request.value = value;
    SetTime(request, time);
    Message reply;
    switch (Exchange(request, XCFG_SET_PARAM_RESPONSE, reply)) {
        case Outcome::kNotSent:
            return Report("NetworkUDPClient::Set - send failed\n");
        case Outcome::kTimedOut:
            return Report("NetworkUDPClient::Set - select failed on port %d (PID:%d)\n", GetSocket().port,
                          getpid());
        case Outcome::kStopped:
        case Outcome::kFailed:
            return Report("NetworkUDPClient::Set - recvfrom failed");
        case Outcome::kReceived:
            break;
    }
    const auto error = static_cast<int>(reply.As<XCONFIGMGR_RESPONSE_T>().error);
    if (error != 0) Print("NetworkUDPClient::Set - response error:%d\n", error);
    return error == 0;
} catch (...) {
    return Failed("Set");
}

bool NetworkUDPClient::Get(eParam_t id, std::string& value)
try {
    if (!Knows(id, "NetworkClient::Get(eParam_t, std::string)")) return false;
    Message reply;
    // The server answers with the request's own type; the regular response type is accepted as well.
    const Outcome outcome = Exchange(Request(XCFG_GET_STREAM_PARAM_REQUEST, id),
                                     XCFG_GET_STREAM_PARAM_RESPONSE, reply, XCFG_GET_STREAM_PARAM_REQUEST);
    if (!HasReply(outcome, "NetworkUDPClient::Get", "NetworkClient::Get [Stream]")) return false;
    if (reply.As<XCONFIGMGR_RESPONSE_T>().error != 0)
        return Report("NetworkUDPClient::Get - response error != 0\n");
    if (reply.payload.empty())
        return Report("NetworkUDPClient::Get - invalid streamLength (PID:%d)\n", getpid());
    if (ReadText(reply, value)) return true;
    return Report("NetworkClient::Get - warning! deserialized non-StringValue\n");
} catch (...) {
    return Failed("Get");
}

bool NetworkUDPClient::GetData(eParam_t id, std::string& data)
try {
    if (!Knows(id, "NetworkUDPClient::GetData(eParam_t)")) return false;
    Message reply;
    const Outcome outcome = Exchange(Request(XCFG_GET_DATA_REQUEST, id), XCFG_GET_DATA_RESPONSE, reply);
    if (!HasReply(outcome, "NetworkUDPClient::GetData", "NetworkClient::Get [Stream]")) return false;
    if (reply.As<XCONFIGMGR_RESPONSE_T>().error != 0)
        return Report("NetworkUDPClient::GetData - response error != 0\n");
    data = std::move(reply.payload);
    return true;
} catch (...) {
    return Failed("GetData");
}

bool NetworkUDPClient::SetData(eParam_t id, std::string& data, timeval time)
try {
    if (!Knows(id, "NetworkUDPClient::SetData(eParam_t)")) return false;
    if (data.size() > kMaxRequestPayload)
        return Report("NetworkUDPClient::SetData - %zu bytes do not fit a request\n", data.size());
    auto request = Request(XCFG_SET_DATA_REQUEST, id);
    SetTime(request, time);
    request.streamLength = static_cast<uint32_t>(data.size());
    if (SendOnly(MessageBytes(request, data))) return true;
    return Report("NetworkUDPClient::SetData - send failed\n");
} catch (...) {
    return Failed("SetData");
}

// Events

bool NetworkUDPClient::RegisterForEvents()
try {
    if (!m_datagrams.OpenEventSocket(kMulticastPort)) return false;
    DropEvents();
    return m_datagrams.EventSocket().add_membership(kMulticastGroup, kMulticastInterface);
} catch (...) {
    return Failed("RegisterForEvents");
}

/// The events that wait were meant for earlier listeners: a new listener must not hear old values after it
/// has read the current ones.
void NetworkUDPClient::DropEvents()
{
    char old[kMaxMessageBytes];
    for (size_t i = 0; i < EventQueue<XCONFIGMGR_RESPONSE_T>::kMaxEvents &&
                       m_datagrams.EventSocket().recv_now(old, sizeof old) != -1;
         ++i)
        continue;
    const MutexLock hold(m_queueLock);
    m_queue.Clear();
}

bool NetworkUDPClient::UnregisterForEvents()
{
    return m_datagrams.EventSocket().drop_membership(kMulticastGroup, kMulticastInterface);
}

void NetworkUDPClient::ProcessEvents()
{
    DiagnosticLog("NetworkUDPClient::ProcessEvents enter\n");
    Socket& socket = m_datagrams.EventSocket();
    char datagram[kMaxMessageBytes];
    while (!IsStopping()) {
        const int count = socket.recv_some(datagram, sizeof datagram);
        if (count > 0) {
            if (!ProcessEvent(datagram, static_cast<size_t>(count))) break;
        } else if (count == 0) {
            // Any sender can send an empty datagram: only a closed socket is an end.
            DiagnosticLog("NetworkUDPClient::ProcessEvents - ret == 0\n");
            if (socket.fd == -1) break;
        } else {
            DiagnosticLog("NetworkUDPClient::ProcessEvents - recv ERROR (%d)\n", errno);
            DiagnosticLog("NetworkUDPClient::ProcessEvents - unknown/unhandled error, ret %d\n", count);
            break;
        }
    }
    DiagnosticLog("NetworkUDPClient::ProcessEvents exit\n");
}

/// Without memory only this event is lost. @return false after the last event.
bool NetworkUDPClient::ProcessEvent(const char* data, size_t length)
try {
    const auto message = ReadDatagram(data, length);
    if (!message || message->record.size() < kResponseBytes) {
        DiagnosticLog("NetworkUDPClient::ProcessEvents - %zu bytes are no event\n", length);
        return true;
    }
    const auto event = message->As<XCONFIGMGR_RESPONSE_T>();
    if (event.configID != GetConfigID()) {
        DiagnosticLog("NetworkUDPClient::ProcessEvents - ConfigID:%d  Inbound ConfigID:%d\n", GetConfigID(),
                      event.configID);
        return true;
    }
    switch (event.msgtype) {
        case XCFG_PARAM_CHANGED_EVENT:
            Enqueue(event);
            if (!IsShutdown(event)) break;
            DiagnosticLog(
                "NetworkUDPClient::ProcessEvents exiting due to system state going into shutdown state\n");
            return false;
        case XCFG_PARAM_STRING_CHANGED_EVENT: {
            std::string text;
            if (ReadText(*message, text))
                Deliver(event, std::move(text));
            else
                DiagnosticLog("NetworkUDPClient::ProcessEvents - no text for paramid 0x%08X\n",
                              event.paramID);
            break;
        }
        case XCFG_PARAM_DATA_CHANGED_EVENT:
            Listeners().TellData(event.paramID, message->payload, TimeOf(event));
            break;
        default:
            DiagnosticLog("NetworkUDPClient::ProcessEvents - Unknown message type %d\n",
                          static_cast<int>(event.msgtype));
    }
    return true;
} catch (...) {
    Print("NetworkUDPClient::ProcessEvents - an event was lost by an exception\n");
    return true;
}

void NetworkUDPClient::Enqueue(const XCONFIGMGR_RESPONSE_T& event)
{
    const MutexLock hold(m_queueLock);
    m_queue.Push(event);
    m_queueChanged.NotifyOne();
}

/// @return false when the queue's thread has to end.
bool NetworkUDPClient::AwaitQueuedEvent()
{
    const MutexLock hold(m_queueLock);
    while (m_queue.IsEmpty() && !m_stopQueue && !IsStopping()) m_queueChanged.Wait(m_queueLock);
    return !m_stopQueue && !IsStopping();
}

/// @return false when a later registration has dropped the event.
bool NetworkUDPClient::TakeQueuedEvent(const ListenerList::Turn&, XCONFIGMGR_RESPONSE_T& event)
{
    const MutexLock hold(m_queueLock);
    return m_queue.Pop(event);
}

void NetworkUDPClient::ResponseQueueHandler()
{
    while (AwaitQueuedEvent()) {
        const ListenerList::Turn turn(Listeners());
        XCONFIGMGR_RESPONSE_T event;
        if (!TakeQueuedEvent(turn, event)) continue;
        try {
            Deliver(event);
        } catch (...) {  // only this event is lost
            Print("NetworkUDPClient::ResponseQueueHandler - an event was lost by an exception\n");
        }
        if (IsShutdown(event)) {
            DiagnosticLog(
                "NetworkUDPClient::ResponseQueueHandler exiting due to system state going into "
                "shutdown state\n");
            return;
        }
    }
}

}  // namespace vexa::corvalis::config::access
