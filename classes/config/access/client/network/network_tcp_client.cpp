#include "config/access/client/network/network_tcp_client.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "config/access/client/network/stream_replies.h"
#include "config/access/protocol/value_payload.h"

namespace vexa::corvalis::config::access {

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
    return SendOnly(ListenerRequest(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST, id));
} catch (...) {
    return Failed("RegisterForEvents");
}

bool NetworkTCPClient::UnregisterForEvents()
try {
    Message reply;
    const ReplyMatch removed{XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE, 0, m_connectionID, {}};
    if (Exchange(ListenerRequest(XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST, {}), removed, ReplyTimeout(),
                 reply) != Outcome::kReplied) {
        fputs(
            "NetworkTCPClient::UnregisterForEvents - msgtype != XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE\n",
            stderr);
        return false;
    }
    const auto error = static_cast<int>(reply.As<XCONFIGMGR_EVENT_HANDLER_RESPONSE_T>().error);
    if (error == 0) return true;
    fprintf(stderr, "NetworkTCPClient::UnregisterForEvents - error = %d\n", error);
    return false;
} catch (...) {
    return Failed("UnregisterForEvents");
}

/// The next event, unless it was taken away. Without memory it alone is lost.
void NetworkTCPClient::ProcessEvent(StreamReplies& stream)
try {
    const auto turn = m_listeners.TakeTurn();
    Message message;
    if (!stream.TakeEvent(message)) return;
    const auto event = message.As<XCONFIGMGR_RESPONSE_T>();
    std::string text;
    if (message.type == XCFG_PARAM_CHANGED_EVENT)
        Deliver(event);
    else if (ReadText(message, text))
        Deliver(event, text);
    else
        fprintf(stderr, "NetworkTCPClient::ProcessEvents - no text for paramid 0x%08X\n", event.paramID);
} catch (...) {
    fputs("NetworkTCPClient::ProcessEvents - an event was lost by an exception\n", stderr);
}

void NetworkTCPClient::ProcessEvents()
{
    auto& stream = static_cast<StreamReplies&>(*m_replies);
    StreamReplies::End end;
    while ((end = stream.AwaitEvent()) == StreamReplies::End::kNone && !m_stopEvents) ProcessEvent(stream);
    if (m_stopEvents) {
        fputs("NetworkTCPClient::ProcessEvents - end\n", stderr);
    } else if (end == StreamReplies::End::kFailed) {
        errno = static_cast<int>(stream.EndCode());
        perror("NetworkTCPClient::ProcessEvents");
        fprintf(stderr, "NetworkTCPClient::ProcessEvents - recv error (%d) in process ID %d\n",
                static_cast<int>(stream.EndCode()), getpid());
    } else if (end == StreamReplies::End::kUnknownType) {
        fprintf(stderr, "NetworkTCPClient::ProcessEvents - Unknown message type %d\n",
                static_cast<int>(stream.EndCode()));
        fputs("NetworkTCPClient::ProcessEvents - Exiting\n", stderr);
    }
    m_reachable = false;  // whoever finds it so finds the reason as well
}

}  // namespace vexa::corvalis::config::access
