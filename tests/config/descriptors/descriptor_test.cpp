#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/string_descriptor.h"

using testing::ElementsAre;

namespace {

constexpr auto kA = eParam_t{1}, kB = eParam_t{2}, kC = eParam_t{3};

TEST(Descriptor, ClassNamesStandOnceInOrderOfAddition)
{
    ParamDescriptor descriptor;
    for (const char* const name : {"led", "volatile", "led", "LED"}) descriptor.AddClassName(name);
    EXPECT_THAT(descriptor.GetClassNames(), ElementsAre("led", "volatile", "LED"));
    EXPECT_FALSE(descriptor.HasClassName("Led") || descriptor.HasClassName("le"));
    EXPECT_TRUE(descriptor.RemoveClassName("LED"));
    EXPECT_FALSE(descriptor.RemoveClassName("LED"));
    descriptor.ToggleClassName("led");
    descriptor.ToggleClassName("led");
    EXPECT_THAT(descriptor.GetClassNames(), ElementsAre("volatile", "led")) << "gone, and added anew";
}

TEST(Descriptor, AnIdentifierThatIsAddedAgainMovesToTheEnd)
{
    using D = ParamDescriptor;
    D descriptor;  // one for both lists, so that a mix-up is seen
    for (const auto& [get, set, add, remove] :
         {std::tuple{&D::GetDependentParamIDs, &D::SetDependentParamIDs, &D::AddDependentParamID,
                     &D::RemoveDependentParamID},
          {&D::GetDependsOnParamIDs, &D::SetDependsOnParamIDs, &D::AddDependsOnParamID,
           &D::RemoveDependsOnParamID}}) {
        for (const eParam_t id : {kA, kB, kC, kA}) (descriptor.*add)(id);
        EXPECT_THAT((descriptor.*get)(), ElementsAre(kB, kC, kA));
        (descriptor.*set)({kC, kC, kA});
        EXPECT_TRUE((descriptor.*remove)(kC));
        EXPECT_FALSE((descriptor.*remove)(kB));
        EXPECT_THAT((descriptor.*get)(), ElementsAre(kC, kA)) << "the first occurrence goes";
    }
}

TEST(Descriptor, ALookUpOfAnUnknownRelationMakesItKnown)
{
    ParamDescriptor descriptor;
    for (int twice = 0; twice < 2; ++twice) descriptor.AddRelation("enabled_by", kA, 7);
    EXPECT_THAT(descriptor.GetRelation("enabled_by"),
                ElementsAre(ParamDescriptor::Relation{kA, 7}, ParamDescriptor::Relation{kA, 7}));
    EXPECT_THAT(descriptor.GetRelation("unknown"), ElementsAre());
    EXPECT_THAT(descriptor.GetRelations(), ElementsAre(testing::Key("enabled_by"), testing::Key("unknown")));

    // So two threads that only look change the same descriptor.
    const auto look = [&] {
        for (int n = 0; n < 200; ++n) descriptor.GetRelation(std::to_string(n));
    };
    std::jthread other(look);
    look();
    other.join();
    EXPECT_EQ(descriptor.GetRelations().size(), 202u);
}

// ---- Enumerations ----

std::vector<unsigned int> OrderOf(EnumDescriptor& enumeration)
{
    std::vector<unsigned int> order;
    for (const auto& value : enumeration.GetOrderedEnumValueDescriptors()) order.push_back(value.value);
    return order;
}

TEST(EnumDescriptor, KeepsTheOrderOfAdditionBesideTheNumericOne)
{
    EnumDescriptor enumeration;
    EnumDescriptor::EnumValueData data{{{"lines", 2}}, {{"icon", "off"}}, {"rest_hidden"}};
    enumeration.AddNameValuePair(2, "Blink", nullptr, "");
    enumeration.AddNameValuePair(0, "Switched off", "OFF", &data, "dark");
    enumeration.AddNameValuePair(1, "On", nullptr, "");
    EXPECT_THAT(OrderOf(enumeration), ElementsAre(2, 0, 1));
    EXPECT_THAT(enumeration.GetEnumValueDescriptors(),
                ElementsAre(testing::Pair(0, EnumValueDescriptor{0, "Switched off", "OFF", "dark", data}),
                            testing::Pair(1, EnumValueDescriptor{1, "On", "On", "", {}}),
                            testing::Pair(2, EnumValueDescriptor{2, "Blink", "Blink", "", {}})));

    enumeration.AddNameValuePair(2, "Flash", nullptr, "");
    EXPECT_THAT(OrderOf(enumeration), ElementsAre(2, 0, 1, 2)) << "added twice, listed twice";
    EXPECT_EQ(enumeration.GetOrderedEnumValueDescriptors().front().name, "Flash");
    EXPECT_EQ(enumeration.GetEnumValueDescriptors().size(), 3u);
}

TEST(EnumDescriptor, AMissingValueIsInvalidAndIsNotInserted)
{
    EnumDescriptor enumeration;
    for (const unsigned int value : {2u, 0u}) enumeration.AddNameValuePair(value, "x", nullptr, "");
    enumeration.SetEnumValueDescriptors({{0, {0, "zero", "0", "", {}}}});
    EXPECT_THAT(OrderOf(enumeration), ElementsAre(99999, 0)) << "the order stays when the table is replaced";
    EXPECT_EQ(enumeration.GetEnumValueDescriptor(2),
              (EnumValueDescriptor{99999, "Invalid", "Invalid", "", {}}));
    EXPECT_EQ(enumeration.GetEnumValue(0), "zero");
    EXPECT_EQ(enumeration.GetEnumValue(0x1f), "0x1f");
    EXPECT_EQ(enumeration.GetEnumValueDescriptors().size(), 1u);
}

TEST(StringDescriptorDeathTest, AnotherTypeThanTextEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, VEXA_DEATH_TEST_STYLE);
    StringDescriptor text;
    DataDescriptor data;
    AlarmDescriptor alarm;
    for (ParamDescriptor* const descriptor : std::initializer_list<ParamDescriptor*>{&text, &data, &alarm}) {
        descriptor->SetParamType(eCParam_StringValue);
        EXPECT_EXIT(descriptor->SetParamType(eCParam_IntegerValue), testing::ExitedWithCode(255),
                    testing::Eq("StringDescriptor::SetParamType - ERROR: Invalid paramType - must be "
                                "eCParam_StringValue"));
    }
}

}  // namespace
