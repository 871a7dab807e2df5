/// ExchangeLock: one request at a time over all connections of a message-queue factory.
#pragma once

#include <atomic>

#include "config/base/mutex.h"
#include "config/base/semaphore_helper.h"

namespace vexa::config::access {

/// A semaphore whose holder is known: a connection that ends while it waits for an answer gives the lock back
/// at once, and only then.
///
/// A thread that asks again and again keeps the lock for some requests in a row: waking another one for each
/// request takes longer than a request. Then it is the turn of one that waits.
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
        Turn(ExchangeLock& lock, const void* owner, const std::atomic<bool>& ended);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

        /// False when the owner has ended.
        explicit operator bool() const { return m_holds; }

      private:
        ExchangeLock& m_lock;
        const void* const m_owner;
        const bool m_holds;
    };

    /// Frees the lock if the owner holds it, whose turn does not free it again, and has those who wait look
    /// whether they have ended. Thread: any.
    void End(const void* owner);

  private:
    bool Take();
    bool Acquire(const std::atomic<bool>& ended);
    bool TakeWaiting() VEXA_REQUIRES(m_lock);
    void WaitAWhile() VEXA_REQUIRES(m_lock);
    void Release(const void* owner);
    bool HandOver();

    LockSemaphore m_semaphore;
    std::atomic<const void*> m_holder = nullptr;
    std::atomic<unsigned int> m_waiting = 0;  // threads
    std::atomic<unsigned int> m_inARow = 0;   // requests that went before those who wait

    Mutex m_lock;
    CondVar m_changed;
    bool m_handedOver VEXA_GUARDED_BY(m_lock) = false;  // the semaphore stays taken, for a waiting thread
    bool m_holderReturns VEXA_GUARDED_BY(m_lock) =
        false;  // within kLookAgainMs, so do not wake a waiting thread
};

/// What the connections of one factory share. They keep it alive.
struct SharedExchanges {
    ExchangeLock lock;
    std::atomic<uint32_t> nextRequestID = 0;
};

}  // namespace vexa::config::access
