#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/daemon.h"
#include "support/temporary_directory.h"
#include "support/terminal.h"

using testing::AllOf, testing::ContainsRegex, testing::HasSubstr, testing::IsEmpty, testing::Not;

namespace {

/// A daemon of the model OAK, the tool at it, and a directory for files.
class SettingsVerbs : public testing::Test {
  protected:
    std::vector<std::string> Command(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {VEXACTL, "-d", uri, "--timeout", "1"});
        return arguments;
    }
    /// With the status that is expected. @return what it printed.
    std::string Run(std::vector<std::string> arguments, int status = 0, const std::string& input = "") const
    {
        const std::string words = testing::PrintToString(arguments);
        const ProgramResult run = RunProgram(Command(std::move(arguments)), input);
        EXPECT_EQ(run.status, status) << words << run.out << run.err;
        return run.out + run.err;
    }
    std::string Write(const std::string& name, const std::string& settings) const
    {
        WriteFile(directory / name, "[settings]\n" + settings);
        return directory / name;
    }

    const TemporaryDirectory directory;
    const Daemon daemon;
    const std::string uri = daemon.Tcp();
};

TEST_F(SettingsVerbs, WhatWasSavedComesBack)
{
    const std::string a = directory / "a.toml", b = directory / "b.toml";
    Run({"set", "FanSpeed=70", "ClipName=1", "Take=7", "CustomClipName=say \"hi\" é", "IPConfig=1",
         "IPAddress=10.0.0.9"});
    Run({"set", "SystemPassword", "geheim"});
    EXPECT_THAT(Run({"save", a}), HasSubstr("settings saved"));
    EXPECT_THAT(
        ReadFile(directory / "a.toml"),
        AllOf(HasSubstr("[device]\nmodel = \"OAK\"\n"), HasSubstr("\nFanSpeed = 70  # 30 to 100 %\n"),
              HasSubstr("\nIPAddress = \"10.0.0.9\"\n"), HasSubstr("CustomClipName = \"say \\\"hi\\\" é\""),
              Not(HasSubstr("geheim")), Not(HasSubstr("SystemState")), Not(HasSubstr("PersistStatus"))));
    EXPECT_EQ(Run({"save"}), ReadFile(directory / "a.toml"));
    EXPECT_EQ(Run({"diff", a}), "");

    EXPECT_THAT(Run({"reset", "--all"}),
                AllOf(HasSubstr("FanSpeed 70 % -> 50 % stored\n"), Not(HasSubstr("IPAddress"))));
    const std::string differences = Run({"diff", a}, 1);
    EXPECT_THAT(differences, HasSubstr("FanSpeed        70 % -> 50 %\n"));
    EXPECT_THAT(differences, Not(HasSubstr("IPAddress")));
    EXPECT_THAT(Run({"reset", "--all", "--network"}),
                AllOf(HasSubstr("IPAddress 10.0.0.9 -> 192.168.0.2 stored\n"),
                      HasSubstr("SystemPassword ******** -> ******** stored\n")));
    EXPECT_EQ(Run({"diff", "defaults"}), "");

    EXPECT_THAT(Run({"apply", "--dry-run", a}),
                HasSubstr("IPAddress 192.168.0.2 -> 10.0.0.9 would be stored\n"));
    EXPECT_EQ(Run({"apply", "--only", "fan*", "--only", "Take", "--dry-run", a}),
              "Take 1 -> 7 would be stored\nFanSpeed 50 % -> 70 % would be stored\n");
    EXPECT_EQ(Run({"diff", "defaults"}), "") << "that was a dry run";
    EXPECT_THAT(Run({"apply", a}), ContainsRegex("IPConfig 0 DHCP -> 1 Static stored\nIPAddress 192"));
    EXPECT_EQ(Run({"diff", a}), "") << "the take, too, which the name has set back";
    EXPECT_EQ(Run({"apply", a}), "nothing to change\n");
    EXPECT_THAT(Run({"--json", "reset", "Fan*"}),
                HasSubstr(R"("param":"FanSpeed","from":{"value":70,"text":"70 %")"));
    EXPECT_THAT(Run({"diff", a, uri, "--json"}, 1), HasSubstr(R"("to":{"value":50,)"));
    EXPECT_EQ(Run({"diff", uri, uri}), "");
    Run({"save", b});
    EXPECT_EQ(Run({"diff", a, b}, 1), "FanSpeed  70 % -> 50 %\n");
}

TEST_F(SettingsVerbs, AFileIsReplacedWholeAndSecretsArePrivate)
{
    const std::string file = directory / "a.toml", link = directory / "link.toml";
    std::filesystem::create_symlink(file, link);
    std::ofstream(file) << "before";
    chmod(file.c_str(), 0664);
    const auto mode = [&] { return std::filesystem::status(file).permissions(); };
    Run({"set", "SystemPassword", "geheim"});
    Run({"save", link});
    EXPECT_EQ(mode(), std::filesystem::perms{0664});
    EXPECT_THAT(ReadFile(directory / "a.toml"), Not(HasSubstr("SystemPassword")));
    Run({"save", "--secrets", link});
    EXPECT_EQ(mode(), std::filesystem::perms{0600});
    EXPECT_THAT(ReadFile(directory / "a.toml"), HasSubstr("SystemPassword = \"geheim\""));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    Run({"set", "SystemPassword", "other"});
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"diff", file}, {"apply", "--dry-run", file}, {"apply", file}})
        EXPECT_THAT(Run(arguments, arguments[0] == "diff" ? 1 : 0),
                    AllOf(HasSubstr("********"), Not(HasSubstr("geheim")), Not(HasSubstr("other"))));
    EXPECT_THAT(Run({"--show-secrets", "get", "SystemPassword"}), HasSubstr("geheim"));
    EXPECT_THAT(Run({"save", "/dev/full"}, 1), HasSubstr("cannot write \"/dev/full\": No space left"));
    EXPECT_THAT(Run({"save", directory / "no/a.toml"}, 1), HasSubstr("cannot write"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.Path()), {}), 2)
        << "nothing is left beside";
}

TEST_F(SettingsVerbs, NothingChangesWhenSomethingCannotBe)
{
    const std::string bad =
        Write("bad.toml",
              "FanSpeed = 500\nFanspede = 3\nfanspeed = 70\nSystemState = 4\nSystemCommand = 6\n"
              "ClipName = \"Betacam\"\nGenLock = 1\nCamera = 8\n[device]\nmodel = \"ELM\"\n");
    const std::string said = Run({"apply", bad}, 4);
    for (const char* const message :
         {"model: the file is of \"ELM\", the device is \"OAK\"", ":2:1: FanSpeed: outside 30 to 100 %",
          ":3:1: Fanspede: unknown parameter; did you mean FanSpeed?",
          ":4:1: fanspeed: named in line 2 already", ":5:1: SystemState: the device reports it",
          ":6:1: SystemCommand: no setting", ":7:1: ClipName: not one of 0 Clip", "nothing is changed"})
        EXPECT_THAT(said, HasSubstr(message));
    EXPECT_EQ(Run({"diff", "defaults"}), "");
    EXPECT_THAT(Run({"apply", Write("unknown.toml", "Zork = 1\nFanSpeed = 500")}, 3),
                HasSubstr(":2:1: Zork: unknown parameter\n"));
    Run({"apply", "--only", "GenLock", Write("part.toml", "Zork = 1\nGenLock = 1")});
    EXPECT_EQ(Run({"diff", "defaults"}, 1), "GenLock  0 Reference -> 1 Video Input\n");
    EXPECT_THAT(Run({"apply", "--only", "Nothing*", bad}, 1), HasSubstr("matches"));
}

TEST_F(SettingsVerbs, AFailedWriteTakesTheOthersBack)
{
    // The sum of low and high has a limit that only the device knows. The later pair breaks it; the earlier one has to
    // be put back in another order than the reverse.
    Run({"set", "BacklightIntensityLow=8", "BacklightIntensityHigh=3", "LCDDisplayIntensityLow=5",
         "ClipName=1", "Take=7"});
    const std::string before = Run({"save"});
    const std::string file =
        Write("a.toml",
              "BacklightIntensityLow = 2\nBacklightIntensityHigh = 9\nClipName = 0\nTake = 7\n"
              "LCDDisplayIntensityHigh = 2\n");
    const std::string said = Run({"apply", file}, 4);
    EXPECT_THAT(
        said,
        AllOf(HasSubstr(
                  "LCDDisplayIntensityHigh: the device takes 6 instead of 2; the old values are put back"),
              HasSubstr("BacklightIntensityLow 2 -> 8 put back\n"),
              HasSubstr("ClipName 0 Clip -> 1 Scene put back\n"), Not(HasSubstr("stored"))));
    EXPECT_EQ(Run({"save"}), before);
    Run({"apply",
         Write("b.toml", "BacklightIntensityHigh = 9\nBacklightIntensityLow = 2\nTake = 7\nClipName = 0\n")});
    EXPECT_EQ(Run({"get", "Take"}), "Take = 7\n")
        << "the name has set it back, and it had to be set once more";
    Run({"apply", Write("c.toml", "BacklightIntensityHigh = 3\nBacklightIntensityLow = 8\n")});
    EXPECT_THAT(Run({"get", "Backlight*High"}), HasSubstr("= 3")) << "the limit came first";
}

TEST_F(SettingsVerbs, SidesOfADiffAreToldApart)
{
    for (const char* const name : {"defaults", "rec-7"}) Write(name, "FanSpeed = 70\n");
    for (const std::string model : {"OAK", "ELM"})
        WriteFile(directory / model + ".toml",
                  "[device]\nmodel = \"" + model + "\"\n[settings]\nGenLock = 1\n");
    struct Row {
        std::vector<std::string> words;
        int status;
        const char* message;
    };
    const Row rows[] = {
        {{"./defaults"}, 1, "FanSpeed  70 % -> 50 %\n"},
        {{"rec-7", "OAK.toml"}, 1, "GenLock   - -> 1 Video Input\nFanSpeed  70 % -> -\n"},
        {{"./defaults", "rec-7"}, 0, ""},
        {{"defaults"}, 2, "is ambiguous: a file has this name, too, which is ./defaults"},
        {{"nothing.toml"}, 2, "cannot read \"nothing.toml\""},
        {{"no/thing"}, 2, "cannot read \"no/thing\""},
        {{"such:a:thing"}, 2, "\"such:a:thing\" is no file, not \"defaults\", and no device: "},
        {{"ELM.toml"}, 4, "not comparable: ELM.toml is of model \"ELM\", tcp://"},
        {{"./defaults", "127.0.0.1:1"}, 6, "cannot connect to 127.0.0.1:1"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> command{"/bin/sh", "-c", "cd \"$0\" && exec \"$@\"", directory.Path()};
        for (const std::string& word : Command({"diff"})) command.push_back(word);
        command.insert(command.end(), row.words.begin(), row.words.end());
        const ProgramResult run = RunProgram(command);
        EXPECT_EQ(run.status, row.status) << testing::PrintToString(row.words) << run.out << run.err;
        EXPECT_THAT(run.out + run.err, HasSubstr(row.message));
    }
    EXPECT_THAT(Run({"-d", uri + "," + uri, "save", directory / "x"}, 2), HasSubstr("save takes one device"));
    EXPECT_THAT(Run({"reset", "SystemState"}, 4), HasSubstr("SystemState: no setting"));
    EXPECT_THAT(Run({"reset", "--network", "FanSpeed"}, 2), HasSubstr("--network requires --all"));
}

// --- confirming ---

TEST_F(SettingsVerbs, WithoutAYesTheOldValuesComeBack)
{
    const std::string file = Write("a.toml", "FanSpeed = 70\nGenLock = 1\n");
    for (const char* const input : {"no\n", "", "y e s\n"}) {
        EXPECT_THAT(
            Run({"apply", "--confirm", "20", file}, 4, input),
            AllOf(HasSubstr("Keep the changes? [y/N], 20 s"),
                  HasSubstr("not confirmed; the old values are put back"),
                  HasSubstr(
                      "FanSpeed 70 % -> 50 % put back\nGenLock 1 Video Input -> 0 Reference put back\n")));
        EXPECT_EQ(Run({"diff", "defaults"}), "");
    }
    EXPECT_THAT(Run({"set", "--confirm", "20", "FanSpeed", "60"}, 0, "yes\n"),
                HasSubstr("FanSpeed stored 60 %"));
    EXPECT_THAT(Run({"set", "--confirm", "20", "SystemCommand", "9"}, 4), Not(HasSubstr("Keep")));
    Run({"shell"}, 4, "set --confirm 20 FanSpeed=80 GenLock=1\nno\nset --confirm 20 FanSpeed=65\nyes\n");
    EXPECT_EQ(Run({"diff", "defaults"}, 1), "FanSpeed  50 % -> 65 %\n");

    Run({"apply", file});
    Terminal silent(Command({"set", "--confirm", "0.3", "FanSpeed", "90"}), {});
    silent.WaitFor("FanSpeed 90 % -> 70 % put back");
    EXPECT_EQ(silent.Wait(), 4);
    Terminal leaving(Command({"set", "--confirm", "20", "FanSpeed", "90"}), {});
    leaving.WaitFor("Keep the changes?");
    leaving.Type("\x03");
    leaving.WaitFor("FanSpeed 90 % -> 70 % put back");
    EXPECT_EQ(leaving.Wait(), 128 + SIGINT);
    EXPECT_EQ(Run({"diff", file}), "");
}

TEST_F(SettingsVerbs, ADeviceThatIsLostGetsItsOldValuesWhenItComesBack)
{
    Terminal back(Command({"set", "--confirm", "20", "FanSpeed", "60"}), {});
    back.WaitFor("Keep the changes?");
    daemon.Signal(SIGSTOP);
    back.Type("y\n");
    daemon.Signal(SIGCONT);
    EXPECT_EQ(back.Wait(), 0);

    const std::vector<std::string> command = Command({"set", "--confirm", "2", "FanSpeed", "70"});
    Terminal yes(command, {});
    yes.WaitFor("Keep the changes?");
    daemon.Signal(SIGSTOP);
    yes.Type("y\n");
    yes.WaitFor("the connection did not come back in time; the old values are put back");
    daemon.Signal(SIGCONT);
    yes.WaitFor("FanSpeed 70 % -> 60 % put back");
    EXPECT_EQ(yes.Wait(), 4);

    Terminal gone(command, {});
    gone.WaitFor("Keep the changes?");
    daemon.Signal(SIGKILL);
    gone.Type("n\n");
    gone.WaitFor("FanSpeed could not be put back to 60 %: the device cannot be reached");
    EXPECT_EQ(gone.Wait(), 4);
}

TEST_F(SettingsVerbs, APersonSeesWhatIsAskedFor)
{
    Terminal grave(Command({"set", "SystemCommand", "6"}), {});
    grave.WaitFor("set SystemCommand to 6 eSystemCommandReboot? [y/N]: ");
    grave.Type("n\n");
    EXPECT_EQ(grave.Wait(), 4);
    Terminal secret(Command({"set", "SystemPassword", "-"}), {});
    secret.WaitFor("SystemPassword: ");
    secret.Type("geheim\n");
    secret.WaitFor("stored ********");
    EXPECT_EQ(secret.Wait(), 0);
    EXPECT_THAT(secret.Screen(), Not(HasSubstr("geheim")));
    const auto candidates = [](std::vector<std::string> words) {
        words.insert(words.begin(), {VEXACTL, "complete", "--"});
        return RunProgram(words, "", {"PRODUCT_ID=OAK"}).out;
    };
    EXPECT_EQ(candidates({"diff", "d"}), "defaults\n");
    EXPECT_EQ(candidates({"apply", "Fan"}), "") << "files are the business of the other shell";
    EXPECT_EQ(candidates({"apply", "--only", "FanS"}), "FanSpeed\n");
}

}  // namespace
