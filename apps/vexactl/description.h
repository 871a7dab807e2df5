/// The facts about a parameter besides its value. Thread: the main thread.
#pragma once

#include "vexactl/parameter.h"

/// Every fact, for programs. Always the same for one model: without values, and in one order.
Json Describe(const vexa::Catalogue& catalogue, const Parameter& parameter);
/// The facts of Describe for people: one a line, the values of an enumeration one below the other.
std::string DescriptionText(const vexa::Catalogue& catalogue, const Parameter& parameter);
/// @return nothing when the kind of parameter has none.
std::optional<Value> FactoryDefault(const Parameter& parameter);
