#include "device/tcp_link.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "config/access/protocol/value_payload.h"

namespace vexa {

using namespace corvalis::config::access;

namespace {

/// A device that does not answer must not delay the end of its clients for long.
constexpr unsigned int kGoodbyeMs = 200;

bool IsEvent(uint32_t type)
{
    return type == XCFG_PARAM_CHANGED_EVENT || type == XCFG_PARAM_STRING_CHANGED_EVENT;
}

}  // namespace

TcpLink::TcpLink(const DeviceAddress& address, LinkEvents& events)
    : m_address(address), m_events(events), m_records(address.configID)
{
}

/// Without a goodbye, and if its answer met a closed socket, the device would log an error.
TcpLink::~TcpLink()
{
    if (m_socket.Get() == -1 || !m_confirmation || *m_confirmation != 0) return;
    const Deadline deadline(kGoodbyeMs);
    try {
        m_out = m_records.Disconnect();
        m_sent = 0;
        m_confirmation.reset();
        m_isLeaving = true;
        LinkFailure ignored;
        bool isThere = Send(ignored);
        while (isThere && !m_confirmation)
            isThere =
                WaitFor(m_socket.Get(), POLLIN, deadline, -1) == Ready::kReady && TcpLink::Receive(ignored);
    } catch (const std::exception&) {  // no memory for it: the device notices the end all the same
    }
}

bool TcpLink::Open(const Deadline& deadline, int wake, LinkFailure& failure)
{
    if (!ConnectTo(m_address.host, m_address.port, SOCK_STREAM, deadline, wake, m_socket, failure))
        return false;
    m_out = m_records.Connect() + m_records.Listen();
    m_sent = 0;
    return Send(failure) && IsConfirmed(deadline, wake, failure);
}

bool TcpLink::IsConfirmed(const Deadline& deadline, int wake, LinkFailure& failure)
{
    while (!m_confirmation) {
        const short events = m_sent < m_out.size() ? POLLIN | POLLOUT : POLLIN;
        const Ready ready = WaitFor(m_socket.Get(), events, deadline, wake);
        if (ready != Ready::kReady) return NotReady(ready, "no answer to the request to connect", failure);
        if (!Send(failure) || !Receive(failure)) break;
    }
    if (m_confirmation && *m_confirmation == 0) return true;
    // A device that does not want ends the connection.
    failure.kind = LinkFailure::Kind::kRefused;
    if (m_in.empty()) failure.reason += " without a word: if it does not serve this address, its log says so";
    if (m_confirmation) failure.reason = "the device answers error " + std::to_string(*m_confirmation);
    return false;
}

bool TcpLink::Exchange(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                       const Deadline& deadline, int wake, LinkFailure& failure)
{
    // Also when the memory runs out, nothing is due to replies that are gone.
    struct End {
        std::deque<Due>& due;
        ~End() { due.clear(); }
    } const end{m_due};
    replies.assign(requests.size(), {});
    m_out.erase(0, m_sent);
    m_sent = 0;
    for (size_t i = 0; i < requests.size(); ++i) {
        m_out += m_records.Request(requests[i], ++m_lastNumber);
        m_due.push_back({m_lastNumber, &replies[i]});
    }
    // Nothing answers a Set, so those behind the last Get need no wait.
    for (auto last = requests.rbegin(); last != requests.rend() && last->IsSet(); ++last) m_due.pop_back();
    bool isWhole = Send(failure);
    while (isWhole && (!m_due.empty() || m_sent < m_out.size())) {
        const short events = m_sent < m_out.size() ? POLLIN | POLLOUT : POLLIN;
        const Ready ready = WaitFor(m_socket.Get(), events, deadline, wake);
        isWhole = ready == Ready::kReady ? Send(failure) && Receive(failure)
                                         : NotReady(ready, "no answer", failure);
    }
    return isWhole;
}

bool TcpLink::Send(LinkFailure& failure)
{
    while (m_sent < m_out.size()) {
        const ssize_t sent = send(m_socket.Get(), m_out.data() + m_sent, m_out.size() - m_sent, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0 && errno == EAGAIN) return true;
        if (sent < 0) return Lost(failure, strerror(errno));
        m_sent += static_cast<size_t>(sent);
    }
    m_out.clear();
    m_sent = 0;
    return true;
}

bool TcpLink::Receive(LinkFailure& failure)
{
    if (!ReadPiece(failure)) return false;
    while (TakeMessage(failure)) continue;
    m_in.erase(0, m_taken);
    m_taken = 0;
    return failure.reason.empty();
}

/// Reads what is there. @return false at the end of the connection.
bool TcpLink::ReadPiece(LinkFailure& failure)
{
    failure.reason.clear();
    std::array<char, size_t{64} * 1024> piece;
    const ssize_t count = recv(m_socket.Get(), piece.data(), piece.size(), MSG_DONTWAIT);
    if (count > 0) m_in.append(piece.data(), static_cast<size_t>(count));
    if (count == 0) return Lost(failure, "the device has ended the connection");
    return count > 0 || errno == EAGAIN || errno == EINTR || Lost(failure, strerror(errno));
}

/// @return false when there is no whole message, or one that no device sends: then with a reason.
bool TcpLink::TakeMessage(LinkFailure& failure)
{
    const char* const data = m_in.data() + m_taken;
    const size_t size = m_in.size() - m_taken;
    MessagePrefix prefix;
    if (!Decode(data, size, prefix)) return false;
    const size_t recordBytes = ReplyRecordBytes(prefix.msgtype);
    if (recordBytes == 0)
        return Lost(failure, "it answers with something else than its protocol (type " +
                                 std::to_string(prefix.msgtype) + ")");
    if (size < recordBytes) return false;
    XCONFIGMGR_RESPONSE_T response;
    if (recordBytes < kResponseBytes) {
        XCONFIGMGR_CONNECTION_RESPONSE_T confirmation;
        Decode(data, size, confirmation);
        m_confirmation = confirmation.error;
        m_taken += recordBytes;
        return true;
    }
    Decode(data, size, response);
    if (response.streamLength > kMaxReplyPayload)
        return Lost(failure, "it answers with an impossible length");
    if (size < recordBytes + response.streamLength) return false;
    Process(response, std::string(data + recordBytes, response.streamLength));
    m_taken += recordBytes + response.streamLength;
    return true;
}

void TcpLink::Process(const XCONFIGMGR_RESPONSE_T& response, const std::string& payload)
{
    std::optional<Value> value = m_records.ValueOf(response, payload);
    if (IsEvent(response.msgtype)) {
        if (m_isLeaving) return;
        if (value)
            m_events.Changed(response.paramID, *std::move(value), TimeOf(response));
        else
            m_events.ChangesMissing();
        return;
    }
    // Requests before this one are answered already, or are never answered: a Set that was accepted.
    while (!m_due.empty() && static_cast<int32_t>(m_due.front().number - response.requestID) < 0)
        m_due.pop_front();
    if (m_due.empty() || m_due.front().number != response.requestID) return;
    LinkReply& reply = *m_due.front().reply;
    m_due.pop_front();
    if (response.error != 0)
        reply.kind = LinkReply::Kind::kRefused;
    else if (value)
        reply = {LinkReply::Kind::kGiven, *std::move(value)};
}

}  // namespace vexa
