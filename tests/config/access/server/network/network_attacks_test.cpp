/// What hosts and users can try that are no clients.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "config/access/io/socket.h"
#include "config/access/server/network/tcp_stream.h"
#include "config/access/server/peer_stores.h"
#include "support/raw_peer.h"
#include "support/stderr_of.h"
#include "support/test_server.h"

namespace {

using namespace vexa::corvalis::config::access;
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
    const sockaddr_in at = Address(address, port);
    const bool isShared = bind(other, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0;
    close(other);
    return isShared;
}

TEST_F(NetworkAttacks, NobodyTakesTheDatagramsOfAServerOrClient)
{
    constexpr const char* kAddresses[] = {"127.0.0.1", "0.0.0.0"};
    Socket other(AF_INET, SOCK_DGRAM);
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
    server.Stop();
    EXPECT_TRUE(NetworkServer::WaitUntilStopped(std::chrono::milliseconds(RawPeer::kDeadlineMs)));
    EXPECT_THAT(log, HasSubstr("a client that has not connected in 500 ms is cut off\n"));
}

TEST_F(NetworkAttacks, TextsOfPeersHaveOneLimit)
{
    const auto set = [&](const std::string& text) {
        const std::string payload = TextPayload(text, kText, kConfig);
        client.Send(RequestBytes(113, kConfig, kText, payload));
        client.Send(RequestBytes(258, kConfig, eParamID_TestData, text));
        EXPECT_EQ(client.Ask(RequestWords(80, kConfig, kNumber), 13)[0], 96u);
        std::string stored, data;
        store->Get(eParamID_SysName, stored);
        store->GetData(eParamID_TestData, data);
        return stored == text && data == text;
    };
    Config* const other = OpenPeerStore(kConfig + 1);
    const auto fill = [&](size_t bytes) {
        PeerText text(*other, eParamID_SysName, bytes);
        if (text.HasRoom()) text.Keep();
        return text.HasRoom();
    };
    EXPECT_TRUE(set("ten bytes."));
    EXPECT_FALSE(fill(kMaxPeerTextBytes - 19));
    EXPECT_TRUE(fill(kMaxPeerTextBytes - 20));
    EXPECT_TRUE(fill(kMaxPeerTextBytes - 20)) << "in place of the other";
    EXPECT_FALSE(set("eleven byte"));
    EXPECT_TRUE(set("as many :)"));
    Config* const device = OpenPeerStore(0);
    EXPECT_TRUE(PeerText(*device, eParamID_SysName, 1000).HasRoom());
    ClosePeerStore(device);
    ClosePeerStore(other);
    EXPECT_TRUE(set("eleven byte")) << "the other store is closed";
}

/// A stream whose peer reads nothing.
struct Unread {
    Unread()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        auto socket = std::make_unique<Socket>(AF_UNIX, SOCK_STREAM);
        socket->fd = ends[0];
        peer = ends[1];
        stream.emplace(std::move(socket));
    }
    ~Unread() { close(peer); }
    bool Send(size_t bytes) { return stream->Send(std::string(bytes, 'x').data(), bytes); }

    int peer;
    std::optional<TcpStream> stream;
};

TEST(NetworkQueues, HaveOneLimit)
{
    constexpr size_t kMost = TcpStream::kMaxAllQueues, kMany = kMost / 8;
    Unread lagging, next;
    EXPECT_TRUE(lagging.Send(kMost));
    EXPECT_THAT(StderrOf([&] { EXPECT_FALSE(next.Send(kMany)); }),
                HasSubstr("a client that lags is cut off"));
    EXPECT_FALSE(next.Send(1)) << "it would come after a part of a message";
    EXPECT_TRUE(lagging.Send(1));
    lagging.stream.reset();
    EXPECT_TRUE(Unread().Send(kMany));
}

/// The events of texts up to the one that ends with a number.
int EventsUpTo(RawPeer& peer, int last)
{
    int count = 0;
    for (std::string payload; !payload.ends_with(std::to_string(last) + std::string(1, '\0')); ++count) {
        const WordList event = peer.ReceiveWords(13);
        EXPECT_EQ(event[0], 145u);
        if (event[0] != 145u) break;
        payload = peer.Receive(event[11]);
    }
    return count;
}

TEST(NetworkQueues, HistoriesOfAllStoresHaveOneLimit)
{
    constexpr int kStores = 11, kLast = 300;
    TestServer server;
    std::deque<LocalStore> stores;
    std::deque<RawPeer> listeners;
    for (int i = 0; i < kStores; ++i) {
        const eConfigID_t config = kConfig + i;
        LocalStore& store = stores.emplace_back(config);
        RawPeer& listener = listeners.emplace_back(server.port, SOCK_STREAM, 4096);
        listener.Send(WordList{16, 1, 0, static_cast<uint32_t>(config), 0, 4096});
        EXPECT_EQ(listener.ReceiveWords(7)[0], 32u);
        listener.Send(WordList{48, 1, 0, static_cast<uint32_t>(config), 0, 4096, 0});
        EXPECT_EQ(listener.Ask(RequestWords(80, config, kNumber), 13)[0], 96u);
        for (int n = 0; n <= kLast; ++n)
            store->Set(eParamID_SysName, std::string(20'000, 'x') + std::to_string(n));
    }
    EXPECT_LT(EventsUpTo(listeners.back(), kLast), EventsUpTo(listeners.front(), kLast) * 2 / 3);
}

}  // namespace
