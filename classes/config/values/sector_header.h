/// SectorHeader: heads a sector of saved configuration.
#pragma once

#include "config/base/export.h"
#include "config/streams/serializable.h"

/// Plain fields; the setters leave the dirty flag alone. Thread: one at a time.
class VEXA_EXPORT SectorHeader : public Serializable {
  public:
    /// For the class factory, which labels it.
    SectorHeader() = default;
    SectorHeader(unsigned int odometer, unsigned int configVersion, unsigned int length);
    /// A new record that the caller owns.
    static SectorHeader* Create(unsigned int odometer, unsigned int configVersion, unsigned int length);

    /// Counts writes of the sector.
    unsigned int GetOdometer() const { return m_odometer; }
    void SetOdometer(unsigned int value) { m_odometer = value; }
    /// The version of the layout behind the header.
    unsigned int GetConfigVersion() const { return m_configVersion; }
    void SetConfigVersion(unsigned int value) { m_configVersion = value; }
    /// The length; its unit is that of the component that saves.
    unsigned int GetLength() const { return m_length; }
    void SetLength(unsigned int value) { m_length = value; }

    bool IsEqual(Serializable* other) override;
    bool Serialize(Serializer* serializer) override;
    bool Deserialize(DeSerializer* deserializer) override;

  private:
    unsigned int m_odometer = 0, m_configVersion = 0, m_length = 0;
};
