/// Sending and receiving one object through a System V message queue: a header message, then a data message.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "config/base/export.h"
#include "config/streams/memory_deserializer.h"
#include "config/streams/memory_serializer.h"

/// The header message: seven 32-bit words. The first is the message type that the queue selects on; the data
/// message has this type plus 1. Types below 1, or without a successor, cannot be sent.
struct VEXA_EXPORT CONFIGMGR_STREAM_HEADER_T {
    int32_t type = 0;            ///< what the queue selects on; at least 1
    uint32_t id = 0;             ///< the sender's request or connection; copied into the data message
    uint32_t userWord = 0;       ///< the caller's
    uint32_t size = 0;           ///< set by the sender: stream size + 8
    uint32_t capacity = 0;       ///< set by the sender: 1024
    uint32_t userWords[2] = {};  ///< the caller's
};
static_assert(sizeof(CONFIGMGR_STREAM_HEADER_T) == 28);

/// Sends objects. The buffer exists only during Write. Thread: one at a time.
class VEXA_EXPORT IPCSerializer : public MemorySerializer {
  public:
    /// @param queue  identifier of the System V queue; borrowed.
    IPCSerializer(eSerializationFormat format, int queue);
    ~IPCSerializer() override = default;

    using MemorySerializer::Write;
    /// Sends a copy of the object, taken at the start: another thread may change the object meanwhile.
    /// @return false, without waiting, when the queue is full or does not exist, the object cannot be written,
    /// or is larger than a message may be.
    bool Write(CONFIGMGR_STREAM_HEADER_T header, Serializable* object);

  private:
    int m_queue;
};

/// Receives objects. Keep one reader for a type: it remembers headers that came before their data. Thread: one
/// at a time.
class VEXA_EXPORT IPCDeSerializer : public MemoryDeSerializer {
  public:
    /// @param limit  how long to wait for the header, and again for the data.
    IPCDeSerializer(eSerializationFormat format, int queue,
                    std::chrono::milliseconds limit = std::chrono::milliseconds(10'000));
    ~IPCDeSerializer() override = default;

    using MemoryDeSerializer::Read;
    bool Read(Serializable*& object) override;
    bool IsEndOfStream() override { return true; }
    /// Waits for the header of the given type and reads the object behind it. A header whose data is missing, as
    /// a sender leaves it that was refused in between, is passed over, as is data without a header.
    /// @param header  in: `type` to wait for; out: the header of the object.
    /// @param wait  false: answer null at once when no header is there.
    /// @return an object of ClassFactory::Create, or null: no message came in time, or no whole object. For
    /// some classes the object is shared: hold ClassFactory::PrototypeMutex() during the call, with all of its
    /// waiting, and until the object is copied, unless this is the only thread that reads objects.
    virtual Serializable* Read(CONFIGMGR_STREAM_HEADER_T& header, bool wait);
    /// The same, with an object that the caller owns. Others may read objects meanwhile.
    std::unique_ptr<Serializable> ReadPrivate(CONFIGMGR_STREAM_HEADER_T& header, bool wait);

  private:
    class Message;
    bool Receive(CONFIGMGR_STREAM_HEADER_T& header, bool wait, Message& data);
    bool TakeHeader(int32_t type);
    bool FindOwner(const Message& data, CONFIGMGR_STREAM_HEADER_T& header);
    MemoryDeSerializer StreamOf(const Message& data) const;

    int m_queue;
    std::chrono::milliseconds m_limit;
    std::vector<CONFIGMGR_STREAM_HEADER_T> m_headers;  // taken from the queue before their data, in order
};
