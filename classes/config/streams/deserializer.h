/// DeSerializer: the reader's side of the stream format.
#pragma once

#include <string>

#include "config/base/export.h"
#include "config/streams/serializer.h"

/// Reads the fields that a Serializer wrote, in the same order. The names are for the reader of the code.
///
/// A read beyond the end fails: the result is false, the out-value neutral (0, "", false, null, length 0),
/// and every later read fails as well, until the reader is pointed at another sector. Thread: one at a time. The order of the virtual operations is part of
/// the contract: append only.
class VEXA_EXPORT DeSerializer {
  public:
    /// @param format  of the stream.
    explicit DeSerializer(eSerializationFormat format) : m_format(format) {}
    virtual ~DeSerializer() = default;
    /// One field. @param value  neutral on failure. @return whether there was one.
    virtual bool Read(const char* name, unsigned char& value) = 0;
    virtual bool Read(const char* name, long& value) = 0;
    virtual bool Read(const char* name, bool& value) = 0;
    virtual bool Read(const char* name, std::string& value) = 0;
    virtual bool Read(const char* name, unsigned int& value) = 0;
    virtual bool Read(const char* name, int& value) = 0;
    /// @param object  receives an object of ClassFactory::Create: shared for some classes (see there), null
    /// on failure.
    virtual bool Read(const char* name, Serializable*& object) = 0;
    /// Into a buffer of `maximum` bytes. Longer data gives length 0 and is not skipped; empty data leaves
    /// `length` as it was.
    virtual bool Read(const char* name, char* buffer, unsigned int maximum, unsigned int& length) = 0;
    /// @param buffer  receives a new array that the caller owns (delete[]); untouched for empty data.
    virtual bool Read(const char* name, char*& buffer, unsigned int& length) = 0;
    /// Reads nothing.
    virtual bool Read(std::string&, unsigned int) { return false; }
    virtual bool Read(Serializable*& object) = 0;
    /// Whether nothing follows what was read.
    virtual bool IsEndOfStream() = 0;

    /// As given to the constructor.
    eSerializationFormat GetFormat() const { return m_format; }
    /// Whether a read failed; the results of all later ones are neutral.
    bool Failed() const { return m_failed; }
    /// Marks the stream as unusable; for objects whose fields make no sense together.
    void Fail() { m_failed = true; }

  protected:
    /// For readers that go on with another range.
    void ClearFailure() { m_failed = false; }

  private:
    eSerializationFormat m_format;
    bool m_failed = false;
};
