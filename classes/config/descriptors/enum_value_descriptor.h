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
        /// By name; the two kinds are separate name spaces.
        std::map<std::string, unsigned int> numericAttributes;
        std::map<std::string, std::string> stringAttributes;  ///< by name
        std::vector<std::string> classNames;                  ///< in order of addition
        bool operator==(const EnumValueData&) const = default;
    };

    unsigned int value = 99999;         ///< the stored number
    std::string name = "Invalid";       ///< what people read
    std::string shortName = "Invalid";  ///< the same in some eight characters
    std::string info;                   ///< more about the value for front ends; mostly empty
    EnumValueData data;                 ///< what front ends and programs know the value by
    bool operator==(const EnumValueDescriptor&) const = default;
};
