#include <gtest/gtest.h>

#include <string>

#include "config/access/connection_name.h"
#include "config/access/network_payload.h"
#include "config/access/network_protocol.h"
#include "config/config_value.h"

namespace {

using namespace vexa::corvalis::config::access;

template <class Record>
std::string Bytes(const Record& record)
{
    const auto bytes = Encode(record);
    return {bytes.data(), bytes.size()};
}

/// The bytes of words in network order.
std::string Words(std::initializer_list<uint32_t> words)
{
    std::string bytes;
    for (const uint32_t word : words)
        for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(word >> shift);
    return bytes;
}

/// The record has these bytes; decoding gives the same record back, and every truncation is refused.
template <class Record>
void ExpectBytes(const Record& record, const std::string& expected)
{
    EXPECT_EQ(Bytes(record), expected);
    for (size_t length = 0; length < expected.size(); ++length) {
        Record untouched;
        const std::string before = Bytes(untouched);
        EXPECT_FALSE(Decode(expected.data(), length, untouched)) << length;
        EXPECT_EQ(Bytes(untouched), before) << length;
    }
    Record decoded;
    ASSERT_TRUE(Decode(expected.data(), expected.size(), decoded));
    EXPECT_EQ(Bytes(decoded), expected);
}

TEST(NetworkRecords, HaveTheirBytes)
{
    XCONFIGMGR_CONNECTION_REQUEST_T connect;
    connect.msgtype = XCFG_CONNECT_REQUEST;
    connect.connectionID = 0x00011234;
    connect.configID = 3;
    ExpectBytes(connect, Words({16, 0x11234, 0, 3, 0, 4096}));

    XCONFIGMGR_CONNECTION_RESPONSE_T connected;
    connected.msgtype = XCFG_CONNECT_RESPONSE;
    connected.configID = -1;
    connected.error = 53;
    ExpectBytes(connected, Words({32, 0, 0, 0xFFFFFFFF, 0, 4096, 53}));

    XCONFIGMGR_EVENT_HANDLER_REQUEST_T listen;
    listen.msgtype = XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST;
    listen.paramID = 5;
    ExpectBytes(listen, Words({48, 0, 0, 0, 0, 4096, 5}));

    XCONFIGMGR_REQUEST_T set;
    set.msgtype = XCFG_SET_PARAM_REQUEST;
    set.connectionID = 1;
    set.requestID = 2;
    set.configID = 3;
    set.priority = 4;
    set.paramID = eParam_t{0x5c010000};
    set.value = 6;
    SetTime(set, {static_cast<time_t>(0x80000001), 999'999});
    set.streamLength = 7;
    set.streamFormat = kStreamFormat;
    ExpectBytes(set, Words({81, 1, 2, 3, 4, 4096, 0x5c010000, 6, 0x80000001, 999'999, 7, 3072}));

    XCONFIGMGR_RESPONSE_T response = ResponseFor(set, XCFG_SET_PARAM_RESPONSE);
    response.error = kErrorRefused;
    response.value = 8;
    ExpectBytes(response,
                Words({97, 1, 2, 3, 4, 4096, 0x5c010000, 0xFFFFFFFF, 8, 0x80000001, 999'999, 0, 0}));
    EXPECT_EQ(TimeOf(response).tv_sec, static_cast<time_t>(0x80000001));
}

TEST(NetworkPayload, EveryCutOfATextIsRefused)
{
    StringValue value(3, eParam_t{0x1302000a}, eCParam_StringValue, "Scene 1");
    const std::string payload = WritePayload(&value);
    std::string text = "kept";
    for (size_t length = 0; length < payload.size(); ++length)
        EXPECT_FALSE(ReadTextPayload(payload.data(), length, text)) << length;
    EXPECT_EQ(text, "kept");
    EXPECT_TRUE(ReadTextPayload(payload.data(), payload.size(), text));
    EXPECT_EQ(text, "Scene 1");
    IntegerValue number(3, eParam_t{0x5c010000}, eCParam_IntegerValue, 7);
    const std::string other = WritePayload(&number);
    EXPECT_FALSE(ReadTextPayload(other.data(), other.size(), text));
    EXPECT_EQ(WritePayload(nullptr), "");
}

TEST(ConnectionName, NamesTheProcessInTheLowHalf)
{
    EXPECT_EQ(GetConnectionName(0), "event");
    EXPECT_EQ(GetConnectionName(0xFFFF), "event");
    const auto process = static_cast<uint32_t>(getpid());
    if (process > 0xFFFF) GTEST_SKIP() << "the process identifier does not fit";
    EXPECT_EQ(GetConnectionName(7u << 16 | process), "vexaconfig_tests");
}

}  // namespace
