/// A parameter as the tool names, reads and shows it.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>

#include "config/config.h"
#include "config/descriptors/param_descriptor.h"
#include "messages/alarm.pb.h"

using Json = nlohmann::ordered_json;

/// A number, or a text (of a string, data or alarm parameter).
using Value = std::variant<unsigned int, std::string>;

/// A parameter of one configuration. Borrows its descriptor. Thread: any.
class Parameter {
  public:
    explicit Parameter(ParamDescriptor* descriptor) : m_descriptor(descriptor) {}

    /// By symbolic name, with or without "eParamID_", or by identifier in hexadecimal ("0x5c010000").
    static std::optional<Parameter> Find(Config& config, const std::string& name);

    eParam_t Id() const { return m_descriptor->GetParamID(); }
    std::string IdText() const;
    /// The symbolic name without its prefix.
    std::string Name() const;
    /// "int", "enum", "str", "data" or "alarm".
    const char* Kind() const;
    ParamDescriptor& Descriptor() const { return *m_descriptor; }
    bool HoldsText() const { return m_descriptor->GetParamType() == eCParam_StringValue; }

    /// Whether the value is bytes, of a data or alarm parameter, and no readable text.
    bool HoldsBytes() const;

    /// @return nothing when the configuration has no value for it.
    std::optional<Value> Read(Config& config) const;
    /// The value that a user typed: a number, the name of an enumerated value, an address, or a text.
    /// @return nothing when it is no value of this kind of parameter.
    std::optional<Value> Parse(const std::string& typed) const;
    /// For people: "4 eSystemStateRunning", "12.50 V", "\"Scene 12\"".
    std::string Text(const Value& value) const;
    /// For programs: "id", "param", "value", and "name", "text" or "units" where they say more.
    Json ToJson(const Value& value) const;
    /// @return why the parameter does not take the value as it is; nothing when it does.
    std::optional<std::string> Objection(const Value& value) const;

  private:
    std::string Scaled(unsigned int number) const;
    std::string Units() const;

    ParamDescriptor* m_descriptor;
};

/// "INFORMATION", "WARNING", ...; the number of a severity that this version does not know.
std::string SeverityName(vexa::alarms::Alarm_Severity severity);
/// One line; bytes that are no UTF-8 are replaced.
std::string Dump(const Json& json);
/// A text in quotes, on one line.
std::string Quoted(const std::string& text);
