#include "config/delivery/backlog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using vexa::Backlog;
using Numbers = Backlog<int>;

constexpr eParam_t kFirst{1}, kSecond{2};

template <class Event>
std::vector<Event> ReadAll(const Backlog<Event>& backlog, typename Backlog<Event>::Position& position,
                           uint64_t* missed = nullptr)
{
    std::vector<Event> events;
    const uint64_t count = backlog.Read(position, [&](const Event& event) {
        events.push_back(event);
        return true;
    });
    if (missed) *missed = count;
    return events;
}

TEST(Backlog, GivesEveryEventInOrderToAReaderThatKeepsUp)
{
    Numbers backlog;
    Numbers::Position position = backlog.End();
    for (const int value : {1, 2, 3}) backlog.Add(value == 2 ? kSecond : kFirst, value);
    EXPECT_EQ(ReadAll(backlog, position), (std::vector{1, 2, 3}));
    backlog.Drop(position);
    EXPECT_TRUE(backlog.IsEmpty());
    backlog.Add(kFirst, 4);
    uint64_t missed = 0;
    EXPECT_EQ(ReadAll(backlog, position, &missed), std::vector{4});
    EXPECT_EQ(missed, 0u);
}

TEST(Backlog, StopsWhereTheReaderStops)
{
    Numbers backlog;
    for (const int value : {1, 2, 3}) backlog.Add(kFirst, value);
    Numbers::Position position = 0;
    int count = 0;
    backlog.Read(position, [&](int) { return ++count < 3; });
    EXPECT_EQ(ReadAll(backlog, position), std::vector{3});
}

// The quiet parameter changed before all the others: its event is the one that a queue of the newest events
// would lose.
TEST(Backlog, KeepsTheNewestEventOfEachParameterForAReaderThatLags)
{
    constexpr int kChanges = 100'000;
    Numbers backlog;
    backlog.Add(kSecond, -1);
    for (int value = 0; value < kChanges; ++value) backlog.Add(kFirst, value);

    Numbers::Position position = 0;
    uint64_t missed = 0;
    const std::vector<int> heard = ReadAll(backlog, position, &missed);
    EXPECT_EQ(heard.front(), -1);
    EXPECT_EQ(heard.back(), kChanges - 1);
    EXPECT_TRUE(std::is_sorted(heard.begin(), heard.end()));
    EXPECT_EQ(missed, kChanges + 1 - heard.size());
    EXPECT_EQ(missed, backlog.LeftOut());
    EXPECT_LT(heard.size() * sizeof(int), Numbers::kHistoryBytes / 10);

    Numbers brief;
    brief.LimitHistory(Numbers::kHistoryBytes / 100);
    for (int value = 0; value < kChanges; ++value) brief.Add(kFirst, value);
    Numbers::Position start = 0;
    EXPECT_LE(brief.HistoryBytes(), Numbers::kHistoryBytes / 100);
    EXPECT_LT(ReadAll(brief, start).size(), heard.size() / 10);
}

TEST(Backlog, TakesEventsOneByOneAndForgetsThem)
{
    Numbers backlog;
    for (const int value : {1, 2, 3}) backlog.Add(kFirst, value);
    int value = 0;
    for (const int expected : {1, 2, 3}) {
        EXPECT_TRUE(backlog.Take(value));
        EXPECT_EQ(value, expected);
    }
    EXPECT_FALSE(backlog.Take(value));
    EXPECT_EQ(value, 3);
    backlog.Add(kFirst, 4);  // nothing refers to what was taken
    EXPECT_TRUE(backlog.Take(value));
    EXPECT_EQ(value, 4);
}

TEST(Backlog, RefusesWhatWouldNeedTooMuchMemoryAndKeepsWhatItHas)
{
    Backlog<std::string> backlog(10'000);
    EXPECT_TRUE(backlog.Add(kFirst, "kept", 5000));
    EXPECT_FALSE(backlog.Add(kSecond, "refused", 6000));
    EXPECT_TRUE(backlog.Add(kFirst, "in its place", 9000));
    std::string event;
    EXPECT_TRUE(backlog.Take(event) && event == "kept");
    EXPECT_TRUE(backlog.Take(event) && event == "in its place");
    EXPECT_TRUE(backlog.Add(kSecond, "again", 9000));
}

}  // namespace
