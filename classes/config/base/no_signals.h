/// NoSignals: keeps the application's signals away from threads of the library.
#pragma once

#include <pthread.h>
#include <signal.h>

namespace vexa {

/// Blocks all signals of this thread, and so those of the threads that it starts, for a scope.
/// Thread: made and destroyed on one thread.
class NoSignals {
  public:
    NoSignals()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~NoSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

  private:
    sigset_t m_before;
};

}  // namespace vexa
