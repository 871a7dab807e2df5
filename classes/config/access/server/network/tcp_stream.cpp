#include "config/access/server/network/tcp_stream.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <thread>
#include <utility>

#include "config/access/server/traffic.h"
#include "config/base/log.h"

namespace vexa::corvalis::config::access {

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<size_t> allQueues = 0;  // bytes

}  // namespace

TcpStream::TcpStream(std::unique_ptr<Socket> socket, std::chrono::milliseconds stallTimeout)
    : m_socket(std::move(socket)), m_stallTimeout(stallTimeout)
{
    SemaphoreHelper::Init(m_lock);
}

TcpStream::~TcpStream()
{
    {
        SemaphoreHelper hold(m_lock);
        ClearQueue();
    }
    if (m_wake != -1) close(m_wake);
    SemaphoreHelper::Destroy(m_lock);
}

// --- sending ---

void TcpStream::ClearQueue()
{
    allQueues -= QueueSize();
    std::string().swap(m_queue);  // its memory as well: most connections never queue anything again
    m_sent = 0;
}

/// Ends the connection; the descriptor stays until the owner has left. @return false, with errno as it was.
bool TcpStream::Fail()
{
    const int error = errno;
    m_failed = true;
    ClearQueue();
    Abort();
    errno = error;
    return false;
}

void TcpStream::Abort()
{
    shutdown(m_socket->fd, SHUT_RDWR);
}

/// Sends what the system takes now and queues the rest.
bool TcpStream::Transmit(const char* data, size_t length)
{
    if (m_failed) {
        errno = EPIPE;
        return false;
    }
    if (QueueSize() > 0) return Enqueue(data, length);
    if (m_isHeld) {
        m_progress = Clock::now();
        return Enqueue(data, length);
    }
    const int sent = m_socket->send_some(data, static_cast<unsigned int>(length));
    if (sent < 0) return Fail();
    const auto taken = static_cast<size_t>(sent);
    Count(Transport::kTcp, Counter::kBytesOut, taken);
    if (taken == length) return true;
    m_progress = Clock::now();
    if (IsShared()) eventfd_write(m_wake, 1);  // the owner may be waiting for input only
    return Enqueue(data + taken, length - taken);
}

bool TcpStream::Enqueue(const char* data, size_t length)
try {
    if (allQueues + length > kMaxAllQueues) {
        Count(Transport::kTcp, Counter::kCutOff);
        Print("NetworkTCPConnection - a client that lags is cut off, for too much waits for all together\n");
        errno = ENOBUFS;
        return Fail();
    }
    if (m_sent > m_queue.size() / 2) {
        m_queue.erase(0, m_sent);
        m_sent = 0;
    }
    m_queue.append(data, length);
    allQueues += length;
    return true;
} catch (const std::bad_alloc&) {
    // Half of a message may have left: nothing can follow it.
    errno = ENOMEM;
    return Fail();
}

bool TcpStream::SendAfterEvents(const char* data, size_t length)
{
    const ChangeFeed::Position end = m_listening ? m_listening->feed->End() : 0;
    while (!m_failed && m_listening && m_listening->position < end) {
        ChangeFeed::Batch batch;
        SendBatch(batch);
    }
    return Transmit(data, length);
}

bool TcpStream::Send(const char* data, size_t length)
{
    SemaphoreHelper hold(m_lock);
    // Answers to requests that came together leave together: at the latest when the owner wants more input.
    if (m_inputBegin < m_inputEnd && QueueSize() == 0) m_isHeld = true;
    return SendAfterEvents(data, length);
}

void TcpStream::SendQueue()
{
    SemaphoreHelper hold(m_lock);
    m_isHeld = false;
    if (QueueSize() > 0) {
        const int sent = m_socket->send_some(m_queue.data() + m_sent, static_cast<unsigned int>(QueueSize()));
        if (sent < 0) {
            Fail();
            return;
        }
        if (sent > 0) m_progress = Clock::now();
        Count(Transport::kTcp, Counter::kBytesOut, static_cast<size_t>(sent));
        m_sent += static_cast<size_t>(sent);
        allQueues -= static_cast<size_t>(sent);
        if (QueueSize() > 0) return;
        ClearQueue();
    }
    const ChangeFeed::Position end = m_listening ? m_listening->feed->End() : 0;
    ChangeFeed::Batch batch;
    while (!m_failed && QueueSize() == 0 && m_listening && m_listening->position < end) SendBatch(batch);
}

// --- events ---

bool TcpStream::Listen(const std::shared_ptr<TcpStream>& self, std::shared_ptr<ChangeFeed> feed,
                       uint32_t connectionID, eConfigID_t configID)
{
    if (!self->IsShared()) self->m_wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (!self->IsShared()) return false;
    SemaphoreHelper hold(self->m_lock);  // a delivery that knows the receiver must find its position
    const ChangeFeed::Position position = feed->Add(self);
    self->m_listening = Listening{std::move(feed), connectionID, configID, position};
    return true;
}

void TcpStream::Rename(uint32_t connectionID)
{
    SemaphoreHelper hold(m_lock);
    if (m_listening) m_listening->connectionID = connectionID;
}

bool TcpStream::IsListening() const
{
    SemaphoreHelper hold(m_lock);
    return m_listening.has_value();
}

void TcpStream::AppendTo(ClientInfo& info) const
{
    SemaphoreHelper hold(m_lock);
    if (!m_listening) return;
    info.listens = true;
    info.waitingEvents = m_listening->feed->End() - m_listening->position;
    info.skippedEvents = m_listening->missed;
}

/// Without the lock: the end of a feed waits for its thread, which may be about to take it.
void TcpStream::Leave(const std::optional<Listening>& listening) const
{
    if (!listening) return;
    listening->feed->Remove(this);
    if (listening->missed > 0)
        Print("NetworkTCPConnection - %llu events were left out for a client that lagged\n",
              static_cast<unsigned long long>(listening->missed));
}

bool TcpStream::SendLast(const char* data, size_t length)
{
    std::optional<Listening> ended;
    bool isSent = false;
    {
        SemaphoreHelper hold(m_lock);
        isSent = SendAfterEvents(data, length);
        ended.swap(m_listening);
    }
    Leave(ended);
    return isSent;
}

void TcpStream::StopListening()
{
    std::optional<Listening> ended;
    {
        SemaphoreHelper hold(m_lock);
        ended.swap(m_listening);
    }
    Leave(ended);
}

bool TcpStream::SendEvents(ChangeFeed::Batch& batch, ChangeFeed::Position& least)
{
    SemaphoreHelper hold(m_lock);
    if (m_failed || !m_listening) return false;
    if (QueueSize() == 0 && m_listening->HasEvents()) SendBatch(batch);
    if (m_failed) return false;
    least = std::min(least, m_listening->position);
    return QueueSize() == 0 && m_listening->HasEvents();
}

bool TcpStream::SendBatch(ChangeFeed::Batch& batch)
try {
    Listening& listening = *m_listening;
    const uint64_t missed = listening.feed->Read(listening.position, batch);
    listening.missed += missed;
    batch.Address(listening.connectionID, listening.configID);
    Count(Transport::kTcp, Counter::kEventsSent, batch.EventCount());
    if (missed > 0) Count(Transport::kTcp, Counter::kEventsSkipped, missed);
    return Transmit(batch.Bytes().data(), batch.Bytes().size()) || ReportLostEvents(batch);
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return Fail();
}

bool TcpStream::ReportLostEvents(const ChangeFeed::Batch& batch) const
{
    if (!batch.BeginsWithText()) {
        PrintError("NetworkTCPConnection::ParamChanged - unable to send event to socket");
        return false;
    }
    PrintError("SendStreamResponse: socket send failed");
    return Report(
        "NetworkTCPConnection::ParamChanged - call to SendStreamResponse failed, unable to send event to "
        "%d\n",
        static_cast<int>(m_listening->connectionID));
}

// --- receiving ---

/// @return milliseconds as poll takes them. A peer that has taken nothing for too long is cut off.
int TcpStream::StallTimeLeft()
{
    if (m_failed || QueueSize() == 0) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(m_progress + m_stallTimeout - Clock::now());
    if (left.count() > 0) return static_cast<int>(std::min<long long>(left.count(), INT_MAX));
    Count(Transport::kTcp, Counter::kCutOff);
    Print("NetworkTCPConnection - a client that has taken nothing for %lld ms is cut off\n",
          static_cast<long long>(m_stallTimeout.count()));
    Fail();
    return 0;
}

/// One wait, for room if something is queued, and for input if that is wanted. @return whether there is
/// input, or its end.
bool TcpStream::WaitAndSend(bool forInput, const Deadline& deadline)
{
    bool forOutput = false;
    int timeLeft = -1;
    {
        SemaphoreHelper hold(m_lock);
        timeLeft = StallTimeLeft();
        if (m_failed) return true;
        forOutput = QueueSize() > 0;
    }
    // Without a limit each is -1, the greatest as an unsigned number.
    timeLeft = static_cast<int>(std::min(static_cast<unsigned int>(timeLeft), deadline.Left()));
    const auto wanted = static_cast<short>((forInput ? POLLIN : 0) | (forOutput ? POLLOUT : 0));
    pollfd descriptors[] = {{m_socket->fd, wanted, 0}, {m_wake, POLLIN, 0}};
    if (poll(descriptors, 2, timeLeft) == -1) {
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

/// Input that is there, or its end. @return false when there is none.
bool TcpStream::ReceiveNow(char* data, unsigned int length, int& count)
{
    count = m_socket->recv_now(data, length);
    return count != -1 || (errno != EAGAIN && errno != EWOULDBLOCK);
}

void TcpStream::SendHeld()
{
    {
        SemaphoreHelper hold(m_lock);
        if (!m_isHeld) return;
    }
    SendQueue();
}

/// @return the number of bytes; 0 at the end; -1 on failure. Without a queue and without other senders it
/// takes a single system call.
int TcpStream::Receive(char* data, unsigned int length, const Deadline& deadline)
{
    int count = 0;
    if (ChangeFeed::Gathering::HasEvents()) {
        if (ReceiveNow(data, length, count)) return count;
        ChangeFeed::Gathering::Deliver();
    }
    SendHeld();
    for (;;) {
        bool queued;
        {
            SemaphoreHelper hold(m_lock);
            if (m_failed) return 0;
            queued = QueueSize() > 0;
        }
        if (!IsShared() && !queued && !deadline.IsLimited()) return m_socket->recv_some(data, length);
        if (WaitAndSend(true, deadline)) {
            if (ReceiveNow(data, length, count)) return count;
        } else if (deadline.IsOver()) {
            errno = ETIMEDOUT;
            return -1;
        }
    }
}

int TcpStream::AwaitInput(const Deadline& deadline)
{
    if (m_inputBegin < m_inputEnd) return 1;
    const int count = Receive(m_input.data(), static_cast<unsigned int>(m_input.size()), deadline);
    if (count <= 0) return count;
    Count(Transport::kTcp, Counter::kBytesIn, static_cast<size_t>(count));
    m_inputBegin = 0;
    m_inputEnd = static_cast<size_t>(count);
    return 1;
}

int TcpStream::Read(char* data, unsigned int length, const Deadline& deadline)
{
    unsigned int done = 0;
    while (done < length) {
        const int found = AwaitInput(deadline);
        if (found <= 0) return found < 0 ? -1 : static_cast<int>(done);
        const auto part = std::min<size_t>(length - done, m_inputEnd - m_inputBegin);
        memcpy(data + done, m_input.data() + m_inputBegin, part);
        m_inputBegin += part;
        done += static_cast<unsigned int>(part);
    }
    return static_cast<int>(done);
}

bool TcpStream::HasRoom() const
{
    return QueueSize() == 0 || (QueueSize() <= kQueueRoom && allQueues <= kAllQueuesRoom);
}

bool TcpStream::WaitForRoom()
{
    for (;;) {
        {
            SemaphoreHelper hold(m_lock);
            if (m_failed) return false;
            if (HasRoom()) return true;
        }
        ChangeFeed::Gathering::Deliver();
        WaitAndSend(false);
    }
}

void TcpStream::Finish()
{
    for (;;) {
        {
            SemaphoreHelper hold(m_lock);
            if (m_failed || QueueSize() == 0) return;
        }
        WaitAndSend(false);
    }
}

}  // namespace vexa::corvalis::config::access
