/// MQConnection: the requests of one message-queue connection and their answers.
#pragma once

#include <mqueue.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "config/access/client/queues/exchange_lock.h"
#include "config/access/client/queues/mq_reader.h"

namespace vexa::config::access {

/// Thread: any.
class MQConnection {
  public:
    /// @param requests  the daemon's queue, borrowed. @param responses  the client's, owned from now on.
    /// @param deliver  starts a delivery of events, as MQReader says.
    /// A queue that cannot be asked for its message size ends the process.
    MQConnection(unsigned int id, unsigned int messagePriority, mqd_t requests, mqd_t responses,
                 std::shared_ptr<SharedExchanges> shared, std::function<void()> deliver);
    ~MQConnection();
    MQConnection(const MQConnection&) = delete;
    MQConnection& operator=(const MQConnection&) = delete;

    const unsigned int connectionID;
    const unsigned int priority;
    const mqd_t requestQueue;
    const mqd_t responseQueue;

    /// The words that tie a request of this connection to its answer, without the request's number.
    MQMessageInfo_t Info(eConfigID_t configID) const { return {connectionID, 0, configID, priority}; }
    /// Numbers and sends a request and waits for its answer. @return kReceived; else kNotSent or kFailed,
    /// with errno.
    template <class Record>
    Outcome Exchange(Record& request, MQMessage& answer)
    {
        return Exchange(request, "", answer);
    }
    /// The same for a value, one at a time over all connections of the factory. @param stream  follows the
    /// record.
    Outcome ExchangeValue(XCONFIGMGR_REQUEST_T& request, const std::string& stream, MQMessage& answer);
    MQReader& Reader() { return m_reader; }
    /// Ends all waits, now and later.
    void Stop();

    /// False after an exchange without an answer, until one is answered.
    bool IsReachable() const { return m_reachable; }
    void SetUnreachable() { m_reachable = false; }
    /// In milliseconds. Default no limit.
    void SetReplyTimeout(unsigned int timeout) { m_replyTimeout = timeout; }

  private:
    template <class Record>
    Outcome Exchange(Record& request, const std::string& stream, MQMessage& answer)
    {
        request.info.requestID = m_shared->nextRequestID++;
        return ExchangeBytes(request.info.requestID, wire::Bytes<wire::HostOrder>(request, stream), answer);
    }
    Outcome ExchangeBytes(uint32_t requestID, const std::string& bytes, MQMessage& answer);

    const std::shared_ptr<SharedExchanges> m_shared;
    MQReader m_reader;
    std::atomic<unsigned int> m_replyTimeout = Deadline::kNever;
    std::atomic<bool> m_reachable = true;
};

}  // namespace vexa::config::access
