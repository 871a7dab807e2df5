#include "config/access/server/network/network_server.h"

#include <gmock/gmock.h>
#include <sys/socket.h>

#include <memory>

#include "config/access/server/network/tcp_stream.h"
#include "config/access/server/peer_stores.h"
#include "support/raw_peer.h"
#include "support/recording_listener.h"
#include "support/stderr_of.h"
#include "support/test_server.h"

using namespace vexa::corvalis::config::access;
using testing::AllOf, testing::ElementsAre, testing::HasSubstr;

namespace {

constexpr uint32_t kNumber = eParamID_RegisterSave, kText = eParamID_SysName;

WordList ConnectRequest(uint32_t connection, eConfigID_t configID)
{
    return {16, connection, 0, static_cast<uint32_t>(configID), 0, 4096};
}

WordList Request(uint32_t type, uint32_t id, uint32_t value = 0, uint32_t length = 0)
{
    return RequestWords(type, 40, id, value, length);
}

std::string SetText(const std::string& payload)
{
    return RequestBytes(113, 40, kText, payload);
}

/// A client that has connected.
class Client : public RawPeer {
  public:
    explicit Client(const TestServer& server, eConfigID_t configID = 40, int receiveBuffer = 0)
        : RawPeer(server.port, SOCK_STREAM, receiveBuffer)
    {
        EXPECT_EQ(Ask(ConnectRequest(0x21234, configID), 7)[0], 32u);
    }
    uint32_t Get(uint32_t id = kNumber)
    {
        const WordList reply = Ask(Request(80, id), 13);
        return reply[0] == 96 ? reply[8] : 0xBAD;
    }
    void Register() { Send(WordList{48, 0x21234, 0, 40, 0, 4096, 0}); }
};

TEST(NetworkServer, RecordsOfEveryExchange)
{
    LocalStore store(40);
    store->Set(eParamID_RegisterSave, 9u);
    store->Set(eParamID_SysName, "north");
    RecordingListener listener;
    store->AddConfigEventListener(&listener);
    TestServer server;
    RawPeer peer(server.port);
    EXPECT_THAT(peer.Ask({16, 0x21234, 7, 40, 5, 4097}, 7), ElementsAre(32, 0x21234, 7, 40, 5, 4097, 0));
    EXPECT_EQ(peer.Ask(Request(80, kNumber), 13), ReplyWords(96, 40, kNumber, 0, 9));

    const auto size = static_cast<uint32_t>(TextPayload("north", kText, 40).size());
    EXPECT_EQ(peer.Ask(Request(112, kText), 13), ReplyWords(128, 40, kText, 0, 0, size));
    EXPECT_EQ(peer.Receive(size), TextPayload("north", kText, 40));
    EXPECT_EQ(peer.Ask(Request(112, 0x99), 13), ReplyWords(128, 40, 0x99, 60, 0));
    peer.Send(SetText(TextPayload("x", 0x99)));
    EXPECT_EQ(peer.ReceiveWords(13), ReplyWords(129, 40, kText, 53, 0));

    // A client that asks to hear of one parameter hears of all.
    peer.Send(WordList{48, 0x21234, 0, 40, 0, 4096, 5});
    EXPECT_THAT(peer.Ask(Request(81, kNumber, 500), 13),
                ElementsAre(144, 0x21234, 0xFFFFFFFF, 40, 0, 4096, kNumber, 0, 20, 0, 0, 0, 3072));
    EXPECT_EQ(store->Get(eParamID_RegisterSave), 20u);
    EXPECT_EQ(listener.LastTime().tv_sec * 100 + listener.LastTime().tv_usec, 1122);
    store->RemoveConfigEventListener(&listener);
    peer.Send(SetText(TextPayload("south", kText, 40)));
    EXPECT_THAT(peer.ReceiveWords(13),
                ElementsAre(145, 0x21234, 0, 40, 0, 4096, kText, 0, 0, 11, 22, size, 3072));
    EXPECT_EQ(peer.Receive(size), TextPayload("south", kText, 40));

    EXPECT_THAT(peer.Ask({49, 0x21234, 7, 40, 5, 4097, 0}, 7), ElementsAre(65, 0x21234, 7, 40, 5, 4097, 0));
    store->Set(eParamID_RegisterSave, 3u);
    EXPECT_THAT(peer.Ask({17, 0x21234, 7, 40, 5, 4097}, 7), ElementsAre(33, 0x21234, 7, 40, 5, 4097, 0));
}

TEST(NetworkServer, TruncatedRecordsEndTheirConnectionWithOneLine)
{
    TestServer server;
    for (const auto& [type, name] : {std::pair{16u, "CONNECT"},
                                     {17, "DISCONNECT"},
                                     {48, "ADD_CONFIG_EVENT_LISTENER"},
                                     {49, "REMOVE_CONFIG_EVENT_LISTENER"},
                                     {80, "GET_PARAM"},
                                     {81, "SET_PARAM"},
                                     {112, "GET_STREAM_PARAM"},
                                     {113, "SET_STREAM_PARAM"}}) {
        const size_t length = type < 48 ? 24 : type < 80 ? 28 : 48;
        const std::string record = NetworkBytes(Request(type, kNumber));
        for (const size_t cut : {size_t{0}, size_t{1}, size_t{3}, size_t{4}, length - 1}) {
            const std::string lines = StderrOf([&] {
                RawPeer peer(server.port);
                peer.Send(record.substr(0, cut));
                peer.EndRequests();
                EXPECT_TRUE(peer.IsClosed()) << cut;
            });
            const std::string what = cut < 4 ? "socket message" : "XCFG_" + std::string(name) + "_REQUEST";
            EXPECT_EQ(lines, cut == 0 ? ""
                                      : "NetworkTCPConnection::ProcessMessages - error calling recv for " +
                                            what + " (connection pid = 0x0)\n");
        }
    }
}

TEST(NetworkServer, RequestsBeforeConnectAndUnknownTypesEndTheConnection)
{
    TestServer server;
    for (const uint32_t type : {48u, 80u, 81u, 112u, 113u, 0u, 32u, 256u, 0x10000000u}) {
        RawPeer peer(server.port);
        const std::string lines = StderrOf([&] {
            peer.Send(NetworkBytes(Request(type, kNumber)).substr(0, type == 48 ? 28 : 48));
            EXPECT_TRUE(peer.IsClosed()) << type;
        });
        const bool isRequest = type > 32 && type < 256;
        EXPECT_THAT(lines, HasSubstr(isRequest ? " before Connect Request (connection pid = 0x0)\n"
                                               : "Unknown message type " + std::to_string(type) + "\n"));
    }
    RawPeer peer(server.port);
    EXPECT_EQ(peer.Ask({17, 1, 0, 0, 0, 4096}, 7)[0], 33u);
    EXPECT_EQ(peer.Ask({49, 1, 0, 0, 0, 4096, 0}, 7)[0], 65u);
}

TEST(NetworkServer, ConnectTwice)
{
    LocalStore first(40), second(41);
    first->Set(eParamID_RegisterSave, 2u);
    second->Set(eParamID_RegisterSave, 3u);
    TestServer server;
    Client client(server);
    client.Register();
    EXPECT_EQ(client.Get(), 2u);
    EXPECT_THAT(client.Ask(ConnectRequest(0x30000, 40), 7), ElementsAre(32, 0x30000, 0, 40, 0, 4096, 0));
    EXPECT_EQ(first.Manager()->GetUseCount(), 2);
    first->Set(eParamID_RegisterSave, 4u);
    EXPECT_EQ(client.ReceiveWords(13)[1], 0x30000u) << "still registered, under the new name";

    EXPECT_EQ(client.Ask(ConnectRequest(0x30000, 41), 7)[3], 41u);
    EXPECT_EQ(first.Manager()->GetUseCount(), 1);
    first->Set(eParamID_RegisterSave, 5u);
    EXPECT_EQ(client.Get(), 3u) << "no event of the first";
}

TEST(NetworkServer, AConnectionThatIsGoneIsNotCalled)
{
    LocalStore store(40);
    TestServer server;
    {
        Client client(server);
        client.Register();
        client.Send(WordList{49, 1, 0, 40, 0, 4096, 0});
        client.Register();
        client.Register();
        EXPECT_EQ(client.ReceiveWords(7)[0], 65u);
        EXPECT_NE(client.Get(), 0xBADu);
        store->Set(eParamID_RegisterSave, 7u);
        EXPECT_EQ(client.ReceiveWords(13)[0], 144u);
        EXPECT_EQ(client.Get(), 7u) << "one event, not two";
    }
    ASSERT_TRUE(Eventually([&] { return store.Manager()->GetUseCount() == 1; }));
    store->Set(eParamID_RegisterSave, 8u);
}

TEST(NetworkServer, AClientThatReadsItsRepliesLateGetsThemAll)
{
    LocalStore store(40);
    const std::string text(24'000, 't');
    store->Set(eParamID_SysName, text);
    TestServer server;
    Client client(server, 40, 4096);
    constexpr size_t kRequests = 1000;  // far more than the system's buffers and the queue hold
    std::string requests;
    for (size_t i = 0; i < kRequests; ++i) requests += NetworkBytes(Request(112, kText));
    client.Send(requests);
    client.Register();
    EXPECT_TRUE(client.IsReadable(RawPeer::kDeadlineMs));
    const std::string payload = TextPayload(text, kText, 40);
    for (size_t i = 0; i < kRequests; ++i) {
        ASSERT_EQ(client.ReceiveWords(13)[0], 128u) << i;
        ASSERT_EQ(client.Receive(payload.size()), payload) << i;
    }
    // Now the queue begins with an event, while the connection's thread waits for input.
    store->Set(eParamID_SysName, std::string(8 * 1024 * 1024, 'l'));
    const WordList event = client.ReceiveWords(13);
    ASSERT_EQ(event[0], 145u);
    EXPECT_EQ(client.Receive(event[11]).size(), event[11]);
}

TEST(NetworkServer, PayloadsThatCannotBeBelieved)
{
    LocalStore store(40);
    TestServer server;
    for (const uint32_t length : {0xFFFFFFFFu, 0x80000000u, 24'529u}) {
        Client client(server);
        const std::string lines = StderrOf([&] {
            client.Send(Request(113, kText, 0, length));
            EXPECT_TRUE(client.IsClosed());
        });
        EXPECT_THAT(lines, HasSubstr("NetworkTCPConnection::ProcessSetStreamRequest: "));
    }
    Client client(server);
    const std::string lines = StderrOf([&] {
        client.Send(SetText(""));
        EXPECT_NE(client.Get(), 0xBADu);
    });
    EXPECT_THAT(lines, HasSubstr("NetworkTCPConnection::ProcessSetStreamMessage - invalid streamLength\n"));
    for (const std::string& payload :
         {std::string(200, '\0'), std::string(200, '\xFF'), TextPayload("text", kText, 40).substr(0, 9)}) {
        client.Send(SetText(payload));
        const WordList refusal = client.ReceiveWords(13);
        ASSERT_THAT((WordList{refusal[0], refusal[7]}), ElementsAre(129, 53)) << payload.size();
    }
    client.Send(SetText(TextPayload(std::string(24'528 - TextPayload("", kText, 40).size(), 'x'), kText)));
    const WordList longest = client.Ask(Request(112, kText), 13);
    EXPECT_EQ(client.Receive(longest[11]).size(), 24'528u);
    IntegerValue number(40, eParamID_RegisterSave, eCParam_IntegerValue, 17);
    client.Send(SetText(WritePayload(&number)));
    EXPECT_EQ(client.Get(), 17u) << "a number is stored as one, under its own name";
}

TEST(NetworkServer, StoresForPeersAreLimited)
{
    TestServer server;
    std::vector<std::unique_ptr<Client>> clients;
    for (eConfigID_t id = 0; id < static_cast<eConfigID_t>(kMaxPeerStores); ++id)
        clients.push_back(std::make_unique<Client>(server, id == 0 ? -1 : 100 + id));
    const auto refuses = [&](eConfigID_t id) {
        RawPeer peer(server.port);
        peer.Send(ConnectRequest(1, id));
        return peer.IsClosed();
    };
    EXPECT_THAT(StderrOf([&] { EXPECT_TRUE(refuses(4000)); }),
                HasSubstr("NetworkTCPConnection::ProcessConnectRequest - unable to connect to the config\n"));
    Client same(server, -1);
    LocalStore local(4000);  // applications have no limit
    clients.pop_back();
    EXPECT_TRUE(Eventually([&] { return !refuses(4000); }));
}

TEST(NetworkServer, OneThatEndsByItselfWaitsForItsStop)
{
    auto* const server = new NetworkServer(AF_INET, SOCK_DGRAM, 0);
    ASSERT_TRUE(server->Init());
    for (int descriptor = 3; descriptor < 100; ++descriptor) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
            address.sin_family == AF_INET && ntohs(address.sin_port) == server->Port())
            close(descriptor);
    }
    ASSERT_TRUE(server->Start());
    ASSERT_FALSE(NetworkServer::WaitUntilStopped(std::chrono::milliseconds(50)));
    server->Stop();
    EXPECT_TRUE(NetworkServer::WaitUntilStopped(std::chrono::milliseconds(RawPeer::kDeadlineMs)));
}

TEST(NetworkServer, StartsAndStops)
{
    TestServer running;
    for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
        for (int i = 0; i < 20; ++i) TestServer(type).Stop();
        NetworkServer uninitialised(AF_INET, type, 0);
        // Those that stop print lines of their own in between.
        EXPECT_THAT(
            StderrOf([&] { EXPECT_FALSE(uninitialised.Start()); }),
            AllOf(HasSubstr("configd::main: "), HasSubstr("NetworkServer::Start - pthread_create failed\n")));
    }
    Client client(running);
    EXPECT_FALSE(NetworkServer::WaitUntilStopped(std::chrono::milliseconds(1)));
    running.Stop();
    EXPECT_TRUE(NetworkServer::WaitUntilStopped(std::chrono::seconds(20)));
    EXPECT_NE(client.Get(), 0xBADu) << "clients that are connected stay so";
}

}  // namespace
