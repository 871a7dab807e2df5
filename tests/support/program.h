/// Runs a whole program as a user would.
#pragma once

#include <string>
#include <vector>

struct ProgramResult {
    int status = -1;  ///< exit status, or 128 + the signal
    std::string out, err;
};

/// @param environment  "NAME=value" entries that are added; "NAME" alone removes one.
ProgramResult RunProgram(const std::vector<std::string>& command, const std::string& input = "",
                         const std::vector<std::string>& environment = {});
