/// The parameters of the soak test and the values that are written to them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "config/param_ids.h"

struct Parameter {
    enum Kind { kNumber, kText, kData };

    explicit Parameter(const std::string& hexadecimal);

    /// The value of a write: numbers in turn, texts that contain their number. The driver knows the same
    /// rule.
    unsigned int Number(uint64_t write) const;
    std::string Text(uint64_t write) const;
    std::string Printed(uint64_t write) const;

    eParam_t id;
    Kind kind = kNumber;
    unsigned int lowest = 0, highest = 0;
};

/// "5c010000,1302000a"
std::vector<Parameter> ReadList(const std::string& text);
/// Without spaces and the like, for one word of a line.
std::string Printable(std::string text);
/// Prints the parameters whose values change only when they are written, and change no other:
/// "number|text|data ID LOWEST HIGHEST", and 1 where the daemon keeps the value over its end, and where presets have it.
void PrintParameters();
