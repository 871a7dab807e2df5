/// What TCP clients hear that read nothing, little or everything.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <map>
#include <string>

#include "support/many_changes.h"
#include "support/raw_peer.h"
#include "support/stderr_of.h"
#include "support/test_server.h"

namespace {

using testing::HasSubstr;

constexpr uint32_t kNumber = eParamID_RegisterSave, kText = eParamID_SysName;
constexpr int32_t kConfig = 40;
constexpr size_t kEventBytes = 52;

/// A client that listens.
class Listener : public RawPeer {
  public:
    explicit Listener(const TestServer& server, int receiveBuffer = 0)
        : RawPeer(server.port, SOCK_STREAM, receiveBuffer)
    {
        Send(WordList{16, 1, 0, kConfig, 0, 4096});
        EXPECT_EQ(ReceiveWords(7)[0], 32u);
        Send(WordList{48, 1, 0, kConfig, 0, 4096, 0});
        ReadUpToReply();
        m_events = 0;
    }
    void Take(size_t count)
    {
        for (; count > 0; --count) TakeOne();
    }
    /// Takes all that the server has made up to now: its reply stands behind it.
    void ReadUpToReply()
    {
        Send(RequestWords(80, kConfig, kNumber));
        while (TakeOne()) continue;
    }
    const std::map<uint32_t, uint32_t>& Heard() const { return m_heard; }
    size_t Events() const { return m_events; }

  private:
    bool TakeOne()
    {
        const WordList event = ReceiveWords(13);
        if (event[0] == 144) m_heard[event[6]] = event[8];
        if (event[0] == 145) Receive(event[11]);  // a text that depends on a number
        ++m_events;
        return event[0] == 144 || event[0] == 145;
    }

    std::map<uint32_t, uint32_t> m_heard;
    size_t m_events = 0;
};

TEST(NetworkDelivery, WhoKeepsUpHearsEverythingAndWhoLagsTheLastValues)
{
    constexpr int kRound = 1000, kRounds = 60;  // more than the system's buffers and the history hold
    LocalStore store(kConfig);
    ManyChanges changes(*store);
    ASSERT_GT(changes.Parameters(), 90u);
    TestServer server;
    Listener stuck(server, 4096), slow(server, 4096), quick(server);
    for (int round = 0; round < kRounds; ++round) {
        changes.Make(kRound);
        quick.ReadUpToReply();
        slow.Take(kRound / 10);
    }
    EXPECT_GE(quick.Events(), size_t{kRound} * kRounds);
    EXPECT_TRUE(changes.AreHeard(quick.Heard()));
    for (Listener* const late : {&slow, &stuck}) {
        late->ReadUpToReply();
        EXPECT_LT(late->Events(), quick.Events()) << "it has cost memory";
        EXPECT_TRUE(changes.AreHeard(late->Heard()));
    }
}

TEST(NetworkDelivery, WhoTakesNothingForTooLongIsCutOff)
{
    LocalStore store(kConfig);
    ManyChanges changes(*store);
    TestServer server(SOCK_STREAM, {}, std::chrono::milliseconds(100));
    const std::string log = StderrOf([&] {
        Listener idle(server), stuck(server, 4096);
        changes.Make(20'000);
        idle.ReadUpToReply();
        ASSERT_TRUE(Eventually([&] { return store.Manager()->GetUseCount() == 2; }))
            << "the stuck one is gone";
        idle.ReadUpToReply();
    });
    EXPECT_THAT(log, HasSubstr("a client that has taken nothing for 100 ms is cut off\n"));
}

// Its requests have been received, so they are answered, however late it reads.
TEST(NetworkDelivery, AClientThatEndsItsRequestsGetsAllItsAnswers)
{
    constexpr size_t kRequests = 200;
    const std::string text(20'000, 't'), payload = TextPayload(text, kText, kConfig);
    LocalStore store(kConfig);
    store->Set(eParamID_SysName, text);
    TestServer server;
    Listener client(server, 4096);
    std::string requests;
    for (size_t i = 0; i < kRequests; ++i) requests += NetworkBytes(RequestWords(112, kConfig, kText));
    client.Send(requests);
    client.EndRequests();
    EXPECT_EQ(client.Receive(kRequests * (kEventBytes + payload.size() + 1)).size(),
              kRequests * (kEventBytes + payload.size()));
}

}  // namespace
