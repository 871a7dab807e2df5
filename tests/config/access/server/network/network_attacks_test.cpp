/// What hosts and users can try that are no clients.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <deque>
#include <string>

#include "config/access/io/socket.h"
#include "support/raw_peer.h"
#include "support/stderr_of.h"
#include "support/test_server.h"

namespace {

using testing::HasSubstr;

const eConfigID_t kConfig = 0x20000000 + getpid() * 4;
constexpr uint32_t kNumber = eParamID_RegisterSave, kText = eParamID_SysName;

/// A UDP server that is stopped, not only told to stop, and a client that is connected.
class NetworkAttacks : public testing::Test {
  protected:
    NetworkAttacks() { EXPECT_EQ(client.Ask(Connect(), 13)[0], 32u); }
    ~NetworkAttacks() override
    {
        server.Stop();
        EXPECT_TRUE(NetworkServer::WaitUntilStopped(std::chrono::milliseconds(RawPeer::kDeadlineMs)));
    }
    static WordList Connect() { return {16, 0x21234, 0, static_cast<uint32_t>(kConfig), 0, 4096}; }

    using NetworkServer = vexa::corvalis::config::access::NetworkServer;
    LocalStore store{kConfig};
    TestServer server{SOCK_DGRAM};
    RawPeer client{server.port, SOCK_DGRAM};
};

// Else a datagram in a server's name would have it answer itself, or another server, for ever.
TEST_F(NetworkAttacks, AReplyIsNoRequest)
{
    const std::string log = StderrOf([&] {
        client.Send(RequestWords(112, kConfig, kText));
        const std::string reply = client.Receive();
        EXPECT_EQ(RecordOf(reply)[0], 112u);
        client.Send(reply);
        for (const uint32_t type : {16u, 17u, 80u, 81u, 112u, 256u})
            client.Send(NetworkBytes(RequestWords(type, kConfig, kNumber, 9)) + std::string(4, '\0'));
        EXPECT_EQ(client.Ask(RequestWords(80, kConfig, kNumber), 13)[0], 96u) << "the only answer";
    });
    EXPECT_NE(store->Get(eParamID_RegisterSave), 9u);
    EXPECT_THAT(log, HasSubstr("\"Get String Request\" of 52 bytes is no request\n"));
}

TEST_F(NetworkAttacks, WhoHasNotConnectedGetsLittleMoreThanHeSends)
{
    constexpr uint32_t kData = eParamID_TestData;
    constexpr size_t kRequestBytes = 48;
    std::string bytes(20'000, 'b');
    store->Set(eParamID_SysName, bytes);
    store->SetData(eParamID_TestData, bytes);
    RawPeer stranger(server.port, SOCK_DGRAM);
    const auto ask = [](RawPeer& peer, uint32_t type, uint32_t id) {
        peer.Send(RequestWords(type, kConfig, id));
        return peer.Receive();
    };
    const std::pair<uint32_t, uint32_t> requests[] = {{112, kText}, {256, kData}};
    for (const auto& [type, id] : requests) {
        EXPECT_GT(ask(client, type, id).size(), bytes.size());
        EXPECT_EQ(ask(stranger, type, id).size(), 52u);
    }
    store->Set(eParamID_SysName, "short");
    EXPECT_GT(ask(stranger, 112, kText).size(), 52u);
    EXPECT_LE(ask(stranger, 112, kText).size(), 8 * kRequestBytes);
    EXPECT_EQ(stranger.Ask(Connect(), 13)[0], 32u);
    EXPECT_GT(ask(stranger, 256, kData).size(), bytes.size());
}

/// @return whether another socket can have the port as well.
bool CanShare(int port, const char* address)
{
    const int other = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    setsockopt(other, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(static_cast<uint16_t>(port));
    at.sin_addr.s_addr = inet_addr(address);
    const bool isShared = bind(other, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0;
    close(other);
    return isShared;
}

TEST_F(NetworkAttacks, NobodyTakesTheDatagramsOfAServerOrClient)
{
    constexpr const char* kAddresses[] = {"127.0.0.1", "0.0.0.0"};
    vexa::corvalis::config::access::Socket other(AF_INET, SOCK_DGRAM);
    ASSERT_TRUE(other.create() && other.connect("127.0.0.1", server.port));
    for (const char* const address : kAddresses) {
        EXPECT_FALSE(CanShare(server.port, address)) << "of a server, chosen by the system";
        EXPECT_FALSE(CanShare(other.local_port(), address)) << "of a client";
    }
    NetworkServer fixed(AF_INET, SOCK_DGRAM, server.port + 1);
    if (!fixed.Init()) GTEST_SKIP() << "the next port is in use";
    for (const char* const address : kAddresses)
        EXPECT_FALSE(CanShare(server.port + 1, address)) << "of a server, chosen by its user";
}

TEST(NetworkSilence, OnlyWhoHasConnectedMayBeSilent)
{
    LocalStore store(kConfig);
    TestServer server(SOCK_STREAM, {}, std::chrono::milliseconds(500));
    const std::string connect = NetworkBytes({16, 1, 0, static_cast<uint32_t>(kConfig), 0, 4096});
    const std::string set = RequestBytes(113, kConfig, kText, TextPayload("text", kText, kConfig));
    std::deque<RawPeer> connected;
    for (int i = 0; i < 3; ++i) {
        connected.emplace_back(server.port).Send(connect);
        EXPECT_EQ(connected.back().ReceiveWords(7)[0], 32u);
    }
    RawPeer &idle = connected[0], &half = connected[1], &unfinished = connected[2];
    const std::string log = StderrOf([&] {
        RawPeer silent(server.port), slow(server.port);
        slow.Send(connect.substr(0, 5));
        half.Send(set.substr(0, 47));
        unfinished.Send(set.substr(0, 50));
        for (RawPeer* const peer : {&silent, &slow, &half, &unfinished}) EXPECT_TRUE(peer->IsClosed());
        EXPECT_EQ(idle.Ask(RequestWords(80, kConfig, kNumber), 13)[0], 96u);
    });
    EXPECT_THAT(log, HasSubstr("a client that has not connected in 500 ms is cut off\n"));
}

}  // namespace
