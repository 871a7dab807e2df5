/// What was denied to peers, for the operators of the device.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "config/access/server/admission.h"
#include "config/access/server/traffic.h"
#include "config/base/export.h"

namespace vexa::corvalis::config::access {

/// Something that was denied, once or again and again within a minute.
struct Denial {
    timeval time{};  ///< of the first
    uint64_t times = 1;
    std::string
        asked;  ///< "connect", "get", "set", "get_text", "set_text", "get_data", "set_data", "further requests"
    eConfigID_t configID = 0;
    eParam_t param{};   ///< 0: none, as when a peer was not let in, or one that there is not
    std::string value;  ///< that was to be set; asterisks for a password, and never much of a text
    std::string
        who;  ///< as of a change: "tcp 10.0.0.5:51234 ..."; of a peer that was not let in "tcp 10.0.0.5"
    std::string why;
};

/// A peer is not let in: counted, listed, and told in the log once a minute and address, as long as the addresses are
/// not more than are listed. Thread: any.
void DenyPeer(Transport transport, const PeerAddress& peer);

/// A request that a peer may not make.
struct DeniedRequest {
    Transport transport;
    uint32_t type;  ///< of the message
    Right right;    ///< that the peer has
    std::string address;
    std::string who;
};
/// It is counted and listed. @param value  that was to be set; empty: none. Thread: any.
void DenyRequest(const DeniedRequest& request, Config& config, eParam_t id, const std::string& value,
                 Traffic* client);

/// The newest ones, the oldest first. They are few, whatever peers do. Thread: any.
VEXA_EXPORT std::vector<Denial> Denials();
/// How many there have been. Thread: any.
VEXA_EXPORT uint64_t DenialCount();

/// Has further denials told as they are listed, each once a minute and kind.
/// @param watcher  is called on the threads that deny, one at a time, and must not wait; empty: nobody. Thread: any;
/// once it has returned, the earlier one is not called any more.
VEXA_EXPORT void WatchDenials(std::function<void(const Denial&)> watcher);

}  // namespace vexa::corvalis::config::access
