#include "vexactl/parameter.h"

#include <algorithm>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/string_descriptor.h"

namespace {

constexpr char kHidden[] = "********";

using vexa::alarms::Alarm;

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

Json AlarmJson(const Alarm& alarm)
{
    Json json{{"raised", alarm.state() != Alarm::CLEAR}, {"severity", SeverityName(alarm.severity())}};
    for (const auto& error : alarm.error()) json["errors"].push_back(error.text());
    return json;
}

/// The errors of an alarm come from the device, and may have several lines.
std::string InOneLine(const std::string& text)
{
    const std::string quoted = Quoted(text);
    return quoted.substr(1, quoted.size() - 2);
}

}  // namespace

std::string SeverityName(vexa::alarms::Alarm_Severity severity)
{
    const std::string& name = Alarm::Severity_Name(severity);
    return name.empty() ? std::to_string(severity) : name;
}

std::string DidYouMean(const vexa::Catalogue& catalogue, const std::string& name)
{
    std::string meant;
    for (const std::string& known : catalogue.Similar(name)) meant += (meant.empty() ? "" : " or ") + known;
    return meant.empty() ? "" : "did you mean " + meant + "?";
}

std::string Padded(std::string text, size_t width)
{
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

std::string Parameter::IdText() const
{
    char text[16];
    snprintf(text, sizeof text, "0x%08x", Id());
    return text;
}

bool Parameter::IsAlarm() const
{
    return dynamic_cast<AlarmDescriptor*>(m_descriptor) != nullptr;
}

std::string Parameter::Units() const
{
    auto* const integer = dynamic_cast<IntegerDescriptor*>(m_descriptor);
    return integer ? integer->GetUnits() : "";
}

std::string Parameter::Text(const Value& value) const
{
    if (IsHidden()) return kHidden;
    std::string text = vexa::Format(*m_descriptor, value);
    if (!vexa::HoldsText(*m_descriptor)) return text;
    return HoldsBytes() ? InOneLine(text) : Quoted(text);
}

bool Parameter::IsRead(const std::string& text, const Value& value) const
{
    std::string ignored;
    return !text.empty() && vexa::Parse(*m_descriptor, text, ignored) == value;
}

std::string Parameter::Bare(const Value& value) const
{
    if (IsHidden()) return kHidden;
    std::string text = vexa::Format(*m_descriptor, value);
    if (vexa::HoldsText(*m_descriptor)) return text;
    std::string bare = text;
    if (std::string_view(Kind()) == "enum")
        bare = text.substr(std::min(text.find(' '), text.size() - 1) + 1);
    else if (const std::string units = Units(); !units.empty() && text.ends_with(" " + units))
        bare = text.substr(0, text.size() - units.size() - 1);
    return IsRead(bare, value) ? bare : text;
}

Json Parameter::ToJson(const Value& value) const
{
    Json json{{"id", IdText()}, {"param", Name()}};
    if (IsHidden()) {
        json["hidden"] = true;
        return json;
    }
    const std::string shown = vexa::Format(*m_descriptor, value);
    if (const auto* text = std::get_if<std::string>(&value)) {
        Alarm alarm;
        const bool isAlarm = IsAlarm() && alarm.ParseFromString(*text);
        if (HoldsBytes())
            json["hex"] = Hex(*text);
        else
            json["value"] = *text;
        if (isAlarm) json.update(AlarmJson(alarm));
        return json;
    }
    const unsigned int number = std::get<unsigned int>(value);
    json["value"] = number;
    if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(m_descriptor))
        json["name"] = enumeration->GetEnumValue(number);
    else if (shown != std::to_string(number))
        json["text"] = shown;
    if (const std::string units = Units(); !units.empty()) json["units"] = units;
    return json;
}

std::string Parameter::Typed(const std::string& typed) const
{
    constexpr size_t kMuch = 60;
    if (IsHidden()) return kHidden;
    if (typed.size() <= kMuch) return Quoted(typed);
    return Quoted(typed.substr(0, kMuch)) + "... (" + std::to_string(typed.size()) + " bytes)";
}
