// The catalogue in other languages, from the translations of the build and locales in a folder of the test's own.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

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

void CheckLanguages()
{
    CreateDescriptors();
    EXPECT_EQ(GetDescriptor(eParamID_Locale)->GetName(), "Locale");
    const std::string names[] = {"Locale", "ロケール", "로캘", "区域设置"};
    for (const unsigned int locale : {1u, 2u, 3u}) {
        EXPECT_TRUE(SetLocaleDescriptors(locale));
        ParamDescriptor* const descriptor = GetDescriptor(eParamID_Locale);
        std::string description;
        descriptor->GetAttribute("description", description);
        EXPECT_EQ(descriptor->GetName(), names[locale]);
        EXPECT_NE(description, "Language of names and descriptions.");
        // English needs no locale: this machine's folder has none for it.
        EXPECT_TRUE(SetLocaleDescriptors(0));
        EXPECT_EQ(GetDescriptor(eParamID_Locale)->GetName(), names[0]);
    }
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
    setenv("PRODUCT_ID", "OAK", 1);
    unsetenv("LANGUAGE");
}

TEST(Translation, EachLocaleHasTheTextsOfItsLanguage)
{
    std::string folder = std::filesystem::temp_directory_path() / "vexa-locales-XXXXXX";
    // The child that checks runs this test from its beginning and inherits the environment.
    if (!getenv("VEXA_TEST_TRANSLATIONS")) MakeLocales(mkdtemp(folder.data()));
    ExpectInChild(CheckLanguages);
    std::filesystem::remove_all(folder);
    for (const char* name : {"LOCPATH", "VEXA_TEST_TRANSLATIONS", "PRODUCT_ID"}) unsetenv(name);
}

}  // namespace
