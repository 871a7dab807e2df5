#include "config/config.h"

#include <gtest/gtest.h>

#include <ctime>

namespace {

/// Implements only what has no default, and remembers the calls of the time-stamped setters.
class BareConfig : public Config {
  public:
    using Config::Get;
    using Config::Set;
    using Config::SetData;
    unsigned int Get(eParam_t) override { return 0; }
    eConfigID_t GetConfigID() override { return 0; }
    timeval GetLastConfigUpdate() override { return {}; }
    ParamDescriptor* GetParamDescriptor(eParam_t) override { return nullptr; }
    ParamDescriptor* GetParamDescriptor(std::string) override { return nullptr; }
    std::list<eParam_t> GetParamIDs() override { return {}; }
    bool Set(eParam_t id, unsigned int value, timeval time) override
    {
        calls.push_back({id, value, "", time});
        return true;
    }
    bool Get(eParam_t, unsigned int&) override { return false; }
    bool Set(eParam_t id, std::string value, timeval time) override
    {
        calls.push_back({id, 0, value, time});
        return false;
    }
    bool Get(eParam_t, std::string&) override { return false; }

    struct Call {
        eParam_t id;
        unsigned int number;
        std::string text;
        timeval time;
    };
    std::vector<Call> calls;
};

class DataConfig : public BareConfig {
  public:
    using BareConfig::SetData;
    bool SetData(eParam_t id, std::string& data, timeval time) override
    {
        calls.push_back({id, 0, data, time});
        return true;
    }
};

TEST(Config, ConvenienceSettersStampOnceWithTheCurrentTime)
{
    DataConfig config;
    const time_t before = time(nullptr);
    std::string data("\0\1", 2);
    EXPECT_TRUE(config.Set(eParamID_Take, 3u));
    EXPECT_FALSE(config.Set(eParamID_CustomClipName, std::string("x")));
    EXPECT_TRUE(config.SetData(eParamID_TestData, data));
    ASSERT_EQ(config.calls.size(), 3u);
    EXPECT_EQ(config.calls[0].number, 3u);
    EXPECT_EQ(config.calls[1].text, "x");
    EXPECT_EQ(config.calls[2].text, data);
    for (const auto& call : config.calls) {
        EXPECT_GE(call.time.tv_sec, before);
        EXPECT_LE(call.time.tv_sec, time(nullptr));
    }
}

TEST(ConfigDeathTest, DataOnAnImplementationWithoutItEndsTheProcessInEveryBuild)
{
    BareConfig config;
    std::string data;
    EXPECT_DEATH(
        config.GetData(eParamID_TestData, data),
        "config.h:61: virtual bool Config::GetData\\(eParam_t, std::string&\\): Assertion `false' failed");
    EXPECT_DEATH(config.SetData(eParamID_TestData, data),
                 "config.h:62: virtual bool Config::SetData\\(eParam_t, std::string&, timeval\\): Assertion "
                 "`false' failed");
}

}  // namespace
