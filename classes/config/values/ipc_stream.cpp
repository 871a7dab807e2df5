#include "config/values/ipc_stream.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <cstddef>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>

#include "config/values/private_value.h"

namespace {

constexpr uint32_t kHeaderTextSize = 24;
constexpr uint32_t kCapacity = 1024;
/// Type and id words in front of the stream.
constexpr uint32_t kDataPrefix = 8;
/// The smallest data message holds a class identifier; the largest is well above any value that the system
/// sends.
constexpr uint32_t kMinDataSize = kDataPrefix + 4;
constexpr uint32_t kMaxDataSize = 64 * 1024;

/// A System V message as the kernel wants it: its type is a `long`, wider than our 32-bit word on some
/// machines.
class Message {
  public:
    explicit Message(size_t textSize) : m_bytes(new char[sizeof(long) + textSize]()), m_textSize(textSize) {}
    char* Text() { return m_bytes.get() + sizeof(long); }

    bool Send(int queue, long type)
    {
        memcpy(m_bytes.get(), &type, sizeof type);
        return msgsnd(queue, m_bytes.get(), m_textSize, IPC_NOWAIT) == 0;
    }
    /// @return size of the received text, or -1.
    ssize_t Receive(int queue, long type)
    {
        return msgrcv(queue, m_bytes.get(), m_textSize, type, IPC_NOWAIT | MSG_NOERROR);
    }

  private:
    std::unique_ptr<char[]> m_bytes;
    size_t m_textSize;
};

/// Polls with sleeps of 10 ns times 1, 2, 6, 24, ... The growth is factorial by design; once the product is
/// no valid nanosecond count the sleep returns at once and the loop polls without a pause until the limit.
class Backoff {
  public:
    explicit Backoff(std::chrono::milliseconds limit) : m_end(std::chrono::steady_clock::now() + limit) {}

    /// @return false when the limit has passed.
    bool Sleep()
    {
        if (std::chrono::steady_clock::now() > m_end) return false;
        ++m_attempt;
        // Saturates: the product must never come back into the valid range.
        m_nanoseconds = m_nanoseconds > kNever / m_attempt ? kNever : m_nanoseconds * m_attempt;
        const timespec pause{0, static_cast<long>(m_nanoseconds)};
        nanosleep(&pause, nullptr);
        return true;
    }

  private:
    static constexpr int64_t kNever = std::numeric_limits<int32_t>::max();
    std::chrono::steady_clock::time_point m_end;
    int64_t m_nanoseconds = 10;
    int64_t m_attempt = 0;
};

bool HasSuccessor(int32_t type)
{
    return type >= 1 && type < std::numeric_limits<int32_t>::max();
}

char* TextOf(CONFIGMGR_STREAM_HEADER_T& header)
{
    return reinterpret_cast<char*>(&header) + offsetof(CONFIGMGR_STREAM_HEADER_T, id);
}

}  // namespace

IPCSerializer::IPCSerializer(eSerializationFormat format, int queue)
    : MemorySerializer(format, nullptr, nullptr, false), m_queue(queue)
{
}

bool IPCSerializer::Write(CONFIGMGR_STREAM_HEADER_T header, Serializable* object)
{
    const PrivateCopy copy(object);
    const unsigned int size = MemorySerializerSizer::GetSize(copy.get(), this);
    if (size == 0 || size > std::numeric_limits<unsigned int>::max() - kDataPrefix) return false;
    if (!HasSuccessor(header.type)) return false;

    header.size = size + kDataPrefix;
    header.capacity = kCapacity;
    Message headerMessage(kHeaderTextSize);
    memcpy(headerMessage.Text(), TextOf(header), kHeaderTextSize);
    if (!headerMessage.Send(m_queue, header.type)) return false;

    Message data(sizeof header.id + size);
    memcpy(data.Text(), &header.id, sizeof header.id);
    char* const stream = data.Text() + sizeof header.id;
    MemorySerializer writer(GetFormat(), stream, stream + size, false);
    writer.Write("Serializable", copy.get());
    return !writer.Failed() && data.Send(m_queue, long{header.type} + 1);
}

IPCDeSerializer::IPCDeSerializer(eSerializationFormat format, int queue, std::chrono::milliseconds limit)
    : MemoryDeSerializer(format, nullptr, nullptr, false), m_queue(queue), m_limit(limit)
{
}

bool IPCDeSerializer::Read(Serializable*&)
{
    return false;
}

Serializable* IPCDeSerializer::Read(CONFIGMGR_STREAM_HEADER_T& header, bool wait)
{
    if (!HasSuccessor(header.type)) return nullptr;
    const long dataType = long{header.type} + 1;

    Message headerMessage(kHeaderTextSize);
    Backoff headerBackoff(m_limit);
    while (headerMessage.Receive(m_queue, header.type) < 0)
        if (!wait || !headerBackoff.Sleep()) return nullptr;
    memcpy(TextOf(header), headerMessage.Text(), kHeaderTextSize);

    if (header.size == 0) return nullptr;
    if (header.size < kMinDataSize || header.size > kMaxDataSize) {
        Message(kHeaderTextSize).Receive(m_queue, dataType);  // so that it does not pair with the next header
        return nullptr;
    }
    const size_t textSize = header.size - sizeof header.type;
    Message data(textSize);
    Backoff dataBackoff(m_limit);
    ssize_t received;
    while ((received = data.Receive(m_queue, dataType)) < 0)
        if (!dataBackoff.Sleep()) return nullptr;

    // Two senders that use the same type, or neighbouring ones, interleave: messages that do not belong
    // together are dropped.
    const bool sameSender = memcmp(data.Text(), &header.id, sizeof header.id) == 0;
    if (static_cast<size_t>(received) != textSize || !sameSender) return nullptr;

    char* const stream = data.Text() + sizeof header.id;
    MemoryDeSerializer reader(GetFormat(), stream, data.Text() + received, false);
    Serializable* object = nullptr;
    reader.Read("Serializable", object);
    return object;
}
