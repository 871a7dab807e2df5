/// The messages of the queues between applications and the daemon of one device: records and names.
/// Types: config/access/protocol/message_types.h.
///
/// Every word has the byte order of the host, which both sides share. The records have the names of those of
/// the network (network_protocol.h), but other layouts. They are plain values. Thread: any, for the
/// functions.
#pragma once

#include <mqueue.h>
#include <sys/time.h>

#include "config/access/protocol/message_types.h"
#include "config/access/protocol/wire.h"
#include "config/param_ids.h"

namespace vexa::config::access {

/// Requests of all clients. Each client has a queue of its own for responses and events.
inline constexpr char kRequestQueue[] = "/mainstay";
inline constexpr mode_t kQueueMode = 0770;
inline constexpr long kQueueDepth = 128;         ///< messages, where the system allows it
inline constexpr long kQueueMessageBytes = 512;  ///< at most, likewise
/// The format of the stream in a message.
inline constexpr uint32_t kQueueStreamFormat = 0xA00;

/// The request identifier of a Disconnect Response that answers no request: the daemon does not know the
/// connection any more.
inline constexpr uint32_t kQueueUnasked = 0xFFFFFFFF;

// Error codes of responses; 0 is success.
inline constexpr uint32_t kQueueErrorRefused = 53;  ///< by the store, or an unknown parameter
inline constexpr uint32_t kQueueErrorNoValue = 60;  ///< none, or one that no message can hold
inline constexpr uint32_t kQueueErrorNotServed = 0xFFFFFFFF;

/// The words that tie a response to its request.
struct MQMessageInfo_t {
    uint32_t connectionID = 0;  ///< low half of the process identifier, then the connection's number
    uint32_t requestID = 0;
    eConfigID_t configID = 0;
    uint32_t priority = 0;

    static constexpr void Words(auto& self, auto&& codec)
    {
        codec(self.connectionID, self.requestID, self.configID, self.priority);
    }
};

/// Connect and Disconnect requests (20 bytes), and the head of every message.
struct XCONFIGMGR_CONNECTION_REQUEST_T {
    uint32_t msgtype = 0;
    MQMessageInfo_t info;

    static constexpr void Words(auto& self, auto&& codec)
    {
        MQMessageInfo_t::Words(self.info, [&](auto&... words) { codec(self.msgtype, words...); });
    }
};
static_assert(wire::Size<XCONFIGMGR_CONNECTION_REQUEST_T>() == 20);

/// Connect and Disconnect responses (24 bytes).
struct XCONFIGMGR_CONNECTION_RESPONSE_T : XCONFIGMGR_CONNECTION_REQUEST_T {
    uint32_t error = 0;

    static constexpr void Words(auto& self, auto&& codec)
    {
        XCONFIGMGR_CONNECTION_REQUEST_T::Words(self, [&](auto&... head) { codec(head..., self.error); });
    }
};
static_assert(wire::Size<XCONFIGMGR_CONNECTION_RESPONSE_T>() == 24);

/// Add and Remove Listener requests (24 bytes).
struct XCONFIGMGR_EVENT_HANDLER_REQUEST_T : XCONFIGMGR_CONNECTION_REQUEST_T {
    uint32_t paramID = 0;  ///< 0: all

    static constexpr void Words(auto& self, auto&& codec)
    {
        XCONFIGMGR_CONNECTION_REQUEST_T::Words(self, [&](auto&... head) { codec(head..., self.paramID); });
    }
};
static_assert(wire::Size<XCONFIGMGR_EVENT_HANDLER_REQUEST_T>() == 24);

/// Get and Set requests for numbers and texts; `streamLength` bytes of stream follow.
struct XCONFIGMGR_REQUEST_T : XCONFIGMGR_CONNECTION_REQUEST_T {
    eParam_t paramID{};
    uint32_t value = 0;
    uint32_t streamLength = 0;
    uint32_t streamFormat = 0;

    static constexpr void Words(auto& self, auto&& codec)
    {
        XCONFIGMGR_CONNECTION_REQUEST_T::Words(self, [&](auto&... head) {
            codec(head..., self.paramID, self.value, self.streamLength, self.streamFormat);
        });
    }
};
inline constexpr size_t kQueueRequestBytes = 36;
static_assert(wire::Size<XCONFIGMGR_REQUEST_T>() == kQueueRequestBytes);

/// Responses and events; `streamLength` bytes of stream follow.
struct XCONFIGMGR_RESPONSE_T : XCONFIGMGR_CONNECTION_REQUEST_T {
    uint32_t listenerError = 0;  ///< of Add and Remove Listener responses, which carry it in `error` as well
    eParam_t paramID{};
    uint32_t seconds = 0, microseconds = 0;  ///< of the last update
    uint32_t error = 0;
    uint32_t value = 0;
    uint32_t streamLength = 0;
    uint32_t streamFormat = 0;

    static constexpr void Words(auto& self, auto&& codec)
    {
        XCONFIGMGR_CONNECTION_REQUEST_T::Words(self, [&](auto&... head) {
            codec(head..., self.listenerError, self.paramID, self.seconds, self.microseconds, self.error,
                  self.value, self.streamLength, self.streamFormat);
        });
    }
};
inline constexpr size_t kQueueResponseBytes = 52;
static_assert(wire::Size<XCONFIGMGR_RESPONSE_T>() == kQueueResponseBytes);

/// Field by field: a `timeval` is larger than the two words on most hosts.
inline timeval TimeOf(const XCONFIGMGR_RESPONSE_T& response)
{
    return {static_cast<time_t>(response.seconds), static_cast<suseconds_t>(response.microseconds)};
}
inline void SetTime(XCONFIGMGR_RESPONSE_T& response, timeval time)
{
    response.seconds = static_cast<uint32_t>(time.tv_sec);
    response.microseconds = static_cast<uint32_t>(time.tv_usec);
}

}  // namespace vexa::config::access
