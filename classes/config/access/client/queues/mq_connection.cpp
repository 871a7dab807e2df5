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
                           std::shared_ptr<SharedExchanges> shared, std::function<void()> deliver,
                           std::function<void(bool)> tell)
    : connectionID(id),
      priority(messagePriority),
      requestQueue(requests),
      responseQueue(responses),
      m_shared(std::move(shared)),
      m_reader(responseQueue, connectionID, MessageBytes(responseQueue), std::move(deliver),
               [this] { SetReachable(false); }),
      m_tell(std::move(tell))
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

void MQConnection::SetReachable(bool reachable)
{
    if (m_reader.IsStopped()) return;
    m_reachable = reachable;
    m_tell(reachable);
}

Outcome MQConnection::ExchangeBytes(uint32_t requestID, const std::string& bytes, const Deadline& deadline,
                                    MQMessage& answer)
{
    MQReader::Exchange exchange(m_reader, requestID);
    const Outcome outcome = SendAndAwait(exchange, bytes, deadline, answer);
    const int error = errno;
    SetReachable(outcome == Outcome::kReceived);
    errno = error;
    return outcome;
}

Outcome MQConnection::SendAndAwait(MQReader::Exchange& exchange, const std::string& bytes,
                                   const Deadline& deadline, MQMessage& answer)
{
    if (m_reader.IsStopped()) {  // nothing may follow the Disconnect request
        errno = ECANCELED;
        exchange.Cancel();
        return Outcome::kNotSent;
    }
    if (!m_reachable) ReopenIfRemoved(kRequestQueue, requestQueue);
    if (!Send(bytes, deadline)) {
        exchange.Cancel();
        return Outcome::kNotSent;
    }
    for (;;) {
        const Outcome outcome = exchange.Await(deadline, answer);
        if (outcome == Outcome::kReceived) return outcome;
        if (outcome != Outcome::kTimedOut || deadline.IsOver()) return Outcome::kFailed;
        if (IsLinked()) continue;
        errno = EIDRM;
        return Outcome::kFailed;
    }
}

bool MQConnection::Send(const std::string& bytes, const Deadline& deadline)
{
    do {
        if (SendMessage(requestQueue, bytes.data(), bytes.size(), priority, deadline,
                        m_reader.WakeDescriptor()))
            return true;
    } while (errno == ETIMEDOUT && !deadline.IsOver() && IsLinked());
    return false;
}

Outcome MQConnection::ExchangeValue(XCONFIGMGR_REQUEST_T& request, const std::string& stream,
                                    MQMessage& answer)
{
    const Deadline deadline(m_replyTimeout);
    const ExchangeLock::Turn turn(m_shared->lock, this, m_reader.IsStopped(), deadline);
    if (turn) return Exchange(request, stream, deadline, answer);
    SetReachable(false);
    errno = m_reader.IsStopped() ? ECANCELED : ETIMEDOUT;
    return Outcome::kNotSent;
}

}  // namespace vexa::config::access
