/// StreamReplies: replies and events of one TCP connection.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "config/access/client/network/reply_source.h"

namespace vexa::corvalis::config::access {

/// Whoever waits reads for all: an exchange that comes upon an event keeps it for the events thread, the events
/// thread hands a reply to the exchange. So nobody waits for what is already there, and a callback on the
/// events thread can exchange messages itself. Whoever sends and finds no room reads as well: the server may be
/// waiting for room, too.
class StreamReplies : public ReplySource {
  public:
    enum class End { kNone, kStopped, kClosed, kFailed, kUnknownType };

    /// @param socket  borrowed; connected.
    explicit StreamReplies(Socket& socket) : m_socket(socket) {}

    bool Send(const std::string& request, const ReplyMatch& match, unsigned int timeoutMs) override;
    ReplyResult Await(unsigned int timeoutMs, Message& reply) override;
    void Stop() override;

    /// Waits until there is an event. One thread at a time.
    /// @return kNone when there is; else why none will come.
    End AwaitEvent();
    /// @return false when a removal of the last listener has taken it away meanwhile.
    bool TakeEvent(Message& event);
    /// The type for End::kUnknownType, the error number for End::kFailed.
    uint32_t EndCode() const;

  private:
    /// What one reading brought.
    struct Catch {
        std::vector<Message> messages;
        End end = End::kNone;
        uint32_t code = 0;
    };
    template <class Wait>
    void Read(std::unique_lock<std::mutex>& hold, const Wait& wait);
    void Receive(Catch& caught);
    bool TakeMessage(Catch& caught);
    void Route(Message message);
    bool WaitForRoom(Deadline deadline);

    Socket& m_socket;

    mutable std::mutex m_lock;  // guards what follows
    std::condition_variable m_changed;
    bool m_reading = false;  // somebody reads from the socket
    End m_end = End::kNone;  // no more messages
    uint32_t m_endCode = 0;
    ReplyMatch m_match;              // of the exchange
    std::optional<Message> m_reply;  // for it
    std::deque<Message> m_events;
    bool m_eventsDropped = false;  // since the queue was empty

    // Of the thread that reads.
    std::string m_input;
    size_t m_skip = 0;  // bytes of an unbelievable payload that are still to come
};

}  // namespace vexa::corvalis::config::access
