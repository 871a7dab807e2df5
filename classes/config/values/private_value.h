/// Private copies of values, to send or to keep while other threads change the original.
#pragma once

#include <memory>

#include "config/streams/serializable.h"

class DeSerializer;

/// The object that a sender measures and then writes. A stored value may change between the two steps, so it
/// is cloned first. Other objects have no clone and are used as they are, as is a value of an application's own
/// class that inherits Clone, which would leave its fields out. Thread: one at a time.
class PrivateCopy {
  public:
    /// @param object  borrowed; may be null.
    explicit PrivateCopy(Serializable* object);
    Serializable* get() const { return m_object; }

  private:
    std::unique_ptr<Serializable> m_clone;
    Serializable* m_object;
};

/// Reads the next object, which the caller owns. The class factory shares the objects of some classes, so
/// their content is copied (values by their Clone) before another thread can read into them. Thread: any, one at a time for one
/// stream.
/// @return null when the stream holds no whole object of a known class.
std::unique_ptr<Serializable> ReadPrivate(DeSerializer& stream);
