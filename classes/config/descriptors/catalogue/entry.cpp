#include "config/descriptors/catalogue/entry.h"

#include <libintl.h>

#include <clocale>
#include <utility>

#include "config/descriptors/descriptor_table.h"
#include "config/descriptors/placeholder.h"
#include "services/product/product_features.h"

namespace vexa::config::catalogue {

namespace {

/// "C" or "C.UTF-8". Not worth a look-up for each text, which LANGUAGE would answer all the same in the second.
bool SpeaksC()
{
    const char* const locale = setlocale(LC_MESSAGES, nullptr);
    return !locale || (locale[0] == 'C' && (locale[1] == '\0' || locale[1] == '.'));
}

}  // namespace

Enum& Enum::Values(const std::vector<NamedValue>& values)
{
    unsigned int highest = m_descriptor->GetMaxValue();
    for (NamedValue entry : values) {
        highest = std::max(highest, entry.value);
        m_descriptor->AddNameValuePair(entry.value, Translated(entry.name),
                                       Translated(entry.shortName.empty() ? entry.name : entry.shortName),
                                       &entry.data, "");
    }
    m_descriptor->SetMinValue(0);
    m_descriptor->SetMaxValue(highest);
    m_descriptor->SetAdjustBy(1);
    return *this;
}

Enum& Enum::ValuesIf(bool condition, const std::vector<NamedValue>& values)
{
    return condition ? Values(values) : *this;
}

Integer& Integer::Range(unsigned int min, unsigned int max)
{
    m_descriptor->SetMinValue(min);
    m_descriptor->SetMaxValue(max);
    return *this;
}

Integer& Integer::Suffixes(const char* singular, const char* plural)
{
    // Front ends read the first key in this spelling.
    return Attribute("value_suffix_singluar", Translated(singular))
        .Attribute("value_suffix_plural", Translated(plural));
}

String& String::Length(unsigned int min, unsigned int max)
{
    m_descriptor->SetMinLength(min);
    m_descriptor->SetMaxLength(max);
    m_descriptor->SetMinIndex(0);
    m_descriptor->SetMaxIndex(max == 0 ? 0 : max - 1);
    return *this;
}

Data& Data::SizeLimit(unsigned int bytes)
{
    m_descriptor->SetMaxLength(bytes);
    m_descriptor->SetMaxIndex(bytes == 0 ? 0 : bytes - 1);
    return Attribute("size_limit", bytes);
}

BuildTarget::BuildTarget(DescriptorTable& table) : m_before(std::exchange(s_current, &table)) {}

BuildTarget::~BuildTarget()
{
    s_current = m_before;
}

void Register(std::unique_ptr<ParamDescriptor> descriptor)
{
    ParamDescriptor*& slot = BuildTarget::Current()[descriptor->GetParamID()];
    if (slot) RetainDescriptor(slot);
    slot = descriptor.release();
}

std::string Translated(std::string text)
{
    // An empty text is the key of the translations' own header.
    if (text.empty() || !CProductFeatures::canDoi18n() || SpeaksC()) return text;
    return dgettext("config", text.c_str());
}

}  // namespace vexa::config::catalogue
