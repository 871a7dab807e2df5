#include "config/access/server/network/network_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <new>
#include <vector>

#include "config/access/io/socket.h"
#include "config/access/protocol/network_protocol.h"
#include "config/access/server/admission.h"
#include "config/access/server/denials.h"
#include "config/access/server/network/network_tcp_connection.h"
#include "config/access/server/network/network_udp_connection.h"
#include "config/access/server/traffic.h"
#include "config/base/log.h"
#include "config/base/mutex.h"
#include "config/base/no_destructor.h"

namespace vexa::corvalis::config::access {

namespace {

constexpr int kSocketBufferBytes = 786'432;

/// The servers of the process whose threads have not ended.
struct CountedServers {
    Mutex lock;
    CondVar changed;
    size_t count VEXA_GUARDED_BY(lock) = 0;
};

CountedServers& Servers()
{
    static NoDestructor<CountedServers> servers;  // server threads outlive main
    return *servers;
}

/// Otherwise a client whose host is gone would keep its thread and its store for hours.
void FindOutWhetherThePeerLives(int descriptor, std::chrono::milliseconds stallTimeout)
{
    constexpr int kOn = 1, kIdleSeconds = 60, kIntervalSeconds = 10, kProbes = 3;
    // It also ends connections whose peer lives and does not read, so it must not come before their time.
    const auto unackedMs = static_cast<int>(
        std::clamp<long long>((stallTimeout + std::chrono::seconds(30)).count(), 0, INT_MAX));
    setsockopt(descriptor, SOL_SOCKET, SO_KEEPALIVE, &kOn, sizeof kOn);
    setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, &kIdleSeconds, sizeof kIdleSeconds);
    setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, &kIntervalSeconds, sizeof kIntervalSeconds);
    setsockopt(descriptor, IPPROTO_TCP, TCP_KEEPCNT, &kProbes, sizeof kProbes);
    setsockopt(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, &unackedMs, sizeof unackedMs);
}

size_t MaxConnections()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return NetworkServer::kMaxConnections;
    const rlim_t others = std::min<rlim_t>(NetworkServer::kOtherDescriptors, limit.rlim_cur / 2);
    const rlim_t room = (limit.rlim_cur - others) / 2;
    return static_cast<size_t>(std::clamp<rlim_t>(room, 1, NetworkServer::kMaxConnections));
}

void CountServer(bool starts)
{
    CountedServers& servers = Servers();
    const MutexLock hold(servers.lock);
    starts ? ++servers.count : --servers.count;
    servers.changed.NotifyAll();
}

/// The end of a server, which Stop and the server's thread bring about together.
struct Ending {
    Mutex lock;
    CondVar changed;
    bool isStopped VEXA_GUARDED_BY(lock) = false;  // for good: a thread that starts late must see it

    bool IsStopped()
    {
        const MutexLock hold(lock);
        return isStopped;
    }
    void WaitUntilStopped(const Deadline& deadline)
    {
        const MutexLock hold(lock);
        while (!isStopped && changed.Wait(lock, deadline)) continue;
    }
};

}  // namespace

/// A server from its construction to the end of its thread, which deletes it.
class NetworkServer::Running {
  public:
    Running(NetworkServer* server, int domain, int type, int port)
        : m_server(server), m_domain(domain), m_type(type), m_port(port)
    {
    }

    bool Init();
    int Port() const;
    void Announce(eConfigID_t configID);
    void ListenOn(std::vector<std::string> addresses) { m_addresses = std::move(addresses); }
    void SetRules(std::shared_ptr<const AccessRules> rules) { m_rules = std::move(rules); }
    void SetPayloadOrder(std::endian order) { m_payloadOrder = order; }
    void SetStallTimeout(std::chrono::milliseconds timeout) { m_stallTimeout = timeout; }
    bool Start();
    void Stop();

  private:
    static void* pthread_start(void* running);
    static void Finish(NetworkServer* server);

    bool Open(const std::string& address);
    void Run();
    void RunTCP();
    void RunUDP();
    template <class Step>
    void RepeatUntilStopped(const Step& step);
    void ServeConnection();
    std::unique_ptr<NetworkTCPConnection> WaitForConnection();
    std::unique_ptr<NetworkTCPConnection> LetIn(std::unique_ptr<Socket> client, const sockaddr_storage& from);
    void WaitForDatagram();
    void PauseIfExhausted(int error);

    NetworkServer* const m_server;
    const int m_domain, m_type, m_port;
    const std::shared_ptr<Ending> m_ending =
        std::make_shared<Ending>();  // shared with a Stop that is running
    std::vector<std::string> m_addresses{""};
    std::vector<std::unique_ptr<Socket>> m_sockets;  // of the same port
    const Socket* m_lastReady = nullptr;             // of those; of the server's thread
    std::shared_ptr<const AccessRules> m_rules;
    std::unique_ptr<Admission> m_admission;                 // of the server's thread
    std::unique_ptr<NetworkUDPConnection> m_udpConnection;  // of the server's thread
    std::vector<eConfigID_t> m_announced;
    std::endian m_payloadOrder = std::endian::native;
    std::chrono::milliseconds m_stallTimeout = TcpStream::kStallTimeout;
};

NetworkServer::NetworkServer(int domain, int type, int port)
    : m_running(std::make_unique<Running>(this, domain, type, port))
{
}

NetworkServer::~NetworkServer() = default;

bool NetworkServer::Init()
{
    return m_running->Init();
}

int NetworkServer::Port() const
{
    return m_running->Port();
}

void NetworkServer::ListenOn(std::vector<std::string> addresses)
{
    m_running->ListenOn(std::move(addresses));
}

void NetworkServer::SetRules(std::shared_ptr<const AccessRules> rules)
{
    m_running->SetRules(std::move(rules));
}

void NetworkServer::SetPayloadOrder(std::endian order)
{
    m_running->SetPayloadOrder(order);
}

void NetworkServer::SetStallTimeout(std::chrono::milliseconds timeout)
{
    m_running->SetStallTimeout(timeout);
}

void NetworkServer::Announce(eConfigID_t configID)
{
    m_running->Announce(configID);
}

bool NetworkServer::Start()
{
    return m_running->Start();
}

void NetworkServer::Stop()
{
    m_running->Stop();
}

bool NetworkServer::Running::Init()
{
    m_sockets.clear();
    for (const std::string& address : m_addresses)
        if (!Open(address)) return false;
    return true;
}

bool NetworkServer::Running::Open(const std::string& address)
{
    const int port = Port();
    const bool isIPv6 = address.find(':') != std::string::npos;
    std::unique_ptr<Socket> socket(new (std::nothrow) Socket(isIPv6 ? AF_INET6 : m_domain, m_type));
    if (!socket) return Report("NetworkServer::Init - failed to new Socket\n");
    if (!socket->create()) return Report("NetworkServer::Init - failed to create Socket\n");
    if (!socket->keep_port_alone() || !(address.empty() ? socket->bind(port) : socket->bind(address, port)))
        return Report("NetworkServer::Init - failed to bind Socket\n");
    if (m_type == SOCK_STREAM && !socket->listen()) return Report("NetworkServer::Init - listen failed\n");
    m_sockets.push_back(std::move(socket));
    return true;
}

int NetworkServer::Running::Port() const
{
    return m_port == 0 && !m_sockets.empty() ? m_sockets.front()->local_port() : m_port;
}

void NetworkServer::Running::Announce(eConfigID_t configID)
{
    m_announced.push_back(configID);
}

// --- life ---

bool NetworkServer::Running::Start()
{
    CountServer(true);
    pthread_t thread;
    errno = !m_sockets.empty() ? pthread_create(&thread, nullptr, pthread_start, this) : EINVAL;
    if (errno == 0) {
        pthread_detach(thread);
        return true;
    }
    PrintError("configd::main");
    Print("NetworkServer::Start - pthread_create failed\n");
    CountServer(false);
    return false;
}

void NetworkServer::Running::Stop()
{
    const std::shared_ptr<Ending> ending = m_ending;
    const MutexLock hold(ending->lock);  // the thread deletes the server when it gets the lock
    ending->isStopped = true;
    for (const auto& socket : m_sockets) socket->close();
    ending->changed.NotifyAll();
}

void* NetworkServer::Running::pthread_start(void* argument)
{
    auto* const running = static_cast<Running*>(argument);
    pthread_setname_np(pthread_self(), running->m_type == SOCK_STREAM ? "cfg-tcp-server" : "cfg-udp-server");
    const PeerLog limited;
    try {
        running->m_admission = std::make_unique<Admission>(running->m_rules);
        running->Run();
    } catch (...) {
        Print("NetworkServer::pthread_start - ended by an exception\n");
    }
    Finish(running->m_server);
    return nullptr;
}

/// A server that ended by itself waits for its Stop, which would otherwise find it deleted.
void NetworkServer::Running::Finish(NetworkServer* server)
{
    Running& running = *server->m_running;
    running.m_udpConnection.reset();
    const std::shared_ptr<Ending> ending = running.m_ending;
    ending->WaitUntilStopped(Deadline(Deadline::kNever));
    delete server;
    CountServer(false);
}

bool NetworkServer::WaitUntilStopped(std::chrono::milliseconds timeout)
{
    const Deadline deadline(
        static_cast<unsigned int>(std::clamp<long long>(timeout.count(), 0, Deadline::kNever)));
    CountedServers& servers = Servers();
    const MutexLock hold(servers.lock);
    while (servers.count > 0 && servers.changed.Wait(servers.lock, deadline)) continue;
    return servers.count == 0;
}

// --- loops ---

void NetworkServer::Running::Run()
{
    if (m_type == SOCK_STREAM)
        RunTCP();
    else
        RunUDP();
}

void NetworkServer::Running::PauseIfExhausted(int error)
{
    if (error != EMFILE && error != ENFILE && error != ENOBUFS && error != ENOMEM) return;
    m_ending->WaitUntilStopped(Deadline(kPauseWhenExhaustedMs));
}

/// Without memory a client or datagram is lost; there may be memory for the next one.
template <class Step>
void NetworkServer::Running::RepeatUntilStopped(const Step& step)
{
    while (!m_ending->IsStopped()) {
        try {
            step();
        } catch (...) {
            Print("NetworkServer::Run - a client was lost by an exception\n");
            PauseIfExhausted(ENOMEM);
        }
    }
}

void NetworkServer::Running::RunTCP()
{
    RepeatUntilStopped([this] { ServeConnection(); });
    Print("NetworkServer::Run - exiting\n");
}

void NetworkServer::Running::ServeConnection()
{
    auto connection = WaitForConnection();
    if (!connection) return;
    if (connection->Start())
        static_cast<void>(connection.release());  // its thread owns it
    else
        Print("NetworkServer::Run - unable to start connection\n");
}

std::unique_ptr<NetworkTCPConnection> NetworkServer::Running::WaitForConnection()
{
    Socket* const socket = Socket::wait_any(m_sockets, m_lastReady);
    m_lastReady = socket;
    if (!socket || m_ending->IsStopped()) return nullptr;
    auto client = std::make_unique<Socket>(socket->domain, m_type);
    sockaddr_storage from{};
    if (socket->accept(client.get(), &from)) return LetIn(std::move(client), from);
    const int error = errno;
    PrintError("NetworkServer::WaitForConnection");
    Print("NetworkServer::WaitForConnection - accept failed\n");
    PauseIfExhausted(error);
    return nullptr;
}

/// @return null, after one line, for a client that is turned away.
std::unique_ptr<NetworkTCPConnection> NetworkServer::Running::LetIn(std::unique_ptr<Socket> client,
                                                                    const sockaddr_storage& from)
{
    const std::optional<PeerAddress> address = AddressOf(from);
    const bool isLocal = m_domain == AF_UNIX;  // there are no rules for a process of this machine
    const Admitted admitted = isLocal ? Admitted{Right::kAdmin, std::nullopt} : m_admission->Ask(from);
    if (admitted.right == Right::kNone) {
        if (address) DenyPeer(Transport::kTcp, *address);
        return nullptr;
    }
    Share share = ShareOfConnections(admitted);
    if (!share) {
        Count(Transport::kTcp, Counter::kRefused);
        Print("mainstay: a client of %s is turned away, it has %zu connections\n", address->Text().c_str(),
              kMaxConnectionsOfAddress);
        return nullptr;
    }
    if (NetworkTCPConnection::Count() >= MaxConnections()) {
        Count(Transport::kTcp, Counter::kRefused);
        Print("NetworkServer::WaitForConnection - a client is turned away, there are %zu\n",
              NetworkTCPConnection::Count());
        return nullptr;
    }
    // The system would let the buffer of a client that does not read grow to several megabytes.
    client->set_buffer_size(SO_SNDBUF, kSocketBufferBytes);
    if (m_domain == AF_INET) FindOutWhetherThePeerLives(client->fd, m_stallTimeout);
    return std::make_unique<NetworkTCPConnection>(std::move(client), m_payloadOrder, m_stallTimeout, admitted,
                                                  std::move(share), from);
}

void NetworkServer::Running::RunUDP()
{
    for (const auto& socket : m_sockets)
        if (!socket->set_buffer_size(SO_SNDBUF, kSocketBufferBytes) ||
            !socket->set_buffer_size(SO_RCVBUF, kSocketBufferBytes))
            return;
    m_udpConnection.reset(new (std::nothrow) NetworkUDPConnection(*m_sockets.front(), m_payloadOrder));
    if (!m_udpConnection) {
        Print("NetworkServer::Run - unable to create socket connection\n");
        return;
    }
    m_udpConnection->SetRules(m_rules);
    for (const eConfigID_t configID : m_announced) m_udpConnection->Announce(configID);
    RepeatUntilStopped([this] { WaitForDatagram(); });
}

void NetworkServer::Running::WaitForDatagram()
{
    std::array<char, kMaxMessageBytes> datagram;
    sockaddr_in from{};
    // One socket is received from at once, which takes one system call less.
    Socket* const socket =
        m_sockets.size() == 1 ? m_sockets.front().get() : Socket::wait_any(m_sockets, m_lastReady);
    m_lastReady = socket;
    if (!socket || (m_sockets.size() > 1 && m_ending->IsStopped())) return;
    errno = 0;  // distinguishes an empty datagram, or the end, from a failure
    const int length = socket->recvfrom(datagram.data(), static_cast<unsigned int>(datagram.size()), from);
    if (length > 0) {
        m_udpConnection->AnswerThrough(*socket);
        m_udpConnection->ProcessMessages(datagram.data(), length, from);
    } else if (errno == 0) {
        Print("NetworkServer::WaitForDatagram - recvfrom shutting down normally\n");
    } else {
        const int error = errno;
        PrintError("NetworkServer::WaitForDatagram");
        Print("NetworkServer::WaitForDatagram - recvfrom error condition\n");
        PauseIfExhausted(error);
    }
}

}  // namespace vexa::corvalis::config::access
