/// The verbs get, list, info and ping. Thread: that of the session.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vexactl/session.h"

/// Selects the parameters that meet every condition given.
struct Filter {
    std::vector<std::string> patterns;
    std::optional<unsigned int> group;  ///< the high byte of the identifier
    std::string className;
    bool changed = false;  ///< only values that differ from the factory default
};

/// @param isBare  the values alone, for scripts.
ExitStatus Get(Session& session, const std::vector<std::string>& names, bool isBare);
ExitStatus List(Session& session, const Filter& filter);
/// Facts and values; without the values when a model is named and no device.
ExitStatus Info(Session& session, const std::vector<std::string>& names);
/// Those of which the model has parameters.
ExitStatus Groups(Session& session);
ExitStatus Ping(Session& session);

/// The parameters of names and patterns, in the order given. @param status  the first failure, if any was told.
std::vector<Parameter> Chosen(Session& session, const std::vector<std::string>& names, ExitStatus& status);
