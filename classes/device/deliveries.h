/// Deliveries: the thread on which a Device calls its subscribers.
#pragma once

#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "config/base/mutex.h"

namespace vexa {

/// Thread: any.
class Deliveries {
  public:
    /// Delivers one thing, if there is one. @return whether there was.
    using Step = std::function<bool()>;

    Deliveries();
    ~Deliveries();
    Deliveries(const Deliveries&) = delete;
    Deliveries& operator=(const Deliveries&) = delete;

    /// @return what ends it: afterwards the step does not run any more, unless that happens inside it.
    std::shared_ptr<void> Add(Step step);
    /// There is something to deliver.
    void Wake();
    /// No step runs any more.
    void Stop();

  private:
    struct Subscriber {
        Step step;
        bool isRunning = false, isGone = false;
    };
    struct Shared {
        Mutex lock;
        CondVar changed;
        std::vector<std::shared_ptr<Subscriber>> subscribers VEXA_GUARDED_BY(lock);
        bool isAwake VEXA_GUARDED_BY(lock) = false;
        bool isStopping VEXA_GUARDED_BY(lock) = false;
        std::thread::id thread VEXA_GUARDED_BY(lock);
    };

    static void Run(Shared& shared);
    static void RunAll(Shared& shared) VEXA_REQUIRES(shared.lock);
    static bool RunOne(Shared& shared, Subscriber& subscriber);
    static void Remove(Shared& shared, const std::shared_ptr<Subscriber>& subscriber);

    const std::shared_ptr<Shared> m_shared;  // with the subscriptions, which may live longer
    std::thread m_thread;
};

}  // namespace vexa
