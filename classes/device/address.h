/// Addresses of devices, as people type them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "config/base/export.h"
#include "config/param_ids.h"

namespace vexa {

/// How a device is reached.
enum class Transport : uint8_t { kTcp, kUdp, kQueue, kLocal };

/// The parts of "rec-7", "rec-7:43110", "[fe80::1]:43110", "tcp://10.0.0.7", "udp://10.0.0.7:43110/configid=2",
/// "mq:", "local:" and "local:configid=2".
struct VEXA_EXPORT DeviceAddress {
    /// Where devices serve.
    static constexpr int kUsualPort = 43110;

    Transport transport = Transport::kTcp;  ///< TCP unless the text says otherwise
    std::string host;                       ///< a name or an address, not looked up; empty for mq and local
    int port = kUsualPort;                  ///< without a meaning for mq and local
    eConfigID_t configID = 0;               ///< the number of the configuration on the device

    /// @param reason  why the text is no address, as the end of a sentence. @return nothing then. Thread: any.
    static std::optional<DeviceAddress> Parse(const std::string& text, std::string& reason);
    /// "tcp://rec-7:43110".
    std::string Text() const;
};

}  // namespace vexa
