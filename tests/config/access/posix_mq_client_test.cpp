#include "config/access/posix_mq_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "config/access/posix_mq_factory.h"
#include "config/descriptors/registry.h"
#include "support/raw_peer.h"
#include "support/recording_listener.h"
#include "support/scripted_daemon.h"
#include "support/stderr_of.h"

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace {

class MainstayQueueClient : public testing::Test {
  protected:
    MainstayQueueClient()
    {
        StderrOf([] { CreateDescriptors(); });
        m_client = m_factory.Connect("mq:");
        EXPECT_NE(m_client, nullptr);
        m_id = m_daemon.Requests()[0].info.connectionID;
    }
    ~MainstayQueueClient() override { Disconnect(); }

    void Disconnect() { m_factory.Disconnect(std::exchange(m_client, nullptr)); }
    /// Answers the next request of a type with these bytes, and the others rightly.
    void AnswerWith(uint32_t type, std::function<std::string(const MQRequest&)> answer)
    {
        m_daemon.SetScript([=](ScriptedDaemon& self, const MQRequest& request) {
            if (request.msgtype == type) self.Send(request.info.connectionID, answer(request));
            return request.msgtype == type;
        });
    }

    ScriptedDaemon m_daemon;
    mq::PosixMQFactory m_factory;
    mq::PosixMQClient* m_client;
    uint32_t m_id;
    RecordingListener m_listener;  // outlives the client
};

/// Calls back for every number, after it was recorded.
class Callback : public RecordingListener {
  public:
    explicit Callback(std::function<void()> function) : m_function(std::move(function)) {}
    using RecordingListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override
    {
        RecordingListener::ParamChanged(id, value, time);
        m_function();
        return true;
    }

  private:
    const std::function<void()> m_function;
};

std::string Number(unsigned int value)
{
    char text[32];
    snprintf(text, sizeof text, "int %08x=%u", kNumber, value);
    return text;
}

// --- requests ---

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

    const auto requests = m_daemon.Requests();
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
    struct Row {
        uint32_t type;
        std::function<void(mq::XCONFIGMGR_RESPONSE_T&)> change;
        bool updated;
        std::string message;  // the last line
    };
    const auto length = static_cast<uint32_t>(TextStream("Scene").size());
    for (const Row& row : {
             Row{80, refused, false, get + "(): response message indicated an error\n"},
             Row{80, both, false, get + "(): response message indicated an error\n"},
             Row{80, other, false, get + "(): response message did not match response message info\n"},
             Row{81, refused, true, ""},
             Row{81, both, false, set + " - invalid response for the given request\n"},
             Row{112, both, false, get + " - response error != 0\n"},
             Row{112, other, false, get + " - response does not match request\n"},
             Row{112, [](auto& answer) { answer.streamLength = 0; }, false,
                 get + " - invalid streamLength\n"},
             Row{112, [=](auto& answer) { answer.streamLength = length + 1; }, false,
                 get + " - invalid streamLength\n"},
             Row{112, [=](auto& answer) { answer.streamLength = length - 9; }, true, ""},
             Row{113, both, false, ""},
             Row{113, other, false, get + " - response does not match request\n"},
         }) {
        AnswerWith(row.type, [&](const MQRequest& request) {
            auto answer = AnswerTo(request);
            answer.streamLength = length;
            answer.seconds = row.type;
            row.change(answer);
            return Bytes(answer, TextStream("Scene"));
        });
        const timeval before = m_client->GetLastConfigUpdate();
        std::string text = "kept";
        const std::string error = StderrOf([&] {
            EXPECT_FALSE(row.type == 80    ? m_client->Get(kNumber) != 0
                         : row.type == 81  ? m_client->Config::Set(kNumber, 1u)
                         : row.type == 112 ? m_client->Get(kText, text)
                                           : m_client->Config::Set(kText, text));
        });
        m_daemon.SetScript(nullptr);
        EXPECT_EQ(error.substr(error.find('\n', error.find("IsValid")) + 1), row.message);
        EXPECT_EQ(text, "kept");
        EXPECT_EQ(m_client->GetLastConfigUpdate().tv_sec, row.updated ? row.type : before.tv_sec);
    }
    EXPECT_TRUE(m_client->IsReachable());
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
            const std::string bytes = BytesWithStream(AnswerTo(request), TextStream("Scene"));
            return bytes.substr(0, bytes.size() - missing);
        });
        StderrOf([&] { EXPECT_FALSE(m_client->Get(kText, text)) << missing; });
    }
}

TEST_F(MainstayQueueClient, AnAnswerThatComesTooLateIsNobodys)
{
    m_client->SetReplyTimeout(20);
    AnswerWith(XCFG_GET_PARAM_REQUEST,
               [](const MQRequest& request) { return NumberEvent(request.info.connectionID, 1); });
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(m_client->Get(kNumber), 0u); }),
              "PosixMQClient::Get - mq_receive failed: Connection timed out\n"
              "PosixMQClient::Get(): mq_receive returned -1, FAILED");
    EXPECT_FALSE(m_client->IsReachable());
    m_client->SetReplyTimeout(mq::kNoQueueTimeout);
    const MQRequest late = m_daemon.Requests().back();
    AnswerWith(XCFG_SET_PARAM_REQUEST, [&](const MQRequest& request) {
        m_daemon.Send(m_id, Bytes(AnswerTo(late)));
        return Bytes(AnswerTo(request));
    });
    EXPECT_TRUE(m_client->Config::Set(kNumber, 1u));
    EXPECT_TRUE(m_client->IsReachable());

    m_daemon.Hang();
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

// --- listeners ---

TEST_F(MainstayQueueClient, RequestsWorkAmongEvents)
{
    ASSERT_TRUE(m_client->AddConfigEventListener(&m_listener));
    constexpr unsigned int kRequests = 300;
    unsigned int value = 0;
    AnswerWith(XCFG_GET_PARAM_REQUEST, [&](const MQRequest& request) {
        m_daemon.Send(m_id, NumberEvent(m_id, ++value));
        m_daemon.Send(m_id, TextEvent(m_id, std::to_string(value)));
        return Bytes(AnswerTo(request));
    });
    for (unsigned int i = 0; i < kRequests; ++i) ASSERT_EQ(m_client->Get(kNumber), 7u);
    m_daemon.SetScript(nullptr);
    ASSERT_TRUE(Eventually([&] { return m_listener.Heard().size() == 2 * kRequests; }));
    const auto heard = m_listener.Heard();
    for (unsigned int i = 0; i < kRequests; ++i) {
        ASSERT_EQ(heard[2 * i], Number(i + 1));
        ASSERT_THAT(heard[2 * i + 1], testing::EndsWith("=" + std::to_string(i + 1)));
    }
}

TEST_F(MainstayQueueClient, TheDaemonHearsOfTheFirstListenerAndOfTheLast)
{
    RecordingListener& first = m_listener;
    RecordingListener second;
    EXPECT_FALSE(m_client->AddConfigEventListener(nullptr));
    EXPECT_FALSE(m_client->AddConfigEventListener(kNumber, &first));
    EXPECT_TRUE(m_client->AddConfigEventListener(&first));
    EXPECT_TRUE(m_client->AddConfigEventListener(&second));
    EXPECT_TRUE(m_client->AddConfigEventListener(&first));
    EXPECT_EQ(m_daemon.Requests().back().bytes, Words({48, m_id, 1, 0, 0, 0}));
    m_daemon.Send(m_id, NumberEvent(m_id + 1, 4));  // for another connection
    m_daemon.Send(m_id, NumberEvent(m_id, 5));
    EXPECT_TRUE(Eventually([&] { return first.Heard().size() == 2; }));
    EXPECT_TRUE(m_client->RemoveConfigEventListener(&first));
    EXPECT_TRUE(m_client->RemoveConfigEventListener(&second));
    m_daemon.Send(m_id, NumberEvent(m_id, 6));
    EXPECT_TRUE(Eventually([&] { return first.Heard().size() == 3; }));
    EXPECT_THAT(m_daemon.Types(), ElementsAre(48));
    EXPECT_TRUE(m_client->RemoveConfigEventListener(&first));
    EXPECT_THAT(m_daemon.Types(), ElementsAre(48, 49));
    EXPECT_THAT(first.Heard(), ElementsAre(Number(5), Number(5), Number(6)));
    EXPECT_THAT(second.Heard(), ElementsAre(Number(5)));
    EXPECT_EQ(first.LastTime().tv_sec, 11);
}

TEST_F(MainstayQueueClient, ARefusedRegistrationSaysWhy)
{
    ConfigEvent event;
    const std::string add = "PosixMQClient::AddConfigEventListener - ";
    const std::string remove = "PosixMQClient::RemoveConfigEventListener - ";
    const std::string wait = "PosixMQClient::WaitForConfigEvent";
    const auto answer = [&](uint32_t type, auto change) {
        AnswerWith(type, [=](const MQRequest& request) {
            auto response = AnswerTo(request);
            change(response);
            return Bytes(response);
        });
        return StderrOf([&] {
            if (type == 49) {
                EXPECT_FALSE(m_client->RemoveConfigEventListener(&m_listener));
                return;
            }
            EXPECT_FALSE(m_client->AddConfigEventListener(&m_listener));
            EXPECT_FALSE(m_client->WaitForConfigEvent(event, 0, 0));
        });
    };
    const auto wrongType = [](auto& response) { response.msgtype = 96; };
    EXPECT_EQ(answer(48, wrongType), add + "msgtype != XCFG_ADD_CONFIG_EVENT_LISTENER_RESPONSE\n" + wait +
                                         " - response is not a event listener response\n");
    EXPECT_EQ(answer(49, wrongType), remove + "msgtype != XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE\n");
    const auto twoErrors = [](auto& response) {
        response.listenerError = 5;
        response.error = 9;
    };
    EXPECT_EQ(answer(48, twoErrors), add + "error = 5\n" + wait + " - error != 0\n");
    EXPECT_EQ(answer(49, twoErrors), remove + "error = 5\n");
    const auto otherID = [](auto& response) { response.info.configID = 1; };
    EXPECT_THAT(answer(48, otherID), testing::AllOf(HasSubstr(add + "IsValidResponse returned false\n"),
                                                    HasSubstr(wait + "(): response message did not match "
                                                                     "response message info\n")));
    EXPECT_THAT(answer(49, otherID), HasSubstr(remove + "IsValidResponse returned false\n"));
    // Each looks at its own place only.
    AnswerWith(48, [](const MQRequest& request) {
        auto response = AnswerTo(request);
        response.error = 9;
        return Bytes(response);
    });
    EXPECT_TRUE(m_client->AddConfigEventListener(&m_listener));
}

TEST_F(MainstayQueueClient, MessagesThatAreNoEventsAreReported)
{
    m_client->AddConfigEventListener(&m_listener);
    mq::XCONFIGMGR_RESPONSE_T data, empty;
    data.msgtype = XCFG_PARAM_DATA_CHANGED_EVENT;
    empty.msgtype = XCFG_PARAM_STRING_CHANGED_EVENT;
    data.info.connectionID = empty.info.connectionID = m_id;
    const std::string error = StderrOf([&] {
        m_daemon.Send(m_id, Bytes(data));
        m_daemon.Send(m_id, Words({99, m_id}));
        m_daemon.Send(m_id, Bytes(empty));
        m_daemon.Send(m_id, NumberEvent(m_id, 1));
        EXPECT_TRUE(Eventually([&] { return m_listener.Heard().size() == 1; }));
    });
    EXPECT_EQ(error,
              "Unknown message type 146\nUnknown message type 99\n"
              "PosixMQClient::ProcessConfigStreamParamEvent - invalid streamLength\n");
}

TEST_F(MainstayQueueClient, CallbacksUseTheirClientAndAreKeptFromHangingIt)
{
    std::atomic<unsigned int> got = 0;
    std::atomic<bool> refused = true, ended = false;
    Callback listener([&] {
        got += m_client->Get(kNumber);
        ConfigEvent event;
        if (m_client->AddConfigEventListener(&listener) || m_client->RemoveConfigEventListener(&listener) ||
            m_client->WaitForConfigEvent(event, 0, 0))
            refused = false;
        if (got == 7) throw 1;
        ended = listener.Heard().size() == 3;
    });
    m_client->AddConfigEventListener(&listener);
    const std::string error = StderrOf([&] {
        for (unsigned int i = 1; i <= 3; ++i) m_daemon.Send(m_id, NumberEvent(m_id, i));
        EXPECT_TRUE(Eventually([&] { return ended.load(); }));
    });
    EXPECT_THAT(listener.Heard(), ElementsAre(Number(1), Number(2), Number(3)));
    EXPECT_THAT(error, HasSubstr("] PosixMQClient::MQNotifyHandler - exception!!!!\n"));
    EXPECT_EQ(got, 21u);
    EXPECT_TRUE(refused);
    Disconnect();
}

TEST_F(MainstayQueueClient, TheLastListenerComesAndGoesUnderEvents)
{
    std::atomic<bool> stop = false;
    auto events = std::async(std::launch::async, [&] {
        for (unsigned int i = 1; !stop; ++i) m_daemon.Send(m_id, NumberEvent(m_id, i));
    });
    for (int i = 0; i < 200; ++i) {
        RecordingListener listener;
        ASSERT_TRUE(m_client->AddConfigEventListener(&listener));
        if (i % 10 == 0) {
            ASSERT_TRUE(Eventually([&] { return !listener.Heard().empty(); }));
        }
        ASSERT_TRUE(m_client->RemoveConfigEventListener(&listener));
    }
    m_client->AddConfigEventListener(&m_listener);
    stop = true;
    events.get();
    m_daemon.Send(m_id, NumberEvent(m_id, 0));
    EXPECT_TRUE(
        Eventually([&] { return !m_listener.Heard().empty() && m_listener.Heard().back() == Number(0); }));
}

TEST_F(MainstayQueueClient, ANotificationThatFiresLateIsHarmless)
{
    EXPECT_TRUE(m_client->EnableMQEvents(true));
    EXPECT_TRUE(m_client->EnableMQEvents(true)) << "it was on already";
    EXPECT_TRUE(m_client->EnableMQEvents(false));
    EXPECT_TRUE(m_client->EnableMQEvents(false));
    sigval late{};
    mq::PosixMQClient::MQNotifyHandler(late);
    late.sival_ptr = m_client;
    mq::PosixMQClient::MQNotifyHandler(late);
    Disconnect();
    EXPECT_EQ(StderrOf([&] { mq::PosixMQClient::MQNotifyHandler(late); }), "");
}

// --- waiting for events ---

TEST_F(MainstayQueueClient, AWaitHandsOutEventsAsRecords)
{
    ConfigEvent event;
    auto waited = std::async(std::launch::async, [&] { return m_client->WaitForConfigEvent(event, 0, 0); });
    EXPECT_TRUE(Eventually([&] { return m_daemon.Types().size() == 1; }));
    EXPECT_EQ(m_client->Get(kNumber), 7u) << "the waiting thread reads the answer";
    EXPECT_EQ(waited.wait_for(0s), std::future_status::timeout);
    m_daemon.Send(m_id, NumberEvent(m_id, 8));
    EXPECT_TRUE(waited.get());
    EXPECT_EQ(event.paramID, kNumber);
    EXPECT_EQ(event.paramType, FindDescriptor(kNumber)->GetParamType());
    EXPECT_EQ(event.value, 8u);
    EXPECT_EQ(event.time.tv_sec, 11);

    m_daemon.Send(m_id, TextEvent(m_id, "Scene"));
    m_daemon.Send(m_id, NumberEvent(m_id + 1, 1));
    m_daemon.Send(m_id, Words({146, m_id}));
    EXPECT_EQ(m_client->Get(kNumber), 7u) << "events before the answer";
    EXPECT_TRUE(m_client->WaitForConfigEvent(event, 0, 0));
    EXPECT_EQ(event.paramType, eCParam_StringValue);
    EXPECT_EQ(event.text, "Scene");
    EXPECT_FALSE(m_client->WaitForConfigEvent(event, 0, 0)) << "for another connection";
    EXPECT_EQ(StderrOf([&] { EXPECT_TRUE(m_client->WaitForConfigEvent(event, 0, 0)); }),
              "PosixMQClient::WaitForConfigEvent - Unknown message type 146\n");
    EXPECT_EQ(event.text, "Scene");

    // Who waits stays registered when the last listener goes.
    m_client->AddConfigEventListener(&m_listener);
    waited = std::async(std::launch::async, [&] { return m_client->WaitForConfigEvent(event, 0, 0); });
    EXPECT_TRUE(m_client->RemoveConfigEventListener(&m_listener));
    EXPECT_THAT(m_daemon.Types(), ElementsAre(48, 80, 80, 48, 49, 48));
    m_daemon.Send(m_id, NumberEvent(m_id, 9));
    EXPECT_TRUE(waited.get());
    EXPECT_EQ(event.value, 9u);
}

// --- the end ---

TEST_F(MainstayQueueClient, DisconnectWakesWhoWaits)
{
    ConfigEvent event;
    auto waited = std::async(std::launch::async, [&] { return m_client->WaitForConfigEvent(event, 0, 0); });
    EXPECT_TRUE(Eventually([&] { return m_daemon.Types().size() == 1; }));
    m_daemon.SetScript([](ScriptedDaemon&, const MQRequest& request) { return request.msgtype == 80; });
    std::future<unsigned int> got;
    StderrOf([&] {
        got = std::async(std::launch::async, [&] { return m_client->Get(kNumber); });
        EXPECT_TRUE(Eventually([&] { return m_daemon.Types().size() == 2; }));
        m_factory.Disconnect(m_client);
        EXPECT_FALSE(waited.get());
        EXPECT_EQ(got.get(), 0u);
    });
    m_client = nullptr;
}

TEST_F(MainstayQueueClient, DisconnectUnderEventsAndFromACallback)
{
    m_client->EnableMQEvents(true);  // the system's own descriptor stays
    Disconnect();
    for (int i = 0; i < 60; ++i) {
        const bool fromCallback = i % 2 == 0;
        const size_t descriptors = OpenDescriptors();
        mq::PosixMQClient* const client = m_factory.Connect("mq:");
        ASSERT_NE(client, nullptr);
        const uint32_t id = client->ConnectionID();
        std::promise<void> called;
        Callback listener([&] {
            if (listener.Heard().size() > 1) return;
            if (fromCallback) m_factory.Disconnect(client);
            called.set_value();
        });
        client->AddConfigEventListener(&listener);
        auto events = std::async(std::launch::async, [&] {
            for (unsigned int value = 0; value < 50; ++value) m_daemon.Send(id, NumberEvent(id, value));
        });
        called.get_future().wait();
        if (!fromCallback) m_factory.Disconnect(client);
        events.get();
        ASSERT_TRUE(Eventually([&] { return OpenDescriptors() <= descriptors; })) << "the client is left";
        if (fromCallback) {
            EXPECT_EQ(listener.Heard().size(), 1u);
        }
    }
}

TEST_F(MainstayQueueClient, FourThreadsWithAListenerEach)
{
    constexpr unsigned int kRounds = 200;
    std::mutex valuesLock;
    std::map<uint32_t, unsigned int> values;
    // A change is announced to its connection before it is answered.
    m_daemon.SetScript([&](ScriptedDaemon& self, const MQRequest& request) {
        const uint32_t id = request.info.connectionID;
        auto answer = AnswerTo(request);
        {
            const std::lock_guard hold(valuesLock);
            if (request.msgtype == 81) values[id] = request.value;
            answer.value = values[id];
        }
        if (request.msgtype == 81) self.Send(id, NumberEvent(id, request.value));
        if (request.msgtype == 80 || request.msgtype == 81) self.Send(id, Bytes(answer));
        return request.msgtype == 80 || request.msgtype == 81;
    });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([this] {
            mq::PosixMQClient* const client = m_factory.Connect("mq:");
            RecordingListener listener;
            EXPECT_TRUE(client->AddConfigEventListener(&listener));
            for (unsigned int value = 1; value <= kRounds; ++value) {
                EXPECT_TRUE(client->Config::Set(kNumber, value));
                EXPECT_EQ(client->Get(kNumber), value);
            }
            EXPECT_TRUE(Eventually([&] { return listener.Heard().size() == kRounds; }));
            const auto heard = listener.Heard();
            for (unsigned int value = 1; value <= heard.size(); ++value)
                EXPECT_EQ(heard[value - 1], Number(value));
            m_factory.Disconnect(client);
        });
    for (std::thread& thread : threads) thread.join();
    m_daemon.SetScript(nullptr);
}

}  // namespace
