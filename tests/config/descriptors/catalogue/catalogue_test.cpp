// The catalogue on every model. The model is settled once per process, so each is looked at in a child
// process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/placeholder.h"
#include "config/descriptors/registry/registry.h"
#include "config/descriptors/string_descriptor.h"
#include "messages/alarm.pb.h"
#include "services/product/product_features.h"
#include "services/product/product_models.h"
#include "support/in_child.h"
#include "support/store.h"

namespace {

constexpr const char* kUnknownModel = "YEW";

std::vector<std::string> AllModels()
{
    std::vector<std::string> names = {kUnknownModel};
    for (const ProductModel& model : ProductModels()) names.emplace_back(model.name);
    return names;
}

/// Runs a check on the catalogue of one model. Its expectations count here.
/// @return what it wrote to standard error.
template <class Check>
std::string OnModel(const std::string& model, Check&& check)
{
    std::string text;
    const auto build = [&] {
        CreateDescriptors();
        check();
    };
    ExpectOnModel(model, build, testing::Truly([&](const std::string& written) {
                      text = written;
                      return true;
                  }));
    return text;
}

template <class Descriptor>
Descriptor& Get(eParam_t id)
{
    auto* const descriptor = dynamic_cast<Descriptor*>(FindDescriptor(id));
    if (!descriptor) {
        std::cerr << "no such parameter of this class: " << std::hex << id << '\n';
        exit(2);
    }
    return *descriptor;
}

bool IsAlarm(eParam_t id)
{
    return id >> 24 == 64;
}

// ---- The lint of one descriptor ----

void CheckNames(ParamDescriptor& descriptor)
{
    const eParam_t id = descriptor.GetParamID();
    const std::string idName = descriptor.GetParamIDName();
    EXPECT_TRUE(idName.starts_with("eParamID_") && idName.size() > 9);
    // The one name with two identifiers finds the lower.
    EXPECT_EQ(GetParamNameParamID(idName),
              id == eParamID_SuppressPSAlarm_126 ? eParamID_SuppressPSAlarm : id);
    EXPECT_NE(descriptor.GetName(), "");
    EXPECT_THAT(descriptor.GetShortName(), testing::SizeIs(testing::AllOf(testing::Ge(2u), testing::Le(8u))));
    EXPECT_EQ(descriptor.GetRegEx(), "*");
    std::string description;
    EXPECT_TRUE(descriptor.GetAttribute("description", description));
    EXPECT_TRUE(IsAlarm(id) ? description == "Alarm (protobuf encoded)" : description.ends_with('.'));
}

void CheckReferences(ParamDescriptor& descriptor)
{
    for (const auto& [name, relations] : descriptor.GetRelations()) {
        EXPECT_THAT(name, testing::AnyOf("enabled_by", "disabled_by"));
        for (const auto& [id, value] : relations) {
            auto* const other = dynamic_cast<EnumDescriptor*>(FindDescriptor(id));
            EXPECT_TRUE(other && other->HasEnumValue(value)) << name << " " << id << " = " << value;
        }
    }
    for (const auto& ids : {descriptor.GetDependentParamIDs(), descriptor.GetDependsOnParamIDs()})
        for (const eParam_t id : ids) EXPECT_TRUE(IsValidParamID(id)) << id;
}

void CheckRange(IntegerDescriptor& number)
{
    const unsigned int min = number.GetMinValue(), max = number.GetMaxValue(),
                       init = number.GetFactoryDefault();
    EXPECT_LE(min, init);
    EXPECT_LE(init, max);
    EXPECT_GT(number.GetScaleBy(), 0u);

    unsigned int otherID = 0;
    if (!number.GetAttribute("dependent_minimum", otherID)) return;
    auto& other = Get<IntegerDescriptor>(eParam_t{otherID});
    EXPECT_GE(other.GetMinValue(), 1u) << "0 pushes the value above its maximum";
    EXPECT_LE(other.GetMaxValue(), max - min + 1) << "pushes the value below its minimum";
    EXPECT_LT(max - init, other.GetFactoryDefault()) << "the defaults break the rule";
}

void CheckValues(EnumDescriptor& enumeration)
{
    const auto values = enumeration.GetEnumValueDescriptors();
    EXPECT_TRUE(values.contains(enumeration.GetFactoryDefault())) << "default";
    EXPECT_EQ(values.size(), enumeration.GetOrderedEnumValueDescriptors().size()) << "a value stands twice";
    // The range of commands ends one above them.
    const unsigned int beyond = enumeration.GetParamID() == eParamID_SystemCommand ? 1 : 0;
    EXPECT_EQ(enumeration.GetMaxValue(), values.empty() ? 0 : values.rbegin()->first + beyond);
    std::set<std::string> names;
    for (const auto& [number, value] : values) names.insert(value.name);
    EXPECT_EQ(names.size(), values.size()) << "two values have one name";
}

void CheckLength(StringDescriptor& text)
{
    const size_t length = text.GetFactoryDefault().size();
    // Empty is always possible: the device has not filled it in yet.
    EXPECT_TRUE(length == 0 || length >= text.GetMinLength());
    EXPECT_LE(length, text.GetMaxLength());
}

void CheckAlarm(AlarmDescriptor& alarm)
{
    EXPECT_TRUE(alarm.HasClassName("alarm") && alarm.HasClassName("protobuf_message"));
    EXPECT_TRUE(alarm.GetParamIDName().ends_with("_Alarm"));
    std::string contentType;
    EXPECT_TRUE(alarm.GetAttribute("Content-Type", contentType));
    EXPECT_EQ(contentType, "application/vnd.google.protobuf");
    vexa::alarms::Alarm atRest;
    EXPECT_TRUE(atRest.ParseFromString(alarm.GetFactoryDefault()) && atRest.has_severity());
    EXPECT_EQ(atRest.state(), vexa::alarms::Alarm::CLEAR);
}

void CheckAll()
{
    EXPECT_EQ(CountRetainedDescriptors(), 0u) << "an entry replaced another";
    for (const auto& [id, descriptor] : g_paramDescriptors) {
        SCOPED_TRACE(descriptor->GetParamIDName());
        if (IsAlarm(id)) CheckAlarm(Get<AlarmDescriptor>(id));
        CheckNames(*descriptor);
        CheckReferences(*descriptor);
        if (auto* const text = dynamic_cast<StringDescriptor*>(descriptor)) CheckLength(*text);
        if (auto* const number = dynamic_cast<IntegerDescriptor*>(descriptor)) CheckRange(*number);
        if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(descriptor)) CheckValues(*enumeration);
    }
}

TEST(Catalogue, IsSoundOnEveryModel)
{
    for (const std::string& model : AllModels()) OnModel(model, CheckAll);
}

// ---- Across the models ----

const char* ClassOf(ParamDescriptor& descriptor)
{
    if (dynamic_cast<EnumDescriptor*>(&descriptor)) return "Enum";
    if (dynamic_cast<IntegerDescriptor*>(&descriptor)) return "Integer";
    if (dynamic_cast<AlarmDescriptor*>(&descriptor)) return "Alarm";
    return dynamic_cast<DataDescriptor*>(&descriptor) ? "Data" : "String";
}

/// Each parameter of a model as a line of models.txt begins: identifier, symbolic name, class, class names,
/// values.
void PrintParameters()
{
    for (const auto& [id, descriptor] : g_paramDescriptors) {
        fprintf(stderr, "%08x %s %s", id, descriptor->GetParamIDName().c_str(), ClassOf(*descriptor));
        for (const std::string& name : descriptor->GetClassNames()) std::cerr << ' ' << name;
        if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(descriptor))
            for (const auto& value : enumeration->GetOrderedEnumValueDescriptors())
                std::cerr << ' ' << value.value;
        std::cerr << '\n';
    }
}

TEST(Catalogue, EachModelHasItsParameters)
{
    const std::string file = "tests/config/descriptors/catalogue/models.txt";
    std::map<std::string, std::vector<std::string>> family;
    for (const std::string& model : AllModels()) {
        std::istringstream lines(OnModel(model, PrintParameters));
        for (std::string line; std::getline(lines, line);) family[line].push_back(model);
    }
    std::ostringstream now;
    for (const auto& [parameter, models] : family) {
        now << parameter << ':';
        if (models.size() == AllModels().size())
            now << " all";
        else
            for (const std::string& model : models) now << ' ' << model;
        now << '\n';
    }
    std::ostringstream agreed;
    agreed << std::ifstream(std::string(VEXA_SOURCE_DIR) + "/" + file).rdbuf();
    if (now.str() == agreed.str()) return;

    const std::string copy =
        std::filesystem::temp_directory_path() / ("vexa-models." + std::to_string(getpid()));
    std::ofstream(copy) << now.str();
    EXPECT_EQ(now.str(), agreed.str()) << "if it is meant: cp " << copy << " " << file;
}

// ---- Entries that others rely on to the letter ----

TEST(Catalogue, EntriesToTheLetter)
{
    OnModel("OAK", [] {
        auto& command = Get<EnumDescriptor>(eParamID_SystemCommand);
        EXPECT_EQ(command.GetFeatureType(), eFeature_2);
        EXPECT_EQ(command.GetPersistenceType(), ePersist_Exclude);
        EXPECT_EQ(command.GetRegisterType(), eRegister_Exclude);
        EXPECT_EQ(command.GetFactoryResetType(), eFactoryReset_Exclude);

        unsigned int group = 0;
        EXPECT_TRUE(FindDescriptor(eParamID_RegisterSave)->GetAttribute("ParamGroup", group));
        EXPECT_EQ(group, 4u) << "given, where others have the high byte";
    });
}

/// Number of values whose name has two lines.
size_t CountTwoLineNames()
{
    size_t count = 0;
    for (const auto& [id, descriptor] : g_paramDescriptors)
        if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(descriptor))
            for (const auto& [number, value] : enumeration->GetEnumValueDescriptors())
                if (value.name.find("\n  ") != std::string::npos) ++count;
    return count;
}

TEST(Catalogue, TwoLineNamesOnlyOnTheTwoLinePanelAndOnlyWhenAsked)
{
    for (const std::string& model : AllModels())
        OnModel(model, [&] {
            EXPECT_EQ(CountTwoLineNames(), 0u);
            DestroyDescriptors();
            SetEncodeDescriptors(true);
            CreateDescriptors();
            EXPECT_EQ(CountTwoLineNames() > 0, CProductFeatures::hasTwoLinePanel());
            if (model != "BIRCH") return;
            for (const auto& [id, value, name] :
                 {std::tuple{eParamID_EncodeType, 3u, "ProRes\n  422 Proxy"},
                  {eParamID_FirmwareStatus, 1u, "Updating/\n  Do Not Turn Off"},
                  {eParamID_SensorCommand, 0u, "Idle"},
                  {eParamID_SensorCommand, 2u, "Shutdown:\n  2 seconds"}})
                EXPECT_EQ(Get<EnumDescriptor>(id).GetEnumValue(value), name);
            for (const auto& value :
                 Get<EnumDescriptor>(eParamID_EncodeType).GetOrderedEnumValueDescriptors())
                EXPECT_EQ(value.shortName.find('\n'), std::string::npos) << value.shortName;
        });
}

// ---- The action of the factory settings ----

TEST(Catalogue, FactorySettingsRestoreWhatTheirValueAsksFor)
{
    OnModel("OAK", [] {
        ParamDescriptor* const command = FindDescriptor(eParamID_FactorySettings);
        const ParamDescriptor::Action action = command->GetAction();
        TestStore store;
        const auto run = [&](unsigned int request) {
            store->Set(eParamID_FactorySettings, request);
            store->Set(eParamID_ClipNumber, 7u);
            store->Set(eParamID_TimeZone, 3u);
            store->Set(eParamID_RegisterSave, 9u);
            for (const eParam_t id : {eParamID_CustomClipName, eParamID_SysName, eParamID_PresetName_1})
                store->Set(id, std::string("x"));
            return action(&*store, command);
        };
        const auto text = [&](eParam_t id) {
            std::string value;
            store->Get(id, value);
            return value;
        };
        EXPECT_FALSE(run(0));
        EXPECT_EQ(store->Get(eParamID_ClipNumber), 7u);

        EXPECT_TRUE(run(1));
        EXPECT_EQ(store->Get(eParamID_ClipNumber), 1u);
        EXPECT_EQ(text(eParamID_CustomClipName), "");
        EXPECT_EQ(store->Get(eParamID_TimeZone), 3u);
        EXPECT_EQ(text(eParamID_SysName), "x");
        EXPECT_EQ(store->Get(eParamID_FactorySettings), 0u);

        EXPECT_TRUE(run(2));
        EXPECT_NE(store->Get(eParamID_TimeZone), 3u);
        EXPECT_EQ(text(eParamID_SysName), "");
        EXPECT_EQ(store->Get(eParamID_RegisterSave), 9u) << "would store a preset";
        EXPECT_EQ(text(eParamID_PresetName_1), "x") << "this model keeps its presets";
        EXPECT_FALSE(action(nullptr, command));
    });
}

}  // namespace
