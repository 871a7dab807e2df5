/// Settings of a device as a file that people edit, in TOML: docs/settings-files.md. Thread: any.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vexactl/parameter.h"

/// What stands behind a name, before it is known what the parameter takes.
struct WrittenValue {
    enum class Kind : uint8_t { kNumber, kText, kBytes, kOther };
    Kind kind = Kind::kOther;
    std::string text;  ///< a number as it is written in decimal, a text, or the bytes
};

struct SettingsLine {
    std::string name;
    WrittenValue value;
    unsigned int line = 0, column = 0;
};

/// What a device tells about itself.
struct Identity {
    std::string model, serial, software;
};

struct SettingsFile {
    std::string path;
    Identity device;
    std::optional<std::string> model;  ///< as the file names it; nothing where it names none
    std::vector<SettingsLine> lines;   ///< as they follow one another

    /// Throws ConnectionError, as "a.toml:3:7: ..." where it is no such file.
    static SettingsFile Read(const std::string& path);
    static SettingsFile Parse(const std::string& text, const std::string& path);
    /// "a.toml:3:7"
    std::string PlaceOf(const SettingsLine& line) const;
};

/// @param reason  why it is no value of this parameter, as the end of a sentence. @return nothing then.
std::optional<Value> ValueOf(ParamDescriptor& descriptor, const WrittenValue& written, std::string& reason);

using SettingValues = std::vector<std::pair<Parameter, Value>>;

/// The whole text of a file. @param values  ascending by identifier.
std::string SettingsText(const Identity& device, const SettingValues& values);
