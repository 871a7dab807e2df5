/// One session of a TCP client with the server.
#include <sys/socket.h>

#include <memory>

#include "config/access/server/network/network_tcp_connection.h"
#include "fuzz/harness.h"

namespace net = vexa::corvalis::config::access;

namespace {

/// The connection that a server makes of an accepted socket. It deletes itself, with its socket, at its end.
void Serve(int descriptor)
{
    auto socket = std::make_unique<net::Socket>(AF_UNIX, SOCK_STREAM);
    socket->fd = descriptor;
    const net::Admitted admitted{net::Right::kAdmin, {}};
    auto* const connection = new net::NetworkTCPConnection(
        std::move(socket), std::endian::native, net::TcpStream::kStallTimeout, admitted, nullptr, {});
    Require(connection->Start(), "a connection starts");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Config& store = OpenStore();
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    Serve(ends[1]);
    for (size_t sent = 0; sent < size;) {
        const ssize_t count = send(ends[0], data + sent, size - sent, MSG_NOSIGNAL);
        if (count <= 0) break;  // a message that cannot be read ends the session
        sent += static_cast<size_t>(count);
    }
    shutdown(ends[0], SHUT_WR);
    char answers[16 * 1024];
    while (recv(ends[0], answers, sizeof answers, 0) > 0) {
    }
    close(ends[0]);
    RequireService(store);
    return 0;
}
