/// ConfigLink: a device through a configuration of the library: the store of this process, or the queues of the
/// daemon of this machine.
#pragma once

#include <atomic>
#include <functional>

#include "config/access/protocol/connection.h"
#include "config/config.h"
#include "config/config_event_listener.h"
#include "device/link.h"
#include "device/records.h"

namespace vexa {

/// Changes come on threads of the configuration. Thread: one, but for those.
class ConfigLink : public Link, private ConfigEventListener, private ConnectionListener {
  public:
    ConfigLink(const DeviceAddress& address, LinkEvents& events);
    ~ConfigLink() override;

    bool Open(const Deadline& deadline, int wake, LinkFailure& failure) override;
    bool Exchange(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                  const Deadline& deadline, int wake, LinkFailure& failure) override;
    int Descriptor() const override { return m_news.Get(); }
    bool Receive(LinkFailure& failure) override;
    bool HearsChanges() const override { return true; }

  private:
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;
    bool DataChanged(eParam_t id, std::string& data, timeval time) override;
    void ConnectionChanged(ConnectionChange change) override;

    bool IsQueue() const { return m_address.transport == Transport::kQueue; }
    void OpenStore();
    bool OpenQueue(const Deadline& deadline, LinkFailure& failure);
    LinkReply Do(const LinkRequest& request);

    const DeviceAddress m_address;
    LinkEvents& m_events;
    const SocketFd m_news;  // an eventfd: the connection has changed
    Config* m_config = nullptr;
    std::function<void()> m_disconnect;
    std::function<void(const Deadline&)> m_limit;  // of the next requests
    std::atomic<bool> m_isLost = false;
};

}  // namespace vexa
