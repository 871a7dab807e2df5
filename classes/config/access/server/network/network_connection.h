/// NetworkConnection: the common part of the server's TCP and UDP connections.
#pragma once

#include <sys/time.h>

#include <string>

#include "config/access/protocol/network_protocol.h"
#include "config/access/server/peer_stores.h"
#include "config/base/log.h"

class Config;
class ConfigValue;

namespace vexa::corvalis::config::access {

/// Thread: the connection's.
class NetworkConnection {
  public:
    virtual ~NetworkConnection() = default;

    /// Stores a number or a text under the parameter that the value itself names.
    /// @param value  borrowed. Null, as for a payload without a value, is refused like a foreign class.
    /// @return the store's answer; false, after one line, for any other class.
    bool DoSetRequest(Config* config, ConfigValue* value, timeval time);

  protected:
    /// Has a text or data stored, if there is room for what peers store. @return false after one line, or the
    /// store's answer.
    template <class Store>
    static bool SetText(Config& config, eParam_t id, size_t bytes, const Store& store)
    {
        PeerText text(config, id, bytes);
        if (!text.HasRoom())
            return Report("NetworkConnection::SetText - no room for another text (ParamID:0x%0x)\n", id);
        if (!store()) return false;
        text.Keep();
        return true;
    }

    /// The number or text of a value, for people.
    static std::string TextOf(ConfigValue& value);
    /// The answer to a request without value: its prefix, and no error.
    static XCONFIGMGR_CONNECTION_RESPONSE_T Confirmation(const MessagePrefix& request, eMessageType_t type);
    /// An answer without payload. An error of 0 is the caller's mistake: a warning, and it is sent as it is.
    static XCONFIGMGR_RESPONSE_T ErrorResponse(const XCONFIGMGR_REQUEST_T& request, eMessageType_t type,
                                               uint32_t error);
};

}  // namespace vexa::corvalis::config::access
