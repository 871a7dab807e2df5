/// ChangeAnnouncer: what watches a store for the multicast sender.
#pragma once

#include <bit>
#include <string>
#include <vector>

#include "config/access/server/network/multicast_sender.h"
#include "config/config_event_listener.h"

class Config;

namespace vexa::corvalis::config::access {

/// Announces the changes of one store by multicast, except those that the UDP server is just making, which it
/// announces itself. Registered with the store from construction to destruction. Thread: any that changes the
/// store.
class ChangeAnnouncer : public ConfigEventListener {
  public:
    /// A change that this thread makes and announces: while the object lives, the announcer holds back the
    /// events of its parameters on this thread.
    class OwnChange {
      public:
        OwnChange(ChangeAnnouncer& announcer, std::vector<eParam_t> ids);
        ~OwnChange();
        OwnChange(const OwnChange&) = delete;
        OwnChange& operator=(const OwnChange&) = delete;

        /// Sends the announcements that were held back, except those of one parameter (0: none).
        void AnnounceKept(eParam_t except = {});
        /// Whether another thread has announced one of the parameters meanwhile. Needs the sender's lock.
        bool IsOvertaken() const { return m_isOvertaken; }

      private:
        friend class ChangeAnnouncer;
        bool Covers(const MulticastSender::Event& event) const;

        ChangeAnnouncer& m_announcer;
        const std::vector<eParam_t> m_ids;
        std::vector<MulticastSender::Event> m_kept;  // of this thread, in order
        bool m_isOvertaken = false;
    };

    /// @param config, sender  borrowed.
    /// @param payloadOrder  of texts.
    ChangeAnnouncer(Config& config, MulticastSender& sender, std::endian payloadOrder);
    /// Waits for a running announcement: hold no lock of the store, nor the sender's.
    ~ChangeAnnouncer() override;
    ChangeAnnouncer(const ChangeAnnouncer&) = delete;
    ChangeAnnouncer& operator=(const ChangeAnnouncer&) = delete;

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;
    bool DataChanged(eParam_t id, std::string& data, timeval time) override;

  private:
    void SetOwnChange(OwnChange* change) VEXA_EXCLUDES(m_sender.lock);
    bool Announce(MulticastSender::Event event) VEXA_EXCLUDES(m_sender.lock);

    Config& m_config;
    MulticastSender& m_sender;
    const std::endian m_payloadOrder;
    OwnChange* m_ownChange VEXA_GUARDED_BY(m_sender.lock) = nullptr;
};

/// The events of a change, not yet sent.
MulticastSender::Event NumberEvent(Config& config, eParam_t id, unsigned int value, timeval time);
/// The text that the store holds now, whatever the change was. Without a text the payload is empty, after a
/// line.
MulticastSender::Event TextEvent(Config& config, eParam_t id, timeval time, std::endian payloadOrder);
MulticastSender::Event DataEvent(Config& config, eParam_t id, std::string data, timeval time);

}  // namespace vexa::corvalis::config::access
