/// LiveClients: the message-queue clients that exist.
#pragma once

#include "config/access/client/queues/posix_mq_client.h"
#include "config/base/live_objects.h"

namespace vexa::config::access {

/// The system starts threads for clients that may be gone by then.
using LiveClients = LiveObjects<PosixMQClient>;

}  // namespace vexa::config::access
