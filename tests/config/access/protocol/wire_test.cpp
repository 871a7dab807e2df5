#include "config/access/protocol/wire.h"

#include <gtest/gtest.h>

#include <string>

#include "config/access/io/connection_name.h"
#include "config/access/protocol/mq_protocol.h"
#include "config/access/protocol/value_payload.h"
#include "config/values/config_value.h"
#include "config/values/private_value.h"
#include "support/golden.h"
#include "support/stderr_of.h"
#include "support/stream_bytes.h"

namespace {

namespace net = vexa::corvalis::config::access;
namespace mq = vexa::config::access;

/// The record has its golden bytes; decoding gives the same record back, and every truncation is refused.
template <class Order, class Record>
void ExpectGolden(const char* name, const Record& record)
{
    SCOPED_TRACE(name);
    const auto bytesOf = [](const Record& any) {
        const auto bytes = vexa::wire::Encode<Order>(any);
        return std::string(bytes.data(), bytes.size());
    };
    const std::string golden = Golden(name);
    EXPECT_EQ(bytesOf(record), golden);
    for (size_t length = 0; length < golden.size(); ++length) {
        Record untouched;
        EXPECT_FALSE(vexa::wire::Decode<Order>(golden.data(), length, untouched)) << length;
        EXPECT_EQ(bytesOf(untouched), bytesOf({})) << length;
    }
    Record decoded;
    ASSERT_TRUE(vexa::wire::Decode<Order>(golden.data(), golden.size(), decoded));
    EXPECT_EQ(bytesOf(decoded), golden);
}

TEST(Wire, NetworkRecordsHaveTheirBytes)
{
    using vexa::wire::NetworkOrder;
    ExpectGolden<NetworkOrder>("network.connection_request",
                               net::XCONFIGMGR_CONNECTION_REQUEST_T{{16, 0x11234, 0, 3, 0, 4096}});
    ExpectGolden<NetworkOrder>("network.connection_response",
                               net::XCONFIGMGR_CONNECTION_RESPONSE_T{{32, 0x11234, 0, -1, 0, 4096}, 53});
    ExpectGolden<NetworkOrder>("network.listener_request",
                               net::XCONFIGMGR_EVENT_HANDLER_REQUEST_T{{48, 0x11234, 0, 3, 0, 4096}, 5});
    net::XCONFIGMGR_REQUEST_T set{{81, 0x11234, 2, 3, 4, 4096}, eParam_t{0x5c010000}, 6, 0, 0, 7, 3072};
    SetTime(set, {static_cast<time_t>(0x80000001), 999'999});
    ExpectGolden<NetworkOrder>("network.request", set);

    net::XCONFIGMGR_RESPONSE_T response = ResponseFor(set, XCFG_SET_PARAM_RESPONSE);
    response.error = net::kErrorRefused;
    response.value = 8;
    ExpectGolden<NetworkOrder>("network.response", response);
    EXPECT_EQ(TimeOf(response).tv_sec, static_cast<time_t>(0x80000001));
}

TEST(Wire, QueueRecordsHaveTheirBytes)
{
    using vexa::wire::HostOrder;
    const mq::MQMessageInfo_t info{0x12340001, 2, 3, 10};
    ExpectGolden<HostOrder>("queue.connection_request", mq::XCONFIGMGR_CONNECTION_REQUEST_T{16, info});
    ExpectGolden<HostOrder>("queue.connection_response",
                            mq::XCONFIGMGR_CONNECTION_RESPONSE_T{{32, info}, 53});
    ExpectGolden<HostOrder>("queue.listener_request", mq::XCONFIGMGR_EVENT_HANDLER_REQUEST_T{{48, info}, 5});
    ExpectGolden<HostOrder>("queue.request",
                            mq::XCONFIGMGR_REQUEST_T{{81, info}, eParam_t{0x5c010000}, 6, 7, 0xA00});
    mq::XCONFIGMGR_RESPONSE_T response{{96, info}, 1, eParam_t{0x5c010000}, 0, 0, 53, 8, 7, 0xA00};
    SetTime(response, {static_cast<time_t>(0x80000001), 999'999});
    ExpectGolden<HostOrder>("queue.response", response);
}

TEST(NetworkPayload, TextsInEitherByteOrder)
{
    StringValue value(2, eParam_t{0x1302000a}, eCParam_StringValue, "Take");
    for (const std::endian order : {std::endian::native, std::endian::big}) {
        const std::string payload = net::WritePayload(&value, order);
        EXPECT_EQ(payload, Golden("stream.text", order));
        std::string text = "kept";
        EXPECT_FALSE(net::ReadTextPayload(payload.data(), payload.size() - 1, text, order));
        EXPECT_EQ(text, "kept");
        EXPECT_TRUE(net::ReadTextPayload(payload.data(), payload.size(), text, order));
        EXPECT_EQ(text, "Take");
        const std::string number = Golden("stream.number", order);
        EXPECT_FALSE(net::ReadTextPayload(number.data(), number.size(), text, order));
    }
    EXPECT_EQ(net::WritePayload(nullptr), "");
}

TEST(NetworkPayload, EveryStreamHasABigEndianFormAndOnlyValuesAreDecoded)
{
    for (const char* name : {"stream.number", "stream.SectorHeader", "stream.Checkpoint",
                             "stream.PackageHeader", "stream.Vector", "stream.PresetsParamVector"}) {
        SCOPED_TRACE(name);
        Reader reader(Golden(name));
        std::unique_ptr<Serializable> object;
        StderrOf([&] { object = ReadPrivate(reader); });
        ASSERT_TRUE(object);
        const std::string golden = Golden(name, std::endian::big);
        EXPECT_EQ(net::WritePayload(object.get(), std::endian::big), golden);
        EXPECT_EQ(net::WritePayload(object.get()), Golden(name));
        // Containers say in the log that they are made, and a peer could nest thousands.
        const std::string printed = StderrOf([&] {
            const auto value = net::ReadPayload(golden.data(), golden.size(), std::endian::big);
            EXPECT_EQ(value ? net::WritePayload(value.get()) : "",
                      object->GetClassID() == eClassID_IntegerValue ? Golden(name) : "");
        });
        EXPECT_EQ(printed, "");
    }
}

TEST(ConnectionName, NamesTheProcessInTheLowHalf)
{
    EXPECT_EQ(net::GetConnectionName(0), "event");
    EXPECT_EQ(net::GetConnectionName(0xFFFF), "event");
    const auto process = static_cast<uint32_t>(getpid());
    if (process > 0xFFFF) GTEST_SKIP() << "the process identifier does not fit";
    EXPECT_EQ(net::GetConnectionName(7u << 16 | process), "vexaconfig_tests");
}

}  // namespace
