#include "config/access/client/queues/exchange_lock.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

using vexa::config::access::ExchangeLock;
using namespace std::chrono_literals;

namespace {

const std::atomic<bool> kNotEnded = false;

TEST(ExchangeLock, OneThatEndsNoLongerWaits)
{
    ExchangeLock lock;
    const int holder = 1, waiter = 2;
    std::atomic<bool> ended = false;
    const ExchangeLock::Turn held(lock, &holder, kNotEnded);
    auto waits = std::async(std::launch::async, [&] {
        const ExchangeLock::Turn turn(lock, &waiter, ended);
        return static_cast<bool>(turn);
    });
    EXPECT_EQ(waits.wait_for(10ms), std::future_status::timeout);
    ended = true;
    lock.End(&waiter);
    EXPECT_FALSE(waits.get());
}

TEST(ExchangeLock, OneThatEndsWhileItHoldsTheLockFreesItOnce)
{
    ExchangeLock lock;
    const int ending = 1, next = 2, last = 3;
    auto held = std::make_unique<ExchangeLock::Turn>(lock, &ending, kNotEnded);
    lock.End(&ending);
    std::future<bool> waits;
    {
        const ExchangeLock::Turn turn(lock, &next, kNotEnded);
        held.reset();
        waits = std::async(std::launch::async, [&] {
            const ExchangeLock::Turn third(lock, &last, kNotEnded);
            return static_cast<bool>(third);
        });
        EXPECT_EQ(waits.wait_for(10ms), std::future_status::timeout) << "freed twice";
    }
    EXPECT_TRUE(waits.get());
}

TEST(ExchangeLock, ThreadsThatAskAgainAndAgainAllGetTheirTurn)
{
    ExchangeLock lock;
    constexpr int kTurns = 3000;
    int turns = 0, together = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            const int owner = i;
            for (int turn = 0; turn < kTurns; ++turn) {
                const ExchangeLock::Turn held(lock, &owner, kNotEnded);
                EXPECT_EQ(++together, 1);
                if (turn % 100 == i) std::this_thread::yield();
                ++turns;
                --together;
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(turns, 4 * kTurns);
}

}  // namespace
