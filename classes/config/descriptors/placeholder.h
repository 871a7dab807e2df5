/// The descriptor that stands in for a parameter that is not registered.
#pragma once

#include <cstddef>

#include "config/descriptors/param_descriptor.h"

/// A new bare descriptor whose names are the identifier's four bytes, "1.2.3.4". Never freed, but kept
/// reachable. Thread: any.
ParamDescriptor* CreatePlaceholderDescriptor(eParam_t id);

/// Keeps a descriptor reachable for good, such as one that a later catalogue entry replaced: a caller may still
/// hold a pointer to it.
void RetainDescriptor(ParamDescriptor* descriptor);
/// The number of descriptors kept so far, for checks that no entry replaced another.
size_t CountRetainedDescriptors();
