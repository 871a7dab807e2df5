#include "config/access/client/network/datagram_replies.h"

#include <linux/sock_diag.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>

#include "config/base/deadline.h"

namespace vexa::corvalis::config::access {

/// A pending failure is dropped as well: it belongs to an earlier request.
void DatagramReplies::DropLateReplies()
{
    constexpr int kEnough = 1000;  // a peer that floods must not delay the request
    const int error = errno;
    char datagram[kMaxMessageBytes];
    // A multicast client has no server, so the datagrams that wait on its socket are events.
    if (m_isConnected)
        for (int i = 0; i < kEnough; ++i)
            if (m_socket.recv_now(datagram, sizeof datagram) == -1 && errno != ECONNREFUSED) break;
    errno = error;
}

bool DatagramReplies::Send(const std::string& request, const ReplyMatch& match, unsigned int)
{
    m_match = match;
    DropLateReplies();
    return m_socket.send(request.data(), static_cast<unsigned int>(request.size()));
}

bool DatagramReplies::Accepts(const Message& message) const
{
    if (message.type != m_match.type && (m_match.otherType == 0 || message.type != m_match.otherType))
        return false;
    if (message.As<MessagePrefix>().connectionID != m_match.connectionID) return false;
    return m_match.paramID == 0 || message.As<XCONFIGMGR_RESPONSE_T>().paramID == m_match.paramID;
}

Outcome DatagramReplies::Await(unsigned int timeoutMs, Message& reply)
{
    const Deadline deadline(timeoutMs);
    for (unsigned int left = timeoutMs;; left = deadline.Left()) {
        if (left == 0 && timeoutMs > 0) {  // datagrams came all the time, but no reply
            Socket::report_timeout(timeoutMs);
            return Outcome::kTimedOut;
        }
        if (!m_socket.read_select(left))
            return m_socket.fd == -1 || deadline.Left() > 0 ? Outcome::kFailed : Outcome::kTimedOut;
        const std::optional<Outcome> outcome = ReceiveReply(reply);
        if (outcome) return *outcome;
    }
}

bool DatagramReplies::ExchangeSilently(const std::string& request, const ReplyMatch& match,
                                       unsigned int timeoutMs)
{
    const Deadline deadline(timeoutMs);
    Message reply;
    m_match = match;
    DropLateReplies();
    if (m_socket.send_some(request.data(), static_cast<unsigned int>(request.size())) <= 0) return false;
    for (std::optional<Outcome> outcome; !deadline.IsOver() && m_socket.fd != -1;) {
        if (m_socket.wait_ready(POLLIN, deadline.Left()) != 0) outcome = ReceiveReply(reply);
        if (outcome) return *outcome == Outcome::kReceived;
    }
    return false;
}

/// The next datagram. @return nothing when it is not the awaited reply.
std::optional<Outcome> DatagramReplies::ReceiveReply(Message& reply)
{
    char datagram[kMaxMessageBytes];
    const int error = errno;
    const int count = m_socket.recv_now(datagram, sizeof datagram);
    if (count == -1 && errno != EAGAIN) return Outcome::kFailed;
    errno = error;
    auto message = ReadDatagram(datagram, static_cast<size_t>(std::max(count, 0)));
    if (!message || !Accepts(*message)) return std::nullopt;
    reply = *std::move(message);
    return Outcome::kReceived;
}

/// One datagram, which holds all of it.
Outcome DatagramReplies::AwaitFirst(char* bytes, unsigned int length, unsigned int timeoutMs)
{
    if (!m_socket.read_select(timeoutMs)) return Outcome::kTimedOut;
    const int count = m_socket.recv_some(bytes, length);
    return count == static_cast<int>(length) ? Outcome::kReceived : Outcome::kFailed;
}

bool DatagramReplies::OpenEventSocket(int port)
{
    if (m_isConnected && !m_eventSocket) {
        auto socket = std::make_unique<Socket>(AF_INET, SOCK_DGRAM);
        if (!socket->create() || !socket->bind(kMulticastGroup, port)) return false;
        socket->set_buffer_size(SO_RCVBUF, kClientBufferBytes);
        m_eventSocket = std::move(socket);
    }
    // Else events would come while nobody here listens, as long as anybody on the host does.
    constexpr int kOff = 0;
    setsockopt(EventSocket().fd, IPPROTO_IP, IP_MULTICAST_ALL, &kOff, sizeof kOff);
    return true;
}

uint32_t DatagramReplies::LostEvents()
{
    uint32_t figures[SK_MEMINFO_VARS] = {};
    socklen_t length = sizeof figures;
    getsockopt(EventSocket().fd, SOL_SOCKET, SO_MEMINFO, figures, &length);
    return figures[SK_MEMINFO_DROPS];
}

void DatagramReplies::Stop()
{
    if (m_eventSocket) m_eventSocket->close();
}

std::optional<Message> ReadDatagram(const char* data, size_t length)
{
    if (length < wire::Size<XCONFIGMGR_CONNECTION_RESPONSE_T>()) return std::nullopt;
    Message message;
    message.type = TypeOf(data);
    if (message.type == XCFG_CONNECT_RESPONSE || message.type == XCFG_DISCONNECT_RESPONSE) {
        message.record.assign(data, wire::Size<XCONFIGMGR_CONNECTION_RESPONSE_T>());
        return message;
    }
    XCONFIGMGR_RESPONSE_T response;
    if (!Decode(data, length, response)) return std::nullopt;
    message.record.assign(data, kResponseBytes);
    message.payload.assign(data + kResponseBytes,
                           std::min<size_t>(response.streamLength, length - kResponseBytes));
    return message;
}

}  // namespace vexa::corvalis::config::access
