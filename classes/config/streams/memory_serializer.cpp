#include "config/streams/memory_serializer.h"

#include <cstring>
#include <limits>

#include "config/streams/stream_words.h"

MemorySerializer::MemorySerializer(eSerializationFormat format, char* start, char* end, bool flag)
    : Serializer(format), m_position(start), m_start(start), m_end(end), m_flag(flag)
{
}

/// Compares as sizes: a length of 2 GiB and more is negative as a ptrdiff_t on the 32-bit device.
bool MemorySerializer::HasRoom(size_t length) const
{
    return m_position && m_start <= m_position && m_position <= m_end &&
           length <= static_cast<size_t>(m_end - m_position);
}

void MemorySerializer::WriteRaw(const void* bytes, size_t length)
{
    if (Failed() || !HasRoom(length)) return Fail();
    memcpy(m_position, bytes, length);
    Wrote(static_cast<unsigned int>(length));
}

void MemorySerializer::Wrote(unsigned int bytes)
{
    Serializer::Wrote(bytes);
    m_position += bytes;
}

void MemorySerializer::Write(std::string, unsigned char value)
{
    WriteRaw(&value, sizeof value);
}

// A long takes four bytes on every machine: readers on the 32-bit device and on workstations share the
// format.
void MemorySerializer::Write(std::string, long value)
{
    const auto word = static_cast<int32_t>(value);
    WriteRaw(&word, sizeof word);
}

void MemorySerializer::Write(std::string, bool value)
{
    const unsigned int word = value ? kStreamTrue : kStreamFalse;
    WriteRaw(&word, sizeof word);
}

void MemorySerializer::Write(std::string, std::string value)
{
    WriteRaw(value.c_str(), value.size() + 1);
}

void MemorySerializer::Write(std::string, unsigned int value)
{
    WriteRaw(&value, sizeof value);
}

void MemorySerializer::Write(std::string, int value)
{
    WriteRaw(&value, sizeof value);
}

void MemorySerializer::Write(std::string, Serializable* object)
{
    WriteObject(object, object ? object->GetClassID() : eClassID_t{});
}

void MemorySerializer::Write(std::string name, char* buffer, unsigned int length)
{
    if (!HasRoom(4) || static_cast<size_t>(Available()) - 4 < length) return Fail();
    Write(std::move(name), length);
    if (length != 0) WriteRaw(buffer, length);
}

void MemorySerializerSizer::Count(uint64_t bytes)
{
    if (bytes > std::numeric_limits<unsigned int>::max() - GetBytesWritten()) return Fail();
    Wrote(static_cast<unsigned int>(bytes));
}

// clang-format off
void MemorySerializerSizer::Write(std::string, unsigned char) { Count(1); }
void MemorySerializerSizer::Write(std::string, long) { Count(4); }
void MemorySerializerSizer::Write(std::string, bool) { Count(4); }
void MemorySerializerSizer::Write(std::string, std::string value) { Count(uint64_t{value.size()} + 1); }
void MemorySerializerSizer::Write(std::string, unsigned int) { Count(4); }
void MemorySerializerSizer::Write(std::string, int) { Count(4); }
void MemorySerializerSizer::Write(std::string, char*, unsigned int length) { Count(uint64_t{4} + length); }
void MemorySerializerSizer::Write(ClassFactoryHeader&) { Count(4); }
// clang-format on

// The header's size does not depend on the class, so the object is not asked for it.
void MemorySerializerSizer::Write(std::string, Serializable* object)
{
    WriteObject(object, eClassID_t{});
}

unsigned int MemorySerializerSizer::GetSize(Serializable* object, MemorySerializer* serializer)
{
    MemorySerializerSizer sizer(serializer ? serializer->GetFormat() : eSerializationFormat_Memory);
    sizer.Write("Serializable", object);
    return sizer.Failed() ? 0 : sizer.GetBytesWritten();
}
