#include "config/legacy/legacy_param.h"

#include <gtest/gtest.h>

#include "config/descriptors/enum_descriptor.h"
#include "support/store.h"

namespace {

constexpr eParam_t kUnknown{0x7f020304}, kNamed{0x01020004}, kNameless{0x01020304}, kAlone{0xff000000};

TEST(LegacyParam, AnswersThroughTheSharedConnection)
{
    TestStore earlier, store;
    store->Set(eParamID_CustomClipName, std::string("Scene"));
    store->Set(eParamID_Camera, 2u);
    CParam_ZK9 camera(eParamID_Camera, eCParam_EnumValue, &*earlier);
    CParam_ZK9 name(eParamID_CustomClipName, eCParam_StringValue, &*store);  // the one for all from now on
    std::string text;
    EXPECT_TRUE(name.GetParamValue(text));
    EXPECT_EQ(text, "Scene");
    EXPECT_EQ(camera.GetParamValue(), 2u);
    EXPECT_EQ(CParam_ZK9(eParamID_Camera, eCParam_EnumValue).GetParamValue(), 2u) << "no second connection";
    EXPECT_EQ(camera.GetParamDescriptor(), FindDescriptor(eParamID_Camera));

    EXPECT_EQ(name.GetParamType(), eCParam_StringValue);
    EXPECT_EQ(name.GetParamType(eParamID_Camera), eCParam_EnumValue);
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(name.GetParamType(kUnknown), 0u); }),
              "Bogus descriptor for paramID 7F020304\n");
    EXPECT_EQ(name.GetFactoryValue(eParamID_RegisterSave), 1u);
    for (const eParam_t id : {eParamID_CustomClipName, kUnknown}) EXPECT_EQ(name.GetFactoryValue(id), 0u);
    EXPECT_EQ(name.GetParamNumber(eParam_t{0x7d02010a}), "125.2.1");
    EXPECT_EQ(name.ToString(eParamID_Camera), "17.1.1: Camera");
    EXPECT_EQ(name.ToString(kUnknown), "127.2.3: BOGUS");
    // Two without a name; the first has a main parameter with one.
    ParamDescriptor named, nameless;
    named.SetName("Main");
    g_paramDescriptors.insert({{kNamed, &named}, {kNameless, &nameless}, {kAlone, &nameless}});
    EXPECT_EQ(name.ToString(kNameless), "1.2.3: Main");
    EXPECT_EQ(name.ToString(kAlone), "255.0.0: (-16777216)");
    for (const eParam_t id : {kNamed, kNameless, kAlone}) g_paramDescriptors.erase(id);
    EXPECT_EQ(name.GetParamEnumName(eParamID_Camera, 2), "B");
    EXPECT_EQ(name.GetParamEnumName(eParamID_Camera, 27), "Invalid");
    EXPECT_EQ(name.GetParamEnumName(eParamID_CustomClipName, 0), "BOGUS");

    CParam_ZK9(eParamID_Take, eCParam_IntegerValue, nullptr);
    EXPECT_EQ(camera.GetParamDescriptor(), nullptr);
    EXPECT_EQ(camera.GetParamValue(), 0u);
    EXPECT_FALSE(name.GetParamValue(text));
}

TEST(LegacyParam, TheClassOfATypeIsReadAtThePositionOfItsNumber)
{
    CParam_ZK9 param(eParamID_Take, eCParam_IntegerValue, nullptr);
    constexpr int kExpected[] = {0, 0, -1, 0, 0, 0, 0, 0, 0, -1, 1, 0, 0, -1};
    for (uint32_t type = 0; type < std::size(kExpected); ++type)
        EXPECT_EQ(StderrOf([&] { EXPECT_EQ(param.GetClassID(eParamType_t{type}), kExpected[type]); }),
                  kExpected[type] >= 0
                      ? ""
                      : "Unable to find classID for paramType " + std::to_string(type) + "\n");
}

TEST(LegacyParamDeathTest, AFailedFirstConnectionEndsTheProcess)
{
    struct Nowhere : CParam_ZK9 {
        Nowhere() : CParam_ZK9(eParamID_Take, eCParam_IntegerValue, std::string("nowhere")) {}
    };
    EXPECT_EXIT(Nowhere(), testing::ExitedWithCode(1), "^CParam_ZK9::CParam_ZK9 Connect failed\n$");
}

}  // namespace
