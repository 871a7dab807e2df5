/// The messages of the network: records, limits and endpoints. Types: config/access/protocol/message_types.h.
///
/// Every word travels big-endian. Payloads follow their record as they are: a value object in the stream
/// format, in the byte order of the host that wrote it, or the bytes of a data value. So two hosts of
/// different byte order understand each other's numbers and data, not their strings. The records are plain
/// values. Thread: any, for the functions.
#pragma once

#include <sys/time.h>

#include "config/access/protocol/message_types.h"
#include "config/access/protocol/wire.h"
#include "config/param_ids.h"

namespace vexa::corvalis::config::access {

inline constexpr int kNetworkPort = 43110;    ///< TCP and UDP requests
inline constexpr int kMulticastPort = 63110;  ///< events over UDP
inline constexpr char kMulticastGroup[] = "239.71.18.33";
inline constexpr char kMulticastInterface[] = "127.0.0.1";  ///< events stay on the device

inline constexpr uint32_t kCapacity = 4096;      ///< in every record; never interpreted
inline constexpr uint32_t kStreamFormat = 3072;  ///< of a payload
inline constexpr uint32_t kEventRequestID = 0xFFFFFFFF;

/// A whole request, or a whole datagram, has at most this many bytes; receive buffers have this size.
inline constexpr uint32_t kMaxMessageBytes = 24 * 1024;
/// The longest payload that a client accepts in a reply over TCP. Values have no limit of their own.
inline constexpr uint32_t kMaxReplyPayload = 1024 * 1024;
/// How long a client waits for a reply, and for the one to its Disconnect request.
inline constexpr unsigned int kReplyTimeoutMs = 60'000;
inline constexpr unsigned int kDisconnectTimeoutMs = 1'000;

// Error codes of responses.
inline constexpr uint32_t kErrorSetRejected = 53;
inline constexpr uint32_t kErrorNoValue = 60;
inline constexpr uint32_t kErrorRefused = 0xFFFFFFFF;

/// The start of every record: six words (24 bytes).
struct MessagePrefix {
    uint32_t msgtype = 0;
    uint32_t connectionID = 0;
    uint32_t requestID = 0;
    eConfigID_t configID = 0;
    uint32_t priority = 0;
    uint32_t capacity = kCapacity;

    static constexpr void Words(auto& self, auto&& codec)
    {
        codec(self.msgtype, self.connectionID, self.requestID, self.configID, self.priority, self.capacity);
    }
};

/// Connect and Disconnect requests.
struct XCONFIGMGR_CONNECTION_REQUEST_T : MessagePrefix {};
static_assert(wire::Size<XCONFIGMGR_CONNECTION_REQUEST_T>() == 24);

/// Connect and Disconnect responses.
struct XCONFIGMGR_CONNECTION_RESPONSE_T : MessagePrefix {
    uint32_t error = 0;

    static constexpr void Words(auto& self, auto&& codec)
    {
        MessagePrefix::Words(self, [&](auto&... prefix) { codec(prefix..., self.error); });
    }
};
static_assert(wire::Size<XCONFIGMGR_CONNECTION_RESPONSE_T>() == 28);

/// Add Listener and Remove Listener requests. Parameter 0 is all parameters.
struct XCONFIGMGR_EVENT_HANDLER_REQUEST_T : MessagePrefix {
    uint32_t paramID = 0;

    static constexpr void Words(auto& self, auto&& codec)
    {
        MessagePrefix::Words(self, [&](auto&... prefix) { codec(prefix..., self.paramID); });
    }
};
static_assert(wire::Size<XCONFIGMGR_EVENT_HANDLER_REQUEST_T>() == 28);

using XCONFIGMGR_EVENT_HANDLER_RESPONSE_T = XCONFIGMGR_CONNECTION_RESPONSE_T;

/// Get and Set requests for numbers, strings and data; `streamLength` payload bytes follow.
struct XCONFIGMGR_REQUEST_T : MessagePrefix {
    eParam_t paramID{};
    uint32_t value = 0;
    uint32_t seconds = 0, microseconds = 0;  ///< when the change was made
    uint32_t streamLength = 0;
    uint32_t streamFormat = 0;  ///< 3072 for a value object, 0 without payload

    static constexpr void Words(auto& self, auto&& codec)
    {
        MessagePrefix::Words(self, [&](auto&... prefix) {
            codec(prefix..., self.paramID, self.value, self.seconds, self.microseconds, self.streamLength,
                  self.streamFormat);
        });
    }
};
inline constexpr uint32_t kRequestBytes = 48;
static_assert(wire::Size<XCONFIGMGR_REQUEST_T>() == kRequestBytes);
inline constexpr uint32_t kMaxRequestPayload = kMaxMessageBytes - kRequestBytes;

/// Responses and events; `streamLength` payload bytes follow.
struct XCONFIGMGR_RESPONSE_T : MessagePrefix {
    eParam_t paramID{};
    uint32_t error = 0;
    uint32_t value = 0;
    uint32_t seconds = 0, microseconds = 0;
    uint32_t streamLength = 0;
    uint32_t streamFormat = 0;

    static constexpr void Words(auto& self, auto&& codec)
    {
        MessagePrefix::Words(self, [&](auto&... prefix) {
            codec(prefix..., self.paramID, self.error, self.value, self.seconds, self.microseconds,
                  self.streamLength, self.streamFormat);
        });
    }
};
inline constexpr uint32_t kResponseBytes = 52;
static_assert(wire::Size<XCONFIGMGR_RESPONSE_T>() == kResponseBytes);
inline constexpr uint32_t kMaxDatagramPayload = kMaxMessageBytes - kResponseBytes;

template <class Record>
auto Encode(const Record& record)
{
    return wire::Encode<wire::NetworkOrder>(record);
}
template <class Record>
bool Decode(const char* data, size_t length, Record& record)
{
    return wire::Decode<wire::NetworkOrder>(data, length, record);
}

/// The change time of a record, whose seconds are unsigned.
template <class Record>
timeval TimeOf(const Record& record)
{
    return {static_cast<time_t>(record.seconds), static_cast<suseconds_t>(record.microseconds)};
}
template <class Record>
void SetTime(Record& record, timeval time)
{
    record.seconds = static_cast<uint32_t>(time.tv_sec);
    record.microseconds = static_cast<uint32_t>(time.tv_usec);
}

/// A response to a request: its prefix, parameter and time, with another type.
inline XCONFIGMGR_RESPONSE_T ResponseFor(const XCONFIGMGR_REQUEST_T& request, eMessageType_t type)
{
    XCONFIGMGR_RESPONSE_T response;
    static_cast<MessagePrefix&>(response) = request;
    response.msgtype = type;
    response.paramID = request.paramID;
    response.seconds = request.seconds;
    response.microseconds = request.microseconds;
    return response;
}

/// Bytes of the record that a message type from a TCP server starts; 0 for a type that no server sends there.
constexpr size_t ReplyRecordBytes(uint32_t type)
{
    switch (type) {
        case XCFG_CONNECT_RESPONSE:
        case XCFG_DISCONNECT_RESPONSE:
        case XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE:
            return wire::Size<XCONFIGMGR_CONNECTION_RESPONSE_T>();
        case XCFG_GET_PARAM_RESPONSE:
        case XCFG_SET_PARAM_RESPONSE:
        case XCFG_GET_STREAM_PARAM_RESPONSE:
        case XCFG_SET_STREAM_PARAM_RESPONSE:
        case XCFG_PARAM_CHANGED_EVENT:
        case XCFG_PARAM_STRING_CHANGED_EVENT:
            return kResponseBytes;
        default:
            return 0;
    }
}

}  // namespace vexa::corvalis::config::access
