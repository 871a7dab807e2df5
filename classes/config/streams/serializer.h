/// Serializer: the writer's side of the stream format.
#pragma once

#include <cstdint>
#include <string>

#include "config/base/export.h"
#include "config/streams/class_factory.h"

/// The format of a stream; only the binary memory format exists.
enum eSerializationFormat : uint32_t { eSerializationFormat_Memory = 0 };

/// Objects may stand inside objects (a vector in a vector) this deep. A peer could otherwise exhaust the
/// stack with a few bytes per level.
inline constexpr unsigned int kMaxObjectNesting = 16;

/// Writes fields one after the other, without names, tags or padding: the names are for the reader of the
/// code.
///
/// Thread: one at a time. The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT Serializer {
  public:
    /// @param format  of the stream.
    explicit Serializer(eSerializationFormat format) : m_format(format) {}
    virtual ~Serializer() = default;
    /// One field; the length depends on the type alone, but for a text.
    virtual void Write(std::string name, unsigned char value) = 0;
    virtual void Write(std::string name, long value) = 0;
    virtual void Write(std::string name, bool value) = 0;
    virtual void Write(std::string name, std::string value) = 0;
    virtual void Write(std::string name, unsigned int value) = 0;
    virtual void Write(std::string name, int value) = 0;
    /// Class identifier, then the object's fields. Null, or an object nested too deep, writes nothing and
    /// fails.
    virtual void Write(std::string name, Serializable* object) = 0;
    virtual void Write(std::string name, char* buffer, unsigned int length) = 0;
    virtual void Write(ClassFactoryHeader& header);
    /// Texts are passed as std::string: a literal would be taken for a bool.
    void Write(std::string name, const char* text) = delete;
    /// Counts bytes that were written.
    virtual void Wrote(unsigned int bytes) { m_bytesWritten += bytes; }

    /// As given to the constructor.
    eSerializationFormat GetFormat() const { return m_format; }
    /// How many bytes have gone out, whatever the buffer.
    unsigned int GetBytesWritten() const { return m_bytesWritten; }
    /// Whether a write failed; stays set until the writer gets another buffer. A sender then drops the whole
    /// message.
    bool Failed() const { return m_failed; }

  protected:
    /// Marks the stream as unusable.
    void Fail() { m_failed = true; }
    /// For writers that go on with another range.
    void ClearFailure() { m_failed = false; }
    /// Header and fields of an object, within the nesting limit.
    void WriteObject(Serializable* object, eClassID_t classID);

  private:
    eSerializationFormat m_format;
    unsigned int m_bytesWritten = 0;
    unsigned int m_nesting = 0;
    bool m_failed = false;
};
