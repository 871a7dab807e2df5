/// Private copies of values: what one thread sends or has received, while other threads change the original.
#pragma once

#include <memory>

#include "config/streams/serializable.h"

class DeSerializer;

/// What a sender measures and then writes. A stored value may change between the two, so a value is cloned
/// first; other objects have no clone and are used as they are.
class PrivateCopy {
  public:
    /// @param object  borrowed; may be null.
    explicit PrivateCopy(Serializable* object);
    Serializable* get() const { return m_object; }

  private:
    std::unique_ptr<Serializable> m_clone;
    Serializable* m_object;
};

/// Reads the next object and gives the caller an own one: the class factory hands some classes out shared, so
/// the content is copied before another thread can read into it.
/// @return null when the stream holds no whole object of a known class.
std::unique_ptr<Serializable> ReadPrivate(DeSerializer& stream);
