#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <sstream>

#include "config/values/config_value.h"
#include "support/daemon.h"
#include "support/raw_peer.h"
#include "support/scripted_server.h"
#include "support/temporary_directory.h"

using testing::AllOf, testing::ContainsRegex, testing::HasSubstr, testing::IsEmpty;

namespace {

/// A program of this build, or the one of another machine that the environment names, as scripts/test-device does.
std::string ProgramPath(const char* variable, const char* own)
{
    const char* const other = getenv(variable);
    return other ? other : own;
}
const std::string kMainstay = ProgramPath("VEXA_MAINSTAY", MAINSTAY);
const std::string kTool = ProgramPath("VEXA_VEXACTL", VEXACTL);

/// Texts are big-endian on both sides, so that either may be of another machine.
struct AnyDaemon : Daemon {
    explicit AnyDaemon(const std::vector<std::string>& environment = {})
        : Daemon({"--no-mq", "--byteorder", "big"}, environment, kMainstay)
    {
    }
    /// A configuration of its own, because all daemons of a host multicast to the same group.
    std::string Tcp() const { return Daemon::Tcp() + "/configid=" + std::to_string(getpid()); }
    std::string Udp() const { return Daemon::Udp() + "/configid=" + std::to_string(getpid()); }
};

std::vector<std::string> ToolCommand(const std::string& uri, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {kTool, "--uri", uri});
    return arguments;
}

ProgramResult Tool(const std::string& uri, std::vector<std::string> arguments, const std::string& input = "")
{
    return RunProgram(ToolCommand(uri, std::move(arguments)), input);
}

TEST(Mainstay, WatchersSeeWhatOthersSet)
{
    AnyDaemon daemon;
    Program overTcp(ToolCommand(daemon.Tcp(), {"watch"}));
    Program overUdp(ToolCommand(daemon.Udp(), {"watch"}));
    Program* const watchers[] = {&overTcp, &overUdp};
    // Until all of them listen, a change may come too early for one.
    int value = 0;
    for (const Program* const watcher : watchers)
        EXPECT_TRUE(Eventually([&] {
            Tool(daemon.Tcp(), {"set", "--force", "SystemState", std::to_string(value = value % 8 + 1)});
            return watcher->Out().find("SystemState = ") != std::string::npos;
        }));
    EXPECT_EQ(Tool(daemon.Tcp(), {"set", "ReelName", "from tcp"}).status, 0);
    EXPECT_EQ(Tool(daemon.Udp(), {"set", "ReelName", "from udp"}).status, 0);
    for (Program* const watcher : watchers) {
        watcher->WaitForOutput("ReelName = \"from tcp\"\n");
        watcher->WaitForOutput("ReelName = \"from udp\"\n");
    }
    EXPECT_EQ(Tool(daemon.Udp(), {"alarms", "raise", "SW_Error_Alarm", "It broke"}).status, 0);
    overUdp.WaitForOutput("SW_Error_Alarm = raised, ERROR: It broke\n");
    for (const Program* const watcher : watchers) EXPECT_THAT(watcher->Inherited(), IsEmpty());
    EXPECT_THAT(daemon.Inherited(), IsEmpty());

    overTcp.Signal(SIGINT);
    EXPECT_EQ(overTcp.Wait().status, 0);
    daemon.Stop();
}

TEST(Mainstay, TheToolKnowsWhatBecameOfAValue)
{
    AnyDaemon daemon;
    for (const std::string& uri : {daemon.Tcp(), daemon.Udp()}) {
        const ProgramResult run =
            Tool(uri, {"shell"},
                 "set RegisterSave 500\nset RegisterSave 600\nset ReelName " + std::string(20'000, 'x') +
                     "\nset ReelName " + std::string(30'000, 'x') + "\nset IPAddress 10.0.0.9\n");
        EXPECT_EQ(run.status, 5) << "the first failure was a correction";
        EXPECT_THAT(run.out, HasSubstr("RegisterSave corrected to 20 (500 is outside 1 to 20)\n"
                                       "RegisterSave corrected to 20 (600 is outside 1 to 20)\n"
                                       "ReelName stored \"xxx"));
        EXPECT_THAT(run.out,
                    HasSubstr("IPAddress stored 10.0.0.9 (without effect while IPConfig is 0 DHCP)"));
        EXPECT_THAT(run.err, HasSubstr("... (30000 bytes) refused: longer than the 24000 bytes"));
    }
}

TEST(Mainstay, TheToolClaimsNothingThatItCouldNotReadBack)
{
    // It answers what shows its model and its values, but nothing any more after a Set.
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        peer.Connect();
        peer.Receive(28);
        bool isMute = false;
        while (!isMute && !testing::Test::HasFailure()) {
            const auto request = peer.Receive();
            isMute = request.msgtype == XCFG_SET_PARAM_REQUEST;
            if (request.msgtype == XCFG_GET_PARAM_REQUEST)
                peer.Send(
                    ReplyTo(request, XCFG_GET_PARAM_RESPONSE, request.paramID == eParamID_ProductID ? 8 : 7));
            else if (!isMute)
                peer.Send(ReplyTo(request, XCFG_GET_STREAM_PARAM_RESPONSE, 0, "", 60));
        }
        peer.AwaitEnd();
    });
    const ProgramResult run = Tool(server.Uri(), {"--json", "--timeout", "1", "set", "RegisterSave", "9"});
    EXPECT_EQ(run.status, 7);
    EXPECT_THAT(run.out,
                AllOf(HasSubstr("\"result\":\"unknown\",\"requested\":\"9\""), HasSubstr("\"status\":7}")));
}

TEST(Mainstay, TheModelIsTheDevicesAndTransportsStandInForEachOther)
{
    // One port for both, as devices have it.
    std::optional<Program> daemon;
    std::string port;
    EXPECT_TRUE(Eventually([&] {
        daemon.reset();
        port = std::to_string(20'000 + (getpid() + std::rand()) % 20'000);
        daemon.emplace(std::vector<std::string>{kMainstay, "--no-mq", "--tcp-port", port, "--udp-port", port},
                       "", std::vector<std::string>{"PRODUCT_ID=OAK"});
        return Eventually([&] { return daemon->Err().find("mainstay: ") != std::string::npos; }) &&
               daemon->Err().find("mainstay: ready, model OAK (250 parameters), TCP port ") !=
                   std::string::npos;
    }));
    const auto tool = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {kTool, "-d", "127.0.0.1:" + port});
        return RunProgram(words, "", {"PRODUCT_ID=HAZEL"});
    };
    ProgramResult run = tool({"get", "AnalogAudioStandard", "RegistrSave"});
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, HasSubstr("unknown parameter \"RegistrSave\"; did you mean RegisterSave?\n"));
    EXPECT_THAT(tool({"ping"}).out, ContainsRegex("  OAK  serial .*  250 parameters  [0-9.]+ ms\n"));
    EXPECT_THAT(tool({"--model", "HAZEL", "ping"}).err, HasSubstr("it is OAK, not HAZEL\n"));
    EXPECT_EQ(tool({"alarms", "raise", "SW_Error_Alarm", "It broke"}).out,
              "SW_Error_Alarm = raised, ERROR: It broke\n");
    EXPECT_THAT(tool({"list"}).out, testing::Not(HasSubstr("SW_Error_Alarm")));
    EXPECT_THAT(tool({"list", "SW_Error*"}).out, HasSubstr("  -\n"));

    const std::string both = "127.0.0.1:" + port + ", localhost:" + port + ",127.0.0.1:1";
    run = tool({"-d", both, "get", "FanSpeed"});
    EXPECT_EQ(run.status, 6);
    EXPECT_THAT(run.out, AllOf(HasSubstr("127.0.0.1:" + port + "  FanSpeed = 50 %\n"),
                               HasSubstr("localhost:" + port + "  FanSpeed = 50 %\n")));
    EXPECT_EQ(run.err, "vexactl: 127.0.0.1:1: cannot connect to 127.0.0.1:1: Connection refused\n");
    EXPECT_THAT(
        tool({"--json", "-d", both, "get", "FanSpeed"}).out,
        AllOf(HasSubstr("{\"device\":\"localhost:" + port + "\",\"id\":"), HasSubstr("\"status\":6}")));
    EXPECT_EQ(RunProgram({kMainstay, "--no-mq", "--no-tcp", "--no-udp"}, "", {"PRODUCT_ID=oak"}).status, 2);
}

TEST(Mainstay, AWatchFollowsADeviceThatComesBack)
{
    std::optional<Daemon> daemon;
    const auto start = [&](const std::string& port) {
        daemon.emplace(std::vector<std::string>{"--no-mq", "--tcp-port", port},
                       std::vector<std::string>{"PRODUCT_ID=OAK"}, kMainstay);
        return daemon->Tcp();
    };
    const std::string uri = start("0");
    Program watch(ToolCommand(uri, {"--json", "watch", "--initial", "--follow", "--count", "2", "FanSpeed"}));
    watch.WaitForOutput("\"kind\":\"initial\"");
    EXPECT_EQ(Tool(uri, {"set", "FanSpeed", "70"}).status, 0);
    watch.WaitForOutput("\"kind\":\"event\"");
    daemon->Signal(SIGKILL);
    daemon->Wait();
    watch.WaitForOutput("\"state\":\"lost\"");
    start(uri.substr(uri.rfind(':') + 1));
    const ProgramResult run = watch.Wait();
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, ContainsRegex("\"clock\":\"receiver\",\"kind\":\"difference\".*\"value\":50"));
}

TEST(Mainstay, ADaemonThatIsGoneOrSilentIsOneLineAndAStatus)
{
    std::string tcp, udp;
    {
        AnyDaemon daemon;
        tcp = daemon.Tcp();
        udp = daemon.Udp();
        Program watch(ToolCommand(tcp, {"watch", "--initial"}));
        Program udpWatch(ToolCommand(udp, {"--timeout", "2", "watch", "--initial"}));
        watch.WaitForOutput("SystemState");
        udpWatch.WaitForOutput("SystemState");
        Program shell(ToolCommand(tcp, {"shell"}), "get RegisterSave\n");
        EXPECT_EQ(shell.Wait().status, 0);
        daemon.Signal(SIGSTOP);
        for (const std::string& uri : {tcp, udp}) {
            const ProgramResult silent = Tool(uri, {"--timeout", "0.2", "get", "RegisterSave"});
            EXPECT_EQ(silent.status, 7);
            EXPECT_EQ(silent.err, "vexactl: no answer from " + uri + " in time\n");
        }
        EXPECT_EQ(udpWatch.Wait().status, 7);
        daemon.Signal(SIGKILL);
        daemon.Wait();
        const ProgramResult lost = watch.Wait();
        EXPECT_EQ(lost.status, 6);
        EXPECT_THAT(lost.err, ContainsRegex("^vexactl: lost the connection to [^\n]*\n$"));
    }
    for (const std::string& uri : {tcp, udp}) {
        const ProgramResult gone = Tool(uri, {"get", "RegisterSave"});
        EXPECT_EQ(gone.status, 6);
        EXPECT_EQ(gone.err, "vexactl: cannot connect to " + uri + ": Connection refused\n");
    }
}

TEST(Mainstay, StartsOnceAndTellsTheServiceManager)
{
    const std::string path = "/tmp/vexa_notify_" + std::to_string(getpid());
    const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(manager, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

    AnyDaemon daemon({"NOTIFY_SOCKET=" + path, "WATCHDOG_USEC=100000", "WATCHDOG_PID"});
    char state[64] = {};
    for (const char* const expected : {"READY=1", "WATCHDOG=1", "WATCHDOG=1"}) {
        EXPECT_GT(recv(manager, state, sizeof state, 0), 0);
        EXPECT_STREQ(state, expected);
    }
    for (const bool tcp : {true, false}) {
        const std::string port = std::to_string(tcp ? daemon.TcpPort() : daemon.UdpPort());
        const ProgramResult second = RunProgram(
            {kMainstay, "--no-mq", tcp ? "--no-udp" : "--no-tcp", tcp ? "--tcp-port" : "--udp-port", port});
        EXPECT_EQ(second.status, 1);
        EXPECT_THAT(second.err,
                    testing::EndsWith("mainstay: cannot serve " + std::string(tcp ? "TCP" : "UDP") +
                                      " port " + port + ": Address already in use\n"));
    }
    daemon.Stop(SIGINT);
    do memset(state, 0, sizeof state);
    while (recv(manager, state, sizeof state - 1, 0) > 0 && strcmp(state, "WATCHDOG=1") == 0);
    EXPECT_STREQ(state, "STOPPING=1");
    close(manager);
    unlink(path.c_str());
    EXPECT_EQ(RunProgram({kMainstay, "--tcp-port", "70000"}).status, 2);
}

TEST(Mainstay, ALogThatNobodyReadsStopsNothing)
{
    int log[2];
    ASSERT_EQ(pipe(log), 0);
    Program daemon({"/bin/sh", "-c",
                    "exec " + kMainstay + " --no-mq --tcp-port 0 --udp-port 0 2>&" + std::to_string(log[1])});
    std::string lines;
    for (char byte = 0; lines.find("UDP port") == std::string::npos || byte != '\n'; lines += byte)
        ASSERT_EQ(read(log[0], &byte, 1), 1);
    const int tcpPort = NumberAfter("TCP port ", lines), udpPort = NumberAfter("UDP port ", lines);
    fcntl(log[1], F_SETPIPE_SZ, 4096);

    RawPeer udp(udpPort, SOCK_DGRAM), tcp(tcpPort);
    for (int i = 0; i < 10; ++i) {
        for (int garbage = 0; garbage < 100; ++garbage) udp.Send(WordList{0xBAD});
        EXPECT_EQ(udp.Ask({16, 1, 0, 0, 0, 4096}, 13)[0], 32u);
    }
    EXPECT_EQ(tcp.Ask({16, 1, 0, 0, 0, 4096}, 7)[0], 32u);
    constexpr uint32_t kNone = 0x7F000000;
    for (int i = 0; i < 1000; ++i) tcp.Send(RequestWords(81, 0, kNone, 1));  // each is refused with a line
    EXPECT_EQ(tcp.Ask(RequestWords(80, 0, eParamID_RegisterSave), 13)[0], 96u);
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.Wait().status, 0);
    for (const int end : log) close(end);
}

/// Every option is in it, and the daemon takes all of them at once.
TEST(Mainstay, TheExampleOfItsConfigurationFileHolds)
{
    const std::string example = ReadFile(VEXA_SOURCE_DIR "/apps/mainstay/mainstay.conf");
    std::istringstream help(RunProgram({kMainstay, "--help"}).out);
    int options = 0;
    for (std::string line; std::getline(help, line);) {
        if (!line.starts_with("  --")) continue;
        const std::string option =
            line.substr(4, line.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", 4) - 4);
        if (option == "version" || option == "config") continue;
        EXPECT_THAT(example, HasSubstr("\n#" + option + " = "));
        ++options;
    }
    EXPECT_GT(options, 10);

    const TemporaryDirectory directory;
    std::istringstream lines(example);
    std::string taken;
    for (std::string line; std::getline(lines, line);)
        taken += (line.size() > 1 && line[0] == '#' && line[1] != ' ' ? line.substr(1) : line) + "\n";
    WriteFile(directory / "mainstay.conf", taken);
    Program daemon({kMainstay, "--config", directory / "mainstay.conf", "--state", directory.Path(),
                    "--control", directory / "control"},
                   "", {"PRODUCT_ID=OAK"});
    daemon.WaitForOutput("state in " + directory.Path());
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.Wait().status, 0);
}

}  // namespace
