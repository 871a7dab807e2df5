#include "device/udp_link.h"

#include <arpa/inet.h>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "config/access/protocol/value_payload.h"

namespace vexa {

using namespace corvalis::config::access;

namespace {

constexpr size_t kWindow = 16;  // requests on their way, small enough for any receive buffer
constexpr std::chrono::milliseconds kPatience(250);  // with one answer, until its request is sent again
constexpr int kBufferBytes = 512 * 1024;

using Datagram = std::array<char, kMaxMessageBytes>;

/// Whether the other end of a connected socket is on this machine.
bool IsOnThisMachine(int fd)
{
    sockaddr_in own{}, peer{};
    socklen_t ownLength = sizeof own, peerLength = sizeof peer;
    return getsockname(fd, reinterpret_cast<sockaddr*>(&own), &ownLength) == 0 &&
           getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) == 0 &&
           own.sin_family == AF_INET && own.sin_addr.s_addr == peer.sin_addr.s_addr;
}

/// Bound to the group, so that only those on the interface of the events can send to it.
bool JoinGroup(int fd)
{
    constexpr int kOn = 1, kOff = 0;
    sockaddr_in group{};
    group.sin_family = AF_INET;
    group.sin_port = htons(kMulticastPort);
    inet_pton(AF_INET, kMulticastGroup, &group.sin_addr);
    ip_mreq membership{group.sin_addr, {}};
    inet_pton(AF_INET, kMulticastInterface, &membership.imr_interface);
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof kBufferBytes);
    setsockopt(fd, IPPROTO_IP, IP_MULTICAST_ALL, &kOff, sizeof kOff);
    return bind(fd, reinterpret_cast<const sockaddr*>(&group), sizeof group) == 0 &&
           setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
}

uint32_t DroppedBySocket(int fd)
{
    std::array<uint32_t, SK_MEMINFO_VARS> figures{};
    socklen_t length = sizeof figures;
    getsockopt(fd, SOL_SOCKET, SO_MEMINFO, figures.data(), &length);
    return figures[SK_MEMINFO_DROPS];
}

/// A datagram that is there. @return its size; 0 when there is none, with errno.
size_t Take(int fd, Datagram& datagram, sockaddr_in& from)
{
    socklen_t length = sizeof from;
    errno = EAGAIN;
    const ssize_t count = recvfrom(fd, datagram.data(), datagram.size(), MSG_DONTWAIT,
                                   reinterpret_cast<sockaddr*>(&from), &length);
    return count > 0 ? static_cast<size_t>(count) : 0;
}

bool IsAnsweredBy(const LinkRequest& request, const XCONFIGMGR_RESPONSE_T& response)
{
    if (response.paramID != request.id) return false;
    switch (request.kind) {
        case LinkRequest::Kind::kGetNumber:
            return response.msgtype == XCFG_GET_PARAM_RESPONSE;
        case LinkRequest::Kind::kGetText:
            return response.msgtype == XCFG_GET_STREAM_PARAM_REQUEST ||
                   response.msgtype == XCFG_GET_STREAM_PARAM_RESPONSE;
        case LinkRequest::Kind::kGetData:
            return response.msgtype == XCFG_GET_DATA_RESPONSE;
        case LinkRequest::Kind::kSet:
            return response.msgtype == XCFG_SET_PARAM_RESPONSE;
        case LinkRequest::Kind::kSetData:
            break;
    }
    return false;
}

/// Whether the device says what became of a request.
bool IsAnswered(const LinkRequest& request)
{
    return !request.IsSet() || std::holds_alternative<unsigned int>(request.value);
}

}  // namespace

UdpLink::UdpLink(const DeviceAddress& address, LinkEvents& events)
    : m_address(address), m_listener(events), m_records(address.configID)
{
}

/// Without a goodbye the device would keep the configuration open for this client.
UdpLink::~UdpLink()
{
    try {
        LinkFailure ignored;
        if (m_isConnected) SendDatagram(m_records.Disconnect(), ignored);
    } catch (const std::exception&) {  // no memory for it: the device notices its silence
    }
}

bool UdpLink::Open(const Deadline& deadline, int wake, LinkFailure& failure)
{
    if (!ConnectTo(m_address.host, m_address.port, SOCK_DGRAM, deadline, wake, m_socket, failure))
        return false;
    setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVBUF, &kBufferBytes, sizeof kBufferBytes);
    return Listen(failure) && IsConfirmed(deadline, wake, failure);
}

bool UdpLink::Listen(LinkFailure& failure)
{
    if (!IsOnThisMachine(m_socket.Get())) return true;
    m_events.Reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (m_events.Get() != -1 && JoinGroup(m_events.Get())) {
        m_gaps.HasLost(DroppedBySocket(m_events.Get()));
        return true;
    }
    return Lost(failure, std::string("cannot listen to the changes: ") + strerror(errno));
}

bool UdpLink::IsConfirmed(const Deadline& deadline, int wake, LinkFailure& failure)
{
    while (!deadline.IsOver()) {
        if (!SendDatagram(m_records.Connect(), failure)) return false;
        const Deadline again(std::min(deadline.Left(), static_cast<unsigned int>(kPatience.count())));
        Ready ready = Ready::kReady;
        while ((ready = WaitFor(m_socket.Get(), POLLIN, again, wake)) == Ready::kReady) {
            Datagram datagram;
            sockaddr_in from{};
            const size_t size = Take(m_socket.Get(), datagram, from);
            if (size == 0 && errno != EAGAIN) return Lost(failure, strerror(errno));
            XCONFIGMGR_CONNECTION_RESPONSE_T response;
            if (!Decode(datagram.data(), size, response) || response.msgtype != XCFG_CONNECT_RESPONSE)
                continue;
            failure = {LinkFailure::Kind::kRefused,
                       "the device answers error " + std::to_string(response.error)};
            return m_isConnected = response.error == 0;
        }
        if (ready == Ready::kWoken) return NotReady(ready, "", failure);
    }
    return NotReady(Ready::kTimedOut, "no answer to the request to connect", failure);
}

bool UdpLink::SendDatagram(const std::string& datagram, LinkFailure& failure)
{
    const ssize_t sent = send(m_socket.Get(), datagram.data(), datagram.size(), MSG_NOSIGNAL);
    // What finds no room is lost as it might be on its way.
    if (sent >= 0 || errno == EAGAIN || errno == EINTR || errno == ENOBUFS) return true;
    return Lost(failure, strerror(errno));
}

bool UdpLink::Exchange(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                       const Deadline& deadline, int wake, LinkFailure& failure)
{
    replies.assign(requests.size(), {});
    m_waiting.clear();
    for (m_next = 0; m_next < requests.size() || !m_waiting.empty();) {
        if (!SendNext(requests, failure) || !SendAgain(requests, failure)) return false;
        if (m_waiting.empty()) continue;
        const Deadline pause(std::min(deadline.Left(), static_cast<unsigned int>(kPatience.count())));
        const Ready ready = WaitFor(m_socket.Get(), POLLIN, pause, wake, m_events.Get());
        if (ready == Ready::kWoken || deadline.IsOver()) return NotReady(ready, "no answer", failure);
        if (!ReceiveReplies(requests, replies, failure)) return false;
        ReceiveEvents();
    }
    ReceiveEvents();  // those of its own changes were sent before the answers
    return true;
}

bool UdpLink::SendNext(const std::vector<LinkRequest>& requests, LinkFailure& failure)
{
    for (; m_next < requests.size() && m_waiting.size() < kWindow; ++m_next) {
        if (!SendDatagram(m_records.Request(requests[m_next], ++m_lastNumber), failure)) return false;
        if (IsAnswered(requests[m_next])) m_waiting[m_lastNumber] = {m_next, Clock::now()};
    }
    return true;
}

bool UdpLink::SendAgain(const std::vector<LinkRequest>& requests, LinkFailure& failure)
{
    const Clock::time_point now = Clock::now();
    for (auto& [number, waiting] : m_waiting) {
        const LinkRequest& request = requests[waiting.index];
        if (request.IsSet() || now - waiting.sent < kPatience) continue;
        if (!SendDatagram(m_records.Request(request, number), failure)) return false;
        waiting.sent = now;
    }
    return true;
}

bool UdpLink::ReceiveReplies(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                             LinkFailure& failure)
{
    Datagram datagram;
    sockaddr_in from{};
    while (const size_t size = Take(m_socket.Get(), datagram, from)) {
        XCONFIGMGR_RESPONSE_T response;
        if (!Decode(datagram.data(), size, response)) continue;
        const auto waiting = m_waiting.find(response.requestID);
        if (waiting == m_waiting.end() || !IsAnsweredBy(requests[waiting->second.index], response) ||
            size - kResponseBytes < response.streamLength)
            continue;
        LinkReply& reply = replies[waiting->second.index];
        m_waiting.erase(waiting);
        const auto value =
            m_records.ValueOf(response, std::string(datagram.data() + kResponseBytes, response.streamLength));
        if (response.error != 0)
            reply.kind = LinkReply::Kind::kRefused;
        else if (value)
            reply = {LinkReply::Kind::kGiven, *value};
    }
    return errno == EAGAIN || errno == EINTR || Lost(failure, strerror(errno));
}

void UdpLink::ReceiveEvents()
{
    if (m_events.Get() == -1) return;
    Datagram datagram;
    sockaddr_in from{};
    bool isWhole = true;
    while (const size_t size = Take(m_events.Get(), datagram, from))
        isWhole &= PassOn(datagram.data(), size, from);
    if (m_gaps.HasLost(DroppedBySocket(m_events.Get())) || !isWhole) m_listener.ChangesMissing();
}

/// @return false when this event, or one before it, is missing.
bool UdpLink::PassOn(const char* datagram, size_t size, const sockaddr_in& from)
{
    XCONFIGMGR_RESPONSE_T event;
    if (!Decode(datagram, size, event) || size - kResponseBytes < event.streamLength) return true;
    const bool isOurs = event.configID == m_records.ConfigID();
    const bool isNumber = event.msgtype == XCFG_PARAM_CHANGED_EVENT;
    const bool isAfterGap = isNumber && m_gaps.IsAfterGap(from, event.requestID, isOurs);
    if (!isOurs) return !isAfterGap;
    auto value = m_records.ValueOf(event, std::string(datagram + kResponseBytes, event.streamLength));
    if (!value) return false;
    m_listener.Changed(event.paramID, *std::move(value), TimeOf(event));
    return !isAfterGap;
}

bool UdpLink::Receive(LinkFailure&)
{
    ReceiveEvents();
    return true;
}

}  // namespace vexa
