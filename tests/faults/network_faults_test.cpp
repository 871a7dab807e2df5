#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "faults/faults.h"
#include "support/daemon.h"

using namespace faults;

namespace {

constexpr int kManyAllocations = 200;
constexpr uint32_t kNumber = eParamID_RegisterSave, kText = eParamID_ReelName;

/// Of a configuration of this process's own, because all daemons multicast to the same group.
WordList Request(uint32_t type, uint32_t id = 0, uint32_t value = 0, size_t words = 12)
{
    WordList request = RequestWords(type, getpid(), id, value);
    request.resize(words);
    return request;
}

std::string SetText(const std::string& text = "Scene")
{
    return RequestBytes(113, getpid(), kText, TextPayload(text, kText));
}

bool GetsNumber(RawPeer& peer)
{
    return peer.Ask(Request(80, kNumber), 13)[8] == 7;
}

/// Everything that a client asks for. @return false when it is not answered.
bool IsServed(RawPeer& peer, bool overTcp)
{
    const size_t textBytes = 52 + SetText().size() - 48;
    if (peer.Ask(Request(16, 0, 0, 6), overTcp ? 7 : 13)[0] != 32) return false;
    if (overTcp) peer.Send(Request(48, 0, 0, 7));  // now it hears of its own changes, as over UDP of a number
    if (peer.Ask(Request(81, kNumber, 7), 13)[0] != (overTcp ? 144 : 97) || !GetsNumber(peer)) return false;
    peer.Send(SetText());
    if (overTcp && RecordOf(peer.Receive(textBytes))[0] != 145) return false;
    peer.Send(Request(112, kText));
    return RecordOf(peer.Receive(textBytes))[0] == (overTcp ? 128 : 112);
}

/// A daemon on free ports whose calls fail, and a client that is connected to it.
class FaultyDaemon {
  public:
    FaultyDaemon()
    {
        m_bystander = std::make_unique<RawPeer>(tcpPort);
        EXPECT_EQ(m_bystander->Ask(Request(16, 0, 0, 6), 7)[0], 32u);
        // The calls that wait for it and for datagrams have begun: they are not the ones that fail.
        EXPECT_TRUE(Eventually([&] { return faults.Begun(kRecv) == 2 && faults.Begun(kRecvfrom) == 1; }));
    }
    ~FaultyDaemon()
    {
        EXPECT_TRUE(EverybodyIsServed());
        program.Stop();
    }
    bool EverybodyIsServed()
    {
        RawPeer tcp(tcpPort), udp(udpPort, SOCK_DGRAM);
        return IsServed(tcp, true) && IsServed(udp, false) && GetsNumber(*m_bystander);
    }

    Faults faults;
    Daemon program{{"--no-mq"}, faults.Environment()};
    const int tcpPort = program.TcpPort(), udpPort = program.UdpPort();

  private:
    std::unique_ptr<RawPeer> m_bystander;
};

enum Fate { kServed, kEnded, kUnanswered };

const std::string kConnection = "NetworkTCPConnection::", kSendtoFailed = "Socket::sendto - failed";
const std::string kAcceptFailed = "\nNetworkServer::WaitForConnection - accept failed\n";
const std::string kReceiveFailed = "\nNetworkServer::WaitForDatagram - recvfrom error condition\n";

struct {
    Failure failure;
    Fate fate;
    std::string message;  ///< empty: nothing may be written
} const kRows[] = {
    {{kAccept4, EINTR, 3}, kServed, ""},
    {{kAccept4, ECONNABORTED}, kServed, "Software caused connection abort" + kAcceptFailed},
    {{kPthreadCreate, EAGAIN}, kEnded, kConnection + "Start: Resource temporarily unavailable\n"},
    {{kRecv, EINTR, 3}, kServed, ""},
    {{kRecv, kOneByte, kMany}, kServed, ""},
    {{kRecv, ECONNRESET}, kEnded, "ProcessMessages - error calling recv for socket message"},
    {{kSend, EINTR, 3}, kServed, ""},
    {{kSend, EAGAIN, 3}, kServed, ""},
    {{kSend, kOneByte, kMany}, kServed, ""},
    {{kSend, EPIPE}, kEnded, kConnection + "ProcessConnectRequest - unable to send response\n"},
    {{kSend, ENOBUFS, 1, 2}, kEnded, kConnection + "ProcessGetRequest - _socket->send failed\n"},
    {{kPoll, EINTR, 3}, kServed, ""},
    {{kPoll, ENOMEM, 3}, kServed, ""},
    {{kEventfd, EMFILE}, kEnded, "ProcessAddConfigEventListenerRequest: Too many open files\n"},
    {{kRecvfrom, EINTR, 3}, kServed, ""},
    {{kRecvfrom, ECONNREFUSED}, kServed, "WaitForDatagram: Connection refused" + kReceiveFailed},
    {{kSendto, EINTR, 3}, kServed, ""},
    {{kSendto, ENOBUFS}, kUnanswered, kSendtoFailed + "NetworkUDPConnection::ProcessConnectRequest"},
    {{kSendto, ENETUNREACH, 1, 2}, kServed, "ParamChanged: Network is unreachable\n"},  // its event
};

TEST(NetworkFaults, OneClientSuffersAtMost)
{
    for (const auto& [failure, fate, message] : kRows) {
        SCOPED_TRACE(std::to_string(failure.call) + ", " + strerror(failure.error));
        const bool overTcp = failure.call != kSendto && failure.call != kRecvfrom;
        FaultyDaemon daemon;
        const std::string before = daemon.program.Err();
        daemon.faults.Arm(failure);
        RawPeer victim(overTcp ? daemon.tcpPort : daemon.udpPort, overTcp ? SOCK_STREAM : SOCK_DGRAM);
        if (fate == kUnanswered)
            victim.Send(Request(16, 0, 0, 6));
        else
            EXPECT_EQ(IsServed(victim, overTcp), fate == kServed);
        if (message.empty())
            EXPECT_EQ(daemon.program.Err(), before);
        else
            daemon.program.WaitForOutput(message);
        EXPECT_GE(daemon.faults.Failed(failure.call), std::min(failure.times, 3));
        daemon.faults.Disarm(failure.call);
    }
}

TEST(NetworkFaults, ServersWaitForWhatTheSystemLacks)
{
    FaultyDaemon daemon;
    for (const Call call : {kAccept4, kRecvfrom})
        for (const int error : {EMFILE, ENFILE, ENOMEM, ENOBUFS}) {
            SCOPED_TRACE(std::string(call == kAccept4 ? "accept4, " : "recvfrom, ") + strerror(error));
            const auto begin = std::chrono::steady_clock::now();
            daemon.faults.Arm({call, error, 4});
            EXPECT_TRUE(daemon.EverybodyIsServed());
            EXPECT_TRUE(Eventually([&] { return daemon.faults.Failed(call) == 4; }));
            EXPECT_TRUE(daemon.EverybodyIsServed());
            EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300))
                << "a busy loop";
            daemon.program.WaitForOutput(strerror(error) +
                                         (call == kAccept4 ? kAcceptFailed : kReceiveFailed));
        }
}

/// Each allocation that the requests of a client lead to, one after the other.
TEST(NetworkFaults, WithoutMemoryOneClientSuffersAtMost)
{
    const std::string session = NetworkBytes(Request(16, 0, 0, 6)) + NetworkBytes(Request(48, 0, 0, 7)) +
                                NetworkBytes(Request(81, kNumber, 7)) + NetworkBytes(Request(80, kNumber));
    FaultyDaemon daemon;
    const auto askOverTcp = [&, round = 100]() mutable {
        const std::string text = "Scene" + std::to_string(++round);
        RawPeer victim(daemon.tcpPort);
        victim.Send(session + SetText(text) + NetworkBytes(Request(112, kText)));
        victim.EndRequests();
        const std::string answers = victim.Receive();
        const size_t reply = 4 + SetText(text).size();
        if (answers.size() < reply || RecordOf(answers.substr(answers.size() - reply))[0] != 128) return;
        // Either the change was refused, or it has been told as well.
        EXPECT_TRUE(!answers.ends_with(text + '\0') || answers.find(text) < answers.rfind(text));
    };
    const auto askOverUdp = [&] {
        const int handled = daemon.faults.Begun(kRecvfrom);
        RawPeer victim(daemon.udpPort, SOCK_DGRAM);
        for (const std::string& request :
             {NetworkBytes(Request(16, 0, 0, 6)), NetworkBytes(Request(81, kNumber, 7)),
              NetworkBytes(Request(80, kNumber)), SetText(), NetworkBytes(Request(112, kText)),
              NetworkBytes(Request(17, 0, 0, 6))})
            victim.Send(request);
        EXPECT_TRUE(Eventually([&] { return daemon.faults.Begun(kRecvfrom) >= handled + 6; }));
    };
    for (const std::function<void()>& ask :
         {std::function<void()>(askOverTcp), std::function<void()>(askOverUdp)}) {
        int reached = 1;
        for (int skip = 0; reached > 0 && skip < kManyAllocations; ++skip) {
            SCOPED_TRACE("allocation " + std::to_string(skip));
            daemon.faults.Arm({kNew, ENOMEM, 1, skip});
            ask();
            reached = daemon.faults.Failed(kNew);
            daemon.faults.Disarm(kNew);
            ASSERT_TRUE(daemon.EverybodyIsServed());
        }
        EXPECT_EQ(reached, 0) << "more allocations than expected";
    }
}

// Not faults, but only the calls show them.

// In two pieces it could have an event between them.
TEST(NetworkFaults, AReplyAndItsPayloadLeaveTogether)
{
    FaultyDaemon daemon;
    RawPeer peer(daemon.tcpPort);
    ASSERT_TRUE(IsServed(peer, true));
    const int before = daemon.faults.Begun(kSend);
    peer.Send(Request(112, kText));
    EXPECT_EQ(RecordOf(peer.Receive(4 + SetText().size()))[0], 128u);
    EXPECT_EQ(daemon.faults.Begun(kSend), before + 1);
}

TEST(NetworkFaults, EventsOfRequestsThatArriveTogetherLeaveTogether)
{
    constexpr int kListeners = 30;  // more than the thread that answers the requests serves itself
    constexpr unsigned int kRequests = 50;
    FaultyDaemon daemon;
    std::vector<std::unique_ptr<RawPeer>> listeners;
    while (listeners.size() < kListeners) {
        listeners.push_back(std::make_unique<RawPeer>(daemon.tcpPort));
        listeners.back()->Send(Request(16, 0, 0, 6));
        listeners.back()->Send(Request(48, 0, 0, 7));
        EXPECT_EQ(listeners.back()->ReceiveWords(7)[0], 32u);
        EXPECT_EQ(listeners.back()->Ask(Request(80, kNumber), 13)[0], 96u);
    }
    const int before = daemon.faults.Begun(kSend);
    std::string requests;
    for (unsigned int i = 0; i < kRequests; ++i) requests += NetworkBytes(Request(81, kNumber, i % 20 + 1));
    listeners[0]->Send(requests);
    for (const auto& listener : listeners)
        for (unsigned int i = 0; i < kRequests; ++i) ASSERT_EQ(listener->ReceiveWords(13)[8], i % 20 + 1);
    EXPECT_LT(daemon.faults.Begun(kSend) - before, kListeners * 5);
}

}  // namespace
