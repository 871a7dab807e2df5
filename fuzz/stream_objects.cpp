/// Objects in a stream: as a sector in memory, and as the two messages of a System V queue.
#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "config/values/ipc_stream.h"
#include "config/values/private_value.h"
#include "fuzz/harness.h"

namespace {

std::string Written(Serializable& object)
{
    std::string bytes(MemorySerializerSizer::GetSize(&object, nullptr), '#');
    MemorySerializer writer(eSerializationFormat_Memory, bytes.data(), bytes.data() + bytes.size(), false);
    writer.Write("Serializable", &object);
    Require(!writer.Failed() && writer.IsEndOfBuffer(), "an object takes as many bytes as were measured");
    return bytes;
}

/// On the heap and not a byte longer, so that a step beyond the end is seen.
std::unique_ptr<Serializable> ReadSector(const char* bytes, size_t size)
{
    const std::unique_ptr<char[]> sector(new char[size]);
    if (size) memcpy(sector.get(), bytes, size);
    MemoryDeSerializer reader(eSerializationFormat_Memory, sector.get(), sector.get() + size, false);
    auto object = ReadPrivate(reader);
    Require(reader.Available() >= 0 && reader.GetPos() >= reader.GetSectorStart(),
            "the position is in the sector");
    Require(!object || !reader.Failed(), "what was read was there");
    return object;
}

void TestSector(const char* bytes, size_t size)
{
    const auto object = ReadSector(bytes, size);
    if (!object) return;
    const std::string written = Written(*object);
    const auto again = ReadSector(written.data(), written.size());
    Require(again && again->IsEqual(object.get()), "what was written is read");
    Require(Written(*again) == written, "and written alike");
}

void Send(int queue, long type, const char* bytes, size_t size)
{
    std::vector<char> message(sizeof type + size);
    memcpy(message.data(), &type, sizeof type);
    if (size) memcpy(message.data() + sizeof type, bytes, size);
    msgsnd(queue, message.data(), size, IPC_NOWAIT);
}

void TestQueue(const char* bytes, size_t size)
{
    constexpr size_t kHeader = sizeof(CONFIGMGR_STREAM_HEADER_T) - sizeof(int32_t);
    constexpr int32_t kType = 1;
    const int queue = msgget(IPC_PRIVATE, 0600);
    Send(queue, kType, bytes, std::min(size, kHeader));
    if (size > kHeader) Send(queue, kType + 1, bytes + kHeader, size - kHeader);

    IPCDeSerializer reader(eSerializationFormat_Memory, queue, std::chrono::milliseconds(0));
    CONFIGMGR_STREAM_HEADER_T header;
    header.type = kType;
    const vexa::RecursiveMutexLock hold(ClassFactory::PrototypeMutex());
    Serializable* const object = reader.Read(header, false);
    if (object) Written(*object);
    ClassFactory::Release(object);
    msgctl(queue, IPC_RMID, nullptr);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    [[maybe_unused]] static const bool silent = (SilenceLibrary(), true);
    const auto* const bytes = reinterpret_cast<const char*>(data);
    TestSector(bytes, size);
    TestQueue(bytes, size);
    return 0;
}
