/// EnumValueDescriptor: one named value of an enumeration.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "config/base/export.h"

/// A plain value. A default one marks a missing value: 99999, "Invalid".
struct VEXA_EXPORT EnumValueDescriptor {
    /// Attributes and class names of a single value, in the vocabulary of whole parameters.
    struct EnumValueData {
        std::map<std::string, unsigned int> numericAttributes;
        std::map<std::string, std::string> stringAttributes;
        std::vector<std::string> classNames;
        bool operator==(const EnumValueData&) const = default;
    };

    unsigned int value = 99999;
    std::string name = "Invalid";
    std::string shortName = "Invalid";
    std::string info;
    EnumValueData data;
    bool operator==(const EnumValueDescriptor&) const = default;
};
