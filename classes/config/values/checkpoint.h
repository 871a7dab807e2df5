/// Checkpoint: marks a position for one configuration instance.
#pragma once

#include "config/base/export.h"
#include "config/param_ids.h"
#include "config/streams/serializable.h"

/// Thread: one at a time.
class VEXA_EXPORT Checkpoint : public Serializable {
  public:
    /// No configuration: -1.
    Checkpoint() : Checkpoint(-1) {}
    explicit Checkpoint(eConfigID_t configID) : Serializable(eClassID_Checkpoint), m_configID(configID) {}

    /// Whose position it is; -1: nobody's.
    eConfigID_t GetConfigID() const { return m_configID; }
    void SetConfigID(eConfigID_t id) { m_configID = id; }
    /// The position; its unit is that of the component that saves.
    unsigned int GetOffset() const { return m_offset; }
    void SetOffset(unsigned int offset) { m_offset = offset; }

    bool Serialize(Serializer* serializer) override;
    bool Deserialize(DeSerializer* deserializer) override;

  private:
    eConfigID_t m_configID;
    unsigned int m_offset = 0;
};
