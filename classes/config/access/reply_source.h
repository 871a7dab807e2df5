/// ReplySource: where a network client's replies come from, and on TCP its events, too.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "config/access/network_protocol.h"
#include "config/access/socket.h"

namespace vexa::corvalis::config::access {

/// A message as received: its record, of a size that its type gives, and its payload. The payload is shorter
/// than announced when the announcement was too large to believe.
struct Message {
    uint32_t type = 0;
    std::string record;
    std::string payload;

    template <class Record>
    Record As() const
    {
        Record result;
        Decode(record.data(), record.size(), result);
        return result;
    }
};

/// Instead of a type: the first message of a connection, which is the reply whatever it is.
inline constexpr uint32_t kAnyReply = 0;

/// The reply that one exchange waits for. Two clients, or two requests of one client, never see each other's.
struct ReplyMatch {
    uint32_t type = 0;
    uint32_t otherType = 0;  ///< accepted as well; 0: none
    uint32_t connectionID = 0;
    eParam_t paramID{};  ///< 0: a reply without a parameter

    bool Accepts(const Message& message) const;
};

enum class ReplyResult { kReceived, kTimedOut, kFailed };

class ReplySource {
  public:
    using Deadline = std::chrono::steady_clock::time_point;

    virtual ~ReplySource() = default;
    /// Before a request is sent: what will be its reply. Drops what came too late for earlier requests.
    virtual void Expect(const ReplyMatch& match) = 0;
    /// Waits for that reply and drops others. One exchange at a time. A time-out is reported as by
    /// Socket::read_select. After a type that no server sends, the wait fails and the reply has that type.
    virtual ReplyResult Await(unsigned int timeoutMs, Message& reply) = 0;
    /// Ends all waits, now and later. Thread: any.
    virtual void Stop() {}
};

/// Replies and events of one TCP connection. Whoever waits reads for all: an exchange that comes upon an
/// event keeps it for the events thread, the events thread hands a reply to the exchange. So nobody waits for
/// what is already there, and a callback on the events thread can exchange messages itself.
class StreamReplies : public ReplySource {
  public:
    enum class End { kNone, kStopped, kClosed, kFailed, kUnknownType };

    /// @param socket  borrowed; connected.
    explicit StreamReplies(Socket& socket) : m_socket(socket) {}

    void Expect(const ReplyMatch& match) override;
    ReplyResult Await(unsigned int timeoutMs, Message& reply) override;
    void Stop() override;

    /// Waits for the next event. One thread at a time.
    /// @return kNone with an event; else why none will come.
    End AwaitEvent(Message& event);
    /// The type for End::kUnknownType, the error number for End::kFailed.
    uint32_t EndCode() const;

  private:
    struct Read {
        End end = End::kNone;
        uint32_t code = 0;
        std::optional<Message> message;  ///< none at a time-out
    };
    void ReadOne(std::unique_lock<std::mutex>& hold, std::optional<Deadline> deadline);
    Read ReadMessage(std::optional<Deadline> deadline);
    bool TakeMessage(Read& read);
    void Route(Message message);

    Socket& m_socket;

    mutable std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_reading = false;  // somebody reads from the socket
    End m_end = End::kNone;  // no more messages
    uint32_t m_endCode = 0;
    std::optional<ReplyMatch> m_match;  // of the exchange that waits
    std::optional<Message> m_reply;     // for it
    std::deque<Message> m_events;
    bool m_eventsDropped = false;

    // Of the thread that reads.
    std::string m_input;
    size_t m_skip = 0;  // bytes of an unbelievable payload that are still to come
};

/// Replies of a connected UDP socket.
class DatagramReplies : public ReplySource {
  public:
    explicit DatagramReplies(Socket& socket) : m_socket(socket) {}

    void Expect(const ReplyMatch& match) override;
    ReplyResult Await(unsigned int timeoutMs, Message& reply) override;

  private:
    Socket& m_socket;
    ReplyMatch m_match{};
};

/// The message that a datagram holds, its payload limited to what was received; nothing when the datagram is
/// shorter than its record.
std::optional<Message> ReadDatagram(const char* data, size_t length);

/// For Socket::read_select: what is left, at least 0.
unsigned int MillisecondsUntil(ReplySource::Deadline deadline);

}  // namespace vexa::corvalis::config::access
