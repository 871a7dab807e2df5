/// The verbs apply and reset. Thread: that of the session.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vexactl/session.h"

/// How changes are made.
struct ChangeOptions {
    bool dryRun = false;            ///< they are shown, not made
    std::optional<double> confirm;  ///< seconds; nothing where nobody is asked
};

struct ApplyOptions : ChangeOptions {
    std::string file;
    std::vector<std::string> only;  ///< patterns of names; none: all
};

/// Gives a device the settings of a file: all, or none of them.
ExitStatus Apply(Session& session, const ApplyOptions& options);

struct ResetOptions : ChangeOptions {
    std::vector<std::string> names;  ///< and patterns
    bool all = false;                ///< what a factory reset concerns
    bool network = false;            ///< what one with the network concerns
};

/// Gives parameters their factory defaults: all, or none of them.
ExitStatus Reset(Session& session, const ResetOptions& options);
