/// The lock under which listeners are called.
#pragma once

#include <atomic>
#include <optional>
#include <thread>

#include "config/base/semaphore_helper.h"

namespace vexa {

/// A semaphore that knows the thread that holds it: a listener that writes to its configuration from a
/// callback finds the lock held by its own thread, and passes. Thread: any.
class VEXA_CAPABILITY("semaphore") ListenerLock {
  public:
    ListenerLock() { SemaphoreHelper::Init(m_semaphore); }
    ~ListenerLock() { SemaphoreHelper::Destroy(m_semaphore); }
    ListenerLock(const ListenerLock&) = delete;
    ListenerLock& operator=(const ListenerLock&) = delete;

    /// Holds the lock for a scope; nested scopes of one thread hold it together.
    class VEXA_SCOPED_CAPABILITY Guard {
      public:
        /// Waits for the lock, unless this thread holds it. @param lock  borrowed.
        explicit Guard(ListenerLock& lock) VEXA_ACQUIRE(lock) VEXA_NO_THREAD_SAFETY_ANALYSIS : m_lock(lock)
        {
            if (m_lock.m_owner == std::this_thread::get_id()) return;
            m_hold.emplace(m_lock.m_semaphore);
            m_lock.m_owner = std::this_thread::get_id();
        }
        ~Guard() VEXA_RELEASE() VEXA_NO_THREAD_SAFETY_ANALYSIS
        {
            if (m_hold) m_lock.m_owner = std::thread::id();
        }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

      private:
        ListenerLock& m_lock;
        std::optional<SemaphoreHelper> m_hold;
    };

  private:
    LockSemaphore m_semaphore;
    std::atomic<std::thread::id> m_owner;
};

}  // namespace vexa
