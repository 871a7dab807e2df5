#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <optional>

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "support/daemon.h"
#include "support/queue_test.h"
#include "support/raw_peer.h"
#include "support/raw_queue_client.h"
#include "support/recording_listener.h"
#include "support/stderr_of.h"

using testing::HasSubstr;

namespace {

class MainstayQueue : public QueueTest {
  protected:
    void Start() override
    {
        m_ended = false;
        m_daemon.emplace(std::vector<std::string>{});
        m_daemon->WaitForOutput("mainstay: ready, model OAK (250 parameters), queue /mainstay, TCP port ");
        m_uri = m_daemon->Tcp();
    }
    /// A daemon that is not killed removes its queue.
    void TearDown() override
    {
        if (m_daemon && !m_ended) m_daemon->Stop();
    }
    ProgramResult EndDaemon(int signal)
    {
        m_daemon->Signal(signal);
        m_ended = true;  // until Start
        return m_daemon->Wait();
    }
    static std::vector<std::string> Command(const std::string& uri, std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {VEXACTL, uri == "queue" ? "--mq" : "--uri=" + uri});
        return arguments;
    }
    ProgramResult Tool(std::vector<std::string> arguments, const std::string& input = "") const
    {
        return RunProgram(Command(m_uri, std::move(arguments)), input, {"PRODUCT_ID=OAK"});
    }

    std::optional<Daemon> m_daemon;
    std::string m_uri;

  private:
    bool m_ended = false;
};

TEST_F(MainstayQueue, AnswersEveryRequest)
{
    RawClient client;
    client.Send("");  // what is no request is dropped
    client.Send(std::string(512, '\xA5'));
    client.Connect();
    auto response = client.Ask(81, kNumber, 500);
    EXPECT_EQ(response.msgtype, 97u);
    EXPECT_EQ(response.error, 0u);
    response = client.Ask(80, kNumber);
    EXPECT_EQ(response.msgtype, 96u);
    EXPECT_EQ(response.value, 20u) << "corrected";
    EXPECT_GT(response.seconds, 1'700'000'000u);
    EXPECT_EQ(client.Ask(81, eParamID_SystemCommand, 9).error, mq::kQueueErrorRefused);
    EXPECT_EQ(client.Ask(80, eParam_t{0x12345678}).error, mq::kQueueErrorRefused);
    EXPECT_EQ(client.Ask(80, kNumber, 0, "", 5).error, mq::kQueueErrorRefused) << "another configuration";

    const std::string stream = TextStream("Scene");
    response = client.Ask(113, kText, 0, stream);
    EXPECT_EQ(response.error, 0u);
    EXPECT_EQ(response.streamLength, client.stream.size());
    EXPECT_EQ(client.Ask(112, kText).msgtype, 128u);
    EXPECT_EQ(client.stream, stream);
    EXPECT_EQ(client.Ask(113, kText, 0, std::string(stream.size(), 'x')).error, mq::kQueueErrorRefused);
    EXPECT_EQ(client.Ask(80, kText).error, mq::kQueueErrorNoValue);
    EXPECT_EQ(client.Ask(112, kNumber).error, mq::kQueueErrorNoValue);
    EXPECT_EQ(client.Ask(80, kNumber, 0, "x").value, 20u) << "word 7 counts in a Set String only";
    Tool({"set", "ReelName", std::string(2000, 'x')});  // more than a message holds
    EXPECT_EQ(client.Ask(112, kText).error, mq::kQueueErrorNoValue);

    for (const auto& [type, answer] : {std::pair{114u, 130u}, {256, 257}, {257, 257}, {258, 259}}) {
        response = client.Ask(type, kNumber);
        EXPECT_TRUE(response.msgtype == answer && response.error != 0) << type;
    }
    EXPECT_EQ(client.Ask(17).msgtype, 33u);
}

TEST_F(MainstayQueue, TellsEveryClientOfEveryChange)
{
    RawClient one(1), two(2), deaf(3);
    for (RawClient* const client : {&one, &two, &deaf}) client->Connect();
    for (RawClient* const client : {&one, &one, &two}) EXPECT_EQ(client->SetEvents(true), 64u);
    EXPECT_EQ(Tool({"set", "FanSpeed", "77"}).status, 0);
    EXPECT_EQ(Tool({"set", "ReelName", "from tcp"}).status, 0);
    for (RawClient* const client : {&one, &two}) {
        auto event = client->Receive();
        EXPECT_EQ(event.msgtype, 144u);
        EXPECT_EQ(event.paramID, eParamID_FanSpeed);
        EXPECT_EQ(event.value, 77u);
        event = client->Receive();
        EXPECT_EQ(event.msgtype, 145u);
        EXPECT_THAT(client->stream, HasSubstr("from tcp"));
        EXPECT_EQ(event.streamLength, client->stream.size());
    }
    EXPECT_THAT(m_daemon->Inherited(), testing::IsEmpty());
    EXPECT_EQ(two.SetEvents(false), 65u);
    deaf.Ask(81, eParamID_FanSpeed, 88);
    EXPECT_EQ(one.Receive().value, 88u);
    EXPECT_EQ(two.Ask(80, eParamID_FanSpeed).value, 88u) << "no event came before";
}

TEST_F(MainstayQueue, ConnectionsThatSayNothingLeaveRoomForOthers)
{
    EndDaemon(SIGTERM);
    Program daemon(
        {"/bin/sh", "-c",
         std::string("ulimit -n 200; exec ") + MAINSTAY + " --tcp-port 0 --no-udp --stall-timeout 1"},
        "", {"PRODUCT_ID=OAK"});
    daemon.WaitForOutput("mainstay: ready");
    const int port = NumberAfter("TCP port ", daemon.Err());
    std::deque<RawPeer> silent;
    for (int i = 0; i < 260; ++i) silent.emplace_back(port);
    daemon.WaitForOutput("a client is turned away, there are 50\n");
    RawClient client;
    client.Connect();
    EXPECT_EQ(client.Ask(80, kNumber).msgtype, 96u);
    for (RawPeer& peer : silent) EXPECT_TRUE(peer.IsClosed());
    EXPECT_EQ(RawPeer(port).Ask({16, 1, 0, 0, 0, 4096}, 7)[0], 32u);
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.Wait().status, 0);
}

TEST_F(MainstayQueue, IsTakenOverAfterACrashAndRemovedAtAStop)
{
    const ProgramResult second = RunProgram({MAINSTAY, "--tcp-port", "0", "--udp-port", "0"});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.err, testing::EndsWith("mainstay: another daemon serves the queue /mainstay\n"));
    EXPECT_THAT(second.err, testing::Not(HasSubstr("NetworkServer")));

    RawClient client;
    client.Connect();
    EndDaemon(SIGKILL);
    Daemon successor({"--no-tcp", "--no-udp"});
    EXPECT_EQ(client.Ask(80, kNumber).value, 1u) << "a client outlives a daemon";
    EXPECT_EQ(client.Ask(112, kText).error, 0u);
    RawClient other(1);
    other.Connect();
    other.Ask(81, eParamID_FanSpeed, 99);
    EXPECT_EQ(client.Receive().value, 99u) << "it may have listened";
    successor.Stop();
    EXPECT_EQ(mq_open(mq::kRequestQueue, O_WRONLY), -1);
}

TEST_F(MainstayQueue, AListenerSurvivesTheDaemonsEnd)
{
    mq::PosixMQFactory factory;
    mq::PosixMQClient* const client = factory.Connect("mq:");
    ASSERT_NE(client, nullptr);
    client->SetReplyTimeout(1000);
    RecordingConnectionListener connection;
    client->AddConnectionListener(&connection);
    RecordingListener listener;
    client->AddConfigEventListener(&listener);
    size_t heard = 0;
    for (const int signal : {SIGKILL, SIGTERM}) {
        EndDaemon(signal);
        Start();
        StderrOf([&] { EXPECT_TRUE(Eventually([&] { return client->Get(kNumber) == 1; })) << signal; });
        Tool({"set", "RegisterSave", "7"});
        EXPECT_TRUE(Eventually([&] { return listener.Heard().size() > heard; })) << signal;
        heard = listener.Heard().size();
        EXPECT_TRUE(client->IsReachable());
        EXPECT_GE(connection.Heard().size(), signal == SIGKILL ? 2u : 4u)
            << "told of each, lost and restored";
    }
    client->RemoveConnectionListener(&connection);
    factory.Disconnect(client);
}

/// As a user would. The other transports are watched where they have no name of the machine.
using MainstayQueueNotify = MainstayQueue;

TEST_F(MainstayQueueNotify, AWatchThatFollowsOutlivesTheDaemonAndShowsWhatChangedMeanwhile)
{
    Program watcher(Command("queue", {"watch", "--follow", "ReelName"}));
    const auto shows = [&](const std::string& name) {
        return Eventually([&] {
            Tool({"set", "ReelName", name});
            return watcher.Out().find(name) != std::string::npos;
        });
    };
    EXPECT_TRUE(shows("before"));
    EndDaemon(SIGKILL);
    Start();
    watcher.WaitForOutput("ReelName = \"\"  (changed meanwhile)\n");
    EXPECT_TRUE(shows("after"));
    watcher.Signal(SIGINT);
    EXPECT_EQ(watcher.Wait().status, 0);
}

TEST_F(MainstayQueueNotify, TheToolReachesTheDaemonThroughQueues)
{
    Program watcher(Command("queue", {"watch"}));
    int value = 0;
    EXPECT_TRUE(Eventually([&] {
        Tool({"set", "RegisterSave", std::to_string(value = value % 20 + 1)});
        return !watcher.Out().empty();
    }));
    for (const std::string& place : {std::string("queue"), m_uri, m_daemon->Udp()}) {
        EXPECT_EQ(RunProgram(Command(place, {"set", "ReelName", "by " + place})).status, 0);
        watcher.WaitForOutput("ReelName = \"by " + place + "\"\n");
    }
    watcher.Signal(SIGINT);  // killed, it would leave its queue behind
    EXPECT_EQ(watcher.Wait().status, 0);

    const std::string longest(443, 'x');
    const ProgramResult run = RunProgram(
        Command("queue", {"shell"}), "set RegisterSave 500\nset SystemCommand 9\nset ReelName " + longest +
                                         "\nset ReelName x" + longest + "\nalarms raised\n");
    EXPECT_EQ(run.status, 5);
    EXPECT_THAT(run.out,
                HasSubstr("RegisterSave corrected to 20 (500 is outside 1 to 20)\nReelName stored \"xxx"));
    for (const char* const line : {"\"9\" refused: not one of", "refused: longer than the 443 bytes",
                                   "the message queues carry no alarms"})
        EXPECT_THAT(run.err, HasSubstr(line));

    m_daemon->Signal(SIGSTOP);
    const ProgramResult silent = RunProgram(Command("queue", {"--timeout", "0.2", "get", "RegisterSave"}));
    EXPECT_EQ(silent.status, 7);
    EXPECT_EQ(silent.err, "vexactl: no answer from the queue /mainstay in time\n");
    m_daemon->Signal(SIGCONT);
    EXPECT_EQ(EndDaemon(SIGTERM).status, 0);
}

}  // namespace
