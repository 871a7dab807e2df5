#include "vexactl/language.h"

#include <libintl.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <filesystem>

#include "config/descriptors/enum_descriptor.h"
#include "vexactl/completion.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kDomain = "config";
constexpr const char* kEnglish = "en";

std::vector<std::string> LanguagesIn(const fs::path& folder)
{
    std::error_code ignored;
    std::vector<std::string> languages;
    for (const auto& entry : fs::directory_iterator(folder, ignored))
        if (fs::exists(entry.path() / "LC_MESSAGES" / (std::string(kDomain) + ".mo"), ignored))
            languages.push_back(entry.path().filename());
    std::ranges::sort(languages);
    return languages;
}

/// Of the prefix that the tool was installed to, of its build, or of the system.
fs::path Folder()
{
    std::error_code ignored;
    const fs::path programs = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const fs::path& folder : {programs / "../share/locale", programs / "../locale"})
        if (!LanguagesIn(folder).empty()) return folder;
    return "/usr/share/locale";
}

/// What dgettext is told, for the life of a scope: the rest of the process keeps its language. It wants any locale
/// but "C", and takes the language from the environment then, also one that the machine has no locale for.
class Texts {
  public:
    explicit Texts(const std::string& language)
        : m_locale(setlocale(LC_MESSAGES, nullptr)), m_folder(bindtextdomain(kDomain, nullptr))
    {
        if (const char* const before = getenv("LANGUAGE")) m_language = before;
        m_isReady = setlocale(LC_MESSAGES, "C.UTF-8") != nullptr;
        setenv("LANGUAGE", language.c_str(), 1);
        bindtextdomain(kDomain, Folder().c_str());
        bind_textdomain_codeset(kDomain, "UTF-8");
    }
    ~Texts()
    {
        setlocale(LC_MESSAGES, m_locale.c_str());
        setenv("LANGUAGE", m_language.c_str(), 1);
        bindtextdomain(kDomain, m_folder.c_str());
    }
    Texts(const Texts&) = delete;
    Texts& operator=(const Texts&) = delete;

    bool IsReady() const { return m_isReady; }
    /// An empty text is the key of the translations' own header.
    std::string Of(const std::string& text) const
    {
        return text.empty() ? text : dgettext(kDomain, text.c_str());
    }

  private:
    const std::string m_locale, m_folder;
    std::string m_language;
    bool m_isReady = false;
};

void Translate(EnumDescriptor& enumeration, const Texts& texts)
{
    auto values = enumeration.GetEnumValueDescriptors();
    for (auto& [number, value] : values) {
        value.name = texts.Of(value.name);
        value.shortName = texts.Of(value.shortName);
    }
    enumeration.SetEnumValueDescriptors(std::move(values));
}

void Translate(ParamDescriptor& descriptor, const Texts& texts)
{
    if (descriptor.GetParamID() == eParamID_Locale) return;  // each language has its own name there
    descriptor.SetName(texts.Of(descriptor.GetName()));
    descriptor.SetShortName(texts.Of(descriptor.GetShortName()));
    for (const char* const key : {"description", "value_suffix_singluar", "value_suffix_plural"})
        if (std::string text; descriptor.GetAttribute(key, text))
            descriptor.AddAttribute(key, texts.Of(text));
    if (auto* const integer = dynamic_cast<IntegerDescriptor*>(&descriptor))
        integer->SetUnits(texts.Of(integer->GetUnits()));
    if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(&descriptor)) Translate(*enumeration, texts);
}

}  // namespace

std::vector<std::string> Languages()
{
    std::vector<std::string> languages = LanguagesIn(Folder());
    languages.insert(languages.begin(), kEnglish);
    return languages;
}

bool UseLanguage(const std::string& language)
{
    if (language == kEnglish) return true;
    const Texts texts(language);
    if (!texts.IsReady()) return false;
    for (const auto& catalogue : AllCatalogues())
        for (const auto& [id, descriptor] : catalogue->All()) Translate(*descriptor, texts);
    return true;
}
