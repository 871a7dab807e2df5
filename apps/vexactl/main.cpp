/// vexactl: reads, changes and watches the parameters of a device.
#include <cstdio>
#include <cstdlib>

#include "vexactl/commands.h"
#include "vexactl/shell.h"

namespace {

constexpr const char* kFooter =
    "Parameters are named with or without eParamID_, or by identifier (0x5c010000).\n"
    "The model comes from the environment variable PRODUCT_ID or the file /etc/product_id.\n"
    "Exit status: 0 done, 1 nothing matched, 2 usage, 3 unknown parameter, 4 refused,\n"
    "5 stored but corrected, 6 cannot connect. The shell ends with that of its first failing command.";

ExitStatus Run(int argc, char** argv)
{
    Session session;
    ExitStatus status = ExitStatus::kDone;
    CLI::App app("Reads, changes and watches the parameters of a device.", "vexactl");
    app.footer(kFooter);
    app.require_subcommand(1);
    app.fallthrough();  // --json and --uri may follow the verb
    app.add_option("--uri", session.uri, "The configuration: local: or local:configid=N")
        ->envname("VEXACTL_URI")
        ->capture_default_str();
    app.add_flag("--json", session.json, "Data as JSON, one object a line");
    AddCommands(app, session, status, false);
    app.add_subcommand("shell", "Run commands from standard input over one connection")->callback([&] {
        status = RunShell(session);
    });
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

}  // namespace

int main(int argc, char** argv)
{
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const ExitStatus status = Run(argc, argv);
    if (fflush(stdout) == 0 && !ferror(stdout)) return static_cast<int>(status);
    fputs("vexactl: cannot write to standard output\n", stderr);
    return static_cast<int>(ExitStatus::kFalse);
}
