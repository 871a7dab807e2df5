#include "config/access/server/network/tcp_stream.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <thread>

namespace vexa::corvalis::config::access {

TcpStream::TcpStream(std::unique_ptr<Socket> socket) : m_socket(std::move(socket))
{
    SemaphoreHelper::Init(lock);
}

TcpStream::~TcpStream()
{
    if (m_wake != -1) close(m_wake);
    SemaphoreHelper::Destroy(lock);
}

bool TcpStream::Share()
{
    if (!IsShared()) m_wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return IsShared();
}

// --- sending ---

bool TcpStream::Fail()
{
    const int error = errno;
    m_failed = true;
    std::string().swap(m_queue);
    m_sent = 0;
    shutdown(m_socket->fd, SHUT_RDWR);
    errno = error;
    return false;
}

bool TcpStream::Send(const char* data, size_t length)
{
    if (m_failed) {
        errno = EPIPE;
        return false;
    }
    if (QueueSize() > 0) {
        if (QueueSize() + length <= kQueueLimit) return Enqueue(data, length);
        errno = ENOBUFS;
        return Fail();
    }
    const int sent = m_socket->send_some(data, static_cast<unsigned int>(length));
    if (sent < 0) return Fail();
    const auto taken = static_cast<size_t>(sent);
    if (taken == length) return true;
    if (IsShared()) eventfd_write(m_wake, 1);  // the owner may be waiting for input only
    return Enqueue(data + taken, length - taken);
}

bool TcpStream::Enqueue(const char* data, size_t length)
try {
    if (m_sent > m_queue.size() / 2) {
        m_queue.erase(0, m_sent);
        m_sent = 0;
    }
    m_queue.append(data, length);
    return true;
} catch (const std::bad_alloc&) {
    // Half of a message may have left: nothing can follow it.
    errno = ENOMEM;
    return Fail();
}

void TcpStream::SendQueue()
{
    SemaphoreHelper hold(lock);
    if (QueueSize() == 0) return;
    const int sent = m_socket->send_some(m_queue.data() + m_sent, static_cast<unsigned int>(QueueSize()));
    if (sent < 0) {
        Fail();
        return;
    }
    m_sent += static_cast<size_t>(sent);
    if (QueueSize() > 0) return;
    std::string().swap(m_queue);  // its memory as well: most connections never queue anything again
    m_sent = 0;
}

// --- receiving ---

/// One wait. @return whether there is input, or its end.
bool TcpStream::WaitAndSend(bool forInput, bool forOutput)
{
    const auto wanted = static_cast<short>((forInput ? POLLIN : 0) | (forOutput ? POLLOUT : 0));
    pollfd descriptors[] = {{m_socket->fd, wanted, 0}, {m_wake, POLLIN, 0}};
    if (poll(descriptors, 2, -1) == -1) {
        // The system may have memory again later; repeating the call at once would keep a processor busy.
        if (errno != EINTR) std::this_thread::sleep_for(std::chrono::milliseconds(kPauseWhenExhaustedMs));
        return false;
    }
    eventfd_t ignored;
    if (descriptors[1].revents) eventfd_read(m_wake, &ignored);
    const short ready = descriptors[0].revents;
    if (ready & (POLLOUT | POLLERR | POLLHUP)) SendQueue();
    return ready & (POLLIN | POLLERR | POLLHUP);
}

/// @return the number of bytes; 0 at the end; -1 on failure. Without a queue and without other senders it
/// takes a single system call.
int TcpStream::Receive(char* data, unsigned int length)
{
    for (;;) {
        bool queued;
        {
            SemaphoreHelper hold(lock);
            if (m_failed) return 0;
            queued = QueueSize() > 0;
        }
        if (!IsShared() && !queued) return m_socket->recv_some(data, length);
        if (!WaitAndSend(true, queued)) continue;
        const int count = m_socket->recv_now(data, length);
        if (count != -1 || (errno != EAGAIN && errno != EWOULDBLOCK)) return count;
    }
}

int TcpStream::Read(char* data, unsigned int length)
{
    unsigned int done = 0;
    while (done < length) {
        if (m_inputBegin == m_inputEnd) {
            const int count = Receive(m_input.data(), static_cast<unsigned int>(m_input.size()));
            if (count <= 0) return count < 0 ? -1 : static_cast<int>(done);
            m_inputBegin = 0;
            m_inputEnd = static_cast<size_t>(count);
        }
        const auto part = std::min<size_t>(length - done, m_inputEnd - m_inputBegin);
        memcpy(data + done, m_input.data() + m_inputBegin, part);
        m_inputBegin += part;
        done += static_cast<unsigned int>(part);
    }
    return static_cast<int>(done);
}

bool TcpStream::WaitForRoom()
{
    for (;;) {
        {
            SemaphoreHelper hold(lock);
            if (m_failed) return false;
            if (QueueSize() <= kQueueLimit / 2) return true;
        }
        WaitAndSend(false, true);
    }
}

}  // namespace vexa::corvalis::config::access
