/// The tool's shell: many commands over one connection, typed or from a script. Thread: the main thread.
#pragma once

#include <CLI/CLI.hpp>

#include "vexactl/session.h"

/// Adds the verb "shell" to a command line. It reads commands from standard input until its end or "quit". A
/// failing command is reported and the next one runs; its result is the status of the first one that failed.
void AddShell(CLI::App& app, Session& session, ExitStatus& status);
