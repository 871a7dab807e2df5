#include "vexactl/description.h"

#include <algorithm>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/string_descriptor.h"
#include "vexactl/groups.h"

namespace {

/// How a number is shown and stepped, where that is not the ordinary way, and the values of an enumeration.
Json FormOf(IntegerDescriptor& integer)
{
    Json json = Json::object();
    if (!integer.GetUnits().empty()) json["units"] = integer.GetUnits();
    if (integer.GetAdjustBy() != 1) json["step"] = integer.GetAdjustBy();
    if (integer.GetScaleBy() != 1) json["scale"] = integer.GetScaleBy();
    if (integer.GetOffsetBy() != 0) json["offset"] = integer.GetOffsetBy();
    if (integer.GetDisplayPrecision() != 0) json["precision"] = integer.GetDisplayPrecision();
    if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(&integer))
        for (const EnumValueDescriptor& entry : enumeration->GetOrderedEnumValueDescriptors())
            json["values"].push_back(
                {{"value", entry.value}, {"name", entry.name}, {"shortName", entry.shortName}});
    return json;
}

Json LimitsOf(const Parameter& parameter)
{
    Json json;
    auto* const integer = dynamic_cast<IntegerDescriptor*>(&parameter.Descriptor());
    auto* const text = dynamic_cast<StringDescriptor*>(&parameter.Descriptor());
    if (integer) {
        json["min"] = integer->GetMinValue();
        json["max"] = integer->GetMaxValue();
    } else if (text) {
        json["minLength"] = text->GetMinLength();
        json["maxLength"] = text->GetMaxLength();
        json["minIndex"] = text->GetMinIndex();
        json["maxIndex"] = text->GetMaxIndex();
    }
    if (const auto value = FactoryDefault(parameter)) {
        const auto* const plain = std::get_if<std::string>(&*value);
        const Json shown = parameter.ToJson(*value);
        if (shown.contains("hex"))
            json["default"] = shown["hex"];
        else
            json["default"] = plain ? Json(*plain) : shown["value"];  // a password's, too: every unit has it
    }
    if (integer) json.update(FormOf(*integer));
    return json;
}

std::string NameOf(const vexa::Catalogue& catalogue, eParam_t id)
{
    ParamDescriptor* const other = catalogue.Find(id);
    return other ? Parameter(other).Name() : std::to_string(id);
}

/// The parameter that must hold a value, and the value by number and name.
Json ConditionOf(const vexa::Catalogue& catalogue, const ParamDescriptor::Relation& relation)
{
    Json json{{"param", NameOf(catalogue, relation.paramID)}, {"value", relation.value}};
    if (auto* const other = dynamic_cast<EnumDescriptor*>(catalogue.Find(relation.paramID)))
        json["name"] = other->GetEnumValue(relation.value);
    return json;
}

// --- numbers by name ---

std::string NameOfType(eParamType_t type)
{
    switch (type) {
        case eCParam_Boolean:
            return "yes or no";
        case eCParam_Signed:
            return "number with a sign";
        case eCParam_EnumValue:
            return "enumeration";
        case eCParam_IntegerValue:
            return "number";
        case eCParam_Decimal:
            return "decimal number";
        case eCParam_IPAddress:
            return "IP address";
        case eCParam_Date:
            return "date";
        case eCParam_Time:
            return "time of day";
        case eCParam_Counter:
            return "counter";
        case eCParam_StringValue:
            return "text or bytes";
        case eCParam_Unset:
        case eCParam_Legacy:
            break;
    }
    return "type " + std::to_string(type);
}

std::string NameOfFeature(eFeature_t feature)
{
    switch (feature) {
        case eFeature_0:
            return "condition of the unit as bits";
        case eFeature_1:
            return "what the unit finds or does at this moment";
        case eFeature_2:
            return "word between the device's own programs";
        case eFeature_3:
            return "for users";
        case eFeature_5:
            return "identification";
    }
    return "feature " + std::to_string(feature);
}

std::string NameOfReset(eFactoryReset_t reset)
{
    switch (reset) {
        case eFactoryReset_Exclude:
            return "not reset";
        case eFactoryReset_Include:
            return "reset";
        case eFactoryReset_Network:
            return "reset by \"Restore with Network\" alone";
    }
    return "reset " + std::to_string(reset);
}

// --- for people ---

/// "IPConfig is 1 Static".
std::string ConditionText(const Json& condition)
{
    return condition["param"].get<std::string>() + " is " + condition["value"].dump() +
           (condition.contains("name") ? " " + condition["name"].get<std::string>() : "");
}

/// Lists with commas, yes and no.
std::string Readable(const Json& fact)
{
    if (fact.is_string()) return fact.get<std::string>();
    if (fact.is_object() && fact.contains("param")) return ConditionText(fact);
    if (fact.is_boolean()) return fact.get<bool>() ? "yes" : "no";
    if (!fact.is_structured()) return Dump(fact);
    std::string list;
    for (const auto& [key, item] : fact.items())
        list += (list.empty() ? "" : ", ") + (fact.is_object() ? key + " " : "") + Readable(item);
    return list;
}

/// All but those that are facts of their own.
Json AttributesOf(const vexa::Catalogue& catalogue, ParamDescriptor& descriptor)
{
    std::map<std::string, unsigned int> numbers;
    std::map<std::string, std::string> texts;
    descriptor.GetAttributes(numbers);
    descriptor.GetAttributes(texts);
    texts.erase("description");
    texts.erase("menu_number");
    Json json = Json::object();
    for (const auto& [key, number] : numbers) json[key] = number;
    // The one number that is an identifier.
    if (numbers.contains("dependent_minimum"))
        json["dependent_minimum"] = NameOf(catalogue, eParam_t{numbers["dependent_minimum"]});
    for (const auto& [key, text] : texts) json[key] = text;
    return json;
}

Json RelationsOf(const vexa::Catalogue& catalogue, ParamDescriptor& descriptor)
{
    Json json;
    for (const auto& [name, relations] : descriptor.GetRelations())
        for (const auto& relation : relations) json[name].push_back(ConditionOf(catalogue, relation));
    for (const eParam_t id : descriptor.GetDependentParamIDs())
        json["dependents"].push_back(NameOf(catalogue, id));
    for (const eParam_t id : descriptor.GetDependsOnParamIDs())
        json["depends_on"].push_back(NameOf(catalogue, id));
    return json;
}

/// One line or more; nothing for what another fact says.
std::string FactText(const Parameter& parameter, const Json& facts, const std::string& key, const Json& fact)
{
    constexpr std::string_view kName = "Name";
    if (key.ends_with(kName) && facts.contains(key.substr(0, key.size() - kName.size()))) return "";
    const bool isLimit = key == "min" || key == "max";
    if (isLimit && facts.contains("values")) return "";
    if (key == "values") {
        std::string text = "values:\n";
        for (const Json& entry : fact)
            text += "  " + entry["value"].dump() + " " + entry["name"].get<std::string>() + "\n";
        return text;
    }
    std::string shown = Readable(facts.value(key + std::string(kName), fact));
    if (key == "default") shown = parameter.Text(*FactoryDefault(parameter));
    if (isLimit) shown = parameter.Text(fact.get<unsigned int>());
    return Padded(key + ":", 14) + shown + "\n";
}

}  // namespace

std::optional<Value> FactoryDefault(const Parameter& parameter)
{
    if (auto* const integer = dynamic_cast<IntegerDescriptor*>(&parameter.Descriptor()))
        return integer->GetFactoryDefault();
    if (auto* const text = dynamic_cast<StringDescriptor*>(&parameter.Descriptor()))
        return text->GetFactoryDefault();
    return std::nullopt;
}

Json Describe(const vexa::Catalogue& catalogue, const Parameter& parameter)
{
    ParamDescriptor& descriptor = parameter.Descriptor();
    std::string description, menu;
    descriptor.GetAttribute("description", description);
    descriptor.GetAttribute("menu_number", menu);
    Json json{{"id", parameter.IdText()},
              {"param", parameter.Name()},
              {"group", parameter.Id() >> 24},
              {"groupName", GroupName(parameter.Id() >> 24)},
              {"name", descriptor.GetName()},
              {"shortName", descriptor.GetShortName()},
              {"kind", parameter.Kind()},
              {"description", description},
              {"menu", menu},
              {"persistent", descriptor.GetPersistenceType() == ePersist},
              {"inRegisters", descriptor.GetRegisterType() == eRegister_Include},
              {"factoryReset", static_cast<unsigned int>(descriptor.GetFactoryResetType())},
              {"factoryResetName", NameOfReset(descriptor.GetFactoryResetType())},
              {"type", static_cast<unsigned int>(descriptor.GetParamType())},
              {"typeName", NameOfType(descriptor.GetParamType())},
              {"feature", static_cast<unsigned int>(descriptor.GetFeatureType())},
              {"featureName", NameOfFeature(descriptor.GetFeatureType())},
              {"classNames", descriptor.GetClassNames()},
              {"attributes", AttributesOf(catalogue, descriptor)}};
    for (const Json& part : {LimitsOf(parameter), RelationsOf(catalogue, descriptor)})
        if (!part.is_null()) json.update(part);
    return json;
}

std::string DescriptionText(const vexa::Catalogue& catalogue, const Parameter& parameter)
{
    const Json facts = Describe(catalogue, parameter);
    std::string text;
    for (const auto& [key, fact] : facts.items())
        if (!fact.empty() && fact != "") text += FactText(parameter, facts, key, fact);
    return text;
}
