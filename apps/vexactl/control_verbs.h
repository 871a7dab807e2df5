/// The verbs that ask the daemon of this machine through its control socket. Thread: the main thread.
#pragma once

#include <CLI/CLI.hpp>

#include "vexactl/session.h"

/// Adds status, clients, log, presets, stats and confirm. Each leaves its result in `status` when the line is parsed.
void AddControlVerbs(CLI::App& app, Session& session, ExitStatus& status);
