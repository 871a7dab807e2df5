#include "device/address.h"

#include <gtest/gtest.h>

#include "config/access/protocol/network_protocol.h"

namespace {

using vexa::DeviceAddress;

TEST(DeviceAddress, WhatPeopleType)
{
    const struct {
        std::string text, whole;
    } kRows[] = {{"rec-7", "tcp://rec-7:43110"},
                 {"rec-7:80", "tcp://rec-7:80"},
                 {"10.0.0.7", "tcp://10.0.0.7:43110"},
                 {"tcp://rec-7/configid=3", "tcp://rec-7:43110/configid=3"},
                 {"udp://10.0.0.7:5", "udp://10.0.0.7:5"},
                 {"[fe80::1%eth0]:43110", "tcp://[fe80::1%eth0]:43110"},
                 {"tcp://[::1]", "tcp://[::1]:43110"},
                 {"mq:", "mq:"},
                 {"local:", "local:"},
                 {"local:configid=-2", "local:configid=-2"}};
    for (const auto& [text, whole] : kRows) {
        std::string reason;
        const auto address = DeviceAddress::Parse(text, reason);
        ASSERT_TRUE(address) << text << ": " << reason;
        EXPECT_EQ(address->Text(), whole);
        EXPECT_TRUE(DeviceAddress::Parse(whole, reason)) << whole;
    }
}

TEST(DeviceAddress, WhatIsNotUnderstoodHasAReason)
{
    for (const char* const text :
         {"", ":43110", "http://rec-7", "multicast://10.0.0.7", "rec-7:", "rec-7:0", "rec-7:65536",
          "rec-7:4311o", "rec 7", "rec-7/foo=bar", "tcp://rec-7:80/configid=abc", "tcp://rec-7/configid=1x",
          "[::1", "[::1]x", "[]", "mq:configid=3", "local:configid=99999999999", "a:b:c", "tcp:rec-7"}) {
        std::string reason;
        EXPECT_FALSE(DeviceAddress::Parse(text, reason)) << text;
        EXPECT_NE(reason, "") << text;
    }
}

}  // namespace
