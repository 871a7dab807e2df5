#include "config/descriptors/registry/registry.h"

#include <libintl.h>

#include <algorithm>
#include <clocale>
#include <exception>

#include "config/base/log.h"
#include "config/base/semaphore_helper.h"
#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/catalogue/entry.h"
#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/generic/generic_descriptors.h"
#include "config/descriptors/placeholder.h"
#include "services/product/product_features.h"
#include "services/product/product_id.h"
#include "services/product/product_models.h"

namespace {

constexpr const char* kTextDomain = "config";
constexpr const char* kLocaleFolder = "/usr/share/locale";

StaticLock buildLock;

/// Entries say who follows them; whoever follows learns here whom, so that neither list lacks what the other has.
void AddDependsOn(const DescriptorTable& table)
{
    for (const auto& [id, descriptor] : table)
        for (const eParam_t dependent : descriptor->GetDependentParamIDs())
            if (ParamDescriptor* const other = FindIn(table, dependent)) other->AddDependsOnParamID(id);
}

void AddMenuNumbers(const DescriptorTable& table)
{
    for (const auto& [id, descriptor] : table) {
        std::string number;
        if (descriptor->GetAttribute("menu_number", number)) continue;
        descriptor->AddAttribute("menu_number",
                                 std::to_string(id >> 24) + "." + std::to_string(id >> 16 & 255));
    }
}

void AddParamGroups(const DescriptorTable& table)
{
    // A group that is not listed is claimed by none.
    constexpr unsigned int kGroups[] = {1,  2,  3,  4,  5,  6,  8,  9,  13, 32, 35, 41, 50, 53, 54,
                                        55, 60, 70, 80, 91, 99, 12, 14, 15, 16, 17, 19, 22, 23, 24};
    for (const auto& [id, descriptor] : table) {
        const unsigned int group = id >> 24;
        unsigned int claimed = 0;
        if (std::ranges::find(kGroups, group) != std::end(kGroups) &&
            !descriptor->GetAttribute("ParamGroup", claimed))
            descriptor->AddAttribute("ParamGroup", group);
    }
}

/// Of the current model.
void Fill(DescriptorTable& table)
{
    const vexa::config::catalogue::BuildTarget target(table);
    for (const auto builder : vexa::config::catalogue::kBuilders) builder();
    if (!CProductID::isRelease()) vexa::config::catalogue::CreateParamDescriptor_EngineeringDebug();
    AddDependsOn(table);
    AddParamGroups(table);
    AddMenuNumbers(table);
}

void Build() VEXA_REQUIRES(buildLock)
{
    ImportGenericDescriptors();
    Fill(g_paramDescriptors);
}

void DeleteAll() VEXA_REQUIRES(buildLock)
{
    DeleteAllIn(g_paramDescriptors);
    vexa::config::generic::DestroyDescriptors();
}

/// Half a catalogue would pass for a built one from then on.
void BuildAllOrNone() VEXA_REQUIRES(buildLock)
{
    try {
        Build();
    } catch (...) {
        DeleteAll();
        throw;
    }
}

/// "C" and its relatives have the texts of the catalogue themselves. Without them an earlier foreign language
/// would stay.
void SetProcessLocale(const std::string& name)
{
    for (const char* const locale : {name.c_str(), "C.UTF-8", "C"})
        if (setlocale(LC_ALL, locale)) return;
}

/// The text domain that the builders ask for translations, for the life of a scope.
class TextDomain {
  public:
    TextDomain() : m_before(Current()) { textdomain(kTextDomain); }
    ~TextDomain() { textdomain(m_before.c_str()); }
    TextDomain(const TextDomain&) = delete;
    TextDomain& operator=(const TextDomain&) = delete;

  private:
    /// A copy: textdomain answers with a pointer into storage that its next call frees.
    static std::string Current()
    {
        const char* const current = textdomain(nullptr);
        return current ? current : "messages";
    }

    const std::string m_before;
};

bool Rebuild(const std::string& localeName)
{
    const TextDomain ofTheCatalogue;
    DestroyDescriptors();
    SetProcessLocale(localeName);
    bindtextdomain(kTextDomain, kLocaleFolder);
    CreateDescriptors();
    return true;
}

}  // namespace

void CreateDescriptors()
{
    SemaphoreHelper hold(buildLock);
    if (CProductFeatures::canDoi18n()) bindtextdomain(kTextDomain, kLocaleFolder);
    if (g_paramDescriptors.empty()) BuildAllOrNone();
}

// The product predicates take the model from the environment, so the device adds nothing to the sequence.
void CreateDescriptors(BDX4Device*)
{
    CreateDescriptors();
}

void DestroyDescriptors()
{
    SemaphoreHelper hold(buildLock);
    DeleteAll();
}

void BuildDescriptors(const ProductModel& model, DescriptorTable& table)
{
    const ProductModelScope current(model);
    Fill(table);
}

void AddMenuNumberAttribute()
{
    AddMenuNumbers(g_paramDescriptors);
}

void AddParamGroupAttribute()
{
    AddParamGroups(g_paramDescriptors);
}

void ImportGenericDescriptors()
{
    vexa::config::generic::CreateDescriptors();
}

bool SetLocaleDescriptors(unsigned int locale)
try {
    if (!CProductFeatures::canDoi18n()) return false;
    ParamDescriptor* const descriptor = FindDescriptor(eParamID_Locale);
    if (!descriptor) {
        vexa::Print("SetLocaleDescriptors(%d) got nullptr for ::GetDescriptor(eParamID_Locale)\n", locale);
        return false;
    }
    auto* const locales = dynamic_cast<EnumDescriptor*>(descriptor);
    if (!locales) {
        vexa::Print("SetLocaleDescriptors(%d) dynamic_cast of descriptor for eParamID_Locale failed\n",
                    locale);
        return false;
    }
    return Rebuild(locales->GetEnumValueDescriptor(locale).shortName);
} catch (const std::exception& error) {
    return vexa::Report("SetLocaleDescriptors(%d): %s\n", locale, error.what());
}
