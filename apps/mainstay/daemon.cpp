#include "mainstay/daemon.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "config/access/protocol/mq_protocol.h"
#include "config/access/server/network/network_server.h"
#include "config/access/server/peer_stores.h"
#include "config/access/server/queues/queue_service.h"
#include "config/base/log.h"
#include "config/descriptors/registry/registry.h"

namespace net = vexa::corvalis::config::access;

namespace {

/// Whether a server can bind the port. The library reports a failure in several lines, so this asks first.
bool IsFree(int socketType, int port)
{
    const int descriptor = socket(AF_INET, socketType | SOCK_CLOEXEC, 0);
    if (descriptor == -1) return false;
    const int yes = 1;  // connections of an earlier daemon may still be winding down
    if (socketType == SOCK_STREAM) setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    const bool free = bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    const int error = errno;
    close(descriptor);
    errno = error;
    return free;
}

bool CheckPort(int socketType, int port, const char* name)
{
    if (IsFree(socketType, port)) return true;
    vexa::Print("mainstay: cannot serve %s port %d: %s\n", name, port, strerror(errno));
    return false;
}

}  // namespace

Daemon::Daemon() = default;

Daemon::~Daemon()
{
    m_queues.reset();
    for (Server* const server : m_servers) server->Stop();
    Server::WaitUntilStopped(std::chrono::seconds(5));
    if (m_store) net::ClosePeerStore(m_store);
}

bool Daemon::Start(const Options& options)
{
    if ((!options.noTcp && !CheckPort(SOCK_STREAM, options.tcpPort, "TCP")) ||
        (!options.noUdp && !CheckPort(SOCK_DGRAM, options.udpPort, "UDP")))
        return false;
    CreateDescriptors();
    // Opened as a peer's store, so that peers that open other stores cannot use the limit up and make this
    // one unreachable.
    m_store = net::OpenPeerStore(0);
    if (!m_store) {
        vexa::Print("mainstay: cannot open the store\n");
        return false;
    }
    // The queues first: they detect another daemon before anything else has started.
    return (options.noQueues || StartQueues()) &&
           (options.noTcp || StartServer(SOCK_STREAM, options.tcpPort, options, "TCP")) &&
           (options.noUdp || StartServer(SOCK_DGRAM, options.udpPort, options, "UDP"));
}

bool Daemon::StartServer(int socketType, int port, const Options& options, const char* name)
{
    auto server = std::make_unique<Server>(AF_INET, socketType, port);
    if (!server->Init()) return false;
    AddEndpoint(std::string(name) + " port " + std::to_string(server->Port()));
    server->SetPayloadOrder(options.payloadOrder);
    server->SetStallTimeout(std::chrono::seconds(options.stallSeconds));
    if (socketType == SOCK_DGRAM) server->Announce(0);  // clients may listen without a connection
    if (!server->Start()) return false;
    m_servers.push_back(server.release());
    return true;
}

bool Daemon::StartQueues()
{
    m_queues = std::make_unique<vexa::config::access::QueueService>();
    AddEndpoint(std::string("queue ") + vexa::config::access::kRequestQueue);
    return m_queues->Start();
}

void Daemon::AddEndpoint(const std::string& endpoint)
{
    m_endpoints += (m_endpoints.empty() ? "" : ", ") + endpoint;
}
