#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "services/product/flash_info.h"
#include "services/product/product_features.h"
#include "services/product/product_id.h"
#include "services/product/product_models.h"
#include "services/product/read_file.h"
#include "services/product/serial_number.h"
#include "support/in_child.h"
#include "support/stderr_of.h"

namespace {

// ---- Serial numbers ----

TEST(SerialNumber, FollowsFromTheLastFourAddressBytes)
{
    const struct {
        uint32_t address, low, high, engLow, engHigh;
        int serial;
        const char* why;
    } kRows[] = {
        {5, 0, 100, 200, 300, 5, "production"},
        {0, 0, 100, 200, 300, 0, "the lower end is excluded"},
        {100, 0, 100, 200, 300, 0, "the upper end is excluded"},
        {201, 0, 100, 200, 300, -1, "engineering"},
        {200, 0, 1000, 200, 300, 200, "the engineering ends are excluded"},
        {300, 0, 1000, 200, 300, 300, "the engineering ends are excluded"},
        {250, 0, 1000, 200, 300, -50, "engineering wins"},
        {0xFFFFFFF0, 0xFFFFFF00, 0xFFFFFFFF, 0, 0, 0xF0, "addresses are unsigned"},
        {0x80000005, 0, 100, 0x80000000, 0x80000100, -5, "addresses are unsigned"},
    };
    for (const auto& [address, low, high, engLow, engHigh, serial, why] : kRows) {
        unsigned char mac[6] = {0xDE, 0xAD};
        for (int n = 0; n < 4; ++n) mac[2 + n] = static_cast<unsigned char>(address >> (24 - 8 * n));
        EXPECT_EQ(SerialNumber::ConvertMACToSerial(mac), address);
        EXPECT_EQ(SerialNumber::GetSerialNumber(low, high, engLow, engHigh, mac), serial) << why;
    }
}

TEST(SerialNumber, FormatsWithPrefixAndOffset)
{
    for (const auto& [serial, prefix, offset, text] :
         {std::tuple{5, "AL", 250u, "AL000255  "},
          {999999, "CD", 500u, "CD1000499  "},
          {-3, "AL", 250u, "ENG003 "},
          {-12345, "AL", 250u, "ENG12345 "},
          {INT_MIN, "AL", 250u, "ENG2147483648 "},
          {7, "A-PREFIX-WITHOUT-END", 0u, "A-PREFIX-WITHOUT-EN"}})
        EXPECT_EQ(SerialNumber::FormatSerialNumber(serial, prefix, offset), text);
}

TEST(SerialNumber, AddressAndBoardAreEmptyTextsWhenThereIsNone)
{
    unsigned char mac[6] = {1, 2, 3, 4, 5, 6};
    const bool found = SerialNumber::GetMacAddress(mac);
    EXPECT_THAT(SerialNumber::GetMacAddress(), testing::SizeIs(found ? 17u : 0u));
    EXPECT_TRUE(found || std::ranges::count(mac, 0) == 6);
    EXPECT_EQ(SerialNumber::GetBoardID(nullptr), "");
}

// ---- Models ----

TEST(ProductID, NamesOneModelForTheWholeProcess)
{
    ExpectOnModel(
        "ALDER",
        [] {
            EXPECT_EQ(CProductID::getProductID(), "ALDER");
            setenv("PRODUCT_ID", "MAPLE", 1);
            EXPECT_TRUE(CProductID::isALDER() && !CProductID::isMAPLE());
            EXPECT_EQ(SerialNumber::FormatSerialNumber(5), "AL000255  ");
        },
        "");
    ExpectOnModel("MAPLE", [] {
        EXPECT_FALSE(CProductFeatures::canDoHeight(719));
        EXPECT_TRUE(CProductFeatures::canDoHeight(720));
    });
}

TEST(ProductID, AnUnknownModelHasNoFeaturesAndNoSerial)
{
    for (const char* const name : {"YEW", "", "alder"})
        ExpectOnModel(
            name,
            [] {
                EXPECT_EQ(SerialNumber::GetFormattedSerialNumber(), "XX000000  ");
                EXPECT_FALSE(CProductID::isALDER() || CProductFeatures::canDoi18n());
                for (const int height : {0, -1, INT_MIN}) EXPECT_TRUE(CProductFeatures::canDoHeight(height));
                EXPECT_EQ(CProductFeatures::canDoEthernets(), 1);
            },
            "FormatSerialNumber: ERROR  Unknown ProductID\n"
            "FormatSerialNumber: ERROR.  Unknown ProductID.\n");
}

// ---- The table of features in docs/models.md ----

std::string Cell(int number)
{
    return std::to_string(number);
}

std::string Cell(bool holds)
{
    return holds ? "yes" : "-";
}

/// What the table has to say of this model, by the predicate that each row names.
std::map<std::string, std::string> Features()
{
    using P = CProductFeatures;
    std::map<std::string, std::string> features = {{"canDoHeight(480)", Cell(P::canDoHeight(480))}};
#define FEATURE(name) features[#name] = Cell(P::name())
    FEATURE(hasMedia), FEATURE(countSDIInputs), FEATURE(canDoEthernets), FEATURE(canDoUHD), FEATURE(has12G);
    FEATURE(isMultiChannel), FEATURE(canDoPlayback), FEATURE(hasSecondSlot), FEATURE(canDoRollover);
    FEATURE(usesFlashFileSystem), FEATURE(canDoBenchmark), FEATURE(canDoStorageCert), FEATURE(canDoRGB444);
    FEATURE(canDoXQ), FEATURE(hasLut), FEATURE(hasCameraData), FEATURE(hasFireWire), FEATURE(hasAnalogInputs);
    FEATURE(hasInputFrameSync), FEATURE(hasGenlock), FEATURE(canDoTimecode), FEATURE(hasRS422);
    FEATURE(canDoGang), FEATURE(usesReelInUI), FEATURE(hasFrontPanel), FEATURE(hasTwoLinePanel);
    FEATURE(hasColourDisplay), FEATURE(canDoi18n), FEATURE(hasDashboard), FEATURE(hasIdentifyLed);
    FEATURE(hasFan), FEATURE(has2ndPS), FEATURE(hasVoltageSensing), FEATURE(shouldEraseAllPresets);
#undef FEATURE
    return features;
}

std::vector<std::string> SplitAt(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        part.erase(0, part.find_first_not_of(' '));
        parts.push_back(part.erase(part.find_last_not_of(' ') + 1));
    }
    return parts;
}

/// By model, what the page says of each predicate.
std::map<std::string, std::map<std::string, std::string>> FeaturesOnThePage()
{
    std::map<std::string, std::map<std::string, std::string>> features;
    std::vector<std::string> models;
    std::ifstream page(VEXA_SOURCE_DIR "/docs/models.md");
    for (std::string line; std::getline(page, line);) {
        const auto cells = SplitAt(line, '|');
        if (line.starts_with("| feature |")) models = cells;
        if (models.empty() || cells.size() != models.size() || line.find('`') == std::string::npos) continue;
        const auto predicates = SplitAt(cells[1], '`');
        for (size_t i = 1; i < predicates.size(); i += 2)
            for (size_t model = 2; model < models.size(); ++model)
                features[models[model]][predicates[i]] = cells[model];
    }
    return features;
}

TEST(ProductFeatures, AreWhatTheTableOfTheModelsSays)
{
    const auto onThePage = FeaturesOnThePage();
    EXPECT_EQ(onThePage.size(), ProductModels().size() + 1);
    for (const auto& row : onThePage) ExpectOnModel(row.first, [&] { EXPECT_EQ(Features(), row.second); });
}

// ---- Files ----

TEST(ReadWholeFile, GivesTheContentOrOneLine)
{
    const auto read = [](const std::string& path, const std::string& content, const char* written) {
        EXPECT_EQ(StderrOf([&] { EXPECT_EQ(ReadWholeFile(path.c_str()), content); }), written);
    };
    const std::filesystem::path folder = std::filesystem::temp_directory_path();
    const std::string file = folder / ("read_file_test." + std::to_string(getpid()));
    const std::string content("OAK\0 \n", 6);
    std::ofstream(file) << content;
    read(file, content, "");
    unlink(file.c_str());
    read(file, "", "::read_file - fstat failed\n");
    // A folder cannot be read, and this file is shorter than it says, as one that shrinks meanwhile.
    const char* const shorter = "/sys/devices/system/cpu/online";
    for (const std::string& path :
         {folder.string(), std::string(access(shorter, R_OK) == 0 ? shorter : folder)})
        read(path, "", "::read_file - read failed to read enough data\n");
    if (access("/var/www/flash_info.txt", F_OK) != 0) {
        EXPECT_EQ(StderrOf([] { EXPECT_EQ(GetFlashInfo(), ""); }), "") << "this file may be missing";
    }

    const std::string huge = "/dev/shm/read_file_test." + std::to_string(getpid());
    std::ofstream(huge).close();
    if (truncate(huge.c_str(), std::numeric_limits<off_t>::max()) == 0)
        read(huge, "", "::read_file - malloc failed\n");
    unlink(huge.c_str());
}

}  // namespace
