/// The verb save. Thread: that of the session.
#pragma once

#include <string>

#include "vexactl/session.h"

struct SaveOptions {
    std::string file;      ///< standard output when there is none
    bool secrets = false;  ///< passwords, too
};

/// Writes the settings of a device as a file: docs/settings-files.md.
ExitStatus Save(Session& session, const SaveOptions& options);
