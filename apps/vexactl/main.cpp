/// vexactl: reads, changes and watches the parameters of a device.
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <algorithm>
#include <string_view>

#include "config/base/standard_descriptors.h"
#include "vexactl/commands.h"
#include "vexactl/completion.h"
#include "vexactl/language.h"
#include "vexactl/shell.h"

namespace {

constexpr const char* kFooter =
    "Parameters are named with or without eParamID_, or by identifier (0x5c010000). The device says which "
    "model\n"
    "it is. Exit status: 0 done, 1 nothing matched or unknown result, 2 usage, 3 unknown parameter, 4 "
    "refused,\n"
    "5 stored but corrected, 6 cannot connect, 7 no answer in time; of several devices the highest. The "
    "shell\n"
    "ends with that of its first failing command.";

/// @return an empty text for one that there is.
std::string WhyNoLanguage(const std::string& language)
{
    const auto known = Languages();
    if (std::ranges::find(known, language) != known.end()) return "";
    std::string list;
    for (const std::string& one : known) list += (list.empty() ? "" : ", ") + one;
    return "no language " + Quoted(language) + "; there are " + list;
}

/// @return the option that names the device.
CLI::Option* AddOptions(CLI::App& app, Session& session)
{
    auto* const device =
        app.add_option(
               "-d,--device,--uri", session.uri,
               "The device: a name or an address, with or without :PORT; tcp://..., udp://...; mq: for "
               "the daemon of this machine; local: for a private store inside this process; several "
               "with commas")
            ->envname("VEXACTL_DEVICE")
            ->type_name("DEVICE")
            ->take_last()
            ->capture_default_str();
    auto* const devices =
        app.add_option("--devices", session.devicesFile, "Several devices, one a line")->type_name("FILE");
    auto* const queues = app.add_flag("--mq", session.queues, "The same as -d mq:");
    devices->excludes(queues);
    app.add_option_function<std::string>(
           "--lang",
           [](const std::string& language) {
               if (!UseLanguage(language))
                   throw CLI::ValidationError("--lang", "this machine lacks the locale C.UTF-8");
           },
           "The language of names and values")
        ->check(WhyNoLanguage)
        ->type_name("LANG");
    app.add_option(
           "--control", session.control,
           "The control socket of the daemon of this machine, for status, clients, log, presets, stats "
           "and confirm")
        ->envname("VEXACTL_CONTROL")
        ->type_name("PATH");
    app.add_option("--model", session.model,
                   "The model that the device has to be, or is taken for when it names none; for info and "
                   "catalogue without a device, that of the "
                   "parameters")
        ->check([](const std::string& model) {
            return vexa::Catalogue::Of(model) ? "" : "unknown model " + Quoted(model);
        })
        ->type_name("MODEL");
    app.add_flag("--json", session.json, "Data and failures as JSON on standard output, one object a line");
    app.add_flag("--show-secrets", Parameter::showsSecrets, "Show passwords");
    app.add_flag("--verbose", session.verbose, "Show the library's messages, too");
    app.add_option("--timeout", session.timeout, "Seconds to wait for a connection, and for an answer")
        ->check(SecondsValidator())
        ->type_name("SECONDS")
        ->capture_default_str();
    app.set_version_flag("-V,--version", std::string("vexactl ") + VEXACTL_VERSION, "Show the version");
    app.set_help_flag("-h,--help", "Show the commands and options; behind a command, its own");
    return device;
}

ExitStatus Parse(Session& session, int argc, char** argv)
{
    ExitStatus status = ExitStatus::kDone;
    CLI::App app("Reads, changes and watches the parameters of a device.", "vexactl");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough();  // --json and -d may follow the verb
    const CLI::Option* const device = AddOptions(app, session);
    app.parse_complete_callback([&] { session.hasDevice = device->count() > 0 || session.queues; });
    AddCommands(app, session, status, false);
    AddShell(app, session, status);
    AddComplete(app);
    app.add_subcommand("help", "Show the commands")->callback([&] {
        session.Print(app.get_formatter()->make_help(&app, "vexactl", CLI::AppFormatMode::Normal));
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        app.exit(help);
    } catch (const CLI::ParseError& error) {
        return session.Fail(ExitStatus::kUsage,
                            Explain(app, error) + "; \"vexactl --help\" shows how it is used");
    }
    return status;
}

/// @param signal  by which the tool is to end; stays 0 else.
ExitStatus Run(Output& output, int argc, char** argv, int& signal)
{
    Session session(output);
    // Also for what is wrong with the other options.
    session.json = std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
    try {
        return Parse(session, argc, argv);
    } catch (const Interrupted& interrupted) {
        signal = interrupted.signal;
        return ExitStatus::kFalse;
    } catch (const OutputClosed&) {
        signal = SIGPIPE;
        return ExitStatus::kFalse;
    } catch (const ConnectionError& error) {
        return session.Fail(error.status, error.what());
    } catch (const std::exception& error) {  // no memory: the result is not known
        return session.Fail(ExitStatus::kCannotConnect, error.what());
    }
}

}  // namespace

int main(int argc, char** argv)
{
    vexa::OpenStandardDescriptors();
    // Names and texts of devices are UTF-8 everywhere, and so is what is typed.
    if (!setlocale(LC_CTYPE, "") || MB_CUR_MAX == 1) setlocale(LC_CTYPE, "C.UTF-8");
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    setvbuf(stdin, nullptr, _IONBF, 0);  // what one command leaves, another one waits for
    std::signal(SIGPIPE, SIG_IGN);       // the device hears a goodbye first
    Output output;
    int signal = 0;
    auto status = static_cast<int>(Run(output, argc, argv, signal));
    if (signal != 0) EndBySignal(signal);
    if (Output::IsClosed()) EndBySignal(SIGPIPE);
    if (!output.Finish()) status = static_cast<int>(ExitStatus::kFalse);
    if (Connection::HasLeftSome()) _exit(status);
    return status;
}
