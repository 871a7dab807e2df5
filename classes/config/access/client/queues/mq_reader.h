/// MQReader: who reads from the response queue of a message-queue connection, and what becomes of it.
#pragma once

#include <mqueue.h>

#include <atomic>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "config/access/client/queues/mq_message.h"
#include "config/access/io/message_queue.h"
#include "config/access/io/outcome.h"
#include "config/base/event_queue.h"
#include "config/base/mutex.h"

namespace vexa::config::access {

/// Answers and events come through one queue, so whoever waits for something reads for all: a message that
/// carries the identifier of a request goes to the exchange that waits for it, an event is kept for delivery.
/// Nobody waits for what is already there, and a callback can exchange messages itself.
///
/// A message that is neither fails the exchange that waits longest: the daemon has answered wrongly.
/// Thread: any.
class MQReader {
  public:
    /// The wait for one answer. Make it before the request is sent.
    class Exchange {
      public:
        Exchange(MQReader& reader, uint32_t requestID);
        /// An answer that comes later is dropped.
        ~Exchange();
        Exchange(const Exchange&) = delete;
        Exchange& operator=(const Exchange&) = delete;

        /// @return kReceived with the answer; else errno says more.
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

    /// A wait for events. Meanwhile it has them before anybody else.
    class EventWait {
      public:
        explicit EventWait(MQReader& reader);
        ~EventWait();
        EventWait(const EventWait&) = delete;
        EventWait& operator=(const EventWait&) = delete;

        /// @return kReceived when there is an event, unless another thread takes it.
        Outcome Await();

      private:
        MQReader& m_reader;
    };

    /// @param queue  borrowed; for sending, too.
    /// @param name  of the queue.
    /// @param messageBytes  no message is longer.
    /// @param deliver  has the events delivered soon, on another thread, up to a NextToDeliver that says false
    /// or to EndDelivery.
    MQReader(mqd_t queue, const std::string& name, size_t messageBytes, std::function<void()> deliver);
    ~MQReader();
    MQReader(const MQReader&) = delete;
    MQReader& operator=(const MQReader&) = delete;

    /// Whether events are to be delivered as they come.
    void SetDelivering(bool wanted);
    /// Returns at once unless an exchange is going on; else after a while without any. Until then exchanges
    /// find the events.
    void AwaitQuiet();
    /// Keeps what is in the queue, or has it kept by the one who reads. @return false, with errno.
    bool Drain();
    /// @return whether there is something to deliver and no thread at it: the caller is, now.
    bool BeginDelivery();
    /// Has the events that are kept delivered, as if an exchange had met them.
    void DeliverKept();
    /// The next message for the one who delivers. @return false when there is none: the delivery has ended.
    bool NextToDeliver(MQMessage& message);
    /// Gives the delivery up; the next event starts another one.
    void EndDelivery();
    /// The next message for an EventWait. @return false when there is none.
    bool TakeEvent(MQMessage& message);
    void DropEvents();

    /// Ends all waits, now and later.
    void Stop();
    const std::atomic<bool>& IsStopped() const { return m_stopped; }
    /// Becomes readable with Stop, for waits elsewhere.
    int WakeDescriptor() const { return m_wake; }

  private:
    bool IsDone(const Exchange* exchange) const VEXA_REQUIRES(m_lock);
    Outcome Wait(const Exchange* exchange, const Deadline& deadline);
    Outcome WaitOnce(const Deadline& deadline) VEXA_REQUIRES(m_lock);
    Outcome Read(const Deadline* deadline) VEXA_REQUIRES(m_lock);
    ssize_t Receive(bool blocked, const Deadline* deadline);
    Outcome DrainAll() VEXA_REQUIRES(m_lock);
    void ReadAll() VEXA_REQUIRES(m_lock);
    void Route(MQMessage message) VEXA_REQUIRES(m_lock);
    void Keep(MQMessage message) VEXA_REQUIRES(m_lock);
    bool MayDeliver() const VEXA_REQUIRES(m_lock);
    void StartDelivery() VEXA_REQUIRES(m_lock);

    const mqd_t m_queue;
    const mqd_t m_blockingQueue;  // the same queue, for waits without a limit; -1: could not be opened
    const int m_wake;             // an eventfd
    const std::function<void()> m_deliver;
    std::atomic<bool> m_stopped = false;

    Mutex m_lock;
    CondVar m_changed;
    bool m_reading VEXA_GUARDED_BY(m_lock) = false;    // a thread reads from the queue
    bool m_blocked VEXA_GUARDED_BY(m_lock) = false;    // and does not hear m_wake
    bool m_readAgain VEXA_GUARDED_BY(m_lock) = false;  // the reading thread is to read all that is there
    CondVar m_stopChanged;
    uint32_t m_exchangesBegun VEXA_GUARDED_BY(m_lock) = 0;
    std::vector<Exchange*> m_exchanges
        VEXA_GUARDED_BY(m_lock);  // oldest first; each on the stack of its thread
    std::deque<uint32_t> m_abandoned
        VEXA_GUARDED_BY(m_lock);  // requests whose answer is not awaited any more
    EventQueue<MQMessage> m_events VEXA_GUARDED_BY(m_lock){"PosixMQClient"};
    bool m_deliveryWanted VEXA_GUARDED_BY(m_lock) = false;
    bool m_delivering VEXA_GUARDED_BY(m_lock) = false;
    unsigned int m_eventWaits VEXA_GUARDED_BY(m_lock) = 0;

    std::vector<char> m_buffer;  // of the thread that reads
};

}  // namespace vexa::config::access
