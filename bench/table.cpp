#include "table.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace {

constexpr int kRounds = 11;

int targets = 0, met = 0;

std::string Time(double seconds)
{
    return seconds < 1e-6 ? Format(seconds * 1e9, 1, "ns") : Format(seconds * 1e6, 1, "us");
}

void PrintCells(const std::string& what, const std::string& floor, const std::string& library,
                const std::string& ratio, const std::string& target, const std::string& result)
{
    printf("| %-58s | %12s | %12s | %6s | %7s | %-6s |\n", what.c_str(), floor.c_str(), library.c_str(),
           ratio.c_str(), target.c_str(), result.c_str());
}

struct Medians {
    double floor, library, ratio;
};

/// Of the results of `measure` for each side, turn by turn.
Medians Compare(const Work& floor, const Work& library, const std::function<double(const Work&)>& measure)
{
    std::vector<double> floors, libraries, ratios;
    for (int round = 0; round < kRounds; ++round) {
        floors.push_back(measure(floor));
        libraries.push_back(measure(library));
        ratios.push_back(libraries.back() / floors.back());
    }
    return {Median(floors), Median(libraries), Median(ratios)};
}

}  // namespace

double Median(std::vector<double> values)
{
    if (values.empty()) return 0;
    std::ranges::sort(values);
    return values[values.size() / 2];
}

double SecondsOf(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Format(double value, int decimals, const char* unit)
{
    char text[32];
    snprintf(text, sizeof text, "%.*f%s%s", decimals, value, *unit ? " " : "", unit);
    return text;
}

void PrintHead()
{
    PrintCells("what", "floor", "library", "ratio", "target", "result");
    printf("|%s|%s:|%s:|%s:|%s:|%s|\n", std::string(60, '-').c_str(), std::string(13, '-').c_str(),
           std::string(13, '-').c_str(), std::string(7, '-').c_str(), std::string(8, '-').c_str(),
           std::string(8, '-').c_str());
}

void PrintPart(const char* name)
{
    PrintCells("**" + std::string(name) + "**", "", "", "", "", "");
}

void PrintFigure(const std::string& what, const std::string& library)
{
    PrintCells(what, "", library, "", "", "");
}

void PrintRow(const std::string& what, const std::string& floor, const std::string& library, double ratio,
              std::optional<Target> target)
{
    std::string wanted, result;
    if (target) {
        const bool atMost = target->relation == Target::kAtMost;
        const bool isMet = atMost ? ratio <= target->ratio : ratio >= target->ratio;
        wanted = (atMost ? "<= " : ">= ") + Format(target->ratio, 1);
        result = isMet ? "met" : "MISSED";
        ++targets;
        met += isMet;
    }
    PrintCells(what, floor, library, Format(ratio, 2), wanted, result);
}

std::string Summary()
{
    return std::to_string(met) + " of " + std::to_string(targets) + " targets met";
}

void CompareRates(const std::string& what, int count, const Work& floor, const Work& library,
                  std::optional<double> atLeast)
{
    const auto medians =
        Compare(floor, library, [&](const Work& work) { return count / SecondsOf([&] { work(count); }); });
    PrintRow(what, Format(medians.floor, 0, "/s"), Format(medians.library, 0, "/s"), medians.ratio,
             atLeast ? std::optional(Target{Target::kAtLeast, *atLeast}) : std::nullopt);
}

void CompareTimes(const std::string& what, int count, const Work& floor, const Work& library,
                  std::optional<double> atMost)
{
    const auto medians =
        Compare(floor, library, [&](const Work& work) { return SecondsOf([&] { work(count); }) / count; });
    PrintRow(what, Time(medians.floor), Time(medians.library), medians.ratio,
             atMost ? std::optional(Target{Target::kAtMost, *atMost}) : std::nullopt);
}
