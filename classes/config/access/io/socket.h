/// Socket: one BSD socket, local (a file in /tmp), IPv4 or IPv6, stream or datagram.
#pragma once

#include <netinet/in.h>
#include <sys/un.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "config/base/mutex.h"

namespace vexa::corvalis::config::access {

/// Without free descriptors or memory every call fails at once: servers wait this long before they repeat it.
inline constexpr unsigned int kPauseWhenExhaustedMs = 100;

/// Operations answer 1 for success and 0 for a failure, which they report on standard error, unless they say
/// otherwise. Interrupted calls are repeated. Nothing throws.
///
/// Thread: the one that owns the socket. Another thread may only `close()` it, to wake the owner, and send.
class Socket {
  public:
    /// @param domain  AF_UNIX or AF_INET; AF_INET6 to listen: it is never connected by this class.
    /// @param type    SOCK_STREAM or SOCK_DGRAM.
    Socket(int domain, int type);
    virtual ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    const int domain;
    const int type;
    std::atomic<int> fd = -1;    ///< -1 while there is no descriptor
    sockaddr_in inet_address{};  ///< last bound, connected or accepted
    sockaddr_un local_address{};
    std::string host = "127.0.0.1";  ///< of the last successful connect
    int port = 0;                    ///< of the last successful bind or connect

    int create();
    /// Shuts the socket down at once, which wakes a thread that is inside an operation. The descriptor number
    /// stays taken until that operation has returned, so that it never works on a descriptor that another
    /// open has got.
    void close();

    /// For a datagram socket, before it is bound: no other socket, of another user for instance, can have its port
    /// as well and take its datagrams. Sockets that connect, and those of port 0, do so by themselves.
    int keep_port_alone();

    /// The file of a local socket: named by its number; the name is ignored.
    std::string build_local_path(const std::string& name, int port) const;
    int bind(int port);
    /// @param address  numeric; empty: any.
    int bind(const std::string& address, int port);
    int bind_local(int port);
    int bind_inet(int port);
    int listen();
    /// @param peer  unopened; gets the new descriptor.
    /// @param from  its address: also of one that has reset the connection by then, for which getpeername has none.
    int accept(Socket* peer, sockaddr_storage* from = nullptr);
    int accept_local(Socket* peer);
    int accept_inet(Socket* peer, sockaddr_storage* from = nullptr);
    /// @param host  dotted; names are not looked up. Text that is no address connects to this host.
    int connect(const std::string& host, int port);
    int connect_local(const std::string& host, int port);
    int connect_inet(const std::string& host, int port);
    /// The port that the system gave to a socket bound to port 0; 0 on failure.
    int local_port() const;
    bool is_connected() const;

    /// @param length  in: bytes to send; out: bytes sent.
    int sendall(const char* data, int* length);
    /// All of it, or failure; a datagram is sent whole or not at all.
    int send(const char* data, unsigned int length);
    /// As much as the system takes now.
    /// @return bytes sent, perhaps 0; -1 on failure, silently.
    int send_some(const char* data, unsigned int length);
    int sendto(const void* data, unsigned int length, const sockaddr_in& to);

    /// Stream: waits for all of `length`. @return `length`; less when the peer closed; -1 on failure.
    /// Datagram: one datagram. @return its size; 0 on failure, too.
    int recv(char* buffer, unsigned int length);
    /// Waits for bytes. @return their number; 0 when the peer closed; -1 on failure, silently.
    int recv_some(char* buffer, unsigned int length);
    /// The same of a datagram, with its sender.
    int recv_some_from(char* buffer, unsigned int length, sockaddr_in& from);
    /// One datagram that is already there. @return its size; -1 when there is none, silently.
    int recv_now(char* buffer, unsigned int length);
    /// @return the size of the datagram; 0 on failure, too.
    int recvfrom(void* buffer, unsigned int length, sockaddr_in& from);
    /// Waits for `length` bytes and leaves them to be read. @return their number; 0 on failure.
    int peek(char* buffer, unsigned int length);
    /// Whether the socket becomes readable in time. A time-out writes a stack trace and system statistics,
    /// so this is for replies that must come, not for polling.
    int read_select(unsigned int timeout_ms);
    /// Writes the report of a time-out. `errno` stays.
    static void report_timeout(unsigned int timeout_ms);
    /// Waits, for polling. @return the events of poll that are ready; 0 after the time, or when interrupted.
    int wait_ready(short events, unsigned int timeout_ms);
    /// Waits for input of any of them. @param last  of them, whose turn comes last: a busy one starves no other; null:
    /// none. @return the next that has some, or is closed; null when interrupted.
    static Socket* wait_any(const std::vector<std::unique_ptr<Socket>>& sockets, const Socket* last);

    /// Deliberately inverted, callers rely on it: false makes the descriptor non-blocking, true blocking.
    int set_non_blocking(bool blocking);
    /// @param option  SO_RCVBUF or SO_SNDBUF. @return bytes; 0 on failure.
    int get_buffer_size(int option);
    int set_buffer_size(int option, int size);
    /// @param group, interface  dotted.
    int add_membership(const std::string& group, const std::string& interface);
    int drop_membership(const std::string& group, const std::string& interface);

  private:
    class Operation;
    int bind_inet6(const std::string& address, int port);
    int bind_to(const sockaddr* address, socklen_t length, int port);
    int Enter() const;
    void Leave() const;
    int change_membership(int option, const std::string& group, const std::string& interface);

    mutable Mutex m_useLock;
    mutable int m_users VEXA_GUARDED_BY(m_useLock) = 0;             // operations that are running
    mutable std::vector<int> m_closing VEXA_GUARDED_BY(m_useLock);  // shut down, closed by the last user
};

/// Writes the stack of the caller and the system's statistics to standard error; `errno` stays. Thread: any.
void dump_context();

}  // namespace vexa::corvalis::config::access
