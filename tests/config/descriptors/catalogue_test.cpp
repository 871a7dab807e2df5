// The catalogue on every model. The model is settled once per process, so each is looked at in a child
// process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "config/descriptors/catalogue/builders.h"
#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/placeholder.h"
#include "config/descriptors/registry.h"
#include "config/descriptors/string_descriptor.h"
#include "messages/alarm.pb.h"
#include "services/product/product_features.h"
#include "services/product/product_models.h"
#include "support/in_child.h"
#include "support/store.h"

using namespace vexa::config::catalogue;

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
std::string OnModel(const std::string& model, const std::function<void()>& check)
{
    SCOPED_TRACE(model);
    std::string text;
    const testing::Matcher<const std::string&> keepText = testing::Truly([&](const std::string& written) {
        text = written;
        return true;
    });
    ExpectInChild(
        [&] {
            setenv("PRODUCT_ID", model.c_str(), 1);
            CreateDescriptors();
            check();
        },
        keepText);
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

// ---- Rows and builders ----

struct BuilderRow {
    std::string name;
    void (*build)();
    std::set<unsigned int> groups;  ///< high bytes of its identifiers
    size_t rows;                    ///< entries of all models
};
#define BUILDER(name) #name, name

const BuilderRow kBuilderRows[] = {
    {BUILDER(CreateGroup_0), {0}, 2},
    {BUILDER(CreateGroup_1), {1}, 41},
    {BUILDER(CreateGroup_2), {2}, 15},
    {BUILDER(CreateGroup_4), {4}, 1},
    {BUILDER(CreateGroup_6), {6}, 1},
    {BUILDER(CreateGroup_8), {8}, 9},
    {BUILDER(CreateGroup_9), {9}, 3},
    {BUILDER(CreateGroup_12), {12}, 7},
    {BUILDER(CreateGroup_13), {13}, 4},
    {BUILDER(CreateGroup_14), {14}, 29},
    {BUILDER(CreateGroup_15), {15}, 4},
    {BUILDER(CreateGroup_16), {16}, 4},
    {BUILDER(CreateGroup_17), {17}, 8},
    {BUILDER(CreateGroup_19), {19}, 9},
    {BUILDER(CreateGroup_22), {22}, 2},
    {BUILDER(CreateGroup_32), {32}, 1},
    {BUILDER(CreateGroup_35), {35}, 5},
    {BUILDER(CreateGroup_41), {41}, 5},
    {BUILDER(CreateGroup_50), {50}, 18},
    {BUILDER(CreateGroup_55), {55}, 4},
    {BUILDER(CreateGroup_AlarmSuppress), {60, 126}, 2},
    {BUILDER(CreateGroup_70), {70}, 9},
    {BUILDER(CreateGroup_80), {80}, 4},
    {BUILDER(CreateGroup_91), {}, 0},
    {BUILDER(CreateGroup_92), {}, 0},
    {BUILDER(CreateGroup_99), {99}, 1},
    {BUILDER(CreateGroup_100), {100}, 1},
    {BUILDER(CreateGroup_118), {118}, 1},
    {BUILDER(CreateGroup_120), {120}, 1},
    {BUILDER(CreateGroup_121), {121}, 7},
    {BUILDER(CreateGroup_122), {122}, 2},
    {BUILDER(CreateGroup_123), {123}, 19},
    {BUILDER(CreateGroup_125), {125}, 25},
    {BUILDER(CreateGroup_127), {127}, 2},
    {BUILDER(CreateGroup_System), {125}, 8},
    {BUILDER(CreateGroup_BeerThirty), {125}, 1},
    {BUILDER(CreateGroup_Discovery), {52}, 2},
    {BUILDER(CreateParamDescriptor_RegisterSaveRecall), {91, 92, 126}, 4},
    {BUILDER(CreateParamDescriptor_RegisterLoadStore), {91, 92, 126}, 4},
    {BUILDER(CreateParamDescriptor_RegisterImportExport), {126}, 2},
    {BUILDER(CreateParamDescriptor_PresetNames), {93}, 1},
    {BUILDER(CreateParamDescriptor_MediaParams), {125}, 1},
    {BUILDER(CreateParamDescriptor_EngineeringDebug), {}, 0},
};

void CheckBuilders()
{
    for (const auto& [name, build, groups, rows] : kBuilderRows) {
        SCOPED_TRACE(name);
        DestroyDescriptors();
        build();
        for (const auto& [id, descriptor] : g_paramDescriptors) EXPECT_TRUE(groups.contains(id >> 24)) << id;
    }
}

TEST(Catalogue, EveryBuilderKeepsToItsGroups)
{
    for (const std::string& model : AllModels()) OnModel(model, CheckBuilders);
}

size_t CountIn(const std::string& text, const std::string& what)
{
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
    return count;
}

std::string WithoutBlanks(std::string source)
{
    std::erase_if(source, [](unsigned char c) { return std::isspace(c); });
    return source;
}

size_t CountRows(const std::string& source)
{
    const std::string text = WithoutBlanks(source);
    return CountIn(text, "Register(Enum(") + CountIn(text, "Register(Integer(") +
           CountIn(text, "Register(String(") + CountIn(text, "Register(Data(");
}

std::vector<std::string> CatalogueSources()
{
    std::vector<std::string> sources;
    for (const auto& file :
         std::filesystem::directory_iterator(VEXA_SOURCE_DIR "/classes/config/descriptors/catalogue")) {
        std::ifstream in(file.path());
        if (file.path().extension() == ".cpp")
            sources.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return sources;
}

/// Rows by builder. The helpers in front of a builder, after the builder before it, are the builder's.
std::map<std::string, size_t> RowsByBuilder(const std::string& source)
{
    std::map<size_t, std::string> headings;
    for (const BuilderRow& row : kBuilderRows) {
        const size_t at = source.find("\nvoid " + row.name + "()");
        if (at != std::string::npos) headings[at] = row.name;
    }
    std::map<std::string, size_t> rows;
    size_t begin = 0;
    for (const auto& [at, name] : headings) {
        const size_t end = std::min(source.find("\n}\n", at), source.size());
        rows[name] = CountRows(source.substr(begin, end - begin));
        begin = end;
    }
    return rows;
}

TEST(Catalogue, HasAllRowsOfAllModels)
{
    std::map<std::string, size_t> rows;
    std::string all;
    for (const std::string& source : CatalogueSources()) {
        rows.merge(RowsByBuilder(source));
        all += WithoutBlanks(source);
    }
    for (const BuilderRow& row : kBuilderRows) EXPECT_EQ(rows[row.name], row.rows) << row.name;
    EXPECT_EQ(CountIn(all, "Register(Enum("), 184u);
    EXPECT_EQ(CountIn(all, "Register(Integer("), 49u);
    EXPECT_EQ(CountIn(all, "Register(String("), 35u);
    EXPECT_EQ(CountIn(all, "Register(Data("), 1u);
    // The alarms have a table of their own, and the engineering builder stands outside the list.
    EXPECT_EQ(std::size(kBuilderRows), std::size(kBuilders));
}

// ---- Across the models ----

/// Which models have an identifier, and which symbolic names carry a class name.
struct Family {
    std::map<unsigned int, std::set<std::string>> models;
    std::map<std::string, std::set<std::string>> names;
};

void PrintParameters()
{
    for (const auto& [id, descriptor] : g_paramDescriptors) {
        std::cerr << id << ' ' << descriptor->GetParamIDName();
        for (const std::string& name : descriptor->GetClassNames()) std::cerr << ' ' << name;
        std::cerr << '\n';
    }
}

Family ReadFamily()
{
    Family family;
    for (const std::string& model : AllModels()) {
        std::istringstream lines(OnModel(model, PrintParameters));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            unsigned int id = 0;
            std::string name;
            words >> id >> name;
            family.models[id].insert(model);
            for (std::string word; words >> word;) family.names[word].insert(name);
        }
    }
    return family;
}

TEST(Catalogue, CoversTheFamily)
{
    Family family = ReadFamily();
    for (const eParam_t id : kAllParamIDs) {
        const bool generic = id >> 24 == 124;
        if (!generic) {
            EXPECT_TRUE(family.models.contains(id)) << "on no model: " << std::hex << id;
        }
    }
    // What the store itself works with, and what every client may count on.
    for (const eParam_t id :
         {eParamID_ClipName, eParamID_ClipNumber, eParamID_ClipAppend, eParamID_AlphaAppend, eParamID_Take,
          eParamID_UseCustomClipName, eParamID_CustomClipName, eParamID_UseCustomClipTake,
          eParamID_CustomTake, eParamID_GangEnable, eParamID_CurrentMediaAvailable, eParamID_RegisterSave,
          eParamID_SystemCommand, eParamID_SystemState, eParamID_MediaUpdated, eParamID_Locale,
          eParamID_IPAddress, eParamID_Authentication})
        EXPECT_EQ(family.models[id].size(), AllModels().size()) << std::hex << id;

    EXPECT_EQ(family.models[eParamID_LED_Identify], (std::set<std::string>{"HAZEL", "LARCH"}));
    EXPECT_EQ(family.models[eParamID_IPAddress_1], (std::set<std::string>{"OAK", "ROWAN"}));
    EXPECT_TRUE(family.models[eParamID_EncodeType].contains(kUnknownModel));

    EXPECT_EQ(family.names["readonly"].size(), 27u);
    EXPECT_EQ(family.names["volatile"].size(), 19u);
    EXPECT_EQ(family.names["action_param"], (std::set<std::string>{"eParamID_FactorySettings"}));
    EXPECT_EQ(family.names["alarm_suppress"], (std::set<std::string>{"eParamID_SuppressPSAlarm"}));
}

// ---- Entries that others rely on to the letter ----

std::vector<unsigned int> MenuOrder(eParam_t id)
{
    std::vector<unsigned int> order;
    for (const auto& value : Get<EnumDescriptor>(id).GetOrderedEnumValueDescriptors())
        order.push_back(value.value);
    return order;
}

TEST(Catalogue, EntriesToTheLetter)
{
    OnModel("OAK", [] {
        EXPECT_EQ(MenuOrder(eParamID_SystemState),
                  (std::vector<unsigned int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
        EXPECT_EQ(Get<EnumDescriptor>(eParamID_SystemState).GetEnumValue(10), "eSystemStateFatalError");
        EXPECT_TRUE(Get<EnumDescriptor>(eParamID_SystemState).HasClassName("readonly"));

        auto& command = Get<EnumDescriptor>(eParamID_SystemCommand);
        EXPECT_EQ(command.GetEnumValue(0), "eSystemCommandUnitialized");
        EXPECT_EQ(command.GetMaxValue(), 7u);
        EXPECT_EQ(command.GetFeatureType(), eFeature_2);
        EXPECT_EQ(command.GetPersistenceType(), ePersist_Exclude);
        EXPECT_EQ(command.GetRegisterType(), eRegister_Exclude);
        EXPECT_EQ(command.GetFactoryResetType(), eFactoryReset_Exclude);

        for (const eParam_t id : {eParamID_RegisterExportResult, eParamID_RegisterImportResult}) {
            EXPECT_EQ(MenuOrder(id), (std::vector<unsigned int>{0, 1, 2, 4, 3}));
            EXPECT_EQ(Get<EnumDescriptor>(id).GetClassNames(),
                      (std::vector<std::string>{"volatile", "readonly"}));
        }
        EXPECT_EQ(Get<EnumDescriptor>(eParamID_RegisterImportResult).GetEnumValue(3), "Import Failed");

        auto& save = Get<IntegerDescriptor>(eParamID_RegisterSave);
        unsigned int group = 0;
        EXPECT_TRUE(save.GetAttribute("ParamGroup", group));
        EXPECT_EQ(group, 4u);
        EXPECT_EQ(save.GetClassNames(), (std::vector<std::string>{"volatile", "preset_param"}));

        EXPECT_EQ(Get<EnumDescriptor>(eParamID_Locale).GetEnumValueDescriptor(1).shortName, "ja_JP.utf8");
        EXPECT_EQ(Get<IntegerDescriptor>(eParamID_MediaUpdated).GetClassNames(),
                  (std::vector<std::string>{"volatile", "do_not_validate"}));
        EXPECT_EQ(Get<StringDescriptor>(eParamID_PresetName_20).GetParamIDName(), "eParamID_PresetName_20");
        EXPECT_EQ(eParamID_PresetName_20, 0x5d140000u);
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
        OnModel(model, [] {
            EXPECT_EQ(CountTwoLineNames(), 0u);
            DestroyDescriptors();
            SetEncodeDescriptors(true);
            CreateDescriptors();
            EXPECT_EQ(CountTwoLineNames() > 0, CProductFeatures::hasTwoLinePanel());
            if (CProductFeatures::hasTwoLinePanel()) {
                EXPECT_EQ(Get<EnumDescriptor>(eParamID_SensorCommand).GetEnumValue(2),
                          "Shutdown:\n  2 seconds");
                EXPECT_EQ(Get<EnumDescriptor>(eParamID_FirmwareStatus).GetEnumValue(0),
                          "NotChange/\n  Success");
            }
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
