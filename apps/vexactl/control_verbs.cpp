#include "vexactl/control_verbs.h"

#include <algorithm>
#include <functional>
#include <memory>

#include "config/base/base64.h"
#include "device/address.h"
#include "vexactl/control_client.h"
#include "vexactl/files.h"
#include "vexactl/times.h"

namespace {

constexpr unsigned int kPresets = 20;

/// The member of an object as a text; empty without one.
std::string TextOf(const Json& object, const char* name)
{
    const auto found = object.find(name);
    if (found == object.end() || found->is_null()) return "";
    return found->is_string() ? found->get<std::string>() : Dump(*found);
}

const Json& ListOf(const Json& object, const char* name)
{
    static const Json none = Json::array();
    const auto found = object.find(name);
    return found != object.end() && found->is_array() ? *found : none;
}

/// Columns with headings, each as wide as its widest text.
void PrintTable(Session& session, const std::vector<std::vector<std::string>>& rows)
{
    std::vector<size_t> widths(rows.front().size());
    for (const auto& row : rows)
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    for (const auto& row : rows) {
        std::string line;
        for (size_t i = 0; i + 1 < row.size(); ++i) line += Padded(row[i], widths[i]) + "  ";
        line += row.back();
        session.Print(line.substr(0, line.find_last_not_of(' ') + 1));
    }
}

/// With --json, one object a line. @return whether they were printed.
bool PrintedAsJson(Session& session, const Json& list)
{
    if (!session.json) return false;
    for (const Json& entry : list) session.Print(entry);
    return true;
}

/// The control socket is of this machine, and a device that was named may be another one.
bool IsThisMachine(const Session& session)
{
    if (!session.hasDevice || session.queues || !session.control.empty()) return true;
    std::string ignored;
    const auto address = vexa::DeviceAddress::Parse(session.uri, ignored);
    if (!address) return false;
    if (address->transport == vexa::Transport::kQueue) return true;
    const bool isLoopback =
        address->host == "127.0.0.1" || address->host == "::1" || address->host == "localhost";
    return isLoopback && address->port == vexa::DeviceAddress::kUsualPort;
}

// --- status, clients, stats, confirm ---

std::string StateText(const Json& state)
{
    const std::string file = TextOf(state, "file"), saved = TextOf(state, "saved");
    if (!state.value("kept", false)) return "not kept";
    const auto waiting = state.value("waiting", size_t{0});
    return "kept in " + file + ", " + (saved.empty() ? "not saved yet" : "saved " + LocalText(saved)) +
           (waiting > 0 ? ", " + std::to_string(waiting) + " changes wait" : "");
}

void PrintStatus(Session& session, const Json& answer)
{
    constexpr size_t kWidth = 10;
    const auto print = [&](const char* what, const std::string& text) {
        if (!text.empty()) session.Print(Padded(what, kWidth) + text);
    };
    const std::string model = TextOf(answer, "model");
    print("mainstay", TextOf(answer, "version") + ", " + (model.empty() ? "no model" : "model " + model) +
                          ", since " + LocalText(TextOf(answer, "since")));
    for (const Json& endpoint : ListOf(answer, "endpoints")) print("serves", endpoint.get<std::string>());
    for (const Json& rule : ListOf(answer, "rules")) print("rule", rule.get<std::string>());
    print("denied", TextOf(answer, "denied"));
    const Json state = answer.value("state", Json::object()), locale = answer.value("locale", Json::object());
    print("state", StateText(state));
    print("problem", TextOf(state, "problem"));
    for (const Json& note : ListOf(state, "notes")) print("note", note.get<std::string>());
    const std::string active = TextOf(locale, "active"), next = TextOf(locale, "next");
    print("locale", active + (next.empty() || next == active ? "" : ", after the next start " + next));
    for (const Json& note : ListOf(answer, "notes")) print("note", note.get<std::string>());
}

ExitStatus Status(Session& session)
{
    const Json answer = ControlClient(session).Ask({{"request", "status"}});
    session.json ? session.Print(answer) : PrintStatus(session, answer);
    return ExitStatus::kDone;
}

ExitStatus Clients(Session& session)
{
    const Json answer = ControlClient(session).Ask({{"request", "clients"}});
    const Json& clients = ListOf(answer, "clients");
    if (PrintedAsJson(session, clients)) return ExitStatus::kDone;
    std::vector<std::vector<std::string>> rows{{"TRANSPORT", "SINCE", "CONFIG", "LISTENS", "WAITING",
                                                "SKIPPED", "REQUESTS", "SETS", "RIGHT", "DENIED", "ADDRESS",
                                                "PROGRAM"}};
    for (const Json& client : clients)
        rows.push_back({TextOf(client, "transport"), LocalText(TextOf(client, "since")),
                        TextOf(client, "config"), client.value("listens", false) ? "yes" : "no",
                        TextOf(client, "waiting"), TextOf(client, "skipped"), TextOf(client, "requests"),
                        TextOf(client, "sets"), TextOf(client, "right"), TextOf(client, "denied"),
                        TextOf(client, "address"), TextOf(client, "program")});
    PrintTable(session, rows);
    return ExitStatus::kDone;
}

/// "tcp.requests.get  5", one count a line.
void PrintCounts(Session& session, const std::string& name, const Json& value)
{
    if (!value.is_object()) return session.Print(Padded(name, 32) + "  " + Dump(value));
    for (const auto& [part, inner] : value.items())
        PrintCounts(session, std::string(name).append(name.empty() ? "" : ".").append(part), inner);
}

ExitStatus Stats(Session& session, bool forPrometheus)
{
    ControlClient client(session);
    if (forPrometheus) {
        std::string text = TextOf(client.Ask({{"request", "stats"}, {"format", "prometheus"}}), "text");
        if (text.ends_with('\n')) text.pop_back();
        session.PrintExactly(text);
        return ExitStatus::kDone;
    }
    const Json stats = client.Ask({{"request", "stats"}}).value("stats", Json::object());
    session.json ? session.Print(stats) : PrintCounts(session, "", stats);
    return ExitStatus::kDone;
}

ExitStatus Confirm(Session& session, unsigned int number)
{
    Json request{{"request", "confirm"}};
    if (number != 0) request["hold"] = number;
    const Json answer = ControlClient(session).Ask(request);
    const auto confirmed = answer.value("confirmed", size_t{0});
    if (confirmed == 0) return session.Fail(ExitStatus::kFalse, "nothing waits to be confirmed");
    if (session.json)
        session.Print(answer);
    else
        session.Print("confirmed " + std::to_string(confirmed) + (confirmed == 1 ? " change" : " changes"));
    return ExitStatus::kDone;
}

// --- log ---

struct LogOptions {
    std::vector<std::string> parameters;
    std::string since;
    unsigned int limit = 1000;
    bool follow = false;
};

void PrintChange(Session& session, const Json& change)
{
    if (session.json) return session.Print(change);
    const int config = change.value("config", 0);
    session.Print(LocalText(TextOf(change, "time")) + "  " +
                  (config == 0 ? "" : "config " + std::to_string(config) + "  ") + TextOf(change, "param") +
                  "  " + TextOf(change, "old") + " -> " + TextOf(change, "new") + "  (" +
                  TextOf(change, "who") + ")");
}

/// "2026-11-22 12:10:44  FanSpeed  set 80 denied  (udp 10.0.0.5:4711: its right is read, and this takes write)"
void PrintDenial(Session& session, const Json& denial)
{
    if (session.json) return session.Print(denial);
    const int config = denial.value("config", 0);
    const std::string param = TextOf(denial, "param"), value = TextOf(denial, "value");
    const auto times = denial.value("times", uint64_t{1});
    session.Print(LocalText(TextOf(denial, "time")) + "  " +
                  (config == 0 ? "" : "config " + std::to_string(config) + "  ") +
                  (param.empty() ? "" : param + "  ") + TextOf(denial, "asked") +
                  (value.empty() ? "" : " " + value) + " denied" +
                  (times == 1 ? "" : " " + std::to_string(times) + " times") + "  (" + TextOf(denial, "who") +
                  ": " + TextOf(denial, "why") + ")");
}

/// Changes and what was denied, by their times.
void PrintLog(Session& session, const Json& answer)
{
    const Json &changes = ListOf(answer, "changes"), &denials = ListOf(answer, "denied");
    auto denial = denials.begin();
    for (const Json& change : changes) {
        for (; denial != denials.end() && TextOf(*denial, "time") < TextOf(change, "time"); ++denial)
            PrintDenial(session, *denial);
        PrintChange(session, change);
    }
    for (; denial != denials.end(); ++denial) PrintDenial(session, *denial);
}

ExitStatus Log(Session& session, const LogOptions& options)
{
    Json request{{"request", "log"},
                 {"since", nullptr},
                 {"params", options.parameters},
                 {"follow", options.follow},
                 {"limit", options.limit}};
    if (!options.since.empty()) {
        const auto since = ParseTime(options.since, time(nullptr));
        if (!since)
            return session.Fail(
                ExitStatus::kUsage,
                Quoted(options.since) + " is no time; \"10m\", \"2h\" and \"2026-02-28 13:05\" are");
        request["since"] = UtcText(*since);
    }
    ControlClient client(session);
    const Json answer = client.Ask(request);
    PrintLog(session, answer);
    while (options.follow) {
        const Json line = client.Next();
        const auto change = line.find("change"), denied = line.find("denied");
        if (change != line.end())
            PrintChange(session, *change);
        else if (denied != line.end())
            PrintDenial(session, *denied);
        else if (line.contains("skipped"))
            session.Note(TextOf(line, "skipped") + " changes were left out", line);
    }
    return ExitStatus::kDone;
}

// --- presets ---

ExitStatus ListPresets(Session& session)
{
    const Json answer = ControlClient(session).Ask({{"request", "presets"}, {"do", "list"}});
    const Json& presets = ListOf(answer, "presets");
    if (PrintedAsJson(session, presets)) return ExitStatus::kDone;
    if (presets.empty()) return session.Fail(ExitStatus::kFalse, "no preset is saved");
    std::vector<std::vector<std::string>> rows{{"NUMBER", "SAVED", "VALUES", "NAME"}};
    for (const Json& preset : presets)
        rows.push_back({TextOf(preset, "number"), LocalText(TextOf(preset, "saved")),
                        TextOf(preset, "values"), TextOf(preset, "name")});
    PrintTable(session, rows);
    return ExitStatus::kDone;
}

/// What became of a request that changes presets, or values. @return kRefused when not all was done.
ExitStatus TellResult(Session& session, const Json& answer, const std::string& otherwise)
{
    const std::string result = TextOf(answer, "result");
    if (session.json)
        session.Print(answer);
    else
        session.Print(result.empty() ? otherwise : result);
    const Json& refused = ListOf(answer, "refused");
    if (!session.json)
        for (const Json& entry : refused)
            session.Complain(TextOf(entry, "param") + " refused: " + TextOf(entry, "reason"));
    const bool isComplete = result.empty() || result.ends_with("Complete");
    return isComplete && refused.empty() ? ExitStatus::kDone : ExitStatus::kRefused;
}

ExitStatus ExportPreset(Session& session, const Json& request, const std::string& file)
{
    const auto bytes = vexa::FromBase64(TextOf(ControlClient(session).Ask(request), "file"));
    if (!bytes) throw ConnectionError("the daemon has sent no file");
    if (const std::string reason = WriteNewFile(file, *bytes, false); !reason.empty())
        return session.Fail(ExitStatus::kFalse, "cannot write " + Quoted(file) + ": " + reason);
    session.json ? session.Print(Json{{"file", file}, {"bytes", bytes->size()}})
                 : session.Print("exported " + std::to_string(bytes->size()) + " bytes to " + file);
    return ExitStatus::kDone;
}

ExitStatus ImportPreset(Session& session, Json request, const std::string& file)
{
    constexpr size_t kMaxBytes = size_t{700} * 1024;  // a request is at most a megabyte
    std::string reason;
    const auto bytes = ReadFile(file, kMaxBytes, reason);
    if (!bytes) return session.Fail(ExitStatus::kUsage, "cannot read " + Quoted(file) + ": " + reason);
    request["file"] = vexa::ToBase64(*bytes);
    return TellResult(session, ControlClient(session).Ask(request), "imported");
}

// --- the grammar ---

/// A failure leaves the connection to the device alone, which is another one.
template <class Run>
ExitStatus RunGuarded(Session& session, const std::string& verb, const Run& run)
try {
    if (IsThisMachine(session)) return run(session);
    return session.Fail(ExitStatus::kUsage,
                        Quoted(verb) +
                            " asks the daemon of this machine: --control PATH names its socket; -d " +
                            session.uri + " may be another device");
} catch (const ConnectionError& error) {
    return session.Fail(error.status, error.what());
} catch (const Json::exception&) {
    return session.Fail(ExitStatus::kCannotConnect, "the daemon's answer is not understood");
}

class ControlVerbs {
  public:
    ControlVerbs(CLI::App& app, Session& session, ExitStatus& status)
        : m_app(app), m_session(session), m_status(status)
    {
    }
    void AddAll()
    {
        RunAs(*m_app.add_subcommand("status", "Show how the daemon of this machine is"), Status);
        RunAs(*m_app.add_subcommand("clients", "Show who is connected to the daemon of this machine"),
              Clients);
        AddLog();
        AddPresets();
        AddStats();
        AddConfirm();
    }

  private:
    template <class Run>
    void RunAs(CLI::App& command, Run run) const
    {
        command.footer(
            "It is asked through its control socket: --control PATH, $VEXACTL_CONTROL, or "
            "/run/mainstay/control.");
        command.callback([&command, &session = m_session, &status = m_status, run] {
            const bool isOfAnother = !command.get_subcommands().empty();  // "presets save": that one runs
            if (!isOfAnother) status = RunGuarded(session, command.get_name(), run);
        });
    }
    void AddLog();
    void AddPresets();
    void AddPreset(CLI::App& presets, const char* verb, const char* help, bool isNamed);
    void AddPresetFile(CLI::App& presets, bool exports);
    void AddStats();
    void AddConfirm();
    static CLI::Option* AddNumber(CLI::App& command, const std::shared_ptr<unsigned int>& number)
    {
        return command.add_option("NUMBER", *number, "1 to 20")
            ->check(CLI::Range(1u, kPresets).description(""))
            ->type_name("")
            ->required();
    }

    CLI::App& m_app;
    Session& m_session;
    ExitStatus& m_status;
};

void ControlVerbs::AddLog()
{
    auto* const log = m_app.add_subcommand("log", "Show what was changed or denied, when and by whom");
    const auto options = std::make_shared<LogOptions>();
    log->add_option("PARAMETER", options->parameters, "Only these")->type_name("");
    log->add_option("--since", options->since, "Only later ones: 30s, 10m, 2h, 7d ago, or a date and time")
        ->type_name("TIME");
    log->add_option("--limit", options->limit, "At most so many, the newest")->type_name("NUMBER");
    log->add_flag("--follow", options->follow, "Go on with what is changed from now on");
    RunAs(*log, [=](Session& session) { return Log(session, *options); });
}

void ControlVerbs::AddPreset(CLI::App& presets, const char* verb, const char* help, bool isNamed)
{
    auto* const command = presets.add_subcommand(verb, help);
    const auto number = std::make_shared<unsigned int>();
    const auto name = std::make_shared<std::string>();
    AddNumber(*command, number);
    if (isNamed) command->add_option("NAME", *name, "How it is called")->type_name("");
    RunAs(*command, [=](Session& session) {
        Json request{{"request", "presets"}, {"do", verb}, {"number", *number}};
        if (!name->empty()) request["name"] = *name;
        return TellResult(session, ControlClient(session).Ask(request), std::string(verb) + " done");
    });
}

void ControlVerbs::AddPresetFile(CLI::App& presets, bool exports)
{
    auto* const command = exports ? presets.add_subcommand("export", "Write a preset to a file")
                                  : presets.add_subcommand("import", "Take a preset from a file");
    const auto number = std::make_shared<unsigned int>();
    const auto file = std::make_shared<std::string>();
    if (exports) AddNumber(*command, number);
    command->add_option("FILE", *file)->type_name("")->required();
    if (!exports) AddNumber(*command, number);
    RunAs(*command, [=](Session& session) {
        const Json request{
            {"request", "presets"}, {"do", exports ? "export" : "import"}, {"number", *number}};
        return exports ? ExportPreset(session, request, *file) : ImportPreset(session, request, *file);
    });
}

void ControlVerbs::AddPresets()
{
    auto* const presets =
        m_app.add_subcommand("presets", "List, save, recall, delete, export and import presets");
    presets->require_subcommand(0, 1);
    AddPreset(*presets, "save", "Save the settings of now", true);
    AddPreset(*presets, "recall", "Put saved settings back", false);
    AddPreset(*presets, "delete", "Forget a preset", false);
    AddPresetFile(*presets, true);
    AddPresetFile(*presets, false);
    RunAs(*presets, ListPresets);
}

void ControlVerbs::AddStats()
{
    auto* const stats = m_app.add_subcommand("stats", "Show the counters of the daemon of this machine");
    const auto forPrometheus = std::make_shared<bool>(false);
    stats->add_flag("--prometheus", *forPrometheus, "As text for Prometheus");
    RunAs(*stats, [=](Session& session) { return Stats(session, *forPrometheus); });
}

void ControlVerbs::AddConfirm()
{
    auto* const confirm =
        m_app.add_subcommand("confirm", "Keep changes that the daemon would undo otherwise");
    const auto number = std::make_shared<unsigned int>(0);
    confirm->add_option("NUMBER", *number, "Only the one of this number; else all that wait")->type_name("");
    RunAs(*confirm, [=](Session& session) { return Confirm(session, *number); });
}

}  // namespace

void AddControlVerbs(CLI::App& app, Session& session, ExitStatus& status)
{
    ControlVerbs(app, session, status).AddAll();
}
