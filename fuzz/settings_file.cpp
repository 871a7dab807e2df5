/// Files of settings, which people edit and others may have written.
#include "vexactl/settings_file.h"

#include "config/base/harmless.h"
#include "fuzz/harness.h"
#include "vexactl/session.h"

namespace {

/// A value of a parameter is the same after it was written and read.
void TestAgain(const Identity& device, const Parameter& parameter, const Value& value)
{
    const std::string text = SettingsText(device, {{parameter, value}});
    Require(vexa::Harmless(text) == text, "a terminal can show it");
    const SettingsFile again = SettingsFile::Parse(text, "again");
    Require(again.lines.size() == 1, "the value has a line");
    std::string ignored;
    Require(ValueOf(parameter.Descriptor(), again.lines[0].value, ignored) == value,
            "the value is read as it was written");
}

void TestLine(const vexa::Catalogue& catalogue, const SettingsFile& file, const SettingsLine& line)
{
    ParamDescriptor* const descriptor = catalogue.Find(line.name);
    if (!descriptor) return;
    std::string reason;
    const auto value = ValueOf(*descriptor, line.value, reason);
    Require(value || !reason.empty(), "what is no value has a reason");
    if (value) TestAgain(file.device, Parameter(descriptor), *value);
}

std::optional<SettingsFile> Parsed(const std::string& text)
{
    try {
        return SettingsFile::Parse(text, "a.toml");
    } catch (const ConnectionError&) {
        return std::nullopt;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const auto catalogue = vexa::Catalogue::Of("OAK");
    const auto file = Parsed(std::string(reinterpret_cast<const char*>(data), size));
    if (!file) return 0;
    for (const SettingsLine& line : file->lines) TestLine(*catalogue, *file, line);
    return 0;
}
