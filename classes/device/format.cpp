#include "device/format.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <vector>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/integer_descriptor.h"
#include "config/descriptors/string_descriptor.h"
#include "messages/alarm.pb.h"

namespace vexa {

namespace {

using alarms::Alarm;

constexpr std::string_view kBlanks = " \t\r\n";

template <class Descriptor>
Descriptor* As(ParamDescriptor& descriptor)
{
    return dynamic_cast<Descriptor*>(&descriptor);
}

std::string_view Trimmed(std::string_view text)
{
    const size_t from = text.find_first_not_of(kBlanks);
    if (from == std::string_view::npos) return {};
    return text.substr(from, text.find_last_not_of(kBlanks) + 1 - from);
}

/// In one line: the names of values that have two have a line break and blanks inside.
std::string OneLine(std::string_view text)
{
    std::string line;
    for (const char c : Trimmed(text)) {
        const bool isBlank = kBlanks.find(c) != std::string_view::npos;
        if (!isBlank)
            line += c;
        else if (line.back() != ' ')
            line += ' ';
    }
    return line;
}

bool SameIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

template <class Number>
std::optional<Number> WholeNumber(std::string_view text, int base = 10)
{
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<unsigned int> PlainNumber(std::string_view text)
{
    if (text.starts_with("0x") || text.starts_with("0X"))
        return WholeNumber<unsigned int>(text.substr(2), 16);
    return WholeNumber<unsigned int>(text);
}

// --- dates and times: YYYYMMDD and HHMMSS in one number ---

/// The numbers between marks: "23:59:59".
std::vector<unsigned int> Parts(std::string_view text, char mark)
{
    std::vector<unsigned int> parts;
    for (size_t from = 0; from <= text.size();) {
        const size_t to = std::min(text.find(mark, from), text.size());
        const auto part = WholeNumber<unsigned int>(text.substr(from, to - from));
        if (!part) return {};
        parts.push_back(*part);
        from = to + 1;
    }
    return parts;
}

bool IsDate(unsigned int number)
{
    using namespace std::chrono;
    return year_month_day(year(static_cast<int>(number / 10000)), month(number / 100 % 100),
                          day(number % 100))
        .ok();
}

bool IsTime(unsigned int number)
{
    return number / 10000 < 24 && number / 100 % 100 < 60 && number % 100 < 60;
}

std::string WithMarks(unsigned int number, char mark, int firstDigits)
{
    char text[32];
    snprintf(text, sizeof text, "%0*u%c%02u%c%02u", firstDigits, number / 10000, mark, number / 100 % 100,
             mark, number % 100);
    return text;
}

std::optional<unsigned int> ParseMarked(std::string_view text, char mark, bool (*isValid)(unsigned int))
{
    std::optional<unsigned int> number = WholeNumber<unsigned int>(text);
    const std::vector<unsigned int> parts = Parts(text, mark);
    if (parts.size() == 3 && parts[0] < 10000 && parts[1] < 100 && parts[2] < 100)
        number = (parts[0] * 100 + parts[1]) * 100 + parts[2];
    return number && isValid(*number) ? number : std::nullopt;
}

// --- numbers with units ---

std::vector<std::string> UnitsOf(ParamDescriptor& descriptor)
{
    std::vector<std::string> units;
    if (auto* const integer = As<IntegerDescriptor>(descriptor))
        units = {integer->GetUnits(), integer->GetUnits2()};
    std::string suffix;
    for (const char* const key : {"value_suffix_singluar", "value_suffix_plural"})
        if (descriptor.GetAttribute(key, suffix)) units.push_back(suffix);
    std::erase(units, "");
    return units;
}

/// @return whether the text ended with a unit of the parameter, which is gone then.
bool TakeUnits(ParamDescriptor& descriptor, std::string_view& text)
{
    for (const std::string& unit : UnitsOf(descriptor))
        if (text.size() > unit.size() && SameIgnoringCase(text.substr(text.size() - unit.size()), unit)) {
            text = Trimmed(text.substr(0, text.size() - unit.size()));
            return true;
        }
    return false;
}

bool IsScaled(IntegerDescriptor& integer)
{
    return integer.GetScaleBy() > 1 || integer.GetOffsetBy() != 0;
}

std::string Scaled(IntegerDescriptor& integer, unsigned int number)
{
    const double shown =
        number / static_cast<double>(std::max(1u, integer.GetScaleBy())) + integer.GetOffsetBy();
    char text[64];
    snprintf(text, sizeof text, "%.*f", static_cast<int>(std::min(9u, integer.GetDisplayPrecision())), shown);
    return text;
}

std::optional<unsigned int> ParseScaled(IntegerDescriptor& integer, std::string_view text)
{
    double shown = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), shown);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    const double stored = std::round((shown - integer.GetOffsetBy()) * std::max(1u, integer.GetScaleBy()));
    if (!(stored >= 0 && stored <= 4294967295.0)) return std::nullopt;
    return static_cast<unsigned int>(stored);
}

std::string FormatAddress(unsigned int number)
{
    const in_addr address{htonl(number)};
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

std::optional<unsigned int> ParseAddress(std::string_view text)
{
    in_addr address;
    if (inet_pton(AF_INET, std::string(text).c_str(), &address) == 1) return ntohl(address.s_addr);
    return PlainNumber(text);
}

std::string FormatNumber(ParamDescriptor& descriptor, unsigned int number)
{
    switch (descriptor.GetParamType()) {
        case eCParam_IPAddress:
            return FormatAddress(number);
        case eCParam_Date:
            if (IsDate(number)) return WithMarks(number, '-', 4);
            break;
        case eCParam_Time:
            if (IsTime(number)) return WithMarks(number, ':', 2);
            break;
        case eCParam_Signed:
            return std::to_string(static_cast<int>(number));
        default:
            break;
    }
    auto* const integer = As<IntegerDescriptor>(descriptor);
    return integer && IsScaled(*integer) ? Scaled(*integer, number) : std::to_string(number);
}

/// A whole number without a unit is the stored one, even where a scaled one is shown: scripts have it from there.
std::optional<unsigned int> ParseNumber(ParamDescriptor& descriptor, std::string_view text)
{
    const bool hasUnits = TakeUnits(descriptor, text);
    switch (descriptor.GetParamType()) {
        case eCParam_IPAddress:
            return ParseAddress(text);
        case eCParam_Date:
            return ParseMarked(text, '-', IsDate);
        case eCParam_Time:
            return ParseMarked(text, ':', IsTime);
        case eCParam_Signed:
            if (const auto number = WholeNumber<int>(text)) return static_cast<unsigned int>(*number);
            break;
        default:
            break;
    }
    auto* const integer = As<IntegerDescriptor>(descriptor);
    const bool isShown = hasUnits || text.find('.') != std::string_view::npos;
    if (integer && IsScaled(*integer) && isShown) return ParseScaled(*integer, text);
    return PlainNumber(text);
}

// --- named values ---

std::string FormatNamed(EnumDescriptor& enumeration, unsigned int number)
{
    const std::string name =
        enumeration.HasEnumValue(number) ? OneLine(enumeration.GetEnumValue(number)) : "";
    return std::to_string(number) + (name.empty() ? "" : " " + name);
}

std::optional<unsigned int> ParseNamed(EnumDescriptor& enumeration, const std::string& text)
{
    for (const EnumValueDescriptor& entry : enumeration.GetOrderedEnumValueDescriptors())
        for (const std::string& name :
             {OneLine(entry.name), OneLine(entry.shortName), FormatNamed(enumeration, entry.value)})
            if (!name.empty() && SameIgnoringCase(name, text)) return entry.value;
    return PlainNumber(text);
}

std::string ListOfValues(EnumDescriptor& enumeration)
{
    std::string list;
    for (const EnumValueDescriptor& entry : enumeration.GetOrderedEnumValueDescriptors())
        list += (list.empty() ? "" : ", ") + FormatNamed(enumeration, entry.value);
    return list;
}

std::string RangeOf(ParamDescriptor& descriptor)
{
    auto* const integer = As<IntegerDescriptor>(descriptor);
    if (!integer || descriptor.GetParamType() == eCParam_Signed) return "any number";
    const std::vector<std::string> units = UnitsOf(descriptor);
    return FormatNumber(descriptor, integer->GetMinValue()) + " to " +
           FormatNumber(descriptor, integer->GetMaxValue()) + (units.empty() ? "" : " " + units.front());
}

std::string Expected(ParamDescriptor& descriptor)
{
    switch (descriptor.GetParamType()) {
        case eCParam_IPAddress:
            return "it takes an address, as 10.0.0.9";
        case eCParam_Date:
            return "it takes a date, as 2026-02-28";
        case eCParam_Time:
            return "it takes a time, as 23:59:59";
        default:
            return "it takes " + RangeOf(descriptor);
    }
}

// --- bytes ---

constexpr char kDigits[] = "0123456789abcdef";

std::string Hex(const std::string& bytes)
{
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

/// "<00ff>" as bytes; any other text as it is.
std::optional<std::string> ParseBytes(const std::string& text)
{
    if (!text.starts_with('<') || !text.ends_with('>')) return text;
    const std::string_view digits = std::string_view(text).substr(1, text.size() - 2);
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        const auto byte = WholeNumber<unsigned int>(digits.substr(i, 2), 16);
        if (!byte || i + 1 == digits.size()) return std::nullopt;
        bytes += static_cast<char>(*byte);
    }
    return bytes;
}

constexpr std::string_view kBetweenErrors = "; ";

std::string FormatAlarm(const Alarm& alarm)
{
    std::string text = alarm.state() == Alarm::CLEAR ? "clear" : "raised";
    const std::string& severity = Alarm::Severity_Name(alarm.severity());
    text += ", " + (severity.empty() ? std::to_string(alarm.severity()) : severity);
    for (int i = 0; i < alarm.error_size(); ++i)
        text.append(i == 0 ? ": " : kBetweenErrors).append(alarm.error(i).text());
    return text;
}

std::optional<std::string> ParseAlarm(std::string_view text)
{
    Alarm alarm;
    const size_t colon = std::min(text.find(": "), text.size());
    const std::string_view head = text.substr(0, colon);
    const size_t comma = std::min(head.find(','), head.size());
    const std::string_view state = Trimmed(head.substr(0, comma));
    if (!SameIgnoringCase(state, "raised") && !SameIgnoringCase(state, "clear")) return std::nullopt;
    alarm.set_state(SameIgnoringCase(state, "raised") ? Alarm::RAISED : Alarm::CLEAR);
    if (comma < head.size()) {
        alarms::Alarm_Severity severity{};
        if (!Alarm::Severity_Parse(std::string(Trimmed(head.substr(comma + 1))), &severity))
            return std::nullopt;
        alarm.set_severity(severity);
    }
    for (size_t from = colon + 2; from <= text.size();) {
        const size_t to = std::min(text.find(kBetweenErrors, from), text.size());
        alarm.add_error()->set_text(std::string(text.substr(from, to - from)));
        from = to + kBetweenErrors.size();
    }
    return alarm.SerializeAsString();
}

std::optional<Value> ParseText(ParamDescriptor& descriptor, const std::string& text, std::string& reason)
{
    std::optional<std::string> parsed = text;
    if (As<AlarmDescriptor>(descriptor)) {
        parsed = ParseAlarm(text);
        if (!parsed) reason = "it takes an alarm, as \"raised, ERROR: no signal\" or \"clear\"";
    } else if (HoldsBytes(descriptor)) {
        parsed = ParseBytes(text);
        if (!parsed) reason = "it takes bytes, as <00ff>, or a text";
    }
    return parsed ? std::optional<Value>(*parsed) : std::nullopt;
}

std::optional<std::string> ObjectionToText(ParamDescriptor& descriptor, const std::string& text)
{
    auto* const limits = As<StringDescriptor>(descriptor);
    if (!limits || HoldsBytes(descriptor)) return std::nullopt;
    const unsigned int min = limits->GetMinLength(), max = limits->GetMaxLength();
    if (max == 0 || (min <= text.size() && text.size() <= max)) return std::nullopt;
    return (text.size() < min ? "shorter than " + std::to_string(min)
                              : "longer than " + std::to_string(max)) +
           " bytes";
}

}  // namespace

const char* KindOf(ParamDescriptor& descriptor)
{
    if (As<AlarmDescriptor>(descriptor)) return "alarm";
    if (As<DataDescriptor>(descriptor)) return "data";
    if (As<EnumDescriptor>(descriptor)) return "enum";
    return HoldsText(descriptor) ? "str" : "int";
}

bool HoldsBytes(ParamDescriptor& descriptor)
{
    return As<DataDescriptor>(descriptor) || As<AlarmDescriptor>(descriptor);
}

bool HoldsText(ParamDescriptor& descriptor)
{
    return descriptor.GetParamType() == eCParam_StringValue;
}

std::string Format(ParamDescriptor& descriptor, const Value& value)
{
    if (const auto* const text = std::get_if<std::string>(&value)) {
        Alarm alarm;
        if (As<AlarmDescriptor>(descriptor) && alarm.ParseFromString(*text)) return FormatAlarm(alarm);
        return HoldsBytes(descriptor) ? "<" + Hex(*text) + ">" : *text;
    }
    const unsigned int number = std::get<unsigned int>(value);
    if (auto* const enumeration = As<EnumDescriptor>(descriptor)) return FormatNamed(*enumeration, number);
    auto* const integer = As<IntegerDescriptor>(descriptor);
    const std::string units = integer ? integer->GetUnits() : "";
    return FormatNumber(descriptor, number) + (units.empty() ? "" : " " + units);
}

std::optional<Value> Parse(ParamDescriptor& descriptor, const std::string& text, std::string& reason)
{
    if (HoldsText(descriptor)) return ParseText(descriptor, text, reason);
    const std::string line = OneLine(text);
    std::optional<unsigned int> number;
    if (auto* const enumeration = As<EnumDescriptor>(descriptor)) {
        number = ParseNamed(*enumeration, line);
        if (!number) reason = "not one of " + ListOfValues(*enumeration);
    } else {
        number = ParseNumber(descriptor, line);
        if (!number) reason = Expected(descriptor);
    }
    return number ? std::optional<Value>(*number) : std::nullopt;
}

std::optional<std::string> Objection(ParamDescriptor& descriptor, const Value& value)
{
    if (const auto* const text = std::get_if<std::string>(&value)) return ObjectionToText(descriptor, *text);
    const unsigned int number = std::get<unsigned int>(value);
    if (auto* const enumeration = As<EnumDescriptor>(descriptor)) {
        if (enumeration->HasEnumValue(number)) return std::nullopt;
        return "not one of " + ListOfValues(*enumeration);
    }
    auto* const integer = As<IntegerDescriptor>(descriptor);
    if (!integer || integer->GetMinValue() > integer->GetMaxValue()) return std::nullopt;
    if (integer->GetMinValue() <= number && number <= integer->GetMaxValue()) return std::nullopt;
    return "outside " + RangeOf(descriptor);
}

}  // namespace vexa
