#include "config/access/client/queues/mq_connection.h"

#include <cerrno>
#include <cstdlib>

#include "config/access/io/connection_utilities.h"
#include "config/base/log.h"

namespace vexa::config::access {

namespace {

size_t MessageBytes(mqd_t queue)
{
    mq_attr attributes{};
    if (mq_getattr(queue, &attributes) == 0) return static_cast<size_t>(attributes.mq_msgsize);
    PrintError("PosixMQClient::PosixMQClient - mq_getattr failed");
    Print("PosixMQClient::PosixMQClient - mq_getattr failed");
    exit(1);
}

}  // namespace

MQConnection::MQConnection(unsigned int id, unsigned int messagePriority, mqd_t requests, mqd_t responses,
                           std::shared_ptr<SharedExchanges> shared, std::function<void()> deliver)
    : connectionID(id),
      priority(messagePriority),
      requestQueue(requests),
      responseQueue(responses),
      m_shared(std::move(shared)),
      m_reader(responseQueue, ConnectionUtilities::GetQueueName(connectionID), MessageBytes(responseQueue),
               std::move(deliver))
{
}

MQConnection::~MQConnection()
{
    mq_close(responseQueue);
}

void MQConnection::Stop()
{
    m_reader.Stop();
    m_shared->lock.End(this);
}

Outcome MQConnection::ExchangeBytes(uint32_t requestID, const std::string& bytes, MQMessage& answer)
{
    const Deadline deadline(m_replyTimeout);
    MQReader::Exchange exchange(m_reader, requestID);
    Outcome outcome = Outcome::kReceived;
    if (m_reader.IsStopped()) {  // nothing may follow the Disconnect request
        errno = ECANCELED;
        exchange.Cancel();
        outcome = Outcome::kNotSent;
    } else if (!SendMessage(requestQueue, bytes.data(), bytes.size(), priority, deadline,
                            m_reader.WakeDescriptor())) {
        exchange.Cancel();
        outcome = Outcome::kNotSent;
    } else if (exchange.Await(deadline, answer) != Outcome::kReceived) {
        outcome = Outcome::kFailed;
    }
    m_reachable = outcome == Outcome::kReceived;
    return outcome;
}

Outcome MQConnection::ExchangeValue(XCONFIGMGR_REQUEST_T& request, const std::string& stream,
                                    MQMessage& answer)
{
    const ExchangeLock::Turn turn(m_shared->lock, this, m_reader.IsStopped());
    if (turn) return Exchange(request, stream, answer);
    errno = ECANCELED;
    return Outcome::kNotSent;
}

}  // namespace vexa::config::access
