/// The message types of both transports, message queues and network: one table of codes and names.
#pragma once

#include <cstdint>

/// Word 0 of every message. A peer may send any 32-bit number.
enum eMessageType_t : uint32_t {
#define MESSAGE(code, symbol, name) symbol = code,
#include "config/access/protocol/message_types.inc"
#undef MESSAGE
};

/// The code that answers a request. Data requests have codes of their own.
constexpr uint32_t ResponseTo(eMessageType_t request)
{
    return request + 16;
}
static_assert(ResponseTo(XCFG_CONNECT_REQUEST) == XCFG_CONNECT_RESPONSE);
static_assert(ResponseTo(XCFG_DISCONNECT_REQUEST) == XCFG_DISCONNECT_RESPONSE);
static_assert(ResponseTo(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST) == XCFG_ADD_CONFIG_EVENT_LISTENER_RESPONSE);
static_assert(ResponseTo(XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST) ==
              XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE);
static_assert(ResponseTo(XCFG_GET_PARAM_REQUEST) == XCFG_GET_PARAM_RESPONSE);
static_assert(ResponseTo(XCFG_SET_PARAM_REQUEST) == XCFG_SET_PARAM_RESPONSE);
static_assert(ResponseTo(XCFG_GET_STREAM_PARAM_REQUEST) == XCFG_GET_STREAM_PARAM_RESPONSE);
static_assert(ResponseTo(XCFG_SET_STREAM_PARAM_REQUEST) == XCFG_SET_STREAM_PARAM_RESPONSE);
static_assert(ResponseTo(XCFG_POPULATE_PARAM_REQUEST) == XCFG_POPULATE_PARAM_RESPONSE);

/// Whether the message is an event: it reports a change and answers no request.
constexpr bool IsEvent(uint32_t code)
{
    return code == XCFG_PARAM_CHANGED_EVENT || code == XCFG_PARAM_STRING_CHANGED_EVENT ||
           code == XCFG_PARAM_DATA_CHANGED_EVENT;
}

/// For logs: "Get Request". Empty for an unknown code. Thread: any.
const char* GetMessageName(uint32_t code);
