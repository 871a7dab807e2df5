/// The verbs of the tool. Thread: the main thread.
#pragma once

#include <CLI/CLI.hpp>

#include "vexactl/session.h"

/// Adds all verbs but shell to a command line. Each leaves its result in `status` when the line is parsed.
/// @param inShell  a watch without a limit goes on beside other commands, and unwatch ends it.
void AddCommands(CLI::App& app, Session& session, ExitStatus& status, bool inShell);

/// Seconds of a wait: any number, fractions too, up to some thirty years.
CLI::Validator SecondsValidator();

/// Why a command line was refused, in one line.
std::string Explain(const CLI::App& app, const CLI::ParseError& error);
