// Texts between hosts of different byte orders: both ends are told.
#include "config/access/server/network/network_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/raw_peer.h"
#include "support/recording_listener.h"
#include "support/stderr_of.h"
#include "support/test_server.h"

using testing::Contains;
using testing::HasSubstr;

namespace {

constexpr eConfigID_t kConfig = 70;
constexpr eParam_t kText = eParamID_SysName;

class ByteOrder : public testing::TestWithParam<const char*> {};

TEST_P(ByteOrder, TextsAreWholeWhenBothEndsUseTheDevicesOrder)
{
    const std::string scheme = GetParam();
    LocalStore store(kConfig);
    TestServer server(scheme == "tcp" ? SOCK_STREAM : SOCK_DGRAM, {}, std::endian::big);
    const std::string uri = server.Uri(GetParam(), kConfig);
    {
        Connected client(uri + "/byteorder=big");
        ASSERT_TRUE(client.get());
        RecordingListener listener;
        ASSERT_TRUE(client->AddConfigEventListener(&listener));
        EXPECT_TRUE(client->Set(kText, "from the client"));
        std::string text;
        EXPECT_TRUE(client->Get(kText, text));
        EXPECT_EQ(text, "from the client");
        char heard[64];
        snprintf(heard, sizeof heard, "str %08x=from the store", kText);
        // Over UDP nothing tells when the listener has joined.
        EXPECT_TRUE(Eventually([&] {
            store->Set(kText, "from the store");
            return testing::Value(listener.Heard(), Contains(heard));
        }));
        EXPECT_TRUE(client->RemoveConfigEventListener(&listener));
    }
    if (std::endian::native == std::endian::big) return;
    Connected untold(uri);
    std::string text = "kept";
    EXPECT_THAT(StderrOf([&] { EXPECT_FALSE(untold->Get(kText, text)); }), HasSubstr("non-StringValue\n"));
    EXPECT_EQ(text, "kept");
}
INSTANTIATE_TEST_SUITE_P(, ByteOrder, testing::Values("tcp", "udp"));

TEST(ByteOrderOption, IsBigOrLeftOut)
{
    for (const char* order : {"", "little", "bigger", "BIG"}) {
        const std::string uri = std::string("udp://127.0.0.1:9/byteorder=") + order;
        EXPECT_THAT(StderrOf([&] { EXPECT_FALSE(Connected(uri).get()); }),
                    HasSubstr("NetworkFactory::Connect - byteorder is big or left out, uri = " + uri + "\n"));
    }
}

}  // namespace
