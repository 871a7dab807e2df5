#include "config/access/client/network/network_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "config/access/client/network/network_factory.h"
#include "config/descriptors/registry/registry.h"
#include "config/values/config_value.h"
#include "support/network_events.h"
#include "support/raw_peer.h"
#include "support/recording_listener.h"
#include "support/scripted_server.h"
#include "support/stderr_of.h"

using testing::ElementsAre, testing::HasSubstr;

namespace {

class NetworkClientTest : public testing::Test {
  protected:
    NetworkClientTest() { CreateDescriptors(); }

    net::NetworkClient* Connect(const ScriptedServer& server) { return m_factory.Connect(server.Uri()); }

    net::NetworkFactory m_factory;
};

/// Answers everything as a server does whose numbers are all 7.
void ServeUntilDisconnect(ScriptedPeer& peer)
{
    while (!testing::Test::HasFailure()) {
        const auto request = peer.Receive(24);
        const uint32_t type = request.msgtype;
        if (type == XCFG_DISCONNECT_REQUEST)
            return peer.Send(Confirmation(request, XCFG_DISCONNECT_RESPONSE));
        const bool isRegistration = type == XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST ||
                                    type == XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST;
        peer.Receive(isRegistration ? 4 : 24);
        if (type == XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST)
            peer.Send(Confirmation(request, XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE));
        if (type == XCFG_GET_PARAM_REQUEST)
            peer.Send(NumberEvent(7) + Event(XCFG_GET_PARAM_RESPONSE, kNumber, 7));
    }
}

TEST_F(NetworkClientTest, AHandshakeThatFailsGivesNoClient)
{
    struct Row {
        uint32_t type, error;
        const char* message;
    };
    for (const Row& row :
         {Row{XCFG_CONNECT_RESPONSE, 5, "ConfirmConnection: server responded with error 5\n"},
          Row{XCFG_DISCONNECT_RESPONSE, 0, "ConfirmConnection: unexpected msgtype == 33\n"},
          Row{99, 0, "ConfirmConnection: unexpected msgtype == 99\n"}}) {
        ScriptedServer server(SOCK_STREAM, [&](ScriptedPeer& peer) { peer.Connect(row.type, row.error); });
        EXPECT_EQ(StderrOf([&] { EXPECT_EQ(Connect(server), nullptr); }),
                  std::string("NetworkClient::") + row.message +
                      "NetworkFactory::Connect - failed to confirm connection with host 127.0.0.1\n");
    }
    EXPECT_EQ(
        StderrOf([&] { EXPECT_EQ(m_factory.Connect("socket://127.0.0.1:1/configid="), nullptr); }),
        "NetworkFactory::Connect - unable to read configid, matches = -1, uri = "
        "socket://127.0.0.1:1/configid=\n"
        "NetworkFactory::Connect - The transport for socket://127.0.0.1:1/configid= is not supported\n");
}

TEST_F(NetworkClientTest, AReplyIsFoundAmongEventsLateRepliesAndPieces)
{
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        peer.Connect();
        auto get = peer.Receive();
        EXPECT_EQ(get.msgtype, XCFG_GET_PARAM_REQUEST);
        EXPECT_EQ(get.paramID, kNumber);
        auto other = get;
        other.paramID = kText;
        const std::string answer =
            ReplyTo(get, XCFG_SET_STREAM_PARAM_RESPONSE, 0, "", 53) +
            ReplyTo(get, XCFG_PARAM_CHANGED_EVENT, 1) +
            ReplyTo(other, XCFG_PARAM_STRING_CHANGED_EVENT, 0, TextPayload("event", kText)) +
            ReplyTo(other, XCFG_SET_PARAM_RESPONSE, 2) + ReplyTo(get, XCFG_GET_PARAM_RESPONSE, 3);
        for (const char c : answer) peer.Send(std::string(1, c));

        get = peer.Receive();
        EXPECT_EQ(get.msgtype, XCFG_GET_STREAM_PARAM_REQUEST);
        auto response = net::ResponseFor(get, XCFG_GET_STREAM_PARAM_RESPONSE);
        response.streamLength = net::kMaxReplyPayload + 1;
        peer.Send(net::MessageBytes(response, std::string(response.streamLength, 'x')));
        peer.Send(ReplyTo(peer.Receive(), XCFG_GET_STREAM_PARAM_RESPONSE, 0, TextPayload("Scene", kText)));
        peer.Send(ReplyTo(peer.Receive(), XCFG_GET_STREAM_PARAM_RESPONSE, 0));
        peer.Send(ReplyTo(peer.Receive(), XCFG_GET_STREAM_PARAM_RESPONSE, 0, "", 60));
        peer.Close();
    });
    net::NetworkClient* const client = Connect(server);
    ASSERT_NE(client, nullptr);
    const std::string get = StderrOf([&] { EXPECT_EQ(client->Get(kNumber), 3u); });
    EXPECT_THAT(get, HasSubstr("was refused, error 53"));
    std::string text = "kept";
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(client->Get(kText, text)); }),
              "NetworkClient::Get - bytes read do not equal streamLength\n");
    EXPECT_EQ(text, "kept");
    EXPECT_TRUE(client->Get(kText, text));
    EXPECT_EQ(text, "Scene");
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(client->Get(kText, text)); }),
              "NetworkClient::Get - invalid streamLength\n");
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(client->Get(kText, text)); }),
              "NetworkClient::Get - response error != 0\n");
    EXPECT_TRUE(client->IsReachable());
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(client->Get(eParam_t{0x12345678}), 0u); }),
              "NetworkClient::Get(eParam_t) - invalid paramid 0x12345678 \n");
    // The server is gone: this fails, and at once.
    EXPECT_THAT(StderrOf([&] { EXPECT_EQ(client->Get(kNumber), 0u); }), HasSubstr("NetworkClient::Get - "));
    EXPECT_FALSE(client->IsReachable());
    StderrOf([&] { m_factory.Disconnect(client); });
}

TEST_F(NetworkClientTest, AGetWithoutReplyEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, VEXA_DEATH_TEST_STYLE);
    const auto run = [this](int type) {
        ScriptedServer server(type, [](ScriptedPeer& peer) {
            peer.Connect();
            peer.Receive();
            pause();
        });
        net::NetworkClient* const client = Connect(server);
        client->SetReplyTimeout(20);
        static const std::function<void()>* goodbye;
        const std::function<void()> disconnect = [&] { m_factory.Disconnect(client); };
        goodbye = &disconnect;
        atexit([] {
            (*goodbye)();
            fputs("at exit\n", stderr);
        });
        alarm(RawPeer::kDeadlineMs / 1000);  // for a goodbye that waits for what its own process holds
        errno = 0;
        client->Get(kNumber);
    };
    for (const int type : {SOCK_STREAM, SOCK_DGRAM})
        EXPECT_EXIT(run(type), testing::ExitedWithCode(255),
                    "Socket::read_select - readfds is not set .timeout secs:0 usecs:20000.[^$]*"
                    "NetworkClient::Get - select failed on port [0-9]+ .PID:[0-9]+.\n[^$]*at exit");
}

TEST_F(NetworkClientTest, ListenersAreRegisteredOnceAndMayUseTheClient)
{
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        peer.Connect();
        ServeUntilDisconnect(peer);
    });
    net::NetworkClient* const client = Connect(server);
    ASSERT_NE(client, nullptr);
    RecordingListener other;
    std::promise<void> done;
    RecordingListener busy([&] {
        if (busy.Heard().size() > 1) return;
        EXPECT_EQ(client->Get(kNumber), 7u);
        EXPECT_TRUE(client->Set(kNumber, 1u));
        EXPECT_TRUE(client->AddConfigEventListener(&other));
        EXPECT_TRUE(client->RemoveConfigEventListener(&busy));
        EXPECT_TRUE(client->RemoveConfigEventListener(&other));
        EXPECT_EQ(client->Get(kNumber), 7u);
        EXPECT_TRUE(client->AddConfigEventListener(&other));
        done.set_value();
    });
    EXPECT_TRUE(client->AddConfigEventListener(&busy));
    std::vector<std::jthread> readers;
    for (int i = 0; i < 4; ++i)
        readers.emplace_back([&] {
            for (int n = 0; n < 100; ++n) EXPECT_EQ(client->Get(kNumber), 7u);
        });
    EXPECT_TRUE(Comes(done));
    readers.clear();
    EXPECT_FALSE(client->RemoveConfigEventListener(&busy));
    EXPECT_EQ(busy.Heard().size(), 1u);
    EXPECT_TRUE(client->RemoveConfigEventListener(&other));
    StderrOf([&] { m_factory.Disconnect(client); });
}

TEST_F(NetworkClientTest, ARemovalThatIsNotConfirmedEnds)
{
    std::promise<void> hasEnded;
    ScriptedServer server(SOCK_STREAM, [&](ScriptedPeer& peer) {
        peer.Connect();
        peer.Receive(28);
        EXPECT_EQ(peer.Receive(28).msgtype, static_cast<uint32_t>(XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST));
        EXPECT_TRUE(Comes(hasEnded));
    });
    net::NetworkClient* const client = Connect(server);
    ASSERT_NE(client, nullptr);
    client->SetReplyTimeout(20);
    RecordingListener listener;
    EXPECT_TRUE(client->AddConfigEventListener(&listener));
    const std::string lines = StderrOf([&] { EXPECT_TRUE(client->RemoveConfigEventListener(&listener)); });
    hasEnded.set_value();
    EXPECT_THAT(lines,
                HasSubstr("UnregisterForEvents - msgtype != XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE"));
    StderrOf([&] { m_factory.Disconnect(client); });
}

TEST_F(NetworkClientTest, TheNumberIsItsOwnResult)
{
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        peer.Connect();
        for (const uint32_t number : {7u, 0u})
            peer.Send(ReplyTo(peer.Receive(), XCFG_GET_PARAM_RESPONSE, number));
        ServeUntilDisconnect(peer);
    });
    net::NetworkClient* const client = Connect(server);
    ASSERT_NE(client, nullptr);
    unsigned int number = 5;
    EXPECT_TRUE(client->Get(kNumber, number));
    EXPECT_EQ(number, 7u);
    EXPECT_FALSE(client->Get(kNumber, number)) << "as if it had failed, as callers know it";
    EXPECT_EQ(number, 0u);
    m_factory.Disconnect(client);
}

TEST_F(NetworkClientTest, AListenerThatComesLaterDoesNotHearOldValues)
{
    ScriptedServer server(SOCK_STREAM, [&](ScriptedPeer& peer) {
        peer.Connect();
        EXPECT_EQ(peer.Receive(28).msgtype, static_cast<uint32_t>(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST));
        peer.Send(NumberEvent(1) + NumberEvent(2) + NumberEvent(3));
        peer.Send(Confirmation(peer.Receive(28), XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE));
        peer.Receive(28);
        peer.Send(NumberEvent(4));
        ServeUntilDisconnect(peer);
    });
    net::NetworkClient* const client = Connect(server);
    ASSERT_NE(client, nullptr);
    std::promise<void> heard;
    RecordingListener successor([&] { heard.set_value(); });
    RecordingListener first([&] {
        client->RemoveConfigEventListener(&first);
        client->AddConfigEventListener(&successor);
    });
    EXPECT_TRUE(client->AddConfigEventListener(&first));
    EXPECT_TRUE(Comes(heard));
    EXPECT_THAT(successor.Heard(), ElementsAre("int 5c010000=4"));
    StderrOf([&] { m_factory.Disconnect(client); });
}

TEST_F(NetworkClientTest, SendingReadsWhileNoOtherThreadDoes)
{
    constexpr unsigned int kChanges = 200'000;  // in either direction more than any buffer holds
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        peer.Connect();
        peer.Receive(28);
        std::string events;
        for (unsigned int i = 0; i < kChanges; ++i) events += NumberEvent(1);
        peer.Send(events);
        for (unsigned int i = 0; i < kChanges; ++i) peer.Receive();
        ServeUntilDisconnect(peer);
    });
    net::NetworkClient* const client = Connect(server);
    ASSERT_NE(client, nullptr);
    std::mutex mutex;
    RecordingListener locking(
        [&] { const std::lock_guard hold(mutex); });  // stands still as long as it is held
    {
        const std::lock_guard hold(mutex);
        ASSERT_TRUE(client->AddConfigEventListener(&locking));
        for (unsigned int i = 0; i < kChanges; ++i) ASSERT_TRUE(client->Set(kNumber, i));
    }
    EXPECT_TRUE(client->RemoveConfigEventListener(&locking));
    StderrOf([&] { m_factory.Disconnect(client); });
}

/// Gives its client back at the first call.
struct Leaver {
    RecordingListener listener{[this] {
        EXPECT_EQ(listener.Heard().size(), 1u);
        EXPECT_TRUE(Comes(registered));
        factory.Disconnect(client);
        done.set_value();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));  // events go on arriving meanwhile
    }};
    net::NetworkFactory factory;
    net::NetworkClient* client = nullptr;
    std::promise<void> registered, done;
};

/// A sanitizer starts a thread of its own with the first one.
auto ThreadsAtRest()
{
    std::thread([] {}).join();
    return EntriesOf("/proc/self/task");
}

/// Threads that were detached leave a little after what they were last heard of.
void ExpectThreads(ptrdiff_t atMost)
{
    EXPECT_TRUE(Eventually([&] { return EntriesOf("/proc/self/task") <= atMost; }));
}

TEST_F(NetworkClientTest, AClientMayBeReleasedFromItsCallback)
{
    const auto threads = ThreadsAtRest();
    Leaver leaver;
    const std::string output = StderrOf([&] {
        ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
            peer.Connect();
            peer.Receive(28);  // Add Listener
            peer.Send(NumberEvent(1) + NumberEvent(2));
            ServeUntilDisconnect(peer);
        });
        leaver.client = Connect(server);
        leaver.client->AddConfigEventListener(&leaver.listener);
        leaver.registered.set_value();
        EXPECT_TRUE(Comes(leaver.done));
    });
    EXPECT_THAT(output, testing::Not(HasSubstr("ConfirmDisconnect")));
    ExpectThreads(threads);
}

TEST_F(NetworkClientTest, EventsEndAsTheyShould)
{
    struct {
        std::string last;
        const char* message;
    } const rows[] = {{"", ""},
                      {"abc", "NetworkTCPClient::ProcessEvents - recv error (0) in process ID "},
                      {Confirmation({}, 99),
                       "NetworkTCPClient::ProcessEvents - Unknown message type 99\n"
                       "NetworkTCPClient::ProcessEvents - Exiting\n"}};
    for (const auto& row : rows) {
        RecordingListener listener;
        const std::string output = StderrOf([&] {
            net::NetworkClient* client;
            {
                ScriptedServer server(SOCK_STREAM, [&](ScriptedPeer& peer) {
                    peer.Connect();
                    peer.Receive(28);
                    peer.Send(Event(XCFG_PARAM_STRING_CHANGED_EVENT, kText, 0, TextPayload("a", kText)) +
                              Event(XCFG_PARAM_STRING_CHANGED_EVENT, kText, 0, "cut") + row.last);
                });
                client = Connect(server);
                client->AddConfigEventListener(&listener);
            }
            EXPECT_TRUE(Eventually([&] { return !client->IsReachable(); }));
            m_factory.Disconnect(client);
        });
        EXPECT_THAT(listener.Heard(), ElementsAre("str 1302000a=a")) << output;
        EXPECT_EQ(listener.LastTime().tv_usec, 5);
        EXPECT_THAT(output, HasSubstr(row.message));
    }
}

TEST_F(NetworkClientTest, UdpTakesOnlyItsOwnReply)
{
    std::promise<void> lateReplyIsThere;
    ScriptedServer server(SOCK_DGRAM, [&](ScriptedPeer& peer) {
        peer.Connect();
        const auto set = peer.Receive();
        EXPECT_EQ(set.msgtype, XCFG_SET_PARAM_REQUEST);
        peer.Send(ReplyTo(set, XCFG_SET_PARAM_RESPONSE, 5));
        peer.Send(ReplyTo(set, XCFG_GET_PARAM_RESPONSE, 1));  // late: drained before the next request
        lateReplyIsThere.set_value();
        const auto get = peer.Receive();
        auto foreign = get;
        foreign.connectionID += 0x10000;
        auto other = get;
        other.paramID = kText;
        peer.Send("");
        peer.Send("short");
        peer.Send(ReplyTo(foreign, XCFG_GET_PARAM_RESPONSE, 2));
        peer.Send(ReplyTo(other, XCFG_GET_PARAM_RESPONSE, 3));
        peer.Send(ReplyTo(get, XCFG_SET_PARAM_RESPONSE, 4));
        peer.Send(ReplyTo(get, XCFG_GET_PARAM_RESPONSE, 6));
        const auto string = peer.Receive();
        peer.Send(ReplyTo(string, XCFG_GET_STREAM_PARAM_REQUEST, 0, TextPayload("Scene", kText)));
        auto cut = net::ResponseFor(peer.Receive(), XCFG_GET_DATA_RESPONSE);
        cut.streamLength = 30'000;  // more than arrives
        peer.Send(net::MessageBytes(cut, std::string("a\0b", 3)));
        peer.Send(ReplyTo(peer.Receive(), XCFG_SET_PARAM_RESPONSE, 0, "", net::kErrorRefused));
        peer.Connect(XCFG_DISCONNECT_RESPONSE);
    });
    net::NetworkClient* const client = Connect(server);
    ASSERT_NE(client, nullptr);
    EXPECT_TRUE(client->Set(kNumber, 5));
    EXPECT_TRUE(Comes(lateReplyIsThere));
    EXPECT_EQ(client->Get(kNumber), 6u);
    std::string text;
    EXPECT_TRUE(client->Get(kText, text));
    EXPECT_EQ(text, "Scene");
    EXPECT_TRUE(client->GetData(eParamID_TestData, text));
    EXPECT_EQ(text, std::string("a\0b", 3));
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(client->Set(kNumber, 99)); }),
              "NetworkUDPClient::Set - response error:-1\n");
    std::string large(net::kMaxRequestPayload + 1, 'x');
    EXPECT_THAT(StderrOf([&] { EXPECT_FALSE(client->SetData(eParamID_TestData, large)); }),
                HasSubstr("do not fit a request"));
    EXPECT_EQ(StderrOf([&] { m_factory.Disconnect(client); }), "");
}

TEST_F(NetworkClientTest, AMulticastClientMayBeReleasedFromItsCallbacks)
{
    const auto threads = ThreadsAtRest();
    for (const bool number : {true, false}) {
        Leaver leaver;
        leaver.client = m_factory.Connect("multicast://127.0.0.1:63110/configid=-7");
        ASSERT_NE(leaver.client, nullptr);
        ASSERT_TRUE(leaver.client->AddConfigEventListener(&leaver.listener));
        leaver.registered.set_value();
        const std::string events[] = {
            Event(XCFG_PARAM_CHANGED_EVENT, kNumber, 3, "", -7),
            Event(XCFG_PARAM_STRING_CHANGED_EVENT, kText, 0, TextPayload("t", kText), -7)};
        for (int i = 0; i < 6; ++i) Multicast(events[(i > 0) == number]);
        EXPECT_TRUE(Comes(leaver.done));
        ExpectThreads(threads);
    }
}

TEST_F(NetworkClientTest, AMulticastClientOnlyListens)
{
    net::NetworkClient* const client = m_factory.Connect("multicast://127.0.0.1:63110/configid=-5");
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client->GetConfigID(), -5);
    StderrOf([&] {
        EXPECT_EQ(client->Get(kNumber), 0u);
        EXPECT_FALSE(client->Set(kNumber, 1));
    });
    RecordingListener listener;
    ASSERT_TRUE(client->AddConfigEventListener(&listener) && client->RemoveConfigEventListener(&listener) &&
                client->AddConfigEventListener(&listener));

    for (const std::string& bytes :
         {std::string(), std::string("short"), Event(XCFG_PARAM_CHANGED_EVENT, kNumber, 3, "", -5),
          Event(XCFG_PARAM_CHANGED_EVENT, kNumber, 4, "", -6),
          Event(XCFG_PARAM_STRING_CHANGED_EVENT, kText, 0, "garbage", -5),
          Event(XCFG_PARAM_STRING_CHANGED_EVENT, kText, 0, TextPayload("t", kText), -5),
          Event(XCFG_PARAM_DATA_CHANGED_EVENT, eParamID_TestData, 0, std::string("d\0d", 3), -5)})
        Multicast(bytes);
    EXPECT_TRUE(Eventually([&] { return listener.Heard().size() >= 3; }));
    EXPECT_THAT(listener.Heard(), testing::UnorderedElementsAre("int 5c010000=3", "str 1302000a=t",
                                                                testing::ContainsRegex("data [0-9a-f]+=d")));
    m_factory.Disconnect(client);
}

}  // namespace
