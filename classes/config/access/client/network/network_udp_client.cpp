#include "config/access/client/network/network_udp_client.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "config/access/protocol/value_payload.h"
#include "config/base/diagnostic_log.h"
#include "config/base/log.h"

namespace vexa::corvalis::config::access {

namespace {

/// Whether the event announces the system's shutdown: nothing comes after it.
bool IsShutdown(const XCONFIGMGR_RESPONSE_T& event)
{
    constexpr unsigned int kShuttingDown = 9;
    return event.msgtype == XCFG_PARAM_CHANGED_EVENT && event.paramID == eParamID_SystemState &&
           event.value == kShuttingDown;
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
    GetSocket().set_buffer_size(SO_SNDBUF, kClientBufferBytes);
    GetSocket().set_buffer_size(SO_RCVBUF, kClientBufferBytes);
    if (!StartQueue()) throw std::system_error(EAGAIN, std::generic_category());
}

NetworkUDPClient::~NetworkUDPClient()
{
    StopEventsThread();
    StopQueue();
    m_queueThread.Join();
}

/// Starts the queue's thread anew if it has ended with an earlier receiving thread.
bool NetworkUDPClient::HasQueue()
{
    {
        const MutexLock hold(m_queueLock);
        if (!m_queueEnded) return true;
    }
    return StartQueue();
}

bool NetworkUDPClient::StartQueue()
{
    return m_queueThread.Start("UDPClntRespQ", m_stopQueue, [this] { ResponseQueueHandler(); });
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
    const uint32_t error = reply.As<XCONFIGMGR_RESPONSE_T>().error;
    return IsGiven(error) || Report("NetworkUDPClient::Set - response error:%d\n", static_cast<int>(error));
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
    if (!IsGiven(reply.As<XCONFIGMGR_RESPONSE_T>().error))
        return Report("NetworkUDPClient::Get - response error != 0\n");
    NoteAnswer(Answer::kNone);  // until it has turned out to be a text
    if (reply.payload.empty())
        return Report("NetworkUDPClient::Get - invalid streamLength (PID:%d)\n", getpid());
    if (!ReadText(reply, value))
        return Report("NetworkClient::Get - warning! deserialized non-StringValue\n");
    NoteAnswer(Answer::kGiven);
    return true;
} catch (...) {
    return Failed("Get");
}

bool NetworkUDPClient::GetData(eParam_t id, std::string& data)
try {
    if (!Knows(id, "NetworkUDPClient::GetData(eParam_t)")) return false;
    Message reply;
    const Outcome outcome = Exchange(Request(XCFG_GET_DATA_REQUEST, id), XCFG_GET_DATA_RESPONSE, reply);
    if (!HasReply(outcome, "NetworkUDPClient::GetData", "NetworkClient::Get [Stream]")) return false;
    if (!IsGiven(reply.As<XCONFIGMGR_RESPONSE_T>().error))
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
    DropEvents(true);
    return m_datagrams.EventSocket().add_membership(kMulticastGroup, kMulticastInterface);
} catch (...) {
    return Failed("RegisterForEvents");
}

/// The events that wait were meant for earlier listeners: a new listener must not hear old values after it
/// has read the current ones.
void NetworkUDPClient::DropEvents(bool keepLaterOnes)
{
    constexpr int kEnough = 10'000;  // a peer that floods must not delay the registration
    char old[kMaxMessageBytes];
    for (int i = 0; i < kEnough && m_datagrams.EventSocket().recv_now(old, sizeof old) != -1; ++i) continue;
    const MutexLock hold(m_queueLock);
    m_keepsEvents = keepLaterOnes;
    m_queue.Clear();
    m_gaps.Forget();
    m_gaps.HasLost(m_datagrams.LostEvents());
}

bool NetworkUDPClient::UnregisterForEvents()
{
    const bool hasLeft = m_datagrams.EventSocket().drop_membership(kMulticastGroup, kMulticastInterface);
    DropEvents(false);
    return hasLeft;
}

void NetworkUDPClient::ProcessEvents()
{
    DiagnosticLog("NetworkUDPClient::ProcessEvents enter\n");
    {
        const MutexLock hold(m_queueLock);
        m_receiverEnded = false;
    }
    while (!IsStopping() && HasQueue()) {
        SetDeaf(false);
        if (!ReceiveEvents(vexa::Deadline(m_probeMs))) break;
        if (HasServer() && !IsStopping() && !Listeners().IsEmpty()) Probe();
    }
    DiagnosticLog("NetworkUDPClient::ProcessEvents exit\n");
    MarkEventsEnded();  // before the other thread tells it
    const MutexLock hold(m_queueLock);
    m_receiverEnded = true;  // the other thread delivers the rest
    m_queueChanged.NotifyAll();
}

/// Receives until it is time for the next probe. @return false after the last event.
bool NetworkUDPClient::ReceiveEvents(const vexa::Deadline& probe)
{
    Socket& socket = m_datagrams.EventSocket();
    char datagram[kMaxMessageBytes];
    while (!IsStopping() && !probe.IsOver()) {
        if (socket.wait_ready(POLLIN, probe.Left()) == 0) continue;
        sockaddr_in from{};
        const int count = socket.recv_some_from(datagram, sizeof datagram, from);
        if (count > 0) {
            if (!ProcessEvent(datagram, static_cast<size_t>(count), from)) return false;
        } else if (count == 0) {
            // Any sender can send an empty datagram: only a closed socket is an end.
            DiagnosticLog("NetworkUDPClient::ProcessEvents - ret == 0\n");
            if (socket.fd == -1) return false;
        } else {
            DiagnosticLog("NetworkUDPClient::ProcessEvents - recv ERROR (%d)\n", errno);
            DiagnosticLog("NetworkUDPClient::ProcessEvents - unknown/unhandled error, ret %d\n", count);
            return false;
        }
    }
    return true;
}

/// Without memory only this event is lost, and told as missing. @return false after the last event.
bool NetworkUDPClient::ProcessEvent(const char* data, size_t length, const sockaddr_in& from)
try {
    auto message = ReadDatagram(data, length);
    if (!message || message->record.size() < kResponseBytes) {
        DiagnosticLog("NetworkUDPClient::ProcessEvents - %zu bytes are no event\n", length);
        return true;
    }
    const auto event = message->As<XCONFIGMGR_RESPONSE_T>();
    NoteGaps(event, from);
    if (event.configID != GetConfigID()) {
        DiagnosticLog("NetworkUDPClient::ProcessEvents - ConfigID:%d  Inbound ConfigID:%d\n", GetConfigID(),
                      event.configID);
        return true;
    }
    if (!IsEvent(event.msgtype)) {
        DiagnosticLog("NetworkUDPClient::ProcessEvents - Unknown message type %d\n",
                      static_cast<int>(event.msgtype));
        return true;
    }
    const bool isLast = IsShutdown(event);
    // Before the other thread tells it: a listener that is added then starts this thread anew.
    if (isLast) MarkEventsEnded();
    HasQueue();
    Enqueue(event.paramID, *std::move(message));
    if (!isLast) return true;
    DiagnosticLog("NetworkUDPClient::ProcessEvents exiting due to system state going into shutdown state\n");
    return false;
} catch (...) {
    Print("NetworkUDPClient::ProcessEvents - an event was lost by an exception\n");
    TellEventsMissing();
    return true;
}

/// Tells of events that did not come, once this one shows it.
void NetworkUDPClient::NoteGaps(const XCONFIGMGR_RESPONSE_T& event, const sockaddr_in& from)
{
    const uint32_t lost = m_datagrams.LostEvents();
    bool isMissing;
    {
        const MutexLock hold(m_queueLock);
        const bool isAfterGap = event.msgtype == XCFG_PARAM_CHANGED_EVENT &&
                                m_gaps.IsAfterGap(from, event.requestID, event.configID == GetConfigID());
        isMissing = (m_gaps.HasLost(lost) || isAfterGap) && m_keepsEvents;
    }
    if (isMissing) TellEventsMissing();
}

void NetworkUDPClient::Enqueue(eParam_t id, Message event)
{
    const size_t bytes = event.record.capacity() + event.payload.capacity();
    {
        const MutexLock hold(m_queueLock);
        if (!m_keepsEvents) return;
        if (m_queue.Add(id, std::move(event), bytes)) {
            m_queueChanged.NotifyOne();
            return;
        }
    }
    Print("NetworkUDPClient - the events need more than %zu bytes, one is lost\n", kMaxEventBytes);
    TellEventsMissing();
}

/// Asks the server for a number: a daemon that was restarted does not know this client and does not answer.
void NetworkUDPClient::Probe()
{
    const auto request = Request(XCFG_GET_PARAM_REQUEST, eParamID_SystemState);
    const ReplyMatch match{XCFG_GET_PARAM_RESPONSE, 0, ConnectionID(), request.paramID};
    bool isAnswered = false;
    for (int i = 0; i < 2 && !isAnswered; ++i) {
        if (IsExchanging() || IsStopping()) return;
        SemaphoreHelper hold(m_exchangeLock);
        isAnswered = m_datagrams.ExchangeSilently(MessageBytes(request), match, m_probeMs / 4);
    }
    if (!IsStopping()) NoteExchange(isAnswered);
}

// The queue

void NetworkUDPClient::StopQueue()
{
    const MutexLock hold(m_queueLock);
    m_stopQueue = true;
    m_queueChanged.NotifyAll();
}

/// @return false when the queue's thread has to end.
bool NetworkUDPClient::AwaitQueuedEvent()
{
    const MutexLock hold(m_queueLock);
    while (m_queue.IsEmpty() && !m_receiverEnded && !m_stopQueue && !IsStopping())
        m_queueChanged.Wait(m_queueLock);
    return !m_queue.IsEmpty() && !m_stopQueue && !IsStopping();
}

/// @return false when the removal of the last listener has dropped the event.
bool NetworkUDPClient::TakeQueuedEvent(const ListenerList::Turn&, Message& event)
{
    const MutexLock hold(m_queueLock);
    return m_queue.Take(event);
}

void NetworkUDPClient::DeliverQueued(const Message& message)
try {
    const auto event = message.As<XCONFIGMGR_RESPONSE_T>();
    std::string text;
    if (event.msgtype == XCFG_PARAM_CHANGED_EVENT)
        Deliver(event);
    else if (event.msgtype == XCFG_PARAM_DATA_CHANGED_EVENT)
        Listeners().TellData(event.paramID, message.payload, TimeOf(event));
    else if (ReadText(message, text))
        Deliver(event, std::move(text));
    else
        DiagnosticLog("NetworkUDPClient::ProcessEvents - no text for paramid 0x%08X\n", event.paramID);
} catch (...) {
    Print("NetworkUDPClient::ResponseQueueHandler - an event was lost by an exception\n");
    TellEventsMissing();
}

void NetworkUDPClient::ResponseQueueHandler()
{
    {
        const MutexLock hold(m_queueLock);
        m_queueEnded = false;
    }
    while (AwaitQueuedEvent()) {
        const ListenerList::Turn turn(Listeners());
        Message message;
        if (!TakeQueuedEvent(turn, message)) continue;
        DeliverQueued(message);
        if (IsShutdown(message.As<XCONFIGMGR_RESPONSE_T>())) {
            DiagnosticLog(
                "NetworkUDPClient::ResponseQueueHandler exiting due to system state going into "
                "shutdown state\n");
            break;
        }
    }
    if (m_stopQueue || IsStopping()) return;
    m_queueThread.MarkEnded();
    {
        const MutexLock hold(m_queueLock);
        m_queueEnded = true;
    }
    SetDeaf(true);
}

}  // namespace vexa::corvalis::config::access
