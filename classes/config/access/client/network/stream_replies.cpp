#include "config/access/client/network/stream_replies.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "config/base/log.h"

namespace vexa::corvalis::config::access {

// --- waiting ---

Outcome StreamReplies::Await(unsigned int timeoutMs, Message& reply)
{
    const Deadline deadline(timeoutMs);
    const auto replyIsThere = [&] {
        if (m_socket.read_select(deadline.Left())) return true;
        // A wait that fails before its time would only fail again, and the next request must not get this
        // reply.
        if (!deadline.IsOver()) throw std::system_error(errno, std::generic_category());
        return false;
    };
    bool reported = false;  // the reading thread's own wait reports its time-out
    {
        const MutexLock hold(m_lock);
        while (!m_reply && m_end == End::kNone && !deadline.IsOver()) {
            reported = !m_reading;
            if (m_reading)
                m_changed.Wait(m_lock, deadline);
            else
                Read(replyIsThere);
        }
        if (m_reply) {
            reply = *std::move(m_reply);
            m_reply.reset();
            return Outcome::kReceived;
        }
        if (m_end != End::kNone) return Outcome::kFailed;
    }
    if (!reported) Socket::report_timeout(timeoutMs);
    return Outcome::kTimedOut;
}

Outcome StreamReplies::AwaitFirst(char* bytes, unsigned int length, unsigned int timeoutMs)
{
    const Deadline deadline(timeoutMs);
    for (unsigned int received = 0; received < length;) {
        if (!m_socket.read_select(deadline.Left())) return Outcome::kTimedOut;
        const int count = m_socket.recv_some(bytes + received, length - received);
        if (count <= 0) return Outcome::kFailed;
        received += static_cast<unsigned int>(count);
    }
    return Outcome::kReceived;
}

StreamReplies::End StreamReplies::AwaitEvent()
{
    const MutexLock hold(m_lock);
    while (m_events.IsEmpty() && m_end == End::kNone) {
        if (m_reading)
            m_changed.Wait(m_lock);
        else
            Read([] { return true; });
    }
    return m_events.IsEmpty() || m_end == End::kStopped ? m_end : End::kNone;
}

bool StreamReplies::TakeEvent(const ListenerList::Turn&, Message& event)
{
    const MutexLock hold(m_lock);
    return m_events.Take(event);
}

void StreamReplies::KeepEvents(bool keep)
{
    const MutexLock hold(m_lock);
    m_keepsEvents = keep;
    if (!keep) m_events.Clear();
}

uint32_t StreamReplies::EndCode() const
{
    const MutexLock hold(m_lock);
    return m_endCode;
}

void StreamReplies::Stop()
{
    const MutexLock hold(m_lock);
    m_end = End::kStopped;
    m_changed.NotifyAll();
}

// --- sending ---

bool StreamReplies::Send(const std::string& request, const ReplyMatch& match, unsigned int timeoutMs)
{
    {
        const MutexLock hold(m_lock);
        m_match = match;
        m_reply.reset();
    }
    const Deadline deadline(timeoutMs);
    size_t sent = 0;
    for (;;) {
        const int count =
            m_socket.send_some(request.data() + sent, static_cast<unsigned int>(request.size() - sent));
        if (count > 0) sent += static_cast<size_t>(count);
        if (sent == request.size()) return true;
        if (count < 0 || !WaitForRoom(deadline)) break;
    }
    Print("Socket::send - failed");
    if (sent > 0) m_socket.close();  // the server would take the next request for the rest of this one
    return false;
}

/// @return false when the connection or the time has ended.
bool StreamReplies::WaitForRoom(const Deadline& deadline)
{
    constexpr unsigned int kTurn = 20;  // milliseconds, after which the reading thread may have left
    {
        const MutexLock hold(m_lock);
        if (m_end != End::kNone || deadline.IsOver()) return false;
        if (!m_reading) {
            Read([&] { return (m_socket.wait_ready(POLLIN | POLLOUT, deadline.Left()) & ~POLLOUT) != 0; });
            return true;
        }
    }
    m_socket.wait_ready(POLLOUT, std::min(deadline.Left(), kTurn));
    return true;
}

// --- reading ---

void StreamReplies::Received::FailForWantOfMemory()
{
    end = End::kFailed;
    code = ENOMEM;
}

/// Reads once for all threads, without the lock, if the wait says that there is something.
template <class Wait>
void StreamReplies::Read(const Wait& wait)
{
    m_reading = true;
    Received received;
    {
        const MutexUnlock meanwhile(m_lock);
        try {
            if (wait()) Receive(received);
        } catch (...) {
            received.FailForWantOfMemory();
        }
        if (m_socket.fd == -1 && received.end == End::kNone) received.end = End::kFailed;
    }
    m_reading = false;
    RouteAll(received);
    m_changed.NotifyAll();
}

void StreamReplies::RouteAll(Received& received)
{
    try {
        for (Message& message : received.messages)
            if (!Route(std::move(message))) {
                received.FailForWantOfMemory();
                break;
            }
    } catch (...) {
        received.FailForWantOfMemory();
    }
    if (m_end != End::kNone || received.end == End::kNone) return;
    m_end = received.end;
    m_endCode = received.code;
}

/// Takes the bytes that the socket has, and splits them into whole messages.
void StreamReplies::Receive(Received& received)
{
    char piece[16 * 1024];
    const int count = m_socket.recv_some(piece, sizeof piece);
    if (count <= 0) {
        const bool whole = count == 0 && m_input.empty() && m_skip == 0;
        received.end = whole ? End::kClosed : End::kFailed;
        received.code = count == 0 ? 0 : static_cast<uint32_t>(errno);
        return;
    }
    m_input.append(piece, static_cast<size_t>(count));
    while (TakeMessage(received)) {
    }
}

bool StreamReplies::TakeMessage(Received& received)
{
    const size_t skipped = std::min(m_skip, m_input.size());
    m_input.erase(0, skipped);
    m_skip -= skipped;
    if (m_input.size() < sizeof(uint32_t)) return false;

    const uint32_t type = TypeOf(m_input.data());
    const size_t recordBytes = ReplyRecordBytes(type);
    if (recordBytes == 0) {
        received.end = End::kUnknownType;
        received.code = type;
        return false;
    }
    if (m_input.size() < recordBytes) return false;
    XCONFIGMGR_RESPONSE_T response;  // stays without payload for the short records
    Decode(m_input.data(), recordBytes, response);
    const bool believed = response.streamLength <= kMaxReplyPayload;
    const size_t payload = believed ? response.streamLength : 0;
    if (m_input.size() < recordBytes + payload) return false;

    received.messages.push_back({type, m_input.substr(0, recordBytes), m_input.substr(recordBytes, payload)});
    m_input.erase(0, recordBytes + payload);
    if (!believed) m_skip = response.streamLength;
    return true;
}

/// One connection has one exchange at a time, so the type says whether a message is its reply.
/// @return false for an event that there is no room for.
bool StreamReplies::Route(Message message)
{
    if (IsEvent(message.type)) return !m_keepsEvents || KeepEvent(std::move(message));
    if (message.type == m_match.type) {
        m_reply = std::move(message);
    } else if (message.type == XCFG_SET_STREAM_PARAM_RESPONSE) {
        const auto response = message.As<XCONFIGMGR_RESPONSE_T>();
        Print("NetworkTCPClient - the string for paramid 0x%08X was refused, error %d\n", response.paramID,
              static_cast<int>(response.error));
    }
    return true;
}

bool StreamReplies::KeepEvent(Message event)
{
    const eParam_t id = event.As<XCONFIGMGR_RESPONSE_T>().paramID;
    const size_t bytes = event.record.capacity() + event.payload.capacity();
    if (m_events.Add(id, std::move(event), bytes)) return true;
    m_socket.close();  // else the server goes on for nobody
    return Report("NetworkTCPClient - the server's events need more than %zu bytes\n", kMaxEventBytes);
}

}  // namespace vexa::corvalis::config::access
