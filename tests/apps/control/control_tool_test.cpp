#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

#include "mainstay/control/server.h"
#include "support/daemon.h"
#include "support/line_client.h"
#include "support/raw_peer.h"
#include "support/stderr_of.h"
#include "support/temporary_directory.h"
#include "support/terminal.h"

using control::Answer, control::ControlServer, control::Failure, control::Json, control::Peer,
    control::Stream;
using testing::AllOf, testing::ContainsRegex, testing::HasSubstr, testing::MatchesRegex, testing::Not;

namespace {

constexpr char kPresetBytes[] = "\0\xFFpreset\n";
const std::string kPreset(kPresetBytes, sizeof kPresetBytes - 1);
constexpr char kPresetBase64[] = "AP9wcmVzZXQK";

/// A server that answers as a daemon with state does, and the tool at its socket.
class ControlTool : public testing::Test {
  protected:
    ControlTool() { EXPECT_TRUE(m_server.Start(m_path)); }

    ProgramResult Tool(std::vector<std::string> arguments, const std::string& with = "")
    {
        if (!with.empty()) arguments.insert(arguments.begin(), with);
        arguments.insert(arguments.begin(), {VEXACTL, "--control", m_path});
        return RunProgram(arguments, "", {"TZ=UTC"});
    }
    control::Handlers Handlers()
    {
        return {{"status", [](const Json&, const Peer&) { return Status(); }},
                {"log", [this](const Json& request, const Peer&) { return Log(request); }},
                {"presets", [this](const Json& request, const Peer&) { return Presets(request); }},
                {"confirm", [](const Json& request, const Peer&) {
                     return Json{{"confirmed", request.value("hold", 2) == 2 ? 2 : 0}};
                 }}};
    }

    /// The last one about the log or presets.
    Json Request()
    {
        const std::lock_guard hold(m_lock);
        return m_request;
    }

    const TemporaryDirectory m_directory;
    const std::string m_path = m_directory.Path() + "/control";
    std::shared_ptr<Stream> m_stream = std::make_shared<Stream>();

  private:
    void Keep(const Json& request)
    {
        const std::lock_guard hold(m_lock);
        m_request = request;
    }
    static Json Status()
    {
        return {{"model", "OAK"},
                {"version", "1.0.0"},
                {"since", "2026-02-28T13:05:09.123Z"},
                {"endpoints", {"TCP port 43110", "UDP port 43110"}},
                {"state",
                 {{"kept", true},
                  {"file", "/var/lib/mainstay/settings.db"},
                  {"saved", nullptr},
                  {"waiting", 3},
                  {"problem", "the disk is full"},
                  {"notes", {"Frob is unknown"}}}},
                {"locale", {{"active", "en"}, {"next", "de"}}},
                {"notes", Json::array()}};
    }
    Answer Log(const Json& request)
    {
        Keep(request);
        const Json change{{"time", "2026-02-28T13:05:09Z"},
                          {"config", 0},
                          {"param", "IPAddress"},
                          {"old", "10.0.0.1"},
                          {"new", "\x1B[2J"},
                          {"who", "recall 5"}};
        if (!request["follow"].get<bool>()) return Json{{"changes", {change}}};
        m_stream->Push({{"change", change}});
        m_stream->Push({{"skipped", 7}});
        return {Json{{"changes", Json::array()}}, m_stream};
    }
    Answer Presets(const Json& request)
    {
        Keep(request);
        const auto what = request["do"].get<std::string>();
        if (what == "list")
            return Json{
                {"presets",
                 {{{"number", 5}, {"name", "Five"}, {"saved", "2026-02-28T13:05:09Z"}, {"values", 99}}}}};
        if (what == "recall")
            return Json{{"result", "Recall Complete"},
                        {"refused", {{{"param", "FanSpeed"}, {"reason", "out of range"}}}}};
        if (what == "export") return Json{{"file", kPresetBase64}};
        if (what == "delete") throw Failure("the daemon keeps no state");
        return Json{{"result", "Store Complete"}};
    }

    std::mutex m_lock;
    Json m_request;
    ControlServer m_server{Handlers()};  // ends first
};

TEST_F(ControlTool, ShowsWhatTheDaemonAnswers)
{
    EXPECT_EQ(Tool({"status"}).out,
              "mainstay  1.0.0, model OAK, since 2026-02-28 13:05:09\n"
              "serves    TCP port 43110\nserves    UDP port 43110\n"
              "state     kept in /var/lib/mainstay/settings.db, not saved yet, 3 changes wait\n"
              "problem   the disk is full\nnote      Frob is unknown\n"
              "locale    en, after the next start de\n");
    EXPECT_EQ(Json::parse(Tool({"status", "--json"}).out)["state"]["waiting"], 3);
    EXPECT_EQ(Tool({"presets"}).out,
              "NUMBER  SAVED                VALUES  NAME\n5       2026-02-28 13:05:09  99      Five\n");
    EXPECT_EQ(Json::parse(Tool({"presets"}, "--json").out)["name"], "Five");
    EXPECT_EQ(Tool({"confirm"}).out, "confirmed 2 changes\n");
    EXPECT_EQ(Tool({"confirm", "4"}).status, 1);
}

TEST_F(ControlTool, LogTellsWhoAndWhen)
{
    EXPECT_EQ(Tool({"log", "--since", "2026-02-28 13:05", "--limit", "5", "IPAddress"}).out,
              "2026-02-28 13:05:09  IPAddress  10.0.0.1 -> \\u001b[2J  (recall 5)\n");
    EXPECT_EQ(Request(), (Json{{"request", "log"},
                               {"since", "2026-02-28T13:05:00Z"},
                               {"params", {"IPAddress"}},
                               {"follow", false},
                               {"limit", 5}}));
    struct Row {
        const char *typed, *sent;
    };
    for (const auto& [typed, sent] : {Row{"2026-02-28T13:05:09.75+01:00", "2026-02-28T12:05:09Z"},
                                      Row{"2026-02-28T13:05:09.123Z", "2026-02-28T13:05:09Z"},
                                      Row{"2026-02-28", "2026-02-28T00:00:00Z"}}) {
        Tool({"log", "--since", typed});
        EXPECT_EQ(Request()["since"], sent) << typed;
    }
    Tool({"log"});
    EXPECT_TRUE(Request()["since"].is_null());
    for (const char* const bad : {"soon", "5", "5y", "-5m", "2026-02-28T13:05:09x", "99999999999m"})
        EXPECT_EQ(Tool({"log", "--since", bad}).status, 2) << bad;
    const time_t before = time(nullptr);
    Tool({"log", "--since", "2h"});
    const std::string since = Request()["since"];
    char earliest[32];
    const time_t then = before - 7200;
    strftime(earliest, sizeof earliest, "%FT%TZ", gmtime(&then));
    EXPECT_GE(since, earliest);
}

TEST_F(ControlTool, LogFollowsUntilASignal)
{
    Program follower({VEXACTL, "--control", m_path, "log", "--follow"}, "", {"TZ=UTC"});
    follower.WaitForOutput("IPAddress  10.0.0.1");
    follower.WaitForOutput("7 changes were left out");
    follower.Signal(SIGINT);
    EXPECT_EQ(follower.Wait().status, 128 + SIGINT);
}

TEST_F(ControlTool, PresetsAreSavedRecalledAndMoved)
{
    EXPECT_EQ(Tool({"presets", "save", "5", "Studio B"}).out, "Store Complete\n");
    EXPECT_EQ(Request(), (Json{{"request", "presets"}, {"do", "save"}, {"number", 5}, {"name", "Studio B"}}));
    const ProgramResult recall = Tool({"presets", "recall", "5"});
    EXPECT_EQ(recall.status, 4) << "one value was refused";
    EXPECT_EQ(recall.out, "Recall Complete\n");
    EXPECT_EQ(recall.err, "vexactl: FanSpeed refused: out of range\n");
    const ProgramResult none = Tool({"presets", "delete", "5"});
    EXPECT_EQ(none.status, 4);
    EXPECT_EQ(none.err, "vexactl: the daemon keeps no state\n");
    EXPECT_EQ(Tool({"presets", "save", "21"}).status, 2);

    const std::string file = m_directory.Path() + "/five";
    EXPECT_EQ(Tool({"presets", "export", "5", file}).status, 0);
    EXPECT_EQ(ReadFile(file), kPreset);
    EXPECT_EQ(Tool({"presets", "import", file, "6"}).status, 0);
    EXPECT_EQ(Request()["file"], kPresetBase64);
    for (const std::string& content : {std::string("a"), std::string("ab")}) {
        WriteFile(file, content);
        EXPECT_EQ(Tool({"presets", "import", file, "6"}).status, 0) << content;
        EXPECT_EQ(Request()["file"], content == "a" ? "YQ==" : "YWI=");
    }
    EXPECT_EQ(Tool({"presets", "import", file + "-none", "6"}).status, 2);
    EXPECT_EQ(Tool({"presets", "export", "5", m_directory.Path()}).status, 1);
}

TEST_F(ControlTool, FailuresSayWhatIsMissing)
{
    const ProgramResult none = RunProgram({VEXACTL, "--control", m_path + "-none", "status"});
    EXPECT_EQ(none.status, 6);
    EXPECT_THAT(none.err, HasSubstr("no daemon at the control socket " + m_path + "-none: No such file"));
    EXPECT_THAT(Tool({"stats"}).err, HasSubstr("unknown request"));
    EXPECT_EQ(Tool({"stats"}).status, 4);
    const ProgramResult remote = RunProgram({VEXACTL, "-d", "rec-7", "status"}, "", {"VEXACTL_CONTROL"});
    EXPECT_EQ(remote.status, 2);
    EXPECT_THAT(remote.err, HasSubstr("asks the daemon of this machine"));
    EXPECT_EQ(Json::parse(RunProgram({VEXACTL, "--json", "--control", "/none", "clients"}).out)["status"], 6);
}

/// A daemon and its clients, as an operator sees them.
TEST(MainstayControl, TellsOfItsClientsAndUndoesWhatNobodyConfirms)
{
    const TemporaryDirectory directory;
    const std::string path = directory.Path() + "/control";
    Daemon daemon({"--no-mq"}, {"RUNTIME_DIRECTORY=" + directory.Path(), "PRODUCT_ID=OAK"});
    const std::string uri = daemon.Tcp();
    const auto tool = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {VEXACTL, "-d", uri, "--control", path});
        return RunProgram(arguments);
    };
    Program watcher({VEXACTL, "-d", uri, "watch"});
    EXPECT_TRUE(Eventually([&] { return tool({"clients"}).out.find("  yes  ") != std::string::npos; }));
    tool({"set", "RegisterSave", "9"});
    EXPECT_THAT(tool({"clients"}).out,
                ContainsRegex("tcp +[0-9-]+ [0-9:]+ +0 +yes +0 +0 +[0-9]+ +0 +admin +0 +127.0.0.1:[0-9]+"));
    EXPECT_EQ(Json::parse(tool({"stats", "--json"}).out)["tcp"]["requests"]["set"], 1);
    EXPECT_THAT(tool({"stats", "--prometheus"}).out,
                AllOf(HasSubstr("\n# TYPE mainstay_requests_total counter\n"),
                      HasSubstr("\nmainstay_requests_total{transport=\"tcp\",kind=\"set\"} 1\n")));

    LineClient client(path);
    const Json values = Json::array({Json{{"param", "RegisterSave"}, {"value", 7}}});
    client.Ask({{"request", "hold"}, {"seconds", 1000}, {"values", values}});
    EXPECT_THAT(daemon.Stop().err, HasSubstr("is undone, for the daemon stops: put back 1, refused 0"));
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    EXPECT_EQ(client.Receive(), "");
}

/// A daemon with a control socket, and the tool at both.
class DaemonHolds : public testing::Test {
  protected:
    std::vector<std::string> Command(std::vector<std::string> arguments, const std::string& control = "")
    {
        arguments.insert(arguments.begin(),
                         {VEXACTL, "-d", m_daemon.Tcp(), "--control", control.empty() ? m_path : control});
        return arguments;
    }
    ProgramResult Tool(std::vector<std::string> arguments, const std::string& control = "")
    {
        return RunProgram(Command(std::move(arguments), control));
    }
    bool Becomes(const std::string& name, const std::string& value)
    {
        return Eventually([&] { return Tool({"get", "-r", name}).out == value + "\n"; });
    }

    const TemporaryDirectory m_directory;
    const std::string m_path = m_directory.Path() + "/control";
    const Daemon m_daemon{{"--no-mq", "--control", m_path}};
};

TEST_F(DaemonHolds, WithoutATerminalTheToolNeedNotStay)
{
    const std::string file = m_directory.Path() + "/a.toml";
    WriteFile(file, "[settings]\nTake = 9\nClipName = 0\n");
    Tool({"set", "ClipName=1", "Take=7"});
    const ProgramResult applied = Tool({"apply", "--confirm", "1", file});
    EXPECT_EQ(applied.status, 0);
    EXPECT_THAT(applied.err,
                HasSubstr("Kept in 1 s only if you run: vexactl --control " + m_path + " confirm"));
    EXPECT_TRUE(Becomes("ClipName", "Scene"));
    EXPECT_TRUE(Becomes("Take", "7")) << "the name sets it back, so it comes back after it";

    EXPECT_THAT(Tool({"set", "--confirm", "1000", "Take=9"}).err, HasSubstr("Kept in 1000 s"));
    EXPECT_EQ(Tool({"confirm"}).out, "confirmed 1 change\n");
    EXPECT_THAT(Tool({"set", "--confirm", "100000", "Take=5"}).err,
                AllOf(HasSubstr("the daemon does not hold the old values: takes 1 to 86400 seconds"),
                      HasSubstr("not confirmed; the old values are put back")));
    EXPECT_EQ(Tool({"confirm"}).status, 1) << "nothing waits";
}

TEST_F(DaemonHolds, AnotherDaemonIsNotTakenForTheDevices)
{
    const std::string path = m_path + "-other";
    const Daemon other({"--no-mq", "--control", path});
    const ProgramResult asked = Tool({"set", "--confirm", "1000", "Take=9"}, path);
    EXPECT_EQ(asked.status, 4);
    EXPECT_THAT(asked.err, AllOf(Not(HasSubstr("Kept in")), HasSubstr("not confirmed; the old values")));
}

TEST_F(DaemonHolds, AtATerminalEitherAnswerCounts)
{
    Terminal yes(Command({"set", "--confirm", "1000", "Take=9"}), {});
    yes.WaitFor("Keep the changes?");
    yes.Type("y\n");
    EXPECT_EQ(yes.Wait(), 0);
    Terminal no(Command({"set", "--confirm", "1000", "Take=5"}), {});
    no.WaitFor("Keep the changes?");
    no.Type("\x03");
    EXPECT_EQ(no.Wait(), 128 + SIGINT);
    EXPECT_EQ(Tool({"confirm"}).status, 1) << "neither waits";
    EXPECT_TRUE(Becomes("Take", "9"));

    Terminal elsewhere(Command({"set", "--confirm", "1.5", "Take=6"}), {});
    elsewhere.WaitFor("Keep the changes?");
    EXPECT_EQ(Tool({"confirm"}).status, 0);
    elsewhere.WaitFor("confirmed by somebody else");
    EXPECT_EQ(elsewhere.Wait(), 0);
    {
        Terminal killed(Command({"set", "--confirm", "1", "Take=3"}), {});
        killed.WaitFor("Keep the changes?");
    }
    EXPECT_TRUE(Becomes("Take", "6"));
}

}  // namespace
