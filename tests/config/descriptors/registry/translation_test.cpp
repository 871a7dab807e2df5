// The catalogue in other languages, from the translations of the build and locales in a folder of the test's own.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <libintl.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/registry/registry.h"
#include "support/in_child.h"
#include "support/program.h"

/// In front of the C library's: translations come from the build, if the test asks.
extern "C" char* bindtextdomain(const char* domain, const char* folder) noexcept
{
    using Function = char* (*)(const char*, const char*);
    static const auto original = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "bindtextdomain"));
    const char* const own = getenv("VEXA_TEST_TRANSLATIONS");
    return original(domain, own && folder ? own : folder);
}

namespace {

/// Everything that front ends show of a parameter, by the parameter.
std::map<eParam_t, std::vector<std::string>> AllTexts()
{
    std::map<eParam_t, std::vector<std::string>> texts;
    for (const auto& [id, descriptor] : g_paramDescriptors) {
        std::string description;
        descriptor->GetAttribute("description", description);
        texts[id] = {descriptor->GetName(), descriptor->GetShortName(), description};
        if (auto* const number = dynamic_cast<IntegerDescriptor*>(descriptor))
            texts[id].push_back(number->GetUnits());
        if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(descriptor))
            for (const auto& value : enumeration->GetOrderedEnumValueDescriptors())
                texts[id].insert(texts[id].end(), {value.name, value.shortName});
    }
    return texts;
}

void CheckLanguages()
{
    CreateDescriptors();
    const auto english = AllTexts();
    EXPECT_EQ(english.at(eParamID_Locale)[0], "Locale");
    const struct {
        unsigned int locale;
        const char *name, *frames, *framesShort, *progressive, *alarm;
    } kLanguages[] = {
        {1, "ロケール", "インターバルフレーム数", "間隔ｺﾏ数", "プログレッシブ", "ゲンロック信号なし"},
        {2, "로캘", "인터벌 프레임 수", "간격수", "프로그레시브", "젠록 신호 없음"},
        {3, "区域设置", "间隔帧数", "间隔帧数", "逐行", "无同步锁相信号"},
    };
    for (const auto& [locale, name, frames, framesShort, progressive, alarm] : kLanguages) {
        EXPECT_TRUE(SetLocaleDescriptors(locale));
        auto texts = AllTexts();
        EXPECT_EQ(texts[eParamID_Locale][0], name);
        EXPECT_NE(texts[eParamID_Locale][2], "Language of names and descriptions.");
        // These are names themselves, and what setlocale is given.
        const auto languages = [](const std::vector<std::string>& all) {
            return std::vector(all.begin() + 3, all.end());
        };
        EXPECT_EQ(languages(texts[eParamID_Locale]), languages(english.at(eParamID_Locale)));
        EXPECT_EQ(texts[eParamID_IntervalFrames][0], frames);
        EXPECT_EQ(texts[eParamID_IntervalFrames][1], framesShort);
        EXPECT_NE(texts[eParamID_IntervalFrames][3], "frames");
        EXPECT_EQ(texts[eParamID_1080PlaybackType_Normal][4], progressive);
        EXPECT_EQ(texts[eParamID_Genlock_Missing_Alarm][0], alarm);
        EXPECT_EQ(texts[eParamID_RegisterExportResult][4], "") << "an empty text has no translation";
        EXPECT_EQ(texts[eParamID_EncodeType][4], "ProRes 422 HQ") << "nor has the name of a codec";
        // English needs no locale: this machine's folder has none for it.
        EXPECT_TRUE(SetLocaleDescriptors(0));
        EXPECT_EQ(AllTexts(), english);
    }
}

/// A program in another language, on a model that has none.
void CheckUntranslated()
{
    bindtextdomain("config", VEXA_TRANSLATIONS);
    ASSERT_TRUE(setlocale(LC_ALL, "ja_JP.utf8"));
    CreateDescriptors();
    EXPECT_EQ(GetDescriptor(eParamID_Locale)->GetName(), "Locale");
}

void MakeLocales(const std::filesystem::path& folder)
{
    for (const std::string name : {"ja_JP", "ko_KR", "zh_CN"}) {
        const std::string locale = folder / (name + ".utf8");
        const ProgramResult made =
            RunProgram({"/usr/bin/localedef", "--no-archive", "-i", name, "-f", "UTF-8", locale});
        ASSERT_TRUE(std::filesystem::exists(locale)) << made.err;
    }
    setenv("LOCPATH", folder.c_str(), 1);
    setenv("VEXA_TEST_TRANSLATIONS", VEXA_TRANSLATIONS, 1);
    unsetenv("LANGUAGE");
}

TEST(Translation, EachLocaleHasTheTextsOfItsLanguage)
{
    std::string folder = std::filesystem::temp_directory_path() / "vexa-locales-XXXXXX";
    // The child that checks runs this test from its beginning and inherits the environment.
    if (!getenv("VEXA_TEST_TRANSLATIONS")) MakeLocales(mkdtemp(folder.data()));
    ExpectOnModel("OAK", CheckLanguages);
    ExpectOnModel("ROWAN", CheckUntranslated);
    std::filesystem::remove_all(folder);
    for (const char* name : {"LOCPATH", "VEXA_TEST_TRANSLATIONS"}) unsetenv(name);
}

}  // namespace
