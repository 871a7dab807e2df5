#include "config/access/server/clients.h"

#include <arpa/inet.h>

#include <array>
#include <iterator>
#include <map>
#include <utility>

#include "config/access/protocol/message_types.h"
#include "config/access/server/traffic.h"
#include "config/base/mutex.h"
#include "config/base/no_destructor.h"

namespace vexa::corvalis::config::access {

namespace {

/// Sources that are asked under the lock at a time: clients that come or go wait for them.
constexpr size_t kSourcesAtATime = 32;

struct Sources {
    Mutex lock;
    uint64_t last VEXA_GUARDED_BY(lock) = 0;
    std::map<uint64_t, AppendClientsTo> known VEXA_GUARDED_BY(lock);
};

Sources& AllSources()
{
    static NoDestructor<Sources> sources;  // connections outlive main
    return *sources;
}

uint64_t Add(AppendClientsTo append)
{
    Sources& sources = AllSources();
    const MutexLock hold(sources.lock);
    sources.known.emplace(++sources.last, std::move(append));
    return sources.last;
}

struct RequestKind {
    const char* name;
    uint32_t type;
    bool sets;
};

constexpr RequestKind kKinds[] = {
    {"connect", XCFG_CONNECT_REQUEST, false},
    {"disconnect", XCFG_DISCONNECT_REQUEST, false},
    {"listen", XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST, false},
    {"unlisten", XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST, false},
    {"get", XCFG_GET_PARAM_REQUEST, false},
    {"set", XCFG_SET_PARAM_REQUEST, true},
    {"get_text", XCFG_GET_STREAM_PARAM_REQUEST, false},
    {"set_text", XCFG_SET_STREAM_PARAM_REQUEST, true},
    {"get_data", XCFG_GET_DATA_REQUEST, false},
    {"set_data", XCFG_SET_DATA_REQUEST, true},
    {"other", 0, false},
};
constexpr const char* kCounterNames[] = {"connections", "refused",     "cut_off",        "bytes_in",
                                         "bytes_out",   "events_sent", "events_skipped", "denied"};
constexpr auto kFirstRequest = static_cast<size_t>(Counter::kRequests);
static_assert(std::size(kCounterNames) == kFirstRequest);
constexpr const char* kTransports[] = {"tcp", "udp", "queue"};

/// A transport has its own, for threads that count together slow each other down.
struct alignas(64) Counts {
    std::array<std::atomic<uint64_t>, kFirstRequest + std::size(kKinds)> values{};
};
std::array<Counts, std::size(kTransports)> counts;

void CountAt(Transport transport, size_t index, uint64_t count)
{
    counts[static_cast<size_t>(transport)].values[index].fetch_add(count, std::memory_order_relaxed);
}

size_t KindOf(uint32_t type)
{
    size_t kind = 0;
    while (kKinds[kind].type != type && kind + 1 < std::size(kKinds)) ++kind;
    return kind;
}

}  // namespace

// --- counts ---

void Count(Transport transport, Counter counter, uint64_t count)
{
    CountAt(transport, static_cast<size_t>(counter), count);
}

void Traffic::CountRequest(Transport transport, uint32_t type, Traffic* client)
{
    const size_t kind = KindOf(type);
    CountAt(transport, kFirstRequest + kind, 1);
    if (!client) return;
    client->m_requests.fetch_add(1, std::memory_order_relaxed);
    if (kKinds[kind].sets) client->m_setRequests.fetch_add(1, std::memory_order_relaxed);
}

void Traffic::AppendTo(ClientInfo& info) const
{
    info.requests = m_requests.load(std::memory_order_relaxed);
    info.setRequests = m_setRequests.load(std::memory_order_relaxed);
    info.denied = m_denied.load(std::memory_order_relaxed);
}

std::vector<ServerCount> ServerCounts()
{
    std::vector<ServerCount> all;
    for (size_t transport = 0; transport < counts.size(); ++transport)
        for (size_t i = 0; i < counts[transport].values.size(); ++i) {
            const bool isRequest = i >= kFirstRequest;
            all.push_back({kTransports[transport], isRequest ? "requests" : kCounterNames[i],
                           isRequest ? kKinds[i - kFirstRequest].name : "",
                           counts[transport].values[i].load(std::memory_order_relaxed)});
        }
    return all;
}

const char* NameOf(Transport transport)
{
    return kTransports[static_cast<size_t>(transport)];
}

const char* RequestName(uint32_t type)
{
    return kKinds[KindOf(type)].name;
}

bool IsSetRequest(uint32_t type)
{
    return kKinds[KindOf(type)].sets;
}

// --- clients ---

std::string AddressText(const sockaddr_storage& address)
{
    if (address.ss_family == AF_INET) return AddressText(reinterpret_cast<const sockaddr_in&>(address));
    const auto& six = reinterpret_cast<const sockaddr_in6&>(address);
    char host[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, &six.sin6_addr, host, sizeof host);
    return "[" + std::string(host) + "]:" + std::to_string(ntohs(six.sin6_port));
}

std::string AddressText(const sockaddr_in& address)
{
    char host[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &address.sin_addr, host, sizeof host);
    return std::string(host) + ":" + std::to_string(ntohs(address.sin_port));
}

std::string OriginOf(const ClientInfo& client)
{
    return client.transport + " " + client.address + (client.program.empty() ? "" : " program ") +
           client.program;
}

ListedSource::ListedSource(AppendClientsTo append) : m_number(Add(std::move(append))) {}

/// A source that is just being asked stays until it has answered.
ListedSource::~ListedSource()
{
    Sources& sources = AllSources();
    const MutexLock hold(sources.lock);
    sources.known.erase(m_number);
}

std::vector<ClientInfo> Clients()
{
    Sources& sources = AllSources();
    std::vector<ClientInfo> clients;
    uint64_t last = 0;
    for (bool more = true; more;) {
        const MutexLock hold(sources.lock);
        auto next = sources.known.upper_bound(last);
        for (size_t i = 0; i < kSourcesAtATime && next != sources.known.end(); ++i, ++next) {
            next->second(clients);
            last = next->first;
        }
        more = next != sources.known.end();
    }
    return clients;
}

}  // namespace vexa::corvalis::config::access
