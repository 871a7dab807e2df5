#include "config/access/connector/network_event_listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "support/gate.h"
#include "support/stderr_of.h"
#include "support/test_server.h"

using vexa::corvalis::config::access::NetworkEventListener;

namespace {

constexpr timeval kTime{1'700'000'000, 123'456};
const char* const kUri = "local:configid=55";

/// Takes no listeners.
struct DeafConfig : ConfigManager {
    DeafConfig() : ConfigManager(54) {}
    using ConfigManager::AddConfigEventListener;
    bool AddConfigEventListener(ConfigEventListener*) override { return false; }
};

/// A store that another user keeps alive.
struct NetworkEventListenerTest : testing::Test {
    std::vector<unsigned int> TakeAll()
    {
        std::vector<unsigned int> values;
        listener.SetTimeoutInMS(0);
        EXPECT_EQ(StderrOf([&] {
                      while (listener.WaitForConfigEvent(event)) values.push_back(event.value);
                  }),
                  "NetworkEventListener::WaitForConfigEvent - Timed out\n");
        return values;
    }

    const LocalStore store{55};
    ConfigManager* const config = store.Manager();
    DeafConfig deaf;
    NetworkEventListener listener;
    ConfigEvent event;
};

TEST_F(NetworkEventListenerTest, OpensOnceAndGivesTheConfigurationBack)
{
    EXPECT_FALSE(listener.WaitForConfigEvent(event)) << "closed, at once";
    EXPECT_FALSE(listener.Open(static_cast<Config*>(nullptr)));
    EXPECT_FALSE(listener.Open("socket://127.0.0.1:43110"));
    EXPECT_THAT(StderrOf([&] { EXPECT_FALSE(listener.Open(&deaf)); }), testing::HasSubstr("no events come"));
    EXPECT_FALSE(listener.WaitForConfigEvent(event)) << "still closed";
    for (const bool byUri : {true, false}) {
        ASSERT_TRUE(byUri ? listener.Open(kUri)
                          : listener.Open(ConfigFactoryImpl::GetInstance()->Connect(kUri)));
        EXPECT_FALSE(listener.Open(kUri) || listener.Open(config));
        EXPECT_EQ(config->GetUseCount(), 2) << "nothing was connected in vain";
        config->Set(eParamID_Camera, byUri ? 1u : 2u);
        listener.Close();
        EXPECT_EQ(config->GetUseCount(), 1);
        config->Set(eParamID_Camera, 9u);  // the store lives on and must not tell it any more
        EXPECT_FALSE(listener.WaitForConfigEvent(event));
    }
    ASSERT_TRUE(listener.Open(kUri));
    EXPECT_THAT(TakeAll(), testing::ElementsAre(1u, 2u)) << "what was not taken stays";
}

TEST_F(NetworkEventListenerTest, KeepsEachKindOfChange)
{
    std::string bytes("\0\1", 2);
    listener.Open(kUri);
    config->Set(eParamID_Camera, 3u, kTime);
    config->FireParamChangedEvent(eParamID_CustomClipName, "Scene", kTime);
    config->SetData(eParamID_TestData, bytes, kTime);
    for (const auto& row : {std::tuple{eParamID_Camera, 3u, 3u, std::string(), std::string()},
                            {eParamID_CustomClipName, 12, 0, "Scene", ""},
                            {eParamID_TestData, 12, 0, "", bytes}}) {
        ASSERT_TRUE(listener.WaitForConfigEvent(event));
        EXPECT_EQ(std::tuple(event.paramID, event.paramType, event.value, event.text, event.data), row);
        EXPECT_EQ(event.time.tv_usec, kTime.tv_usec);
    }
}

TEST_F(NetworkEventListenerTest, KeepsTheNewest)
{
    const auto add = [&](unsigned int count) {
        for (unsigned int n = 0; n < count; ++n) listener.ParamChanged(eParamID_Take, n, kTime);
    };
    listener.Open(kUri);
    add(150);
    const std::vector<unsigned int> values = TakeAll();
    ASSERT_EQ(values.size(), 100u);
    EXPECT_EQ(values.front(), 50u);
    EXPECT_EQ(values.back(), 149u);
    add(10);
    listener.SetMaximumQueueSize(3);  // counts from the next event on
    EXPECT_EQ(TakeAll().size(), 10u);
    add(10);
    EXPECT_THAT(TakeAll(), testing::ElementsAre(7u, 8u, 9u));
}

// A wait of 2,500 ms ends between 1.5 and 2.5 seconds after it began.
TEST(NetworkEventListener, DeadlinesFallOnTheSamePointOfASecond)
{
    struct {
        timespec now;
        unsigned int timeoutInMS;
        timespec deadline;
    } const rows[] = {{{1000, 0}, 2500, {1002, 500'000'000}},
                      {{1000, 999'999'999}, 2500, {1002, 500'000'000}},
                      {{1000, 700'000'000}, 600, {1000, 600'000'000}},  // over before it began
                      {{1000, 1}, 0xFFFFFFFE, {1000 + 4'294'967, 294'000'000}}};
    for (const auto& [now, timeout, expected] : rows) {
        const timespec deadline = NetworkEventListener::Deadline(now, timeout);
        EXPECT_EQ(deadline.tv_sec, expected.tv_sec) << timeout;
        EXPECT_EQ(deadline.tv_nsec, expected.tv_nsec) << timeout;
    }
}

TEST_F(NetworkEventListenerTest, CloseReturnsWhenNobodyIsInsideAnyMore)
{
    static std::atomic<bool> isHeld, mayGo;
    isHeld = mayGo = false;
    // Keeps a thread where it is, in its wait.
    signal(SIGUSR1, [](int) {
        isHeld = true;
        while (!mayGo) usleep(1000);
    });
    listener.Open(kUri);
    std::atomic<pthread_t> waiter;
    std::atomic<bool> hasLeft = false;
    const WatchedThread waiting([&] {
        waiter = pthread_self();
        ConfigEvent mine;
        EXPECT_FALSE(listener.WaitForConfigEvent(mine));
        hasLeft = true;
    });
    ASSERT_TRUE(waiting.Waits());
    pthread_kill(waiter, SIGUSR1);
    EXPECT_TRUE(Eventually([&] { return isHeld.load(); }));
    const WatchedThread closing([&] {
        listener.Close();
        EXPECT_TRUE(mayGo);
    });
    EXPECT_TRUE(closing.Waits());
    mayGo = true;
    EXPECT_TRUE(Eventually([&] { return hasLeft.load(); }));
    signal(SIGUSR1, SIG_DFL);
}

TEST_F(NetworkEventListenerTest, ASignalAnEventThatIsNotKeptAndCloseEndWaits)
{
    const auto wake = [this](int how) {
        if (how == 0) listener.Signal();
        if (how == 1) listener.ParamChanged(eParamID_Take, 1u, kTime);
        if (how == 2) listener.Close();
    };
    listener.Open(kUri);
    listener.SetMaximumQueueSize(0);
    for (const int how : {0, 1, 2}) {
        std::atomic<int> left = 0;
        std::vector<std::unique_ptr<WatchedThread>> waiters;
        for (int n = 0; n < 3; ++n)
            waiters.push_back(std::make_unique<WatchedThread>([&] {
                ConfigEvent mine;
                EXPECT_FALSE(listener.WaitForConfigEvent(mine));
                ++left;
            }));
        for (const auto& waiter : waiters) EXPECT_TRUE(waiter->Waits());
        wake(how);
        EXPECT_TRUE(Eventually([&] {
            if (how != 2) wake(how);
            return left == 3;
        }));
    }
}

}  // namespace
