#include "config/values/config_value.h"

#include <gtest/gtest.h>

#include <memory>

#include "config/descriptors/registry/registry.h"
#include "config/descriptors/string_descriptor.h"
#include "support/stream_bytes.h"

using namespace std::string_literals;

namespace {

constexpr auto kID = eParam_t{0x1302000a};

unsigned int ValueOf(IntegerValue& value)
{
    unsigned int number = 0;
    value.Get(number);
    return number;
}

std::string ValueOf(StringValue& value)
{
    std::string text;
    value.Get(text);
    return text;
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

template <class Value, class T>
void CheckCopies(eParamType_t type, T first, T second)
{
    Value source(1, kID, type, first);
    source.Set(second);
    const std::unique_ptr<ConfigValue> clone(source.Clone());
    EXPECT_FALSE(clone->IsDirty());
    EXPECT_FALSE(source.IsEqual(clone.get())) << "the dirty flag takes part";
    source.SetDirty(false);
    EXPECT_TRUE(source.IsEqual(clone.get()));
    source.Copy(source);
    EXPECT_FALSE(source.IsDirty());

    Value target(9, eParam_t{5}, eCParam_Time, first), expected(1, eParam_t{5}, eCParam_Time, second);
    target.Copy(source);
    expected.SetDirty(true);
    EXPECT_TRUE(target.IsEqual(&expected)) << target.ToString();
    const std::unique_ptr<Value> created(Value::Create(kID, type, second));
    created->SetConfigID(1);
    created->SetDirty(false);
    EXPECT_TRUE(created->IsEqual(&source)) << created->ToString();
}

TEST(ConfigValue, CloneIsACleanTwinAndCopyTakesConfigurationAndValueOnly)
{
    CheckCopies<IntegerValue>(eCParam_IntegerValue, 7u, 0xFFFFFFFFu);
    CheckCopies<StringValue>(eCParam_StringValue, "a"s, "a\0b"s);

    IntegerValue number(1, kID, eCParam_IntegerValue, 7);
    StringValue text(1, kID, eCParam_StringValue, "a");
    number.CopyValue(text);
    text.CopyValue(number);
    EXPECT_TRUE(ValueOf(number) == 7 && ValueOf(text) == "a") << "the kinds do not mix";
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
    for (const bool dirty : {false, true}) {
        IntegerValue value(0, eParam_t{1}, eCParam_EnumValue, 7), expected(1, kID, eCParam_IntegerValue, 8);
        value.SetDirty(dirty);
        expected.SetDirty(dirty);
        Reader reader(Words({1, kID, eCParam_IntegerValue, 8}));
        EXPECT_TRUE(value.Deserialize(&reader));
        EXPECT_TRUE(value.IsEqual(&expected)) << value.ToString();
    }
}

TEST(ConfigValue, ResetTakesTheDefaultOfADescriptorOfItsKindOnly)
{
    CreateDescriptors();
    constexpr auto kNumber = eParamID_RegisterSave, kText = eParamID_SW_Error_Alarm,
                   kUnknown = eParam_t{0x05030000};
    const std::string atRest = dynamic_cast<StringDescriptor*>(FindDescriptor(kText))->GetFactoryDefault();
    for (const eParam_t id : {kNumber, kText, kUnknown}) {
        IntegerValue aNumber(0, id, eCParam_IntegerValue, 7);
        StringValue aText(0, id, eCParam_StringValue, "a");
        aNumber.ResetToFactory();
        aText.ResetToFactory();
        EXPECT_EQ(ValueOf(aNumber), id == kNumber ? 1u : 7u);
        EXPECT_EQ(ValueOf(aText), id == kText ? atRest : "a");
    }
}

}  // namespace
