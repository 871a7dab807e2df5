/// How a command of vexactl ends.
#pragma once

enum class ExitStatus {
    kDone = 0,
    kFalse = 1,  ///< nothing matched, no value could be read, or the output could not be written
    kUsage = 2,
    kUnknownParameter = 3,
    kRefused = 4,
    kCorrected = 5,      ///< stored, but not as requested
    kCannotConnect = 6,  ///< or lost the connection
    kTimedOut = 7,
};
