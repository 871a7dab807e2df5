/// The descriptor that stands in for a parameter that nobody registered.
#pragma once

#include <cstddef>

#include "config/descriptors/param_descriptor.h"

/// A new bare descriptor whose names are the identifier's four bytes, "1.2.3.4". Never freed, but kept
/// reachable. Thread: any.
ParamDescriptor* CreatePlaceholderDescriptor(eParam_t id);

/// Keeps a descriptor reachable for good, such as one that a later catalogue entry replaced: somebody may
/// hold it.
void RetainDescriptor(ParamDescriptor* descriptor);
/// How many are kept so far, for checks that nothing was replaced.
size_t CountRetainedDescriptors();
