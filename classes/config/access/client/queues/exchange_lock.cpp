#include "config/access/client/queues/exchange_lock.h"

#include <algorithm>
#include <cerrno>

#include "config/base/log.h"

namespace vexa::config::access {

namespace {

/// Few enough for the delay of the waiting threads to be small.
constexpr unsigned int kMaxInARow = 64;
/// How long the lock may be free at most when its holder does not return.
constexpr unsigned int kLookAgainMs = 2;

}  // namespace

ExchangeLock::Turn::Turn(ExchangeLock& lock, const void* owner, const std::atomic<bool>& ended,
                         const Deadline& deadline)
    : m_lock(lock), m_owner(owner), m_holds(lock.Acquire(ended, deadline))
{
    if (m_holds) m_lock.m_holder = owner;
}

ExchangeLock::Turn::~Turn()
{
    if (m_holds) m_lock.Release(m_owner);
}

/// @return whether the semaphore was free. A real failure counts as free: two exchanges at once are better
/// than none any more.
bool ExchangeLock::Take()
{
    if (sem_trywait(&m_semaphore.raw) == 0) return true;
    if (errno == EAGAIN || errno == EINTR) return false;
    PrintError("Semaphore(): call to sem_wait failed\n");
    return true;
}

bool ExchangeLock::Acquire(const std::atomic<bool>& ended, const Deadline& deadline)
{
    if (ended) return false;
    if (Take()) {
        if (m_waiting > 0) ++m_inARow;
        return true;
    }
    const MutexLock hold(m_lock);
    ++m_waiting;
    // A turn that was handed over is for a thread that has waited, not for the one that handed it over.
    bool taken = (!m_handedOver || m_waiting == 1) && TakeWaiting();
    while (!taken && !ended && !deadline.IsOver()) {
        WaitAWhile(deadline);
        taken = TakeWaiting();
    }
    --m_waiting;
    if (!taken && m_handedOver) m_changed.NotifyOne();  // it was for this thread, perhaps
    return taken;
}

bool ExchangeLock::TakeWaiting()
{
    if (!m_handedOver && !Take()) return false;
    m_handedOver = m_holderReturns = false;
    m_inARow = 0;
    return true;
}

void ExchangeLock::WaitAWhile(const Deadline& deadline)
{
    if (!m_holderReturns) {
        m_changed.Wait(m_lock, deadline);
        m_holderReturns = true;  // unless the lock is free now
        return;
    }
    const unsigned int before = m_inARow;
    m_changed.Wait(m_lock, Deadline(std::min(deadline.Left(), kLookAgainMs)));
    m_holderReturns = m_inARow != before;
}

void ExchangeLock::End(const void* owner)
{
    Release(owner);
    const MutexLock hold(m_lock);
    WakeAll();
}

/// A turn and the end of its connection may both come here: the first one finds the owner and releases the
/// lock.
void ExchangeLock::Release(const void* owner)
{
    if (!m_holder.compare_exchange_strong(owner, nullptr) || HandOver()) return;
    if (sem_post(&m_semaphore.raw) != 0) PrintError("SemaphoreHelper::~SemaphoreHelper failed to post\n");
    const MutexLock hold(m_lock);  // either this sees a waiting thread, or that thread sees the free lock
    if (m_waiting > 0 && !m_holderReturns) m_changed.NotifyOne();
}

bool ExchangeLock::HandOver()
{
    if (m_waiting == 0 || m_inARow < kMaxInARow) return false;
    const MutexLock hold(m_lock);
    if (m_waiting == 0) return false;
    m_handedOver = true;
    m_changed.NotifyOne();
    return true;
}

}  // namespace vexa::config::access
