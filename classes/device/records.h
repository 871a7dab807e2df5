/// The records of the network as a Device sends and reads them. Thread: one at a time.
#pragma once

#include <bit>
#include <optional>
#include <string>

#include "config/access/protocol/network_protocol.h"
#include "device/link.h"

namespace vexa {

/// Of one connection: its identifier, its configuration, and the byte order of its texts, which the first text
/// from the device shows.
class Records {
  public:
    explicit Records(eConfigID_t configID);

    std::string Connect() const { return Prefix(XCFG_CONNECT_REQUEST); }
    std::string Disconnect() const { return Prefix(XCFG_DISCONNECT_REQUEST); }
    std::string Listen() const;
    /// @param number  comes back with the reply.
    std::string Request(const LinkRequest& request, uint32_t number) const;
    /// Of a reply that holds a value. @return nothing when it holds none.
    std::optional<Value> ValueOf(const corvalis::config::access::XCONFIGMGR_RESPONSE_T& response,
                                 const std::string& payload);
    eConfigID_t ConfigID() const { return m_configID; }

  private:
    std::string Prefix(uint32_t type) const;
    template <class Record>
    Record Filled(uint32_t type) const;
    std::optional<Value> TextOf(const std::string& payload);

    const eConfigID_t m_configID;
    const uint32_t m_connectionID;
    std::endian m_textOrder = std::endian::native;
};

/// The descriptor of a connected or connecting socket, closed with its scope.
class SocketFd {
  public:
    SocketFd() = default;
    explicit SocketFd(int fd) : m_fd(fd) {}
    ~SocketFd() { Reset(); }
    SocketFd(const SocketFd&) = delete;
    SocketFd& operator=(const SocketFd&) = delete;

    void Reset(int fd = -1);
    int Get() const { return m_fd; }

  private:
    int m_fd = -1;
};

enum class Ready : uint8_t { kReady, kTimedOut, kWoken };
/// Waits for events of poll on a descriptor, or for another one (-1: none) to become readable.
Ready WaitFor(int fd, short events, const Deadline& deadline, int wake, int second = -1);
/// Sets the failure for a link that is lost. @return false.
bool Lost(LinkFailure& failure, std::string reason);
/// Sets the failure for a wait that ended without what it was for.
bool NotReady(Ready how, const char* what, LinkFailure& failure);

/// A socket that is connected to a host, tried address by address; non-blocking.
/// @param type  SOCK_STREAM or SOCK_DGRAM. @return false with the reason of the last address.
bool ConnectTo(const std::string& host, int port, int type, const Deadline& deadline, int wake,
               SocketFd& socket, LinkFailure& failure);

}  // namespace vexa
