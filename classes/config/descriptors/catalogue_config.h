/// CatalogueConfig: what configurations with this process's own catalogue answer from it.
#pragma once

#include "config/base/export.h"
#include "config/config.h"
#include "config/descriptors/descriptor_table.h"

namespace vexa {

/// Identifiers come from peers as well, so an unknown one has no descriptor here: a placeholder for each would never be
/// freed. Thread: any.
class VEXA_EXPORT CatalogueConfig : public Config {
  public:
    ParamDescriptor* GetParamDescriptor(eParam_t id) override { return FindDescriptor(id); }
    ParamDescriptor* GetParamDescriptor(std::string paramIDName) override
    {
        return GetDescriptor(std::move(paramIDName));
    }
    std::list<eParam_t> GetParamIDs() override { return ::GetParamIDs(); }
};

}  // namespace vexa
