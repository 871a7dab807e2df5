#include "config/access/client/queues/posix_mq_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "support/mq_client_test.h"
#include "support/raw_peer.h"

using testing::ElementsAre;
using namespace std::chrono_literals;

namespace {

using MainstayQueueClient = MQClientTest;

TEST_F(MainstayQueueClient, RequestsAndAnswersWordByWord)
{
    EXPECT_EQ(m_client->GetLastConfigUpdate().tv_sec, 0);
    EXPECT_EQ(m_client->Get(kNumber), 7u);
    EXPECT_EQ(m_client->GetLastConfigUpdate().tv_sec, static_cast<time_t>(0x80000001));
    EXPECT_EQ(m_client->GetLastConfigUpdate().tv_usec, 5);
    EXPECT_TRUE(m_client->Set(kNumber, 9u, timeval{77, 0}));
    std::string text;
    EXPECT_TRUE(m_client->Get(kText, text));
    EXPECT_EQ(text, "Scene");
    EXPECT_TRUE(m_client->Config::Set(kText, std::string("Take")));

    const auto requests = m_daemon->Requests();
    ASSERT_EQ(requests.size(), 5u);
    const std::string stream = TextStream("Take");
    const auto length = static_cast<uint32_t>(stream.size());
    EXPECT_EQ(requests[1].bytes, Words({80, m_id, 1, 0, 0, kNumber, 0, 0, 0}));
    EXPECT_EQ(requests[2].bytes, Words({81, m_id, 2, 0, 0, kNumber, 9, 0, 0}));
    EXPECT_EQ(requests[3].bytes, Words({112, m_id, 3, 0, 0, kText, 0, 0, 0}));
    EXPECT_EQ(requests[4].bytes, Words({113, m_id, 4, 0, 0, kText, 0, length, 0xA00}) + stream);
}

TEST_F(MainstayQueueClient, WrongAnswersFailInTheOrderOfTheChecks)
{
    const auto other = [](auto& answer) { answer.info.requestID += 100; };
    const auto both = [=](auto& answer) {
        other(answer);
        answer.error = 53;
    };
    const auto refused = [](auto& answer) { answer.error = 53; };
    const std::string get = "PosixMQClient::Get", set = "PosixMQClient::Set";
    const auto length = static_cast<uint32_t>(TextStream("Scene").size());
    const auto streamOf = [](uint32_t bytes) { return [=](auto& answer) { answer.streamLength = bytes; }; };
    struct {
        uint32_t type;
        std::function<void(mq::XCONFIGMGR_RESPONSE_T&)> change;
        bool updated;
        std::string message;  // the last line
    } const rows[] = {
        {80, refused, false, get + "(): response message indicated an error\n"},
        {80, both, false, get + "(): response message indicated an error\n"},
        {80, other, false, get + "(): response message did not match response message info\n"},
        {81, refused, true, ""},
        {81, both, false, set + " - invalid response for the given request\n"},
        {112, both, false, get + " - response error != 0\n"},
        {112, other, false, get + " - response does not match request\n"},
        {112, streamOf(0), false, get + " - invalid streamLength\n"},
        {112, streamOf(length + 1), false, get + " - invalid streamLength\n"},
        {112, streamOf(length - 9), true, ""},
        {113, both, false, ""},
        {113, other, false, get + " - response does not match request\n"},
    };
    for (const auto& row : rows) {
        AnswerWith(row.type, [&](const MQRequest& request) {
            auto answer = AnswerTo(request);
            answer.streamLength = length;
            answer.seconds = row.type;
            row.change(answer);
            return vexa::wire::Bytes<vexa::wire::HostOrder>(answer, TextStream("Scene"));
        });
        const timeval before = m_client->GetLastConfigUpdate();
        std::string text = "kept";
        const std::string error = StderrOf([&] {
            EXPECT_FALSE(row.type == 80    ? m_client->Get(kNumber) != 0
                         : row.type == 81  ? m_client->Config::Set(kNumber, 1u)
                         : row.type == 112 ? m_client->Get(kText, text)
                                           : m_client->Config::Set(kText, text));
        });
        m_daemon->SetScript(nullptr);
        EXPECT_EQ(error.substr(error.find('\n', error.find("IsValid")) + 1), row.message);
        EXPECT_EQ(text, "kept");
        EXPECT_TRUE(vexa::LastAnswer() != vexa::Answer::kGiven || row.updated);
        EXPECT_EQ(m_client->GetLastConfigUpdate().tv_sec, row.updated ? row.type : before.tv_sec);
    }
    EXPECT_TRUE(m_client->IsReachable());
}

TEST_F(MainstayQueueClient, TheNumberIsItsOwnResult)
{
    unsigned int number = 5;
    EXPECT_TRUE(m_client->Get(kNumber, number));
    EXPECT_EQ(number, 7u);
    AnswerWith(XCFG_GET_PARAM_REQUEST, [](const MQRequest& request) {
        auto answer = AnswerTo(request);
        answer.value = 0;
        return Bytes(answer);
    });
    EXPECT_FALSE(m_client->Get(kNumber, number)) << "as if it had failed, as callers know it";
    EXPECT_EQ(number, 0u);
}

TEST_F(MainstayQueueClient, ShortAnswersAreFilledWithZeros)
{
    m_client->Get(kNumber);  // leaves a whole answer in the buffer
    for (const size_t length : {0u, 3u, 20u, 40u, 52u}) {
        AnswerWith(XCFG_GET_PARAM_REQUEST,
                   [=](const MQRequest& request) { return Bytes(AnswerTo(request)).substr(0, length); });
        StderrOf([&] { EXPECT_EQ(m_client->Get(kNumber), length == 52 ? 7u : 0u) << length; });
    }
    std::string text;
    for (const size_t missing : {1u, 40u}) {
        AnswerWith(XCFG_GET_STREAM_PARAM_REQUEST, [=](const MQRequest& request) {
            const std::string bytes = Bytes(AnswerTo(request), TextStream("Scene"));
            return bytes.substr(0, bytes.size() - missing);
        });
        StderrOf([&] { EXPECT_FALSE(m_client->Get(kText, text)) << missing; });
    }
}

TEST_F(MainstayQueueClient, AnyNumberOfLateAnswersIsDropped)
{
    constexpr size_t kLate = 70;
    RecordingConnectionListener connection;
    m_client->AddConnectionListener(&connection);
    m_client->SetReplyTimeout(1);
    m_daemon->SetScript([](ScriptedDaemon&, const MQRequest& request) { return request.msgtype == 80; });
    StderrOf([&] {
        for (size_t i = 0; i < kLate; ++i) EXPECT_EQ(m_client->Get(kNumber), 0u);
    });
    EXPECT_EQ(vexa::LastAnswer(), vexa::Answer::kNone);
    m_client->SetReplyTimeout(vexa::Deadline::kNever);
    AnswerWith(XCFG_GET_PARAM_REQUEST, [&](const MQRequest& request) {
        for (const MQRequest& late : m_daemon->Requests())
            if (late.msgtype == 80 && late.info.requestID != request.info.requestID)
                m_daemon->Send(m_id, Bytes(AnswerTo(late)));
        return Bytes(AnswerTo(request));
    });
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(m_client->Get(kNumber), 7u); }), "");
    EXPECT_EQ(vexa::LastAnswer(), vexa::Answer::kGiven);
    EXPECT_THAT(connection.Heard(),
                ElementsAre(vexa::ConnectionChange::kLost, vexa::ConnectionChange::kRestored));
    m_client->RemoveConnectionListener(&connection);
}

TEST_F(MainstayQueueClient, AnAnswerThatComesTooLateIsDropped)
{
    m_client->SetReplyTimeout(20);
    AnswerWith(XCFG_GET_PARAM_REQUEST,
               [](const MQRequest& request) { return NumberEvent(request.info.connectionID, 1); });
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(m_client->Get(kNumber), 0u); }),
              "PosixMQClient::Get - mq_receive failed: Connection timed out\n"
              "PosixMQClient::Get(): mq_receive returned -1, FAILED");
    EXPECT_FALSE(m_client->IsReachable());
    m_client->SetReplyTimeout(vexa::Deadline::kNever);
    const MQRequest late = m_daemon->Requests().back();
    AnswerWith(XCFG_SET_PARAM_REQUEST, [&](const MQRequest& request) {
        m_daemon->Send(m_id, Bytes(AnswerTo(late)));
        return Bytes(AnswerTo(request));
    });
    EXPECT_TRUE(m_client->Config::Set(kNumber, 1u));
    EXPECT_TRUE(m_client->IsReachable());

    m_daemon->Hang();
    m_client->SetReplyTimeout(1);
    std::string error;
    for (int i = 0; i < 200 && error.find("mq_send") == std::string::npos; ++i)
        error = StderrOf([&] { EXPECT_FALSE(m_client->Config::Set(kNumber, 1u)); });
    EXPECT_EQ(
        error,
        "PosixMQClient::Set mq_send failed: Connection timed out\nPosixMQClient::Set - mq_send failed\n");
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(m_client->Config::Set(kText, std::string(600, 'x'))); }),
              "PosixMQClient::Set: mq_send failed\n");
}

TEST_F(MainstayQueueClient, ALimitHoldsForTheWaitForTheTurnToo)
{
    m_daemon->SetScript([](ScriptedDaemon&, const MQRequest& request) { return request.msgtype == 81; });
    mq::PosixMQClient* const limited = m_factory->Connect("mq:");
    limited->SetReplyTimeout(20);
    std::future<bool> waiting;
    StderrOf([&] {
        waiting = std::async(std::launch::async, [&] { return m_client->Config::Set(kNumber, 1u); });
        EXPECT_TRUE(Eventually([&] { return m_daemon->Types().size() == 1; }));
        EXPECT_EQ(limited->Get(kNumber), 0u);
        EXPECT_FALSE(limited->IsReachable());
        Disconnect();
        EXPECT_FALSE(waiting.get());
    });
    m_factory->Disconnect(limited);
}

TEST_F(MainstayQueueClient, ADaemonThatRemovesItsQueueLeavesNobodyWaiting)
{
    m_daemon->SetScript([](ScriptedDaemon&, const MQRequest& request) { return request.msgtype == 80; });
    std::future<unsigned int> got;
    const std::string error = StderrOf([&] {
        got = std::async(std::launch::async, [&] { return m_client->Get(kNumber); });
        EXPECT_TRUE(Eventually([&] { return m_daemon->Types().size() == 1; }));
        m_daemon.reset();
        EXPECT_EQ(got.get(), 0u);
        EXPECT_FALSE(m_client->IsReachable());
        m_client->SetReplyTimeout(10);
        EXPECT_EQ(m_client->Get(kNumber), 0u) << "there is no other one yet";
    });
    EXPECT_EQ(error.find("PosixMQClient::Get - mq_receive failed: Identifier removed\n"), 0u) << error;
    const auto descriptors = EntriesOf("/proc/self/fd");
    m_daemon.emplace();
    m_client->SetReplyTimeout(vexa::Deadline::kNever);
    mq::PosixMQClient* const next = m_factory->Connect("mq:");
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(next->Get(kNumber), 7u);
    m_factory->Disconnect(next);
    const auto areClosed = [&] { return EntriesOf("/proc/self/fd") <= descriptors + 2; };
    EXPECT_TRUE(Eventually(areClosed)) << "but for the daemon's own";
}

// --- the end ---

TEST_F(MainstayQueueClient, DisconnectEndsAllWaits)
{
    ConfigEvent event;
    auto waited = std::async(std::launch::async, [&] { return m_client->WaitForConfigEvent(event, 0, 0); });
    EXPECT_TRUE(Eventually([&] { return m_daemon->Types().size() == 1; }));
    m_daemon->SetScript([](ScriptedDaemon&, const MQRequest& request) { return request.msgtype == 80; });
    std::future<unsigned int> got;
    StderrOf([&] {
        got = std::async(std::launch::async, [&] { return m_client->Get(kNumber); });
        EXPECT_TRUE(Eventually([&] { return m_daemon->Types().size() == 2; }));
        m_factory->Disconnect(m_client);
        EXPECT_FALSE(waited.get());
        EXPECT_EQ(got.get(), 0u);
    });
    m_client = nullptr;
}

TEST_F(MainstayQueueClient, DisconnectUnderEventsAndFromACallback)
{
    m_client->EnableMQEvents(true);  // the system's own descriptor stays
    for (int i = 0; i < 60; ++i) {
        const bool fromCallback = i % 2 == 0;
        const auto descriptors = EntriesOf("/proc/self/fd");
        mq::PosixMQClient* const client = m_factory->Connect("mq:");
        ASSERT_NE(client, nullptr);
        const uint32_t id = client->ConnectionID();
        std::promise<void> called;
        RecordingListener listener([&] {
            if (listener.Heard().size() > 1) return;
            if (fromCallback) m_factory->Disconnect(client);
            called.set_value();
        });
        client->AddConfigEventListener(&listener);
        const std::jthread events([&] {
            for (unsigned int value = 0; value < 50; ++value) m_daemon->Send(id, NumberEvent(id, value));
        });
        EXPECT_TRUE(Comes(called));
        if (!fromCallback) m_factory->Disconnect(client);
        ASSERT_TRUE(Eventually([&] { return EntriesOf("/proc/self/fd") <= descriptors; }))
            << "the client is left";
        EXPECT_TRUE(!fromCallback || listener.Heard().size() == 1);
    }
}

TEST_F(MainstayQueueClient, FourThreadsWithAListenerEach)
{
    constexpr unsigned int kRounds = 200;
    // A change is announced to its connection before it is answered, and a number is that of its connection.
    m_daemon->SetScript([&](ScriptedDaemon& self, const MQRequest& request) {
        const uint32_t id = request.info.connectionID;
        auto answer = AnswerTo(request);
        answer.value = id;
        if (request.msgtype == XCFG_SET_PARAM_REQUEST) self.Send(id, NumberEvent(id, request.value));
        if (request.msgtype == XCFG_GET_PARAM_REQUEST) self.Send(id, Bytes(answer));
        return request.msgtype == XCFG_GET_PARAM_REQUEST;
    });
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this] {
            mq::PosixMQClient* const client = m_factory->Connect("mq:");
            RecordingListener listener;
            EXPECT_TRUE(client->AddConfigEventListener(&listener));
            for (unsigned int value = 1; value <= kRounds; ++value) {
                EXPECT_TRUE(client->Config::Set(kNumber, value));
                EXPECT_EQ(client->Get(kNumber), client->ConnectionID());
            }
            EXPECT_TRUE(Eventually([&] { return listener.Heard().size() == kRounds; }));
            const auto heard = listener.Heard();
            for (unsigned int value = 1; value <= heard.size(); ++value)
                EXPECT_EQ(heard[value - 1], Number(value));
            m_factory->Disconnect(client);
        });
}

}  // namespace
