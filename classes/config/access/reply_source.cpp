#include "config/access/reply_source.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace vexa::corvalis::config::access {

namespace {

using std::chrono::steady_clock;

ReplySource::Deadline DeadlineIn(unsigned int timeoutMs)
{
    return steady_clock::now() + std::chrono::milliseconds(timeoutMs);
}

/// Bytes of the record that a type from a server starts; 0 for a type that no server sends.
size_t RecordBytes(uint32_t type)
{
    switch (type) {
        case XCFG_CONNECT_RESPONSE:
        case XCFG_DISCONNECT_RESPONSE:
        case XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE:
            return wire::Size<XCONFIGMGR_CONNECTION_RESPONSE_T>();
        case XCFG_GET_PARAM_RESPONSE:
        case XCFG_SET_PARAM_RESPONSE:
        case XCFG_GET_STREAM_PARAM_RESPONSE:
        case XCFG_SET_STREAM_PARAM_RESPONSE:
        case XCFG_PARAM_CHANGED_EVENT:
        case XCFG_PARAM_STRING_CHANGED_EVENT:
            return kResponseBytes;
        default:
            return 0;
    }
}

bool IsEvent(uint32_t type)
{
    return type == XCFG_PARAM_CHANGED_EVENT || type == XCFG_PARAM_STRING_CHANGED_EVENT;
}

uint32_t TypeOf(const char* data)
{
    MessagePrefix prefix;
    char first[wire::Size<MessagePrefix>()] = {};
    memcpy(first, data, sizeof prefix.msgtype);
    Decode(first, sizeof first, prefix);
    return prefix.msgtype;
}

}  // namespace

unsigned int MillisecondsUntil(ReplySource::Deadline deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
    return static_cast<unsigned int>(std::max<long long>(left, 0));
}

bool ReplyMatch::Accepts(const Message& message) const
{
    if (type != kAnyReply && message.type != type && (otherType == 0 || message.type != otherType))
        return false;
    const auto prefix = message.As<MessagePrefix>();
    if (prefix.connectionID != connectionID) return false;
    return paramID == 0 || message.As<XCONFIGMGR_RESPONSE_T>().paramID == paramID;
}

// StreamReplies

void StreamReplies::Expect(const ReplyMatch& match)
{
    const std::lock_guard hold(m_lock);
    m_match = match;
    m_reply.reset();
}

ReplyResult StreamReplies::Await(unsigned int timeoutMs, Message& reply)
{
    const Deadline deadline = DeadlineIn(timeoutMs);
    std::unique_lock hold(m_lock);
    while (!m_reply && m_end == End::kNone && steady_clock::now() < deadline) {
        if (m_reading)
            m_changed.wait_until(hold, deadline);
        else
            ReadOne(hold, deadline);
    }
    m_match.reset();
    if (!m_reply && m_end == End::kNone) return ReplyResult::kTimedOut;
    if (!m_reply) {
        reply.type = m_end == End::kUnknownType ? m_endCode : 0;
        return ReplyResult::kFailed;
    }
    reply = *std::move(m_reply);
    m_reply.reset();
    return ReplyResult::kReceived;
}

StreamReplies::End StreamReplies::AwaitEvent(Message& event)
{
    std::unique_lock hold(m_lock);
    while (m_events.empty() && m_end == End::kNone) {
        if (m_reading)
            m_changed.wait(hold);
        else
            ReadOne(hold, std::nullopt);
    }
    if (m_events.empty() || m_end == End::kStopped) return m_end;
    event = std::move(m_events.front());
    m_events.pop_front();
    m_eventsDropped = false;
    return End::kNone;
}

uint32_t StreamReplies::EndCode() const
{
    const std::lock_guard hold(m_lock);
    return m_endCode;
}

void StreamReplies::Stop()
{
    const std::lock_guard hold(m_lock);
    m_end = End::kStopped;
    m_changed.notify_all();
}

/// Reads one message for everybody, without holding the lock meanwhile.
void StreamReplies::ReadOne(std::unique_lock<std::mutex>& hold, std::optional<Deadline> deadline)
{
    m_reading = true;
    hold.unlock();
    Read read = ReadMessage(deadline);
    hold.lock();
    m_reading = false;
    if (read.message) Route(*std::move(read.message));
    if (m_end == End::kNone && read.end != End::kNone) {
        m_end = read.end;
        m_endCode = read.code;
    }
    m_changed.notify_all();
}

StreamReplies::Read StreamReplies::ReadMessage(std::optional<Deadline> deadline)
{
    constexpr unsigned int kPiece = 16 * 1024;
    Read read;
    while (!TakeMessage(read)) {
        if (deadline && !m_socket.read_select(MillisecondsUntil(*deadline))) {
            if (m_socket.fd == -1) read.end = End::kFailed;
            return read;
        }
        char piece[kPiece];
        const int count = m_socket.recv_some(piece, kPiece);
        if (count <= 0) {
            const bool whole = count == 0 && m_input.empty() && m_skip == 0;
            read.end = whole ? End::kClosed : End::kFailed;
            read.code = count == 0 ? 0 : static_cast<uint32_t>(errno);
            return read;
        }
        m_input.append(piece, static_cast<size_t>(count));
    }
    return read;
}

/// @return whether the input is to be read no further now: there is a message, or one that cannot be framed.
bool StreamReplies::TakeMessage(Read& read)
{
    const size_t skipped = std::min(m_skip, m_input.size());
    m_input.erase(0, skipped);
    m_skip -= skipped;
    if (m_input.size() < sizeof(uint32_t)) return false;

    const uint32_t type = TypeOf(m_input.data());
    const size_t recordBytes = RecordBytes(type);
    if (recordBytes == 0) {
        read.end = End::kUnknownType;
        read.code = type;
        return true;
    }
    XCONFIGMGR_RESPONSE_T response;  // stays without payload for the short records
    if (m_input.size() < recordBytes) return false;
    Decode(m_input.data(), recordBytes, response);
    const bool believed = response.streamLength <= kMaxReplyPayload;
    const size_t payload = believed ? response.streamLength : 0;
    if (m_input.size() < recordBytes + payload) return false;

    read.message = Message{type, m_input.substr(0, recordBytes), m_input.substr(recordBytes, payload)};
    m_input.erase(0, recordBytes + payload);
    if (!believed) m_skip = response.streamLength;
    return true;
}

void StreamReplies::Route(Message message)
{
    if (IsEvent(message.type)) {
        if (m_events.size() == kMaxQueuedEvents) {
            m_events.pop_front();
            if (!m_eventsDropped) fputs("NetworkTCPClient - too many events, the oldest are lost\n", stderr);
            m_eventsDropped = true;
        }
        m_events.push_back(std::move(message));
    } else if (m_match && m_match->Accepts(message)) {
        m_reply = std::move(message);
    } else if (message.type == XCFG_SET_STREAM_PARAM_RESPONSE) {
        const auto response = message.As<XCONFIGMGR_RESPONSE_T>();
        fprintf(stderr, "NetworkTCPClient - the string for paramid 0x%08X was refused, error %d\n",
                response.paramID, static_cast<int>(response.error));
    }
}

// DatagramReplies

void DatagramReplies::Expect(const ReplyMatch& match)
{
    m_match = match;
    // A multicast client has no server, so what waits on its socket are events.
    if (!m_socket.is_connected()) return;
    constexpr int kEnough = 1000;  // a peer that floods must not hold the request back
    char datagram[kMaxMessageBytes];
    for (int i = 0; i < kEnough; ++i)
        if (m_socket.recv_now(datagram, sizeof datagram) == -1 && errno != ECONNREFUSED) return;
}

ReplyResult DatagramReplies::Await(unsigned int timeoutMs, Message& reply)
{
    const Deadline deadline = DeadlineIn(timeoutMs);
    char datagram[kMaxMessageBytes];
    for (;;) {
        if (!m_socket.read_select(MillisecondsUntil(deadline)))
            return m_socket.fd == -1 ? ReplyResult::kFailed : ReplyResult::kTimedOut;
        const int count = m_socket.recv_now(datagram, sizeof datagram);
        if (count == -1 && errno != EAGAIN) return ReplyResult::kFailed;
        if (count == -1) continue;
        auto message = ReadDatagram(datagram, static_cast<size_t>(count));
        if (!message || !m_match.Accepts(*message)) continue;
        reply = *std::move(message);
        return ReplyResult::kReceived;
    }
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
