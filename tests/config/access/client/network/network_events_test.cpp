/// What listeners hear when events come faster than they take them, and what is told when events do not come.
#include <gmock/gmock.h>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <future>

#include "config/access/client/network/network_factory.h"
#include "config/access/client/network/network_udp_client.h"
#include "config/access/connector/reachability.h"
#include "config/descriptors/registry/registry.h"
#include "support/network_events.h"
#include "support/recording_listener.h"
#include "support/stderr_of.h"
#include "support/stuck_listener.h"

using testing::ElementsAre, testing::HasSubstr;
using vexa::ConnectionChange;

namespace {

constexpr unsigned int kParameters = 200, kChanges = 60'000;
constexpr eParam_t kQuiet{0x7fffffff};

/// The quiet parameter changes first, and then never again.
std::string Change(unsigned int number, int32_t configID = 0)
{
    const eParam_t id = number == 0 ? kQuiet : eParam_t{number % kParameters + 1};
    return Event(XCFG_PARAM_CHANGED_EVENT, id, number, "", configID, number);
}

void ExpectTheNewest(const StuckListener& listener)
{
    EXPECT_TRUE(Eventually(
        [&] { return listener.Last()[eParam_t{(kChanges - 1) % kParameters + 1}] == kChanges - 1; }));
    auto last = listener.Last();
    EXPECT_EQ(last.size(), kParameters + 1);
    EXPECT_TRUE(last.contains(kQuiet));
    last.erase(kQuiet);
    for (const auto& [id, value] : last) EXPECT_GE(value + kParameters, kChanges) << id;
    EXPECT_LT(listener.Heard(), kChanges) << "more than is kept were sent";
}

/// A client and what its connection tells.
class NetworkEventsTest : public testing::Test {
  protected:
    NetworkEventsTest() { CreateDescriptors(); }
    ~NetworkEventsTest() override
    {
        if (m_client) RemoveConnectionListener(*m_client, &m_connection);
        StderrOf([&] { m_factory.Disconnect(m_client); });
    }

    net::NetworkClient& Connect(const std::string& uri)
    {
        m_client = m_factory.Connect(uri);
        EXPECT_TRUE(AddConnectionListener(*m_client, &m_connection));
        return *m_client;
    }
    bool Tells(size_t changes)
    {
        return Eventually([&] { return m_connection.Heard().size() >= changes; });
    }
    bool Tells(ConnectionChange change)
    {
        return Eventually([&] { return std::ranges::count(m_connection.Heard(), change) > 0; });
    }

    net::NetworkFactory m_factory;
    net::NetworkClient* m_client = nullptr;
    RecordingConnectionListener m_connection;
};

TEST_F(NetworkEventsTest, OverTcpAStuckListenerEndsWithTheNewestValues)
{
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        peer.Connect();
        peer.Receive(28);
        std::string events;
        for (unsigned int i = 0; i < kChanges; ++i) events += Change(i);
        peer.Send(events);
        peer.Send(ReplyTo(peer.Receive(), XCFG_GET_PARAM_RESPONSE, 7));
    });
    StuckListener listener;
    net::NetworkClient& client = Connect(server.Uri());
    ASSERT_TRUE(client.AddConfigEventListener(&listener));
    listener.gate.Await();
    EXPECT_EQ(client.Get(kNumber), 7u) << "reads past the events";
    listener.gate.Open();
    ExpectTheNewest(listener);
    StderrOf([&] { client.RemoveConfigEventListener(&listener); });
}

TEST_F(NetworkEventsTest, OverUdpAStuckListenerEndsWithTheNewestValues)
{
    const int32_t config = 0x20000000 + getpid();
    StuckListener listener;
    net::NetworkClient& client = Connect("multicast://127.0.0.1:63110/configid=" + std::to_string(config));
    ASSERT_TRUE(client.AddConfigEventListener(&listener));
    EventSender sender;
    for (unsigned int i = 0; i < kChanges; ++i) {
        sender.Send(Change(i, config));
        if (i % 20 == 19)
            std::this_thread::sleep_for(std::chrono::microseconds(500));  // else the socket overflows
    }
    // Texts pass the socket as well, although a number keeps the listener busy.
    sender.Send(Event(XCFG_PARAM_STRING_CHANGED_EVENT, kText, 0, TextPayload("t", kText), config));
    listener.gate.Open();
    const bool isTold = !m_connection.Heard().empty();
    if (!isTold) ExpectTheNewest(listener);
    client.RemoveConfigEventListener(&listener);
    if (isTold) GTEST_SKIP() << "the kernel lost datagrams, and this was told";
}

/// 0 where freed memory is kept.
long PeakKilobytes()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__powerpc__)
    return 0;
#else
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
#endif
}

TEST_F(NetworkEventsTest, EventsThatNobodyListensToCostNoMemory)
{
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        peer.Connect();
        const auto get = peer.Receive();
        const std::string text =
            Event(XCFG_PARAM_STRING_CHANGED_EVENT, kText, 0, std::string(net::kMaxReplyPayload, 'x'));
        for (int i = 0; i < 100; ++i) peer.Send(text);
        peer.Send(ReplyTo(get, XCFG_GET_PARAM_RESPONSE, 7));
    });
    net::NetworkClient& client = Connect(server.Uri());
    const long before = PeakKilobytes();
    EXPECT_EQ(client.Get(kNumber), 7u);
    EXPECT_LT(PeakKilobytes() - before, 64 * 1024);
}

TEST_F(NetworkEventsTest, AServerWithMoreEventsThanAStoreHasIsLeft)
{
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        peer.Connect();
        peer.Receive(28);
        const std::string payload(net::kMaxReplyPayload, 'x');
        peer.Send(NumberEvent(1));
        for (uint32_t id = 1; id < 40; ++id)
            peer.Send(Event(XCFG_PARAM_STRING_CHANGED_EVENT, eParam_t{id}, 0, payload));
    });
    StuckListener listener;
    net::NetworkClient& client = Connect(server.Uri());
    ASSERT_TRUE(client.AddConfigEventListener(&listener));
    listener.gate.Await();
    const long before = PeakKilobytes();
    const std::string lines = StderrOf([&] {
        EXPECT_EQ(client.Get(kNumber), 0u) << "reads until there is no more room";
        EXPECT_THAT(m_connection.Heard(), ElementsAre(ConnectionChange::kLost));
    });
    EXPECT_LT(PeakKilobytes() - before, 64 * 1024);
    EXPECT_THAT(lines, HasSubstr("the server's events need more than 16777216 bytes\n"));
    StderrOf([&] {
        listener.gate.Open();
        client.RemoveConfigEventListener(&listener);
    });
}

TEST_F(NetworkEventsTest, TheEndOfATcpConnectionIsTold)
{
    RecordingListener listener;
    std::promise<void> isListening;
    {
        ScriptedServer server(SOCK_STREAM, [&](ScriptedPeer& peer) {
            peer.Connect();
            peer.Receive(28);
            EXPECT_TRUE(Comes(isListening));
            peer.Send(NumberEvent(1));
        });
        EXPECT_TRUE(Connect(server.Uri()).AddConfigEventListener(&listener));
        isListening.set_value();
    }
    EXPECT_TRUE(Tells(1));
    EXPECT_FALSE(IsReachable(*m_client));
    EXPECT_EQ(listener.Heard().size(), 1u) << "what came before was heard";
    StderrOf([&] { EXPECT_EQ(m_client->Get(kNumber), 0u); });
    EXPECT_THAT(m_connection.Heard(), ElementsAre(ConnectionChange::kLost));
}

TEST_F(NetworkEventsTest, AUdpListenerThatGoesDeafIsTold)
{
    const int32_t config = 0x21000000 + getpid();
    EventSender sender;
    uint32_t number = 0;
    const auto send = [&](eParam_t id, uint32_t value) {
        sender.Send(Event(XCFG_PARAM_CHANGED_EVENT, id, value, "", config, number++));
    };
    RecordingListener first, second;
    net::NetworkClient& client = Connect("multicast://127.0.0.1:63110/configid=" + std::to_string(config));
    ASSERT_TRUE(client.AddConfigEventListener(&first));
    send(eParamID_SystemState, 9);
    EXPECT_TRUE(Tells(ConnectionChange::kLost));
    EXPECT_EQ(first.Heard().size(), 1u) << "before it is told";
    EXPECT_FALSE(IsReachable(client));

    ASSERT_TRUE(client.AddConfigEventListener(&second));
    EXPECT_TRUE(Tells(ConnectionChange::kRestored));
    send(kNumber, 3);
    EXPECT_TRUE(Eventually([&] { return first.Heard().size() == 2 && second.Heard().size() == 1; }));
    EXPECT_TRUE(IsReachable(client));
    client.RemoveConfigEventListener(&first);
    client.RemoveConfigEventListener(&second);
}

TEST(EventGaps, OnlyThoseOfTheOwnServerCount)
{
    struct Row {
        uint16_t port;
        uint32_t number;
        bool isOurs, isAfterGap;
    };
    net::EventGaps gaps;
    for (const Row& row :
         {Row{1, 5, true, false}, Row{1, 6, false, false}, Row{2, 900, false, false},
          Row{2, 902, false, false}, Row{1, 7, true, false}, Row{1, 9, false, true}, Row{1, 10, true, false},
          Row{3, 0, true, true}, Row{3, 1, true, false}, Row{3, 0, true, true}, Row{1, 20, false, false}}) {
        sockaddr_in from{};
        from.sin_port = row.port;
        EXPECT_EQ(gaps.IsAfterGap(from, row.number, row.isOurs), row.isAfterGap)
            << row.port << ": " << row.number;
    }
    EXPECT_FALSE(gaps.HasLost(0));
    EXPECT_TRUE(gaps.HasLost(2));
    EXPECT_FALSE(gaps.HasLost(2));
}

TEST_F(NetworkEventsTest, MulticastEventsThatDidNotComeAreTold)
{
    const int32_t config = 0x22000000 + getpid();
    RecordingListener listener;
    net::NetworkClient& client = Connect("multicast://127.0.0.1:63110/configid=" + std::to_string(config));
    ASSERT_TRUE(client.AddConfigEventListener(&listener));
    EventSender server, successor, stranger;
    const auto send = [&](EventSender& from, uint32_t number, int32_t ofConfig) {
        from.Send(Event(XCFG_PARAM_CHANGED_EVENT, kNumber, number, "", ofConfig, number));
    };
    server.Send(Event(XCFG_PARAM_CHANGED_EVENT, kNumber, 77, "", config, 0),
                "127.0.0.1");  // not to the group
    send(server, 5, config);
    send(server, 6, config + 1);  // numbered together
    send(stranger, 900, config + 1);
    send(server, 7, config);
    EXPECT_TRUE(Eventually([&] { return listener.Heard().size() == 2; }));
    send(server, 9, config);
    EXPECT_TRUE(Tells(1));
    send(successor, 0, config);  // the daemon was restarted
    EXPECT_TRUE(Tells(2));
    EXPECT_THAT(m_connection.Heard(), testing::Each(ConnectionChange::kEventsMissing));
    EXPECT_TRUE(Eventually([&] { return listener.Heard().size() == 4; }));
    EXPECT_EQ(listener.Heard()[0], "int 5c010000=5");
    client.RemoveConfigEventListener(&listener);
}

TEST_F(NetworkEventsTest, AUdpServerThatDoesNotKnowItsClientAnyMoreIsMissed)
{
    Gate served;
    ScriptedServer server(SOCK_DGRAM, [&](ScriptedPeer& peer) {
        peer.Connect();
        for (int silent = 0; silent < 4; ++silent) EXPECT_EQ(peer.Receive().paramID, eParamID_SystemState);
        peer.Send(ReplyTo(peer.Receive(), XCFG_GET_PARAM_RESPONSE, 4));
        served.Pass();
    });
    RecordingListener listener;
    net::NetworkClient& client = Connect(server.Uri() + "/configid=" + std::to_string(0x23000000 + getpid()));
    dynamic_cast<net::NetworkUDPClient&>(client).SetProbeInterval(40);
    ASSERT_TRUE(client.AddConfigEventListener(&listener));
    // Besides it may miss events, of which other tests send many.
    EXPECT_TRUE(Tells(ConnectionChange::kLost));
    EXPECT_TRUE(Tells(ConnectionChange::kRestored));
    served.Open();
    EXPECT_TRUE(client.RemoveConfigEventListener(&listener));
}

}  // namespace
