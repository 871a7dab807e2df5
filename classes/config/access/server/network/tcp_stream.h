/// TcpStream: both directions of an accepted TCP connection; writers never wait for the peer.
#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "config/access/io/socket.h"
#include "config/access/server/clients.h"
#include "config/access/server/network/change_feed.h"
#include "config/base/deadline.h"
#include "config/base/semaphore_helper.h"

namespace vexa::corvalis::config::access {

/// One thread, the owner, reads. What is sent leaves at once if the system takes it; the rest waits in a
/// queue, which the owner sends on while it waits for input. Meanwhile events stay with their feed, which
/// keeps the newest of each parameter, and the owner takes no further requests: so a peer that does not read
/// costs little, and hears the last values when it reads again. One that takes nothing at all for too long is
/// cut off, like one whose connection fails: the owner's next read sees the end of the input.
class TcpStream {
  public:
    /// Bytes that wait for a peer, beyond which it gets no answers to further requests.
    static constexpr size_t kQueueRoom = size_t{64} * 1024;
    /// The same for all peers of the process together; a peer for which nothing waits is always answered.
    static constexpr size_t kAllQueuesRoom = size_t{32} * 1024 * 1024;
    /// The limit of what waits for all of them. A peer for which more would have to wait is cut off.
    static constexpr size_t kMaxAllQueues = 2 * kAllQueuesRoom;
    static constexpr std::chrono::milliseconds kStallTimeout = std::chrono::minutes(1);

    /// @param stallTimeout  how long a peer may take nothing although there is something for it.
    explicit TcpStream(std::unique_ptr<Socket> socket,
                       std::chrono::milliseconds stallTimeout = kStallTimeout);
    ~TcpStream();
    TcpStream(const TcpStream&) = delete;
    TcpStream& operator=(const TcpStream&) = delete;

    // The owner's.
    /// Waits until there is input. @return 1; 0 when the peer, or a failed send, ended the stream; -1 on failure,
    /// with ETIMEDOUT when none came in time.
    int AwaitInput(const Deadline& deadline);
    /// @return `length`; less when the peer, or a failed send, ended the stream; -1 on failure, as AwaitInput.
    int Read(char* data, unsigned int length, const Deadline& deadline);
    /// Waits until there is room for an answer. @return false when the stream has failed.
    bool WaitForRoom();
    /// Waits until the peer has taken what is queued, or the stream has failed.
    void Finish();
    /// Sends the events of a feed from now on. @param self  this stream, which the feed may keep for a while.
    /// @return false, with errno, without a descriptor for it.
    static bool Listen(const std::shared_ptr<TcpStream>& self, std::shared_ptr<ChangeFeed> feed,
                       uint32_t connectionID, eConfigID_t configID);
    /// The events made so far are sent, then the message: no event follows it.
    bool SendLast(const char* data, size_t length);
    /// The identifier in further events.
    void Rename(uint32_t connectionID);
    /// No event is sent after it.
    void StopListening();
    bool IsListening() const;
    /// Adds what is known of its events. Thread: any.
    void AppendTo(ClientInfo& info) const;
    /// A whole message, after the events that were made before it. @return false, with errno, when the stream
    /// has failed.
    bool Send(const char* data, size_t length);

    // For feeds, on any thread.
    /// Sends the next events, if all that was sent before has left. @param batch  may hold them already.
    /// @param least  is lowered to the position of this stream. @return whether there may be more to send.
    bool SendEvents(ChangeFeed::Batch& batch, ChangeFeed::Position& least);
    /// Ends the connection.
    void Abort();

    /// Lives as long as the stream.
    const Socket& Peer() const { return *m_socket; }

  private:
    /// What the peer hears.
    struct Listening {
        std::shared_ptr<ChangeFeed> feed;
        uint32_t connectionID;
        eConfigID_t configID;
        ChangeFeed::Position position;
        uint64_t missed = 0;

        bool HasEvents() const { return position != feed->End(); }
    };

    size_t QueueSize() const VEXA_REQUIRES(m_lock) { return m_queue.size() - m_sent; }
    bool HasRoom() const VEXA_REQUIRES(m_lock);
    bool Fail() VEXA_REQUIRES(m_lock);
    bool Transmit(const char* data, size_t length) VEXA_REQUIRES(m_lock);
    bool Enqueue(const char* data, size_t length) VEXA_REQUIRES(m_lock);
    bool SendAfterEvents(const char* data, size_t length) VEXA_REQUIRES(m_lock);
    bool SendBatch(ChangeFeed::Batch& batch) VEXA_REQUIRES(m_lock);
    void Leave(const std::optional<Listening>& listening) const VEXA_EXCLUDES(m_lock);
    bool ReportLostEvents(const ChangeFeed::Batch& batch) const VEXA_REQUIRES(m_lock);
    void ClearQueue() VEXA_REQUIRES(m_lock);
    void SendQueue() VEXA_EXCLUDES(m_lock);
    void SendHeld() VEXA_EXCLUDES(m_lock);
    bool ReceiveNow(char* data, unsigned int length, int& count);
    int Receive(char* data, unsigned int length, const Deadline& deadline) VEXA_EXCLUDES(m_lock);
    bool WaitAndSend(bool forInput, const Deadline& deadline = Deadline(Deadline::kNever))
        VEXA_EXCLUDES(m_lock);
    int StallTimeLeft() VEXA_REQUIRES(m_lock);
    bool IsShared() const { return m_wake != -1; }

    const std::unique_ptr<Socket> m_socket;
    const std::chrono::milliseconds m_stallTimeout;
    int m_wake = -1;  // an eventfd, readable when a queue began. Set by the owner before others send

    std::array<char, 4096> m_input;  // of the owner, like its positions
    size_t m_inputBegin = 0, m_inputEnd = 0;

    mutable LockSemaphore m_lock;  // orders what is sent
    std::string m_queue VEXA_GUARDED_BY(m_lock);
    size_t m_sent VEXA_GUARDED_BY(m_lock) = 0;  // bytes of the queue that have left already
    std::chrono::steady_clock::time_point m_progress
        VEXA_GUARDED_BY(m_lock);  // when the peer last took bytes
    bool m_failed VEXA_GUARDED_BY(m_lock) = false;
    bool m_isHeld VEXA_GUARDED_BY(m_lock) = false;  // what is sent waits in the queue for what follows it
    std::optional<Listening> m_listening VEXA_GUARDED_BY(m_lock);
};

}  // namespace vexa::corvalis::config::access
