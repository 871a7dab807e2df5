#include "config/descriptors/enum_descriptor.h"

#include <cstdio>

std::vector<EnumValueDescriptor> EnumDescriptor::GetOrderedEnumValueDescriptors()
{
    std::vector<EnumValueDescriptor> ordered;
    ordered.reserve(m_order.size());
    for (const unsigned int value : m_order) ordered.push_back(GetEnumValueDescriptor(value));
    return ordered;
}

EnumValueDescriptor EnumDescriptor::GetEnumValueDescriptor(unsigned int value)
{
    const auto found = m_values.find(value);
    return found == m_values.end() ? EnumValueDescriptor{} : found->second;
}

void EnumDescriptor::AddNameValuePair(unsigned int value, std::string name, std::string shortName,
                                      EnumValueData* data, std::string info)
{
    m_values[value] = {value, std::move(name), std::move(shortName), std::move(info),
                       data ? *data : EnumValueData{}};
    m_order.push_back(value);
}

std::string EnumDescriptor::GetEnumValue(unsigned int value)
{
    const auto found = m_values.find(value);
    if (found != m_values.end()) return found->second.name;
    char text[16];
    snprintf(text, sizeof text, "0x%x", value);
    return text;
}
