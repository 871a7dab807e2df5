#include "config/access/server/network/network_udp_connection.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "config/access/server/peer_stores.h"
#include "support/raw_peer.h"
#include "support/recording_listener.h"
#include "support/stderr_of.h"
#include "support/test_server.h"

using namespace vexa::corvalis::config::access;
using testing::ElementsAre, testing::HasSubstr;

namespace {

// A configuration of this process's own, because every listener on the host hears the events.
const eConfigID_t kConfig = 0x10000000 + getpid() * 4;  // and the next ones
const auto kConfigWord = static_cast<uint32_t>(kConfig);
constexpr uint32_t kNumber = eParamID_RegisterSave, kText = eParamID_SysName, kData = eParamID_TestData;

WordList Connection(uint32_t type, uint32_t client, eConfigID_t config = kConfig)
{
    return {type, client, 0, static_cast<uint32_t>(config), 0, 4096};
}

WordList Request(uint32_t type, uint32_t id, uint32_t value = 0, uint32_t length = 0)
{
    return RequestWords(type, kConfig, id, value, length);
}

std::string WithPayload(uint32_t type, uint32_t id, const std::string& payload)
{
    return RequestBytes(type, kConfig, id, payload);
}

/// A server with a connected client, the store and a receiver of its events.
class NetworkUdpServer : public testing::Test {
  protected:
    NetworkUdpServer() { EXPECT_EQ(client.Ask(Connection(16, 0x21234), 13)[0], 32u); }
    /// The next test counts the users of the store.
    ~NetworkUdpServer() override
    {
        server.Stop();
        EXPECT_TRUE(NetworkServer::WaitUntilStopped(std::chrono::milliseconds(RawPeer::kDeadlineMs)));
    }

    /// The reply to a datagram.
    WordList Ask(const std::string& datagram)
    {
        client.Send(datagram);
        reply = client.Receive();
        return RecordOf(reply);
    }
    WordList Ask(const WordList& words) { return Ask(NetworkBytes(words)); }
    /// What the server prints about a datagram that it does not answer.
    std::string Dropped(const std::string& datagram)
    {
        return StderrOf([&] {
            client.Send(datagram);
            EXPECT_EQ(Ask(Request(80, kNumber))[0], 96u);
        });
    }
    /// What follows the record of a datagram.
    static std::string PayloadOf(const std::string& datagram) { return datagram.substr(52); }

    LocalStore store{kConfig};
    TestServer server{SOCK_DGRAM};
    RawPeer client{server.port, SOCK_DGRAM};
    RawEvents events{kConfig};
    std::string reply;
};

TEST_F(NetworkUdpServer, RecordsOfEveryExchange)
{
    EXPECT_THAT(Ask(WordList{16, 0x21234, 7, kConfigWord, 5, 4097}),
                ElementsAre(32, 0x21234, 7, kConfigWord, 5, 4097, 0, 0, 0, 0, 0, 0, 0));
    store->Set(eParamID_RegisterSave, 9u);
    EXPECT_EQ(Ask(Request(80, kNumber)), ReplyWords(96, kConfig, kNumber, 0, 9));
    EXPECT_EQ(Ask(Request(81, kNumber, 500)), ReplyWords(97, kConfig, kNumber, 0, 20));

    store->Set(eParamID_SysName, "north");
    const std::string north = TextPayload("north", kText, kConfig);
    const auto size = static_cast<uint32_t>(north.size());
    EXPECT_EQ(Ask(Request(112, kText)), ReplyWords(112, kConfig, kText, 0, 0, size))
        << "the request's own code";
    EXPECT_EQ(PayloadOf(reply), north);
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(Ask(Request(112, 0x99)), ReplyWords(112, kConfig, 0x99, 60, 0)); }),
              "ParamChanged: Invalid serializable value (ParamID:0x99)\n");

    const std::string data("\0\1\2\3\4\5\6\7\x80\xFF", 10);
    client.Send(WithPayload(258, kData, data));
    EXPECT_EQ(Ask(Request(256, kData)), ReplyWords(257, kConfig, kData, 0, 0, 10));
    EXPECT_EQ(PayloadOf(reply), data);
    EXPECT_EQ(Ask(Request(256, kNumber)), ReplyWords(257, kConfig, kNumber, 1, 0));
    EXPECT_THAT(Ask(WordList{17, 0x21234, 7, kConfigWord, 5, 4097}),
                ElementsAre(33, 0x21234, 7, kConfigWord, 5, 4097, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(reply.size(), 28u);
}

TEST_F(NetworkUdpServer, EventsOfItsOwnChanges)
{
    EXPECT_EQ(Ask(Request(81, kNumber, 4))[7], 0u);
    EXPECT_THAT(events.NextWords(),
                ElementsAre(144, 0, 0, kConfigWord, 0, 4096, kNumber, 0, 4, 11, 22, 0, 3072));
    EXPECT_EQ(Ask(Request(81, kNumber, 500))[7], 0u);
    EXPECT_THAT(events.NextWords(),
                ElementsAre(144, 0, 1, kConfigWord, 0, 4096, kNumber, 0, 20, 11, 22, 0, 3072));

    // Then what depends on it, as the store holds it.
    store->Set(eParamID_CombinedName, "c");
    events.Next();
    EXPECT_EQ(Ask(Request(81, eParamID_UseCustomClipTake, 1))[7], 0u);
    EXPECT_EQ(events.NextWords()[2], 2u);
    const std::string dependent = events.Next();
    const std::string combined = WritePayload(store->GetSerializable(eParamID_CombinedName));
    const auto length = static_cast<uint32_t>(combined.size());
    EXPECT_THAT(RecordOf(dependent), ElementsAre(145, 0, 0, kConfigWord, 0, 4096, eParamID_CombinedName, 0, 0,
                                                 11, 22, length, 3072));
    EXPECT_EQ(PayloadOf(dependent), combined);

    const std::string name = TextPayload("n", eParamID_CustomClipName, kConfig);
    client.Send(WithPayload(113, eParamID_CustomClipName, name));
    EXPECT_EQ(events.NextWords()[6], eParamID_CustomClipName);
    EXPECT_EQ(events.NextWords()[6], eParamID_CombinedName) << "after what changed it";

    // Texts and data travel on as they came, under the identifier of the request.
    const std::string south = TextPayload("south", kText, kConfig);
    client.Send(WithPayload(113, kText, south));
    const std::string text = events.Next();
    EXPECT_THAT(RecordOf(text),
                ElementsAre(145, 0x21234, 7, kConfigWord, 5, 4096, kText, 0, 0, 11, 22, south.size(), 3072));
    EXPECT_EQ(PayloadOf(text), south);
    client.Send(WithPayload(258, kData, "0123456789"));
    const std::string data = events.Next();
    EXPECT_EQ(data.size(), 62u);
    EXPECT_THAT(RecordOf(data),
                ElementsAre(146, 0x21234, 7, kConfigWord, 5, 4096, kData, 0, 0, 11, 22, 10, 3072));
    EXPECT_EQ(PayloadOf(data), "0123456789");
}

TEST_F(NetworkUdpServer, EventsOfOtherChanges)
{
    store->Set(eParamID_RegisterSave, 5u, timeval{33, 44});
    EXPECT_THAT(events.NextWords(),
                ElementsAre(144, 0, 0, kConfigWord, 0, 4096, kNumber, 0, 5, 33, 44, 0, 3072));
    store->Set(eParamID_SysName, "east", timeval{33, 44});
    const std::string text = events.Next(), east = TextPayload("east", kText, kConfig);
    EXPECT_EQ(RecordOf(text)[0], 145u);
    EXPECT_EQ(PayloadOf(text), east);
    std::string bytes("\0x", 2);
    store->SetData(eParamID_TestData, bytes, timeval{33, 44});
    const std::string data = events.Next();
    EXPECT_EQ(RecordOf(data)[0], 146u);
    EXPECT_EQ(PayloadOf(data), bytes);

    // The announcer alone announces what a listener changes during a client's Set.
    RecordingListener follower([&] {
        if (follower.Heard().size() == 1) store->Set(eParamID_Take, 6u);
    });
    store->AddConfigEventListener(&follower);
    EXPECT_EQ(Ask(Request(81, kNumber, 6))[7], 0u);
    store->RemoveConfigEventListener(&follower);
    WordList heard;
    for (WordList event = events.NextWords(); event[0] && event[6] != kNumber; event = events.NextWords())
        heard.push_back(event[6]);
    EXPECT_THAT(heard, testing::Contains(eParamID_Take));
}

TEST_F(NetworkUdpServer, RefusedChanges)
{
    const std::string lines = StderrOf([&] {
        EXPECT_EQ(Ask(Request(81, 0x99, 3)), ReplyWords(97, kConfig, 0x99, 0xFFFFFFFF, 0));
        store->Set(eParamID_UseCustomClipTake, 1u);
        EXPECT_THAT((WordList{Ask(Request(81, eParamID_UseCustomClipTake, 77))[7], RecordOf(reply)[8]}),
                    ElementsAre(0xFFFFFFFF, 1))
            << "with the value that stays";
        client.Send(WithPayload(113, kText, TextPayload("x", 0x99)));
        client.Send(WithPayload(113, kText, TextPayload("x", kText, kConfig).substr(0, 9)));
        client.Send(WithPayload(113, kText, ""));
    });
    EXPECT_THAT(lines, HasSubstr("\tNetworkUDPConnection::ProcessSetRequest - Set failed for paramID "
                                 "0x00000099 (Invalid), value 3\n"));
    EXPECT_EQ(events.NextWords()[6], eParamID_UseCustomClipTake);
    EXPECT_EQ(events.NextWords()[6], eParamID_CombinedName);
    EXPECT_EQ(Ask(Request(80, kNumber))[0], 96u);
    store->Set(eParamID_RegisterSave, 1u);
    EXPECT_EQ(events.NextWords()[6], kNumber) << "none for what was refused";

    client.Send(WithPayload(258, kNumber, "data"));  // the store tells its listeners all the same
    client.Send(WithPayload(258, kData, "data"));
    EXPECT_EQ(events.NextWords()[6], kData);
}

TEST_F(NetworkUdpServer, DatagramsThatAreTooShortOrUnknown)
{
    const std::string kTooShort =
        "NetworkUDPConnection::ProcessDatagramMessages - insufficient message length\n";
    for (const uint32_t type : {16u, 17u, 80u, 81u, 112u, 113u, 256u, 258u}) {
        const std::string whole = NetworkBytes(Request(type, kNumber));
        for (const size_t length : {1u, 3u, 4u, 5u, 23u, 24u, 47u})
            if (length < (type <= 17 ? 24 : 48)) {
                EXPECT_EQ(Dropped(whole.substr(0, length)), kTooShort) << type << " " << length;
            }
    }
    for (const uint32_t type : {113u, 258u})
        for (const uint32_t length : {5u, 24'529u, 0xFFFFFFFFu})
            EXPECT_EQ(Dropped(NetworkBytes(Request(type, kData, 0, length)) + "four"), kTooShort);
    EXPECT_EQ(Dropped(""), "NetworkServer::WaitForDatagram - recvfrom shutting down normally\n");
    EXPECT_EQ(Dropped(NetworkBytes(Request(48, 0))),
              "NetworkUDPConnection::ProcessDatagramMessages - Unknown message type \"Add Listener Request\" "
              "(0x30 )\n");
    EXPECT_EQ(Dropped(NetworkBytes({0xABCD})),
              "NetworkUDPConnection::ProcessDatagramMessages - Unknown message type \"\" (0xABCD )\n");
}

TEST_F(NetworkUdpServer, AConfigurationIsOpenUntilItsLastClientLeaves)
{
    RawPeer other(server.port, SOCK_DGRAM);
    EXPECT_EQ(other.Ask(Connection(16, 0x31234), 13)[0], 32u);
    EXPECT_EQ(other.Ask(Connection(16, 0x31234), 13)[0], 32u);
    EXPECT_EQ(store.Manager()->GetUseCount(), 2);
    EXPECT_EQ(other.Ask(Connection(17, 0x31234), 7)[0], 33u);
    EXPECT_EQ(other.Ask(Connection(17, 0x31234), 7)[0], 33u) << "unknown by now, and answered";
    EXPECT_EQ(Ask(Request(80, kNumber))[0], 96u);

    EXPECT_EQ(Ask(Connection(17, 0x21234))[0], 33u);
    EXPECT_EQ(store.Manager()->GetUseCount(), 1);
    const std::string lines = StderrOf([&] {
        client.Send(Request(80, kNumber));
        client.Send(Connection(17, 0x21234));
        EXPECT_EQ(Ask(Connection(16, 1))[1], 1u) << "the first reply";
    });
    const std::string line =
        "NetworkUDPConnection::GetConfig - ConfigID " + std::to_string(kConfig) + " instance not present\n";
    EXPECT_EQ(lines, line + line +
                         "NetworkUDPConnection::ProcessDisconnectRequest - Unable to get ConfigManger for "
                         "ConfigID " +
                         std::to_string(kConfig) + "\n");
}

TEST_F(NetworkUdpServer, AfterTooManyClientsAConfigurationStaysOpen)
{
    for (uint32_t i = 1; i <= NetworkUDPConnection::kMaxClients; ++i)
        ASSERT_EQ(Ask(Connection(16, i << 16))[0], 32u);
    for (uint32_t i = 1; i <= NetworkUDPConnection::kMaxClients; ++i)
        ASSERT_EQ(Ask(Connection(17, i << 16))[0], 33u);
    EXPECT_EQ(Ask(Connection(17, 0x21234))[0], 33u);
    EXPECT_EQ(Ask(Request(80, kNumber))[0], 96u);
    server.Stop();
    EXPECT_TRUE(NetworkServer::WaitUntilStopped(std::chrono::seconds(20)));
    EXPECT_EQ(store.Manager()->GetUseCount(), 1) << "until the server ends";
}

/// Sends nothing, and asks for stores.
class SpoofedClients {
  public:
    explicit SpoofedClients(std::chrono::milliseconds patience)
        : m_connection(m_socket, std::endian::native, patience)
    {
        EXPECT_TRUE(m_socket.create());
    }
    /// @return whether the configuration is open now.
    bool Connect(eConfigID_t config)
    {
        const std::string request = NetworkBytes(Connection(16, 0x41234, config));
        StderrOf(
            [&] { m_connection.ProcessMessages(request.data(), static_cast<int>(request.size()), m_from); });
        return IsOpen(config);
    }
    bool IsOpen(eConfigID_t config)
    {
        bool isOpen = false;
        StderrOf([&] { isOpen = m_connection.GetConfig(static_cast<uint32_t>(config)); });
        return isOpen;
    }

  private:
    Socket m_socket{AF_INET, SOCK_DGRAM};
    const sockaddr_in m_from = Address("127.0.0.1", 9);
    NetworkUDPConnection m_connection;
};

TEST(NetworkUdpConnection, SilentClientsLeaveStoresToOthers)
{
    constexpr int kMost = kMaxDatagramPeerStores;
    const eConfigID_t first = 0x30000000 + getpid();
    CreateDescriptors();
    {
        SpoofedClients patient(NetworkUDPConnection::kPatience);
        for (int i = 0; i < kMost; ++i) EXPECT_TRUE(patient.Connect(first + i));
        EXPECT_FALSE(patient.Connect(first + kMost)) << "all may still be there";
        Config* const overTcp = OpenPeerStore(first + kMost);
        EXPECT_NE(overTcp, nullptr);
        ClosePeerStore(overTcp);
    }
    SpoofedClients impatient(std::chrono::milliseconds(0));
    for (int i = 0; i < kMost; ++i) EXPECT_TRUE(impatient.Connect(first + i));
    EXPECT_TRUE(impatient.IsOpen(first)) << "heard of after the others";
    EXPECT_TRUE(impatient.Connect(first + kMost));
    EXPECT_TRUE(impatient.IsOpen(first));
    EXPECT_FALSE(impatient.IsOpen(first + 1)) << "it was silent for the longest time";
}

TEST_F(NetworkUdpServer, ValuesThatDoNotFitIntoADatagram)
{
    const size_t room = 24'524 - TextPayload("", kText, kConfig).size();
    store->Set(eParamID_SysName, std::string(room, 'a'));
    EXPECT_EQ(Ask(Request(112, kText))[7], 0u);
    EXPECT_EQ(reply.size(), 24'576u);
    EXPECT_EQ(events.Next().size(), 24'576u);
    const std::string lines = StderrOf([&] {
        store->Set(eParamID_SysName, std::string(room + 1, 'a'));
        EXPECT_THAT((WordList{Ask(Request(112, kText))[7], RecordOf(reply)[11]}), ElementsAre(60, 0));
    });
    EXPECT_THAT(lines, HasSubstr("is too large for an event"));
    std::string data(24'525, 'd');
    store->SetData(eParamID_TestData, data);
    EXPECT_THAT((WordList{Ask(Request(256, kData))[7], RecordOf(reply)[11]}), ElementsAre(1, 0));
    store->Set(eParamID_RegisterSave, 2u);
    EXPECT_EQ(events.NextWords()[6], kNumber) << "the large ones were left out";
}

TEST(NetworkUdpAnnouncements, WithoutAClientTheyDoNotCountAsConnected)
{
    const eConfigID_t kOther = kConfig + 1;
    LocalStore store(kOther);
    RawEvents events(kOther);
    TestServer server(SOCK_DGRAM, {kOther});
    ASSERT_TRUE(Eventually([&] { return store.Manager()->GetUseCount() == 2; }));
    RawPeer client(server.port, SOCK_DGRAM);
    const WordList connect = Connection(16, 1, kOther), disconnect = Connection(17, 1, kOther);
    const std::string lines = StderrOf([&] {
        client.Send(disconnect);
        EXPECT_EQ(client.Ask(connect, 13)[0], 32u) << "the first reply";
    });
    EXPECT_THAT(lines, HasSubstr("instance not present\n"));
    EXPECT_EQ(client.Ask(disconnect, 7)[0], 33u);
    store->Set(eParamID_RegisterSave, 2u);
    EXPECT_EQ(events.NextWords()[8], 2u) << "announced on";
}

TEST(ChangeAnnouncer, KeepsSilentAboutAChangeOfItsThreadOnly)
{
    const eConfigID_t kOther = kConfig + 2;
    LocalStore store(kOther);
    RawEvents events(kOther);
    MulticastSender sender;
    ChangeAnnouncer announcer(*store, sender, std::endian::native);
    ChangeAnnouncer::OwnChange change(announcer, {eParamID_RegisterSave});
    store->Set(eParamID_RegisterSave, 2u);
    store->Set(eParamID_SysName, "x");
    EXPECT_EQ(events.NextWords()[6], kText);
    EXPECT_FALSE(change.IsOvertaken());
    std::thread([&] { store->Set(eParamID_RegisterSave, 4u); }).join();
    EXPECT_EQ(events.NextWords()[8], 4u);
    EXPECT_TRUE(change.IsOvertaken());
    change.AnnounceKept();
    EXPECT_EQ(events.NextWords()[8], 2u);
}

}  // namespace
