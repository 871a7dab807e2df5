/// The queue of a client.
#pragma once

#include <fcntl.h>

#include <algorithm>

#include "config/access/io/connection_utilities.h"
#include "config/access/io/message_queue.h"
#include "fuzz/harness.h"

namespace mq = vexa::config::access;

/// Of process 1, which always lives: queues of ended processes may be removed.
constexpr uint32_t kConnection = 1 << 16 | 1;

inline std::string ClientQueueName()
{
    return mq::ConnectionUtilities::GetQueueName(kConnection);
}

/// A new one.
inline mqd_t MakeClientQueue()
{
    mq_unlink(ClientQueueName().c_str());
    const mqd_t queue = mq::CreateQueue(ClientQueueName(), O_RDWR);
    Require(queue != -1, "there is a queue");
    return queue;
}

/// Sends as much of a message as the queue takes, if it has room now.
inline void SendNow(mqd_t queue, const std::string& message)
{
    mq_attr attributes{};
    mq_getattr(queue, &attributes);
    const size_t length = std::min(message.size(), static_cast<size_t>(attributes.mq_msgsize));
    mq::SendMessage(queue, message.data(), length, 0, vexa::Deadline(0));
}

template <class Record>
std::string RecordBytes(const Record& record)
{
    return vexa::wire::Bytes<vexa::wire::HostOrder>(record);
}
