/// What both ends of the message queues share beside the records.
#pragma once

#include <string>

#include "config/access/protocol/mq_protocol.h"

namespace vexa::config::access {

/// Thread: any.
class ConnectionUtilities {
  public:
    /// Of a connection's response queue: "/mqd_4464_3".
    static std::string GetQueueName(unsigned int connectionID);
    /// Whether a response belongs to a request, but for its type and priority. A difference prints one line.
    static bool IsValidResponse(MQMessageInfo_t request, MQMessageInfo_t response);
    /// The program of a process, for log lines. The first question about a process is always answered with an
    /// empty text, later ones with its name.
    static std::string GetPIDName(unsigned int pid);
};

/// @return whether the response says success.
bool HandleErrorResponse(const XCONFIGMGR_RESPONSE_T* response);

}  // namespace vexa::config::access
