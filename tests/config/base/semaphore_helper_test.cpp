#include "config/base/semaphore_helper.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <memory>
#include <optional>
#include <thread>

#include "support/stderr_of.h"

namespace {

int CountOf(LockSemaphore& lock)
{
    int value = -1;
    EXPECT_EQ(sem_getvalue(&lock.raw, &value), 0);
    return value;
}

TEST(SemaphoreHelper, ExcludesOtherThreadsForOneScope)
{
    LockSemaphore lock;
    EXPECT_TRUE(SemaphoreHelper::Init(lock));
    int counter = 0;
    const auto count = [&] {
        for (int n = 0; n < 500; ++n) {
            SemaphoreHelper hold(lock);
            ++counter;
            EXPECT_EQ(CountOf(lock), 0);
        }
    };
    std::jthread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 1000);
    EXPECT_EQ(CountOf(lock), 1);
    EXPECT_TRUE(SemaphoreHelper::Destroy(lock));
}

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

std::atomic<int> signalsHandled = 0;

TEST(SemaphoreHelper, AnInterruptedWaitGoesOnWaiting)
{
    struct sigaction action = {}, before = {};
    action.sa_handler = [](int) { ++signalsHandled; };  // and no SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);

    LockSemaphore lock;
    SemaphoreHelper::Init(lock);
    std::atomic<bool> inside = false;
    std::optional<SemaphoreHelper> mine(lock);
    std::jthread thread([&] {
        SemaphoreHelper hold(lock);
        inside = true;
    });
    for (int n = 0; n < 500 && !inside; ++n) {  // so many that it waits when most of them arrive
        const int handled = signalsHandled;
        ASSERT_EQ(pthread_kill(thread.native_handle(), SIGUSR1), 0);
        while (signalsHandled == handled && !inside) std::this_thread::yield();
    }
    EXPECT_FALSE(inside) << "a signal let it in";
    mine.reset();
    thread.join();
    EXPECT_TRUE(inside);
    EXPECT_EQ(CountOf(lock), 1) << "posted what it had not taken";
    sigaction(SIGUSR1, &before, nullptr);
    SemaphoreHelper::Destroy(lock);
}

}  // namespace
