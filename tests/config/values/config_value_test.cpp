#include "config/values/config_value.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>

#include "config/descriptors/registry/registry.h"
#include "config/descriptors/string_descriptor.h"
#include "support/stream_bytes.h"

using namespace std::string_literals;

namespace {

constexpr auto kID = eParam_t{0x1302000a};

template <class T>
T ValueOf(TypedValue<T>& value)
{
    T got{};
    value.Get(got);
    return got;
}

TEST(ConfigValue, OnlyARealChangeMarksItDirty)
{
    const std::string kTexts[] = {"", "a", "b", "a ", "a\0b"s, "a\0c"s, "a\0"s};
    for (const std::string& before : kTexts)
        for (const std::string& after : kTexts) {
            StringValue value(0, kID, eCParam_StringValue, before);
            EXPECT_FALSE(value.IsDirty());
            value.Set(after);
            EXPECT_EQ(value.IsDirty(), before != after) << before << " to " << after;
            EXPECT_EQ(ValueOf(value), after);
        }
    for (const int changed : {-1, 0, 1, 2, 3}) {
        IntegerValue value(7, eParam_t{7}, eParamType_t{7}, 7);
        value.Set(changed == 0 ? 8 : 7);
        value.SetConfigID(changed == 1 ? 8 : 7);
        value.SetParamID(eParam_t{changed == 2 ? 8u : 7u});
        value.SetParamType(eParamType_t{changed == 3 ? 8u : 7u});
        EXPECT_EQ(value.IsDirty(), changed >= 0) << changed;
    }
}

TEST(ConfigValue, EqualMeansClassIdentityDirtyFlagAndValue)
{
    IntegerValue value(1, kID, eCParam_IntegerValue, 7), same(1, kID, eCParam_IntegerValue, 7);
    EXPECT_TRUE(value.IsEqual(&same) && value.IsEqual(&value));

    IntegerValue config(2, kID, eCParam_IntegerValue, 7), param(1, eParam_t{1}, eCParam_IntegerValue, 7),
        type(1, kID, eCParam_EnumValue, 7), number(1, kID, eCParam_IntegerValue, 8),
        relabelled(1, kID, eCParam_IntegerValue, 7);
    same.SetDirty(true);
    relabelled.SetClassID(eClassID_StringValue);
    StringValue text(1, kID, eCParam_IntegerValue, "7"), posing(1, kID, eCParam_IntegerValue, "7");
    posing.SetClassID(eClassID_IntegerValue);
    for (ConfigValue* const other : std::initializer_list<ConfigValue*>{
             &config, &param, &type, &number, &same, &relabelled, &text, &posing, nullptr})
        EXPECT_FALSE(value.IsEqual(other) || (other && other->IsEqual(&value)));
    EXPECT_FALSE(text.IsEqual(&relabelled));
}

TEST(ConfigValue, CloneIsACleanTwinAndCopyTakesConfigurationAndValueOnly)
{
    IntegerValue number(1, kID, eCParam_IntegerValue, 7), expectedNumber(1, eParam_t{5}, eCParam_Time, 7);
    StringValue text(1, kID, eCParam_StringValue, "a\0b"s),
        expectedText(1, eParam_t{5}, eCParam_Time, "a\0b"s);
    IntegerValue numberTarget(9, eParam_t{5}, eCParam_Time, 8);
    StringValue textTarget(9, eParam_t{5}, eCParam_Time, "a");
    for (const auto& [source, target, expected, otherKind] :
         std::initializer_list<std::array<ConfigValue*, 4>>{{&number, &numberTarget, &expectedNumber, &text},
                                                            {&text, &textTarget, &expectedText, &number}}) {
        source->SetDirty(true);
        const std::unique_ptr<ConfigValue> clone(source->Clone());
        EXPECT_FALSE(clone->IsDirty());
        source->SetDirty(false);
        EXPECT_TRUE(source->IsEqual(clone.get()));
        target->Copy(*source);
        target->CopyValue(*otherKind);  // changes nothing
        expected->SetDirty(true);
        EXPECT_TRUE(target->IsEqual(expected)) << target->ToString();
    }
    text.Copy(text);
    EXPECT_FALSE(text.IsDirty());
}

TEST(ConfigValue, PrintsIdentityAndValueOnOneLine)
{
    EXPECT_EQ(IntegerValue(-1, eParam_t{0xABCD000a}, eCParam_EnumValue, 0xFFFFFFFE).ToString(),
              "configID = -1, paramID = 0xABCD000A, paramType = 3, value = -2 = 0Xfffffffe");
    EXPECT_EQ(StringValue(2147483647, eParam_t{0xFFFFFFFF}, eParamType_t{0xFFFFFFFF}, "Scène").ToString(),
              "configID = 2147483647, paramID = 0xFFFFFFFF, paramType = -1, value = Scène");
}

TEST(ConfigValue, ReadingLeavesTheDirtyFlag)
{
    StringValue value(0, kID, eCParam_StringValue, "a"), same(0, kID, eCParam_StringValue, "a");
    value.SetDirty(true);
    Reader reader(Streamed(same).substr(4));
    EXPECT_TRUE(value.Deserialize(&reader));
    EXPECT_TRUE(value.IsDirty());
}

TEST(ConfigValue, ResetTakesTheDefaultOfADescriptorOfItsKindOnly)
{
    CreateDescriptors();
    constexpr auto kNumber = eParamID_RegisterSave, kText = eParamID_SW_Error_Alarm;
    const std::string atRest = dynamic_cast<StringDescriptor*>(FindDescriptor(kText))->GetFactoryDefault();
    for (const eParam_t id : {kNumber, kText, eParam_t{0x05030000}}) {
        IntegerValue number(0, id, eCParam_IntegerValue, 7);
        StringValue text(0, id, eCParam_StringValue, "a");
        number.ResetToFactory();
        text.ResetToFactory();
        EXPECT_EQ(ValueOf(number), id == kNumber ? 1u : 7u);
        EXPECT_EQ(ValueOf(text), id == kText ? atRest : "a");
    }
}

}  // namespace
