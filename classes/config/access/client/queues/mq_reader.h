/// MQReader: reads the response queue of a message-queue connection and passes its messages on.
#pragma once

#include <mqueue.h>

#include <atomic>
#include <functional>
#include <optional>
#include <vector>

#include "config/access/client/queues/mq_message.h"
#include "config/access/io/message_queue.h"
#include "config/access/io/outcome.h"
#include "config/base/mutex.h"
#include "config/delivery/backlog.h"
#include "config/listeners/listener_list.h"

namespace vexa::config::access {

/// Answers and events come through one queue, so one of the waiting threads reads for all: an answer goes to
/// the exchange whose request identifier it carries, an event is kept for delivery. So no thread waits for a
/// message that has already been read, and a callback can exchange messages itself.
///
/// A message that is neither goes to the exchange that waits longest, which fails: the daemon has answered
/// wrongly. A Disconnect Response that answers nothing says that the daemon does not know the connection any
/// more: it is kept as an event is.
/// Thread: any.
class MQReader {
  public:
    /// The wait for one answer. Make it before the request is sent.
    class Exchange {
      public:
        Exchange(MQReader& reader, uint32_t requestID);
        /// A later answer is dropped.
        ~Exchange();
        Exchange(const Exchange&) = delete;
        Exchange& operator=(const Exchange&) = delete;

        /// @return kReceived with the answer; else errno says more. kTimedOut may come early, for a look whether
        /// the daemon is still there.
        Outcome Await(const Deadline& deadline, MQMessage& answer);
        /// The request was not sent, so no answer comes.
        void Cancel() { m_mayCome = false; }

      private:
        friend class MQReader;
        MQReader& m_reader;
        const uint32_t m_requestID;
        bool m_mayCome = true;
        std::optional<MQMessage> m_answer;
    };

    /// A wait for events. While it exists, no delivery takes an event: the waiting thread gets them all.
    class EventWait {
      public:
        explicit EventWait(MQReader& reader);
        ~EventWait();
        EventWait(const EventWait&) = delete;
        EventWait& operator=(const EventWait&) = delete;

        /// @return kReceived when there is an event, unless another thread takes it; kTimedOut for a look, as
        /// above.
        Outcome Await();

      private:
        MQReader& m_reader;
    };

    /// @param queue  borrowed; Stop also sends to it.
    /// @param messageBytes  no message is longer.
    /// @param deliver  starts a delivery of the kept events on another thread. The delivery ends when
    /// NextToDeliver returns false, or with EndDelivery.
    /// @param onLoss  called when events may be missing; under no lock of this object.
    MQReader(mqd_t queue, uint32_t connectionID, size_t messageBytes, std::function<void()> deliver,
             std::function<void()> onLoss);
    ~MQReader();
    MQReader(const MQReader&) = delete;
    MQReader& operator=(const MQReader&) = delete;

    /// Whether events are to be delivered as they come.
    void SetDelivering(bool wanted);
    /// Returns at once if no exchange is going on, else after a while without one. Until then the exchanges
    /// read the events.
    void AwaitQuiet();
    /// Reads all messages that are in the queue, or has the reading thread do so. @return false, with errno.
    bool Drain();
    /// @return true when there are events that no thread delivers: the caller has to deliver them now.
    bool BeginDelivery();
    /// Starts a delivery of the kept events, as if an exchange had read them.
    void DeliverKept();
    /// The next message for the delivering thread. @return false when there is none: the delivery has ended.
    bool NextToDeliver(const ListenerList::Turn& turn, MQMessage& message);
    /// Ends the delivery early; the next event starts another one.
    void EndDelivery();
    /// The next message for an EventWait. @return false when there is none.
    bool TakeEvent(const ListenerList::Turn& turn, MQMessage& message);
    void DropEvents();

    /// Ends all waits, now and later.
    void Stop();
    const std::atomic<bool>& IsStopped() const { return m_stopped; }
    /// Becomes readable at Stop, to end waits elsewhere.
    int WakeDescriptor() const { return m_wake; }

  private:
    void Begin(Exchange* exchange);
    void End(const Exchange* exchange);
    void BeginEventWait();
    void EndEventWait();
    bool IsDone(const Exchange* exchange) const VEXA_REQUIRES(m_lock);
    Outcome Wait(const Exchange* exchange, const Deadline& deadline);
    Outcome WaitOnce(const Deadline& deadline) VEXA_REQUIRES(m_lock);
    Outcome Read(const Deadline* deadline) VEXA_REQUIRES(m_lock);
    ssize_t Receive(bool blocked, const Deadline* deadline);
    Outcome DrainAll() VEXA_REQUIRES(m_lock);
    void ReadAll() VEXA_REQUIRES(m_lock);
    bool Route(MQMessage message) VEXA_REQUIRES(m_lock);
    bool IsGoodbye(const MQMessage& message) const;
    bool IsLate(const MQMessage& message) const VEXA_REQUIRES(m_lock);
    bool Keep(MQMessage message) VEXA_REQUIRES(m_lock);
    bool MayDeliver() const VEXA_REQUIRES(m_lock);
    void StartDelivery() VEXA_REQUIRES(m_lock);

    /// Beyond what a daemon sends for all parameters; one that sends more is not to fill the memory.
    static constexpr size_t kMaxEventBytes = size_t{16} * 1024 * 1024;

    const mqd_t m_queue;
    const uint32_t m_connectionID;
    const mqd_t m_blockingQueue;  // the same queue, for waits without a limit; -1: could not be opened
    const int m_wake;             // an eventfd
    const std::function<void()> m_deliver, m_onLoss;
    std::atomic<bool> m_stopped = false;

    Mutex m_lock;
    CondVar m_changed;
    bool m_reading VEXA_GUARDED_BY(m_lock) = false;    // a thread reads from the queue
    bool m_blocked VEXA_GUARDED_BY(m_lock) = false;    // in a call that m_wake does not end
    bool m_readAgain VEXA_GUARDED_BY(m_lock) = false;  // the reading thread is to read all that is there
    CondVar m_stopChanged;
    uint32_t m_exchangesBegun VEXA_GUARDED_BY(m_lock) = 0;
    std::vector<Exchange*> m_exchanges
        VEXA_GUARDED_BY(m_lock);  // oldest first; each on the stack of its thread
    std::optional<uint32_t> m_abandoned
        VEXA_GUARDED_BY(m_lock);  // the last request whose answer is not awaited any more
    Backlog<MQMessage> m_events VEXA_GUARDED_BY(m_lock){kMaxEventBytes};
    bool m_deliveryWanted VEXA_GUARDED_BY(m_lock) = false;
    bool m_delivering VEXA_GUARDED_BY(m_lock) = false;
    unsigned int m_eventWaits VEXA_GUARDED_BY(m_lock) = 0;

    std::vector<char> m_buffer;  // of the reading thread
};

}  // namespace vexa::config::access
