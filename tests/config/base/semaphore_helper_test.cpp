#include "config/base/semaphore_helper.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <memory>
#include <optional>

#include "support/gate.h"
#include "support/stderr_of.h"

namespace {

thread_local bool waitFails = false;

}  // namespace

/// In front of the C library's.
extern "C" int sem_wait(sem_t* semaphore)
{
    static const auto original = reinterpret_cast<int (*)(sem_t*)>(dlsym(RTLD_NEXT, "sem_wait"));
    if (!waitFails) return original(semaphore);
    errno = EINVAL;
    return -1;
}

namespace {

TEST(SemaphoreHelper, AFailedPostIsReportedAndNullIsNothingToHold)
{
    LockSemaphore full;
    ASSERT_EQ(sem_init(&full.raw, 0, SEM_VALUE_MAX), 0);
    EXPECT_THAT(StderrOf([&] {
                    SemaphoreHelper hold(full);
                    sem_post(&full.raw);  // back to the highest count, which the guard's own post exceeds
                }),
                testing::StartsWith("SemaphoreHelper::~SemaphoreHelper failed to post\n"));
    SemaphoreHelper::Destroy(full);
    EXPECT_EQ(StderrOf([] { std::make_unique<SemaphoreHelper>(static_cast<LockSemaphore*>(nullptr)); }), "");
}

TEST(SemaphoreHelper, HoldsABareSemaphoreAndGoesOnWithoutOneThatFails)
{
    sem_t bare;
    ASSERT_TRUE(SemaphoreHelper::Init(&bare));
    const auto count = [&bare] {
        int now = -1;
        sem_getvalue(&bare, &now);
        return now;
    };
    {
        const SemaphoreHelper hold(&bare);
        EXPECT_EQ(count(), 0);
    }
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(StderrOf([&] {
                  waitFails = true;
                  const SemaphoreHelper hold(&bare);
                  waitFails = false;
                  EXPECT_EQ(count(), 1) << "it was not taken";
              }),
              "Semaphore(): call to sem_wait failed\n: Invalid argument\n");
    EXPECT_EQ(count(), 2) << "posted all the same";
    EXPECT_TRUE(SemaphoreHelper::Destroy(&bare));
}

std::atomic<int> signalsHandled = 0;

TEST(SemaphoreHelper, KeepsAnotherThreadWaitingEvenIfASignalInterruptsIt)
{
    struct sigaction action = {}, before = {};
    action.sa_handler = [](int) { ++signalsHandled; };  // and no SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);

    LockSemaphore lock;
    EXPECT_TRUE(SemaphoreHelper::Init(lock));
    std::optional<SemaphoreHelper> mine(lock);
    {
        std::atomic<pthread_t> other = 0;
        const WatchedThread thread([&] {
            other = pthread_self();
            SemaphoreHelper hold(lock);
        });
        EXPECT_TRUE(thread.Waits());
        ASSERT_EQ(pthread_kill(other, SIGUSR1), 0);
        EXPECT_TRUE(Eventually([] { return signalsHandled == 1; }));
        EXPECT_TRUE(thread.Waits()) << "the signal let it in";
        mine.reset();
    }
    int count = 0;
    EXPECT_EQ(sem_getvalue(&lock.raw, &count), 0);
    EXPECT_EQ(count, 1) << "posted what it had not taken";
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_TRUE(SemaphoreHelper::Destroy(lock));
}

}  // namespace
