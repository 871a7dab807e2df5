/// The preset containers: lists of objects that travel as one object.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config/base/export.h"
#include "config/streams/serializable.h"

namespace vexa::config::values {

/// A list of owned objects: in a stream a 32-bit count, then each element as an object. Thread: one at a
/// time.
class VEXA_EXPORT Vector : public Serializable {
  public:
    Vector() : Serializable(eClassID_Vector) {}

    /// @param element  the vector owns it from now on; null is refused.
    bool Add(std::unique_ptr<Serializable> element);
    /// Borrowed, in order of addition.
    const std::vector<std::unique_ptr<Serializable>>& Elements() const { return m_elements; }

    /// Same class, and equal elements in the same order.
    bool IsEqual(Serializable* other) override;
    bool Serialize(Serializer* serializer) override;
    /// Replaces the elements. Values are copied out of the class factory's shared objects. A count that the
    /// stream cannot hold, or an element that cannot be read, fails the stream and leaves the elements read
    /// so far.
    bool Deserialize(DeSerializer* deserializer) override;

  protected:
    /// For containers with a class of their own.
    explicit Vector(eClassID_t id) : Serializable(id) {}

  private:
    std::vector<std::unique_ptr<Serializable>> m_elements;
};

/// The parameters of a preset, with the content of its file.
class VEXA_EXPORT PresetsParamVector : public Vector {
  public:
    PresetsParamVector() : Vector(eClassID_PresetsParamVector) {}

    /// The bytes of the file; they may hold anything but NUL.
    const std::string& GetPresetsFile() const { return m_presetsFile; }
    void SetPresetsFile(std::string bytes) { m_presetsFile = std::move(bytes); }

    bool IsEqual(Serializable* other) override;
    bool Serialize(Serializer* serializer) override;
    bool Deserialize(DeSerializer* deserializer) override;

  private:
    std::string m_presetsFile;
};

}  // namespace vexa::config::values
