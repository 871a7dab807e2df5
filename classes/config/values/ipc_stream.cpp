#include "config/values/ipc_stream.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <limits>

#include "config/values/private_value.h"

namespace {

using Header = CONFIGMGR_STREAM_HEADER_T;

constexpr uint32_t kHeaderTextSize = 24;
constexpr uint32_t kCapacity = 1024;
/// Type and id words in front of the stream.
constexpr uint32_t kDataPrefix = 8;
/// The smallest data message holds a class identifier; the largest is well above any value that the system
/// sends.
constexpr uint32_t kMinDataSize = kDataPrefix + 4;
constexpr uint32_t kMaxDataSize = 64 * 1024;
/// Headers that a reader keeps while it looks for the one of some data.
constexpr size_t kMaxHeaders = 64;

/// A System V message as the kernel wants it: its type is a `long`, wider than our 32-bit word on some
/// machines.
class SystemMessage {
  public:
    explicit SystemMessage(size_t textSize)
        : m_bytes(new char[sizeof(long) + textSize]()), m_textSize(textSize)
    {
    }
    char* Text() const { return m_bytes.get() + sizeof(long); }

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

/// Whether a header and its data fit. The kernel still has the last word: other senders fill the queue as well,
/// and one without the right to read cannot look.
bool QueueHasRoom(int queue, size_t dataTextSize)
{
    msginfo limits{};
    const bool limitsKnown = msgctl(queue, IPC_INFO, reinterpret_cast<msqid_ds*>(&limits)) >= 0;
    if (limitsKnown && dataTextSize > static_cast<size_t>(limits.msgmax)) return false;
    msqid_ds status{};
    if (msgctl(queue, IPC_STAT, &status) != 0) return true;
    return status.msg_cbytes + kHeaderTextSize + dataTextSize <= status.msg_qbytes;
}

/// Polls with sleeps of 10 ns times 1, 2, 6, 24, ... The growth is factorial by design; once the product is
/// no valid nanosecond count the sleep returns at once and the loop polls without a pause until the limit.
class Backoff {
  public:
    explicit Backoff(std::chrono::milliseconds limit) : m_end(std::chrono::steady_clock::now() + limit) {}

    bool IsOver() const { return std::chrono::steady_clock::now() > m_end; }
    /// @return false when the limit has passed.
    bool Sleep()
    {
        if (IsOver()) return false;
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

char* TextOf(Header& header)
{
    return reinterpret_cast<char*>(&header) + offsetof(Header, id);
}

bool HasUsableSize(const Header& header)
{
    return header.size >= kMinDataSize && header.size <= kMaxDataSize;
}

}  // namespace

IPCSerializer::IPCSerializer(eSerializationFormat format, int queue)
    : MemorySerializer(format, nullptr, nullptr, false), m_queue(queue)
{
}

// The stream is complete before the header goes out: a header that no data follows has to be found out by the
// reader.
bool IPCSerializer::Write(Header header, Serializable* object)
try {
    const PrivateCopy copy(object);
    const unsigned int size = MemorySerializerSizer::GetSize(copy.get(), this);
    if (size == 0 || size > std::numeric_limits<unsigned int>::max() - kDataPrefix) return false;
    if (!HasSuccessor(header.type)) return false;

    header.size = size + kDataPrefix;
    header.capacity = kCapacity;
    SystemMessage headerMessage(kHeaderTextSize);
    memcpy(headerMessage.Text(), TextOf(header), kHeaderTextSize);

    const size_t dataTextSize = sizeof header.id + size;
    SystemMessage data(dataTextSize);
    memcpy(data.Text(), &header.id, sizeof header.id);
    char* const stream = data.Text() + sizeof header.id;
    MemorySerializer writer(GetFormat(), stream, stream + size, false);
    writer.Write("Serializable", copy.get());
    if (writer.Failed() || !QueueHasRoom(m_queue, dataTextSize)) return false;
    return headerMessage.Send(m_queue, header.type) && data.Send(m_queue, long{header.type} + 1);
} catch (...) {
    return false;
}

/// A data message: the id of its header, then the stream.
class IPCDeSerializer::Message {
  public:
    Message() : m_text(kMaxDataSize) {}
    bool Receive(int queue, long type)
    {
        m_size = m_text.Receive(queue, type);
        return m_size >= 0;
    }
    bool BelongsTo(const Header& header) const
    {
        return static_cast<size_t>(m_size) == header.size - sizeof header.type &&
               memcmp(m_text.Text(), &header.id, sizeof header.id) == 0;
    }
    char* Stream() const { return m_text.Text() + sizeof Header::id; }
    char* End() const { return m_text.Text() + m_size; }

  private:
    SystemMessage m_text;
    ssize_t m_size = 0;
};

IPCDeSerializer::IPCDeSerializer(eSerializationFormat format, int queue, std::chrono::milliseconds limit)
    : MemoryDeSerializer(format, nullptr, nullptr, false), m_queue(queue), m_limit(limit)
{
}

bool IPCDeSerializer::Read(Serializable*&)
{
    return false;
}

Serializable* IPCDeSerializer::Read(Header& header, bool wait)
try {
    Message data;
    if (!Receive(header, wait, data)) return nullptr;
    MemoryDeSerializer stream = StreamOf(data);
    const vexa::RecursiveMutexLock hold(ClassFactory::PrototypeMutex());
    Serializable* object = nullptr;
    stream.Read("Serializable", object);
    return object;
} catch (...) {
    return nullptr;
}

std::unique_ptr<Serializable> IPCDeSerializer::ReadPrivate(Header& header, bool wait)
try {
    Message data;
    if (!Receive(header, wait, data)) return nullptr;
    MemoryDeSerializer stream = StreamOf(data);
    return ::ReadPrivate(stream);
} catch (...) {
    return nullptr;
}

MemoryDeSerializer IPCDeSerializer::StreamOf(const Message& data) const
{
    return {GetFormat(), data.Stream(), data.End(), false};
}

bool IPCDeSerializer::Receive(Header& header, bool wait, Message& data)
{
    const int32_t type = header.type;
    if (!HasSuccessor(type)) return false;
    std::erase_if(m_headers, [type](const Header& kept) { return kept.type != type; });
    Backoff headerBackoff(m_limit);
    while (m_headers.empty() && !TakeHeader(type))
        if (!wait || !headerBackoff.Sleep()) return false;
    header = m_headers.front();

    Backoff dataBackoff(m_limit);
    for (bool more = HasUsableSize(header); more;) {
        const bool received = data.Receive(m_queue, long{type} + 1);
        if (received && FindOwner(data, header)) return true;
        more = received ? !dataBackoff.IsOver() : dataBackoff.Sleep();
    }
    // Of the same sender it would pass for the data of the next header.
    if (header.size != 0 && !HasUsableSize(header)) data.Receive(m_queue, long{type} + 1);
    m_headers.erase(m_headers.begin());
    return false;
}

/// @return false when none is in the queue.
bool IPCDeSerializer::TakeHeader(int32_t type)
{
    SystemMessage message(kHeaderTextSize);
    m_headers.reserve(kMaxHeaders);
    if (message.Receive(m_queue, type) < 0) return false;
    if (m_headers.size() == kMaxHeaders) m_headers.erase(m_headers.begin());
    Header& header = m_headers.emplace_back();
    header.type = type;
    memcpy(TextOf(header), message.Text(), kHeaderTextSize);
    return true;
}

/// Looks for the header of some data, which was sent before it: among those that were taken, then in the queue.
/// Those in front of it go as well, since their data would have come first; without a header it is the data that
/// is of no use.
bool IPCDeSerializer::FindOwner(const Message& data, Header& header)
{
    const auto owns = [&data](const Header& taken) { return data.BelongsTo(taken); };
    auto owner = std::ranges::find_if(m_headers, owns);
    for (size_t n = 0; owner == m_headers.end() && n < kMaxHeaders && TakeHeader(header.type); ++n)
        owner = m_headers.end() - (owns(m_headers.back()) ? 1 : 0);
    if (owner == m_headers.end()) return false;
    header = *owner;
    m_headers.erase(m_headers.begin(), owner + 1);
    return true;
}
