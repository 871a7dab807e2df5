/// The verbs of the tool. Thread: the main thread.
#pragma once

#include <CLI/CLI.hpp>

#include "vexactl/session.h"

/// Adds list, info, get, set, watch, alarms and catalogue to a command line. Each leaves its result in
/// `status` when the line is parsed.
/// @param inShell  watch returns at once, and unwatch ends it.
void AddCommands(CLI::App& app, Session& session, ExitStatus& status, bool inShell);

/// Why a command line was refused, in one line.
std::string Explain(const CLI::App& app, const CLI::ParseError& error);
