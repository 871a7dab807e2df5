#include "config/access/client/queues/posix_mq_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "support/gate.h"
#include "support/mq_client_test.h"
#include "support/raw_peer.h"

using testing::ElementsAre, testing::HasSubstr;
using namespace std::chrono_literals;

namespace {

using MainstayQueueEvents = MQClientTest;

TEST_F(MainstayQueueEvents, RequestsWorkAmongEvents)
{
    constexpr unsigned int kRequests = 300;
    unsigned int value = 0;
    const auto sendEvents = [&] {
        m_daemon->Send(m_id, NumberEvent(m_id, ++value));
        m_daemon->Send(m_id, TextEvent(m_id, std::to_string(value)));
    };
    m_daemon->SetScript([&](ScriptedDaemon& self, const MQRequest& request) {
        if (request.msgtype == XCFG_DISCONNECT_REQUEST) return false;
        sendEvents();
        self.Send(m_id, Bytes(AnswerTo(request)));
        sendEvents();
        return true;
    });
    ASSERT_TRUE(m_client->AddConfigEventListener(&m_listener));
    ASSERT_TRUE(Eventually([&] { return m_listener.Heard().size() == 4; }))
        << "on both sides of the registration's answer";
    for (unsigned int i = 0; i < kRequests; ++i) ASSERT_EQ(m_client->Get(kNumber), 7u);
    ASSERT_TRUE(Eventually([&] { return m_listener.Heard().size() == 4 + 4 * kRequests; }));
    m_daemon->SetScript(nullptr);
    const auto heard = m_listener.Heard();
    for (size_t i = 0; i < heard.size(); i += 2) {
        const auto number = static_cast<unsigned int>(i / 2 + 1);
        ASSERT_EQ(heard[i], Number(number));
        ASSERT_THAT(heard[i + 1], testing::EndsWith("=" + std::to_string(number)));
    }
}

TEST_F(MainstayQueueEvents, TheDaemonHearsOfTheFirstListenerAndOfTheLast)
{
    RecordingListener& first = m_listener;
    RecordingListener second;
    EXPECT_FALSE(m_client->AddConfigEventListener(nullptr));
    EXPECT_FALSE(m_client->AddConfigEventListener(kNumber, &first));
    EXPECT_TRUE(m_client->AddConfigEventListener(&first));
    EXPECT_TRUE(m_client->AddConfigEventListener(&second));
    EXPECT_TRUE(m_client->AddConfigEventListener(&first));
    EXPECT_EQ(m_daemon->Requests().back().bytes, Words({48, m_id, 1, 0, 0, 0}));
    m_daemon->Send(m_id, NumberEvent(m_id + 1, 4));  // for another connection
    m_daemon->Send(m_id, NumberEvent(m_id, 5));
    EXPECT_TRUE(Eventually([&] { return first.Heard().size() == 2; }));
    EXPECT_TRUE(m_client->RemoveConfigEventListener(&first));
    EXPECT_TRUE(m_client->RemoveConfigEventListener(&second));
    m_daemon->Send(m_id, NumberEvent(m_id, 6));
    EXPECT_TRUE(Eventually([&] { return first.Heard().size() == 3; }));
    EXPECT_THAT(m_daemon->Types(), ElementsAre(48));
    EXPECT_TRUE(m_client->RemoveConfigEventListener(&first));
    EXPECT_THAT(m_daemon->Types(), ElementsAre(48, 49));
    EXPECT_THAT(first.Heard(), ElementsAre(Number(5), Number(5), Number(6)));
    EXPECT_THAT(second.Heard(), ElementsAre(Number(5)));
    EXPECT_EQ(first.LastTime().tv_sec, 11);
}

TEST_F(MainstayQueueEvents, ARefusedRegistrationSaysWhy)
{
    using Answer = mq::XCONFIGMGR_RESPONSE_T;
    const std::string add = "PosixMQClient::AddConfigEventListener - ";
    const std::string remove = "PosixMQClient::RemoveConfigEventListener - ";
    const std::string wait = "PosixMQClient::WaitForConfigEvent";
    const std::string otherID = "IsValidResponse returned false\n";
    struct {
        void (*change)(Answer&);
        std::string added, waited, removed;
    } const rows[] = {
        {[](Answer& answer) { answer.msgtype = 96; },
         add + "msgtype != XCFG_ADD_CONFIG_EVENT_LISTENER_RESPONSE\n",
         wait + " - response is not a event listener response\n",
         remove + "msgtype != XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE\n"},
        {[](Answer& answer) { answer.listenerError = 5, answer.error = 9; }, add + "error = 5\n",
         wait + " - error != 0\n", remove + "error = 5\n"},
        {[](Answer& answer) { answer.info.configID = 1; }, add + otherID,
         wait + "(): response message did not match response message info\n", remove + otherID},
        // Each looks at its own place only.
        {[](Answer& answer) { answer.error = 9; }, "", wait + " - error != 0\n", ""},
    };
    for (const auto& [change, added, waited, removed] : rows) {
        m_daemon->SetScript([change = change](ScriptedDaemon& self, const MQRequest& request) {
            Answer answer = AnswerTo(request);
            change(answer);
            self.Send(request.info.connectionID, Bytes(answer));
            return true;
        });
        ConfigEvent event;
        const auto expect = [](const std::string& message, auto call) {
            EXPECT_THAT(StderrOf([&] { EXPECT_EQ(call(), message.empty()); }), HasSubstr(message));
        };
        expect(waited, [&] { return m_client->WaitForConfigEvent(event, 0, 0); });
        expect(added, [&] { return m_client->AddConfigEventListener(&m_listener); });
        expect(removed, [&] { return m_client->RemoveConfigEventListener(&m_listener); });
    }
    m_daemon->SetScript(nullptr);
}

TEST_F(MainstayQueueEvents, AnEventInMemoryIsDeliveredToo)
{
    m_client->AddConfigEventListener(&m_listener);
    ConfigEvent event;
    for (const std::string& bytes : {NumberEvent(m_id, 4), TextEvent(m_id, "Take")}) {
        std::vector<uint32_t> words(bytes.size() / 4 + 1);
        memcpy(words.data(), bytes.data(), bytes.size());
        const auto* const record = reinterpret_cast<const mq::XCONFIGMGR_RESPONSE_T*>(words.data());
        EXPECT_TRUE(record->msgtype == 144 ? m_client->ProcessConfigParamEvent(record, &event)
                                           : m_client->ProcessConfigStreamParamEvent(record, nullptr));
    }
    EXPECT_EQ(event.value, 4u);
    EXPECT_THAT(m_listener.Heard(), ElementsAre(Number(4), testing::EndsWith("=Take")));
}

TEST_F(MainstayQueueEvents, MessagesThatAreNoEventsAreReported)
{
    m_client->AddConfigEventListener(&m_listener);
    mq::XCONFIGMGR_RESPONSE_T data, empty;
    data.msgtype = XCFG_PARAM_DATA_CHANGED_EVENT;
    empty.msgtype = XCFG_PARAM_STRING_CHANGED_EVENT;
    data.info.connectionID = empty.info.connectionID = m_id;
    const std::string error = StderrOf([&] {
        m_daemon->Send(m_id, Bytes(data));
        m_daemon->Send(m_id, Words({99, m_id}));
        m_daemon->Send(m_id, Bytes(empty));
        m_daemon->Send(m_id, NumberEvent(m_id, 1));
        EXPECT_TRUE(Eventually([&] { return m_listener.Heard().size() == 1; }));
    });
    EXPECT_EQ(error,
              "Unknown message type 146\nUnknown message type 99\n"
              "PosixMQClient::ProcessConfigStreamParamEvent - invalid streamLength\n");
}

TEST_F(MainstayQueueEvents, AClientThatTheDaemonHasForgottenRegistersAnew)
{
    using enum vexa::ConnectionChange;
    RecordingConnectionListener connection;
    m_client->AddConnectionListener(&connection);
    const auto told = [&] { return connection.Heard() == std::vector{kLost, kRestored}; };
    const std::string goodbye = Words({33, m_id, mq::kQueueUnasked, 0, 0, 0});
    m_client->AddConfigEventListener(&m_listener);
    m_daemon->Send(m_id, goodbye);
    EXPECT_TRUE(Eventually(told));
    EXPECT_THAT(m_daemon->Types(), ElementsAre(48, 48));

    m_client->RemoveConfigEventListener(&m_listener);
    ConfigEvent event;
    auto waited = std::async(std::launch::async, [&] { return m_client->WaitForConfigEvent(event, 0, 0); });
    EXPECT_TRUE(Eventually([&] { return m_daemon->Types().size() == 4; }));
    m_daemon->Send(m_id, goodbye);
    EXPECT_TRUE(Eventually([&] { return m_daemon->Types().size() == 5; }));
    m_daemon->Send(m_id, NumberEvent(m_id, 3));
    EXPECT_TRUE(waited.get());
    EXPECT_EQ(event.value, 3u);
    m_client->RemoveConnectionListener(&connection);
}

TEST_F(MainstayQueueEvents, EventsWithoutEndDoNotFillTheMemory)
{
    Gate gate;
    RecordingListener listener([&] { gate.Pass(); });
    RecordingConnectionListener connection;
    m_client->AddConnectionListener(&connection);
    m_client->AddConfigEventListener(&listener);
    m_daemon->Send(m_id, NumberEvent(m_id, 1));
    gate.Await();
    mq::XCONFIGMGR_RESPONSE_T event;
    event.msgtype = XCFG_PARAM_STRING_CHANGED_EVENT;
    event.info.connectionID = m_id;
    const std::string text(mq::kQueueMessageBytes - mq::kQueueResponseBytes, 'x');
    for (uint32_t id = 1; connection.Heard().empty() && id < 100'000; ++id) {
        event.paramID = eParam_t{id};
        m_daemon->Send(m_id, Bytes(event, text));
        if (id % 100 == 0) m_client->Get(kNumber);  // reads what has come
    }
    EXPECT_FALSE(connection.Heard().empty());
    gate.Open();
    m_client->RemoveConnectionListener(&connection);
    m_client->RemoveConfigEventListener(&listener);
}

TEST_F(MainstayQueueEvents, CallbacksUseTheirClientAndAreKeptFromHangingIt)
{
    std::atomic<unsigned int> got = 0;
    std::atomic<bool> refused = true, ended = false;
    RecordingListener listener([&] {
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
        for (unsigned int i = 1; i <= 3; ++i) m_daemon->Send(m_id, NumberEvent(m_id, i));
        EXPECT_TRUE(Eventually([&] { return ended.load(); }));
    });
    EXPECT_THAT(listener.Heard(), ElementsAre(Number(1), Number(2), Number(3)));
    EXPECT_THAT(error, HasSubstr("] PosixMQClient::MQNotifyHandler - exception!!!!\n"));
    EXPECT_EQ(got, 21u);
    EXPECT_TRUE(refused);
    Disconnect();
}

TEST_F(MainstayQueueEvents, ARemovalWaitsForTheCallbackOfAnotherThread)
{
    Gate gate;
    RecordingListener listener([&] { gate.Pass(); });
    ASSERT_TRUE(m_client->AddConfigEventListener(&listener));
    m_daemon->Send(m_id, NumberEvent(m_id, 1));
    EXPECT_TRUE(gate.KeepsWaiting([&] { m_client->RemoveConfigEventListener(&listener); }));
}

TEST_F(MainstayQueueEvents, TheLastListenerComesAndGoesUnderEvents)
{
    std::atomic<bool> stop = false;
    auto events = std::async(std::launch::async, [&] {
        for (unsigned int i = 1; !stop; ++i) m_daemon->Send(m_id, NumberEvent(m_id, i));
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
    m_daemon->Send(m_id, NumberEvent(m_id, 0));
    EXPECT_TRUE(
        Eventually([&] { return !m_listener.Heard().empty() && m_listener.Heard().back() == Number(0); }));
}

TEST_F(MainstayQueueEvents, ANotificationThatFiresLateIsHarmless)
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

TEST_F(MainstayQueueEvents, AWaitHandsOutEventsAsRecords)
{
    ConfigEvent event;
    auto waited = std::async(std::launch::async, [&] { return m_client->WaitForConfigEvent(event, 0, 0); });
    EXPECT_TRUE(Eventually([&] { return m_daemon->Types().size() == 1; }));
    EXPECT_EQ(m_client->Get(kNumber), 7u) << "the waiting thread reads the answer";
    EXPECT_EQ(waited.wait_for(0s), std::future_status::timeout);
    m_daemon->Send(m_id, NumberEvent(m_id, 8));
    EXPECT_TRUE(waited.get());
    EXPECT_EQ(event.paramID, kNumber);
    EXPECT_EQ(event.paramType, FindDescriptor(kNumber)->GetParamType());
    EXPECT_EQ(event.value, 8u);
    EXPECT_EQ(event.time.tv_sec, 11);

    m_daemon->Send(m_id, TextEvent(m_id, "Scene"));
    m_daemon->Send(m_id, NumberEvent(m_id + 1, 1));
    m_daemon->Send(m_id, Words({146, m_id}));
    EXPECT_EQ(m_client->Get(kNumber), 7u) << "events before the answer";
    EXPECT_TRUE(m_client->WaitForConfigEvent(event, 0, 0));
    EXPECT_EQ(event.paramType, eCParam_StringValue);
    EXPECT_EQ(event.text, "Scene");
    EXPECT_FALSE(m_client->WaitForConfigEvent(event, 0, 0)) << "for another connection";
    EXPECT_EQ(StderrOf([&] { EXPECT_TRUE(m_client->WaitForConfigEvent(event, 0, 0)); }),
              "PosixMQClient::WaitForConfigEvent - Unknown message type 146\n");
    EXPECT_EQ(event.text, "Scene");

    // A wait stays registered when the last listener goes.
    m_client->AddConfigEventListener(&m_listener);
    waited = std::async(std::launch::async, [&] { return m_client->WaitForConfigEvent(event, 0, 0); });
    EXPECT_TRUE(m_client->RemoveConfigEventListener(&m_listener));
    EXPECT_THAT(m_daemon->Types(), ElementsAre(48, 80, 80, 48, 49, 48));
    m_daemon->Send(m_id, NumberEvent(m_id, 9));
    EXPECT_TRUE(waited.get());
    EXPECT_EQ(event.value, 9u);
}

}  // namespace
