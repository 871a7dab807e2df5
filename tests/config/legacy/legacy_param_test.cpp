#include "config/legacy/legacy_param.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "config/descriptors/enum_descriptor.h"
#include "support/in_child.h"
#include "support/store.h"
#include "support/test_server.h"

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

/// A network of this process's own; without the loopback interface nothing in it can be reached.
bool EnterNetwork(bool withLoopback)
{
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    ifreq loopback{};
    strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP;
    const int any = socket(AF_INET, SOCK_DGRAM, 0);
    const bool up = !withLoopback || ioctl(any, SIOCSIFFLAGS, &loopback) == 0;
    close(any);
    return up;
}

bool NetworksArePermitted()
{
    const pid_t child = fork();
    if (child == 0) _exit(EnterNetwork(true) ? 0 : 1);
    int status = 1;
    waitpid(child, &status, 0);
    return status == 0;
}

TEST(LegacyParamDeathTest, TheFirstObjectConnectsOverUdpForAll)
{
    if (!NetworksArePermitted()) GTEST_SKIP() << "no network of its own";
    ExpectInChild([] {
        EXPECT_TRUE(EnterNetwork(true));
        auto* const server = new vexa::corvalis::config::access::NetworkServer(AF_INET, SOCK_DGRAM);
        TestStore store;  // builds the catalogue
        EXPECT_TRUE(server->Init() && server->Start());
        CParam_ZK9 camera(eParamID_Camera, eCParam_EnumValue);
        Connected served("local:");
        served->Set(eParamID_Camera, 2u);
        EXPECT_EQ(camera.GetParamValue(), 2u);
        server->Stop();
        // Nobody answers any more, so this one has not connected again.
        CParam_ZK9 take(eParamID_Take, eCParam_IntegerValue);
        EXPECT_EQ(take.GetParamDescriptor(), FindDescriptor(eParamID_Take));
    });
}

TEST(LegacyParamDeathTest, AFailedFirstConnectionEndsTheProcess)
{
    if (!NetworksArePermitted()) GTEST_SKIP() << "no network of its own";
    const auto connect = [] {
        EnterNetwork(false);
        CParam_ZK9(eParamID_Take, eCParam_IntegerValue);
    };
    EXPECT_EXIT(connect(), testing::ExitedWithCode(1), "CParam_ZK9::CParam_ZK9 Connect failed\n$");
}

}  // namespace
