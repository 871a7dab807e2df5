/// The part of the device driver that this library needs.
#pragma once

#include <cstdint>

#include "config/base/export.h"

/// Implemented by the product over its driver; this library borrows it for the length of a call.
class VEXA_EXPORT BDX4Device {
  public:
    virtual ~BDX4Device() = default;
    /// The board's identifier; its meaning is the driver's.
    virtual uint32_t GetBoardID() = 0;
};
