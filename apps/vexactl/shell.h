/// The tool's shell: many commands over one connection, typed or from a script. Thread: the main thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vexactl/session.h"

/// Reads commands from standard input until its end or "quit". A failing command is reported and the next one
/// runs.
/// @return the status of the first command that failed.
ExitStatus RunShell(Session& session);

/// The words of a line, at blanks; "..." and '...' keep blanks, and a backslash inside them keeps the next
/// character. A word that starts with # begins a comment.
/// @return nothing when a quote is not closed.
std::optional<std::vector<std::string>> SplitWords(const std::string& line);
