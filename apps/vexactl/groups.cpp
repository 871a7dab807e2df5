#include "vexactl/groups.h"

#include <strings.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>

namespace {

struct Group {
    unsigned int number;
    const char* name;
};

constexpr Group kGroups[] = {
    {0, "condition"},       {1, "outputs"},         {2, "inputs"},        {4, "audio"},
    {6, "reference"},       {8, "timecode"},        {9, "interval"},      {12, "media"},
    {13, "camera"},         {14, "encoding"},       {15, "playback"},     {16, "formatting"},
    {17, "clip-names"},     {19, "custom-names"},   {22, "captions"},     {32, "loss-of-video"},
    {35, "remote"},         {41, "generator"},      {50, "network"},      {52, "discovery"},
    {55, "clock"},          {60, "alarm-settings"}, {64, "alarms"},       {70, "panel"},
    {80, "identity"},       {91, "preset-recall"},  {92, "preset-store"}, {93, "preset-names"},
    {99, "factory"},        {100, "board"},         {118, "language"},    {120, "identify"},
    {121, "found-formats"}, {122, "messages"},      {123, "clips"},       {125, "transport"},
    {126, "outcomes"},      {127, "web"},
};

}  // namespace

std::string GroupName(unsigned int group)
{
    const auto* const found = std::ranges::find(kGroups, group, &Group::number);
    return found == std::end(kGroups) ? std::to_string(group) : found->name;
}

std::optional<unsigned int> GroupOf(const std::string& text)
{
    constexpr unsigned int kHighest = 255;
    for (const Group& group : kGroups)
        if (strcasecmp(group.name, text.c_str()) == 0) return group.number;
    unsigned int number = 0;
    const bool isNumber = CLI::detail::lexical_cast(text, number);
    return isNumber && number <= kHighest ? std::optional(number) : std::nullopt;
}

std::vector<std::string> GroupNames()
{
    std::vector<std::string> names;
    for (const Group& group : kGroups) names.emplace_back(group.name);
    return names;
}
