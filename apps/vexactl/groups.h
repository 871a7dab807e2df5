/// Names of the groups of parameters. A group is the high byte of the identifier; the catalogue has numbers alone.
/// Thread: any.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// "network" of 50; the number of a group that this version does not know.
std::string GroupName(unsigned int group);
/// By name, in upper or lower case, or by number. @return nothing for an unknown name.
std::optional<unsigned int> GroupOf(const std::string& text);
std::vector<std::string> GroupNames();
