#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "support/gate.h"
#include "support/network_events.h"
#include "support/program.h"
#include "support/temporary_directory.h"

using testing::AllOf, testing::ContainsRegex, testing::ElementsAre, testing::HasSubstr, testing::IsEmpty,
    testing::Not;
using Json = nlohmann::json;

namespace {

ProgramResult Tool(std::vector<std::string> arguments, const std::string& input = "",
                   std::vector<std::string> environment = {"PRODUCT_ID=OAK", "VEXACTL_DEVICE=local:"})
{
    arguments.insert(arguments.begin(), VEXACTL);
    return RunProgram(arguments, input, environment);
}

/// A device of the model OAK whose numbers are all 7, up to the goodbye.
/// @param answer  what answers a request, of which so many were for this parameter; false: as usual.
using Answer = std::function<bool(const net::XCONFIGMGR_REQUEST_T& request, int times)>;
void ServeValues(
    ScriptedPeer& peer, const Answer& answer = [](const auto&, int) { return false; })
{
    constexpr uint32_t kListenBytes = 28, kHalf = 24;  // a goodbye is no longer than half a request
    peer.Connect();
    peer.Receive(kListenBytes);
    std::map<eParam_t, int> times;
    while (!testing::Test::HasFailure()) {
        auto request = peer.Receive(kHalf);
        if (request.msgtype == XCFG_DISCONNECT_REQUEST) return;
        request.paramID = eParam_t{peer.Receive(kHalf).msgtype};
        if (answer(request, ++times[request.paramID])) continue;
        if (request.msgtype == XCFG_GET_PARAM_REQUEST)
            peer.Send(
                ReplyTo(request, XCFG_GET_PARAM_RESPONSE, request.paramID == eParamID_ProductID ? 8 : 7));
        else
            peer.Send(ReplyTo(request, XCFG_GET_STREAM_PARAM_RESPONSE, 0, "", 60));
    }
}

std::vector<Json> Lines(const ProgramResult& run)
{
    std::vector<Json> lines;
    std::istringstream stream(run.out);
    for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
    return lines;
}

TEST(Vexactl, AScriptGoesOnAfterErrorsAndTellsEveryChange)
{
    const char* const script =
        "watch\nset RegisterSave 7\nset RegisterSave 500\nget RegisterSave\n"
        "# a comment, then an empty line\n\n"
        "set SystemCommand 9\nset ClipNumber 2\nget Take\n"
        "set CustomClipName \"Scene 12 é\"\nget CustomClipName\ninfo SystemState\nset NoSuch 1\n"
        "set MediaUpdated 4294967295\nunwatch\nset RegisterSave 8\nquit\nset RegisterSave 9\n";
    for (const char* model : {"PRODUCT_ID=OAK", "PRODUCT_ID=", "PRODUCT_ID"}) {
        const ProgramResult run = Tool({"--uri", "local:", "shell"}, script, {model});
        EXPECT_EQ(run.status, 5) << "the first failure was a correction";
        for (const char* const part :
             {"^[0-9-]+T[0-9:]+\\.[0-9]{6}[+-][0-9]{2}:[0-9]{2}  RegisterSave = 7\nRegisterSave stored 7\n",
              "  RegisterSave = 20\nRegisterSave corrected to 20 .500 is outside 1 to 20.\nRegisterSave "
              "= "
              "20\n",
              "\nTake = 1\n", "\nCustomClipName = \"Scene 12 é\"\n",
              "  0 eSystemStateUninitialized\n  1 eSystemStateInitializingConfig\n",
              "  9 eSystemStateShutdown\n  10 eSystemStateFatalError\n",
              "  MediaUpdated = 4294967295\nMediaUpdated stored 4294967295\nRegisterSave stored 8\n$"})
            EXPECT_THAT(run.out, ContainsRegex(part));
        EXPECT_THAT(run.err, AllOf(HasSubstr("vexactl: line 7: SystemCommand: \"9\" refused: not one of 0 "
                                             "eSystemCommandUnitialized, 1 eSystemCommandInitializeFirmware"),
                                   HasSubstr("vexactl: line 13: unknown parameter \"NoSuch\"")));
    }
}

TEST(Vexactl, ExitStatusSaysHowItWent)
{
    struct Row {
        std::vector<std::string> arguments;
        int status;
        const char* message;
    };
    const Row rows[] = {
        {{"get", "eParamID_RegisterSave", "0x5c010000", "registersave"}, 0, ""},
        {{"watch", "--for", "0.01"}, 0, ""},
        {{"--help"}, 0, ""},
        {{"list", "Register*"}, 0, ""},
        {{"list", "nothing-like-this"}, 1, "no parameter matches"},
        {{}, 2, "vexactl: "},
        {{"get"}, 2, "vexactl: "},
        {{"frobnicate"}, 2, "unknown command \"frobnicate\""},
        {{"watch", "--for", "nan"}, 2, "--for: "},
        {{"watch", "--for", "1e300"}, 2, "--for: "},
        {{"watch", "--for", "0.01", "--count", "1"}, 7, "heard 0 of 1 changes in time"},
        {{"wait", "RegisterSave=1"}, 0, ""},
        {{"wait", "RegisterSave<2", "--for", "1"}, 0, ""},
        {{"wait", "TransportRequestedSpeed>-1", "--for", "1"}, 0, ""},
        {{"wait", "RegisterSave!=1", "--for", "0.01"}, 7, "RegisterSave is 1 after the time to wait"},
        {{"wait", "RegisterSave"}, 2, "is no condition"},
        {{"wait", "ReelName<x"}, 2, "ReelName is a text"},
        {{"--version"}, 0, ""},
        {{"help"}, 0, ""},
        {{"get", "Registr*"}, 1, "no parameter matches Registr*"},
        {{"list", "Clip"}, 1, "\"list '*Clip*'\" looks inside names"},
        {{"--model", "oak", "list"}, 2, "unknown model \"oak\""},
        {{"--lang", "xx", "list"}, 2, "no language \"xx\"; there are en"},
        {{"list", "--group", "netw"}, 2, "\"netw\" is none; \"groups\" shows them"},
        {{"get", "NoSuch", "RegisterSave"}, 3, "unknown parameter \"NoSuch\""},
        {{"get", "010"}, 3, "unknown parameter \"010\""},
        {{"set", "RegisterSave", "many"}, 4, "\"many\" refused: it takes 1 to 20"},
        {{"set", "SystemState", "4"}, 4, "the device reports it; --force"},
        {{"set", "--force", "SystemState", "4"}, 0, ""},
        {{"set", "RegisterSave=2", "ReelName=-x = y"}, 0, ""},
        {{"set", "RegisterSave=2", "FanSpeed=170"}, 4, "another value of the same request cannot be set"},
        {{"set", "RegisterSave=2", "NoSuch=1"}, 3, "unknown parameter \"NoSuch\""},
        {{"set", "RegisterSave"}, 2, "set takes PARAMETER VALUE, or PARAMETER=VALUE"},
        {{"set", "RegisterSave", "0"}, 5, ""},
        {{"-d", "socket://127.0.0.1:43110", "list"}, 6, "\"socket\" is none of tcp, udp, mq and local"},
        {{"-d", "", "get", "Take"}, 6, "it names no host"},
        {{"-d", "tcp://no-such-host.invalid:43110", "set", "Take", "2"},
         6,
         "vexactl: cannot connect to tcp://no-such-host.invalid:43110: "},
        {{"-d", "udp://10.0.0.300:43110", "get", "Take"}, 6, "cannot connect to udp://10.0.0.300:43110: "},
        {{"--devices", "/nowhere", "ping"}, 2, "cannot read \"/nowhere\""},
    };
    for (const Row& row : rows) {
        const ProgramResult run = Tool(row.arguments);
        EXPECT_EQ(run.status, row.status) << testing::PrintToString(row.arguments) << run.err;
        EXPECT_THAT(run.err, HasSubstr(row.message)) << testing::PrintToString(row.arguments);
        if (row.status == 0) continue;
        auto arguments = row.arguments;
        arguments.insert(arguments.begin(), "--json");
        const std::string out = Tool(arguments).out;
        EXPECT_THAT(out, HasSubstr(row.status == 5 ? "" : "\"status\":" + std::to_string(row.status)));
    }
}

TEST(Vexactl, WhatScriptsTakeIsWhatSetTakes)
{
    const ProgramResult run =
        Tool({"shell"},
             "set FanSpeed=70 IPAddress=10.0.0.9 \"SystemState=4 eSystemStateRunning\" --force\n"
             "get -r FanSpeed IPAddress SystemState 'TransportRequestedSp*' ReelName\n"
             "get FanSpeed --format '%d|%n|%v|%u|%%|%x'\nget FanSpeed\n"
             "set SystemPassword -\nsecret\nget SystemPassword\nlist 'SystemPass*'\nget -r SystemPassword\n");
    EXPECT_THAT(run.out, HasSubstr("\n70\n10.0.0.9\neSystemStateRunning\n100\n\n"
                                   "local:|FanSpeed|70|%|%|x\nFanSpeed = 70 %\n"
                                   "SystemPassword stored ********"));
    EXPECT_THAT(run.out + run.err, Not(HasSubstr("secret")));
    const std::string shown =
        Tool({"--show-secrets", "--json", "shell"}, "set SystemPassword -\nsecret\nget SystemPassword\n").out;
    EXPECT_THAT(shown, HasSubstr("\"param\":\"SystemPassword\",\"value\":\"secret\"}"));
}

TEST(Vexactl, ClosedAndFullDescriptorsCostNoValue)
{
    ProgramResult run =
        RunProgram({"/bin/sh", "-c", std::string(VEXACTL) + " -d local: get Take >/dev/full"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "vexactl: cannot write to standard output\n");
    // The next socket would be descriptor 1, and the value would go to the device.
    std::atomic<bool> isAnswered = false;
    ScriptedServer server(SOCK_STREAM, [&](ScriptedPeer& peer) {
        ServeValues(peer);
        isAnswered = true;
    });
    run = RunProgram(
        {"/bin/sh", "-c", std::string(VEXACTL) + " -d " + server.Uri() + " get RegisterSave >&- 2>&-"});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(Eventually([&] { return isAnswered.load(); })) << "up to a goodbye, requests alone";
}

TEST(Vexactl, JsonIsOneObjectALine)
{
    const auto lines = Lines(Tool({"--json", "shell"},
                                  "watch CustomClipName\nset CustomClipName 'a\"b'\nset RegisterSave 99\n"
                                  "set SystemCommand 9\nget IPAddress\ninfo SystemState\nlist\n"));
    ASSERT_GT(lines.size(), 100u);
    EXPECT_EQ(lines[0]["param"], "CustomClipName");
    EXPECT_EQ(lines[0]["value"], "a\"b");
    EXPECT_TRUE(lines[0].contains("time"));
    EXPECT_EQ(lines[1]["result"], "stored");
    EXPECT_EQ(lines[2]["result"], "corrected");
    EXPECT_EQ(lines[2]["value"], 20);
    EXPECT_EQ(lines[3]["result"], "refused");
    EXPECT_EQ(lines[3]["requested"], "9");
    EXPECT_TRUE(lines[4]["text"].is_string()) << "an address with its dots";
    EXPECT_EQ(lines[5]["values"].size(), 11u);
    EXPECT_EQ(lines[5]["values"][10]["name"], "eSystemStateFatalError");
}

TEST(Vexactl, TextsArriveWholeAndAreShownSafely)
{
    const std::string text(5000, 'x');
    const ProgramResult run = Tool({"shell"}, "set ReelName " + text +
                                                  "\nset ReelName \"\"\nget ReelName\n"
                                                  "set ReelName \"tab\there \\\"quoted\\\" back\\\\slash\"\n"
                                                  "set ReelName '\x1b[31mred \xff \u009b32mgreen\x7f "
                                                  "\u202ethgir\u202c'\nset ReelName \"open\ninfo ReelName\n");
    EXPECT_THAT(run.out, HasSubstr("ReelName stored \"" + text + "\" (longer than 8 bytes)\n"));
    EXPECT_THAT(run.out, HasSubstr("ReelName = \"\"\n"));
    EXPECT_THAT(
        run.out,
        HasSubstr("ReelName stored \"tab\\there \\\"quoted\\\" back\\\\slash\" (longer than 8 bytes)\n"));
    EXPECT_THAT(run.out,
                HasSubstr("ReelName stored \"\\u001b[31mred \xef\xbf\xbd \\u009b32mgreen\\u007f \\u202ethgir"
                          "\\u202c\" (longer than 8 bytes)\n"));
    EXPECT_THAT(run.err, HasSubstr("line 6: a quote is not closed"));
}

std::vector<std::string> ListedNames(const std::string& filter)
{
    std::vector<std::string> names;
    for (const Json& json :
         Lines(Tool({"--json", "shell"}, "set RegisterSave 7\nset ClipNumber 2\nlist " + filter)))
        if (!json.contains("result") && !json.contains("error")) names.push_back(json["param"]);
    return names;
}

TEST(Vexactl, ListShowsWhatMeetsEveryFilter)
{
    EXPECT_THAT(ListedNames("--changed"), ElementsAre("ClipNumber", "RegisterSave"));
    EXPECT_THAT(ListedNames("--changed --group 17 '*Number' Take"), ElementsAre("ClipNumber"));
    for (const char* const group : {"0x5c", "92", "Preset-Store"})
        EXPECT_THAT(ListedNames(std::string("--class volatile --group ") + group),
                    ElementsAre("RegisterSave", "RegisterStore"));
    EXPECT_THAT(ListedNames("--class Volatile"), IsEmpty());
    EXPECT_THAT(ListedNames("--group 256"), IsEmpty());
}

TEST(Vexactl, AModelThatIsNamedServesADeviceThatNamesNone)
{
    const ProgramResult run =
        Tool({"--model", "OAK", "info", "ReelName"}, "", {"PRODUCT_ID=", "VEXACTL_DEVICE=local:"});
    EXPECT_THAT(run.out, HasSubstr("\nparam:        ReelName\n"));
    EXPECT_EQ(run.err, "vexactl: local: names no model that is known: it is taken for OAK\n");
}

TEST(Vexactl, NumbersGroupsAndTextsHaveNames)
{
    EXPECT_THAT(Tool({"info", "IPAddress", "ClipName"}).out,
                AllOf(HasSubstr("\ngroup:        network\n"), HasSubstr("\ntype:         IP address\n"),
                      HasSubstr("\nmax:          255.255.255.255\n"),
                      HasSubstr("\nenabled_by:   IPConfig is 1 Static\n"),
                      ContainsRegex("\nfeature:      for users\nattributes:.*\ndefault:      0 Clip\n")));
    const Json facts = Lines(Tool({"--json", "info", "IPAddress"})).at(0);
    EXPECT_EQ(facts["type"], 6);
    EXPECT_EQ(facts["factoryResetName"], "reset by \"Restore with Network\" alone");
    for (const Json& group : Lines(Tool({"--json", "groups"})))
        EXPECT_NE(group["groupName"], std::to_string(group["group"].get<int>())) << "without a name";
}

TEST(Vexactl, SpeaksLanguagesThatNeitherTheDeviceNorTheLocaleKnows)
{
    const locale_t needed = newlocale(LC_MESSAGES_MASK, "C.UTF-8", nullptr);
    if (!needed) GTEST_SKIP() << "this machine lacks the locale C.UTF-8";
    freelocale(needed);
    for (const char* const model : {"OAK", "HAZEL"})
        EXPECT_EQ(Tool({"--lang", "ja", "shell"}, "set IPConfig 固定\nget IPConfig --format '%N: %v'\n",
                       {std::string("PRODUCT_ID=") + model, "VEXACTL_DEVICE=local:", "LC_ALL=C"})
                      .out,
                  "IPConfig stored 1 固定\nIP構成: 固定\n");
}

TEST(Vexactl, TheCatalogueIsSortedAndTheSameInEveryRun)
{
    const std::string out = Tool({"catalogue"}).out;
    for (const char* const own : {"PRODUCT_ID=HAZEL", "PRODUCT_ID"})
        EXPECT_EQ(Tool({"--model", "OAK", "catalogue"}, "", {own, "VEXACTL_DEVICE"}).out, out);
    EXPECT_EQ(Tool({"shell"}, "set RegisterSave 7\ncatalogue").out, "RegisterSave stored 7\n" + out);
    const Json all = Json::parse(out);
    ASSERT_GT(all.size(), 100u);
    const auto id = [](const Json& facts) { return facts["id"].get<std::string>(); };
    EXPECT_TRUE(std::ranges::is_sorted(all, {}, id));
    for (const Json& facts : all) {
        if (facts["kind"] != "alarm") continue;
        EXPECT_THAT(facts["default"].get<std::string>(), ContainsRegex("^([0-9a-f][0-9a-f])*$"));
    }

    std::string lines;
    for (const auto& facts : nlohmann::ordered_json::parse(out)) lines += facts.dump() + "\n";
    EXPECT_EQ(Tool({"--json", "catalogue"}).out, lines);
    EXPECT_THAT(
        Tool({"catalogue", "--markdown"}).out,
        AllOf(HasSubstr("\n\n## Group 92\n\n| parameter | identifier |"),
              HasSubstr("\n| `RegisterSave` | `0x5c010000` | Store Preset | int | 1 to 20 | 1 | | ")));
}

TEST(Vexactl, AlarmsAreRaisedWatchedAndCleared)
{
    const ProgramResult run =
        Tool({"shell"},
             "alarms watch\nalarms raise Media_Low_Alarm \"12 minutes\" --severity critical\n"
             "set ReelName unheard\nalarms clear Media_Low_Alarm\nalarms raised\n"
             "alarms raise Take\nalarms raise LUT_Alarm --severity mild\n");
    EXPECT_THAT(run.out, ContainsRegex(
                             "^[^ ]+  Media_Low_Alarm = raised, CRITICAL: 12 minutes\n"
                             "Media_Low_Alarm = raised, CRITICAL: 12 minutes\n"
                             "ReelName stored \"unheard\"\n"
                             "[^ ]+  Media_Low_Alarm = clear, WARNING\nMedia_Low_Alarm = clear, WARNING\n$"));
    EXPECT_THAT(run.err,
                AllOf(HasSubstr("line 6: Take is no alarm"), HasSubstr("line 7: unknown severity \"mild\"")));
    EXPECT_EQ(Json::parse(Tool({"--json", "get", "Media_Low_Alarm"}).out)["severity"], "WARNING");
}

// --- a device that does what it should not ---

/// The tool in front of a scripted device.
ProgramResult ToolAt(const ScriptedServer& server, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"-d", server.Uri(), "--timeout", "5"});
    return Tool(arguments);
}

/// Whether the tool is in step, and asks only whether the device is still there.
bool IsProbe(const net::XCONFIGMGR_REQUEST_T& request, int times)
{
    return request.paramID == eParamID_SystemState && times == 2;
}

TEST(Vexactl, AWatchPrintsAsManyChangesAsItShould)
{
    ScriptedServer server(SOCK_STREAM, [](ScriptedPeer& peer) {
        ServeValues(peer, [&](const auto& request, int times) {
            std::string events;
            for (uint32_t value = 1; IsProbe(request, times) && value <= 100; ++value)
                events += Event(XCFG_PARAM_CHANGED_EVENT, kNumber, value);
            peer.Send(events);
            return false;
        });
    });
    const ProgramResult run = ToolAt(server, {"--json", "watch", "--count", "3"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(Lines(run).size(), 3u);
}

TEST(Vexactl, FiveHundredDevicesAreReadInOneCall)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__powerpc__)
    constexpr size_t kDevices = 50;
#else
    constexpr size_t kDevices = 500;
#endif
    std::vector<std::unique_ptr<ScriptedServer>> servers;
    const TemporaryDirectory directory;
    const std::string path = directory / "devices";
    std::ofstream file(path);
    std::set<std::string> expected, seen;
    for (size_t i = 0; i < kDevices; ++i) {
        servers.push_back(
            std::make_unique<ScriptedServer>(SOCK_STREAM, [](ScriptedPeer& peer) { ServeValues(peer); }));
        file << servers.back()->Uri() << "  # one of many\n";
        expected.insert(servers.back()->Uri());
    }
    file.close();
    const ProgramResult run = Tool({"--json", "--timeout", "30", "--devices", path, "get", "RegisterSave"});
    EXPECT_EQ(run.status, 0) << run.err;
    for (const Json& line : Lines(run)) {
        EXPECT_EQ(line["value"], 7) << line;
        seen.insert(line["device"]);
    }
    EXPECT_EQ(seen, expected);
}

TEST(Vexactl, OnlyWhatItHasReadIsShown)
{
    struct Row {
        std::string parameter;
        uint32_t type, error;
        std::string payload;
        int status;
        const char* shown;
    };
    for (const Row& row :
         {Row{"RegisterSave", 96, 0, "", 0, "RegisterSave = 7\n"},
          Row{"RegisterSave", 96, 53, "", 1, "RegisterSave: the device has no value for it\n"},
          Row{"CustomClipName", 128, 60, "", 1, "the device has no value for it\n"},
          Row{"CustomClipName", 128, 0, "garbage", 1, "the device has no value for it\n"}}) {
        ScriptedServer server(SOCK_STREAM, [&](ScriptedPeer& peer) {
            ServeValues(peer, [&](const auto& request, int times) {
                const bool isAsked = times == 2;
                if (isAsked)
                    peer.Send(
                        ReplyTo(request, static_cast<eMessageType_t>(row.type), 7, row.payload, row.error));
                return isAsked;
            });
        });
        const ProgramResult run = ToolAt(server, {"get", row.parameter});
        EXPECT_EQ(run.status, row.status) << run.err;
        EXPECT_THAT(run.out + run.err, HasSubstr(row.shown));
        EXPECT_EQ(run.out.empty(), row.status != 0) << run.out;
    }
}

TEST(Vexactl, SignalsAndClosedPipesGoThroughAGoodbye)
{
    const TemporaryDirectory directory;
    const std::string silence = directory / "silence";  // an input without a line
    ASSERT_EQ(mkfifo(silence.c_str(), 0600), 0);
    struct Row {
        std::string verb;
        int signal, status;
    };
    for (const Row& row :
         {Row{"watch", SIGTERM, 0}, Row{"watch", SIGHUP, 0}, Row{"get RegisterSave", SIGINT, 128 + SIGINT},
          Row{"wait RegisterSave=1", SIGINT, 128 + SIGINT}, Row{"shell", SIGHUP, 128 + SIGHUP},
          Row{"watch | head -1", 0, 0}}) {
        SCOPED_TRACE(row.verb);
        const bool isGet = row.verb.starts_with("get");
        Gate asked;
        ScriptedServer server(SOCK_STREAM, [&](ScriptedPeer& peer) {
            ServeValues(peer, [&](const auto& request, int times) {
                const bool isMoment =
                    isGet ? request.paramID == kNumber && times == 2 : IsProbe(request, times);
                if (isMoment) asked.Pass();
                if (isMoment && row.signal == 0) peer.Send(NumberEvent(7));
                return false;
            });
        });
        const std::string command =
            std::string(VEXACTL) + " 0<>" + silence + " -d " + server.Uri() + " " + row.verb;
        Program tool({"/bin/sh", "-c", (row.signal ? "exec " : "") + command});
        asked.Await();
        tool.Signal(row.signal);
        if (isGet) usleep(100'000);  // the signal is noticed before the answer
        asked.Open();
        const ProgramResult result = tool.Wait();
        EXPECT_EQ(result.status, row.status) << result.err;
        EXPECT_EQ(result.err, "");
    }
}

}  // namespace
