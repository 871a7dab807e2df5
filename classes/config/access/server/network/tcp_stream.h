/// TcpStream: both directions of an accepted TCP connection; writers never wait for the peer.
#pragma once

#include <array>
#include <memory>
#include <string>

#include "config/access/io/socket.h"
#include "config/base/semaphore_helper.h"

namespace vexa::corvalis::config::access {

/// One thread, the owner, reads. A message leaves at once if the system takes it; otherwise it waits in a
/// bounded queue, which the owner sends on while it waits for input. A send that fails, or finds the queue
/// full, shuts the connection down: the owner's next read sees the end of the input.
class TcpStream {
  public:
    /// Bytes that wait for a peer that does not read. A first message is queued whatever its size: the limit
    /// is for messages that pile up.
    static constexpr size_t kQueueLimit = size_t{1024} * 1024;

    explicit TcpStream(std::unique_ptr<Socket> socket);
    ~TcpStream();
    TcpStream(const TcpStream&) = delete;
    TcpStream& operator=(const TcpStream&) = delete;

    /// @return `length`; less when the peer, or a failed send, ended the stream; -1 on failure.
    int Read(char* data, unsigned int length) VEXA_EXCLUDES(lock);
    /// Waits while more than half of the queue is taken, so that a peer that sends requests and does not read
    /// the replies is slowed down, not cut off.
    /// @return false when the stream has failed.
    bool WaitForRoom() VEXA_EXCLUDES(lock);
    /// From now on other threads send, too. Owner only. @return false without a descriptor for it.
    bool Share();

    /// Whole messages only: a header with its payload. Thread: the owner; any, once shared.
    /// @return false, with errno, when the stream has failed.
    bool Send(const char* data, size_t length) VEXA_REQUIRES(lock);
    /// Ends the connection; the descriptor stays until the owner has left. @return false, with errno as it
    /// was.
    bool Fail() VEXA_REQUIRES(lock);
    bool HasFailed() const VEXA_REQUIRES(lock) { return m_failed; }

    /// Orders the messages that are sent. It is free during reads, and must be during calls into a store.
    LockSemaphore lock;

  private:
    size_t QueueSize() const VEXA_REQUIRES(lock) { return m_queue.size() - m_sent; }
    bool Enqueue(const char* data, size_t length) VEXA_REQUIRES(lock);
    void SendQueue() VEXA_EXCLUDES(lock);
    int Receive(char* data, unsigned int length) VEXA_EXCLUDES(lock);
    bool WaitAndSend(bool forInput, bool forOutput) VEXA_EXCLUDES(lock);
    bool IsShared() const { return m_wake != -1; }

    const std::unique_ptr<Socket> m_socket;
    int m_wake = -1;  // an eventfd, readable when a queue began. Set by the owner before others send

    std::array<char, 4096> m_input;  // of the owner, like its positions
    size_t m_inputBegin = 0, m_inputEnd = 0;

    std::string m_queue VEXA_GUARDED_BY(lock);
    size_t m_sent VEXA_GUARDED_BY(lock) = 0;  // bytes of the queue that have left already
    bool m_failed VEXA_GUARDED_BY(lock) = false;
};

}  // namespace vexa::corvalis::config::access
