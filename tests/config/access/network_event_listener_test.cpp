#include "config/access/network_event_listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "config/access/config_factory_impl.h"
#include "support/store.h"

using vexa::corvalis::config::access::NetworkEventListener;

namespace {

constexpr timeval kTime{1'700'000'000, 123'456};
const char* const kUri = "local:configid=55";

ConfigManager* Connect()
{
    Config* config = nullptr;
    StderrOf([&] {
        CreateDescriptors();
        config = ConfigFactoryImpl::GetInstance()->Connect(kUri);
    });
    return dynamic_cast<ConfigManager*>(config);
}

/// A store that another user keeps alive.
struct NetworkEventListenerTest : testing::Test {
    ~NetworkEventListenerTest() override
    {
        listener.Close();
        ConfigFactoryImpl::GetInstance()->Disconnect(config);
    }
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

    ConfigManager* const config = Connect();
    NetworkEventListener listener;
    ConfigEvent event;
};

TEST_F(NetworkEventListenerTest, OpensOnceAndGivesTheConfigurationBack)
{
    EXPECT_FALSE(listener.WaitForConfigEvent(event)) << "closed, at once";
    EXPECT_FALSE(listener.Open(static_cast<Config*>(nullptr)));
    EXPECT_FALSE(listener.Open("socket://127.0.0.1:43110"));
    for (const bool byUri : {true, false}) {
        ASSERT_TRUE(byUri ? listener.Open(kUri) : listener.Open(Connect()));
        EXPECT_FALSE(listener.Open(kUri) || listener.Open(config));
        EXPECT_EQ(config->GetUseCount(), 2) << "nothing was connected in vain";
        config->Set(eParamID_Camera, byUri ? 1u : 2u);
        listener.Close();
        EXPECT_EQ(config->GetUseCount(), 1);
        config->Set(eParamID_Camera, 9u);  // the store lives on and must not tell it any more
        EXPECT_FALSE(listener.WaitForConfigEvent(event));
    }
    ASSERT_TRUE(listener.Open(kUri));
    EXPECT_THAT(TakeAll(), testing::ElementsAre(1u, 2u)) << "what nobody took stays";
}

TEST_F(NetworkEventListenerTest, KeepsEachKindOfChange)
{
    std::string bytes("\0\1", 2);
    listener.Open(kUri);
    config->Set(eParamID_Camera, 3u, kTime);
    config->FireParamChangedEvent(eParamID_CustomClipName, "Scene", kTime);
    config->SetData(eParamID_TestData, bytes, kTime);
    struct Row {
        eParam_t id;
        unsigned int type, value;
        std::string text, data;
    };
    for (const Row& row :
         {Row{eParamID_Camera, 3, 3, "", ""}, Row{eParamID_CustomClipName, 12, 0, "Scene", ""},
          Row{eParamID_TestData, 12, 0, "", bytes}}) {
        ASSERT_TRUE(listener.WaitForConfigEvent(event));
        EXPECT_EQ(event.paramID, row.id);
        EXPECT_EQ(event.paramType, row.type);
        EXPECT_EQ(event.value, row.value);
        EXPECT_EQ(event.text, row.text);
        EXPECT_EQ(event.data, row.data);
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
    struct Row {
        timespec now;
        unsigned int timeoutInMS;
        timespec deadline;
    };
    for (const Row& row :
         {Row{{1000, 0}, 2500, {1002, 500'000'000}}, Row{{1000, 999'999'999}, 2500, {1002, 500'000'000}},
          Row{{1000, 700'000'000}, 600, {1000, 600'000'000}},  // over before it began
          Row{{1000, 1}, 0xFFFFFFFE, {1000 + 4'294'967, 294'000'000}}}) {
        const timespec deadline = NetworkEventListener::Deadline(row.now, row.timeoutInMS);
        EXPECT_EQ(deadline.tv_sec, row.deadline.tv_sec) << row.timeoutInMS;
        EXPECT_EQ(deadline.tv_nsec, row.deadline.tv_nsec) << row.timeoutInMS;
    }
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
        std::atomic<int> entering = 0, left = 0;
        std::vector<std::jthread> waiters;
        for (int n = 0; n < 3; ++n)
            waiters.emplace_back([&] {
                ConfigEvent mine;
                ++entering;
                EXPECT_FALSE(listener.WaitForConfigEvent(mine));
                ++left;
            });
        while (entering < 3) std::this_thread::yield();
        for (int n = 0; n < 1000; ++n) std::this_thread::yield();  // most likely they wait by now
        for (wake(how); left < 3; std::this_thread::yield())
            if (how != 2) wake(how);
    }
}

}  // namespace
