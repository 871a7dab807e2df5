/// Whether a configuration that the connector handed out can be reached.
#pragma once

#include "config/base/export.h"

class Config;

namespace vexa {

/// False after the last exchange with the server failed or its connection was lost, until one succeeds. True
/// for configurations that cannot be lost, and for caches, which answer by themselves. Thread: any.
VEXA_EXPORT bool IsReachable(const Config& config);

}  // namespace vexa
