/// The unit's serial number, Ethernet address and board identifier. No state; thread: any.
#pragma once

#include <cstdint>
#include <string>

#include "config/base/export.h"

class BDX4Device;

/// No state; thread: any.
class VEXA_EXPORT SerialNumber {
  public:
    /// The hardware address of interface "eth0".
    /// @param mac  receives six bytes; all zero on failure.
    /// @return false when there is no such interface.
    static bool GetMacAddress(unsigned char* mac);
    /// The same as "0A:1B:2C:3D:4E:5F", or "".
    static std::string GetMacAddress();

    /// The last four of six address bytes as one big-endian number.
    static uint32_t ConvertMACToSerial(const unsigned char* mac);

    /// The serial of an address: positive inside the production range, negative inside the engineering range
    /// (it wins), else 0. All limits are exclusive.
    static int GetSerialNumber(uint32_t low, uint32_t high, uint32_t engLow, uint32_t engHigh,
                               const unsigned char* mac);
    /// This unit's serial; 0 on an unknown model, after a line on standard error, and without an Ethernet
    /// interface.
    static int GetSerialNumber();

    /// "AL000255  ", or "ENG003 " for a negative serial; at most 19 characters.
    static std::string FormatSerialNumber(int serial, const char* prefix, unsigned int offset);
    /// With the current model's prefix and offset; an unknown model prints a line and uses "XX" and 0.
    static std::string FormatSerialNumber(int serial);
    /// FormatSerialNumber of this unit's serial.
    static std::string GetFormattedSerialNumber();

    /// Eight upper-case hexadecimal digits; "" without a device.
    static std::string GetBoardID(BDX4Device* device);
    static std::string GetBoardID();
};
