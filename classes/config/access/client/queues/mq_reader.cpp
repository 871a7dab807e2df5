#include "config/access/client/queues/mq_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

#include "config/access/io/connection_utilities.h"
#include "config/base/log.h"

namespace vexa::config::access {

namespace {

/// Beyond the longest message.
constexpr size_t kSpareBytes = 64;
/// What is no change of a parameter of this connection is kept under names of its own.
constexpr eParam_t kNoParameter{0}, kGoodbye{0xFFFFFFFF};
/// How long events wait at most when an exchange ends and no other one begins.
constexpr unsigned int kQuietMs = 5;

/// Whether a request was numbered before another one, or is it. The numbers begin anew after the highest.
bool IsUpTo(uint32_t requestID, const std::optional<uint32_t>& last)
{
    return last && static_cast<int32_t>(requestID - *last) <= 0;
}

bool IsChange(uint32_t type)
{
    return type == XCFG_PARAM_CHANGED_EVENT || type == XCFG_PARAM_STRING_CHANGED_EVENT;
}

}  // namespace

MQReader::MQReader(mqd_t queue, uint32_t connectionID, size_t messageBytes, std::function<void()> deliver,
                   std::function<void()> onLoss)
    : m_queue(queue),
      m_connectionID(connectionID),
      m_blockingQueue(mq_open(ConnectionUtilities::GetQueueName(connectionID).c_str(), O_RDONLY | O_CLOEXEC)),
      m_wake(eventfd(0, EFD_CLOEXEC)),
      m_deliver(std::move(deliver)),
      m_onLoss(std::move(onLoss)),
      m_buffer(messageBytes + kSpareBytes)
{
    if (m_wake != -1) return;
    const int error = errno;  // without it no wait could be ended
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
    m_reader.Begin(this);
}

MQReader::Exchange::~Exchange()
{
    m_reader.End(this);
}

void MQReader::Begin(Exchange* exchange)
{
    const MutexLock hold(m_lock);
    m_exchanges.push_back(exchange);
    ++m_exchangesBegun;
}

void MQReader::End(const Exchange* exchange)
{
    const MutexLock hold(m_lock);
    std::erase(m_exchanges, exchange);
    const uint32_t requestID = exchange->m_requestID;
    if (exchange->m_mayCome && !IsUpTo(requestID, m_abandoned)) m_abandoned = requestID;
}

Outcome MQReader::Exchange::Await(const Deadline& deadline, MQMessage& answer)
{
    const Outcome result = m_reader.Wait(this, deadline);
    if (result == Outcome::kReceived) answer = *std::move(m_answer);
    return result;
}

// --- events ---

MQReader::EventWait::EventWait(MQReader& reader) : m_reader(reader)
{
    m_reader.BeginEventWait();
}

MQReader::EventWait::~EventWait()
{
    m_reader.EndEventWait();
}

void MQReader::BeginEventWait()
{
    const MutexLock hold(m_lock);
    ++m_eventWaits;
}

void MQReader::EndEventWait()
{
    const MutexLock hold(m_lock);
    --m_eventWaits;
    StartDelivery();
}

Outcome MQReader::EventWait::Await()
{
    return m_reader.Wait(nullptr, Deadline(Deadline::kNever));
}

void MQReader::SetDelivering(bool wanted)
{
    MutexLock hold(m_lock);
    m_deliveryWanted = wanted;
}

bool MQReader::BeginDelivery()
{
    const MutexLock hold(m_lock);
    if (!MayDeliver()) return false;
    m_delivering = true;
    return true;
}

void MQReader::DeliverKept()
{
    const MutexLock hold(m_lock);
    StartDelivery();
}

bool MQReader::NextToDeliver(const ListenerList::Turn&, MQMessage& message)
{
    const MutexLock hold(m_lock);
    m_delivering = !m_stopped && !m_events.IsEmpty() && m_eventWaits == 0;
    if (!m_delivering) return false;
    return m_events.Take(message);
}

void MQReader::EndDelivery()
{
    const MutexLock hold(m_lock);
    m_delivering = false;
}

bool MQReader::TakeEvent(const ListenerList::Turn&, MQMessage& message)
{
    const MutexLock hold(m_lock);
    return !m_stopped && m_events.Take(message);
}

void MQReader::DropEvents()
{
    const MutexLock hold(m_lock);
    m_events.Clear();
}

bool MQReader::MayDeliver() const
{
    return !m_stopped && !m_delivering && m_eventWaits == 0 && !m_events.IsEmpty();
}

void MQReader::StartDelivery()
{
    if (!m_deliveryWanted || !MayDeliver()) return;
    m_delivering = true;
    const MutexUnlock meanwhile(m_lock);
    m_deliver();
}

// --- waiting ---

/// @param exchange  null: any event.
bool MQReader::IsDone(const Exchange* exchange) const
{
    return exchange ? exchange->m_answer.has_value() : !m_events.IsEmpty();
}

/// The reading thread reads until its own message has come, then wakes the others.
Outcome MQReader::Wait(const Exchange* exchange, const Deadline& deadline)
{
    const MutexLock hold(m_lock);
    Outcome result = Outcome::kReceived;
    while (!IsDone(exchange) && result == Outcome::kReceived) {
        result = WaitOnce(deadline);
        StartDelivery();
    }
    if (IsDone(exchange)) result = Outcome::kReceived;
    if (m_reading) return result;
    const int error = errno;
    ReadAll();
    errno = error;
    return result;
}

/// @return kReceived when there may be something; else with errno.
Outcome MQReader::WaitOnce(const Deadline& deadline)
{
    if (m_stopped) {
        errno = ECANCELED;
        return Outcome::kStopped;
    }
    if (!m_reading) return Read(&deadline);
    if (m_changed.Wait(m_lock, NextLook(deadline))) return Outcome::kReceived;
    errno = ETIMEDOUT;
    return Outcome::kTimedOut;
}

/// At the end of a thread's reading: no notification reports a message that stands behind another one.
void MQReader::ReadAll()
{
    if (m_deliveryWanted || m_readAgain) DrainAll();
    m_changed.NotifyAll();
    StartDelivery();
}

void MQReader::AwaitQuiet()
{
    const MutexLock hold(m_lock);
    if (m_exchanges.empty()) return;
    uint32_t begun;
    do {
        begun = m_exchangesBegun;
        const Deadline quiet(kQuietMs);
        while (!m_stopped && m_stopChanged.Wait(m_lock, quiet)) continue;
        if (!m_reading) ReadAll();  // the exchange may be waiting to send
    } while (!m_stopped && (!m_exchanges.empty() || m_exchangesBegun != begun));
}

bool MQReader::Drain()
{
    MutexLock hold(m_lock);
    if (m_reading) {
        m_readAgain = true;
        return true;
    }
    const Outcome result = DrainAll();
    const int error = errno;
    m_changed.NotifyAll();
    errno = error;
    return result != Outcome::kFailed;
}

Outcome MQReader::DrainAll()
{
    Outcome result = Outcome::kStopped;
    do {
        m_readAgain = false;
        do {
            if (!m_stopped) result = Read(nullptr);
        } while (!m_stopped && result == Outcome::kReceived);
    } while (!m_stopped && m_readAgain);
    return result;
}

void MQReader::Stop()
{
    bool blocked;
    {
        const MutexLock hold(m_lock);
        m_stopped = true;
        blocked = m_blocked;
        m_changed.NotifyAll();
        m_stopChanged.NotifyAll();
    }
    eventfd_write(m_wake, 1);
    // Only a message ends a blocking wait. If there is no room for it, there are other messages.
    if (blocked) SendMessage(m_queue, "", 0, 0, Deadline(0));
}

// --- reading ---

/// Reads one message, without the lock. @param deadline  null: do not wait.
Outcome MQReader::Read(const Deadline* deadline)
{
    const bool blocked = deadline && !deadline->IsLimited() && m_blockingQueue != -1;
    m_reading = true;
    m_blocked = blocked;
    ssize_t count;
    int error;
    {
        const MutexUnlock meanwhile(m_lock);
        count = Receive(blocked, deadline);
        error = errno;
    }
    m_blocked = false;
    bool isComplete = true;
    if (count >= 0 && !m_stopped) {
        try {
            isComplete = Route(MQMessage::Decode(m_buffer.data(), static_cast<size_t>(count)));
        } catch (const std::bad_alloc&) {
            Print("PosixMQClient - a message is lost for want of memory\n");
            isComplete = false;
        }
    }
    if (!isComplete) {
        const MutexUnlock meanwhile(m_lock);
        m_onLoss();
    }
    m_reading = false;
    if (count >= 0) return isComplete || !deadline ? Outcome::kReceived : Outcome::kTimedOut;
    errno = error == EAGAIN ? ETIMEDOUT : error;
    if (errno == ETIMEDOUT) return Outcome::kTimedOut;
    return errno == ECANCELED ? Outcome::kStopped : Outcome::kFailed;
}

/// A blocking read needs no poll before it, and while a thread blocks in it, no notification starts another
/// one.
ssize_t MQReader::Receive(bool blocked, const Deadline* deadline)
{
    if (!deadline) return ReceiveNow(m_queue, m_buffer.data(), m_buffer.size());
    ssize_t count = -1;
    if (blocked) {
        do {
            count = ReceiveOrLook(m_blockingQueue, m_buffer.data(), m_buffer.size());
        } while (count == -1 && errno == EINTR);
        return count;
    }
    do {
        if (!WaitForQueue(m_queue, POLLIN, *deadline, m_wake)) return -1;
        count = ReceiveNow(m_queue, m_buffer.data(), m_buffer.size());
    } while (count == -1 && errno == EAGAIN);
    return count;
}

/// @return false when events may be missing.
bool MQReader::Route(MQMessage message)
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
        if (IsGoodbye(message)) {
            Keep(std::move(message));
            return false;
        }
        if (IsLate(message)) return true;
        exchange = std::ranges::find_if(m_exchanges, waits);
    }
    if (exchange == m_exchanges.end()) return Keep(std::move(message));
    (*exchange)->m_answer = std::move(message);
    m_changed.NotifyAll();
    return true;
}

bool MQReader::IsGoodbye(const MQMessage& message) const
{
    return message.info.connectionID == m_connectionID && message.msgtype == XCFG_DISCONNECT_RESPONSE;
}

/// The daemon answers in the order of the requests.
bool MQReader::IsLate(const MQMessage& message) const
{
    return message.info.connectionID == m_connectionID && IsUpTo(message.info.requestID, m_abandoned);
}

/// @return false when there is too much: then all that was kept is dropped.
bool MQReader::Keep(MQMessage message)
{
    eParam_t id = kNoParameter;
    if (IsGoodbye(message)) id = kGoodbye;
    if (message.info.connectionID == m_connectionID && IsChange(message.msgtype)) id = message.paramID;
    const size_t bytes = message.stream.size();
    const bool isKept = m_events.Add(id, std::move(message), bytes);
    if (!isKept) m_events.Clear();
    if (m_eventWaits > 0) m_changed.NotifyAll();
    return isKept;
}

}  // namespace vexa::config::access
