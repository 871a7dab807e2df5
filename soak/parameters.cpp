#include "parameters.h"

#include <cctype>
#include <cstdio>
#include <sstream>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/registry/registry.h"
#include "config/descriptors/string_descriptor.h"

namespace {

std::string Hexadecimal(eParam_t id)
{
    char text[9];
    snprintf(text, sizeof text, "%08x", id);
    return text;
}

bool StandsAlone(ParamDescriptor& descriptor)
{
    for (const char* const ruled :
         {"Clip", "Take", "Gang", "Append", "Media", "SystemState", "FactorySettings", "Clear_Alarms"})
        if (descriptor.GetParamIDName().find(ruled) != std::string::npos) return false;
    return !descriptor.HasClassName("volatile") && descriptor.GetDependentParamIDs().empty() &&
           !descriptor.FindNumber("dependent_minimum");
}

/// Whether every value of the range is stored unchanged.
bool HasNoGaps(const Parameter& parameter, ParamDescriptor& descriptor)
{
    if (parameter.kind != Parameter::kNumber) return true;
    if (parameter.lowest >= parameter.highest) return false;
    auto* const enumeration = dynamic_cast<EnumDescriptor*>(&descriptor);
    for (unsigned int value = parameter.lowest; enumeration && value <= parameter.highest; ++value)
        if (!enumeration->HasEnumValue(value)) return false;
    return true;
}

}  // namespace

Parameter::Parameter(const std::string& hexadecimal)
    : id(static_cast<eParam_t>(std::stoul(hexadecimal, nullptr, 16)))
{
    ParamDescriptor* const descriptor = FindDescriptor(id);
    if (auto* const integer = dynamic_cast<IntegerDescriptor*>(descriptor)) {
        lowest = integer->GetMinValue();
        highest = integer->GetMaxValue();
        return;
    }
    const bool holdsBytes =
        dynamic_cast<AlarmDescriptor*>(descriptor) || dynamic_cast<DataDescriptor*>(descriptor);
    kind = holdsBytes ? kData : kText;
}

unsigned int Parameter::Number(uint64_t write) const
{
    return lowest + static_cast<unsigned int>(write % (uint64_t{highest} - lowest + 1));
}

std::string Parameter::Text(uint64_t write) const
{
    const uint64_t longest = kind == kData ? 2000 : 400;  // a text fits a message of the queues
    return Hexadecimal(id) + "." + std::to_string(write) + "." + std::string(write * 37 % longest, 'x');
}

std::string Parameter::Printed(uint64_t write) const
{
    return kind == kNumber ? std::to_string(Number(write)) : Text(write);
}

std::vector<Parameter> ReadList(const std::string& text)
{
    std::vector<Parameter> list;
    std::istringstream words(text);
    for (std::string word; std::getline(words, word, ',');) list.emplace_back(word);
    return list;
}

std::string Printable(std::string text)
{
    for (char& character : text)
        if (!isgraph(static_cast<unsigned char>(character))) character = '_';
    return text;
}

void PrintParameters()
{
    constexpr const char* kKinds[] = {"number", "text", "data"};
    for (const eParam_t id : GetParamIDs()) {
        const Parameter parameter(Hexadecimal(id));
        ParamDescriptor& descriptor = *FindDescriptor(id);
        if (StandsAlone(descriptor) && HasNoGaps(parameter, descriptor))
            printf("%s %08x %u %u %d %d\n", kKinds[parameter.kind], id, parameter.lowest, parameter.highest,
                   descriptor.GetPersistenceType() == ePersist,
                   descriptor.GetRegisterType() != eRegister_Exclude);
    }
}
