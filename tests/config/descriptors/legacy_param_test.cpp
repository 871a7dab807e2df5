#include "config/descriptors/legacy_param.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config/descriptors/enum_descriptor.h"
#include "support/store.h"

namespace {

constexpr eParam_t kUnknown{0x7f020304};

/// The shared connection is a store, for one test.
class LegacyParam : public testing::Test {
  protected:
    ~LegacyParam() override { CParam_ZK9(eParamID_Take, eCParam_IntegerValue, nullptr); }

    TestStore store;
    CParam_ZK9 param{eParamID_CustomClipName, eCParam_StringValue, &*store};
};

TEST_F(LegacyParam, AllObjectsReadThroughTheSharedConnection)
{
    store->Set(eParamID_CustomClipName, std::string("Scene"));
    store->Set(eParamID_Camera, 2u);
    CParam_ZK9 number(eParamID_Camera, eCParam_EnumValue);
    CParam& base = number;
    std::string text;
    EXPECT_TRUE(param.GetParamValue(text));
    EXPECT_EQ(text, "Scene");
    EXPECT_EQ(base.GetParamValue(), 2u);
    EXPECT_EQ(base.GetParamID(), eParamID_Camera);
    EXPECT_EQ(base.GetParamEnum(), eParamID_Camera);
    EXPECT_EQ(base.GetParamType(), eCParam_EnumValue);
    EXPECT_FALSE(base.IsDirty());
    EXPECT_FALSE(base.ShowWhenDisabled());
    EXPECT_EQ(number.GetParamDescriptor(), FindDescriptor(eParamID_Camera));
    EXPECT_EQ(base.GetParamDescriptor(eParamID_Take), FindDescriptor(eParamID_Take));

    TestStore other(8);
    CParam_ZK9(eParamID_Take, eCParam_IntegerValue, &*other);
    EXPECT_EQ(base.GetParamValue(), other->Get(eParamID_Camera)) << "replaced for all";
    CParam_ZK9(eParamID_Take, eCParam_IntegerValue, nullptr);
    EXPECT_EQ(base.GetParamDescriptor(eParamID_Take), nullptr);
    EXPECT_EQ(base.GetParamValue(), 0u);
    EXPECT_FALSE(base.GetParamValue(text));
}

TEST_F(LegacyParam, AnswersAboutAnyParameter)
{
    EXPECT_EQ(param.GetParamType(eParamID_Camera), eCParam_EnumValue);
    EXPECT_EQ(StderrOf([&] { EXPECT_EQ(param.GetParamType(kUnknown), 0u); }),
              "Bogus descriptor for paramID 7F020304\n");
    EXPECT_EQ(param.GetFactoryValue(eParamID_RegisterSave), 1u);
    for (const eParam_t id : {eParamID_CustomClipName, kUnknown}) EXPECT_EQ(param.GetFactoryValue(id), 0u);
    EXPECT_EQ(param.GetParamName(eParamID_Camera), "Camera");
    EXPECT_EQ(param.GetParamNumber(eParam_t{0x7d02010a}), "125.2.1");
    EXPECT_EQ(param.ToString(eParamID_Camera), "17.1.1: Camera");
    EXPECT_EQ(param.ToString(kUnknown), "127.2.3: BOGUS");
    EXPECT_EQ(param.GetParamEnumName(eParamID_Camera, 2), "B");
    EXPECT_EQ(param.GetParamEnumName(eParamID_Camera, 27), "Invalid");
    EXPECT_EQ(param.GetParamEnumName(eParamID_CustomClipName, 0), "BOGUS");
    EXPECT_EQ(param.GetParamEnumName(kUnknown, 0), "BOGUS");
}

TEST_F(LegacyParam, TheClassOfATypeIsReadAtThePositionOfItsNumber)
{
    struct Row {
        uint32_t type;
        int classID;
    };
    for (const Row& row : {Row{0, 0}, Row{1, 0}, Row{2, -1}, Row{3, 0}, Row{4, 0}, Row{5, 0}, Row{6, 0},
                           Row{7, 0}, Row{8, 0}, Row{9, -1}, Row{10, 1}, Row{11, 0}, Row{12, 0}, Row{13, -1}})
        EXPECT_EQ(
            StderrOf([&] { EXPECT_EQ(param.GetClassID(eParamType_t{row.type}), row.classID); }),
            row.classID >= 0 ? "" : "Unable to find classID for paramType " + std::to_string(row.type) + "\n")
            << row.type;
    EXPECT_EQ(param.GetClassID(eParamID_CustomClipName), 0);
}

TEST_F(LegacyParam, AParameterWithoutANameBorrowsOne)
{
    struct Nameless : ConfigManager {
        Nameless() : ConfigManager(0) { main.SetName("Main"); }
        using ConfigManager::GetParamDescriptor;
        ParamDescriptor* GetParamDescriptor(eParam_t id) override
        {
            return id == eParam_t{0x01020004} ? &main : &nameless;
        }
        ParamDescriptor main, nameless;
    } config;
    CParam_ZK9 any(eParamID_Take, eCParam_IntegerValue, &config);
    EXPECT_EQ(any.ToString(eParam_t{0x01020304}), "1.2.3: Main") << "that of its item";
    EXPECT_EQ(any.ToString(eParam_t{0x01030004}), "1.3.0: (16973828)");
    EXPECT_EQ(any.ToString(eParam_t{0xff000000}), "255.0.0: (-16777216)");
}

TEST(LegacyParamDeathTest, AFailedFirstConnectionEndsTheProcess)
{
    struct Nowhere : CParam_ZK9 {
        Nowhere() : CParam_ZK9(eParamID_Take, eCParam_IntegerValue, std::string("nowhere")) {}
    };
    EXPECT_EXIT(Nowhere(), testing::ExitedWithCode(1),
                testing::Eq("CParam_ZK9::CParam_ZK9 Connect failed\n"));
}

}  // namespace
