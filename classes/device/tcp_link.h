/// TcpLink: a device over TCP.
#pragma once

#include <deque>

#include "device/records.h"

namespace vexa {

/// Requests follow one another without waiting; the device answers in their order. Thread: one.
class TcpLink : public Link {
  public:
    TcpLink(const DeviceAddress& address, LinkEvents& events);
    ~TcpLink() override;

    bool Open(const Deadline& deadline, int wake, LinkFailure& failure) override;
    bool Exchange(const std::vector<LinkRequest>& requests, std::vector<LinkReply>& replies,
                  const Deadline& deadline, int wake, LinkFailure& failure) override;
    int Descriptor() const override { return m_socket.Get(); }
    bool Receive(LinkFailure& failure) override;
    bool HearsChanges() const override { return true; }

  private:
    /// A reply that is due.
    struct Due {
        uint32_t number;  ///< of the request
        LinkReply* reply;
    };

    bool IsConfirmed(const Deadline& deadline, int wake, LinkFailure& failure);
    bool Send(LinkFailure& failure);
    bool ReadPiece(LinkFailure& failure);
    bool TakeMessage(LinkFailure& failure);
    void Process(const corvalis::config::access::XCONFIGMGR_RESPONSE_T& response, const std::string& payload);

    const DeviceAddress m_address;
    LinkEvents& m_events;
    Records m_records;
    SocketFd m_socket;
    std::string m_out, m_in;
    size_t m_sent = 0, m_taken = 0;  // of m_out and m_in
    std::deque<Due> m_due;           // oldest first
    uint32_t m_lastNumber = 0;
    bool m_isLeaving = false;                // nobody hears events any more
    std::optional<uint32_t> m_confirmation;  // the error of a Connect or Disconnect
};

}  // namespace vexa
