/// Streams as bytes. Readers and buffers have exactly the size of their content, so that a step beyond it is
/// seen.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "config/streams/memory_deserializer.h"
#include "config/streams/memory_serializer.h"

/// 32-bit words as this machine lays them down.
inline std::string Words(std::initializer_list<uint32_t> words)
{
    std::string bytes(4 * words.size(), '\0');
    memcpy(bytes.data(), std::data(words), bytes.size());
    return bytes;
}

/// Bytes on the heap, and not one more.
class Exactly {
  public:
    explicit Exactly(const std::string& bytes) : m_bytes(new char[bytes.size()]), m_size(bytes.size())
    {
        memcpy(m_bytes.get(), bytes.data(), m_size);
    }
    char* begin() const { return m_bytes.get(); }
    char* end() const { return m_bytes.get() + m_size; }
    std::string Text() const { return {begin(), end()}; }

  private:
    std::unique_ptr<char[]> m_bytes;
    size_t m_size;
};

class Reader : private Exactly, public MemoryDeSerializer {
  public:
    explicit Reader(const std::string& bytes, ptrdiff_t position = 0)
        : Exactly(bytes), MemoryDeSerializer(eSerializationFormat_Memory, begin(), end(), false)
    {
        SetPos(begin() + position);
    }
    ptrdiff_t Offset() { return GetPos() - GetSectorStart(); }
};

class Writer : public MemorySerializer {
  public:
    explicit Writer(const Exactly& buffer, ptrdiff_t position = 0)
        : MemorySerializer(eSerializationFormat_Memory, buffer.begin(), buffer.end(), false)
    {
        SetPos(buffer.begin() + position);
    }
};

/// Measures, then writes.
inline std::string Streamed(Serializable& object)
{
    const Exactly buffer(std::string(MemorySerializerSizer::GetSize(&object, nullptr), '#'));
    Writer writer(buffer);
    writer.Write("Serializable", &object);
    EXPECT_TRUE(!writer.Failed() && writer.IsEndOfBuffer()) << "measured something else than was written";
    return buffer.Text();
}
