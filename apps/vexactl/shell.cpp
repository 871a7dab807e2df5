#include "vexactl/shell.h"

#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "device/address.h"
#include "vexactl/commands.h"
#include "vexactl/completion.h"
#include "vexactl/history_file.h"
#include "vexactl/line_editor.h"
#include "vexactl/words.h"

namespace {

/// The commands of one line, before it is known.
class Grammar {
  public:
    explicit Grammar(Session& session) : m_session(session)
    {
        m_app.require_subcommand(1);
        AddCommands(m_app, session, status, true);
        m_app.add_subcommand("quit", "Leave the shell")->alias("exit")->callback([this] { quits = true; });
        m_app.add_subcommand("help", "Show the commands")->callback([this] {
            m_session.Print(m_app.get_formatter()->make_help(&m_app, "", CLI::AppFormatMode::Normal));
        });
    }
    CLI::App& App() { return m_app; }

    ExitStatus status = ExitStatus::kDone;
    bool quits = false;

  private:
    Session& m_session;
    CLI::App m_app{"Commands of the shell; a line starting with # is a comment", ""};
};

/// Lines of a script, or of a person.
class Input {
  public:
    explicit Input(Session& session);

    bool IsTyped() const { return m_editor != nullptr; }
    std::optional<std::string> Read();

  private:
    std::optional<std::string> ReadTyped();
    void Remember(const std::string& line);
    Catalogues OfDevice() const { return {vexa::Catalogue::Of(m_session.Parameters().Model())}; }

    Session& m_session;
    const std::string m_prompt;
    const HistoryFile m_history{HistoryFile::UsualPath()};
    std::string m_last;
    std::unique_ptr<LineEditor> m_editor;
};

/// "rec-7> ": what a person calls the device.
std::string PromptFor(const Session& session)
{
    std::string ignored;
    const auto address = vexa::DeviceAddress::Parse(session.queues ? "mq:" : session.uri, ignored);
    if (!address) return "vexactl> ";
    if (address->transport == vexa::Transport::kQueue) return "mq> ";
    if (address->transport == vexa::Transport::kLocal) return "local> ";
    const bool isUsual = address->port == vexa::DeviceAddress::kUsualPort;
    return address->host + (isUsual ? "" : ":" + std::to_string(address->port)) + "> ";
}

bool IsTerminal()
{
    return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
}

Input::Input(Session& session) : m_session(session), m_prompt(PromptFor(session))
{
    if (!IsTerminal()) return;
    m_editor = std::make_unique<LineEditor>(
        [this](const std::string& before) {
            return CompleteLine(Grammar(m_session).App(), before, OfDevice());
        },
        std::vector{STDOUT_FILENO, STDERR_FILENO});
    for (const std::string& line : m_history.Load()) m_editor->Remember(line);
}

/// A signal meanwhile ends the tool, with the terminal as it was.
std::optional<std::string> Input::Read()
{
    termios settings{};
    const bool hasSettings = IsTyped() && tcgetattr(STDIN_FILENO, &settings) == 0;
    const Interrupts::Idle idle([&] {
        if (hasSettings) tcsetattr(STDIN_FILENO, TCSANOW, &settings);
        m_session.Disconnect();
    });
    if (IsTyped()) return ReadTyped();
    std::string line;
    return std::getline(std::cin, line) ? std::optional(line) : std::nullopt;
}

std::optional<std::string> Input::ReadTyped()
{
    auto line = m_editor->Read(m_prompt);
    while (line && line->ends_with(' ')) line->pop_back();  // a completion leaves one
    if (line) Remember(*line);
    return line;
}

/// But for a line that begins with a blank, and passwords.
void Input::Remember(const std::string& line)
{
    if (line.empty() || line.front() == ' ' || line == m_last) return;
    if (SetsSecret(ParseLine(line).words, OfDevice())) return;
    m_last = line;
    m_editor->Remember(line);
    m_history.Append(line);
}

ExitStatus RunCommand(Session& session, std::vector<std::string> words, bool& quits)
{
    Grammar grammar(session);
    CLI::App& app = grammar.App();
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::Success& help) {
        app.exit(help);
    } catch (const CLI::ParseError& error) {
        session.Complain(Explain(app, error));
        grammar.status = ExitStatus::kUsage;
    } catch (const ConnectionError& error) {
        grammar.status = session.Fail(error.status, error.what());
        session.Disconnect();
    } catch (const std::exception& error) {  // no memory for this command
        session.Complain(error.what());
        grammar.status = ExitStatus::kCannotConnect;
    }
    quits = grammar.quits;
    return grammar.status;
}

ExitStatus RunLine(Session& session, const std::string& line, bool& quits)
{
    const auto words = SplitWords(line);
    if (!words) {
        session.Complain("a quote is not closed");
        return ExitStatus::kUsage;
    }
    return words->empty() ? ExitStatus::kDone : RunCommand(session, *words, quits);
}

/// @return false at the end of the input. A signal may end the command before.
bool RunNext(Session& session, Input& input, int number, ExitStatus& status, bool& quits)
try {
    const auto line = input.Read();
    if (!line) return false;
    session.scriptLine = input.IsTyped() ? 0 : number;
    status = RunLine(session, *line, quits);
    if (Interrupts::Instance().Forget()) session.Lines().Ask("\n");  // behind the terminal's "^C"
    return true;
} catch (const Interrupted&) {
    if (!Interrupts::Instance().Forget()) throw;
    session.Lines().Ask("\n");
    status = ExitStatus::kFalse;
    return true;
}

/// @param stopsOnError  a script ends with its first failing command.
ExitStatus RunShell(Session& session, bool stopsOnError)
{
    if (!session.Connect()) return ExitStatus::kCannotConnect;
    Input input(session);
    if (input.IsTyped()) Interrupts::Instance().EndCommands();
    ExitStatus result = ExitStatus::kDone;
    bool quits = false;
    for (int number = 1; !quits; ++number) {
        ExitStatus status = ExitStatus::kDone;
        if (!RunNext(session, input, number, status, quits)) break;
        if (result == ExitStatus::kDone) result = status;
        if (stopsOnError && !input.IsTyped() && result != ExitStatus::kDone) break;
    }
    session.scriptLine = 0;
    return result;
}

}  // namespace

void AddShell(CLI::App& app, Session& session, ExitStatus& status)
{
    auto* const shell = app.add_subcommand("shell", "Run commands from standard input over one connection");
    const auto stopsOnError = std::make_shared<bool>(false);
    shell->add_flag("--stop-on-error", *stopsOnError, "End a script with its first failing command");
    shell->callback([=, &session, &status] { status = RunShell(session, *stopsOnError); });
}
