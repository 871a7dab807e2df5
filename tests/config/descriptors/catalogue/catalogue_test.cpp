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

#include "config/access/client/cache/config_cache.h"
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

bool Contains(const std::vector<eParam_t>& ids, eParam_t id)
{
    return std::ranges::count(ids, id) == 1;
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
    for (const eParam_t id : descriptor.GetDependentParamIDs()) {
        ParamDescriptor* const other = FindDescriptor(id);
        EXPECT_TRUE(other && Contains(other->GetDependsOnParamIDs(), descriptor.GetParamID())) << id;
    }
    for (const eParam_t id : descriptor.GetDependsOnParamIDs()) {
        ParamDescriptor* const other = FindDescriptor(id);
        EXPECT_TRUE(other && Contains(other->GetDependentParamIDs(), descriptor.GetParamID())) << id;
    }
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
    std::map<std::string, int> shown;
    for (const auto& [id, descriptor] : g_paramDescriptors) {
        ++shown["name " + descriptor->GetName()];
        ++shown["short name " + descriptor->GetShortName()];
    }
    for (const auto& [name, count] : shown) EXPECT_EQ(count, 1) << name << " is that of two parameters";
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
    if (dynamic_cast<EnumDescriptor*>(&descriptor)) return "enum";
    if (dynamic_cast<IntegerDescriptor*>(&descriptor)) return "integer";
    if (dynamic_cast<AlarmDescriptor*>(&descriptor)) return "alarm";
    return dynamic_cast<DataDescriptor*>(&descriptor) ? "data" : "string";
}

/// Each parameter of a model as a line of models.txt begins: identifier, symbolic name, class, class names, values,
/// default, and the values of others that it waits for.
void PrintParameters()
{
    for (const auto& [id, descriptor] : g_paramDescriptors) {
        char number[9];
        snprintf(number, sizeof number, "%08x", id);
        std::cerr << number << ' ' << descriptor->GetParamIDName() << ' ' << ClassOf(*descriptor);
        for (const std::string& name : descriptor->GetClassNames()) std::cerr << ' ' << name;
        if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(descriptor))
            for (const auto& value : enumeration->GetOrderedEnumValueDescriptors())
                std::cerr << ' ' << value.value;
        if (auto* const integer = dynamic_cast<IntegerDescriptor*>(descriptor))
            std::cerr << " default=" << integer->GetFactoryDefault();
        for (const auto& [name, relations] : descriptor->GetRelations())
            for (const auto& [other, value] : relations)
                std::cerr << ' ' << name << '=' << FindDescriptor(other)->GetParamIDName().substr(9) << '='
                          << value;
        std::cerr << '\n';
    }
}

/// The models that have each such line.
std::map<std::string, std::vector<std::string>> ReadFamily()
{
    std::map<std::string, std::vector<std::string>> family;
    for (const std::string& model : AllModels()) {
        std::istringstream lines(OnModel(model, PrintParameters));
        for (std::string line; std::getline(lines, line);) family[line].push_back(model);
    }
    return family;
}

TEST(Catalogue, EachModelHasItsParameters)
{
    const std::string file = "tests/config/descriptors/catalogue/models.txt";
    std::ostringstream now;
    for (const auto& [parameter, models] : ReadFamily()) {
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

        for (const eParam_t id : {eParamID_RegisterExportResult, eParamID_RegisterImportResult}) {
            std::string order;
            for (const auto& value : Get<EnumDescriptor>(id).GetOrderedEnumValueDescriptors())
                order += std::to_string(value.value);
            EXPECT_EQ(order, "01243");
        }
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

std::vector<std::string> EncodeTypeShortNames()
{
    std::vector<std::string> names;
    if (auto* const encodeType = dynamic_cast<EnumDescriptor*>(FindDescriptor(eParamID_EncodeType)))
        for (const auto& value : encodeType->GetOrderedEnumValueDescriptors())
            names.push_back(value.shortName);
    return names;
}

TEST(Catalogue, TwoLineNamesOnlyOnTheTwoLinePanelAndOnlyWhenAsked)
{
    for (const std::string& model : AllModels())
        OnModel(model, [] {
            EXPECT_EQ(CountTwoLineNames(), 0u);
            const auto shortNames = EncodeTypeShortNames();
            DestroyDescriptors();
            SetEncodeDescriptors(true);
            CreateDescriptors();
            EXPECT_EQ(CountTwoLineNames() > 0, CProductFeatures::hasTwoLinePanel());
            EXPECT_EQ(EncodeTypeShortNames(), shortNames) << "a short name stays on one line";
        });
    OnModel("BIRCH", [] {
        SetEncodeDescriptors(true);
        DestroyDescriptors();
        CreateDescriptors();
        for (const auto& [id, value, name] : {std::tuple{eParamID_EncodeType, 3u, "ProRes\n  422 Proxy"},
                                              {eParamID_FirmwareStatus, 1u, "Updating/\n  Do Not Turn Off"},
                                              {eParamID_SensorCommand, 0u, "Idle"},
                                              {eParamID_SensorCommand, 2u, "Shutdown:\n  2 seconds"}})
            EXPECT_EQ(Get<EnumDescriptor>(id).GetEnumValue(value), name);
    });
}

// ---- Through a cache ----

TEST(Catalogue, CommandsCanBeGivenTwiceThroughACache)
{
    OnModel("OAK", [] {
        TestStore store;
        ConfigCache cache(&*store);
        for (const eParam_t id : {eParamID_RegisterSave, eParamID_DateSet, eParamID_TimeSet})
            for (int twice = 0; twice < 2; ++twice)
                EXPECT_TRUE(cache.Set(id, Get<IntegerDescriptor>(id).GetFactoryDefault()));
        for (const eParam_t id : {eParamID_GoToClip, eParamID_ClipToDelete, eParamID_DisplayMessage})
            for (int twice = 0; twice < 2; ++twice) EXPECT_TRUE(cache.Set(id, std::string("a")));
        EXPECT_THAT(store.listener.Heard(), testing::SizeIs(6 * 2));
    });
}

TEST(Catalogue, ATakeThatANewNameSetsBackIsSeenThroughACache)
{
    OnModel("OAK", [] {
        TestStore store;
        ConfigCache cache(&*store);
        for (const eParam_t take : {eParamID_Take, eParamID_CustomTake}) {
            EXPECT_TRUE(cache.Set(take, 50u));
            EXPECT_EQ(cache.Get(take), 50u);
        }
        store->Set(eParamID_ClipNumber, 7u);
        store->Set(eParamID_CustomClipName, std::string("Reel"));
        for (const eParam_t take : {eParamID_Take, eParamID_CustomTake}) EXPECT_EQ(cache.Get(take), 1u);
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
