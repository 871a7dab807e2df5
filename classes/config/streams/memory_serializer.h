/// Writing objects into memory, and measuring them first.
#pragma once

#include <cstddef>

#include "config/base/export.h"
#include "config/streams/serializer.h"

/// Writes into a caller's byte range, in the host's byte order, at any alignment. The range is never freed
/// here.
///
///     unsigned char   1 byte
///     long, int, unsigned int   4 bytes
///     bool            4 bytes, 0xBEEF or 0xDEAD
///     std::string     the characters and a NUL (so bytes behind an embedded NUL are lost to the reader)
///     buffer          4 bytes of length, then the bytes
///     object          4 bytes of class identifier, then its fields
///
/// A write that does not fit writes nothing and fails. Measure with MemorySerializerSizer first. Thread: one
/// at a time.
class VEXA_EXPORT MemorySerializer : public Serializer {
  public:
    /// @param start, end  the range, end one past its last byte; borrowed. The flag is kept and has no
    /// effect.
    MemorySerializer(eSerializationFormat format, char* start, char* end, bool flag);

    using Serializer::Write;
    void Write(std::string name, unsigned char value) override;
    void Write(std::string name, long value) override;
    void Write(std::string name, bool value) override;
    void Write(std::string name, std::string value) override;
    void Write(std::string name, unsigned int value) override;
    void Write(std::string name, int value) override;
    void Write(std::string name, Serializable* object) override;
    void Write(std::string name, char* buffer, unsigned int length) override;
    void Wrote(unsigned int bytes) override;

    /// Where the next write begins.
    virtual char* GetPos() { return m_position; }
    virtual void SetPos(char* position) { m_position = position; }
    /// Whether the range is full.
    virtual bool IsEndOfBuffer() { return m_position >= m_end; }
    /// The first byte of the range.
    virtual char* GetBufferStart() { return m_start; }
    /// Another buffer: what failed in the last one is forgotten. Set its end and the position as well.
    virtual void SetBufferStart(char* start)
    {
        m_start = start;
        ClearFailure();
    }
    /// One past the last byte of the range.
    virtual char* GetBufferEnd() { return m_end; }
    virtual void SetBufferEnd(char* end) { m_end = end; }
    /// Bytes between the position and the end.
    virtual ptrdiff_t Available() { return m_end - m_position; }

  private:
    bool HasRoom(size_t length) const;
    void WriteRaw(const void* bytes, size_t length);

    char* m_position;
    char* m_start;
    char* m_end;
    [[maybe_unused]] bool m_flag;
};

/// Writes nothing and counts the bytes that a MemorySerializer would write. Thread: one at a time.
class VEXA_EXPORT MemorySerializerSizer : public Serializer {
  public:
    /// @param format  of the stream that is measured.
    explicit MemorySerializerSizer(eSerializationFormat format) : Serializer(format) {}

    using Serializer::Write;
    void Write(std::string name, unsigned char value) override;
    void Write(std::string name, long value) override;
    void Write(std::string name, bool value) override;
    void Write(std::string name, std::string value) override;
    void Write(std::string name, unsigned int value) override;
    void Write(std::string name, int value) override;
    void Write(std::string name, Serializable* object) override;
    void Write(std::string name, char* buffer, unsigned int length) override;
    void Write(ClassFactoryHeader& header) override;

    /// Bytes that the object takes as a field: class identifier and fields. 0 when it cannot be written.
    /// @param serializer  gives the format; may be null.
    static unsigned int GetSize(Serializable* object, MemorySerializer* serializer);

  private:
    void Count(uint64_t bytes);
};
