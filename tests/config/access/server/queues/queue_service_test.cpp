#include "config/access/server/queues/queue_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <map>

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "config/access/io/left_queues.h"
#include "support/in_child.h"
#include "support/many_changes.h"
#include "support/queue_service_test.h"
#include "support/raw_queue_client.h"
#include "support/stuck_listener.h"

using testing::HasSubstr;

namespace {

constexpr unsigned int kLast = 17;
constexpr long kLibrarysDepth = 0;

/// With changes of the numbers of its store.
class MainstayQueueService : public QueueServiceTest {
  protected:
    void Start() override
    {
        QueueServiceTest::Start();
        m_changes.emplace(*m_store);
        ASSERT_GT(m_changes->Parameters(), 50u);
    }
    void Change(int count) { m_changes->Make(count); }
    /// The last change: a value that comes only once.
    void ChangeLast() { m_store->Set(kNumber, kLast); }

    std::optional<ManyChanges> m_changes;
};

/// Counts what a store announces.
class Counting : public ConfigEventListener {
  public:
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t, unsigned int, timeval) override { return ++count > 0; }
    bool ParamChanged(eParam_t, std::string, timeval) override { return ++count > 0; }
    size_t count = 0;
};

/// What a client has heard.
struct Heard {
    std::map<uint32_t, uint32_t> values;
    size_t events = 0;

    void Read(RawClient& client)
    {
        const auto event = client.Receive();
        values[event.paramID] = event.value;
        ++events;
    }
    bool HasLast() { return values[kNumber] == kLast; }
};

// More than the history of the backlog holds, so that a stuck listener misses some. A slow one reads one in ten.
TEST_F(MainstayQueueService, WhatListenersHearLastIsWhatTheStoreHolds)
{
    constexpr int kChanges = 60'000, kAtATime = 10;
    enum { kStuck, kSlow, kQuick };
    for (const long depth : {10L, kLibrarysDepth}) {
        SCOPED_TRACE(depth);
        RawClient clients[] = {RawClient(101, depth), RawClient(102, depth), RawClient(103, depth)};
        for (RawClient& client : clients) {
            client.Connect();
            client.SetEvents(true);
        }
        Heard heard[3];
        Counting announced;
        m_store->AddConfigEventListener(&announced);
        const std::string error = StderrOf([&] {
            for (int i = 0; i < kChanges / kAtATime; ++i) {
                Change(kAtATime);
                heard[kSlow].Read(clients[kSlow]);
                while (heard[kQuick].events < announced.count) heard[kQuick].Read(clients[kQuick]);
            }
            ChangeLast();
            for (int i = 0; i < 3; ++i) {
                while (!heard[i].HasLast() && !HasFailure()) heard[i].Read(clients[i]);
                EXPECT_TRUE(m_changes->AreHeard(heard[i].values));
            }
        });
        EXPECT_EQ(heard[kQuick].events, announced.count) << "the quick one misses nothing";
        EXPECT_LT(heard[kStuck].events, announced.count);
        EXPECT_THAT(error, HasSubstr(clients[kStuck].Name() + " lags: newer events have overtaken "));
        EXPECT_THAT(error, testing::Not(HasSubstr(clients[kQuick].Name())));
        m_store->RemoveConfigEventListener(&announced);
    }
}

TEST_F(MainstayQueueService, AListenerThatBlocksEndsWithTheStoresValues)
{
    StuckListener listener;
    mq::PosixMQFactory factory;
    mq::PosixMQClient* const client = factory.Connect("mq:");
    ASSERT_TRUE(client->AddConfigEventListener(&listener));
    Change(10'000);
    listener.gate.Await();
    EXPECT_NE(client->Get(kNumber), 0u) << "its requests go on meanwhile";
    Change(10'000);
    ChangeLast();
    listener.gate.Open();
    EXPECT_TRUE(Eventually([&] { return listener.Last()[kNumber] == kLast; }));
    const auto last = listener.Last();
    EXPECT_TRUE(m_changes->AreHeard({last.begin(), last.end()}));
    factory.Disconnect(client);
}

TEST_F(MainstayQueueService, AReplyNeverOvertakesAnEvent)
{
    RawClient client(101, 10);
    client.Connect();
    client.SetEvents(true);
    for (const int changes : {3, 5'000}) {
        Change(changes);
        m_store->Set(kNumber, 7);
        m_store->Set(kNumber, 8);
        client.Request(80, kNumber);
        mq::XCONFIGMGR_RESPONSE_T message;
        unsigned int last = 0;
        for (message = client.Receive(); IsEvent(message.msgtype); message = client.Receive())
            if (message.paramID == kNumber) last = message.value;
        EXPECT_EQ(message.msgtype, 96u);
        EXPECT_EQ(last, 8u);
    }
}

TEST_F(MainstayQueueService, AClientThatDiesLeavesNothing)
{
    RawClient idle(101), stuck(102), unlocked(103), next(104);
    for (RawClient* const client : {&idle, &stuck, &unlocked}) {
        if (client != &unlocked) client->Lock();
        client->Connect();
    }
    stuck.SetEvents(true);
    for (RawClient* const client : {&idle, &stuck, &unlocked}) client->Die();
    const auto exists = [](const RawClient& client) {
        const mqd_t queue = mq_open(client.Name().c_str(), O_RDONLY);
        mq_close(queue);
        return queue != -1;
    };
    Change(1000);  // more than its queue holds
    EXPECT_TRUE(Eventually([&] { return !exists(stuck); })) << "found without a further request";
    next.Connect();
    EXPECT_FALSE(exists(idle));
    EXPECT_TRUE(exists(unlocked)) << "such a client may still live";
}

TEST_F(MainstayQueueService, StopsThoughOthersTakeItsMessages)
{
    const mqd_t queue = mq_open(mq::kRequestQueue, O_RDONLY);
    std::atomic<bool> stopped = false;
    const std::jthread thief([&] {
        std::vector<char> message;
        size_t length = 0;
        while (!stopped)
            if (mq::WaitForQueue(queue, POLLIN, vexa::Deadline(1)))
                mq::ReceiveMessage(queue, message, length);
    });
    m_service.reset();
    stopped = true;
    mq_close(queue);
}

TEST_F(MainstayQueueService, AStopRemovesOnlyItsOwnQueue)
{
    mq_unlink(mq::kRequestQueue);
    mq::QueueService second;
    ASSERT_TRUE(second.Start());
    m_service.reset();
    RawClient client;
    client.Connect();
}

using MainstayQueueOfStranger = QueueTest;

TEST_F(MainstayQueueOfStranger, IsNotServed)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root can make one";
    struct {
        long bytes;
        mode_t mode;
        bool isLocked;
        const char* message;
    } const rows[] = {
        {16, 0666, false, "mainstay: the queue /mainstay of user 23456 cannot be used, nor removed: "},
        {512, 0666, false, "mainstay: the queue /mainstay of user 23456 cannot be used, nor removed: "},
        {512, 0666, true, "mainstay: another daemon serves the queue /mainstay of user 23456\n"},
        {512, 0600, false, "mainstay: cannot open the queue /mainstay"},
    };
    for (const auto& row : rows) {
        ExpectInChild(
            [&row] {
                mq_attr attributes{};
                attributes.mq_maxmsg = 1;
                attributes.mq_msgsize = row.bytes;
                const mqd_t queue = mq_open(mq::kRequestQueue, O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
                EXPECT_TRUE(!row.isLocked || mq::LockQueue(queue));
                EXPECT_EQ(fchmod(queue, row.mode) + fchown(queue, 23456, 23456) + setuid(12345), 0);
                EXPECT_FALSE(mq::QueueService().Start());
            },
            HasSubstr(row.message));
        mq::QueueService service;
        ASSERT_TRUE(service.Start());
        const mqd_t queue = mq_open(mq::kRequestQueue, O_RDONLY);
        struct stat status {};
        EXPECT_EQ(fstat(queue, &status) + static_cast<int>(status.st_uid), 0) << "root makes it anew";
        mq_close(queue);
    }
}

}  // namespace
