#include "config/access/client/queues/mq_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <system_error>

namespace vexa::config::access {

namespace {

/// Normally there are none; a daemon that answers wrongly makes them.
constexpr size_t kMaxAbandoned = 64;
/// Events of a client that does not take them.
constexpr size_t kMaxKept = 10'000;
/// More than the longest message.
constexpr size_t kSpareBytes = 64;
/// How long events wait at most when an exchange ends and no other one begins.
constexpr std::chrono::milliseconds kQuiet(5);

}  // namespace

MQReader::MQReader(mqd_t queue, const std::string& name, size_t messageBytes, std::function<void()> deliver)
    : m_queue(queue),
      m_blockingQueue(mq_open(name.c_str(), O_RDONLY | O_CLOEXEC)),
      m_wake(eventfd(0, EFD_CLOEXEC)),
      m_deliver(std::move(deliver)),
      m_buffer(messageBytes + kSpareBytes)
{
    if (m_wake != -1) return;
    const int error = errno;  // a wait could not be ended
    if (m_blockingQueue != -1) mq_close(m_blockingQueue);
    throw std::system_error(error, std::generic_category(), "eventfd");
}

MQReader::~MQReader()
{
    if (m_blockingQueue != -1) mq_close(m_blockingQueue);
    if (m_wake != -1) close(m_wake);
}

// --- exchanges ---

MQReader::Exchange::Exchange(MQReader& reader, uint32_t requestID) : m_reader(reader), m_requestID(requestID)
{
    const Hold hold(m_reader.m_lock);
    m_reader.m_exchanges.push_back(this);
    ++m_reader.m_exchangesBegun;
}

MQReader::Exchange::~Exchange()
{
    const Hold hold(m_reader.m_lock);
    std::erase(m_reader.m_exchanges, this);
    if (!m_mayCome) return;
    auto& abandoned = m_reader.m_abandoned;
    if (abandoned.size() == kMaxAbandoned) abandoned.pop_front();
    try {
        abandoned.push_back(m_requestID);
    } catch (const std::bad_alloc&) {  // a late answer will be taken for somebody else's
    }
}

MQReader::Result MQReader::Exchange::Await(const QueueDeadline& deadline, MQMessage& answer)
{
    const Result result = m_reader.Wait([this] { return m_answer.has_value(); }, deadline);
    if (result == Result::kReceived) answer = *std::move(m_answer);
    return result;
}

// --- events ---

MQReader::EventWait::EventWait(MQReader& reader) : m_reader(reader)
{
    const Hold hold(m_reader.m_lock);
    ++m_reader.m_eventWaits;
}

MQReader::EventWait::~EventWait()
{
    Hold hold(m_reader.m_lock);
    --m_reader.m_eventWaits;
    m_reader.StartDelivery(hold);
}

MQReader::Result MQReader::EventWait::Await()
{
    return m_reader.Wait([this] { return !m_reader.m_kept.empty(); }, QueueDeadline(kNoQueueTimeout));
}

void MQReader::SetDelivering(bool wanted)
{
    Hold hold(m_lock);
    m_wanted = wanted;
}

bool MQReader::BeginDelivery()
{
    const Hold hold(m_lock);
    if (!MayDeliver()) return false;
    m_delivering = true;
    return true;
}

bool MQReader::NextToDeliver(MQMessage& message)
{
    const Hold hold(m_lock);
    m_delivering = !m_stopped && !m_kept.empty() && m_eventWaits == 0;
    if (!m_delivering) return false;
    message = std::move(m_kept.front());
    m_kept.pop_front();
    return true;
}

void MQReader::EndDelivery()
{
    const Hold hold(m_lock);
    m_delivering = false;
}

bool MQReader::TakeEvent(MQMessage& message)
{
    const Hold hold(m_lock);
    if (m_stopped || m_kept.empty()) return false;
    message = std::move(m_kept.front());
    m_kept.pop_front();
    return true;
}

void MQReader::DropEvents()
{
    const Hold hold(m_lock);
    m_kept.clear();
}

bool MQReader::MayDeliver() const
{
    return !m_stopped && !m_delivering && m_eventWaits == 0 && !m_kept.empty();
}

void MQReader::StartDelivery(Hold& hold)
{
    if (!m_wanted || !MayDeliver()) return;
    m_delivering = true;
    hold.unlock();
    m_deliver();
    hold.lock();
}

// --- waiting ---

/// One who reads does so until he has what he waits for. Then, or when they get something, the others look.
template <class Done>
MQReader::Result MQReader::Wait(const Done& done, const QueueDeadline& deadline)
{
    Hold hold(m_lock);
    Result result = Result::kReceived;
    while (!done() && result == Result::kReceived) {
        if (m_stopped) {
            errno = ECANCELED;
            result = Result::kStopped;
        } else if (!m_reading) {
            result = Read(hold, &deadline);
        } else if (!Sleep(hold, deadline)) {
            errno = ETIMEDOUT;
            result = Result::kTimedOut;
        }
        StartDelivery(hold);
    }
    if (done()) result = Result::kReceived;
    if (m_reading) return result;
    const int error = errno;
    ReadAll(hold);
    errno = error;
    return result;
}

/// For the end of a reading: no notification tells of what stands behind another message.
void MQReader::ReadAll(Hold& hold)
{
    if (m_wanted || m_again) DrainAll(hold);
    m_changed.notify_all();
    StartDelivery(hold);
}

/// @return false on time-out.
bool MQReader::Sleep(Hold& hold, const QueueDeadline& deadline)
{
    if (deadline.IsLimited()) return m_changed.wait_until(hold, deadline.End()) == std::cv_status::no_timeout;
    m_changed.wait(hold);
    return true;
}

void MQReader::AwaitQuiet()
{
    Hold hold(m_lock);
    if (m_exchanges.empty()) return;
    uint32_t begun;
    do {
        begun = m_exchangesBegun;
        m_stop.wait_for(hold, kQuiet, [this] { return m_stopped.load(); });
        if (!m_reading) ReadAll(hold);  // the exchange may be waiting to send
    } while (!m_stopped && (!m_exchanges.empty() || m_exchangesBegun != begun));
}

bool MQReader::Drain()
{
    Hold hold(m_lock);
    if (m_reading) {
        m_again = true;
        return true;
    }
    const Result result = DrainAll(hold);
    const int error = errno;
    m_changed.notify_all();
    errno = error;
    return result != Result::kFailed;
}

MQReader::Result MQReader::DrainAll(Hold& hold)
{
    Result result = Result::kStopped;
    do {
        m_again = false;
        do {
            if (!m_stopped) result = Read(hold, nullptr);
        } while (!m_stopped && result == Result::kReceived);
    } while (!m_stopped && m_again);
    return result;
}

void MQReader::Stop()
{
    bool blocked;
    {
        const Hold hold(m_lock);
        m_stopped = true;
        blocked = m_blocked;
        m_changed.notify_all();
        m_stop.notify_all();
    }
    eventfd_write(m_wake, 1);
    // Only a message ends a blocking wait. If there is no room for it, there are other messages.
    if (blocked) SendMessage(m_queue, "", 0, 0, QueueDeadline(0));
}

// --- reading ---

/// One message, without holding the lock meanwhile. @param deadline  null: do not wait.
MQReader::Result MQReader::Read(Hold& hold, const QueueDeadline* deadline)
{
    const bool blocked = deadline && !deadline->IsLimited() && m_blockingQueue != -1;
    m_reading = true;
    m_blocked = blocked;
    hold.unlock();
    const ssize_t count = Receive(blocked, deadline);
    const int error = errno;
    hold.lock();
    m_reading = m_blocked = false;
    if (count >= 0) {
        try {
            if (!m_stopped) Route(MQMessage::Decode(m_buffer.data(), static_cast<size_t>(count)));
        } catch (const std::bad_alloc&) {
            fputs("PosixMQClient - a message is lost for want of memory\n", stderr);
        }
        return Result::kReceived;
    }
    errno = error == EAGAIN ? ETIMEDOUT : error;
    if (errno == ETIMEDOUT) return Result::kTimedOut;
    return errno == ECANCELED ? Result::kStopped : Result::kFailed;
}

/// The blocking descriptor saves the question whether there is a message, and while it is waited for, no
/// notification starts a thread.
ssize_t MQReader::Receive(bool blocked, const QueueDeadline* deadline)
{
    if (!deadline) return ReceiveNow(m_queue, m_buffer.data(), m_buffer.size());
    ssize_t count = -1;
    if (blocked) {
        do {
            count = mq_receive(m_blockingQueue, m_buffer.data(), m_buffer.size(), nullptr);
        } while (count == -1 && errno == EINTR);
        return count;
    }
    do {
        if (!WaitForQueue(m_queue, POLLIN, *deadline, m_wake)) return -1;
        count = ReceiveNow(m_queue, m_buffer.data(), m_buffer.size());
    } while (count == -1 && errno == EAGAIN);
    return count;
}

void MQReader::Route(MQMessage message)
{
    if (message.IsEvent()) return Keep(std::move(message));
    const uint32_t requestID = message.info.requestID;
    const auto waits = [](const Exchange* exchange) { return !exchange->m_answer; };
    auto exchange = std::ranges::find_if(m_exchanges, [&](const Exchange* candidate) {
        return waits(candidate) && candidate->m_requestID == requestID;
    });
    if (exchange != m_exchanges.end()) {
        (*exchange)->m_mayCome = false;
    } else {
        if (std::erase(m_abandoned, requestID) > 0) return;
        exchange = std::ranges::find_if(m_exchanges, waits);
    }
    if (exchange == m_exchanges.end()) return Keep(std::move(message));
    (*exchange)->m_answer = std::move(message);
    m_changed.notify_all();
}

void MQReader::Keep(MQMessage message)
{
    if (m_kept.size() == kMaxKept) {
        m_kept.pop_front();
        if (!m_keptDropped) fputs("PosixMQClient - too many events, the oldest are lost\n", stderr);
        m_keptDropped = true;
    }
    if (m_kept.empty()) m_keptDropped = false;
    m_kept.push_back(std::move(message));
    if (m_eventWaits > 0) m_changed.notify_all();
}

}  // namespace vexa::config::access
