/// MQConnection: the requests of one message-queue connection and their answers.
#pragma once

#include <mqueue.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "config/access/client/queues/exchange_lock.h"
#include "config/access/client/queues/mq_reader.h"
#include "config/access/io/left_queues.h"

namespace vexa::config::access {

/// Thread: any.
class MQConnection {
  public:
    /// @param requests  the daemon's queue, borrowed. @param responses  the client's, owned from now on.
    /// @param deliver  starts a delivery of events, as MQReader says.
    /// @param tell  called with whether the daemon can be reached, whenever that has turned out.
    /// A queue that cannot be asked for its message size ends the process.
    MQConnection(unsigned int id, unsigned int messagePriority, mqd_t requests, mqd_t responses,
                 std::shared_ptr<SharedExchanges> shared, std::function<void()> deliver,
                 std::function<void(bool)> tell);
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
        return Exchange(request, "", Deadline(m_replyTimeout), answer);
    }
    /// The same for a value, one at a time over all connections of the factory. @param stream  follows the
    /// record.
    Outcome ExchangeValue(XCONFIGMGR_REQUEST_T& request, const std::string& stream, MQMessage& answer);
    MQReader& Reader() { return m_reader; }
    /// Ends all waits, now and later.
    void Stop();

    /// False after an exchange without an answer, and when events may be missing, until one is answered.
    void SetReachable(bool reachable);
    /// Whether the queues of both ends still have their names. Else no message comes any more.
    bool IsLinked() const { return HasName(requestQueue) && HasName(responseQueue); }
    /// In milliseconds. Default no limit.
    void SetReplyTimeout(unsigned int timeout) { m_replyTimeout = timeout; }

  private:
    template <class Record>
    Outcome Exchange(Record& request, const std::string& stream, const Deadline& deadline, MQMessage& answer)
    {
        request.info.requestID = m_shared->nextRequestID++;
        return ExchangeBytes(request.info.requestID, wire::Bytes<wire::HostOrder>(request, stream), deadline,
                             answer);
    }
    Outcome ExchangeBytes(uint32_t requestID, const std::string& bytes, const Deadline& deadline,
                          MQMessage& answer);
    Outcome SendAndAwait(MQReader::Exchange& exchange, const std::string& bytes, const Deadline& deadline,
                         MQMessage& answer);
    bool Send(const std::string& bytes, const Deadline& deadline);

    const std::shared_ptr<SharedExchanges> m_shared;
    MQReader m_reader;
    std::atomic<unsigned int> m_replyTimeout = Deadline::kNever;
    const std::function<void(bool)> m_tell;
    std::atomic<bool> m_reachable = true;
};

}  // namespace vexa::config::access
