/// Reading objects from memory.
#pragma once

#include <cstddef>

#include "config/base/export.h"
#include "config/streams/deserializer.h"

/// Reads from a caller's byte range (the sector), which is never freed here. Byte layout: MemorySerializer.
/// A failed read leaves the position at the sector end.
/// Thread: one at a time.
class VEXA_EXPORT MemoryDeSerializer : public DeSerializer {
  public:
    /// @param start, end  the sector, end one past its last byte; borrowed. The flag is kept and has no
    /// effect.
    MemoryDeSerializer(eSerializationFormat format, char* start, char* end, bool flag);

    using DeSerializer::Read;
    /// The position stays, as for long.
    bool Read(const char* name, unsigned char& value) override;
    /// Four bytes, sign-extended. The position stays: readers peek a long and then read the same word again.
    bool Read(const char* name, long& value) override;
    bool Read(const char* name, bool& value) override;
    bool Read(const char* name, std::string& value) override;
    bool Read(const char* name, unsigned int& value) override;
    bool Read(const char* name, int& value) override;
    /// An unknown class prints one line and gives null; an object that throws while it reads itself gives
    /// null.
    bool Read(const char* name, Serializable*& object) override;
    bool Read(const char* name, char* buffer, unsigned int maximum, unsigned int& length) override;
    bool Read(const char* name, char*& buffer, unsigned int& length) override;
    /// Reads nothing: an object is always read as a named field.
    bool Read(Serializable*& object) override;
    /// Always true: the sector is the whole stream.
    bool IsEndOfStream() override { return true; }

    /// Where the next read begins.
    virtual char* GetPos() { return m_position; }
    virtual void SetPos(char* position) { m_position = position; }
    /// Whether nothing is left to read.
    virtual bool IsEndOfSector() { return m_position >= m_end; }
    /// The first byte of the sector.
    virtual char* GetSectorStart() { return m_start; }
    /// Another sector: what failed in the last one is forgotten. Set its end and the position as well.
    virtual void SetSectorStart(char* start)
    {
        m_start = start;
        ClearFailure();
    }
    /// One past the last byte of the sector.
    virtual char* GetSectorEnd() { return m_end; }
    virtual void SetSectorEnd(char* end) { m_end = end; }
    /// Bytes between the position and the end.
    virtual ptrdiff_t Available() { return m_end - m_position; }
    /// The class identifier of an object that is read by hand. @return false at the end.
    virtual bool Read(ClassFactoryHeader& header);

  private:
    bool FailAtEnd();
    bool Holds(size_t length) const;
    bool Peek(void* bytes, size_t length);
    bool Take(void* bytes, size_t length);

    char* m_position;
    char* m_start;
    char* m_end;
    [[maybe_unused]] bool m_flag;
    unsigned int m_nesting = 0;
};
