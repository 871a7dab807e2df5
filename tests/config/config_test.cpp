#include "config/config.h"

#include <gtest/gtest.h>

#include <ctime>
#include <functional>

#include "support/store.h"

namespace {

TEST(Config, ConvenienceSettersStampWithTheCurrentTime)
{
    TestStore store;
    const time_t before = time(nullptr);
    std::string data("\0\1", 2);
    const std::function<bool()> setters[] = {
        [&] { return store->Set(eParamID_RegisterSave, 3u); },
        [&] { return store->Set(eParamID_ReelName, std::string("x")); },
        [&] { return store->SetData(eParamID_TestData, data); },
    };
    for (size_t n = 0; n < std::size(setters); ++n) {
        EXPECT_TRUE(setters[n]());
        ASSERT_EQ(store.listener.Heard().size(), n + 1);
        EXPECT_GE(store.listener.LastTime().tv_sec, before);
        EXPECT_LE(store.listener.LastTime().tv_sec, time(nullptr));
    }
    EXPECT_EQ(store.listener.Heard().back(), "data 7d04000a=" + data);
}

TEST(ConfigDeathTest, DataOnAnImplementationWithoutItEndsTheProcessInEveryBuild)
{
    TestStore store;
    std::string data;
    EXPECT_DEATH(
        store->Config::GetData(eParamID_TestData, data),
        "config.h:61: virtual bool Config::GetData\\(eParam_t, std::string&\\): Assertion `false' failed");
    EXPECT_DEATH(store->Config::SetData(eParamID_TestData, data, {}),
                 "config.h:62: virtual bool Config::SetData\\(eParam_t, std::string&, timeval\\): Assertion "
                 "`false' failed");
}

}  // namespace
