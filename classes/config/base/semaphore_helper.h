/// The lock of this library: a process-private semaphore of count 1 and the guard that holds it.
#pragma once

#include <semaphore.h>

#include "config/base/export.h"
#include "config/base/thread_annotations.h"

/// A `sem_t` used as a lock, in a form that the thread-safety analysis knows. Same size as the bare `sem_t`.
struct VEXA_CAPABILITY("semaphore") VEXA_EXPORT LockSemaphore {
    sem_t raw;  ///< made by SemaphoreHelper::Init
};

/// Holds a semaphore for the life of a scope.
///
/// A real failure of `sem_wait` is reported and the guarded work goes on; the post at the end still happens.
/// That choice favours progress over strict exclusion. An interrupted wait is no failure and is repeated.
/// Thread: create and destroy on one thread. Not recursive.
class VEXA_SCOPED_CAPABILITY VEXA_EXPORT SemaphoreHelper {
  public:
    /// @param lock  borrowed.
    explicit SemaphoreHelper(LockSemaphore& lock) VEXA_ACQUIRE(lock) : SemaphoreHelper(&lock) {}
    /// @param lock  borrowed; null: nothing is waited for and nothing posted.
    explicit SemaphoreHelper(LockSemaphore* lock) VEXA_ACQUIRE(lock)
        : SemaphoreHelper(lock ? &lock->raw : nullptr)
    {
    }
    /// For a bare semaphore, of which the analysis knows nothing: what it guards is not checked.
    /// @param semaphore  borrowed; may be null.
    explicit SemaphoreHelper(sem_t* semaphore) VEXA_NO_THREAD_SAFETY_ANALYSIS;
    ~SemaphoreHelper() VEXA_RELEASE();
    SemaphoreHelper(const SemaphoreHelper&) = delete;
    SemaphoreHelper& operator=(const SemaphoreHelper&) = delete;

    /// Makes the semaphore: shared between the threads of this process, free. A failure prints one line.
    static bool Init(sem_t* semaphore);
    static bool Init(LockSemaphore& lock) { return Init(&lock.raw); }
    /// Destroys a semaphore for which no thread waits. A failure prints one line.
    static bool Destroy(sem_t* semaphore);
    static bool Destroy(LockSemaphore& lock) { return Destroy(&lock.raw); }

  private:
    sem_t* m_semaphore;
    bool m_owesPost;
};

/// A `LockSemaphore` that is initialised with its object and never destroyed, because threads may still use
/// it while the process, or its owner, ends.
struct VEXA_CAPABILITY("semaphore") VEXA_EXPORT StaticLock : LockSemaphore {
    StaticLock() { SemaphoreHelper::Init(*this); }
};
