#include "vexactl/shell.h"

#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "vexactl/commands.h"

#ifdef VEXACTL_LINE_EDITING
#include <editline/readline.h>
#endif

namespace {

constexpr const char* kPrompt = "vexactl> ";

std::optional<std::string> ReadPlainLine()
{
    std::string line;
    return std::getline(std::cin, line) ? std::optional(line) : std::nullopt;
}

#ifdef VEXACTL_LINE_EDITING
/// Typed with editing and history.
std::optional<std::string> ReadTypedLine()
{
    char* const typed = readline(kPrompt);
    if (!typed) return std::nullopt;
    if (*typed) add_history(typed);
    std::string line = typed;
    free(typed);
    return line;
}
#else
std::optional<std::string> ReadTypedLine()
{
    std::cout << kPrompt << std::flush;
    return ReadPlainLine();
}
#endif

/// A signal meanwhile ends the tool, with the terminal as it was.
std::optional<std::string> ReadLine(Session& session, bool terminal)
{
    termios settings{};
    const bool hasSettings = terminal && tcgetattr(STDIN_FILENO, &settings) == 0;
    const Interrupts::Idle idle([&] {
        if (hasSettings) tcsetattr(STDIN_FILENO, TCSANOW, &settings);
        session.Disconnect();
    });
    return terminal ? ReadTypedLine() : ReadPlainLine();
}

ExitStatus RunCommand(Session& session, std::vector<std::string> words, bool& quit)
{
    ExitStatus status = ExitStatus::kDone;
    CLI::App app("Commands of the shell; a line starting with # is a comment", "");
    app.require_subcommand(1);
    AddCommands(app, session, status, true);
    app.add_subcommand("quit", "Leave the shell")->alias("exit")->callback([&] { quit = true; });
    app.add_subcommand("help", "Show the commands")->callback([&] {
        session.Print(app.get_formatter()->make_help(&app, "", CLI::AppFormatMode::Normal));
    });
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::Success& help) {
        app.exit(help);
    } catch (const CLI::ParseError& error) {
        session.Complain(Explain(app, error));
        status = ExitStatus::kUsage;
    } catch (const ConnectionError& error) {
        session.Complain(error.what());
        session.Disconnect();
        status = error.status;
    } catch (const std::exception& error) {  // no memory for this command
        session.Complain(error.what());
        status = ExitStatus::kCannotConnect;
    }
    return status;
}

ExitStatus RunLine(Session& session, const std::string& line, bool& quit)
{
    const auto words = SplitWords(line);
    if (!words) {
        session.Complain("a quote is not closed");
        return ExitStatus::kUsage;
    }
    return words->empty() ? ExitStatus::kDone : RunCommand(session, *words, quit);
}

}  // namespace

std::optional<std::vector<std::string>> SplitWords(const std::string& line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    while (stream >> std::ws, stream.peek() != EOF && stream.peek() != '#') {
        const char delimiter = stream.peek() == '\'' ? '\'' : '"';
        std::string word;
        if (!(stream >> std::quoted(word, delimiter))) return std::nullopt;
        words.push_back(std::move(word));
    }
    return words;
}

ExitStatus RunShell(Session& session)
{
    if (!session.Connect()) return ExitStatus::kCannotConnect;
    const bool terminal = isatty(STDIN_FILENO);
    ExitStatus result = ExitStatus::kDone;
    bool quit = false;
    for (int number = 1; !quit; ++number) {
        const auto line = ReadLine(session, terminal);
        if (!line) break;
        session.scriptLine = terminal ? 0 : number;
        const ExitStatus status = RunLine(session, *line, quit);
        if (result == ExitStatus::kDone) result = status;
    }
    session.scriptLine = 0;
    return result;
}
