/// Streams as the device writes them, whatever the order of this machine.
#pragma once

#include <arpa/inet.h>

#include <string>
#include <utility>

#include "config/streams/memory_deserializer.h"
#include "config/streams/memory_serializer.h"
#include "config/streams/stream_words.h"

namespace vexa {

/// Writes as the device does. Thread: one at a time.
class BigEndianSerializer : public MemorySerializer {
  public:
    using MemorySerializer::MemorySerializer;
    using MemorySerializer::Write;
    void Write(std::string name, long value) override { Write(std::move(name), static_cast<int>(value)); }
    void Write(std::string name, bool value) override
    {
        Write(std::move(name), value ? kStreamTrue : kStreamFalse);
    }
    void Write(std::string name, unsigned int value) override
    {
        MemorySerializer::Write(std::move(name), htonl(value));
    }
    void Write(std::string name, int value) override
    {
        Write(std::move(name), static_cast<unsigned int>(value));
    }
};

/// Reads what the device has written. Thread: one at a time.
class BigEndianDeSerializer : public MemoryDeSerializer {
  public:
    using MemoryDeSerializer::MemoryDeSerializer;
    using MemoryDeSerializer::Read;
    bool Read(const char* name, long& value) override
    {
        const bool ok = MemoryDeSerializer::Read(name, value);
        value = static_cast<int32_t>(ntohl(static_cast<uint32_t>(value)));
        return ok;
    }
    bool Read(const char* name, unsigned int& value) override
    {
        const bool ok = MemoryDeSerializer::Read(name, value);
        value = ntohl(value);
        return ok;
    }
    bool Read(const char* name, int& value) override
    {
        unsigned int word = 0;
        const bool ok = Read(name, word);
        value = static_cast<int>(word);
        return ok;
    }
};

}  // namespace vexa
