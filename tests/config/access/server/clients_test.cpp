#include "config/access/server/clients.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>

#include "config/access/server/network/network_tcp_connection.h"
#include "config/base/local_process.h"
#include "config/base/origin.h"
#include "support/many_changes.h"
#include "support/queue_service_test.h"
#include "support/raw_queue_client.h"
#include "support/test_server.h"

using testing::ElementsAre, testing::HasSubstr;
using namespace vexa::corvalis::config::access;

namespace {

constexpr eConfigID_t kConfig = 72;

/// Remembers who has made the changes of a store.
class Origins : public ConfigEventListener {
  public:
    explicit Origins(Config& store) : m_store(store) { m_store.AddConfigEventListener(this); }
    ~Origins() override { m_store.RemoveConfigEventListener(this); }

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t, unsigned int, timeval) override
    {
        const std::lock_guard hold(m_lock);
        m_heard.push_back(vexa::CurrentOrigin());
        return true;
    }
    bool ParamChanged(eParam_t, std::string, timeval) override { return true; }
    std::vector<std::string> Heard() const
    {
        const std::lock_guard hold(m_lock);
        return m_heard;
    }

  private:
    Config& m_store;
    mutable std::mutex m_lock;
    std::vector<std::string> m_heard;
};

/// The one client of a transport and configuration; empty when there is none.
ClientInfo Only(const std::string& transport, eConfigID_t configID = kConfig)
{
    ClientInfo only;
    for (const ClientInfo& client : Clients()) {
        if (client.transport != transport || client.configID != configID) continue;
        EXPECT_EQ(only.transport, "") << "there are several";
        only = client;
    }
    return only;
}

uint64_t CountOf(const std::string& transport, const std::string& name, const std::string& kind = "")
{
    for (const ServerCount& count : ServerCounts())
        if (count.transport == transport && count.name == name && count.kind == kind) return count.value;
    ADD_FAILURE() << "no count " << transport << " " << name << " " << kind;
    return 0;
}

WordList Connect()
{
    return {16, 0x21234, 7, static_cast<uint32_t>(kConfig), 5, 4097};
}

WordList Set(uint32_t value)
{
    return RequestWords(81, kConfig, eParamID_RegisterSave, value);
}

TEST(Origin, IsTheInnermostOneOfItsThread)
{
    EXPECT_EQ(vexa::CurrentOrigin(), "");
    const vexa::OriginScope outer("recall 5");
    {
        const std::string who = "tcp 10.0.0.5:51234";
        const vexa::OriginScope inner(&who);
        EXPECT_EQ(vexa::CurrentOrigin(), who);
        std::thread([] { EXPECT_EQ(vexa::CurrentOrigin(), ""); }).join();
    }
    EXPECT_EQ(vexa::CurrentOrigin(), "recall 5");
}

TEST(NetworkServerClients, AreListedWithWhatTheyAskedFor)
{
    LocalStore store(kConfig);
    const Origins origins(*store);
    const TestServer tcp(SOCK_STREAM), udp(SOCK_DGRAM);
    const uint64_t sets = CountOf("tcp", "requests", "set"), bytes = CountOf("udp", "bytes_in");
    std::vector<std::string> expected;
    for (const int type : {SOCK_STREAM, SOCK_DGRAM}) {
        const std::string transport = type == SOCK_STREAM ? "tcp" : "udp";
        RawPeer client(type == SOCK_STREAM ? tcp.port : udp.port, type);
        client.Ask(Connect(), type == SOCK_STREAM ? 7 : 13);
        client.Send(Set(3));
        client.Send(Set(4));
        ASSERT_TRUE(Eventually([&] { return Only(transport).setRequests == 2; }));
        const ClientInfo info = Only(transport);
        EXPECT_THAT(info.address, testing::MatchesRegex("127\\.0\\.0\\.1:[0-9]+"));
        EXPECT_FALSE(info.listens);
        EXPECT_LE(time(nullptr) - info.since.tv_sec, 60);
        expected.insert(expected.end(), 2, transport + " " + info.address);
        client.Send(WordList{17, 0x21234, 7, static_cast<uint32_t>(kConfig), 5, 4097});
        client.EndRequests();
        EXPECT_TRUE(Eventually([&] { return Only(transport).transport.empty(); }));
    }
    EXPECT_EQ(origins.Heard(), expected);
    EXPECT_EQ(CountOf("tcp", "requests", "set"), sets + 2);
    EXPECT_EQ(CountOf("udp", "bytes_in"), bytes + 24 + 2 * 48 + 24);
    EXPECT_EQ(vexa::CurrentOrigin(), "");
}

// The client reads nothing: the events wait, and those that newer ones overtake are counted when it reads again.
TEST(NetworkServerClients, TellWhatWaitsForThem)
{
    LocalStore store(kConfig);
    const TestServer server(SOCK_STREAM);
    RawPeer client(server.port, SOCK_STREAM, 4096);
    client.Ask(Connect(), 7);
    client.Send(WordList{48, 0x21234, 7, static_cast<uint32_t>(kConfig), 5, 4097, 0});
    ASSERT_TRUE(Eventually([&] { return Only("tcp").listens; }));
    ManyChanges changes(*store);
    changes.Make(60'000);
    EXPECT_TRUE(Eventually([&] {
        changes.Make(100);
        return Only("tcp").waitingEvents > 10'000;
    }));
    EXPECT_EQ(Only("tcp").skippedEvents, 0u);
    EXPECT_TRUE(Eventually([&] { return client.Receive(65536).empty() || Only("tcp").skippedEvents > 0; }));
    EXPECT_GT(Only("tcp").skippedEvents, 0u);
    EXPECT_GE(CountOf("tcp", "events_skipped"), Only("tcp").skippedEvents);
}

TEST(NetworkServerClients, OfThisHostAreKnownByTheirProcess)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    auto socket = std::make_unique<Socket>(AF_UNIX, SOCK_STREAM);
    socket->fd = ends[0];
    const NetworkTCPConnection connection(std::move(socket), std::endian::native, TcpStream::kStallTimeout,
                                          {Right::kAdmin, std::nullopt}, nullptr, {});
    const ClientInfo info = Only("unix", 0);
    EXPECT_EQ(info.address, vexa::ProcessText(getpid(), geteuid()));
    EXPECT_EQ(info.program, vexa::ProgramName(getpid()));
    close(ends[1]);
}

using MainstayQueueClients = QueueServiceTest;

TEST_F(MainstayQueueClients, AreKnownByTheirProcess)
{
    const std::string process = vexa::ProcessText(getpid(), geteuid());
    const std::string program = vexa::ProgramName(getpid());
    const Origins origins(*m_store);
    {
        RawClient client;
        client.Ask(81, eParamID_RegisterSave,
                   3);  // it has not connected: an earlier daemon may have known it
        client.Lock();
        client.Connect();
        client.SetEvents(true);
        client.Request(81, eParamID_RegisterSave, 4);
        EXPECT_EQ(client.Receive().msgtype, 144u);
        EXPECT_EQ(client.Receive().msgtype, 97u);
        const ClientInfo info = Only("queue", 0);
        EXPECT_EQ(info.address, process);
        EXPECT_EQ(info.program, program);
        EXPECT_TRUE(info.listens);
        EXPECT_EQ(info.setRequests, 1u);
        EXPECT_EQ(info.waitingEvents, 0u);
    }
    EXPECT_THAT(origins.Heard(),
                ElementsAre(HasSubstr("queue /mqd_"), "queue " + process + " program " + program));
}

}  // namespace
