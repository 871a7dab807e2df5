/// The one table of the benchmarks: two kinds of work that take turns within one run, and the median of their
/// ratios.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Does its work so many times.
using Work = std::function<void(int count)>;

template <class Operation>
Work Repeat(Operation operation)
{
    return [operation](int count) {
        for (int i = 0; i < count; ++i) operation();
    };
}

double Median(std::vector<double> values);
double SecondsOf(const std::function<void()>& work);
std::string Format(double value, int decimals, const char* unit = "");

void PrintHead();
/// A heading for the rows that follow.
void PrintPart(const char* name);

/// The bound of a ratio; without one it is only shown.
struct Target {
    enum Relation { kAtMost, kAtLeast } relation;
    double ratio;
};
void PrintRow(const std::string& what, const std::string& floor, const std::string& library, double ratio,
              std::optional<Target> target);
/// A figure that has no floor.
void PrintFigure(const std::string& what, const std::string& library);
/// "14 of 16 targets met".
std::string Summary();

/// Both sides do it `count` times a turn. Rates a second; the ratio is the library's to the floor's.
void CompareRates(const std::string& what, int count, const Work& floor, const Work& library,
                  std::optional<double> atLeast);
/// The same as times of one operation.
void CompareTimes(const std::string& what, int count, const Work& floor, const Work& library,
                  std::optional<double> atMost);
