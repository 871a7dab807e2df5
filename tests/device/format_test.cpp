#include "device/format.h"

#include <gtest/gtest.h>

#include "config/descriptors/enum_descriptor.h"
#include "config/descriptors/integer_descriptor.h"
#include "config/descriptors/string_descriptor.h"
#include "device/catalogue.h"
#include "services/product/product_models.h"

namespace {

using vexa::Catalogue, vexa::Value;

ParamDescriptor& Parameter(const char* model, const char* name)
{
    return *Catalogue::Of(model)->Find(name);
}

/// Values that a parameter can have: the ends of its range, its default, and all that have a name.
std::vector<Value> SomeValues(ParamDescriptor& descriptor)
{
    if (vexa::HoldsText(descriptor))
        return {std::string(), std::string("Scene 12 é"), std::string("<b> \"q\"")};
    auto* const integer = dynamic_cast<IntegerDescriptor*>(&descriptor);
    if (auto* const enumeration = dynamic_cast<EnumDescriptor*>(&descriptor)) {
        std::vector<Value> values;
        for (const auto& [number, entry] : enumeration->GetEnumValueDescriptors())
            values.emplace_back(number);
        return values;
    }
    return {integer->GetMinValue(), integer->GetMaxValue(), integer->GetFactoryDefault()};
}

TEST(Format, WhatIsShownCanBeTyped)
{
    for (const ProductModel& model : ProductModels())
        for (const auto& [id, descriptor] : Catalogue::Of(std::string(model.name))->All()) {
            if (vexa::HoldsBytes(*descriptor)) continue;
            for (const Value& value : SomeValues(*descriptor)) {
                const std::string text = vexa::Format(*descriptor, value);
                std::string reason;
                EXPECT_EQ(vexa::Parse(*descriptor, text, reason), value)
                    << model.name << " " << descriptor->GetParamIDName() << " \"" << text << "\": " << reason;
            }
        }
}

TEST(Format, EveryKindAsPeopleWriteIt)
{
    const struct {
        const char *name, *typed, *shown;
    } kRows[] = {
        {"FanSpeed", "70", "70 %"},
        {"FanSpeed", "70%", "70 %"},
        {"FanSpeed", "0x46", "70 %"},
        {"IPAddress", "10.0.0.9", "10.0.0.9"},
        {"TransportRequestedSpeed", "-100", "-100 %"},
        {"TransportRequestedSpeed", "-100 %", "-100 %"},
        {"DateSet", "2024-02-29", "2024-02-29"},
        {"DateSet", "20240229", "2024-02-29"},
        {"TimeSet", "00:05:09", "00:05:09"},
        {"TimeSet", "509", "00:05:09"},
        {"SystemState", "4", "4 eSystemStateRunning"},
        {"SystemState", "ESYSTEMSTATERUNNING", "4 eSystemStateRunning"},
        {"SystemState", "4 eSystemStateRunning", "4 eSystemStateRunning"},
        {"ReelName", " as it is ", " as it is "},
        {"TestData", "<00ff>", "<00ff>"},
        {"TestData", "ab", "<6162>"},
        {"SW_Error_Alarm", "clear", "clear, INFORMATION"},
        {"SW_Error_Alarm", "raised, ERROR: no signal; twice", "raised, ERROR: no signal; twice"},
    };
    for (const auto& [name, typed, shown] : kRows) {
        ParamDescriptor& parameter = Parameter("OAK", name);
        std::string reason;
        const auto value = vexa::Parse(parameter, typed, reason);
        ASSERT_TRUE(value) << name << " \"" << typed << "\": " << reason;
        EXPECT_EQ(vexa::Format(parameter, *value), shown);
    }
}

TEST(Format, ScaledNumbersHaveTheirDecimals)
{
    IntegerDescriptor volts;
    volts.SetParamType(eCParam_IntegerValue);
    volts.SetMaxValue(20'000);
    volts.SetScaleBy(1000);
    volts.SetDisplayPrecision(2);
    volts.SetUnits("V");
    std::string reason;
    EXPECT_EQ(vexa::Format(volts, 12'500u), "12.50 V");
    EXPECT_EQ(vexa::Parse(volts, "12.50 V", reason), Value(12'500u));
    EXPECT_EQ(vexa::Parse(volts, "12.5", reason), Value(12'500u));
    EXPECT_EQ(vexa::Parse(volts, "12 V", reason), Value(12'000u));
    EXPECT_EQ(vexa::Parse(volts, "12500", reason), Value(12'500u)) << "as scripts have it";
    EXPECT_EQ(vexa::Objection(volts, 20'001u), "outside 0.00 to 20.00 V");
}

TEST(Format, WhatIsNoValueHasAReason)
{
    const struct {
        const char *name, *typed, *reason;
    } kRows[] = {
        {"FanSpeed", "fast", "it takes 30 to 100 %"},
        {"FanSpeed", "-1", "it takes 30 to 100 %"},
        {"IPAddress", "10.0.0", "it takes an address, as 10.0.0.9"},
        {"DateSet", "2023-02-29", "it takes a date, as 2026-02-28"},
        {"DateSet", "20241399", "it takes a date, as 2026-02-28"},
        {"TimeSet", "24:00:00", "it takes a time, as 23:59:59"},
        {"TestData", "<0g>", "it takes bytes, as <00ff>, or a text"},
        {"TestData", "<000>", "it takes bytes, as <00ff>, or a text"},
        {"SW_Error_Alarm", "broken", "it takes an alarm, as \"raised, ERROR: no signal\" or \"clear\""},
        {"SW_Error_Alarm", "raised, LOUD", "it takes an alarm, as \"raised, ERROR: no signal\" or \"clear\""},
    };
    for (const auto& [name, typed, expected] : kRows) {
        std::string reason;
        EXPECT_FALSE(vexa::Parse(Parameter("OAK", name), typed, reason)) << name << " \"" << typed << "\"";
        EXPECT_EQ(reason, expected);
    }
    std::string reason;
    EXPECT_FALSE(vexa::Parse(Parameter("OAK", "Authentication"), "Digest", reason));
    EXPECT_EQ(reason, "not one of 0 Disabled, 1 Basic");
    EXPECT_EQ(vexa::Objection(Parameter("OAK", "Authentication"), 2u), "not one of 0 Disabled, 1 Basic");
    EXPECT_EQ(vexa::Objection(Parameter("OAK", "FanSpeed"), 70u), std::nullopt);
}

TEST(Catalogue, OfSeveralModelsAtOnce)
{
    const auto oak = Catalogue::Of("OAK"), hazel = Catalogue::Of("HAZEL");
    EXPECT_EQ(Catalogue::Of("OAK"), oak);
    EXPECT_EQ(Catalogue::Of("oak"), nullptr);
    EXPECT_TRUE(oak->Find("ReelName"));
    EXPECT_FALSE(hazel->Find("ReelName"));
    EXPECT_EQ(hazel->Find("fanspeed"), hazel->Find("eParamID_FanSpeed"));
    EXPECT_EQ(oak->Find("0x5c010000"), oak->Find(eParamID_RegisterSave));
    EXPECT_FALSE(oak->Find("0x5c01000g"));
    EXPECT_EQ(oak->Similar("RegistrSave").front(), "RegisterSave");
    EXPECT_TRUE(oak->Similar("zzzzzz").empty());
    for (const ProductModel& model : ProductModels()) {
        const std::string name(model.name);
        auto* const product = dynamic_cast<EnumDescriptor*>(Catalogue::Of(name)->Find(eParamID_ProductID));
        EXPECT_EQ(Catalogue::ModelOf(product->GetFactoryDefault()), name);
    }
    EXPECT_EQ(Catalogue::ModelOf(0), "");
    EXPECT_EQ(Catalogue::ModelOf(4711), std::nullopt);
}

}  // namespace
