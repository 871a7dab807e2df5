/// PackageHeader: heads a package file.
#pragma once

#include <string>

#include "config/base/export.h"
#include "config/streams/serializable.h"

/// Plain fields. Thread: one at a time.
class VEXA_EXPORT PackageHeader : public Serializable {
  public:
    PackageHeader() : Serializable(eClassID_PackageHeader) {}

    unsigned int packageHeaderVersion = 0x1001;
    unsigned int productID = 0xFFFFFFFF;  ///< no product
    unsigned int fileSize = 0;            ///< bytes
    unsigned int unused1 = 0;
    unsigned int productMode = 99;

    bool Serialize(Serializer* serializer) override;
    bool Deserialize(DeSerializer* deserializer) override;
    std::string ToString();
};
