#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <random>
#include <thread>

#include "config/descriptors/integer_descriptor.h"
#include "device/device.h"
#include "device/format.h"
#include "faults/faults.h"
#include "support/program.h"
#include "support/raw_peer.h"
#include "support/temporary_directory.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

/// A daemon that keeps its state, and its only client.
class StatefulDaemon {
  public:
    explicit StatefulDaemon(const std::vector<std::string>& options,
                            const std::vector<std::string>& environment = {"PRODUCT_ID=OAK"})
        : m_program(Command(options), "", environment)
    {
        m_program.WaitForOutput("mainstay: ready");
        m_device.emplace(Uri());
        EXPECT_TRUE(m_device->WaitUntilInStep(20s)) << m_device->Status().reason;
    }

    vexa::Device& Device() { return *m_device; }
    std::string Uri(const std::string& rest = "") const
    {
        return "tcp://127.0.0.1:" + std::to_string(NumberAfter("TCP port ", m_program.Err())) + rest;
    }
    std::string Log() const { return m_program.Err(); }
    void WaitForLog(const std::string& text) const { m_program.WaitForOutput(text); }

    std::string Text(const std::string& name)
    {
        const vexa::GetResult result = m_device->Get(name);
        ParamDescriptor* const descriptor = m_device->Parameters()->Find(name);
        return result && descriptor ? vexa::Format(*descriptor, *result.value) : "? " + result.reason;
    }
    void Set(const std::string& name, const std::string& text)
    {
        const vexa::SetResult result = m_device->Set(name, text);
        EXPECT_TRUE(result) << name << ": " << result.reason;
    }
    /// The outcome of a preset command.
    std::string Preset(const std::string& verb, unsigned int number)
    {
        m_device->Set("Register" + verb, std::to_string(number));
        std::string outcome;
        EXPECT_TRUE(Eventually([&] {
            outcome = Text("Register" + verb + "Result");
            return outcome != "0 " && outcome.find("...") == std::string::npos;
        })) << verb;
        return outcome;
    }
    void Stop(int signal = SIGTERM)
    {
        m_device.reset();
        m_program.Signal(signal);
        m_program.Wait();
    }

  private:
    static std::vector<std::string> Command(const std::vector<std::string>& options)
    {
        std::vector<std::string> command{MAINSTAY, "--no-mq", "--no-udp", "--tcp-port", "0"};
        if (std::ranges::find(options, "--commit-interval") == options.end())
            command.insert(command.end(), {"--commit-interval", "0.05"});
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    Program m_program;
    std::optional<vexa::Device> m_device;
};

/// Another value than the present one, if the parameter has any that the device takes.
std::optional<vexa::Value> AnotherValue(ParamDescriptor& descriptor, const vexa::Value& now)
{
    std::vector<vexa::Value> candidates{std::string("other"), std::string("o")};
    if (auto* const number = dynamic_cast<IntegerDescriptor*>(&descriptor))
        candidates = {number->GetMaxValue(), number->GetMinValue(), number->GetFactoryDefault() + 1};
    for (const vexa::Value& value : candidates)
        if (value != now && !vexa::Objection(descriptor, value)) return value;
    return std::nullopt;
}

std::map<eParam_t, vexa::Value> ValuesInRegisters(vexa::Device& device)
{
    std::vector<eParam_t> ids;
    for (const auto& [id, descriptor] : device.Parameters()->All())
        if (descriptor->GetRegisterType() != eRegister_Exclude) ids.push_back(id);
    std::map<eParam_t, vexa::Value> values;
    const auto results = device.GetMany(ids);
    for (size_t i = 0; i < ids.size(); ++i)
        if (results[i]) values[ids[i]] = *results[i].value;
    return values;
}

void ChangeAll(vexa::Device& device)
{
    for (const auto& [id, value] : ValuesInRegisters(device))
        if (const auto other = AnotherValue(*device.Parameters()->Find(id), value)) device.Set(id, *other);
}

}  // namespace

TEST(MainstayState, SurvivesACrashAndAStop)
{
    const TemporaryDirectory directory;
    for (const int signal : {SIGKILL, SIGTERM}) {
        std::optional<StatefulDaemon> daemon(std::in_place,
                                             std::vector<std::string>{"--state", directory.Path()});
        daemon->Set("ReelName", "Keep é " + std::to_string(signal));
        daemon->Set("IPAddress", "10.1.2.3");
        daemon->Set("Take", "17");
        daemon->Set("ClipName", "Clip");                            // sets the take back, without an event
        if (signal == SIGKILL) std::this_thread::sleep_for(300ms);  // the interval is over, and the disk done
        daemon->Stop(signal);
        daemon.emplace(std::vector<std::string>{"--state", directory.Path()});
        EXPECT_EQ(daemon->Text("ReelName"), "Keep é " + std::to_string(signal));
        EXPECT_EQ(daemon->Text("IPAddress"), "10.1.2.3");
        EXPECT_EQ(daemon->Text("Take"), "1");
        EXPECT_EQ(daemon->Text("PersistStatus"), signal == SIGKILL ? "0" : "1");
        EXPECT_EQ(daemon->Text("SystemState"), "4 eSystemStateRunning");
    }
}

TEST(MainstayState, ValuesThatDoNotFitStayInTheFile)
{
    const TemporaryDirectory directory;
    {
        StatefulDaemon oak({"--state", directory.Path()});
        oak.Set("EncodeType", "5");
        oak.Set("ReelName", "Oak");
        oak.Stop();
    }
    {
        StatefulDaemon hazel({"--state", directory.Path()}, {"PRODUCT_ID=HAZEL"});
        EXPECT_THAT(hazel.Log(), HasSubstr("are of other models"));
        hazel.Stop();
    }
    StatefulDaemon oak({"--state", directory.Path()});
    EXPECT_EQ(oak.Text("ReelName"), "Oak");
}

TEST(MainstayState, OneDaemonADirectoryAndNoneWithout)
{
    const TemporaryDirectory directory;
    StatefulDaemon first({"--state", directory.Path()});
    const ProgramResult second =
        RunProgram({MAINSTAY, "--no-mq", "--no-udp", "--tcp-port", "0", "--state", directory.Path()}, "",
                   {"PRODUCT_ID=OAK"});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.err, HasSubstr("another daemon keeps its state in " + directory.Path()));
    StatefulDaemon without({}, {"PRODUCT_ID=OAK", "STATE_DIRECTORY"});
    EXPECT_THAT(without.Log(), HasSubstr("state not kept"));
    EXPECT_EQ(without.Preset("Save", 1), "2 Store Complete");  // until it ends
}

/// A client counts up in several parameters, and saves a preset now and then; the daemon is killed at any moment.
TEST(MainstayState, KilledAtAnyMomentItHasValuesThatWereSet)
{
    const TemporaryDirectory directory;
    std::mt19937 random(7);
    const std::array names{"ReelName", "SysName", "CustomClipName"};
    std::array<int, 3> kept{};
    int count = 0, saved = 0;
    for (int run = 0; run < 20; ++run) {
        StatefulDaemon daemon({"--state", directory.Path()});
        for (size_t i = 0; i < names.size(); ++i) {
            const int now = atoi(daemon.Text(names[i]).c_str());
            EXPECT_GE(now, kept[i]);
            EXPECT_LE(now, count);
            kept[i] = now;
        }
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(random() % 120);
        while (std::chrono::steady_clock::now() < end) {
            ++count;
            for (const char* const name : names) daemon.Set(name, std::to_string(count));
            if (count % 20 != 0) continue;
            EXPECT_EQ(daemon.Preset("Save", 3), "2 Store Complete");
            saved = count;
        }
        if (run == 19) std::this_thread::sleep_for(500ms);  // the interval is over, and the disk done
        daemon.Stop(SIGKILL);
    }
    StatefulDaemon daemon({"--state", directory.Path()});
    for (const char* const name : names) EXPECT_EQ(daemon.Text(name), std::to_string(count));
    EXPECT_EQ(daemon.Preset("Recall", 3), "2 Recall Complete");
    EXPECT_EQ(daemon.Text("ReelName"), std::to_string(saved));
    EXPECT_EQ(daemon.Text("CustomClipName"), std::to_string(saved));
}

TEST(MainstayState, PresetsBringBackEveryValueOnEveryModel)
{
    for (const char* const model :
         {"ALDER", "BIRCH", "CEDAR", "ELM", "HAZEL", "LARCH", "MAPLE", "OAK", "ROWAN", "WILLOW"}) {
        SCOPED_TRACE(model);
        const TemporaryDirectory media;
        StatefulDaemon daemon({"--media", media.Path()},
                              {std::string("PRODUCT_ID=") + model, "STATE_DIRECTORY"});
        vexa::Device& device = daemon.Device();
        ChangeAll(device);
        const auto saved = ValuesInRegisters(device);
        EXPECT_EQ(daemon.Preset("Save", 20), "2 Store Complete");
        ChangeAll(device);
        EXPECT_NE(ValuesInRegisters(device), saved);
        EXPECT_EQ(daemon.Preset("Recall", 20), "2 Recall Complete");
        EXPECT_EQ(ValuesInRegisters(device), saved);
    }
}

TEST(MainstayState, PresetsTravelOnTheMedia)
{
    const TemporaryDirectory media, directory;
    const std::string file = media / "preset_05.vexa";
    StatefulDaemon daemon({"--media", media.Path()}, {"PRODUCT_ID=OAK", "STATE_DIRECTORY"});
    daemon.Set("ReelName", "On the media é");
    EXPECT_EQ(daemon.Preset("Load", 5), "4 Preset Empty");
    EXPECT_EQ(daemon.Preset("Store", 5), "4 Preset Empty");
    EXPECT_EQ(daemon.Preset("Save", 5), "2 Store Complete");
    // What the media hold is not trusted, and nothing else is touched.
    const std::string other = directory / "other";
    WriteFile(other, "precious");
    fs::create_symlink(other, file + ".new");
    ASSERT_EQ(mkfifo((media / "preset_06.vexa").c_str(), 0600), 0);
    EXPECT_EQ(daemon.Preset("Load", 6), "3 Load Failed");
    fs::create_symlink(directory.Path(), media / "link");
    for (const std::string& path :
         {directory.Path(), std::string("../"), std::string("link"), std::string("none")}) {
        daemon.Device().Set("StoragePath", path);
        EXPECT_EQ(daemon.Preset("Store", 5), "3 Copy Failed") << path;
    }
    daemon.Device().Set("StoragePath", "");
    EXPECT_EQ(daemon.Preset("Store", 5), "2 Copy Complete");
    EXPECT_EQ(ReadFile(other), "precious");
    const std::string whole = ReadFile(file);
    daemon.Set("ReelName", "Other");
    daemon.Preset("Save", 5);
    std::string foreign = whole;
    foreign[11] = static_cast<char>(foreign[11] ^ 1);  // the product
    for (const std::string& bytes :
         {whole.substr(0, whole.size() - 1), whole + "x", foreign, std::string("garbage")}) {
        WriteFile(file, bytes);
        EXPECT_EQ(daemon.Preset("Load", 5), "3 Load Failed");
    }
    daemon.Preset("Recall", 5);
    EXPECT_EQ(daemon.Text("ReelName"), "Other");
    WriteFile(file, whole);
    EXPECT_EQ(daemon.Preset("Load", 5), "2 Load Complete");
    daemon.Preset("Recall", 5);
    EXPECT_EQ(daemon.Text("ReelName"), "On the media é");
}

TEST(MainstayState, FactoryResetAndAlarmsAndCommands)
{
    const TemporaryDirectory directory;
    const std::string script = directory / "reboot", config = directory / "mainstay.conf";
    WriteFile(script, "#!/bin/sh\necho \"$VEXA_PARAM $VEXA_VALUE $VEXA_TEXT\" $1\n");
    chmod(script.c_str(), 0700);
    WriteFile(
        config,
        "history = 500\n[action.SystemCommand.6]\nrun = [\"" + script +
            "\", \"now; not a shell\"]\n[action.SystemCommand.4]\nrun = [\"/bin/sleep\", \"60\"]\n"
            "timeout = 1\n[action.TransportCommand]\nrun = []\n[action.FanSpeed.80]\nrun = []\n"
            "[action.SystemPassword]\nrun = [\"/bin/true\"]\n[action.SysName]\nrun = [\"/bin/true\"]\n");
    StatefulDaemon daemon({"--config", config}, {"PRODUCT_ID=OAK", "STATE_DIRECTORY"});
    daemon.Set("ReelName", "Mine");
    daemon.Set("IPAddress", "10.1.2.3");
    daemon.Device().Set("FactorySettings", "Restore");
    EXPECT_TRUE(Eventually([&] { return daemon.Text("FactorySettings") == "0 Idle"; }));
    EXPECT_EQ(daemon.Text("ReelName"), "");
    EXPECT_EQ(daemon.Text("IPAddress"), "10.1.2.3");
    // Each command counts, however fast the next one follows.
    daemon.Device().SetMany({{eParamID_FactorySettings, 2U}, {eParamID_FactorySettings, 1U}});
    EXPECT_TRUE(Eventually([&] { return daemon.Text("IPAddress") == "192.168.0.2"; }));
    EXPECT_TRUE(Eventually([&] { return daemon.Text("FactorySettings") == "0 Idle"; }));
    daemon.Device().Set("Clear_Alarms", "Clear");
    EXPECT_TRUE(Eventually([&] { return daemon.Text("Clear_Alarms") == "0 Idle"; }));

    daemon.Device().Set("SystemCommand", "6");
    daemon.Device().Set("SystemCommand", "4");
    daemon.Device().Set("TransportCommand", "1");
    daemon.Device().Set("SystemCommand", "3");
    daemon.WaitForLog("SystemCommand 6 6 eSystemCommandReboot now; not a shell");
    daemon.WaitForLog(script + " done");
    daemon.WaitForLog("/bin/sleep took too long and was ended");
    daemon.WaitForLog("SystemCommand = 3 eSystemCommandStartup by tcp");
    daemon.Set("SystemPassword", "secret");
    daemon.Set("SysName", "x\nmainstay: forged");
    daemon.WaitForLog("SystemPassword ********: /bin/true done");
    daemon.WaitForLog("SysName x\\nmainstay: forged: /bin/true done");
    // Settings are no commands, so nobody is told that nothing else was done.
    EXPECT_THAT(daemon.Log(), AllOf(Not(HasSubstr("TransportCommand = ")), Not(HasSubstr("FanSpeed = ")),
                                    Not(HasSubstr("secret")), Not(HasSubstr("\nmainstay: forged"))));
}

TEST(MainstayState, ProgramsAreReadToTheEndEndedInTimeAndLeftRunningAtTheStop)
{
    const TemporaryDirectory directory;
    const std::string config = directory / "mainstay.conf", text = directory / "text",
                      tooMuch = directory / "too_much", script = directory / "restart";
    WriteFile(text, std::string(60'000, '#'));
    WriteFile(tooMuch, std::string(70'000, '+'));
    WriteFile(script, "#!/bin/sh\nuntil [ -e $0.go ]; do sleep 0.02; done\necho late\n: >$0.done\n");
    chmod(script.c_str(), 0700);
    WriteFile(config, "[action.SysName]\nrun = ['/bin/cat', '" + text +
                          "']\n[action.ReelName]\nrun = ['/bin/cat', '" + tooMuch +
                          "']\n[action.SystemCommand.6]\nrun = ['" + script +
                          "']\n[action.SystemCommand.4]\ntimeout = 1\nrun = ['/usr/bin/perl', '-e', "
                          "'$| = 1; setpgrp(0, getpgrp(getppid())); print \"$$\\n\"; sleep 60']\n");
    Program daemon({MAINSTAY, "--no-mq", "--no-udp", "--tcp-port", "0", "--config", config}, "",
                   {"PRODUCT_ID=OAK", "STATE_DIRECTORY"});
    daemon.WaitForOutput("mainstay: ready");
    {
        vexa::Device device("tcp://127.0.0.1:" + std::to_string(NumberAfter("TCP port ", daemon.Err())));
        ASSERT_TRUE(device.WaitUntilInStep(20s));
        for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
                 {"SysName", "x"}, {"ReelName", "x"}, {"SystemCommand", "4"}, {"SystemCommand", "6"}})
            device.Set(name, value);
        daemon.WaitForOutput("SysName x: /bin/cat done");
        daemon.WaitForOutput("ReelName x: /bin/cat done");
        daemon.WaitForOutput("says more than 64 KiB: the rest is left out");
        daemon.WaitForOutput("/usr/bin/perl took too long and was ended");
        daemon.WaitForOutput(script + " started");
        device.Set("SystemCommand", "4");
        device.Set("SystemCommand", "3");
        daemon.WaitForOutput("SystemCommand = 3");  // so the one before waits for its program
    }
    const std::string log = daemon.Err();
    EXPECT_EQ(std::ranges::count(log, '#'), 60'000);
    EXPECT_EQ(std::ranges::count(log, '+'), 65'536);
    EXPECT_EQ(kill(NumberAfter("/usr/bin/perl says: ", log), 0), -1);

    daemon.Signal(SIGTERM);
    const std::string end = daemon.Wait().err;
    EXPECT_THAT(end, HasSubstr(script + " still runs; the daemon stops without waiting for it"));
    EXPECT_THAT(end, HasSubstr("SystemCommand: 1 more waited for their program, and are not carried out"));
    WriteFile(script + ".go", "");
    EXPECT_TRUE(Eventually([&] { return access((script + ".done").c_str(), F_OK) == 0; }));
}

TEST(MainstayState, AConfigurationFileThatIsWrongIsOneLine)
{
    const TemporaryDirectory directory;
    const std::string config = directory / "mainstay.conf";
    for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
             {"tcp-prot = 1", config + ": unknown option tcp-prot"},
             {"state = true", config + ": line 1: \"state\" takes no true or false"},
             {"tcp-port = \"no\"", "tcp-port"},
             {"tcp-port = ", "line 1"},
             {"\n[action.NoSuch]\nrun = []", "action.NoSuch: there is no such parameter"},
             {"[action.SystemCommand.99]\nrun = []", "action.SystemCommand.99: "},
             {"[action.SystemCommand]\nrun = [\"reboot\"]", "line 2: a program is named by its whole path"},
             {"[action.SystemCommand.6]\nprogram = 1", "line 2: \"program\""},
             {"[action.SystemCommand]\nrnu = []", "line 2: \"rnu\""},
             {"[action.SystemCommand]\ntimeout = 1", "line 1: \"run\" is missing"},
             {"[action.SystemCommand]\n6 = [\"/x\"]", "line 2: \"6\""},
             {"[action.SystemCommand.6.a]\nrun = []", "line 1: \"a\""},
             {"[action.RegisterSave]\nrun = []", "line 1: action.RegisterSave: the daemon itself"},
             {"[action.Clear_Alarms.1]\nrun = []", "line 1: action.Clear_Alarms.1: the daemon itself"},
             {"[action.SW_Error_Alarm]\nrun = []", "line 1: action.SW_Error_Alarm: only numbers and texts"},
             {"[action.SystemCommand.6]\nrun = []\n[action.SystemCommand.eSystemCommandReboot]\nrun = []",
              "line 3: action.SystemCommand.eSystemCommandReboot: the same as action.SystemCommand.6"},
             {"commit-interval = nan", "--commit-interval: not a number"}}) {
        WriteFile(config, text);
        const ProgramResult result = RunProgram({MAINSTAY, "--config", config}, "", {"PRODUCT_ID=OAK"});
        EXPECT_EQ(result.status, 2) << text;
        EXPECT_THAT(result.err, AllOf(HasSubstr("mainstay: "), HasSubstr(message))) << text;
    }
}

/// Every configuration has its values, whoever opens it and whenever.
TEST(MainstayState, OtherConfigurationsAreKeptWhileNobodyUsesThem)
{
    const TemporaryDirectory directory;
    const std::string slow = "30";  // seconds to the disk: what nobody has written yet counts
    const auto tool = [](const StatefulDaemon& daemon, const std::vector<std::string>& arguments) {
        std::vector<std::string> command{VEXACTL, "--uri", daemon.Uri("/configid=3")};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return RunProgram(command).out;
    };
    {
        StatefulDaemon daemon({"--state", directory.Path(), "--commit-interval", slow});
        tool(daemon, {"set", "ReelName", "Three"});
        EXPECT_EQ(tool(daemon, {"get", "-r", "ReelName"}), "Three\n");
        tool(daemon, {"set", "ReelName", ""});
        EXPECT_EQ(tool(daemon, {"get", "-r", "ReelName"}), "\n");
        tool(daemon, {"set", "ReelName", "Three"});
        EXPECT_EQ(daemon.Text("ReelName"), "");
        daemon.Stop();
    }
    StatefulDaemon daemon({"--state", directory.Path()});
    EXPECT_EQ(tool(daemon, {"get", "-r", "ReelName"}), "Three\n");
}

TEST(MainstayState, TheControlSocketTellsWhatHappened)
{
    const TemporaryDirectory directory;
    StatefulDaemon daemon({"--state", directory.Path()});
    const auto tool = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {VEXACTL, "--control", directory / "control"});
        return RunProgram(arguments);
    };
    const std::string preset = directory / "preset";
    daemon.Set("ReelName", "One");
    daemon.Set("SystemPassword", "secret");
    daemon.Device().Set("SystemCommand", "3");
    daemon.WaitForLog("mainstay.conf has no action");
    EXPECT_EQ(tool({"presets", "save", "7", "Studio B"}).status, 0);
    EXPECT_EQ(tool({"presets", "export", "7", preset}).status, 0);
    EXPECT_EQ(daemon.Text("RegisterExportResult"), "2 Export Complete");
    daemon.Set("ReelName", "Two");
    EXPECT_EQ(tool({"presets", "import", preset, "8"}).status, 0);
    EXPECT_EQ(tool({"presets", "recall", "8"}).status, 0);
    EXPECT_EQ(tool({"presets", "recall", "9"}).status, 4);
    EXPECT_EQ(daemon.Text("ReelName"), "One");
    WriteFile(preset, "garbage");
    EXPECT_EQ(tool({"presets", "import", preset, "8"}).status, 4);
    EXPECT_EQ(daemon.Text("RegisterImportResult"), "3 Import Failed");
    EXPECT_THAT(tool({"presets"}).out, HasSubstr("Studio B"));

    const std::string log = tool({"log", "--json"}).out;
    EXPECT_THAT(log, AllOf(HasSubstr(R"("old":"","param":"ReelName")"), HasSubstr("recall 8"),
                           HasSubstr("tcp 127.0.0.1:"), Not(HasSubstr("secret"))));
    EXPECT_THAT(tool({"log", "FanSpeed"}).out, testing::IsEmpty());
    EXPECT_THAT(tool({"status"}).out,
                AllOf(HasSubstr("kept in " + directory.Path()), HasSubstr("SystemCommand = 3")));

    Program follower({VEXACTL, "--control", directory / "control", "log", "--follow", "ReelName"});
    follower.WaitForOutput("recall 8");
    daemon.Set("FanSpeed", "80 %");
    daemon.Set("ReelName", "Three");
    follower.WaitForOutput("One -> Three");
    EXPECT_THAT(follower.Out(), Not(HasSubstr("FanSpeed")));
}

/// A save that follows a recall at once has what was recalled.
TEST(MainstayState, PresetCommandsTakeTheirTurns)
{
    StatefulDaemon daemon({}, {"PRODUCT_ID=OAK", "STATE_DIRECTORY"});
    daemon.Set("ReelName", "recalled");
    daemon.Preset("Save", 2);
    daemon.Set("ReelName", "other");
    daemon.Device().SetMany({{eParamID_RegisterRecall, 2U}, {eParamID_RegisterSave, 3U}});
    EXPECT_TRUE(Eventually([&] { return daemon.Text("RegisterSaveResult") == "2 Store Complete"; }));
    daemon.Set("ReelName", "other");
    EXPECT_EQ(daemon.Preset("Recall", 3), "2 Recall Complete");
    EXPECT_EQ(daemon.Text("ReelName"), "recalled");
}

/// The device goes on, says so once, and writes everything when the disk is there again.
TEST(MainstayState, ADiskThatFailsIsSaidOnceAndStopsNothing)
{
    for (const Failure& failure :
         {Failure{faults::kPwrite, ENOSPC, kMany}, Failure{faults::kFsync, EIO, kMany}}) {
        const TemporaryDirectory directory;
        Faults faults;
        StatefulDaemon daemon({"--state", directory.Path()}, faults.Environment());
        daemon.Set("ReelName", "before");
        std::this_thread::sleep_for(200ms);
        faults.Arm(failure);
        daemon.Set("ReelName", "during");
        daemon.WaitForLog("cannot write the settings");
        daemon.Set("FanSpeed", "80 %");
        faults.Disarm(failure.call);
        daemon.WaitForLog("the settings are written again");
        daemon.Stop(SIGKILL);
        StatefulDaemon again({"--state", directory.Path()});
        EXPECT_EQ(again.Text("ReelName"), "during");
        EXPECT_EQ(again.Text("FanSpeed"), "80 %");
    }
}
/// Whatever fails at the start, the device serves, and keeps what it can as soon as it can.
TEST(MainstayState, ADirectoryThatCannotBeUsedYetIsTriedAgain)
{
    for (const faults::Call call : {faults::kPwrite, faults::kFsync, faults::kRename, faults::kOpen}) {
        SCOPED_TRACE(call);
        const TemporaryDirectory directory;
        WriteFile(directory / "settings.db", "garbage");
        Faults faults;
        faults.Arm({call, EROFS, kMany});
        StatefulDaemon daemon({"--state", directory.Path()}, faults.Environment());
        daemon.Set("FanSpeed", "80 %");
        daemon.WaitForLog("cannot write the settings");
        faults.Disarm(call);
        daemon.WaitForLog("the settings are written again");
        daemon.Stop(SIGKILL);
        EXPECT_EQ(StatefulDaemon({"--state", directory.Path()}).Text("FanSpeed"), "80 %");
    }
}
