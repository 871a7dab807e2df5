/// ChangeFeed: the changes of one store for all TCP clients that listen to it.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "config/access/protocol/network_protocol.h"
#include "config/base/mutex.h"
#include "config/config_event_listener.h"
#include "config/delivery/backlog.h"

class Config;

namespace vexa::corvalis::config::access {

class TcpStream;

/// A thread that changes the store only adds the event here; however many clients listen, it is encoded once
/// and waits for none of them. The events are sent on the feed's thread, or by a connection's thread that has
/// used its input up: each client gets all that there is for it in one piece.
///
/// Registered with the store until its destruction. Thread: any.
class ChangeFeed final : public ConfigEventListener, public std::enable_shared_from_this<ChangeFeed> {
  public:
    /// As it is sent, but for the words of the receiver.
    struct Event {
        std::array<char, kResponseBytes> record;
        std::string payload;

        size_t Size() const { return record.size() + payload.size(); }
    };
    using Position = Backlog<Event>::Position;
    /// History of all feeds together, beyond which each that gets an event keeps only a little, store 0 excepted:
    /// peers may listen to kMaxPeerStores stores and have them all changed.
    static constexpr size_t kAllHistoryBytes = size_t{32} * 1024 * 1024,
                            kLittleHistoryBytes = size_t{512} * 1024;
    /// Events leave at the latest when there are so many bytes of them.
    static constexpr size_t kBatchBytes = size_t{64} * 1024;

    /// Successive events in one piece. Two words of each are the receiver's own.
    class Batch {
      public:
        const std::string& Bytes() const { return m_bytes; }
        /// Whether it holds the events behind a position.
        bool Follows(Position position) const { return m_from == position && !m_begins.empty(); }
        bool BeginsWithText() const;
        size_t EventCount() const { return m_begins.size(); }
        void Address(uint32_t connectionID, eConfigID_t configID);

      private:
        friend class ChangeFeed;
        Position m_from = 0, m_to = 0;
        uint64_t m_missed = 0;
        std::string m_bytes;
        std::vector<size_t> m_begins;
    };

    /// While it lives, the changes that this thread makes to one store wait for each other, up to kBatchBytes:
    /// for a thread that answers requests which have already arrived. One per thread.
    class Gathering {
      public:
        Gathering();
        ~Gathering();
        Gathering(const Gathering&) = delete;
        Gathering& operator=(const Gathering&) = delete;

        /// The store, which this thread keeps open; null: none. Delivers what the one before has. Without a
        /// gathering it does nothing.
        static void SetStore(const Config* config);
        static bool HasEvents();
        /// Has the events delivered. Hold no lock.
        static void Deliver();

      private:
        friend class ChangeFeed;
        bool Holds(ChangeFeed& feed, size_t bytes);
        const Config* m_config = nullptr;    // a feed of another store might outlive it here
        std::shared_ptr<ChangeFeed> m_feed;  // that has events of this thread
        size_t m_bytes = 0;
    };

    /// The feed of a store, made if there is none. It must end before the store does. Throws when there is no
    /// memory or no thread.
    /// @param payloadOrder  of texts. @param hasPasswords  false: for clients that must not see any.
    static std::shared_ptr<ChangeFeed> Of(Config& config, std::endian payloadOrder, bool hasPasswords = true);
    /// Use Of.
    ChangeFeed(Config& config, std::endian payloadOrder, bool hasPasswords);
    /// Hold no lock.
    ~ChangeFeed() override;
    ChangeFeed(const ChangeFeed&) = delete;
    ChangeFeed& operator=(const ChangeFeed&) = delete;

    /// @return the position behind which the receiver's events begin.
    Position Add(const std::shared_ptr<TcpStream>& receiver);
    void Remove(const TcpStream* receiver);
    /// The number of the newest event.
    Position End() const { return m_end; }
    /// Fills a batch with the events behind a position, if it does not hold them already, and moves the
    /// position. @return how many events have been left out.
    uint64_t Read(Position& position, Batch& batch) const;

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    /// Adds the text that the store holds now.
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;

  private:
    void Start();
    void AddEvent(eParam_t id, Event event);
    void Lose();
    void Deliver();
    void SendAll();
    bool SendToEach();
    void Wake() VEXA_REQUIRES(m_lock);
    bool AwaitWork();
    void CountHistory() VEXA_REQUIRES(m_lock);
    void Run();

    Config& m_config;
    const std::endian m_payloadOrder;
    const bool m_hasPasswords;

    mutable Mutex m_lock;
    CondVar m_changed;
    Backlog<Event> m_events VEXA_GUARDED_BY(m_lock);      // the newest are bounded by what the store holds
    size_t m_countedHistory VEXA_GUARDED_BY(m_lock) = 0;  // bytes
    std::vector<std::weak_ptr<TcpStream>> m_receivers VEXA_GUARDED_BY(m_lock);
    unsigned int m_receiversVersion VEXA_GUARDED_BY(m_lock) = 0;
    bool m_wanted VEXA_GUARDED_BY(m_lock) = false;  // the feed's thread has work
    bool m_stop VEXA_GUARDED_BY(m_lock) = false;
    std::atomic<Position> m_end = 0;  // of m_events
    std::thread m_thread;
};

/// The event of a changed number.
XCONFIGMGR_RESPONSE_T StreamNumberEvent(eParam_t id, unsigned int value);
/// The event of the text that the store holds now. @param payload  is empty, after one line, when there is
/// none.
XCONFIGMGR_RESPONSE_T StreamTextEvent(Config& config, eParam_t id, timeval time, std::endian payloadOrder,
                                      std::string& payload);

}  // namespace vexa::corvalis::config::access
