// Objects through System V queues. Each test has a private queue of its own.
#include "config/values/ipc_stream.h"

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <cstring>
#include <limits>
#include <thread>

#include "config/values/config_value.h"
#include "config/values/private_value.h"
#include "support/golden.h"
#include "support/raw_peer.h"
#include "support/stream_bytes.h"

using namespace std::chrono_literals;

namespace {

constexpr auto kID = eParam_t{0x7d02000a};

class Queue {
  public:
    Queue() : m_id(msgget(IPC_PRIVATE, 0600)) {}
    ~Queue() { msgctl(m_id, IPC_RMID, nullptr); }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    int ID() const { return m_id; }
    size_t Count() const { return Status().msg_qnum; }
    void LimitBytes(size_t bytes)
    {
        msqid_ds status = Status();
        status.msg_qbytes = bytes;
        EXPECT_EQ(msgctl(m_id, IPC_SET, &status), 0);
    }
    void Put(long type, const std::string& text)
    {
        Message message{type, {}};
        text.copy(message.text, sizeof message.text);
        EXPECT_EQ(msgsnd(m_id, &message, text.size(), IPC_NOWAIT), 0);
    }
    std::string Take(long type)
    {
        Message message{};
        const ssize_t size = msgrcv(m_id, &message, sizeof message.text, type, IPC_NOWAIT);
        EXPECT_GE(size, 0);
        return {message.text, static_cast<size_t>(std::max<ssize_t>(size, 0))};
    }

  private:
    struct Message {
        long type;
        char text[64];
    };
    msqid_ds Status() const
    {
        msqid_ds status{};
        EXPECT_EQ(msgctl(m_id, IPC_STAT, &status), 0);
        return status;
    }

    const int m_id;
};

bool Send(const Queue& queue, int32_t type, ConfigValue& value, uint32_t id = 0x1234)
{
    IPCSerializer writer(eSerializationFormat_Memory, queue.ID());
    const bool ok = writer.Write({.type = type, .id = id, .userWord = 11, .userWords = {22, 33}}, &value);
    EXPECT_TRUE(!writer.GetPos() && !writer.GetBufferStart() && !writer.GetBufferEnd()) << "a buffer stays";
    return ok;
}

bool Send(const Queue& queue, int32_t type, unsigned int number, uint32_t id = 0x1234)
{
    IntegerValue value(0, kID, eCParam_EnumValue, number);
    return Send(queue, type, value, id);
}

/// What is there, as text; "null" when nothing can be read.
std::string Receive(const Queue& queue, CONFIGMGR_STREAM_HEADER_T& header, bool wait,
                    std::chrono::milliseconds limit)
{
    const vexa::RecursiveMutexLock hold(ClassFactory::PrototypeMutex());
    IPCDeSerializer reader(eSerializationFormat_Memory, queue.ID(), limit);
    auto* const value = dynamic_cast<ConfigValue*>(reader.Read(header, wait));
    return value ? value->ToString() : "null";
}

std::string Receive(const Queue& queue, int32_t type, std::chrono::milliseconds limit = 10s)
{
    CONFIGMGR_STREAM_HEADER_T header{.type = type};
    return Receive(queue, header, false, limit);
}

std::string NumberText(unsigned int number)
{
    return IntegerValue(0, kID, eCParam_EnumValue, number).ToString();
}

TEST(IPCStream, AReaderWaitsForAnObjectAndGetsItsHeader)
{
    Queue queue;
    StringValue value(3, kID, eCParam_StringValue, std::string(1000, 'x'));
    const std::jthread sender([&] { EXPECT_TRUE(Send(queue, 5, value)); });
    CONFIGMGR_STREAM_HEADER_T header{.type = 5};
    EXPECT_EQ(Receive(queue, header, true, 60s), value.ToString());
    const CONFIGMGR_STREAM_HEADER_T expected{5, 0x1234, 11, 8 + 16 + 1000 + 1, 1024, {22, 33}};
    EXPECT_EQ(memcmp(&header, &expected, sizeof header), 0);
    EXPECT_EQ(queue.Count(), 0u);
}

TEST(IPCStream, SendsAHeaderAndThenTheDataWithTheNextType)
{
    Queue queue;
    ASSERT_TRUE(Send(queue, 5, 9));
    EXPECT_EQ(Words({5}) + queue.Take(5), Golden("ipc.header"));
    EXPECT_EQ(Words({6}) + queue.Take(6), Golden("ipc.data"));
}

TEST(IPCStream, WithoutWaitOnlyTheDataIsWaitedFor)
{
    Queue queue;
    EXPECT_EQ(Receive(queue, 5, 24h), "null");
    const std::string header = Words({0x1234, 0, 28, 1024, 0, 0});
    queue.Put(5, header);
    std::jthread sender([&] {
        EXPECT_TRUE(Eventually([&] { return queue.Count() == 0; }));
        queue.Put(6, Words({0x1234, 0, 0, kID, 3, 9}));
    });
    EXPECT_EQ(Receive(queue, 5, 60s), NumberText(9));
    sender.join();

    queue.Put(5, header);
    EXPECT_EQ(Receive(queue, 5, 1ms), "null");
    EXPECT_EQ(queue.Count(), 0u);
}

TEST(IPCStream, WhatDoesNotFitTogetherIsNull)
{
    const struct {
        const char* why;
        uint32_t size;  ///< in the header
        uint32_t id;    ///< in the data message; the header has 0x1234
        size_t text;    ///< bytes of the data message
    } kRows[] = {
        {"smaller than a class identifier", 3, 0x1234, 24},
        {"another sender's data", 28, 0x1235, 24},
        {"less than announced, but an object", 32, 0x1234, 24},
        {"announced too short", 27, 0x1234, 24},
    };
    for (const auto& [why, size, id, text] : kRows) {
        SCOPED_TRACE(why);
        Queue queue;
        queue.Put(5, Words({0x1234, 0, size, 1024, 0, 0}));
        queue.Put(6, Words({id, 0, 0, kID, 3, 9}).substr(0, text));
        EXPECT_EQ(Receive(queue, 5), "null");
        EXPECT_EQ(queue.Count(), 0u);
        ASSERT_TRUE(Send(queue, 5, 7));
        EXPECT_EQ(Receive(queue, 5), NumberText(7)) << "the next transfer is spoilt";
    }
    for (const uint32_t size : {11u, 64 * 1024u + 1, 0xFFFFFFFFu}) {
        Queue queue;
        queue.Put(5, Words({0x1234, 0, size, 1024, 0, 0}));
        EXPECT_EQ(Receive(queue, 5, 24h), "null") << "no data is waited for: " << size;
    }
}

TEST(IPCStream, AFullQueueIsAFailedSend)
{
    Queue queue;
    queue.LimitBytes(34);
    EXPECT_FALSE(Send(queue, 5, 1)) << "no room for the data";
    EXPECT_EQ(Receive(queue, 5, 1ms), "null") << "the orphan";
    queue.LimitBytes(48);
    ASSERT_TRUE(Send(queue, 5, 3));
    EXPECT_EQ(Receive(queue, 5), NumberText(3));
}

TEST(IPCStream, RefusesTypesWithoutASuccessorAndNothingToSend)
{
    Queue queue;
    for (const int32_t type : {0, std::numeric_limits<int32_t>::max()}) {
        EXPECT_FALSE(Send(queue, type, 1));
        EXPECT_EQ(Receive(queue, type), "null");
    }
    EXPECT_FALSE(IPCSerializer(eSerializationFormat_Memory, queue.ID()).Write({.type = 5}, nullptr));
    EXPECT_EQ(queue.Count(), 0u);
}

}  // namespace
