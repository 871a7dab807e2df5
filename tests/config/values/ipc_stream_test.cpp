// Objects through System V queues. Each test has a private queue of its own.
#include "config/values/ipc_stream.h"

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <functional>
#include <limits>
#include <thread>
#include <utility>

#include "config/values/config_value.h"
#include "config/values/private_value.h"
#include "config/values/vector.h"
#include "support/failing_new.h"
#include "support/gate.h"
#include "support/golden.h"
#include "support/raw_peer.h"
#include "support/stream_bytes.h"

using namespace std::chrono_literals;

namespace {

/// What a thread does instead of its pauses.
thread_local std::function<void(long nanoseconds)> inPause;

}  // namespace

/// In front of the C library's.
extern "C" int nanosleep(const timespec* pause, timespec* rest)
{
    auto instead = std::exchange(inPause, nullptr);
    if (!instead) return clock_nanosleep(CLOCK_MONOTONIC, 0, pause, rest);
    instead(pause->tv_nsec);
    inPause = std::move(instead);
    return 0;
}

namespace {

/// The golden transfer, without the type in front of each message.
const std::string kHeader = Golden("ipc.header").substr(4), kData = Golden("ipc.data").substr(4),
                  kObject = kData.substr(4);

constexpr std::chrono::milliseconds kPatience(5000);

class IPCStream : public testing::Test {
  protected:
    ~IPCStream() override { msgctl(m_queue, IPC_RMID, nullptr); }

    bool Send(int32_t type = 5, uint32_t id = 0x1234)
    {
        IntegerValue value(0, eParam_t{0x7d02000a}, eCParam_EnumValue, 9);
        return Send(value, type, id);
    }
    bool Send(Serializable& object, int32_t type = 5, uint32_t id = 0x1234)
    {
        IPCSerializer writer(eSerializationFormat_Memory, m_queue);
        return writer.Write({.type = type, .id = id, .userWord = 11, .userWords = {22, 33}}, &object);
    }
    /// @return the object that is there, as in its message; "null" when nothing can be read.
    std::string Receive(CONFIGMGR_STREAM_HEADER_T& header, bool wait, std::chrono::milliseconds limit)
    {
        const vexa::RecursiveMutexLock hold(ClassFactory::PrototypeMutex());
        IPCDeSerializer reader(eSerializationFormat_Memory, m_queue, limit);
        Serializable* const object = reader.Read(header, wait);
        return object ? Streamed(*object) : "null";
    }
    std::string Receive(int32_t type, std::chrono::milliseconds limit)
    {
        CONFIGMGR_STREAM_HEADER_T header{.type = type};
        return Receive(header, false, limit);
    }
    void Put(long type, const std::string& text)
    {
        Message message{type, {}};
        text.copy(message.text, sizeof message.text);
        EXPECT_EQ(msgsnd(m_queue, &message, text.size(), IPC_NOWAIT), 0);
    }
    std::string Take(long type)
    {
        Message message{};
        const ssize_t size = msgrcv(m_queue, &message, sizeof message.text, type, IPC_NOWAIT);
        return {message.text, static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }
    size_t Count() const
    {
        msqid_ds status{};
        EXPECT_EQ(msgctl(m_queue, IPC_STAT, &status), 0);
        return status.msg_qnum;
    }

    const int m_queue = msgget(IPC_PRIVATE, 0600);

  private:
    struct Message {
        long type;
        char text[64];
    };
};

TEST_F(IPCStream, IsAHeaderAndThenTheDataWithTheNextType)
{
    ASSERT_TRUE(Send());
    EXPECT_EQ(Take(5), kHeader);
    EXPECT_EQ(Take(6), kData);
}

TEST_F(IPCStream, AReaderWaitsForTheDataAndIfAskedForTheHeader)
{
    EXPECT_EQ(Receive(5, kPatience), "null");
    CONFIGMGR_STREAM_HEADER_T header{.type = 5};
    const std::jthread sender([&] { EXPECT_TRUE(Send()); });
    EXPECT_EQ(Receive(header, true, kPatience), kObject);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&header), sizeof header), Golden("ipc.header"));

    Put(5, kHeader);
    const std::jthread slowSender([&] {
        EXPECT_TRUE(Eventually([&] { return Count() == 0; }));
        Put(6, kData);
    });
    EXPECT_EQ(Receive(5, kPatience), kObject);
    Put(5, kHeader);
    EXPECT_EQ(Receive(5, 1ms), "null");
}

TEST_F(IPCStream, WhatDoesNotFitTogetherIsNullAndLeavesTheNextTransferAlone)
{
    const std::string otherSender = Words({0x1235}) + kData.substr(4);
    for (const auto& [size, data] :
         {std::pair{3u, kData}, {28u, otherSender}, {32u, kData}, {27u, kData}, {64 * 1024u + 1, ""}}) {
        Put(5, Words({0x1234, 0, size, 1024, 0, 0}));
        if (!data.empty()) Put(6, data);
        EXPECT_EQ(Receive(5, 1ms), "null") << size;
        ASSERT_TRUE(Send());
        EXPECT_EQ(Receive(5, kPatience), kObject) << size;
    }
}

TEST_F(IPCStream, OnlyHeadersWithoutDataAndDataWithoutAHeaderAreLost)
{
    IPCDeSerializer reader(eSerializationFormat_Memory, m_queue, kPatience);
    for (const bool lostData : {true, false}) {
        for (const uint32_t size : {28u, 32u}) {  // of the same sender only the size tells
            if (lostData) Put(5, Words({size == 28 ? 7u : 1u, 0, size, 1024, 0, 0}));
            if (!lostData) Put(6, Words({size == 28 ? 7u : 1u}) + std::string(size - 9, '#'));
        }
        for (const uint32_t id : {1u, 2u, 3u}) ASSERT_TRUE(Send(5, id));
        for (const uint32_t id : {1u, 2u, 3u}) {
            CONFIGMGR_STREAM_HEADER_T header{.type = 5};
            const auto object = reader.ReadPrivate(header, false);
            ASSERT_TRUE(object) << lostData << id;
            EXPECT_EQ(Streamed(*object), kObject);
            EXPECT_EQ(header.id, id) << lostData;
        }
        EXPECT_EQ(Count(), 0u);
    }
}

/// Has a longer text each time it is asked.
struct Growing : Serializable {
    bool Serialize(Serializer* serializer) override
    {
        serializer->Write("Text", m_text += 'x');
        return true;
    }
    std::string m_text;
};

TEST_F(IPCStream, WhatCannotBeSentLeavesNoHeader)
{
    for (const int32_t type : {0, std::numeric_limits<int32_t>::max()}) {
        EXPECT_FALSE(Send(type));
        EXPECT_EQ(Receive(type, kPatience), "null");
    }
    Growing growing;
    EXPECT_FALSE(Send(growing));
    msginfo limits{};
    msgctl(0, IPC_INFO, reinterpret_cast<msqid_ds*>(&limits));
    StringValue tooLong(0, eParam_t{0x1302000a}, eCParam_StringValue,
                        std::string(static_cast<size_t>(limits.msgmax), 'x'));
    EXPECT_FALSE(Send(tooLong));
    const auto send = [this] {
        const bool sent = Send();
        EXPECT_EQ(Count(), sent ? 2u : 0u);
    };
    EXPECT_GT(WithEachAllocationFailing(send), 0);  // sanitizers have a form for arrays of their own
    while (Send()) ASSERT_LT(Count(), 100'000u);
    EXPECT_EQ(Count() % 2, 0u);
}

TEST_F(IPCStream, OthersReadObjectsWhileAReaderWaits)
{
    bool paused = false;
    inPause = [&](long) {
        const WatchedThread other(
            [] { const vexa::RecursiveMutexLock hold(ClassFactory::PrototypeMutex()); });
        EXPECT_FALSE(other.Waits());
        if (!std::exchange(paused, true)) Send();
    };
    CONFIGMGR_STREAM_HEADER_T header{.type = 5};
    const auto object = IPCDeSerializer(eSerializationFormat_Memory, m_queue).ReadPrivate(header, true);
    inPause = nullptr;
    EXPECT_TRUE(paused && object && Streamed(*object) == kObject);
}

TEST_F(IPCStream, PausesGrowFactoriallyAndThenEndForGood)
{
    constexpr long kSecond = 1'000'000'000;
    std::vector<long> pauses;
    inPause = [&](long nanoseconds) { pauses.push_back(nanoseconds); };
    CONFIGMGR_STREAM_HEADER_T header{.type = 5};
    EXPECT_EQ(IPCDeSerializer(eSerializationFormat_Memory, m_queue, 50ms).Read(header, true), nullptr);
    inPause = nullptr;
    ASSERT_GT(pauses.size(), 100u);
    long long expected = 10;
    for (size_t i = 0; i < pauses.size(); ++i) {
        if (expected < kSecond) expected *= static_cast<long long>(i) + 1;
        EXPECT_TRUE(pauses[i] == expected || (expected >= kSecond && pauses[i] >= kSecond)) << i;
    }
}

}  // namespace
