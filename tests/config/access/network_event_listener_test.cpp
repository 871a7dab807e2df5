#include "config/access/network_event_listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "config/access/config_factory_impl.h"
#include "support/store.h"

using vexa::corvalis::config::access::NetworkEventListener;

namespace {

constexpr timeval kTime{1'700'000'000, 123'456};
const char* const kUri = "local:configid=55";

Config* Connect()
{
    Config* config = nullptr;
    StderrOf([&] {
        CreateDescriptors();
        config = ConfigFactoryImpl::GetInstance()->Connect(kUri);
    });
    return config;
}

int32_t UseCount(Config* config)
{
    return dynamic_cast<ConfigManager*>(config)->GetUseCount();
}

/// A connection of another user, which keeps the store alive.
struct NetworkEventListenerTest : testing::Test {
    ~NetworkEventListenerTest() override { ConfigFactoryImpl::GetInstance()->Disconnect(config); }

    Config* const config = Connect();
    ConfigEvent event;
};

TEST_F(NetworkEventListenerTest, OpensOnceAndGivesTheConfigurationBack)
{
    NetworkEventListener listener;
    EXPECT_FALSE(listener.WaitForConfigEvent(event)) << "closed, at once";
    EXPECT_FALSE(listener.Open(static_cast<Config*>(nullptr)));
    EXPECT_FALSE(listener.Open("socket://127.0.0.1:43110"));
    listener.Close();

    for (const bool byUri : {true, false}) {
        ASSERT_TRUE(byUri ? listener.Open(kUri) : listener.Open(Connect()));
        EXPECT_EQ(UseCount(config), 2);
        EXPECT_FALSE(listener.Open(kUri));
        EXPECT_FALSE(listener.Open(config));
        EXPECT_EQ(UseCount(config), 2) << "nothing was connected in vain";
        config->Set(eParamID_Camera, 1u);
        EXPECT_TRUE(listener.WaitForConfigEvent(event));
        config->Set(eParamID_Camera, 2u);
        listener.Close();
        EXPECT_EQ(UseCount(config), 1);
        config->Set(eParamID_Camera, 0u);  // not heard any more
        EXPECT_FALSE(listener.WaitForConfigEvent(event));
    }
    ASSERT_TRUE(listener.Open(kUri));
    EXPECT_TRUE(listener.WaitForConfigEvent(event) && listener.WaitForConfigEvent(event))
        << "what nobody took stays";
    EXPECT_EQ(event.value, 2u);
    listener.SetTimeoutInMS(0);
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(listener.WaitForConfigEvent(event)); }),
              "NetworkEventListener::WaitForConfigEvent - Timed out\n");
}

TEST_F(NetworkEventListenerTest, TheStoreMayOutliveTheListener)
{
    {
        NetworkEventListener listener;
        ASSERT_TRUE(listener.Open(kUri));
    }
    config->Set(eParamID_Camera, 1u);
}

TEST_F(NetworkEventListenerTest, KeepsEachKindOfChangeInOrder)
{
    NetworkEventListener listener;
    listener.Open(kUri);
    std::string bytes("\0\1", 2);
    config->Set(eParamID_Camera, 1u, kTime);
    config->Set(eParamID_CustomClipName, "Scene", kTime);
    config->SetData(eParamID_TestData, bytes, kTime);

    ASSERT_TRUE(listener.WaitForConfigEvent(event));
    EXPECT_EQ(event.paramID, eParamID_Camera);
    EXPECT_EQ(event.paramType, 3u);
    EXPECT_EQ(event.value, 1u);
    EXPECT_EQ(event.time.tv_sec, kTime.tv_sec);
    EXPECT_EQ(event.time.tv_usec, kTime.tv_usec);
    do ASSERT_TRUE(listener.WaitForConfigEvent(event));  // past the parameters that follow the name
    while (event.text.empty());
    EXPECT_EQ(event.paramID, eParamID_CustomClipName);
    EXPECT_EQ(event.paramType, 12u);
    EXPECT_EQ(event.text + event.data, "Scene");
    do ASSERT_TRUE(listener.WaitForConfigEvent(event));
    while (event.paramID != eParamID_TestData);
    EXPECT_EQ(event.paramType, 12u);
    EXPECT_EQ(event.text + event.data, bytes);
    EXPECT_EQ(event.time.tv_usec, kTime.tv_usec);
}

TEST_F(NetworkEventListenerTest, KeepsTheNewest)
{
    NetworkEventListener listener;
    listener.Open(kUri);
    listener.SetTimeoutInMS(0);
    const auto take = [&] {
        std::vector<unsigned int> values;
        StderrOf([&] {
            while (listener.WaitForConfigEvent(event)) values.push_back(event.value);
        });
        return values;
    };
    const auto add = [&](unsigned int count) {
        for (unsigned int n = 0; n < count; ++n) listener.ParamChanged(eParamID_Take, n, kTime);
    };

    add(150);
    std::vector<unsigned int> values = take();
    ASSERT_EQ(values.size(), 100u);
    EXPECT_EQ(values.front(), 50u);
    EXPECT_EQ(values.back(), 149u);
    add(10);
    listener.SetMaximumQueueSize(3);  // counts from the next event on
    EXPECT_EQ(take().size(), 10u);
    add(10);
    EXPECT_THAT(take(), testing::ElementsAre(7u, 8u, 9u));
    listener.SetMaximumQueueSize(0);
    add(1);
    EXPECT_THAT(take(), testing::IsEmpty());
}

// A wait of 2,500 ms ends between 1.5 and 2.5 seconds after it began.
TEST(NetworkEventListener, DeadlinesFallOnTheSamePointOfASecond)
{
    struct Row {
        timespec now;
        unsigned int timeoutInMS;
        timespec deadline;
    };
    for (const Row& row :
         {Row{{1000, 0}, 2500, {1002, 500'000'000}}, Row{{1000, 999'999'999}, 2500, {1002, 500'000'000}},
          Row{{1000, 700'000'000}, 1000, {1001, 0}},
          Row{{1000, 700'000'000}, 600, {1000, 600'000'000}},  // over before it began
          Row{{1000, 1}, 0xFFFFFFFE, {1000 + 4'294'967, 294'000'000}}}) {
        const timespec deadline = NetworkEventListener::Deadline(row.now, row.timeoutInMS);
        EXPECT_EQ(deadline.tv_sec, row.deadline.tv_sec) << row.timeoutInMS;
        EXPECT_EQ(deadline.tv_nsec, row.deadline.tv_nsec) << row.timeoutInMS;
    }
}

TEST_F(NetworkEventListenerTest, ASignalOrAnEventThatIsNotKeptEndsAWait)
{
    NetworkEventListener listener;
    listener.Open(kUri);
    listener.SetMaximumQueueSize(0);
    for (const bool bySignal : {true, false}) {
        std::atomic<bool> done = false;
        std::jthread waiter([&] {
            ConfigEvent mine;
            EXPECT_FALSE(listener.WaitForConfigEvent(mine));
            done = true;
        });
        while (!done) {
            if (bySignal)
                listener.Signal();
            else
                listener.ParamChanged(eParamID_Take, 1u, kTime);
            std::this_thread::yield();
        }
    }
}

TEST_F(NetworkEventListenerTest, CloseReleasesEveryWaiterWhileEventsArrive)
{
    for (int round = 0; round < 20; ++round) {
        auto listener = std::make_unique<NetworkEventListener>();
        ASSERT_TRUE(listener->Open(kUri));
        std::atomic<int> taken = 0;
        std::vector<std::jthread> waiters;
        for (int n = 0; n < 3; ++n)
            waiters.emplace_back([&] {
                ConfigEvent mine;
                while (listener->WaitForConfigEvent(mine)) ++taken;
            });
        std::atomic<bool> stop = false;
        std::jthread writer([&] {
            for (unsigned int n = 0; !stop; ++n) config->Set(eParamID_Camera, n % 3);
        });
        while (taken < 10) std::this_thread::yield();
        if (round % 2 == 0) {
            stop = true;
            writer.join();  // so that the waiters sleep
        }
        listener->Close();
        stop = true;
        for (std::jthread& waiter : waiters) waiter.join();
        if (writer.joinable()) writer.join();
        EXPECT_EQ(UseCount(config), 1);
    }
}

}  // namespace
