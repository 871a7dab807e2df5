#include "vexactl/parameter.h"

#include <arpa/inet.h>
#include <strings.h>

#include <charconv>
#include <cmath>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/string_descriptor.h"

namespace {

constexpr std::string_view kPrefix = "eParamID_";

template <class Descriptor>
Descriptor* As(ParamDescriptor& descriptor)
{
    return dynamic_cast<Descriptor*>(&descriptor);
}

bool SameIgnoringCase(const std::string& a, const std::string& b)
{
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::optional<unsigned int> ParseNumber(std::string_view text)
{
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    unsigned int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<unsigned int> ParseAddress(const std::string& text)
{
    in_addr address;
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
    return ntohl(address.s_addr);
}

std::string Hex(const std::string& bytes)
{
    std::string text;
    for (const char c : bytes) {
        constexpr char kDigits[] = "0123456789abcdef";
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

ParamDescriptor* FindDescriptor(Config& config, const std::string& name)
{
    if (const auto id = ParseNumber(name); id && name.starts_with("0x"))
        return config.GetParamDescriptor(eParam_t{*id});
    const std::string full = name.starts_with(kPrefix) ? name : std::string(kPrefix) + name;
    if (ParamDescriptor* const exact = config.GetParamDescriptor(full)) return exact;
    for (const eParam_t id : config.GetParamIDs()) {
        ParamDescriptor* const descriptor = config.GetParamDescriptor(id);
        if (descriptor && SameIgnoringCase(descriptor->GetParamIDName(), full)) return descriptor;
    }
    return nullptr;
}

using vexa::alarms::Alarm;

/// "clear", "raised, ERROR: \"no signal\"".
std::string AlarmText(const Alarm& alarm)
{
    std::string text = alarm.state() == Alarm::CLEAR ? "clear" : "raised";
    text += ", " + SeverityName(alarm.severity());
    for (const auto& error : alarm.error()) text += ": " + Quoted(error.text());
    return text;
}

Json AlarmJson(const Alarm& alarm)
{
    Json json{{"raised", alarm.state() != Alarm::CLEAR}, {"severity", SeverityName(alarm.severity())}};
    for (const auto& error : alarm.error()) json["errors"].push_back(error.text());
    return json;
}

std::string ListOfValues(EnumDescriptor& enumeration)
{
    std::string list;
    for (const EnumValueDescriptor& entry : enumeration.GetOrderedEnumValueDescriptors())
        list += (list.empty() ? "" : ", ") + std::to_string(entry.value) + " " + entry.name;
    return list;
}

}  // namespace

std::string SeverityName(vexa::alarms::Alarm_Severity severity)
{
    const std::string& name = Alarm::Severity_Name(severity);
    return name.empty() ? std::to_string(severity) : name;
}

std::string Dump(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string Quoted(const std::string& text)
{
    return Dump(Json(text));
}

std::optional<Parameter> Parameter::Find(Config& config, const std::string& name)
{
    ParamDescriptor* const descriptor = FindDescriptor(config, name);
    return descriptor ? std::optional(Parameter(descriptor)) : std::nullopt;
}

std::string Parameter::IdText() const
{
    char text[16];
    snprintf(text, sizeof text, "0x%08x", Id());
    return text;
}

std::string Parameter::Name() const
{
    const std::string name = m_descriptor->GetParamIDName();
    return name.starts_with(kPrefix) ? name.substr(kPrefix.size()) : name;
}

const char* Parameter::Kind() const
{
    if (As<AlarmDescriptor>(*m_descriptor)) return "alarm";
    if (As<DataDescriptor>(*m_descriptor)) return "data";
    if (As<EnumDescriptor>(*m_descriptor)) return "enum";
    return HoldsText() ? "str" : "int";
}

bool Parameter::HoldsBytes() const
{
    return As<DataDescriptor>(*m_descriptor) || As<AlarmDescriptor>(*m_descriptor);
}

std::optional<Value> Parameter::Read(Config& config) const
{
    if (HoldsText()) {
        std::string text;
        const bool found = HoldsBytes() ? config.GetData(Id(), text) : config.Get(Id(), text);
        return found ? std::optional<Value>(text) : std::nullopt;
    }
    unsigned int number = 0;
    return config.Get(Id(), number) ? std::optional<Value>(number) : std::nullopt;
}

std::optional<Value> Parameter::Parse(const std::string& typed) const
{
    if (HoldsText()) return typed;
    if (auto* const enumeration = As<EnumDescriptor>(*m_descriptor))
        for (const EnumValueDescriptor& entry : enumeration->GetOrderedEnumValueDescriptors())
            if (SameIgnoringCase(entry.name, typed) || SameIgnoringCase(entry.shortName, typed))
                return entry.value;
    std::optional<unsigned int> number = ParseNumber(typed);
    if (!number && m_descriptor->GetParamType() == eCParam_IPAddress) number = ParseAddress(typed);
    return number ? std::optional<Value>(*number) : std::nullopt;
}

std::string Parameter::Units() const
{
    auto* const integer = As<IntegerDescriptor>(*m_descriptor);
    return integer ? integer->GetUnits() : "";
}

/// The number as it is shown: scaled, with its decimals; an address with its dots.
std::string Parameter::Scaled(unsigned int number) const
{
    if (m_descriptor->GetParamType() == eCParam_IPAddress) {
        const in_addr address{htonl(number)};
        char text[INET_ADDRSTRLEN];
        return inet_ntop(AF_INET, &address, text, sizeof text);
    }
    auto* const integer = As<IntegerDescriptor>(*m_descriptor);
    if (!integer || (integer->GetScaleBy() <= 1 && integer->GetOffsetBy() == 0))
        return std::to_string(number);
    const double shown =
        number / static_cast<double>(std::max(1u, integer->GetScaleBy())) + integer->GetOffsetBy();
    char text[64];
    snprintf(text, sizeof text, "%.*f", static_cast<int>(std::min(9u, integer->GetDisplayPrecision())),
             shown);
    return text;
}

std::string Parameter::Text(const Value& value) const
{
    if (const auto* text = std::get_if<std::string>(&value)) {
        Alarm alarm;
        if (As<AlarmDescriptor>(*m_descriptor) && alarm.ParseFromString(*text)) return AlarmText(alarm);
        return HoldsBytes() ? std::string("<").append(Hex(*text)).append(">") : Quoted(*text);
    }
    const unsigned int number = std::get<unsigned int>(value);
    if (auto* const enumeration = As<EnumDescriptor>(*m_descriptor))
        return std::to_string(number) + " " + enumeration->GetEnumValue(number);
    const std::string units = Units();
    return Scaled(number) + (units.empty() ? "" : " " + units);
}

Json Parameter::ToJson(const Value& value) const
{
    Json json{{"id", IdText()}, {"param", Name()}};
    if (const auto* text = std::get_if<std::string>(&value)) {
        json[HoldsBytes() ? "hex" : "value"] = HoldsBytes() ? Hex(*text) : *text;
        Alarm alarm;
        if (As<AlarmDescriptor>(*m_descriptor) && alarm.ParseFromString(*text)) json.update(AlarmJson(alarm));
        return json;
    }
    const unsigned int number = std::get<unsigned int>(value);
    json["value"] = number;
    if (auto* const enumeration = As<EnumDescriptor>(*m_descriptor))
        json["name"] = enumeration->GetEnumValue(number);
    const std::string shown = Scaled(number);
    if (shown != std::to_string(number)) json["text"] = shown;
    if (const std::string units = Units(); !units.empty()) json["units"] = units;
    return json;
}

std::optional<std::string> Parameter::Objection(const Value& value) const
{
    const auto* number = std::get_if<unsigned int>(&value);
    if (!number) return std::nullopt;
    if (auto* const enumeration = As<EnumDescriptor>(*m_descriptor)) {
        if (enumeration->HasEnumValue(*number)) return std::nullopt;
        return "not one of " + ListOfValues(*enumeration);
    }
    auto* const integer = As<IntegerDescriptor>(*m_descriptor);
    const unsigned int min = integer ? integer->GetMinValue() : 0,
                       max = integer ? integer->GetMaxValue() : ~0u;
    if (min > max || (min <= *number && *number <= max)) return std::nullopt;
    return "outside " + std::to_string(min) + " to " + std::to_string(max);
}
