/// The stores of this process that network servers open on behalf of their clients.
#pragma once

#include <cstddef>

#include "config/base/export.h"
#include "config/param_ids.h"

class Config;

namespace vexa::corvalis::config::access {

/// A peer may name any configuration, and each costs a whole store. So this many different stores are open at
/// a time, for all servers of the process together; applications in the process have no such limit.
inline constexpr size_t kMaxPeerStores = 64;
/// Those of one UDP server: its clients need not be there at all, and those over TCP must find some left.
inline constexpr size_t kMaxDatagramPeerStores = 32;

/// The store of a configuration. Close each store that was opened. Thread: any; hold no lock.
/// @return null when too many others are open or the connector has none.
VEXA_EXPORT Config* OpenPeerStore(eConfigID_t configID);
/// The store must not be used any more. Null is ignored. Thread: any; hold no lock.
VEXA_EXPORT void ClosePeerStore(Config* config);

}  // namespace vexa::corvalis::config::access
