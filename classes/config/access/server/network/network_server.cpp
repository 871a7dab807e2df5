#include "config/access/server/network/network_server.h"

#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <new>

#include "config/access/server/network/network_tcp_connection.h"
#include "config/access/server/network/network_udp_connection.h"
#include "config/base/mutex.h"
#include "config/base/no_destructor.h"
#include "config/base/report.h"

namespace vexa::corvalis::config::access {

namespace {

constexpr int kSocketBufferBytes = 786'432;

/// The servers of the process whose threads have not ended.
struct RunningServers {
    Mutex lock;
    CondVar changed;
    size_t count VEXA_GUARDED_BY(lock) = 0;
};

RunningServers& Servers()
{
    static NoDestructor<RunningServers> servers;  // server threads outlive main
    return *servers;
}

void Count(bool starts)
{
    RunningServers& servers = Servers();
    const MutexLock hold(servers.lock);
    starts ? ++servers.count : --servers.count;
    servers.changed.NotifyAll();
}

}  // namespace

/// The end of a server, which Stop and the server's thread bring about together.
struct NetworkServer::Ending {
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

NetworkServer::NetworkServer(int domain, int type, int port)
    : m_domain(domain), m_type(type), m_port(port), m_ending(std::make_shared<Ending>())
{
}

NetworkServer::~NetworkServer() = default;

bool NetworkServer::Init()
{
    m_socket.reset(new (std::nothrow) Socket(m_domain, m_type));
    if (!m_socket) return Report("NetworkServer::Init - failed to new Socket\n");
    if (!m_socket->create()) return Report("NetworkServer::Init - failed to create Socket\n");
    if (!m_socket->bind(m_port)) return Report("NetworkServer::Init - failed to bind Socket\n");
    if (m_type == SOCK_STREAM && !m_socket->listen()) return Report("NetworkServer::Init - listen failed\n");
    return true;
}

int NetworkServer::Port() const
{
    return m_port == 0 && m_socket ? m_socket->local_port() : m_port;
}

void NetworkServer::Announce(eConfigID_t configID)
{
    m_announced.push_back(configID);
}

// --- life ---

bool NetworkServer::Start()
{
    Count(true);
    pthread_t thread;
    errno = m_socket ? pthread_create(&thread, nullptr, pthread_start, this) : EINVAL;
    if (errno == 0) {
        pthread_detach(thread);
        return true;
    }
    perror("configd::main");
    fputs("NetworkServer::Start - pthread_create failed\n", stderr);
    Count(false);
    return false;
}

void NetworkServer::Stop()
{
    const std::shared_ptr<Ending> ending = m_ending;
    const MutexLock hold(ending->lock);  // the thread deletes the server when it gets the lock
    ending->isStopped = true;
    if (m_socket) m_socket->close();
    ending->changed.NotifyAll();
}

void* NetworkServer::pthread_start(void* argument)
{
    auto* const server = static_cast<NetworkServer*>(argument);
    pthread_setname_np(pthread_self(), server->m_type == SOCK_STREAM ? "cfg-tcp-server" : "cfg-udp-server");
    try {
        server->Run();
    } catch (...) {
        fputs("NetworkServer::pthread_start - ended by an exception\n", stderr);
    }
    Finish(server);
    return nullptr;
}

/// A server that ended by itself waits for its Stop, which would find it deleted.
void NetworkServer::Finish(NetworkServer* server)
{
    server->m_udpConnection.reset();
    const std::shared_ptr<Ending> ending = server->m_ending;
    ending->WaitUntilStopped(Deadline(Deadline::kNever));
    delete server;
    Count(false);
}

bool NetworkServer::WaitUntilStopped(std::chrono::milliseconds timeout)
{
    const Deadline deadline(
        static_cast<unsigned int>(std::clamp<long long>(timeout.count(), 0, Deadline::kNever)));
    RunningServers& servers = Servers();
    const MutexLock hold(servers.lock);
    while (servers.count > 0 && servers.changed.Wait(servers.lock, deadline)) continue;
    return servers.count == 0;
}

// --- loops ---

void NetworkServer::Run()
{
    if (m_type == SOCK_STREAM)
        RunTCP();
    else
        RunUDP();
}

void NetworkServer::PauseIfExhausted(int error)
{
    if (error != EMFILE && error != ENFILE && error != ENOBUFS && error != ENOMEM) return;
    m_ending->WaitUntilStopped(Deadline(kPauseWhenExhaustedMs));
}

/// A client or datagram that there is no memory for is lost; the next one may find some.
template <class Step>
void NetworkServer::RepeatUntilStopped(const Step& step)
{
    while (!m_ending->IsStopped()) {
        try {
            step();
        } catch (...) {
            fputs("NetworkServer::Run - a client was lost by an exception\n", stderr);
            PauseIfExhausted(ENOMEM);
        }
    }
}

void NetworkServer::RunTCP()
{
    RepeatUntilStopped([this] { ServeConnection(); });
    fputs("NetworkServer::Run - exiting\n", stderr);
}

void NetworkServer::ServeConnection()
{
    auto connection = WaitForConnection();
    if (!connection) return;
    if (connection->Start())
        static_cast<void>(connection.release());  // its thread's
    else
        fputs("NetworkServer::Run - unable to start connection\n", stderr);
}

std::unique_ptr<NetworkTCPConnection> NetworkServer::WaitForConnection()
{
    auto client = std::make_unique<Socket>(m_domain, m_type);
    if (!m_socket->accept(client.get())) {
        const int error = errno;
        perror("NetworkServer::WaitForConnection");
        fputs("NetworkServer::WaitForConnection - accept failed\n", stderr);
        PauseIfExhausted(error);
        return nullptr;
    }
    // A client whose host is gone would keep its thread and its store for ever.
    constexpr int kOn = 1;
    setsockopt(client->fd, SOL_SOCKET, SO_KEEPALIVE, &kOn, sizeof kOn);
    return std::make_unique<NetworkTCPConnection>(std::move(client), m_payloadOrder);
}

void NetworkServer::RunUDP()
{
    if (!m_socket->set_buffer_size(SO_SNDBUF, kSocketBufferBytes) ||
        !m_socket->set_buffer_size(SO_RCVBUF, kSocketBufferBytes))
        return;
    m_udpConnection.reset(new (std::nothrow) NetworkUDPConnection(*m_socket, m_payloadOrder));
    if (!m_udpConnection) {
        fputs("NetworkServer::Run - unable to create socket connection\n", stderr);
        return;
    }
    for (const eConfigID_t configID : m_announced) m_udpConnection->Announce(configID);
    RepeatUntilStopped([this] { WaitForDatagram(); });
}

void NetworkServer::WaitForDatagram()
{
    std::array<char, kMaxMessageBytes> datagram;
    sockaddr_in from{};
    errno = 0;  // tells an empty datagram, or the end, from a failure
    const int length = m_socket->recvfrom(datagram.data(), static_cast<unsigned int>(datagram.size()), from);
    if (length > 0) {
        m_udpConnection->ProcessMessages(datagram.data(), length, from);
    } else if (errno == 0) {
        fputs("NetworkServer::WaitForDatagram - recvfrom shutting down normally\n", stderr);
    } else {
        const int error = errno;
        perror("NetworkServer::WaitForDatagram");
        fputs("NetworkServer::WaitForDatagram - recvfrom error condition\n", stderr);
        PauseIfExhausted(error);
    }
}

}  // namespace vexa::corvalis::config::access
