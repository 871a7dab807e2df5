#include "vexactl/settings_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/base/harmless.h"
#include "config/descriptors/enum_descriptor.h"
#include "vexactl/session.h"

using testing::HasSubstr;

namespace {

std::vector<Value> SamplesOf(const Parameter& parameter)
{
    if (vexa::HoldsText(parameter.Descriptor()))
        return {"",
                "12",
                "0012",
                "say \"hi\" \\ 'n",
                " # no comment = 1\r\n\tx",
                "\x01\x1b[31m\x7f\b\f",
                "é 漢 🎬",
                "\u202e\u009b\ufeff",
                "<00ff>",
                "{ hex = \"00\" }",
                "\"\"\"'''",
                "\xff\xc3(",
                std::string("a\0b", 3),
                "raised, ERROR: a; b",
                std::string(5000, 'x')};
    std::vector<Value> samples{0u,      1u,          7u,          1999u,       20260228u,
                               235959u, 0xc0a80002u, 0x7fffffffu, 0x80000000u, 0xffffffffu};
    if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(&parameter.Descriptor()))
        for (const auto& [value, entry] : enumeration->GetEnumValueDescriptors()) samples.emplace_back(value);
    return samples;
}

void ExpectTheSameBack(const vexa::Catalogue& catalogue, size_t round)
{
    SettingValues values;
    for (const auto& [id, descriptor] : catalogue.All()) {
        if (catalogue.Find(Parameter(descriptor).Name()) != descriptor) continue;  // a name of two
        const auto samples = SamplesOf(Parameter(descriptor));
        if (round < samples.size()) values.emplace_back(Parameter(descriptor), samples[round]);
    }
    const std::string text = SettingsText({catalogue.Model(), "\"1\"", "2\n"}, values);
    EXPECT_EQ(vexa::Harmless(text), text) << "a terminal would obey it";
    const SettingsFile file = SettingsFile::Parse(text, "all.toml");
    EXPECT_EQ(file.model, catalogue.Model());
    EXPECT_EQ(file.device.serial + file.device.software, "\"1\"2\n");
    ASSERT_EQ(file.lines.size(), values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        std::string reason;
        EXPECT_EQ(file.lines[i].name, values[i].first.Name());
        EXPECT_EQ(ValueOf(values[i].first.Descriptor(), file.lines[i].value, reason), values[i].second)
            << values[i].first.Name() << " round " << round << reason;
    }
}

TEST(SettingsFile, EveryValueOfEveryModelIsReadAsItWasWritten)
{
    for (unsigned int number = 0; number < 1000; ++number) {
        const auto model = vexa::Catalogue::ModelOf(number);
        for (size_t round = 0; model && round < 70 && !HasFailure(); ++round)
            ExpectTheSameBack(*vexa::Catalogue::Of(*model), round);
    }
}

TEST(SettingsFile, PeopleMayWriteValuesInTheirOwnWay)
{
    const auto catalogue = vexa::Catalogue::Of("OAK");
    struct Row {
        const char* name;
        const char* written;
        std::optional<Value> value;
        const char* reason = "";
    };
    const Row rows[] = {
        {"FanSpeed", "'70 %'", 70u},
        {"FanSpeed", "0x46", 70u},
        {"FanSpeed", "70.5", std::nullopt, "it takes 30 to 100 %"},
        {"FanSpeed", "-70", std::nullopt, "it takes 30 to 100 %"},
        {"FanSpeed", "4294967296", std::nullopt, "it takes 30 to 100 %"},
        {"FanSpeed", "true", std::nullopt, "it takes a number, or a text in quotes"},
        {"FanSpeed", "{ hex = '00' }", std::nullopt, "it takes a number, or a text in quotes"},
        {"IPAddress", "'10.0.0.9'", 0x0a000009u},
        {"ClipName", "'scene'", 1u},
        {"ClipName", "1", 1u},
        {"ClipName", "1.5", std::nullopt, "not one of 0 Clip"},
        {"MainVoltage", "12.5", 12500u},
        {"MainVoltage", "12.0", 12000u},
        {"MainVoltage", "12", 12u},
        {"SerialNumber", "-5", 0xfffffffbu},
        {"ReelName", "12", std::nullopt, "it takes a text, in quotes"},
        {"ReelName", "{ hex = '0' }", std::nullopt, "it takes a text, in quotes"},
        {"ReelName", "{ hex = 'fF' }", "\xff"},
        {"ReelName", "'''a\nb'''", "a\nb"},
    };
    for (const Row& row : rows) {
        const SettingsFile file =
            SettingsFile::Parse("[settings]\n" + std::string(row.name) + " = " + row.written, "x");
        ASSERT_EQ(file.lines.size(), 1u);
        EXPECT_FALSE(file.model);
        std::string reason;
        EXPECT_EQ(ValueOf(*catalogue->Find(row.name), file.lines[0].value, reason), row.value) << row.written;
        EXPECT_THAT(reason, HasSubstr(row.reason)) << row.name << " = " << row.written;
    }
}

TEST(SettingsFile, WhatIsNoSuchFileIsRefusedWithItsPlace)
{
    const std::pair<const char*, const char*> rows[] = {
        {"[settings]\nFanSpeed = = 3", "a.toml:2:"},
        {"[settings]\nFanSpeed = 70\nFanSpeed = 71", "a.toml:3:"},
        {"[settings]\nReelName = \"\xff\"", "a.toml:2:"},
        {"FanSpeed = 70", "a.toml:1:1: \"FanSpeed\" is not known here"},
        {"[stettings]", "a.toml:1:2: \"stettings\" is not known here"},
        {"[device]\nmodels = 'OAK'", "a.toml:2:1: \"models\" is not known here"},
        {"[device]\nmodel = 8", "a.toml:2:9: model is a text, in quotes"},
        {"settings = 1", "a.toml:1:12: settings is a table: [settings]"},
    };
    for (const auto& [text, message] : rows) {
        try {
            SettingsFile::Parse(text, "a.toml");
            ADD_FAILURE() << text;
        } catch (const ConnectionError& error) {
            EXPECT_EQ(error.status, ExitStatus::kUsage);
            EXPECT_THAT(error.what(), HasSubstr(message));
        }
    }
}

}  // namespace
