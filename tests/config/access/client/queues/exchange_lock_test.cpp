#include "config/access/client/queues/exchange_lock.h"

#include <gtest/gtest.h>

#include <future>

#include "support/gate.h"

using vexa::config::access::ExchangeLock;
using namespace std::chrono_literals;

namespace {

const std::atomic<bool> kNotEnded = false;
const vexa::Deadline kNoLimit(vexa::Deadline::kNever);

TEST(ExchangeLock, OneThatEndsNoLongerWaits)
{
    ExchangeLock lock;
    const int holder = 1, waiter = 2;
    std::atomic<bool> ended = false;
    const ExchangeLock::Turn held(lock, &holder, kNotEnded, kNoLimit);
    auto waits = std::async(std::launch::async, [&] {
        const ExchangeLock::Turn turn(lock, &waiter, ended, kNoLimit);
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
    auto held = std::make_unique<ExchangeLock::Turn>(lock, &ending, kNotEnded, kNoLimit);
    lock.End(&ending);
    std::future<bool> waits;
    {
        const ExchangeLock::Turn turn(lock, &next, kNotEnded, kNoLimit);
        held.reset();
        waits = std::async(std::launch::async, [&] {
            const ExchangeLock::Turn third(lock, &last, kNotEnded, kNoLimit);
            return static_cast<bool>(third);
        });
        EXPECT_EQ(waits.wait_for(10ms), std::future_status::timeout) << "freed twice";
    }
    EXPECT_TRUE(waits.get());
}

TEST(ExchangeLock, AHolderThatAsksAgainAtOnceGoesFirst64TimesAtMost)
{
    ExchangeLock lock;
    const int greedy = 1, patient = 2;
    std::atomic<bool> hadItsTurn = false;
    const OneProcessor shared;
    std::unique_ptr<ExchangeLock::Turn> held;
    const auto askAgain = [&] {
        held.reset();
        held = std::make_unique<ExchangeLock::Turn>(lock, &greedy, kNotEnded, kNoLimit);
    };
    askAgain();
    const WatchedThread waiting([&] {
        OneProcessor::GiveWay();
        const ExchangeLock::Turn turn(lock, &patient, kNotEnded, kNoLimit);
        hadItsTurn = true;
    });
    EXPECT_TRUE(waiting.Waits());
    for (int turn = 0; turn < 65; ++turn) askAgain();
    EXPECT_TRUE(hadItsTurn);
    held.reset();
}

}  // namespace
