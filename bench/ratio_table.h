/// What the benchmarks share: two kinds of work that take turns within one run, medians, and one table.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

using Clock = std::chrono::steady_clock;

inline constexpr int kRounds = 11;

inline double Median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

inline double SecondsOf(const std::function<void()>& work)
{
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

inline bool allMet = true;

inline void PrintRow(const char* what, const std::string& floor, const std::string& library, double ratio,
                     const char* relation, double target)
{
    const bool met = *relation == '<' ? ratio <= target : ratio >= target;
    printf("| %-46s | %12s | %12s | %6.2f | %s %4.2f | %-6s |\n", what, floor.c_str(), library.c_str(), ratio,
           relation, target, met ? "met" : "MISSED");
    allMet = allMet && met;
}

inline std::string Number(const char* format, double value)
{
    char text[32];
    snprintf(text, sizeof text, format, value);
    return text;
}

/// Rates of two kinds of work that take turns, `count` at a time.
inline void CompareRates(const char* what, int count, const std::function<void()>& floor,
                         const std::function<void()>& library, double target)
{
    std::vector<double> floors, rates, ratios;
    for (int round = 0; round < kRounds; ++round) {
        const auto rate = [&](const std::function<void()>& work) {
            return count / SecondsOf([&] {
                       for (int i = 0; i < count; ++i) work();
                   });
        };
        floors.push_back(rate(floor));
        rates.push_back(rate(library));
        ratios.push_back(rates.back() / floors.back());
    }
    PrintRow(what, Number("%.0f /s", Median(floors)), Number("%.0f /s", Median(rates)), Median(ratios),
             ">=", target);
}

inline void PrintHead()
{
    printf("| %-46s | %12s | %12s | %6s | %7s | %-6s |\n", "what", "floor", "library", "ratio", "target",
           "result");
    printf("|%s|%s:|%s:|%s:|%s:|%s|\n", std::string(48, '-').c_str(), std::string(13, '-').c_str(),
           std::string(13, '-').c_str(), std::string(7, '-').c_str(), std::string(8, '-').c_str(),
           std::string(8, '-').c_str());
}
