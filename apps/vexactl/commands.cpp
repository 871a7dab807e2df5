#include "vexactl/commands.h"

#include <memory>

#include "vexactl/alarms.h"
#include "vexactl/apply.h"
#include "vexactl/catalogue.h"
#include "vexactl/control_verbs.h"
#include "vexactl/devices.h"
#include "vexactl/diff.h"
#include "vexactl/groups.h"
#include "vexactl/save.h"
#include "vexactl/set.h"
#include "vexactl/show.h"
#include "vexactl/watch.h"

namespace {

using Names = std::vector<std::string>;

/// The verbs of one command line.
class Verbs {
  public:
    Verbs(CLI::App& app, Session& session, ExitStatus& status, bool inShell)
        : m_app(app), m_session(session), m_status(status), m_inShell(inShell)
    {
        m_session.format.clear();  // of the command before
    }

    void AddAll()
    {
        AddParameters();
        Group("Parameters and alarms");
        AddSave();
        AddDiff();
        AddApply();
        AddReset();
        Group("Settings as files");
        AddControlVerbs(m_app, m_session, m_status);
        Group("The daemon of this machine");
    }

  private:
    void AddParameters()
    {
        AddList();
        RunAt(*m_app.add_subcommand("groups", "Show the groups of parameters, as list --group takes them"),
              Groups);
        AddInfo();
        AddGet();
        AddSet();
        AddWait();
        AddWatch();
        RunAt(*m_app.add_subcommand("ping", "Show what the device is, and how fast it answers"), Ping);
        AddAlarms();
        AddCatalogue();
    }
    /// Gives those a heading in the help that have none.
    void Group(const std::string& heading)
    {
        for (CLI::App* const verb : m_app.get_subcommands([](const CLI::App*) { return true; }))
            if (verb->get_group() == m_app.get_group()) verb->group(heading);
    }
    /// @param run  called with the session of each device.
    template <class Run>
    void RunAt(CLI::App& command, Run run, bool endsSoon = true) const
    {
        command.footer(
            "--json, -d DEVICE, --timeout S and the other options of \"vexactl --help\" may follow.");
        command.callback(
            [=, &session = m_session, &status = m_status] { status = OnDevices(session, run, endsSoon); });
    }
    std::shared_ptr<Names> AddNames(CLI::App& command, const char* help)
    {
        auto names = std::make_shared<Names>();
        command.add_option("PARAMETER", *names, help)->type_name("");
        return names;
    }
    void AddFormat(CLI::App& command)
    {
        command
            .add_option("--format", m_session.format,
                        "Each value like this: %n name, %N name for people, %v value, %u units, %t time, %d "
                        "device, %% percent")
            ->type_name("TEXT");
    }
    void AddGet();
    void AddList();
    void AddSet();
    void AddWatch();
    void AddWait();
    void AddInfo();
    void AddAlarms();
    void AddCatalogue();
    void AddSave();
    void AddDiff();
    void AddApply();
    void AddReset();
    static void AddDryRun(CLI::App& command, bool& dryRun)
    {
        command.add_flag("--dry-run", dryRun, "Show what would change");
    }
    static void AddConfirm(CLI::App& command, std::optional<double>& seconds);
    std::shared_ptr<WatchOptions> AddWatchOptions(CLI::App& watch);

    CLI::App& m_app;
    Session& m_session;
    ExitStatus& m_status;
    const bool m_inShell;
};

void Verbs::AddGet()
{
    auto* const get = m_app.add_subcommand("get", "Show values");
    const auto names = AddNames(*get, "Names, with * and ? for many");
    get->get_option("PARAMETER")->required();
    const auto bare = std::make_shared<bool>(false);
    get->add_flag("-r,--raw", *bare, "The values alone, as set takes them");
    AddFormat(*get);
    RunAt(*get, [=](Session& session) { return Get(session, *names, *bare); });
}

void Verbs::AddList()
{
    auto* const list = m_app.add_subcommand("list", "Show parameters with their values");
    const auto filter = std::make_shared<Filter>();
    list->add_option("PATTERN", filter->patterns,
                     "Only names like this, with * and ?; alarms and data without a value are shown for a "
                     "PATTERN alone")
        ->type_name("");
    list->add_option_function<std::string>(
            "--group", [filter](const std::string& group) { filter->group = GroupOf(group); },
            "Only this group, by name or number: the high byte of the identifier; groups shows them")
        ->check([](const std::string& group) {
            return GroupOf(group) ? "" : Quoted(group) + " is none; \"groups\" shows them";
        })
        ->type_name("GROUP");
    list->add_option("--class", filter->className, "Only parameters with this class name")->type_name("NAME");
    list->add_flag("--changed", filter->changed, "Only values that differ from the factory default");
    AddFormat(*list);
    RunAt(*list, [=](Session& session) { return List(session, *filter); });
}

void Verbs::AddSet()
{
    auto* const set = m_app.add_subcommand("set", "Change values and read them back");
    const auto words = std::make_shared<Names>();
    const auto options = std::make_shared<SetOptions>();
    set->add_option("PARAMETER VALUE", *words,
                    "PARAMETER VALUE, or PARAMETER=VALUE once or more: all are checked before one is sent. A "
                    "VALUE is what get shows, or - for a line of standard input; one that begins with - goes "
                    "behind = or --")
        ->type_name("")
        ->required();
    set->add_flag("--force", options->force, "Set a read-only parameter, too");
    set->add_flag("-y,--yes", options->yes, "Do not ask before commands that cannot be taken back");
    AddConfirm(*set, options->confirm);
    RunAt(*set, [=](Session& session) { return Set(session, *words, *options); });
}

std::shared_ptr<WatchOptions> Verbs::AddWatchOptions(CLI::App& watch)
{
    auto options = std::make_shared<WatchOptions>();
    watch.add_option("--count", options->changes, "End after so many changes; 7 when --for ends first")
        ->check(CLI::PositiveNumber.description(""))
        ->type_name("NUMBER");
    watch.add_option("--for", options->seconds, "End after so many seconds")
        ->check(SecondsValidator())
        ->type_name("SECONDS");
    watch.add_flag("--initial", options->initial, "Begin with the values");
    watch.add_flag("--follow", options->follow,
                   "Go on after a lost connection, and show what changed meanwhile");
    AddFormat(watch);
    return options;
}

void Verbs::AddWatch()
{
    auto* const watch = m_app.add_subcommand("watch", "Show every change: time, parameter, value");
    const auto names = AddNames(*watch, "Only these, with * and ? for many; all when none is named");
    const auto options = AddWatchOptions(*watch);
    RunAt(
        *watch,
        [=, inShell = m_inShell](Session& session) { return Watch(session, *names, *options, inShell); },
        false);
    if (m_inShell)
        m_app.add_subcommand("unwatch", "Show changes no longer")->callback([&session = m_session] {
            session.StopWatch();
        });
}

void Verbs::AddWait()
{
    auto* const wait = m_app.add_subcommand("wait", "Wait until a parameter has a value");
    const auto condition = std::make_shared<std::string>();
    const auto seconds = std::make_shared<std::optional<double>>();
    wait->add_option("CONDITION", *condition, "PARAMETER=VALUE, or with !=, < or >")
        ->type_name("")
        ->required();
    wait->add_option("--for", *seconds, "So many seconds at most, then 7")
        ->check(SecondsValidator())
        ->type_name("SECONDS");
    AddFormat(*wait);
    RunAt(*wait, [=](Session& session) { return Wait(session, *condition, *seconds); });
}

void Verbs::AddInfo()
{
    auto* const info = m_app.add_subcommand("info", "Describe parameters; those of --model without a device");
    const auto names = AddNames(*info, "Names, with * and ? for many");
    info->get_option("PARAMETER")->required();
    RunAt(*info, [=](Session& session) { return Info(session, *names); });
}

void Verbs::AddAlarms()
{
    struct Words {
        std::string name, severity, text;
    };
    const auto words = std::make_shared<Words>();
    auto* const alarms = m_app.add_subcommand("alarms", "Show, raise, clear and watch alarms");
    alarms->require_subcommand(1);
    alarms->footer("Alarms travel over UDP: a device at TCP is asked at the same host and port.");
    RunAt(*alarms->add_subcommand("list", "All alarms of the model"),
          [](Session& session) { return ListAlarms(session, false); });
    RunAt(*alarms->add_subcommand("raised", "Those that are raised"),
          [](Session& session) { return ListAlarms(session, true); });
    auto* const raise = alarms->add_subcommand("raise", "Raise an alarm");
    raise->add_option("ALARM", words->name)->type_name("")->required();
    raise->add_option("WHAT", words->text, "What happened")->type_name("");
    raise->add_option("--severity", words->severity, "INFORMATION, WARNING, ERROR or CRITICAL")
        ->type_name("NAME");
    RunAt(*raise,
          [=](Session& session) { return RaiseAlarm(session, words->name, words->severity, words->text); });
    auto* const clear = alarms->add_subcommand("clear", "Put an alarm back to rest");
    clear->add_option("ALARM", words->name)->type_name("")->required();
    RunAt(*clear, [=](Session& session) { return ClearAlarm(session, words->name); });
    auto* const watch = alarms->add_subcommand("watch", "Show every change of an alarm");
    const auto options = AddWatchOptions(*watch);
    options->alarms = true;
    RunAt(
        *watch,
        [=, inShell = m_inShell](Session& session) {
            return Watch(session, AlarmNames(session), *options, inShell);
        },
        false);
}

void Verbs::AddCatalogue()
{
    auto* const catalogue = m_app.add_subcommand(
        "catalogue",
        "Describe all parameters as JSON: of the device, of --model, or of this machine's model");
    const auto markdown = std::make_shared<bool>(false);
    catalogue->add_flag("--markdown", *markdown, "As a reference page to read");
    RunAt(*catalogue, [=](Session& session) { return PrintCatalogue(session, *markdown); });
}

void Verbs::AddConfirm(CLI::App& command, std::optional<double>& seconds)
{
    command
        .add_option("--confirm", seconds,
                    "Ask whether to keep the new values, for so many seconds; without a yes the old ones are "
                    "put back")
        ->check(SecondsValidator())
        ->type_name("SECONDS");
}

void Verbs::AddSave()
{
    auto* const save =
        m_app.add_subcommand("save", "Write the settings as a file: those that the device keeps");
    const auto options = std::make_shared<SaveOptions>();
    save->add_option("FILE", options->file, "Replaced as a whole; standard output when there is none")
        ->type_name("");
    save->add_flag("--secrets", options->secrets, "Passwords, too; the file is its user's alone then");
    RunAt(*save, [=](Session& session) { return Save(session, *options); });
}

void Verbs::AddDiff()
{
    auto* const diff = m_app.add_subcommand("diff", "Compare settings; 1 when they differ");
    const auto words = std::make_shared<std::pair<std::string, std::string>>();
    diff->add_option("FILE", words->first, "A file, a device, or \"defaults\"")->type_name("")->required();
    diff->add_option("FILE_OR_DEVICE", words->second, "What it is compared with; otherwise the device of -d")
        ->type_name("");
    RunAt(*diff, [=](Session& session) { return Diff(session, words->first, words->second); });
}

void Verbs::AddApply()
{
    auto* const apply = m_app.add_subcommand("apply", "Set what a file of settings says: all or nothing");
    const auto options = std::make_shared<ApplyOptions>();
    apply->add_option("FILE", options->file, "As save writes it")->type_name("")->required();
    AddDryRun(*apply, options->dryRun);
    apply
        ->add_option("--only", options->only,
                     "Only names like this, with * and ?; may be given more than once")
        ->expected(1)
        ->type_name("PATTERN")
        ->take_all();
    AddConfirm(*apply, options->confirm);
    RunAt(*apply, [=](Session& session) { return Apply(session, *options); });
}

void Verbs::AddReset()
{
    auto* const reset = m_app.add_subcommand("reset", "Set factory defaults: all or nothing");
    const auto options = std::make_shared<ResetOptions>();
    reset->add_option("PARAMETER", options->names, "Names, with * and ? for many")->type_name("");
    auto* const all =
        reset->add_flag("--all", options->all, "What a factory reset concerns, but not the network");
    reset->add_flag("--network", options->network, "The network, too")->needs(all);
    AddDryRun(*reset, options->dryRun);
    AddConfirm(*reset, options->confirm);
    RunAt(*reset, [=](Session& session) { return Reset(session, *options); });
}

}  // namespace

void AddCommands(CLI::App& app, Session& session, ExitStatus& status, bool inShell)
{
    Verbs(app, session, status, inShell).AddAll();
}

CLI::Validator SecondsValidator()
{
    return CLI::Validator(
        [](const std::string& text) {
            constexpr double kLongest = 1e9;
            double seconds = 0;
            const bool isNumber = CLI::detail::lexical_cast(text, seconds);
            return isNumber && seconds >= 0 && seconds <= kLongest ? "" : "takes 0 to 1000000000 seconds";
        },
        "");
}

std::string Explain(const CLI::App& app, const CLI::ParseError& error)
{
    const auto unknown = app.remaining();
    if (app.get_subcommands().empty() && !unknown.empty())
        return "unknown command " + Quoted(unknown.front());
    if (app.get_subcommands().empty() && error.get_name() == "RequiredError") return "a command is needed";
    return error.what();
}
