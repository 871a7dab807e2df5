#include "config/access/io/socket.h"

#include <arpa/inet.h>
#include <execinfo.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <list>

#include "config/base/log.h"

namespace vexa::corvalis::config::access {

namespace {

/// Repeats a call that a signal interrupted.
template <class Call>
auto Repeat(const Call& call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

/// perror that keeps errno for the caller.
void ReportErrno(const char* message)
{
    const int error = errno;
    PrintError(message);
    errno = error;
}

void ReportText(const char* message)
{
    const int error = errno;
    Print("%s", message);
    errno = error;
}

template <class Address>
sockaddr* AsSockaddr(Address& address)
{
    return reinterpret_cast<sockaddr*>(&address);
}

template <class Address>
const sockaddr* AsSockaddr(const Address& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

int SetOption(int descriptor, int level, int option, int value)
{
    return setsockopt(descriptor, level, option, &value, sizeof value);
}

}  // namespace

static_assert(sizeof(sockaddr_in) == 16 && sizeof(sockaddr_un) == 110);

/// One running operation: the descriptor that it works on stays open until it ends.
class Socket::Operation {
  public:
    explicit Operation(const Socket& socket) : fd(socket.Enter()), m_socket(socket) {}
    ~Operation() { m_socket.Leave(); }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    const int fd;

  private:
    const Socket& m_socket;
};

int Socket::Enter() const
{
    const MutexLock hold(m_useLock);
    ++m_users;
    return fd;
}

void Socket::Leave() const
{
    const MutexLock hold(m_useLock);
    if (--m_users > 0) return;
    const int error = errno;
    for (const int descriptor : m_closing) ::close(descriptor);
    m_closing.clear();
    errno = error;
}

Socket::Socket(int domain_, int type_) : domain(domain_), type(type_) {}

Socket::~Socket()
{
    close();
}

int Socket::create()
{
    fd = socket(domain, type | SOCK_CLOEXEC, 0);
    if (fd == -1) {
        ReportErrno("Socket::create - socket() failed");
        return 0;
    }
    // Local stream sockets do not know the option, and work without it.
    if (type == SOCK_STREAM && SetOption(fd, IPPROTO_TCP, TCP_NODELAY, 1) == -1 && domain != AF_UNIX) {
        ReportErrno("Socket::create setsockopt(TCP_NODELAY) failed");
        return 0;
    }
    if (SetOption(fd, SOL_SOCKET, SO_REUSEADDR, 1) == -1) {
        ReportErrno("Socket::create - setsockopt(SO_REUSEADDR) call failed");
        return 0;
    }
    return 1;
}

void Socket::close()
{
    const int descriptor = fd.exchange(-1);
    if (descriptor == -1) return;
    shutdown(descriptor, SHUT_RDWR);
    const MutexLock hold(m_useLock);
    if (m_users == 0)
        ::close(descriptor);
    else
        m_closing.push_back(descriptor);
}

std::string Socket::build_local_path(const std::string&, int number) const
{
    std::string path = "/tmp/vexa_" + std::to_string(number);
    Print("Local path = %s\n", path.c_str());
    return path;
}

int Socket::bind(int number)
{
    if (fd == -1) {
        // The text is known to scripts that watch the log, its missing line end included.
        Print("Socket::bind: invalid socketn");
        return 0;
    }
    if (domain == AF_INET6) return bind_inet6("", number);
    return domain == AF_UNIX ? bind_local(number) : bind_inet(number);
}

int Socket::bind(const std::string& address, int number)
{
    if (domain == AF_INET6) return bind_inet6(address, number);
    inet_address.sin_addr.s_addr = address.empty() ? INADDR_ANY : inet_addr(address.c_str());
    return bind_inet(number);
}

/// IPv6 alone: IPv4 has a socket of its own, and may have the same port.
int Socket::bind_inet6(const std::string& address, int number)
{
    addrinfo hints{};
    hints.ai_family = AF_INET6;
    hints.ai_socktype = type;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo* found = nullptr;
    const std::string service = std::to_string(number);
    if (getaddrinfo(address.empty() ? nullptr : address.c_str(), service.c_str(), &hints, &found) != 0) {
        errno = EADDRNOTAVAIL;
        ReportErrno("Socket::bind_inet6");
        return 0;
    }
    SetOption(fd, IPPROTO_IPV6, IPV6_V6ONLY, 1);
    const int result = bind_to(found->ai_addr, found->ai_addrlen, number);
    freeaddrinfo(found);
    return result;
}

int Socket::bind_local(int number)
{
    local_address.sun_family = AF_UNIX;
    const std::string path = build_local_path(host, number);
    strncpy(local_address.sun_path, path.c_str(), sizeof local_address.sun_path - 1);
    unlink(local_address.sun_path);
    const Operation operation(*this);
    if (::bind(operation.fd, AsSockaddr(local_address), sizeof local_address) == -1) return 0;
    port = number;
    return 1;
}

int Socket::bind_inet(int number)
{
    inet_address.sin_family = static_cast<sa_family_t>(domain);
    inet_address.sin_port = htons(static_cast<uint16_t>(number));
    return bind_to(AsSockaddr(inet_address), sizeof inet_address, number);
}

int Socket::bind_to(const sockaddr* address, socklen_t length, int number)
{
    const Operation operation(*this);
    // The system may give one port of its choice to several sockets that allow reuse.
    if (number == 0) SetOption(operation.fd, SOL_SOCKET, SO_REUSEADDR, 0);
    const int result = ::bind(operation.fd, address, length);
    const int error = errno;
    // A stream socket has its port alone once it listens, and lets the server that follows have it at once.
    if (number == 0 && type == SOCK_STREAM) SetOption(operation.fd, SOL_SOCKET, SO_REUSEADDR, 1);
    errno = error;
    if (result == -1) {
        ReportErrno("Socket::bind_inet");
        return 0;
    }
    port = number;
    return 1;
}

int Socket::listen()
{
    constexpr int kBacklog = 100;
    if (fd == -1) return 0;
    const Operation operation(*this);
    if (::listen(operation.fd, kBacklog) == 0) return 1;
    ReportText("Socket::listen - listen returned -1");
    return 0;
}

int Socket::accept(Socket* peer, sockaddr_storage* from)
{
    return domain == AF_UNIX ? accept_local(peer) : accept_inet(peer, from);
}

int Socket::accept_local(Socket* peer)
{
    sockaddr_un from{};
    socklen_t length = sizeof from;
    const Operation operation(*this);
    peer->fd = Repeat([&] { return accept4(operation.fd, AsSockaddr(from), &length, SOCK_CLOEXEC); });
    if (peer->fd > 0) return 1;
    ReportErrno("Socket::accept - socket <= 0");
    return 0;
}

int Socket::accept_inet(Socket* peer, sockaddr_storage* from)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    const Operation operation(*this);
    peer->fd = Repeat([&] { return accept4(operation.fd, AsSockaddr(address), &length, SOCK_CLOEXEC); });
    if (address.ss_family == AF_INET) memcpy(&inet_address, &address, sizeof inet_address);
    if (from) *from = address;
    if (peer->fd > 0) return 1;
    ReportErrno("Socket::accept - socket <= 0");
    return 0;
}

int Socket::connect(const std::string& to, int number)
{
    if (fd == -1) return 0;
    return domain == AF_UNIX ? connect_local(to, number) : connect_inet(to, number);
}

int Socket::connect_local(const std::string& to, int number)
{
    local_address.sun_family = AF_UNIX;
    const std::string path = build_local_path(to, number);
    strncpy(local_address.sun_path, path.c_str(), sizeof local_address.sun_path - 1);
    const Operation operation(*this);
    if (Repeat([&] { return ::connect(operation.fd, AsSockaddr(local_address), sizeof local_address); }) ==
        -1) {
        ReportErrno("Socket::connect_local");
        return 0;
    }
    host = to;
    port = number;
    return 1;
}

int Socket::connect_inet(const std::string& to, int number)
{
    inet_address.sin_port = htons(static_cast<uint16_t>(number));
    inet_address.sin_family = static_cast<sa_family_t>(domain);
    errno = 0;
    if (domain == AF_INET)
        inet_pton(AF_INET, to.c_str(), &inet_address.sin_addr);
    else
        errno = EAFNOSUPPORT;
    // Only the error number counts: text that is no address leaves the address unchanged, which is this
    // host's.
    if (errno == EAFNOSUPPORT) {
        ReportErrno("Socket::connect_inet - inet_pton() failed");
        return 0;
    }
    keep_port_alone();
    const Operation operation(*this);
    if (Repeat([&] { return ::connect(operation.fd, AsSockaddr(inet_address), sizeof inet_address); }) ==
        -1) {
        ReportErrno("Socket::connect_inet - connect() failed");
        return 0;
    }
    host = to;
    port = number;
    return 1;
}

int Socket::keep_port_alone()
{
    if (type != SOCK_DGRAM) return 1;
    const Operation operation(*this);
    if (SetOption(operation.fd, SOL_SOCKET, SO_REUSEADDR, 0) == 0) return 1;
    ReportErrno("Socket::keep_port_alone");
    return 0;
}

int Socket::local_port() const
{
    sockaddr_in6 address{};  // the port stands where it stands in an address of IPv4
    socklen_t length = sizeof address;
    const Operation operation(*this);
    return getsockname(operation.fd, AsSockaddr(address), &length) == 0 ? ntohs(address.sin6_port) : 0;
}

bool Socket::is_connected() const
{
    sockaddr_storage address;
    socklen_t length = sizeof address;
    const Operation operation(*this);
    return getpeername(operation.fd, AsSockaddr(address), &length) == 0;
}

int Socket::sendall(const char* data, int* length)
{
    const int wanted = *length;
    *length = 0;
    if (wanted < 1) return 0;
    const Operation operation(*this);
    while (*length < wanted) {
        const ssize_t sent = Repeat([&] {
            return ::send(operation.fd, data + *length, static_cast<size_t>(wanted - *length), MSG_NOSIGNAL);
        });
        if (sent == -1) {
            ReportErrno("Socket::sendall - send failed");
            return 0;
        }
        *length += static_cast<int>(sent);
    }
    return 1;
}

int Socket::send(const char* data, unsigned int length)
{
    const Operation operation(*this);
    unsigned int total = 0;
    do {
        const ssize_t sent =
            Repeat([&] { return ::send(operation.fd, data + total, length - total, MSG_NOSIGNAL); });
        if (sent == -1) {
            ReportText("Socket::send - failed");
            return 0;
        }
        total += static_cast<unsigned int>(sent);
    } while (total < length);
    return 1;
}

int Socket::send_some(const char* data, unsigned int length)
{
    const Operation operation(*this);
    const ssize_t sent =
        Repeat([&] { return ::send(operation.fd, data, length, MSG_NOSIGNAL | MSG_DONTWAIT); });
    if (sent == -1 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
    return static_cast<int>(sent);
}

int Socket::sendto(const void* data, unsigned int length, const sockaddr_in& to)
{
    const Operation operation(*this);
    if (Repeat([&] { return ::sendto(operation.fd, data, length, 0, AsSockaddr(to), sizeof to); }) != -1)
        return 1;
    ReportText("Socket::sendto - failed");
    return 0;
}

int Socket::recv(char* buffer, unsigned int length)
{
    const Operation operation(*this);
    if (type == SOCK_DGRAM) {
        const ssize_t count = Repeat([&] { return ::recv(operation.fd, buffer, length, MSG_NOSIGNAL); });
        if (count != -1) return static_cast<int>(count);
        ReportErrno("Socket::recv - failed");
        Print("Socket::recv - UDP version (this:%p)\n", static_cast<void*>(this));
        return 0;
    }
    unsigned int received = 0;
    while (received < length) {
        const ssize_t count =
            Repeat([&] { return ::recv(operation.fd, buffer + received, length - received, MSG_NOSIGNAL); });
        if (count == -1) {
            ReportErrno("Socket::recv - failed");
            Print("Socket::recv - TCP version (this:%p)\n", static_cast<void*>(this));
            return -1;
        }
        if (count == 0) break;
        received += static_cast<unsigned int>(count);
    }
    return static_cast<int>(received);
}

int Socket::recv_some(char* buffer, unsigned int length)
{
    const Operation operation(*this);
    return static_cast<int>(Repeat([&] { return ::recv(operation.fd, buffer, length, MSG_NOSIGNAL); }));
}

int Socket::recv_some_from(char* buffer, unsigned int length, sockaddr_in& from)
{
    socklen_t size = sizeof from;
    const Operation operation(*this);
    return static_cast<int>(
        Repeat([&] { return ::recvfrom(operation.fd, buffer, length, 0, AsSockaddr(from), &size); }));
}

int Socket::recv_now(char* buffer, unsigned int length)
{
    const Operation operation(*this);
    return static_cast<int>(Repeat([&] { return ::recv(operation.fd, buffer, length, MSG_DONTWAIT); }));
}

int Socket::recvfrom(void* buffer, unsigned int length, sockaddr_in& from)
{
    socklen_t size = sizeof from;
    const Operation operation(*this);
    const ssize_t count =
        Repeat([&] { return ::recvfrom(operation.fd, buffer, length, 0, AsSockaddr(from), &size); });
    if (count != -1) return static_cast<int>(count);
    ReportText("Socket::recvfrom - failed");
    return 0;
}

int Socket::peek(char* buffer, unsigned int length)
{
    const Operation operation(*this);
    const ssize_t count =
        Repeat([&] { return ::recv(operation.fd, buffer, length, MSG_PEEK | MSG_WAITALL | MSG_NOSIGNAL); });
    if (count != -1) return static_cast<int>(count);
    ReportText("Socket::recv - failed");
    return 0;
}

int Socket::read_select(unsigned int timeout_ms)
{
    const Deadline deadline(timeout_ms);
    int result;
    {
        const Operation operation(*this);
        if (operation.fd == -1) {
            Print("Socket::read_select - invalid socket\n");
            return 0;
        }
        pollfd readable{operation.fd, POLLIN, 0};
        result = Repeat([&] { return poll(&readable, 1, deadline.PollTimeout()); });
        if (result > 0 && readable.revents & POLLNVAL) {
            errno = EBADF;
            result = -1;
        }
    }
    if (result > 0) return 1;
    if (result < 0) ReportErrno("Socket::read_select");
    report_timeout(timeout_ms);
    return 0;
}

void Socket::report_timeout(unsigned int timeout_ms)
{
    const int error = errno;
    Print("Socket::read_select - readfds is not set (timeout secs:%ld usecs:%ld)\n",
          static_cast<long>(timeout_ms / 1000), static_cast<long>(timeout_ms % 1000 * 1000));
    errno = error;
    dump_context();
}

int Socket::wait_ready(short events, unsigned int timeout_ms)
{
    const Operation operation(*this);
    pollfd descriptor{operation.fd, events, 0};
    if (operation.fd == -1) return POLLNVAL;
    const int result = poll(&descriptor, 1, static_cast<int>(std::min<unsigned int>(timeout_ms, INT32_MAX)));
    return result > 0 ? descriptor.revents : 0;
}

Socket* Socket::wait_any(const std::vector<std::unique_ptr<Socket>>& sockets, const Socket* last)
{
    std::list<Operation> operations;
    std::vector<pollfd> descriptors;
    for (const auto& socket : sockets) {
        const int descriptor = operations.emplace_back(*socket).fd;
        if (descriptor == -1) return socket.get();
        descriptors.push_back({descriptor, POLLIN, 0});
    }
    if (poll(descriptors.data(), descriptors.size(), -1) <= 0) return nullptr;
    const auto served = std::ranges::find(sockets, last, &std::unique_ptr<Socket>::get);
    size_t next = static_cast<size_t>(served - sockets.begin()) % sockets.size();
    do next = (next + 1) % sockets.size();
    while (descriptors[next].revents == 0);
    return sockets[next].get();
}

int Socket::set_non_blocking(bool blocking)
{
    const Operation operation(*this);
    const int flags = fcntl(operation.fd, F_GETFL);
    if (flags < 0) return flags;
    return fcntl(operation.fd, F_SETFL, blocking ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

int Socket::get_buffer_size(int option)
{
    if (option != SO_SNDBUF && option != SO_RCVBUF) {
        Print("Socket::get_buffer_size: The option must be one of SO_RCVBUF or SO_SNDBUF\n");
        return 0;
    }
    int size = 0;
    socklen_t length = sizeof size;
    const Operation operation(*this);
    if (getsockopt(operation.fd, SOL_SOCKET, option, &size, &length) == 0) return size;
    ReportErrno("Socket::get_buffer_size:  Unable to get the buffer size");
    return 0;
}

int Socket::set_buffer_size(int option, int size)
{
    if (option != SO_SNDBUF && option != SO_RCVBUF) {
        Print("Socket::set_buffer_size: The option must be one of SO_RCVBUF or SO_SNDBUF\n");
        return 0;
    }
    const Operation operation(*this);
    if (SetOption(operation.fd, SOL_SOCKET, option, size) == 0) return 1;
    ReportErrno("Socket::set_buffer_size:  Unable to set the buffer size");
    return 0;
}

int Socket::change_membership(int option, const std::string& group, const std::string& interface)
{
    if (fd == -1 || group.empty() || interface.empty()) return 0;
    ip_mreq membership{};
    membership.imr_multiaddr.s_addr = inet_addr(group.c_str());
    membership.imr_interface.s_addr = inet_addr(interface.c_str());
    const Operation operation(*this);
    return setsockopt(operation.fd, IPPROTO_IP, option, &membership, sizeof membership) == 0;
}

int Socket::add_membership(const std::string& group, const std::string& interface)
{
    return change_membership(IP_ADD_MEMBERSHIP, group, interface);
}

int Socket::drop_membership(const std::string& group, const std::string& interface)
{
    return change_membership(IP_DROP_MEMBERSHIP, group, interface);
}

void dump_context()
{
    const int error = errno;
    void* frames[4096 / sizeof(void*)];
    const int count = backtrace(frames, std::size(frames));
    backtrace_symbols_fd(frames, count, STDERR_FILENO);
    if (system("vmstat") == -1) PrintError("dump_context");
    errno = error;
}

}  // namespace vexa::corvalis::config::access
