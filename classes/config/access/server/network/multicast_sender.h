/// MulticastSender: events over UDP.
#pragma once

#include <string>

#include "config/access/io/socket.h"
#include "config/access/protocol/network_protocol.h"
#include "config/base/semaphore_helper.h"

namespace vexa::corvalis::config::access {

/// Sends events to the multicast group, on the loopback interface only. Thread: any, under the lock.
class MulticastSender {
  public:
    /// An event and its payload: nothing for a number, else a value object or data.
    struct Event {
        XCONFIGMGR_RESPONSE_T record;
        std::string payload;
    };

    /// Failures print their lines; the sender lives on and its sends fail.
    MulticastSender();
    ~MulticastSender();
    MulticastSender(const MulticastSender&) = delete;
    MulticastSender& operator=(const MulticastSender&) = delete;

    /// Gives the events of numbers their sequence number. A failure, and an event that does not fit into a
    /// datagram, is one line.
    void Send(Event event) VEXA_REQUIRES(lock);

    /// Hold it from reading a value to sending it, so that the last event of a parameter tells its last
    /// value. The locks of values may be taken inside.
    LockSemaphore lock;

  private:
    Socket m_socket;
    sockaddr_in m_group{};
    uint32_t m_sequence VEXA_GUARDED_BY(lock) = 0;  // of the next number
};

}  // namespace vexa::corvalis::config::access
