/// ExchangeLock: one request at a time over all connections of a message-queue factory.
#pragma once

#include <atomic>

#include "config/base/mutex.h"
#include "config/base/semaphore_helper.h"

namespace vexa::config::access {

/// A semaphore that knows its holder: a connection that ends while it waits for an answer releases the lock
/// at once, and only if it holds it.
///
/// A thread that sends one request after the other keeps the lock for some of them: waking another thread for
/// each request takes longer than a request. Then a waiting thread gets its turn. Thread: any.
class ExchangeLock {
  public:
    /// Free. A failure prints one line.
    ExchangeLock() { SemaphoreHelper::Init(m_semaphore); }
    ~ExchangeLock() { SemaphoreHelper::Destroy(m_semaphore); }
    ExchangeLock(const ExchangeLock&) = delete;
    ExchangeLock& operator=(const ExchangeLock&) = delete;

    /// Holds the lock for the life of a scope.
    class Turn {
      public:
        /// Waits for the lock.
        /// @param owner  the connection; only compared.
        /// @param ended  whether the owner is ending, which may become true meanwhile.
        Turn(ExchangeLock& lock, const void* owner, const std::atomic<bool>& ended, const Deadline& deadline);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

        /// False when the owner has ended, or the time is over.
        explicit operator bool() const { return m_holds; }

      private:
        ExchangeLock& m_lock;
        const void* const m_owner;
        const bool m_holds;
    };

    /// Releases the lock if the owner holds it; the owner's turn does not release it again. Wakes the waiting
    /// threads, each of which then tests whether its owner has ended. Thread: any.
    void End(const void* owner);

  private:
    bool Take();
    bool Acquire(const std::atomic<bool>& ended, const Deadline& deadline);
    bool TakeWaiting() VEXA_REQUIRES(m_lock);
    void WaitAWhile(const Deadline& deadline) VEXA_REQUIRES(m_lock);
    /// Under the lock: a thread that is about to wait must not miss it.
    void WakeAll() VEXA_REQUIRES(m_lock) { m_changed.NotifyAll(); }
    void Release(const void* owner);
    bool HandOver();

    LockSemaphore m_semaphore;
    std::atomic<const void*> m_holder = nullptr;
    std::atomic<unsigned int> m_waiting = 0;  // threads
    std::atomic<unsigned int> m_inARow = 0;   // requests served while others wait

    Mutex m_lock;
    CondVar m_changed;
    bool m_handedOver VEXA_GUARDED_BY(m_lock) = false;  // the semaphore stays taken, for a waiting thread
    bool m_holderReturns VEXA_GUARDED_BY(m_lock) =
        false;  // within kLookAgainMs, so do not wake a waiting thread
};

/// Shared by the connections of one factory, which keep it alive. Thread: any.
struct SharedExchanges {
    ExchangeLock lock;
    std::atomic<uint32_t> nextRequestID = 0;
};

}  // namespace vexa::config::access
