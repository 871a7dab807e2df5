// Objects through System V queues. Each test has a private queue of its own.
#include "config/values/ipc_stream.h"

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <limits>
#include <thread>

#include "config/values/config_value.h"
#include "config/values/private_value.h"
#include "support/golden.h"
#include "support/raw_peer.h"
#include "support/stream_bytes.h"

using namespace std::chrono_literals;

namespace {

/// The golden transfer, without the type in front of each message.
const std::string kHeader = Golden("ipc.header").substr(4), kData = Golden("ipc.data").substr(4),
                  kObject = kData.substr(4);

class IPCStream : public testing::Test {
  protected:
    ~IPCStream() override { msgctl(m_queue, IPC_RMID, nullptr); }

    bool Send(int32_t type = 5)
    {
        IntegerValue value(0, eParam_t{0x7d02000a}, eCParam_EnumValue, 9);
        IPCSerializer writer(eSerializationFormat_Memory, m_queue);
        return writer.Write({.type = type, .id = 0x1234, .userWord = 11, .userWords = {22, 33}}, &value);
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

  private:
    struct Message {
        long type;
        char text[64];
    };
    const int m_queue = msgget(IPC_PRIVATE, 0600);
};

TEST_F(IPCStream, IsAHeaderAndThenTheDataWithTheNextType)
{
    ASSERT_TRUE(Send());
    EXPECT_EQ(Take(5), kHeader);
    EXPECT_EQ(Take(6), kData);
}

TEST_F(IPCStream, AReaderWaitsForTheDataAndIfAskedForTheHeader)
{
    EXPECT_EQ(Receive(5, 24h), "null");
    CONFIGMGR_STREAM_HEADER_T header{.type = 5};
    const std::jthread sender([&] { EXPECT_TRUE(Send()); });
    EXPECT_EQ(Receive(header, true, 60s), kObject);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(&header), sizeof header), Golden("ipc.header"));

    Put(5, kHeader);
    const std::jthread slowSender([&] {
        EXPECT_TRUE(Eventually([&] { return Count() == 0; }));
        Put(6, kData);
    });
    EXPECT_EQ(Receive(5, 60s), kObject);
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
        EXPECT_EQ(Receive(5, 24h), "null") << size;
        ASSERT_TRUE(Send());
        EXPECT_EQ(Receive(5, 24h), kObject) << size;
    }
}

TEST_F(IPCStream, RefusesTypesWithoutASuccessorAndAFullQueue)
{
    for (const int32_t type : {0, std::numeric_limits<int32_t>::max()}) {
        EXPECT_FALSE(Send(type));
        EXPECT_EQ(Receive(type, 24h), "null");
    }
    EXPECT_EQ(Count(), 0u);
    while (Send()) ASSERT_LT(Count(), 100'000u);
}

}  // namespace
