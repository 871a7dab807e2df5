/// Mutex, RecursiveMutex and CondVar: those of the standard library in a form that the thread-safety analysis
/// knows.
///
/// Locks that live in the contract's classes are semaphores instead (semaphore_helper.h).
#pragma once

#include <condition_variable>
#include <mutex>

#include "config/base/deadline.h"
#include "config/base/thread_annotations.h"

namespace vexa {

/// A lock for one thread at a time. Not recursive. Thread: any.
class VEXA_CAPABILITY("mutex") Mutex {
  public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Waits until the lock is free.
    void Lock() VEXA_ACQUIRE() { m_mutex.lock(); }
    /// On the thread that holds it.
    void Unlock() VEXA_RELEASE() { m_mutex.unlock(); }
    /// For waits of the system's own condition variables.
    pthread_mutex_t* NativeHandle() { return m_mutex.native_handle(); }

  private:
    friend class CondVar;
    std::mutex m_mutex;
};

/// A lock that its holder may take again. Thread: any.
class VEXA_CAPABILITY("mutex") RecursiveMutex {
  public:
    RecursiveMutex() = default;
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    /// Waits until no other thread holds it.
    void Lock() VEXA_ACQUIRE() { m_mutex.lock(); }
    /// As often as it was taken.
    void Unlock() VEXA_RELEASE() { m_mutex.unlock(); }

  private:
    std::recursive_mutex m_mutex;
};

/// Holds a lock for the life of a scope. Thread: made and destroyed on one thread.
template <class Lockable>
class VEXA_SCOPED_CAPABILITY ScopedLock {
  public:
    /// Borrows the lock.
    explicit ScopedLock(Lockable& lock) VEXA_ACQUIRE(lock) : m_lock(lock) { m_lock.Lock(); }
    ~ScopedLock() VEXA_RELEASE() { m_lock.Unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

  private:
    Lockable& m_lock;
};
/// Holds a Mutex.
using MutexLock = ScopedLock<Mutex>;
/// Holds a RecursiveMutex.
using RecursiveMutexLock = ScopedLock<RecursiveMutex>;

/// Releases a held lock for the life of a scope, for work that must not run under it. Thread: the holder's.
class VEXA_SCOPED_CAPABILITY MutexUnlock {
  public:
    /// @param lock  held by this thread; borrowed.
    explicit MutexUnlock(Mutex& lock) VEXA_RELEASE(lock) : m_lock(lock) { m_lock.Unlock(); }
    ~MutexUnlock() VEXA_RELEASE() { m_lock.Lock(); }
    MutexUnlock(const MutexUnlock&) = delete;
    MutexUnlock& operator=(const MutexUnlock&) = delete;

  private:
    Mutex& m_lock;
};

/// Lets threads wait for a change of the state that a Mutex guards. A wait may end without a change, so it
/// stands in a loop that tests the guarded state: the analysis could not see into a predicate. Thread: any.
class CondVar {
  public:
    /// Releases the lock for the wait, and holds it again afterwards.
    void Wait(Mutex& lock) VEXA_REQUIRES(lock)
    {
        std::unique_lock hold(lock.m_mutex, std::adopt_lock);
        m_changed.wait(hold);
        hold.release();
    }
    /// @return false when the time is over.
    bool Wait(Mutex& lock, const Deadline& deadline) VEXA_REQUIRES(lock)
    {
        if (!deadline.IsLimited()) {
            Wait(lock);
            return true;
        }
        std::unique_lock hold(lock.m_mutex, std::adopt_lock);
        const std::cv_status status = m_changed.wait_until(hold, deadline.End());
        hold.release();
        return status == std::cv_status::no_timeout;
    }
    /// Wakes one of the threads that wait.
    void NotifyOne() { m_changed.notify_one(); }
    /// Wakes all of them.
    void NotifyAll() { m_changed.notify_all(); }

  private:
    std::condition_variable m_changed;
};

}  // namespace vexa
