/// UdpLink: a device over UDP.
#pragma once

#include <chrono>
#include <map>

#include "config/access/client/network/event_gaps.h"
#include "device/records.h"

namespace vexa {

/// A few requests are on their way at a time; a Get whose answer does not come is sent again, a Set is not, for
/// it might act twice. A device tells its changes on its own machine only. Anybody there can tell some, and so
/// does every other daemon: what was told is read again a little later. Thread: one.
class UdpLink : public Link {
  public:
    UdpLink(const DeviceAddress& address, LinkEvents& events);
    ~UdpLink() override;

    bool Open(const Deadline& deadline, int wake, LinkFailure& failure) override;
    bool Exchange(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                  const Deadline& deadline, int wake, LinkFailure& failure) override;
    int Descriptor() const override { return m_events.Get(); }
    bool Receive(LinkFailure& failure) override;
    bool HearsChanges() const override { return m_events.Get() != -1; }

  private:
    using Clock = std::chrono::steady_clock;
    struct Waiting {
        size_t index;  ///< of the request
        Clock::time_point sent;
    };

    bool Listen(LinkFailure& failure);
    bool IsConfirmed(const Deadline& deadline, int wake, LinkFailure& failure);
    bool SendDatagram(const std::string& datagram, LinkFailure& failure);
    bool SendNext(const std::vector<LinkRequest>& requests, LinkFailure& failure);
    bool SendAgain(const std::vector<LinkRequest>& requests, LinkFailure& failure);
    bool ReceiveReplies(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                        LinkFailure& failure);
    void ReceiveEvents();
    bool PassOn(const char* datagram, size_t size, const sockaddr_in& from);

    const DeviceAddress m_address;
    LinkEvents& m_listener;
    Records m_records;
    SocketFd m_socket, m_events;
    corvalis::config::access::EventGaps m_gaps;
    uint32_t m_lastNumber = 0;
    size_t m_next = 0;                      // of the requests that were not sent yet
    std::map<uint32_t, Waiting> m_waiting;  // by number
    bool m_isConnected = false;
};

}  // namespace vexa
