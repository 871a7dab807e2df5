/// Serializable: the base of all objects that travel through a stream.
#pragma once

#include <atomic>

#include "config/base/export.h"
#include "config/streams/class_id.h"

class Serializer;
class DeSerializer;

/// Thread: the dirty flag may be read and set from any thread; subclasses say more.
/// The order of the virtual operations is part of the contract: append only.
class VEXA_EXPORT Serializable {
  public:
    virtual ~Serializable() = default;
    /// What names the class in a stream.
    virtual eClassID_t GetClassID() { return m_classID; }
    virtual void SetClassID(eClassID_t id) { m_classID = id; }
    /// Same class; subclasses compare contents too. False for null.
    virtual bool IsEqual(Serializable* other) { return other && other->GetClassID() == GetClassID(); }
    /// Writes the fields, without the class identifier.
    virtual bool Serialize(Serializer*) { return true; }
    /// Reads them back in the same order.
    virtual bool Deserialize(DeSerializer*) { return true; }
    /// Changed since it was last saved or sent.
    virtual bool IsDirty() { return m_dirty; }
    /// For whoever saves or sends the object, and for its subclasses.
    virtual void SetDirty(bool dirty) { m_dirty = dirty; }

  protected:
    /// Not dirty. @param id  may be left to the class factory.
    explicit Serializable(eClassID_t id = eClassID_Unset) : m_classID(id) {}
    /// With the dirty flag.
    Serializable(const Serializable& other) : m_classID(other.m_classID), m_dirty(other.m_dirty.load()) {}
    Serializable& operator=(const Serializable&) = delete;

  private:
    eClassID_t m_classID;
    std::atomic<bool> m_dirty = false;
};
