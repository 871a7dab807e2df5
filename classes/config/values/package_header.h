/// PackageHeader: heads a package file.
#pragma once

#include <string>

#include "config/base/export.h"
#include "config/streams/serializable.h"

/// Plain fields. Thread: one at a time.
class VEXA_EXPORT PackageHeader : public Serializable {
  public:
    PackageHeader() : Serializable(eClassID_PackageHeader) {}

    unsigned int packageHeaderVersion = 0x1001;  ///< of the layout of the file
    unsigned int productID = 0xFFFFFFFF;         ///< no product
    unsigned int fileSize = 0;                   ///< bytes
    unsigned int unused1 = 0;                    ///< written and read, without a meaning
    unsigned int productMode = 99;               ///< the mode that the file is for

    bool Serialize(Serializer* serializer) override;
    bool Deserialize(DeSerializer* deserializer) override;
    /// All fields on one line, for logs.
    std::string ToString();
};
