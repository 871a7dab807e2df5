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

/// Bytes of the texts and data that peers have in stores other than 0, for all of them together: store 0 has its
/// own limit, the catalogue.
inline constexpr size_t kMaxPeerTextBytes = size_t{16} * 1024 * 1024;

/// Room for a text, or data, that a peer is about to have stored. Thread: any.
class PeerText {
  public:
    /// @param config  from OpenPeerStore. @param bytes  of the value, in place of what the parameter has.
    PeerText(Config& config, eParam_t id, size_t bytes);
    /// Gives the room back, unless the value was stored.
    ~PeerText();
    PeerText(const PeerText&) = delete;
    PeerText& operator=(const PeerText&) = delete;

    /// Whether the value may be stored.
    bool HasRoom() const { return m_hasRoom; }
    /// The value is stored: it counts as long as the store is open.
    void Keep();

  private:
    const eConfigID_t m_configID;
    const eParam_t m_id;
    const size_t m_bytes;
    bool m_hasRoom = true, m_isStored = false;
};

/// Is told which stores peers use. Both operations may use the store; neither may open or close it.
/// Thread: the one that opens or closes the store, one at a time for each store.
class PeerStoreWatcher {
  public:
    virtual ~PeerStoreWatcher() = default;

    /// The store gets its first peer, which cannot use it before this returns.
    virtual void Opened(Config& store) = 0;
    /// The last peer has left, and the store is about to be released. Other users of this process may keep it.
    virtual void Closing(Config& store) = 0;
};

/// Has the openings and closings of stores told. Those that are open already are told at once.
/// @param watcher  borrowed. Null ends it: the watcher is told that each open store closes, and is not called any
/// more after that. Thread: one; hold no lock.
VEXA_EXPORT void WatchPeerStores(PeerStoreWatcher* watcher);

/// The store of a configuration. Close each store that was opened. Thread: any; hold no lock.
/// @return null when too many others are open or the connector has none.
VEXA_EXPORT Config* OpenPeerStore(eConfigID_t configID);
/// The store must not be used any more. Null is ignored. Thread: any; hold no lock.
VEXA_EXPORT void ClosePeerStore(Config* config);

}  // namespace vexa::corvalis::config::access
