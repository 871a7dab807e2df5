/// What servers count, and how they list their clients. What is read of it: clients.h.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "config/access/server/clients.h"

namespace vexa::corvalis::config::access {

enum class Transport : size_t { kTcp, kUdp, kQueue };

/// Those of requests follow, in the order of their kinds.
enum class Counter : size_t {
    kConnections,
    kRefused,  ///< connections, for there are too many
    kCutOff,   ///< clients that took nothing, or too little
    kBytesIn,
    kBytesOut,
    kEventsSent,
    kEventsSkipped,
    kRequests
};

/// Thread: any; nothing waits.
void Count(Transport transport, Counter counter, uint64_t count = 1);

/// "10.0.0.5:51234". Thread: any.
std::string AddressText(const sockaddr_in& address);
/// Who makes the changes that a client asks for: "tcp 10.0.0.5:51234". Thread: any.
std::string OriginOf(const ClientInfo& client);

/// The requests of one client. Thread: any; nothing waits.
class Traffic {
  public:
    /// @param type  of the message. @param client  null: of somebody who is not listed.
    static void CountRequest(Transport transport, uint32_t type, Traffic* client);
    void AppendTo(ClientInfo& info) const;

  private:
    std::atomic<uint64_t> m_requests = 0, m_setRequests = 0;
};

/// Adds something's clients to a list. It holds its locks for a moment only. Thread: any.
using AppendClientsTo = std::function<void(std::vector<ClientInfo>& clients)>;

/// Keeps something that has clients in the list of Clients. As its last member, so that it leaves the list first.
/// Thread: any; hold no lock that the function takes.
class ListedSource {
  public:
    explicit ListedSource(AppendClientsTo append);
    ~ListedSource();
    ListedSource(const ListedSource&) = delete;
    ListedSource& operator=(const ListedSource&) = delete;

  private:
    const uint64_t m_number;
};

}  // namespace vexa::corvalis::config::access
