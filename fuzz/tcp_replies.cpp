/// A TCP client whose server sends anything. Each piece is the result of one read of the client; then the
/// server closes.
#include <sys/socket.h>

#include "config/access/client/network/network_tcp_client.h"
#include "fuzz/harness.h"
#include "fuzz/listener.h"

namespace net = vexa::corvalis::config::access;

namespace {

/// A socket that gives a stream piece by piece, all of which is there already.
net::Socket* SocketWith(Pieces pieces, int& server)
{
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    while (!pieces.IsEmpty()) {
        const std::string piece = pieces.Next();  // an empty one would be the end
        if (!piece.empty()) send(ends[0], piece.data(), piece.size(), MSG_DONTWAIT);
    }
    shutdown(ends[0], SHUT_WR);
    auto* const socket = new net::Socket(AF_UNIX, SOCK_STREAM);
    socket->fd = ends[1];
    server = ends[0];
    return socket;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    [[maybe_unused]] static Config& catalogue = OpenStore();
    constexpr unsigned int kConnection = 0x1234;
    int server;
    auto* const client = new net::NetworkTCPClient(kConnection, SocketWith({data, size}, server), 0);
    Listener listener;
    unsigned int number;
    std::string text;
    client->ConfirmConnection();
    client->Get(eParamID_RegisterSave, number);
    client->Get(eParamID_ReelName, text);
    client->Set(eParamID_RegisterSave, 1);
    client->Set(eParamID_ReelName, text.substr(0, 100));
    client->AddConfigEventListener(&listener);
    client->Get(eParamID_ReelName, text);
    client->RemoveConfigEventListener(&listener);
    client->ConfirmDisconnect();
    net::NetworkClient::Release(client);
    close(server);
    return 0;
}
