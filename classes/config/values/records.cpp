#include <cstdio>

#include "config/streams/deserializer.h"
#include "config/streams/serializer.h"
#include "config/values/checkpoint.h"
#include "config/values/package_header.h"
#include "config/values/sector_header.h"

SectorHeader::SectorHeader(unsigned int odometer, unsigned int configVersion, unsigned int length)
    : Serializable(eClassID_SectorHeader),
      m_odometer(odometer),
      m_configVersion(configVersion),
      m_length(length)
{
}

SectorHeader* SectorHeader::Create(unsigned int odometer, unsigned int configVersion, unsigned int length)
{
    return new SectorHeader(odometer, configVersion, length);
}

bool SectorHeader::IsEqual(Serializable* other)
{
    auto* const header = dynamic_cast<SectorHeader*>(other);
    return header && Serializable::IsEqual(other) && header->m_odometer == m_odometer &&
           header->m_configVersion == m_configVersion && header->m_length == m_length;
}

bool SectorHeader::Serialize(Serializer* serializer)
{
    serializer->Write("Odometer", m_odometer);
    serializer->Write("ConfigVersion", m_configVersion);
    serializer->Write("Length", m_length);
    return true;
}

bool SectorHeader::Deserialize(DeSerializer* deserializer)
{
    deserializer->Read("Odometer", m_odometer);
    deserializer->Read("ConfigVersion", m_configVersion);
    return deserializer->Read("Length", m_length);
}

bool Checkpoint::Serialize(Serializer* serializer)
{
    serializer->Write("offset", m_offset);
    serializer->Write("configID", static_cast<int>(m_configID));
    return true;
}

bool Checkpoint::Deserialize(DeSerializer* deserializer)
{
    deserializer->Read("offset", m_offset);
    return deserializer->Read("configID", m_configID);
}

// The reserved word stands before the product mode: this order is the format.
bool PackageHeader::Serialize(Serializer* serializer)
{
    serializer->Write("PackageHeaderVersion", packageHeaderVersion);
    serializer->Write("productID", productID);
    serializer->Write("FileSize", fileSize);
    serializer->Write("Unused1", unused1);
    serializer->Write("ProductMode", productMode);
    return true;
}

bool PackageHeader::Deserialize(DeSerializer* deserializer)
{
    deserializer->Read("PackageHeaderVersion", packageHeaderVersion);
    deserializer->Read("productID", productID);
    deserializer->Read("FileSize", fileSize);
    deserializer->Read("Unused1", unused1);
    return deserializer->Read("ProductMode", productMode);
}

std::string PackageHeader::ToString()
{
    char text[128];
    snprintf(text, sizeof text,
             ", _packageHeaderVersion=0x%0X, _productID=%0X, _productMode=%0X, _fileSize=0x%0X.",
             packageHeaderVersion, productID, productMode, fileSize);
    return std::string("class=PackageHeader") + text;
}
