#include "config/access/client/network/network_tcp_client.h"

#include <unistd.h>

#include <cerrno>

#include "config/access/client/network/stream_replies.h"
#include "config/access/protocol/value_payload.h"
#include "config/base/log.h"

namespace vexa::corvalis::config::access {

NetworkTCPClient::NetworkTCPClient(unsigned int connectionID, Socket* socket, eConfigID_t configID)
    : NetworkTCPClient(connectionID, std::unique_ptr<Socket>(socket), new StreamReplies(*socket), configID)
{
}

NetworkTCPClient::NetworkTCPClient(unsigned int connectionID, std::unique_ptr<Socket> socket,
                                   StreamReplies* replies, eConfigID_t configID)
    : NetworkClient(connectionID, std::move(socket), std::unique_ptr<ReplySource>(replies), configID,
                    "TCPClntPrcsEvts"),
      m_stream(*replies)
{
}

NetworkTCPClient::~NetworkTCPClient()
{
    StopEventsThread();
}

std::string NetworkTCPClient::ListenerRequest(eMessageType_t type, eParam_t id) const
{
    XCONFIGMGR_EVENT_HANDLER_REQUEST_T request;
    static_cast<MessagePrefix&>(request) = Prefix(type);
    request.paramID = id;
    return MessageBytes(request);
}

bool NetworkTCPClient::RegisterForEvents(eParam_t id)
try {
    m_stream.KeepEvents(true);
    if (SendOnly(ListenerRequest(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST, id))) return true;
    m_stream.KeepEvents(false);
    return false;
} catch (...) {
    return Failed("RegisterForEvents");
}

bool NetworkTCPClient::UnregisterForEvents()
try {
    // A listener that is added later must not hear old values after it has read the current ones.
    m_stream.KeepEvents(false);
    Message reply;
    const ReplyMatch removed{XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE, 0, ConnectionID(), {}};
    if (Exchange(ListenerRequest(XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST, {}), removed, ReplyTimeout(),
                 reply) != Outcome::kReceived)
        return Report(
            "NetworkTCPClient::UnregisterForEvents - msgtype != "
            "XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE\n");
    const auto error = static_cast<int>(reply.As<XCONFIGMGR_EVENT_HANDLER_RESPONSE_T>().error);
    if (error == 0) return true;
    return Report("NetworkTCPClient::UnregisterForEvents - error = %d\n", error);
} catch (...) {
    return Failed("UnregisterForEvents");
}

/// Delivers the next event, unless it has been dropped. Without memory only this event is lost.
void NetworkTCPClient::ProcessEvent()
try {
    const ListenerList::Turn turn(Listeners());
    Message message;
    if (!m_stream.TakeEvent(turn, message)) return;
    const auto event = message.As<XCONFIGMGR_RESPONSE_T>();
    std::string text;
    if (message.type == XCFG_PARAM_CHANGED_EVENT)
        Deliver(event);
    else if (ReadText(message, text))
        Deliver(event, text);
    else
        Print("NetworkTCPClient::ProcessEvents - no text for paramid 0x%08X\n", event.paramID);
} catch (...) {
    Print("NetworkTCPClient::ProcessEvents - an event was lost by an exception\n");
    TellEventsMissing();
}

void NetworkTCPClient::ProcessEvents()
{
    StreamReplies::End end;
    while ((end = m_stream.AwaitEvent()) == StreamReplies::End::kNone && !IsStopping()) ProcessEvent();
    if (IsStopping()) {
        Print("NetworkTCPClient::ProcessEvents - end\n");
    } else if (end == StreamReplies::End::kFailed) {
        errno = static_cast<int>(m_stream.EndCode());
        PrintError("NetworkTCPClient::ProcessEvents");
        Print("NetworkTCPClient::ProcessEvents - recv error (%d) in process ID %d\n",
              static_cast<int>(m_stream.EndCode()), getpid());
    } else if (end == StreamReplies::End::kUnknownType) {
        Print("NetworkTCPClient::ProcessEvents - Unknown message type %d\n",
              static_cast<int>(m_stream.EndCode()));
        Print("NetworkTCPClient::ProcessEvents - Exiting\n");
    }
    if (!IsStopping()) SetDeaf(true);  // last: by then the reason is on standard error
}

}  // namespace vexa::corvalis::config::access
