#include "config/access/server/access_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <sstream>

#include "config/access/server/admission.h"
#include "config/param_ids.h"
#include "device/catalogue.h"
#include "support/program.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::NotNull;
using namespace vexa::corvalis::config::access;

namespace {

Right RightOf(const AccessRules& rules, const char* peer, bool isOwn = false)
{
    return rules.Of(*PeerAddress::Parse(peer), isOwn);
}

TEST(AccessRules, TheLongestPrefixThatFitsCounts)
{
    const struct {
        const char* rules;  ///< with spaces between
        const char* peer;
        Right right;
        bool isOwn = false;
    } kRows[] = {
        {"", "10.0.0.1", Right::kNone},
        {"", "127.9.9.9", Right::kAdmin},
        {"", "::1", Right::kAdmin},
        {"", "10.0.0.1", Right::kAdmin, true},
        {"10.0.0.0/8", "10.255.0.1", Right::kRead},
        {"10.0.0.0/8", "11.0.0.0", Right::kNone},
        {"10.0.0.0/8=write 10.1.0.0/16=none 10.1.0.7=admin", "10.1.0.7", Right::kAdmin},
        {"10.1.0.7=admin 10.1.0.0/16=none 10.0.0.0/8=write", "10.1.0.8", Right::kNone},
        {"10.1.128.0/17=write 10.1.0.0/16", "10.1.127.255", Right::kRead},
        {"10.1.128.0/17=write 10.1.0.0/16", "10.1.128.0", Right::kWrite},
        {"0.0.0.0/0=write", "::ffff:10.0.0.1", Right::kWrite},
        {"::ffff:10.0.0.0/104=write", "10.0.0.1", Right::kWrite},
        {"::/0=write", "10.0.0.1", Right::kNone},
        {"0.0.0.0/0=write", "fe80::1", Right::kNone},
        {"::/0=write fd00:1::/64", "fd00:1::9", Right::kRead},
        {"::/0=write fd00:1::/64", "fd00:1:0:1::9", Right::kWrite},
        // Only a rule as long as the one of this machine lowers it.
        {"0.0.0.0/0=read ::/0=read", "127.0.0.1", Right::kAdmin},
        {"127.0.0.0/8=read", "127.0.0.1", Right::kRead, true},
        {"127.0.0.2=read", "127.0.0.2", Right::kRead},
        {"10.0.0.0/8=read", "10.0.0.1", Right::kAdmin, true},
        {"10.0.0.1=read", "10.0.0.1", Right::kRead, true},
    };
    for (const auto& row : kRows) {
        AccessRules rules;
        std::istringstream list(row.rules);
        for (std::string rule; list >> rule;) EXPECT_EQ(rules.Add(rule), "");
        EXPECT_EQ(RightOf(rules, row.peer, row.isOwn), row.right) << row.rules << ", " << row.peer;
    }
}

TEST(AccessRules, WhatIsNoRuleHasAReason)
{
    for (const char* const text :
         {"", "=read", "/8", "foo", "10.0.0", "10.0.0.1.1", "[::1]", "10.0.0.0/", "10.0.0.0/33",
          "10.0.0.0/-1", "10.0.0.0/8x", "::/129", "10.0.0.1/8", "::ffff:10.0.0.0/8", "fd00::1/64",
          "10.0.0.1=", "10.0.0.1=x", "10.0.0.1=read=write", "10.0.0.1=re/ad"}) {
        AccessRules rules;
        EXPECT_NE(rules.Add(text), "") << text;
        EXPECT_EQ(rules.Texts().size(), 3u) << text;
    }
    AccessRules rules;
    EXPECT_EQ(rules.Add("::1=read"), "");
    EXPECT_EQ(rules.Add("::1=write"), "there is ::1=read already");
    EXPECT_THAT(rules.Texts(),
                ElementsAre("::1=read", "addresses of this machine=admin", "127.0.0.0/8=admin"));
}

/// A daemon that treats some addresses of this machine as if they were of others.
class DaemonWithRules {
  public:
    explicit DaemonWithRules(std::vector<std::string> options)
        : m_program(Command(std::move(options)), "", {"PRODUCT_ID=OAK"})
    {
        m_program.WaitForOutput("mainstay: ready");
        tcpPort = NumberAfter("TCP port ", m_program.Err());
        udpPort = NumberAfter("UDP port ", m_program.Err());
    }
    std::string Log() const { return m_program.Err(); }
    std::string Control(const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> command{VEXACTL, "--control", m_control};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return RunProgram(command).out;
    }

    int tcpPort = 0, udpPort = 0;

  private:
    std::vector<std::string> Command(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {MAINSTAY, "--no-mq", "--tcp-port", "0", "--udp-port", "0",
                                         "--byteorder", "big", "--control", m_control});
        return options;
    }
    const TemporaryDirectory m_directory;
    const std::string m_control = m_directory / "control";
    Program m_program;
};

/// A peer that comes from an address of its own.
struct PeerFrom : RawPeer {
    PeerFrom(const char* address, int port, int type = SOCK_STREAM) : RawPeer(address, port, type) {}
    void Connect(size_t words) { EXPECT_EQ(Ask({16, 1, 0, 0, 0, 4096}, words)[0], 32u); }
    /// Ends with a reset instead of an orderly close.
    void ResetAtEnd()
    {
        const linger atOnce{1, 0};
        setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    }
    uint32_t Error(const WordList& request) { return Ask(request, 13)[7]; }
    uint32_t Value(const WordList& request) { return Ask(request, 13)[8]; }
};

std::string BigEndianText(const std::string& text, uint32_t id)
{
    StringValue value(0, eParam_t{id}, eCParam_StringValue, text);
    return WritePayload(&value, std::endian::big);
}

constexpr uint32_t kNumber = eParamID_FanSpeed, kStatus = eParamID_SystemState,
                   kPassword = eParamID_SystemPassword;

TEST(MainstayRules, EachTransportRefusesInItsOwnWay)
{
    const DaemonWithRules daemon(
        {"--allow", "127.0.0.2", "--allow", "127.0.0.3=write", "--allow", "127.0.0.4=none"});
    PeerFrom admin("127.0.0.1", daemon.tcpPort), reader("127.0.0.2", daemon.tcpPort),
        writer("127.0.0.3", daemon.tcpPort);
    for (PeerFrom* const peer : {&admin, &reader, &writer}) peer->Connect(7);
    admin.Send(RequestBytes(113, 0, kPassword, BigEndianText("secret", kPassword)));
    admin.Send(RequestWords(81, 0, kNumber, 70));
    const uint32_t state = admin.Value(RequestWords(80, 0, kStatus));

    // Numbers: nothing answers a Set over TCP, so each is read back.
    reader.Send(RequestWords(81, 0, kNumber, 80));
    EXPECT_EQ(reader.Value(RequestWords(80, 0, kNumber)), 70u);
    writer.Send(RequestWords(81, 0, kNumber, 75));
    EXPECT_EQ(writer.Value(RequestWords(80, 0, kNumber)), 75u);
    writer.Send(RequestWords(81, 0, kStatus, state + 1));
    EXPECT_EQ(writer.Value(RequestWords(80, 0, kStatus)), state);
    // Texts; the value itself says what is stored, whatever the request names.
    reader.Send(RequestBytes(113, 0, eParamID_ReelName, BigEndianText("x", eParamID_ReelName)));
    EXPECT_EQ(reader.ReceiveWords(13)[7], 53u);
    writer.Send(RequestBytes(113, 0, eParamID_ReelName, BigEndianText("stolen", kPassword)));
    EXPECT_EQ(writer.ReceiveWords(13)[7], 53u);
    // Passwords.
    for (PeerFrom* const peer : {&reader, &writer}) {
        EXPECT_EQ(peer->Error(RequestWords(112, 0, kPassword)), 60u);
        EXPECT_EQ(peer->Value(RequestWords(80, 0, kPassword)), 0u);
    }
    EXPECT_THAT(admin.Receive(admin.Ask(RequestWords(112, 0, kPassword), 13)[11]), HasSubstr("secret"));

    PeerFrom udpReader("127.0.0.2", daemon.udpPort, SOCK_DGRAM),
        udpWriter("127.0.0.3", daemon.udpPort, SOCK_DGRAM),
        udpNobody("127.0.0.4", daemon.udpPort, SOCK_DGRAM);
    for (PeerFrom* const peer : {&udpReader, &udpWriter}) peer->Connect(13);
    EXPECT_EQ(udpReader.Ask(RequestWords(81, 0, kNumber, 80), 13),
              ReplyWords(97, 0, kNumber, 0xFFFFFFFF, 75));
    EXPECT_EQ(udpWriter.Error(RequestWords(81, 0, kNumber, 76)), 0u);
    EXPECT_EQ(udpWriter.Ask(RequestWords(81, 0, kStatus, state + 1), 13),
              ReplyWords(97, 0, kStatus, 0xFFFFFFFF, state));
    EXPECT_EQ(udpWriter.Error(RequestWords(112, 0, kPassword)), 60u);
    EXPECT_EQ(udpWriter.Error(RequestWords(256, 0, kPassword)), 1u);
    udpWriter.Send(RequestBytes(113, 0, eParamID_ReelName, BigEndianText("stolen", kPassword)));
    udpNobody.Send(WordList{16, 1, 0, 0, 0, 4096});
    EXPECT_TRUE(PeerFrom("127.0.0.4", daemon.tcpPort).IsClosed());
    EXPECT_EQ(udpReader.Value(RequestWords(80, 0, kNumber)), 76u);  // the server has come as far
    EXPECT_FALSE(udpNobody.IsReadable(0));

    EXPECT_THAT(daemon.Log(),
                HasSubstr("mainstay: refused 127.0.0.4: no rule lets it in; --allow 127.0.0.4=read would\n"));
    EXPECT_EQ(daemon.Log().find("refused 127.0.0.4"), daemon.Log().rfind("refused 127.0.0.4"))
        << "once a minute";
    EXPECT_THAT(
        daemon.Control({"log"}),
        AllOf(HasSubstr("FanSpeed  set 80 denied 2 times  (tcp 127.0.0.2:"),
              HasSubstr("and this takes write"), HasSubstr("SystemState  set "),
              HasSubstr("SystemPassword  set_text ******** denied 2 times  ("),
              HasSubstr("connect denied 2 times  ("), Not(HasSubstr("stolen")), Not(HasSubstr("secret"))));
    EXPECT_THAT(daemon.Control({"status"}),
                AllOf(HasSubstr("rule      127.0.0.3=write\n"), HasSubstr("denied    ")));
    EXPECT_THAT(daemon.Control({"clients"}),
                AllOf(HasSubstr("  read   "), HasSubstr("  write  "), HasSubstr("  admin  ")));
}

/// Its address is not to be had from the socket any more, and its bytes still are.
TEST(MainstayRules, APeerThatResetsItsConnectionIsNobodyElse)
{
    const DaemonWithRules daemon({"--allow", "127.0.0.4=none"});
    {
        std::list<PeerFrom> peers;
        for (int i = 0; i < 40; ++i) {
            PeerFrom& peer = peers.emplace_back("127.0.0.4", daemon.tcpPort);
            peer.ResetAtEnd();
            peer.Send(NetworkBytes({16, 1, 0, 0, 0, 4096}) + NetworkBytes(RequestWords(81, 0, kNumber, 91)));
            if (i % 2) peers.clear();
        }
    }
    PeerFrom admin("127.0.0.1", daemon.tcpPort);
    admin.Connect(7);
    EXPECT_NE(admin.Value(RequestWords(80, 0, kNumber)), 91u);
    EXPECT_THAT(daemon.Control({"log"}),
                AllOf(HasSubstr("connect denied 40 times"), Not(HasSubstr("FanSpeed"))));
}

TEST(MainstayRules, ConfigurationsOverUdpAreAShareOfTheirOwn)
{
    const Admitted peer{Right::kRead, PeerAddress::Parse("10.0.0.1")};
    std::vector<Share> shares;
    for (int config = 1; config <= 4; ++config)
        shares.push_back(ShareOfStores(Transport::kUdp, peer, eConfigID_t{config}));
    EXPECT_THAT(shares, Each(NotNull()));
    EXPECT_FALSE(ShareOfStores(Transport::kUdp, peer, eConfigID_t{5}));
    EXPECT_TRUE(ShareOfStores(Transport::kUdp, peer, eConfigID_t{4}));
    EXPECT_TRUE(ShareOfStores(Transport::kUdp, peer, eConfigID_t{0}));
    EXPECT_TRUE(ShareOfStores(Transport::kTcp, peer, eConfigID_t{5}));
}

TEST(MainstayRules, OneReaderDoesNotHideWhatOthersWereDenied)
{
    const DaemonWithRules daemon({"--allow", "127.0.0.2", "--allow", "127.0.0.3"});
    PeerFrom first("127.0.0.2", daemon.tcpPort), many("127.0.0.3", daemon.tcpPort);
    first.Connect(7);
    first.Send(RequestWords(81, 0, kNumber, 80));
    first.Value(RequestWords(80, 0, kNumber));
    many.Connect(7);
    for (uint32_t unknown = 1; unknown <= 300; ++unknown) many.Send(RequestWords(81, 0, unknown, 1));
    for (const auto& [id, descriptor] : vexa::Catalogue::Of("OAK")->All())
        many.Send(RequestWords(81, 0, id, 1));
    many.Value(RequestWords(80, 0, kNumber));
    EXPECT_THAT(daemon.Control({"log"}),
                AllOf(HasSubstr("FanSpeed  set 80 denied  (tcp 127.0.0.2:"),
                      HasSubstr("set 1 denied 300 times"), HasSubstr("further requests denied ")));
}

TEST(MainstayRules, PasswordsAreAnnouncedToAdministratorsOnly)
{
    const DaemonWithRules daemon({"--allow", "127.0.0.3=write"});
    PeerFrom admin("127.0.0.1", daemon.tcpPort), writer("127.0.0.3", daemon.tcpPort);
    for (PeerFrom* const peer : {&admin, &writer}) {
        peer->Connect(7);
        peer->Send(WordList{48, 1, 0, 0, 0, 0, 0});
        peer->Ask(RequestWords(80, 0, kNumber), 13);  // it listens by then
    }
    admin.Send(RequestBytes(113, 0, kPassword, BigEndianText("secret", kPassword)) +
               NetworkBytes(RequestWords(81, 0, kNumber, 77)));
    const auto heard = [](PeerFrom& peer) {
        const WordList event = peer.ReceiveWords(13);
        if (event[11] > 0) peer.Receive(event[11]);
        return event[6];
    };
    EXPECT_EQ(heard(admin), kPassword);
    EXPECT_EQ(heard(admin), kNumber);
    EXPECT_EQ(heard(writer), kNumber);
}

}  // namespace
