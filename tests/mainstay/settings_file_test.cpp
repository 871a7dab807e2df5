#include "mainstay/state/settings_file.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/stderr_of.h"
#include "support/temporary_directory.h"

namespace fs = std::filesystem;
using state::Batch, state::SettingsFile, state::Values;
using testing::ElementsAre, testing::HasSubstr, testing::IsEmpty, testing::SizeIs;

namespace {

constexpr size_t kHistory = 1000;
constexpr auto kFan = eParamID_FanSpeed;
constexpr auto kReel = eParamID_ReelName;

std::map<eConfigID_t, Values> LoadedFrom(const std::string& directory, const std::string& model = "OAK")
{
    SettingsFile file(directory, model, kHistory);
    EXPECT_TRUE(file.Open());
    return file.LoadValues();
}

void WriteTo(const std::string& directory, const std::map<eConfigID_t, Values>& values)
{
    SettingsFile file(directory, "OAK", kHistory);
    ASSERT_TRUE(file.Open());
    file.Write({values, {}});
}

size_t CountOf(const std::string& directory, const std::string& part)
{
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(directory))
        count += entry.path().filename().string().find(part) != std::string::npos;
    return count;
}

/// What a device makes of a file that something has happened to.
struct Outcome {
    std::map<eConfigID_t, Values> values;
    std::vector<std::string> notes;
};
Outcome OpenDamaged(const std::string& directory, const std::string& bytes, const std::string& copy)
{
    for (const auto& entry : fs::directory_iterator(directory)) fs::remove(entry.path());
    WriteFile(directory + "/settings.db", bytes);
    WriteFile(directory + "/settings.db.bak", copy);
    SettingsFile file(directory, "OAK", kHistory);
    EXPECT_TRUE(file.Open());
    file.Write({{{0, {{eParamID_Camera, 2U}}}}, {}});  // it works
    Outcome outcome{file.LoadValues(), file.Notes()};
    outcome.values[0].erase(eParamID_Camera);
    return outcome;
}

}  // namespace

TEST(StateFile, KeepsValuesOfEachConfigurationAndModel)
{
    const TemporaryDirectory directory;
    const std::string bytes("a\0\xff\n", 4);
    const std::map<eConfigID_t, Values> values{
        {0, {{kFan, 80U}, {kReel, bytes}, {eParamID_Camera, 0xffffffffU}}}, {-3, {{kReel, std::string()}}}};
    WriteTo(directory.Path(), values);
    WriteTo(directory.Path(), {{0, {{kFan, 70U}}}});
    auto expected = values;
    expected[0][kFan] = 70U;
    EXPECT_EQ(LoadedFrom(directory.Path()), expected);
    EXPECT_THAT(LoadedFrom(directory.Path(), "HAZEL"), IsEmpty());
    EXPECT_EQ(fs::status(directory / "settings.db").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);

    SettingsFile file(directory.Path(), "HAZEL", kHistory), second(directory.Path(), "HAZEL", kHistory);
    EXPECT_TRUE(file.Open());
    EXPECT_EQ(file.CountOfOtherModels(), 4U);
    EXPECT_FALSE(second.Open());
}

TEST(StateFile, PresetsAreReplacedAndErased)
{
    SettingsFile file("", "OAK", kHistory);
    ASSERT_TRUE(file.Open());
    file.SavePreset({5, 100, {{kFan, 1U}, {kReel, std::string("x")}}});
    file.SavePreset({5, 200, {{kReel, std::string("y")}}});
    file.SavePreset({20, 300, {}});
    EXPECT_EQ(file.LoadPreset(5)->values, (Values{{kReel, std::string("y")}}));
    EXPECT_EQ(file.LoadPreset(6), std::nullopt);
    const auto presets = file.ListPresets();
    ASSERT_THAT(presets, SizeIs(2));
    EXPECT_EQ(presets[0].first.saved, 200);
    EXPECT_EQ(presets[0].second, 1U);
    EXPECT_TRUE(file.DeletePreset(5));
    EXPECT_FALSE(file.DeletePreset(5));
    file.DeleteAllPresets();
    EXPECT_THAT(file.ListPresets(), IsEmpty());
}

TEST(StateFile, TheHistoryIsBounded)
{
    SettingsFile file("", "OAK", 3);
    ASSERT_TRUE(file.Open());
    Batch batch;
    for (int64_t time = 1; time <= 5; ++time)
        batch.history.push_back({0, time, 0, time == 4 ? kReel : kFan, "a", "b", "who"});
    file.Write(batch);
    const auto times = [&](const state::HistoryQuery& query) {
        std::vector<int64_t> all;
        for (const auto& line : file.ReadHistory(query)) all.push_back(line.time);
        return all;
    };
    EXPECT_THAT(times({}), ElementsAre(3, 4, 5));
    EXPECT_THAT(times({.since = 4}), ElementsAre(4, 5));
    EXPECT_THAT(times({.params = {kFan}}), ElementsAre(3, 5));
    EXPECT_THAT(times({.limit = 1}), ElementsAre(5));
    EXPECT_THAT(times({.afterID = file.NewestLine() - 1}), ElementsAre(5));
}

TEST(StateFile, WhatIsNoFileOfOursIsMovedAside)
{
    const TemporaryDirectory directory;
    WriteTo(directory.Path(), {{0, {{kFan, 80U}}}});
    const std::string path = directory / "settings.db";
    for (const char* const change :
         {"PRAGMA user_version = 2", "PRAGMA application_id = 5", "DROP TABLE preset",
          "UPDATE value SET value = 81", "UPDATE value SET param = 1"}) {
        const std::string good = ReadFile(path);
        SQLite::Database(path, SQLite::OPEN_READWRITE).exec(change);
        std::map<eConfigID_t, Values> values;
        const std::string log = StderrOf([&] { values = LoadedFrom(directory.Path()); });
        EXPECT_THAT(values, IsEmpty()) << change;
        EXPECT_THAT(log, HasSubstr("could not be used")) << change;
        WriteFile(path, good);
    }
    EXPECT_EQ(CountOf(directory.Path(), "damaged-"), 5U);
}

TEST(StateFile, ADamagedFileDoesNotReplaceTheLastGoodCopy)
{
    const TemporaryDirectory directory;
    const std::map<eConfigID_t, Values> values{{0, {{kFan, 80U}}}};
    SettingsFile file(directory.Path(), "OAK", kHistory);
    ASSERT_TRUE(file.Open());
    EXPECT_TRUE(file.WantsBackUp());
    file.Write({values, {}});
    file.BackUp();
    EXPECT_FALSE(file.WantsBackUp());
    SQLite::Database(directory / "settings.db", SQLite::OPEN_READWRITE).exec("UPDATE value SET value = 81");
    EXPECT_THROW(file.BackUp(), SQLite::Exception);
    EXPECT_EQ(OpenDamaged(directory.Path(), "garbage", ReadFile(directory / "settings.db.bak")).values,
              values);
    EXPECT_EQ(fs::status(directory / "settings.db").permissions(),
              fs::perms::owner_read | fs::perms::owner_write);
}

TEST(StateFile, OnlyTheNewestDamagedFilesAreKept)
{
    const TemporaryDirectory directory;
    for (int i = 0; i < 9; ++i)
        WriteFile(directory / ("settings.db.damaged-2020010" + std::to_string(i)), "");
    WriteFile(directory / "settings.db", "garbage");
    LoadedFrom(directory.Path());
    EXPECT_EQ(CountOf(directory.Path(), "damaged-"), 5U);
    EXPECT_TRUE(fs::exists(directory / "settings.db.damaged-20200108"));
}

TEST(StateFile, AFileOfVersion1IsRead)
{
    const TemporaryDirectory directory;
    fs::copy_file(VEXA_SOURCE_DIR "/tests/golden/settings_1.db", directory / "settings.db");
    SettingsFile file(directory.Path(), "OAK", kHistory);
    ASSERT_TRUE(file.Open());
    EXPECT_THAT(file.Notes(), IsEmpty());
    EXPECT_EQ(file.LoadValues()[0].at(kReel), vexa::Value(std::string("Keep é")));
    EXPECT_EQ(file.LoadPreset(5)->values.at(kFan), vexa::Value(80U));
    EXPECT_THAT(file.ReadHistory({}), SizeIs(testing::Ge(2U)));
}

/// The device has the values of the file or those of its copy, never a mixture, and says which.
TEST(StateFile, DamageNeverMakesWrongValues)
{
    const TemporaryDirectory directory;
    const std::map<eConfigID_t, Values> now{{0, {{kFan, 80U}, {kReel, std::string("now")}}}};
    const std::map<eConfigID_t, Values> before{{0, {{kFan, 30U}, {kReel, std::string("before")}}}};
    WriteTo(directory.Path(), before);
    const std::string copy = ReadFile(directory / "settings.db");
    WriteTo(directory.Path(), now);
    const std::string good = ReadFile(directory / "settings.db");

    const auto check = [&](const std::string& bytes, const std::string& what) -> int {
        const Outcome outcome = OpenDamaged(directory.Path(), bytes, copy);
        if (outcome.notes.empty())
            EXPECT_EQ(outcome.values, now) << what;
        else
            EXPECT_EQ(outcome.values, before) << what << ": " << outcome.notes.front();
        return outcome.notes.empty();
    };
    StderrOf([&] {
        int harmless = 0;
        for (size_t size = 0; size < good.size(); size += size < 200 ? 1 : 29)
            harmless += check(good.substr(0, size), "cut off at " + std::to_string(size));
        EXPECT_LT(harmless, 4096 / 29 + 1);  // the last page has nothing but its header
        std::mt19937 random(1);
        harmless = 0;
        for (int i = 0; i < 1000; ++i) {
            std::string bytes = good;
            const size_t place = random() % bytes.size();
            bytes[place] = static_cast<char>(bytes[place] ^ (1 << random() % 8));
            harmless += check(bytes, "another bit at " + std::to_string(place));
        }
        EXPECT_LT(harmless, 1000);  // most of the file is empty
    });
    // Both damaged: the factory's values, and it says so.
    const Outcome outcome = OpenDamaged(directory.Path(), "garbage", "garbage");
    EXPECT_THAT(outcome.values.at(0), IsEmpty());
    EXPECT_THAT(outcome.notes.back(), HasSubstr("factory defaults"));
}
