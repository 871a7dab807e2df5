#include "config/streams/memory_deserializer.h"

#include <cstring>
#include <new>

#include "config/base/log.h"
#include "config/streams/stream_words.h"

MemoryDeSerializer::MemoryDeSerializer(eSerializationFormat format, char* start, char* end, bool flag)
    : DeSerializer(format), m_position(start), m_start(start), m_end(end), m_flag(flag)
{
}

bool MemoryDeSerializer::FailAtEnd()
{
    Fail();
    m_position = m_end;
    return false;
}

/// Compares as sizes: a length of 2 GiB and more is negative as a ptrdiff_t on the 32-bit device.
bool MemoryDeSerializer::Holds(size_t length) const
{
    return !Failed() && m_position && m_start <= m_position && m_position <= m_end &&
           length <= static_cast<size_t>(m_end - m_position);
}

bool MemoryDeSerializer::Peek(void* bytes, size_t length)
{
    if (!Holds(length)) return FailAtEnd();
    memcpy(bytes, m_position, length);
    return true;
}

bool MemoryDeSerializer::Take(void* bytes, size_t length)
{
    if (!Peek(bytes, length)) return false;
    m_position += length;
    return true;
}

bool MemoryDeSerializer::Read(const char*, unsigned char& value)
{
    value = 0;
    return Peek(&value, sizeof value);
}

bool MemoryDeSerializer::Read(const char*, long& value)
{
    int32_t word = 0;
    const bool ok = Peek(&word, sizeof word);
    value = word;
    return ok;
}

bool MemoryDeSerializer::Read(const char* name, bool& value)
{
    unsigned int word = 0;
    const bool ok = Read(name, word);
    value = word == kStreamTrue;
    return ok;
}

bool MemoryDeSerializer::Read(const char*, std::string& value)
{
    value.clear();
    if (!Holds(1)) return FailAtEnd();
    const auto* const nul = static_cast<const char*>(memchr(m_position, 0, static_cast<size_t>(Available())));
    if (!nul) return FailAtEnd();
    value.assign(m_position, static_cast<size_t>(nul - m_position));
    m_position += value.size() + 1;
    return true;
}

bool MemoryDeSerializer::Read(const char*, unsigned int& value)
{
    value = 0;
    return Take(&value, sizeof value);
}

bool MemoryDeSerializer::Read(const char*, int& value)
{
    value = 0;
    return Take(&value, sizeof value);
}

bool MemoryDeSerializer::Read(ClassFactoryHeader& header)
{
    unsigned int word = 0;
    const bool ok = Read("ClassID", word);
    header.classID = eClassID_t{word};
    return ok;
}

bool MemoryDeSerializer::Read(const char*, Serializable*& object)
{
    object = nullptr;
    ClassFactoryHeader header;
    if (!Read(header)) return false;
    if (m_nesting == kMaxObjectNesting) return FailAtEnd();
    Serializable* const made = ClassFactory::Create(header.classID);
    if (!made)
        return vexa::Report("pValue == NULL after ClassFactory::Create() for classID = %d\n",
                            static_cast<int>(header.classID));
    ++m_nesting;
    bool whole = true;
    try {
        made->Deserialize(this);
    } catch (...) {
        whole = false;
    }
    --m_nesting;
    if (!whole || Failed()) {
        ClassFactory::Release(made);
        return false;
    }
    object = made;
    return true;
}

bool MemoryDeSerializer::Read(const char* name, char* buffer, unsigned int maximum, unsigned int& length)
{
    unsigned int n = 0;
    const bool ok = Read(name, n);
    if (ok && n == 0) return true;
    length = 0;
    if (!ok || n > maximum || !Take(buffer, n)) return false;
    length = n;
    return true;
}

bool MemoryDeSerializer::Read(const char* name, char*& buffer, unsigned int& length)
{
    unsigned int n = 0;
    length = 0;
    if (!Read(name, n)) return false;
    if (n == 0) return true;
    // The peer's length word is used for an allocation only if the sector holds that many bytes.
    if (!Holds(n)) return FailAtEnd();
    char* const bytes = new (std::nothrow) char[n];
    if (!bytes) return FailAtEnd();
    Take(bytes, n);
    buffer = bytes;
    length = n;
    return true;
}

bool MemoryDeSerializer::Read(Serializable*&)
{
    return false;
}
