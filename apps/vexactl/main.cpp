/// vexactl: reads, changes and watches the parameters of a device.
#include <poll.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "vexactl/commands.h"
#include "vexactl/completion.h"
#include "vexactl/shell.h"

namespace {

constexpr const char* kFooter =
    "Parameters are named with or without eParamID_, or by identifier (0x5c010000).\n"
    "The model comes from the environment variable PRODUCT_ID or the file /etc/product_id.\n"
    "Exit status: 0 done, 1 nothing matched or unknown result, 2 usage, 3 unknown parameter,\n"
    "4 refused, 5 stored but corrected, 6 cannot connect, 7 no answer in time. The shell ends\n"
    "with that of its first failing command.";

ExitStatus Parse(Session& session, int argc, char** argv)
{
    ExitStatus status = ExitStatus::kDone;
    CLI::App app("Reads, changes and watches the parameters of a device.", "vexactl");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough();  // --json and --uri may follow the verb
    app.add_option("--uri", session.uri,
                   "The device, as tcp://ADDRESS:PORT or udp://ADDRESS:PORT; multicast://127.0.0.1:63110 for "
                   "watch on the device; local: for a store of this run")
        ->envname("VEXACTL_URI")
        ->capture_default_str();
    app.add_flag("--json", session.json, "Data as JSON, one object a line");
    app.add_flag("--mq", session.queues, "The daemon of this device, through its message queues");
    app.add_flag("--verbose", session.verbose, "Show the library's messages, too");
    app.add_option("--timeout", session.timeout, "Seconds to wait for an answer, at most 50")
        ->check(CLI::Range(0.001, 50.0))  // the library ends a process after 60
        ->capture_default_str();
    AddCommands(app, session, status, false);
    AddShell(app, session, status);
    AddComplete(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        app.exit(help);
    } catch (const CLI::ParseError& error) {
        session.Complain(Explain(app, error) + "; \"vexactl --help\" shows how it is used");
        return ExitStatus::kUsage;
    }
    return status;
}

/// @param signal  by which the tool is to end; stays 0 else.
ExitStatus Run(int argc, char** argv, int& signal)
{
    Session session;
    try {
        return Parse(session, argc, argv);
    } catch (const Interrupted& interrupted) {
        signal = interrupted.signal;
        return ExitStatus::kFalse;
    } catch (const OutputClosed&) {
        signal = SIGPIPE;
        return ExitStatus::kFalse;
    } catch (const ConnectionError& error) {
        session.Complain(error.what());
        return error.status;
    } catch (const std::exception& error) {  // no memory: the result is not known
        session.Complain(error.what());
        return ExitStatus::kCannotConnect;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    // Names and texts of devices are UTF-8 everywhere, and so is what is typed.
    if (!setlocale(LC_CTYPE, "") || MB_CUR_MAX == 1) setlocale(LC_CTYPE, "C.UTF-8");
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::signal(SIGPIPE, SIG_IGN);  // the device hears a goodbye first
    int signal = 0;
    const ExitStatus status = Run(argc, argv, signal);
    if (signal != 0) EndBySignal(signal);
    if (fflush(stdout) == 0 && !ferror(stdout)) return static_cast<int>(status);
    pollfd output{STDOUT_FILENO, 0, 0};
    if (poll(&output, 1, 0) == 1 && output.revents & POLLERR) EndBySignal(SIGPIPE);
    fputs("vexactl: cannot write to standard output\n", stderr);
    return static_cast<int>(ExitStatus::kFalse);
}
