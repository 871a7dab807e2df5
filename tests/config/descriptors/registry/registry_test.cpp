#include "config/descriptors/registry/registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libintl.h>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/generic/generic_descriptors.h"
#include "config/descriptors/placeholder.h"
#include "config/descriptors/registry/menu_order.h"
#include "config/descriptors/registry/param_groups.h"
#include "support/failing_new.h"
#include "support/in_child.h"

namespace generic = vexa::config::generic;
using testing::ElementsAre, testing::IsEmpty;

namespace {

/// Starts and ends with an empty registry; a test fills it with what it needs.
class RegistryTest : public testing::Test {
  protected:
    RegistryTest() { DestroyDescriptors(); }
    ~RegistryTest() override { DestroyDescriptors(); }

    static ParamDescriptor& Add(unsigned int id, const std::string& idName = "")
    {
        ParamDescriptor*& slot = g_paramDescriptors[eParam_t{id}];
        delete slot;
        slot = new ParamDescriptor;
        slot->SetParamID(eParam_t{id});
        slot->SetParamIDName(idName);
        return *slot;
    }
    static void AddMenu(unsigned int id, const char* number) { Add(id).AddAttribute("menu_number", number); }
};

TEST_F(RegistryTest, BuildsOnceAndAgainAfterItWasDestroyed)
{
    CreateDescriptors();
    const DescriptorTable built = g_paramDescriptors;
    const DescriptorTable builtGeneric = generic::g_paramDescriptors;
    ASSERT_FALSE(built.empty() || builtGeneric.empty());
    for (const auto& [id, descriptor] : builtGeneric)
        EXPECT_NE(FindDescriptor(id), descriptor) << "owned twice";
    CreateDescriptors();
    EXPECT_EQ(g_paramDescriptors, built);
    EXPECT_EQ(generic::g_paramDescriptors, builtGeneric);

    DestroyDescriptors();
    EXPECT_TRUE(g_paramDescriptors.empty() && generic::g_paramDescriptors.empty());
    CreateDescriptors(nullptr);
    EXPECT_EQ(g_paramDescriptors.size(), built.size());
}

TEST_F(RegistryTest, IsBuiltWholeOrNotAtAll)
{
    const std::pair<void (*)(), long> builds[] = {{CreateDescriptors, 100}, {generic::CreateDescriptors, 3}};
    for (const auto& [build, step] : builds) {
        const auto attempt = [build = build] {
            try {
                build();
                DestroyDescriptors();
            } catch (const std::bad_alloc&) {
            }
            EXPECT_TRUE(g_paramDescriptors.empty() && generic::g_paramDescriptors.empty());
        };
        EXPECT_GT(WithEachAllocationFailing(attempt, step), 10);
    }
}

TEST_F(RegistryTest, LooksUpByIdentifierAndByExactName)
{
    Add(0x02000000, "eParamID_Take");
    ParamDescriptor& first = Add(0x01000000, "eParamID_Take");
    Add(0x00000001, "eParamID_Take2");
    EXPECT_EQ(GetDescriptor(eParam_t{0x01000000}), &first);
    EXPECT_EQ(GetDescriptor("eParamID_Take"), &first) << "the first in the order of identifiers";
    EXPECT_EQ(GetParamNameParamID("eParamID_Take"), 0x01000000u);
    for (const char* const name : {"eParamID_Tak", "eParamID_take", "Take", ""}) {
        EXPECT_EQ(GetDescriptor(name), nullptr) << name;
        EXPECT_EQ(GetParamNameParamID(name), 0u) << name;
    }
    EXPECT_THAT(GetParamIDs(), ElementsAre(1u, 0x01000000u, 0x02000000u));
    EXPECT_THAT(GetParamIDNames(), ElementsAre("eParamID_Take2", "eParamID_Take", "eParamID_Take"));
}

TEST_F(RegistryTest, AnUnknownIdentifierGetsANewPlaceholderEachTime)
{
    ParamDescriptor* (*const looks[])(eParam_t) = {GetDescriptor, generic::GetDescriptor};
    for (const auto look : looks)
        for (const auto& [id, name] : {std::pair{0x01020304u, "1.2.3.4"}, {0xFF00FF0Au, "255.0.255.10"}}) {
            ParamDescriptor* const placeholder = look(eParam_t{id});
            EXPECT_EQ(placeholder->GetParamID(), id);
            EXPECT_EQ(placeholder->GetParamIDName(), name);
            EXPECT_EQ(placeholder->GetName(), name);
            EXPECT_NE(look(eParam_t{id}), placeholder);
        }
    EXPECT_FALSE(IsValidParamID(eParam_t{0x01020304}) || generic::IsValidParamID(eParam_t{0x01020304}));
    EXPECT_EQ(FindDescriptor(eParam_t{0x01020304}), nullptr);
}

TEST_F(RegistryTest, MenuNumberComesFromTheIdentifierUnlessTheCatalogueGaveOne)
{
    AddMenu(0x12350000, "7.1.3");
    Add(0x12370000).AddAttribute("menu_number", 9u);  // a number is no text attribute
    Add(0xFFFE0506);
    AddMenuNumberAttribute();
    for (const auto& [id, expected] :
         {std::pair{0x12350000u, "7.1.3"}, {0x12370000u, "18.55"}, {0xFFFE0506u, "255.254"}}) {
        std::string number;
        FindDescriptor(eParam_t{id})->GetAttribute("menu_number", number);
        EXPECT_EQ(number, expected);
    }
}

TEST_F(RegistryTest, ParamGroupIsTheHighByteForTheGroupsOfTheFrontEnds)
{
    Add(0x01060000).AddAttribute("ParamGroup", 42u);
    Add(0x02060000).AddAttribute("ParamGroup", "text");
    std::string grouped;
    for (unsigned int group = 0; group < 256; ++group) Add(group << 24 | 0x50000);
    AddParamGroupAttribute();
    for (const auto& [id, descriptor] : g_paramDescriptors) {
        unsigned int group = 0;
        if (descriptor->GetAttribute("ParamGroup", group)) grouped += " " + std::to_string(group);
        EXPECT_TRUE(group == 0 || group == 42 || group == id >> 24);
    }
    EXPECT_EQ(grouped,
              " 1 42 2 2 3 4 5 6 8 9 12 13 14 15 16 17 19 22 23 24 32 35 41 50 53 54 55 60 70 80 91 99");

    FindDescriptor(eParam_t{0x01060000})->AddClassName("hidden_param");
    EXPECT_THAT(GetParamGroup(1, false), ElementsAre(0x01050000u, 0x01060000u));
    EXPECT_THAT(GetParamGroup(1, true), ElementsAre(0x01050000u));
    EXPECT_THAT(GetParamGroup(256, false), IsEmpty());
}

// ---- Menu order ----

TEST_F(RegistryTest, MenuNumbersCompareByNumberAndEqualOnesBothWays)
{
    const struct {
        const char *a, *b;
        bool less, greater;  ///< a before b, b before a
    } kRows[] = {
        {"2.9", "2.10", true, false},
        {"4", "4.1", true, false},
        {"3.2", "3.1.2", false, true},
        {"5.1", "5.1", true, true},
        {"5..1", ".5.01.", true, true},
        {"", "0", true, false},
        {"-1", "x", true, false},
        // Numbers have 32 bits and stop at their ends.
        {"2147483647", "4294967297", true, true},
        {"4294967296", "1", false, true},
    };
    for (const auto& [a, b, less, greater] : kRows) {
        AddMenu(1, a);
        AddMenu(2, b);
        EXPECT_EQ(MenuNumberCompare(eParam_t{1}, eParam_t{2}), less) << a << " < " << b;
        EXPECT_EQ(MenuNumberCompare(eParam_t{2}, eParam_t{1}), greater) << b << " < " << a;
    }
    AddMenu(1, "9.1");
    AddMenu(2, "10.1");
    EXPECT_TRUE(MenuNumberCompareStrings(eParam_t{2}, eParam_t{1}));
    EXPECT_FALSE(MenuNumberCompareStrings(eParam_t{1}, eParam_t{1}));
}

TEST_F(RegistryTest, SortsManyEqualMenuNumbers)
{
    for (unsigned int id = 1; id <= 3000; ++id)
        AddMenu(id, id % 3 == 0 ? "2.10" : id % 3 == 1 ? "2.9" : "2.9.1");
    std::list<eParam_t> ids = GetParamIDs();
    ids.push_back(eParam_t{99999});  // not registered: an empty menu number, and no placeholder
    const size_t retained = CountRetainedDescriptors();
    SortByMenuNumber(ids);
    EXPECT_EQ(CountRetainedDescriptors(), retained);
    EXPECT_EQ(ids.front(), 99999u);
    ids.pop_front();
    EXPECT_EQ(ids.size(), 3000u);
    EXPECT_TRUE(std::ranges::is_sorted(ids, {}, [](eParam_t id) { return (id + 2) % 3; }));
}

// ---- Generic registry ----

TEST_F(RegistryTest, GenericParametersHaveARegistryOfTheirOwn)
{
    generic::CreateDescriptors();
    EXPECT_TRUE(g_paramDescriptors.empty());
    EXPECT_EQ(generic::GetParamIDNames().size(), 5u);
    for (const auto& [id, descriptor] : generic::g_paramDescriptors) {
        EXPECT_EQ(generic::GetDescriptor(descriptor->GetParamIDName()), descriptor);
        EXPECT_TRUE(descriptor->GetPersistenceType() != ePersist &&
                    descriptor->GetRegisterType() == eRegister_Exclude &&
                    descriptor->GetFactoryResetType() == eFactoryReset_Exclude)
            << descriptor->GetParamIDName();
    }
}

// ---- Locales ----

TEST(Locale, IsSwitchedByARebuildThatKeepsTheTextDomain)
{
    ExpectOnModel("OAK", [] {
        CreateDescriptors();
        textdomain("front-panel");
        for (const unsigned int locale : {1u, 12345u}) {  // the last one is no value of the parameter
            FindDescriptor(eParamID_Locale)->SetName("stale");
            EXPECT_TRUE(SetLocaleDescriptors(locale));
            EXPECT_EQ(FindDescriptor(eParamID_Locale)->GetName(), "Locale");
            EXPECT_STREQ(textdomain(nullptr), "front-panel");
        }
        EXPECT_STREQ(bindtextdomain("config", nullptr), "/usr/share/locale");
    });
}

TEST(Locale, ASwitchWithoutMemoryLeavesNoHalfOfACatalogue)
{
    ExpectOnModel("OAK", [] {
        CreateDescriptors();
        const size_t whole = g_paramDescriptors.size();
        textdomain("front-panel");
        const auto change = [whole] {
            SetLocaleDescriptors(1);
            EXPECT_STREQ(textdomain(nullptr), "front-panel");
            CreateDescriptors();
            EXPECT_EQ(g_paramDescriptors.size(), whole);
        };
        EXPECT_GT(WithEachAllocationFailing(change, 100), 10);
    });
}

TEST(Locale, ARefusedSwitchLeavesTheRegistryAsItWas)
{
    const auto refused = [] {
        CreateDescriptors();
        ParamDescriptor*& locale = g_paramDescriptors[eParamID_Locale];
        delete locale;
        locale = new IntegerDescriptor;
        const DescriptorTable built = g_paramDescriptors;
        EXPECT_FALSE(SetLocaleDescriptors(4294967295));
        EXPECT_EQ(g_paramDescriptors, built);
    };
    ExpectOnModel("ALDER", refused, "");
    ExpectOnModel("OAK", refused,
                  "SetLocaleDescriptors(-1) dynamic_cast of descriptor for eParamID_Locale failed\n");
    // No placeholder is asked: it would be one more that is never freed.
    const auto refusedWithoutLocales = [] {
        const size_t retained = CountRetainedDescriptors();
        EXPECT_FALSE(SetLocaleDescriptors(1));
        EXPECT_EQ(CountRetainedDescriptors(), retained);
    };
    ExpectOnModel("OAK", refusedWithoutLocales,
                  "SetLocaleDescriptors(1) got nullptr for ::GetDescriptor(eParamID_Locale)\n");
}

}  // namespace
