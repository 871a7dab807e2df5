#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/daemon.h"
#include "support/temporary_directory.h"
#include "support/terminal.h"

using testing::HasSubstr, testing::Not;

namespace {

/// A shell that is typed into, with a history of its own.
class VexactlShell : public testing::Test {
  protected:
    void SetUp() override
    {
#ifndef VEXACTL_LINE_EDITING
        GTEST_SKIP() << "this shell has no line editor";
#endif
    }
    std::vector<std::string> Environment(const std::string& locale = "C.UTF-8",
                                         const std::string& model = "OAK") const
    {
        return {"PRODUCT_ID=" + model, "TERM=xterm", "LC_ALL=" + locale, "XDG_STATE_HOME=" + m_home.Path()};
    }

    const TemporaryDirectory m_home;
    const std::string m_history = m_home / "vexactl/history";
};

TEST_F(VexactlShell, KeepsEveryCharacterInAnyLocale)
{
    for (const char* const locale : {"C.UTF-8", "C"}) {
        Terminal shell({VEXACTL, "--uri", "local:", "shell"}, Environment(locale));
        shell.WaitFor("local> ");
        shell.Type("set ReelName \"é ü 漢字 🎥字\x7f\"\r");
        shell.WaitFor("\nReelName stored \"é ü 漢字 🎥\"");
        shell.WaitFor("local> ");
        shell.Type("\x04");
        EXPECT_EQ(shell.Wait(), 0);
        EXPECT_EQ(shell.Screen().back(), '\n') << "what follows begins a line";
    }
}

TEST_F(VexactlShell, TabCompletesVerbsNamesAndValues)
{
    Terminal shell({VEXACTL, "--uri", "local:", "shell"}, Environment());
    shell.WaitFor("local> ");
    shell.Type("ge\tfansp\t\r");
    shell.WaitFor("\nFanSpeed = 50 %\r\nlocal> ");
    shell.Type("set EncodeType prores 422 P\t\r");
    shell.WaitFor("\nEncodeType stored");
    shell.WaitFor("ProRes 422 Proxy\r\nlocal> ");
    shell.Type("set EncodeType \"ProRes 4\t");
    shell.WaitFor("ProRes 422 LT");
    shell.WaitFor("local> set EncodeType \"ProRes 4");
    shell.Type("444 \t\r");
    shell.WaitFor("ProRes 4444 XQ\r\n");
}

TEST_F(VexactlShell, ChangesStandAboveTheLineThatIsTyped)
{
    const Daemon daemon;
    const std::string uri = daemon.Tcp(), prompt = uri.substr(6) + "> ";
    // The device has a reel, and this host's model has none.
    Terminal shell({VEXACTL, "--uri", uri, "shell"}, Environment("C.UTF-8", "HAZEL"));
    shell.WaitFor(prompt);
    shell.Type("watch\r");
    shell.WaitFor(prompt);
    // A line that takes two rows of the terminal.
    const std::string text(70, 'x');
    shell.Type("set reeln\t" + text);
    shell.WaitFor("xxx");
    EXPECT_EQ(RunProgram({VEXACTL, "--uri", uri, "set", "FanSpeed", "71"}, "", {"PRODUCT_ID=OAK"}).status, 0);
    shell.WaitFor("\r\033[1A\033[J");
    shell.WaitFor("  FanSpeed = 71 %\r\n" + prompt + "set ReelName xxx");
    shell.Type("y\r");
    shell.WaitFor("\nReelName stored \"" + text + "y\"");
}

TEST_F(VexactlShell, InterruptsEndTheCommandAlone)
{
    Terminal shell({VEXACTL, "--uri", "local:", "shell"}, Environment());
    shell.WaitFor("local> ");
    shell.Type("watch --initial --for 100 ReelName\r");
    shell.WaitFor("  ReelName = \"\"\r\n");
    shell.Type("\x03");
    shell.WaitFor("^C\r\nlocal> ");
    for (const auto& [command, question] : {std::pair("set SystemPassword -\r", "SystemPassword: "),
                                            {"set SystemCommand 6\r", "Reboot? [y/N]: "}}) {
        shell.Type(command);
        shell.WaitFor(question);
        shell.Type("\x03");
        shell.WaitFor("\r\nlocal> ");
    }
    shell.Type("set ReelName x\r");
    shell.WaitFor("\nReelName stored \"x\"");
    shell.WaitFor("local> ");
    shell.Type("\x04");
    EXPECT_EQ(shell.Wait(), 1) << "of the settings";
}

TEST_F(VexactlShell, HistoryOutlivesItAndKeepsNoPasswords)
{
    {
        Terminal shell({VEXACTL, "--uri", "local:", "shell"}, Environment());
        shell.WaitFor("local> ");
        shell.Type("set SystemPassword hunter2\r");
        shell.WaitFor("\nSystemPassword stored");
        shell.WaitFor("local> ");
        shell.Type("set FanSpeed 7\x03");
        shell.WaitFor("^C\r\nlocal> ");
        shell.Type("set FanSpeed 77\r");
        shell.WaitFor("\nFanSpeed stored 77 %");
        shell.WaitFor("local> ");
        shell.Type("quit\r");
        EXPECT_EQ(shell.Wait(), 0);
    }
    EXPECT_EQ(ReadFile(m_history), "set FanSpeed 77\nquit\n");
    struct stat file {};
    EXPECT_EQ(stat(m_history.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777U, 0600U);

    Terminal next({VEXACTL, "--uri", "local:", "shell"}, Environment());
    next.WaitFor("local> ");
    next.Type("\033[A\033[A\r");
    next.WaitFor("\nFanSpeed stored 77 %");
}

TEST(VexactlTerminal, ABarShowsHowManyDevicesAreDone)
{
    Terminal tool({VEXACTL, "-d", "local:,local:configid=5", "get", "FanSpeed"},
                  {"PRODUCT_ID=OAK", "TERM=xterm"});
    EXPECT_EQ(tool.Wait(), 0);
    const std::string erased = "\r\033[K", full = "[##############################] 2 of 2 devices" + erased;
    EXPECT_TRUE(tool.Screen().ends_with(full)) << tool.Screen();
    EXPECT_THAT(tool.Screen(), HasSubstr("0 of 2 devices" + erased + "local:"));
}

TEST(VexactlScript, MayStopAtTheFirstError)
{
    const std::string script = "get FanSpeed\nset SystemCommand nonsense\nget FanSpeed\n";
    for (const bool stops : {false, true}) {
        std::vector<std::string> command = {VEXACTL, "--uri", "local:", "shell"};
        if (stops) command.emplace_back("--stop-on-error");
        const ProgramResult run = RunProgram(command, script, {"PRODUCT_ID=OAK"});
        EXPECT_EQ(run.status, 4);
        EXPECT_EQ(run.out, stops ? "FanSpeed = 50 %\n" : "FanSpeed = 50 %\nFanSpeed = 50 %\n");
        EXPECT_THAT(run.err, HasSubstr("vexactl: line 2: "));
    }
}

TEST(VexactlCompletion, KnowsTheGrammarAndTheCatalogue)
{
    const auto candidates = [](std::vector<std::string> words, const char* model = "PRODUCT_ID=OAK") {
        words.insert(words.begin(), {VEXACTL, "complete", "--"});
        return RunProgram(words, "", {model, "VEXACTL_URI=tcp://192.0.2.1:1"}).out;
    };
    EXPECT_THAT(candidates({""}), HasSubstr("get\n"));
    EXPECT_THAT(candidates({""}), Not(HasSubstr("complete")));
    EXPECT_EQ(candidates({"--timeout", "5", "cata"}), "catalogue\n");
    EXPECT_EQ(candidates({"get", "--js"}), "--json\n");
    EXPECT_EQ(candidates({"shell", "--st"}), "--stop-on-error\n");
    EXPECT_EQ(candidates({"get", "FanSpeed", "reeln"}), "ReelName\n");
    EXPECT_EQ(candidates({"set", "EncodeType", "prores 422 "}),
              "ProRes 422 HQ\nProRes 422 LT\nProRes 422 Proxy\n");
    EXPECT_EQ(candidates({"set", "EncodeType=ProRes 4444"}),
              "EncodeType=ProRes 4444\nEncodeType=ProRes 4444 XQ\n");
    EXPECT_EQ(candidates({"set", "SystemSt"}), "") << "the device reports it";
    EXPECT_EQ(candidates({"get", "SystemSt"}), "SystemState\n");
    EXPECT_EQ(candidates({"list", "--class", "pass"}), "password\n");
    EXPECT_EQ(candidates({"list", "--group", "net"}), "network\n");
    EXPECT_EQ(candidates({"--lang", "z"}), "zh_CN\n");
    EXPECT_EQ(candidates({"--model", "o"}), "OAK\n");
    EXPECT_EQ(candidates({"alarms", "raise", "SW_E"}), "SW_Error_Alarm\n");
    EXPECT_EQ(candidates({"get", "AnalogAudioSt"}), "") << "of another model";
    EXPECT_EQ(candidates({"get", "AnalogAudioSt"}, "PRODUCT_ID"), "AnalogAudioStandard\n") << "any model";
}

}  // namespace
