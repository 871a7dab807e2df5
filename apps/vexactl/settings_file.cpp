#include "vexactl/settings_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>

#include <toml++/toml.h>

#include "config/base/harmless.h"
#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/string_descriptor.h"
#include "vexactl/files.h"
#include "vexactl/session.h"

namespace {

using Kind = WrittenValue::Kind;

constexpr char kDevice[] = "device", kSettings[] = "settings", kHex[] = "hex";

[[noreturn]] void Refuse(const std::string& path, const toml::source_position& place, const std::string& why)
{
    throw ConnectionError(
        path + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) + ": " + why,
        ExitStatus::kUsage);
}

// --- values as they are written ---

std::optional<std::string> BytesOf(const std::string& digits)
{
    if (digits.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        unsigned char byte = 0;
        const char* const end = digits.data() + i + 2;
        if (std::from_chars(digits.data() + i, end, byte, 16).ptr != end) return std::nullopt;
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

template <class Time>
WrittenValue ShownTime(const Time& time)
{
    std::ostringstream text;
    text << time;
    return {Kind::kText, text.str()};
}

WrittenValue WrittenIn(const toml::node& node)
{
    if (const auto* const number = node.as_integer()) return {Kind::kNumber, std::to_string(number->get())};
    if (const auto* const text = node.as_string()) return {Kind::kText, text->get()};
    if (const auto* const date = node.as_date()) return ShownTime(date->get());
    if (const auto* const time = node.as_time()) return ShownTime(time->get());
    if (const auto* const shown = node.as_floating_point(); shown && std::isfinite(shown->get()))
        return {Kind::kNumber, Json(shown->get()).dump()};  // 12.0 is shown, 12 would be stored
    const auto* const table = node.as_table();
    if (table && table->is_inline() && table->size() == 1)
        if (const auto* const digits = table->get_as<std::string>(kHex))
            if (const auto bytes = BytesOf(digits->get())) return {Kind::kBytes, *bytes};
    return {};
}

/// A whole number is the stored one, also of a value that is shown otherwise.
std::optional<Value> StoredNumber(const std::string& text)
{
    int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [parsed, error] = std::from_chars(text.data(), end, number);
    if (parsed != end || error != std::errc() || number < INT32_MIN || number > UINT32_MAX)
        return std::nullopt;
    return static_cast<unsigned int>(number);
}

std::optional<Value> NumberOf(ParamDescriptor& descriptor, const std::string& text, std::string& reason)
{
    const bool isSigned = descriptor.GetParamType() == eCParam_Signed;
    const bool isStored = text.find_first_not_of("0123456789") == std::string::npos ||
                          (isSigned && text.find_first_not_of("-0123456789") == std::string::npos);
    if (auto stored = isStored ? StoredNumber(text) : std::nullopt) return stored;
    return vexa::Parse(descriptor, text, reason);
}

// --- values to be written ---

/// In the quotes of TOML, which knows the marks that JSON puts before special characters.
std::string InQuotes(const std::string& text)
{
    return vexa::Harmless(Quoted(text));
}

std::string InHex(const std::string& bytes)
{
    std::string digits;
    for (const char c : bytes) {
        char two[3];
        snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(c));
        digits += two;
    }
    return std::string("{ ") + kHex + " = \"" + digits + "\" }";
}

std::string WithoutUnits(const Parameter& parameter, std::string text)
{
    const std::string units = parameter.Units();
    if (!units.empty() && text.ends_with(" " + units)) text.resize(text.size() - units.size() - 1);
    return text;
}

/// The ways to write a value, the most readable first; the last one is always read as this value.
std::vector<std::string> FormsOf(const Parameter& parameter, const Value& value)
{
    const std::string shown = vexa::Format(parameter.Descriptor(), value);
    if (const auto* const bytes = std::get_if<std::string>(&value)) return {InQuotes(shown), InHex(*bytes)};
    const std::string stored = std::to_string(std::get<unsigned int>(value));
    if (std::string_view(parameter.Kind()) == "enum")
        return {InQuotes(shown.substr(std::min(shown.find(' '), shown.size() - 1) + 1)), stored};
    const std::string number = WithoutUnits(parameter, shown);
    return {number, InQuotes(shown), stored};
}

bool IsReadAs(const Parameter& parameter, const std::string& form, const Value& value)
{
    try {
        std::string ignored;
        const toml::table line = toml::parse("x = " + form);
        return ValueOf(parameter.Descriptor(), WrittenIn(*line.get("x")), ignored) == value;
    } catch (const toml::parse_error&) {
        return false;
    }
}

std::string Written(const Parameter& parameter, const Value& value)
{
    const std::vector<std::string> forms = FormsOf(parameter, value);
    const auto form = std::ranges::find_if(
        forms, [&](const std::string& candidate) { return IsReadAs(parameter, candidate, value); });
    return form == forms.end() ? forms.back() : *form;
}

// --- comments ---

/// The names of an enumeration, as many as a line holds.
std::string NamesOf(EnumDescriptor& enumeration)
{
    constexpr size_t kLine = 100;
    std::string names;
    for (const EnumValueDescriptor& entry : enumeration.GetOrderedEnumValueDescriptors()) {
        const std::string shown = vexa::Format(enumeration, entry.value);  // "0 Clip"
        names += (names.empty() ? "" : ", ") + shown.substr(shown.find(' ') + 1);
        if (names.size() > kLine) return names + ", ...";
    }
    return names;
}

std::string RangeOf(const Parameter& parameter)
{
    ParamDescriptor& descriptor = parameter.Descriptor();
    if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(&descriptor)) return NamesOf(*enumeration);
    if (auto* const text = dynamic_cast<StringDescriptor*>(&descriptor)) {
        const unsigned int min = text->GetMinLength(), max = text->GetMaxLength();
        if (max == 0) return "";
        const std::string least = min == 0 ? "up to " : std::to_string(min) + " to ";
        return (min == max ? "" : least) + std::to_string(max) + " bytes";
    }
    auto* const integer = dynamic_cast<IntegerDescriptor*>(&descriptor);
    if (!integer || integer->GetMinValue() >= integer->GetMaxValue()) return "";
    if (descriptor.GetParamType() == eCParam_IPAddress || descriptor.GetParamType() == eCParam_Signed)
        return "";
    return WithoutUnits(parameter, vexa::Format(descriptor, integer->GetMinValue())) + " to " +
           vexa::Format(descriptor, integer->GetMaxValue());
}

std::string LineOf(const Parameter& parameter, const Value& value)
{
    const std::string range = RangeOf(parameter);
    const std::string line = parameter.Name() + " = " + Written(parameter, value);
    return line + (range.empty() ? "" : "  # " + vexa::Harmless(range)) + "\n";
}

// --- tables ---

std::string TextIn(const toml::table& device, const char* key, const std::string& path)
{
    const toml::node* const node = device.get(key);
    if (!node) return "";
    if (!node->is_string()) Refuse(path, node->source().begin, std::string(key) + " is a text, in quotes");
    return node->as_string()->get();
}

const toml::table* TableIn(const toml::table& all, const char* name, const std::string& path)
{
    const toml::node* const node = all.get(name);
    if (node && !node->is_table())
        Refuse(path, node->source().begin, std::string(name) + " is a table: [" + name + "]");
    return node ? node->as_table() : nullptr;
}

/// A word that is written wrongly must not be passed over: the line would have no effect.
void RequireKnown(const toml::table& table, std::initializer_list<std::string_view> known,
                  const std::string& path, const std::string& help)
{
    for (const auto& [key, node] : table)
        if (std::ranges::find(known, key.str()) == known.end())
            Refuse(path, key.source().begin, Quoted(std::string(key.str())) + " is not known here: " + help);
}

}  // namespace

SettingsFile SettingsFile::Read(const std::string& path)
{
    constexpr size_t kMost = 4 << 20;  // of what a person edits
    std::string reason;
    const auto text = ReadFile(path, kMost, reason);
    if (!text) throw ConnectionError("cannot read " + Quoted(path) + ": " + reason, ExitStatus::kUsage);
    return Parse(*text, path);
}

SettingsFile SettingsFile::Parse(const std::string& text, const std::string& path)
{
    SettingsFile file;
    file.path = path;
    try {
        const toml::table all = toml::parse(text, path);
        RequireKnown(all, {kDevice, kSettings}, path, "a file of settings has [device] and [settings]");
        if (const toml::table* const device = TableIn(all, kDevice, path)) {
            RequireKnown(*device, {"model", "serial", "software"}, path,
                         "[device] has model, serial and software");
            file.device = {TextIn(*device, "model", path), TextIn(*device, "serial", path),
                           TextIn(*device, "software", path)};
            if (device->contains("model")) file.model = file.device.model;
        }
        if (const toml::table* const settings = TableIn(all, kSettings, path))
            for (const auto& [key, node] : *settings)
                file.lines.push_back({std::string(key.str()), WrittenIn(node), key.source().begin.line,
                                      key.source().begin.column});
    } catch (const toml::parse_error& error) {
        Refuse(path, error.source().begin, std::string(error.description()));
    }
    std::ranges::sort(file.lines, {},
                      [](const SettingsLine& line) { return std::pair(line.line, line.column); });
    return file;
}

std::string SettingsFile::PlaceOf(const SettingsLine& line) const
{
    return path + ":" + std::to_string(line.line) + ":" + std::to_string(line.column);
}

std::optional<Value> ValueOf(ParamDescriptor& descriptor, const WrittenValue& written, std::string& reason)
{
    const bool takesText = vexa::HoldsText(descriptor);
    switch (written.kind) {
        case Kind::kText:
            return vexa::Parse(descriptor, written.text, reason);
        case Kind::kNumber:
            if (!takesText) return NumberOf(descriptor, written.text, reason);
            reason = "it takes a text, in quotes";
            return std::nullopt;
        case Kind::kBytes:
            if (takesText) return written.text;
            break;
        case Kind::kOther:
            break;
    }
    reason = takesText ? "it takes a text, in quotes" : "it takes a number, or a text in quotes";
    return std::nullopt;
}

std::string SettingsText(const Identity& device, const SettingValues& values)
{
    std::string text = "[device]\nmodel = " + InQuotes(device.model) +
                       "\nserial = " + InQuotes(device.serial) + "\nsoftware = " + InQuotes(device.software) +
                       "\n\n[settings]\n";
    std::optional<unsigned int> group;
    for (const auto& [parameter, value] : values) {
        if (group != parameter.Id() >> 24) {
            text += std::string(group ? "\n" : "") + "# group " + std::to_string(parameter.Id() >> 24) + "\n";
            group = parameter.Id() >> 24;
        }
        text += LineOf(parameter, value);
    }
    return text;
}
