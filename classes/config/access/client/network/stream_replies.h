/// StreamReplies: replies and events of one TCP connection.
#pragma once

#include <optional>
#include <vector>

#include "config/access/client/network/reply_source.h"
#include "config/access/io/socket.h"
#include "config/base/mutex.h"
#include "config/delivery/backlog.h"
#include "config/listeners/listener_list.h"

namespace vexa::corvalis::config::access {

/// One of the waiting threads reads for all: an exchange keeps an event that it reads for the events thread,
/// the events thread passes a reply on to the exchange. So no thread waits for a message that has already
/// been read, and a callback on the events thread can exchange messages itself. A thread that sends and finds
/// no room reads as well: the server may be waiting for room, too.
/// Thread: exchanges as in ReplySource; AwaitEvent on one thread; TakeEvent, EndCode and Stop on any.
class StreamReplies : public ReplySource {
  public:
    enum class End { kNone, kStopped, kClosed, kFailed, kUnknownType };
    /// Of the newest events of all parameters: a server that sends more is no store. The connection ends then.
    static constexpr size_t kMaxEventBytes = size_t{16} * 1024 * 1024;

    /// @param socket  borrowed; connected.
    explicit StreamReplies(Socket& socket) : m_socket(socket) {}

    bool Send(const std::string& request, const ReplyMatch& match, unsigned int timeoutMs) override;
    Outcome Await(unsigned int timeoutMs, Message& reply) override;
    Outcome AwaitFirst(char* bytes, unsigned int length, unsigned int timeoutMs) override;
    void Stop() override;

    /// Whether events are kept, as long as somebody listens; else they are dropped at once, and those that wait
    /// as well. Default false.
    void KeepEvents(bool keep);
    /// Waits until there is an event. One thread at a time.
    /// @return kNone when there is; else why none will come.
    End AwaitEvent();
    /// @return false when the removal of the last listener has dropped it meanwhile.
    bool TakeEvent(const ListenerList::Turn& turn, Message& event);
    /// The type for End::kUnknownType, the error number for End::kFailed.
    uint32_t EndCode() const;

  private:
    /// The result of one read of the socket.
    struct Received {
        std::vector<Message> messages;
        End end = End::kNone;
        uint32_t code = 0;

        void FailForWantOfMemory();
    };
    template <class Wait>
    void Read(const Wait& wait) VEXA_REQUIRES(m_lock);
    void Receive(Received& received);
    bool TakeMessage(Received& received);
    void RouteAll(Received& received) VEXA_REQUIRES(m_lock);
    bool Route(Message message) VEXA_REQUIRES(m_lock);
    bool KeepEvent(Message event) VEXA_REQUIRES(m_lock);
    bool WaitForRoom(const Deadline& deadline);

    Socket& m_socket;

    mutable Mutex m_lock;
    CondVar m_changed;
    bool m_reading VEXA_GUARDED_BY(m_lock) = false;  // a thread reads from the socket
    End m_end VEXA_GUARDED_BY(m_lock) = End::kNone;  // no more messages
    uint32_t m_endCode VEXA_GUARDED_BY(m_lock) = 0;
    ReplyMatch m_match VEXA_GUARDED_BY(m_lock);              // of the exchange
    std::optional<Message> m_reply VEXA_GUARDED_BY(m_lock);  // for it
    bool m_keepsEvents VEXA_GUARDED_BY(m_lock) = false;
    Backlog<Message> m_events VEXA_GUARDED_BY(m_lock){kMaxEventBytes};

    // Of the reading thread.
    std::string m_input;
    size_t m_skip = 0;  // bytes of a payload that is too large, still to come
};

}  // namespace vexa::corvalis::config::access
