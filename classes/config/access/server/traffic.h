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
    kDenied,  ///< peers that no rule lets in, and requests that none permits
    kRequests
};

/// Thread: any; nothing waits.
void Count(Transport transport, Counter counter, uint64_t count = 1);

/// "tcp", "udp", "queue".
const char* NameOf(Transport transport);
/// The kind of a request, as it is counted: "get", "set_text", "other".
const char* RequestName(uint32_t type);
/// Whether it sets a value.
bool IsSetRequest(uint32_t type);

/// "10.0.0.5:51234". Thread: any.
std::string AddressText(const sockaddr_in& address);
/// "[fe80::1]:51234", too.
std::string AddressText(const sockaddr_storage& address);
/// Who makes the changes that a client asks for: "tcp 10.0.0.5:51234". Thread: any.
std::string OriginOf(const ClientInfo& client);

/// The requests of one client. Thread: any; nothing waits.
class Traffic {
  public:
    /// @param type  of the message. @param client  null: of somebody who is not listed.
    static void CountRequest(Transport transport, uint32_t type, Traffic* client);
    void CountDenied() { m_denied.fetch_add(1, std::memory_order_relaxed); }
    void AppendTo(ClientInfo& info) const;

  private:
    std::atomic<uint64_t> m_requests = 0, m_setRequests = 0, m_denied = 0;
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
