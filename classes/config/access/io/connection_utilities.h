/// Helpers for both ends of the message queues: queue names and the check of responses.
#pragma once

#include <string>

#include "config/access/protocol/mq_protocol.h"

namespace vexa::config::access {

/// Thread: any.
class ConnectionUtilities {
  public:
    /// The name of a connection's response queue: "/mqd_4464_3".
    static std::string GetQueueName(unsigned int connectionID);
    /// Whether a response belongs to a request, but for its type and priority. A difference prints one line.
    static bool IsValidResponse(MQMessageInfo_t request, MQMessageInfo_t response);
    /// The program of a process, for log lines. The first question about a process is always answered with an
    /// empty text, later ones with its name.
    static std::string GetPIDName(unsigned int pid);
};

/// @return whether the response reports success. Thread: any.
bool HandleErrorResponse(const XCONFIGMGR_RESPONSE_T* response);

}  // namespace vexa::config::access
