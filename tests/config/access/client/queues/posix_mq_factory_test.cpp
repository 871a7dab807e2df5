#include "config/access/client/queues/posix_mq_factory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <future>

#include "config/access/client/queues/posix_mq_client.h"
#include "support/in_child.h"
#include "support/queue_test.h"
#include "support/raw_peer.h"
#include "support/recording_listener.h"
#include "support/scripted_daemon.h"
#include "support/stderr_of.h"

using testing::AllOf, testing::HasSubstr, testing::StartsWith;
using namespace std::chrono_literals;

namespace {

using MainstayQueueFactory = QueueTest;

std::string QueueName(unsigned int number)
{
    return "/mqd_" + std::to_string(getpid() & 0xFFFF) + "_" + std::to_string(number);
}

bool QueueExists(const std::string& name)
{
    const mqd_t queue = mq_open(name.c_str(), O_RDONLY);
    if (queue != -1) mq_close(queue);
    return queue != -1;
}

TEST_F(MainstayQueueFactory, ConnectionsHaveNamesNumbersAndPriorities)
{
    ScriptedDaemon daemon;
    mq::PosixMQFactory factory;
    mq::PosixMQClient* const first = factory.Connect("mq:");
    mq::PosixMQClient* const second = factory.Connect("mq:priority=0");
    ASSERT_TRUE(first && second);
    const uint32_t pid = static_cast<uint32_t>(getpid()) << 16;
    EXPECT_EQ(daemon.Requests()[0].bytes, Words({16, pid, 0, 0, 0}));
    EXPECT_EQ(daemon.Requests()[1].bytes, Words({16, pid + 1, 1, 0, 10}));
    EXPECT_TRUE(QueueExists(QueueName(0)) && QueueExists(QueueName(1)));
    factory.Disconnect(second);
    EXPECT_EQ(daemon.Requests()[2].bytes, Words({17, pid + 1, 2, 0, 10}));
    EXPECT_FALSE(QueueExists(QueueName(1)));
    factory.Disconnect(second);  // there is no such client any more
    factory.Disconnect(nullptr);
    EXPECT_EQ(first->Get(kNumber), 7u);
    factory.Disconnect(first);
}

TEST_F(MainstayQueueFactory, AHandshakeThatFailsGivesNoClientAndLeavesNothing)
{
    const std::string confirm = "PosixMQFactory::ConfirmConnection: ";
    struct {
        std::function<void(mq::XCONFIGMGR_RESPONSE_T&)> change;
        size_t length;
        std::string message;
    } const rows[] = {
        {[](auto& answer) { answer.msgtype = 33; }, 24, confirm + "unexpected msgtype == 33\n"},
        {[](auto&) {}, 0, confirm + "unexpected msgtype == 0\n"},
        {[](auto& answer) { answer.listenerError = 5; }, 24, confirm + "server responded with error 5\n"},
        {[](auto& answer) { answer.info.configID = 3; }, 24,
         "IsValidResponse - request.configID (0) != response.configID (3)\n" + confirm +
             "mismatched msgInfo\n"},
        {[](auto&) {}, 4,
         "IsValidResponse - request.connectionID (" + QueueName(0) +
             ") != response.connectionID (/mqd_0_0)\n" + confirm + "mismatched msgInfo\n"},
    };
    ScriptedDaemon daemon;
    for (const auto& row : rows) {
        daemon.SetScript([&](ScriptedDaemon& self, const MQRequest& request) {
            auto answer = AnswerTo(request);
            row.change(answer);
            self.Send(request.info.connectionID, Bytes(answer).substr(0, row.length));
            return true;
        });
        mq::PosixMQFactory factory;
        const auto descriptors = EntriesOf("/proc/self/fd");
        EXPECT_EQ(StderrOf([&] { EXPECT_EQ(factory.Connect("mq:"), nullptr); }),
                  row.message + "PosixMQFactory::Connect - failed to confirm connection " + QueueName(0) +
                      " with server\n");
        daemon.SetScript(nullptr);
        EXPECT_FALSE(QueueExists(QueueName(0)));
        EXPECT_LE(EntriesOf("/proc/self/fd"), descriptors + 1);  // one is the daemon's
    }
}

TEST_F(MainstayQueueFactory, WhatAnEndedProcessHasLeftDoesNotMatter)
{
    ScriptedDaemon daemon([](ScriptedDaemon& self, const MQRequest& request) {
        // An event may be faster than the answer.
        if (request.msgtype == XCFG_CONNECT_REQUEST)
            self.Send(request.info.connectionID, NumberEvent(request.info.connectionID, 1));
        return false;
    });
    mq_attr agreed{};
    const std::string scratch = "/vexa_test_" + std::to_string(getpid());
    const mqd_t made = mq::CreateQueue(scratch, O_RDWR);
    mq_getattr(made, &agreed);
    mq_close(made);
    mq_unlink(scratch.c_str());
    for (const auto& [depth, bytes] :
         {std::pair<long, long>{agreed.mq_maxmsg, 16}, {3, 512}, {agreed.mq_maxmsg, 1024}}) {
        mq_attr attributes{};
        attributes.mq_maxmsg = depth;
        attributes.mq_msgsize = bytes;
        const mqd_t stale = mq_open(QueueName(0).c_str(), O_RDWR | O_CREAT | O_EXCL, 0600, &attributes);
        ASSERT_NE(stale, -1);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(mq_send(stale, "an old message", 15, 0), 0);
        mq_close(stale);
        mq::PosixMQFactory factory;
        mq::PosixMQClient* const client = factory.Connect("mq:");
        ASSERT_NE(client, nullptr);
        EXPECT_EQ(client->Get(kNumber), 7u);
        factory.Disconnect(client);
    }
}

TEST_F(MainstayQueueFactory, TwoClientsOfOneNumberDoNotMeet)
{
    ScriptedDaemon daemon;
    mq::PosixMQFactory one, two;
    mq::PosixMQClient* const first = one.Connect("mq:");
    RecordingListener listener;
    first->AddConfigEventListener(&listener);
    mq::PosixMQClient* const second = two.Connect("mq:");
    ASSERT_TRUE(first && second);
    EXPECT_EQ(second->ConnectionID(), first->ConnectionID() + 1);
    EXPECT_EQ(first->Get(kNumber) + second->Get(kNumber), 14u);
    two.Disconnect(second);
    daemon.Send(first->ConnectionID(), NumberEvent(first->ConnectionID(), 5));
    EXPECT_TRUE(Eventually([&] { return listener.Heard().size() == 1; })) << "its notification was taken";
    one.Disconnect(first);

    const mqd_t stranger = mq_open(QueueName(0).c_str(), O_RDWR | O_CREAT | O_EXCL, 0666, nullptr);
    if (fchown(stranger, 12345, 12345) == 0) {
        mq_close(stranger);
        mq::PosixMQFactory factory;
        mq::PosixMQClient* const client = factory.Connect("mq:");
        EXPECT_EQ(client->ConnectionID() & 0xFFFF, 1u);
        factory.Disconnect(client);
    }
    mq_unlink(QueueName(0).c_str());
}

TEST_F(MainstayQueueFactory, WaitsForADaemonThatHangsAreLimited)
{
    ScriptedDaemon daemon;
    mq::PosixMQFactory factory;
    mq::PosixMQClient* const client = factory.Connect("mq:");
    daemon.Hang();
    factory.SetConnectTimeout(30);
    char id[16];
    snprintf(id, sizeof id, "%X", (static_cast<unsigned>(getpid()) << 16) + 1);
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(factory.Connect("mq:"), nullptr); }),
              "PosixMQFactory::ConfirmConnection - mq_receive failed\n: Connection timed out\n"
              "PosixMQFactory::ConfirmConnection - mq_receive for connectionID " +
                  std::string(id) + " failed\nPosixMQFactory::Connect - failed to confirm connection " +
                  QueueName(1) + " with server\n");
    factory.SetConnectTimeout(2);
    std::string error;
    for (int i = 0; i < 200 && error.find("mq_send") == std::string::npos; ++i)
        error = StderrOf([&] { EXPECT_EQ(factory.Connect("mq:"), nullptr); });
    EXPECT_THAT(error, StartsWith("PosixMQFactory::ConfirmConnection: Connection timed out\n"
                                  "PosixMQFactory::ConfirmConnection: mq_send failed\n"));
    const auto start = std::chrono::steady_clock::now();
    factory.Disconnect(client);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
    factory.SetConnectTimeout(vexa::Deadline::kNever);
    auto waiting = std::async(std::launch::async, [&] { return factory.Connect("mq:"); });
    EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
    factory.SetConnectTimeout(0);
    EXPECT_EQ(waiting.get(), nullptr) << "another thread has ended it";
    EXPECT_FALSE(QueueExists(QueueName(0)));
}

TEST_F(MainstayQueueFactory, AClientThatEndsReleasesItsOwnExchangeOnly)
{
    std::promise<void> held;
    ScriptedDaemon daemon([&](ScriptedDaemon&, const MQRequest& request) {
        if (request.msgtype != XCFG_SET_PARAM_REQUEST) return false;
        held.set_value();
        return true;  // and never answers
    });
    mq::PosixMQFactory factory;
    mq::PosixMQClient* const holding = factory.Connect("mq:");
    mq::PosixMQClient* const waiting = factory.Connect("mq:");
    mq::PosixMQClient* const idle = factory.Connect("mq:");
    std::future<bool> set, got;
    const std::string error = StderrOf([&] {
        set = std::async(std::launch::async, [&] { return holding->Config::Set(kNumber, 1u); });
        EXPECT_TRUE(Comes(held));
        got = std::async(std::launch::async, [&] { return waiting->Get(kNumber) == 7; });
        factory.Disconnect(idle);
        EXPECT_EQ(got.wait_for(20ms), std::future_status::timeout) << "two exchanges at once";
        EXPECT_EQ(daemon.Types(), std::vector<uint32_t>{XCFG_SET_PARAM_REQUEST});
        factory.Disconnect(holding);
        EXPECT_FALSE(set.get());
    });
    EXPECT_TRUE(got.get());
    EXPECT_THAT(error, HasSubstr("PosixMQClient::Set - mq_receive failed: Operation canceled\n"));
    factory.Disconnect(waiting);
}

TEST_F(MainstayQueueFactory, ALimitOfTheUserIsRaisedByAndBy)
{
    ScriptedDaemon daemon;
    ExpectInChild(
        [] {
            rlimit limit{};
            getrlimit(RLIMIT_MSGQUEUE, &limit);
            limit.rlim_cur = 1;
            setrlimit(RLIMIT_MSGQUEUE, &limit);
            mq::PosixMQFactory factory;
            EXPECT_EQ(factory.Connect("mq:"), nullptr);
            getrlimit(RLIMIT_MSGQUEUE, &limit);
            EXPECT_EQ(limit.rlim_cur, 2u);
            mq::PosixMQClient* client = nullptr;
            for (int i = 0; i < 40 && !client; ++i) client = factory.Connect("mq:");
            EXPECT_NE(client, nullptr);
            factory.Disconnect(client);
        },
        AllOf(HasSubstr("PosixMQFactory::Connect - mq_open failed: Too many open files\n"
                        "PosixMQFactory::Connect: mq_open on response queue /mqd_"),
              HasSubstr("_0 failed\nPosixMQFactory::Connect - If you are getting this error:\n"),
              HasSubstr("PosixMQFactory::Connect - $ rm /dev/mqueue/*\n")));
}

TEST_F(MainstayQueueFactory, WithoutADaemonTheProcessEnds)
{
    mq_unlink(mq::kRequestQueue);
    GTEST_FLAG_SET(death_test_style, VEXA_DEATH_TEST_STYLE);
    EXPECT_EXIT(mq::PosixMQFactory(), testing::ExitedWithCode(255),
                "PosixMQFactory: mq_open failed: No such file or directory\n"
                "PosixMQFactory: mq_open on request queue failed for /mainstay\n"
                "PosixMQFactory: Are two copies of the mainstay running\\?\n");
}

}  // namespace
