#include "config/access/client/network/network_factory.h"

#include <sys/socket.h>
#include <unistd.h>

#include <bit>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>

#include "config/access/client/network/network_tcp_client.h"
#include "config/access/client/network/network_udp_client.h"
#include "config/access/protocol/uri.h"
#include "config/base/log.h"

namespace vexa::corvalis::config::access {

namespace {

eConfigID_t ReadConfigID(const std::string& uri)
{
    const auto text = vexa::uri::Option(uri, "configid");
    if (!text) return 0;
    if (const auto number = vexa::uri::ParseConfigID(*text)) return *number;
    const int matches = text->empty() ? EOF : 0;  // as scanf counts them
    Print("NetworkFactory::Connect - unable to read configid, matches = %d, uri = %s\n", matches,
          uri.c_str());
    return 0;
}

std::optional<std::endian> ReadByteOrder(const std::string& uri)
{
    const auto text = vexa::uri::Option(uri, "byteorder");
    if (!text) return std::endian::native;
    if (text->substr(0, text->find_first_of("/?&;, ")) == "big") return std::endian::big;
    Print("NetworkFactory::Connect - byteorder is big or left out, uri = %s\n", uri.c_str());
    return std::nullopt;
}

struct Transport {
    int socketType;
    bool multicast;
};

std::optional<Transport> ChooseTransport(const std::string& uri)
{
    if (vexa::uri::Contains(uri, "tcp")) return Transport{SOCK_STREAM, false};
    if (vexa::uri::Contains(uri, "udp")) return Transport{SOCK_DGRAM, false};
    if (vexa::uri::Contains(uri, "multicast")) return Transport{SOCK_DGRAM, true};
    Print("NetworkFactory::Connect - The transport for %s is not supported\n", uri.c_str());
    return std::nullopt;
}

/// The socket itself would take a name for this host.
bool ConnectTo(Socket& socket, const std::string& host, int port)
{
    std::string reason;
    const auto address = vexa::uri::ResolveHost(host, reason);
    if (!address) return Report("NetworkFactory::Connect - host %s: %s\n", host.c_str(), reason.c_str());
    return socket.connect(*address, port);
}

std::unique_ptr<Socket> OpenSocket(const Transport& transport, const url& parts)
{
    std::unique_ptr<Socket> socket(new (std::nothrow) Socket(AF_INET, transport.socketType));
    if (!socket) {
        Print("NetworkFactory::Connect - failed to allocate a socket\n");
        return nullptr;
    }
    if (!socket->create()) {
        Print("NetworkFactory::Connect - failed to create socket\n");
        return nullptr;
    }
    const long port = strtol(parts.port.c_str(), nullptr, 10);
    const int number = port > 0 && port <= UINT16_MAX ? static_cast<int>(port) : -1;
    // Bound to the group, nobody can send to it alone.
    if (number > 0 && (transport.multicast ? socket->bind(kMulticastGroup, number)
                                           : ConnectTo(*socket, parts.address, number)))
        return socket;
    Print("NetworkFactory::Connect - failed to connect to host %s, port %ld\n", parts.address.c_str(), port);
    return nullptr;
}

NetworkClient* MakeClient(unsigned int connectionID, std::unique_ptr<Socket> socket, eConfigID_t configID)
try {
    if (socket->type == SOCK_STREAM) return new NetworkTCPClient(connectionID, socket.release(), configID);
    return new NetworkUDPClient(connectionID, socket.release(), configID);
} catch (const std::exception& error) {  // no memory, or no thread
    Print("NetworkFactory::Connect - failed to make a client: %s\n", error.what());
    return nullptr;
}

}  // namespace

std::atomic<unsigned int> NetworkFactory::s_connection_counter = 0;

NetworkClient* NetworkFactory::Connect(std::string uri)
try {
    const unsigned int connectionID =
        s_connection_counter++ << 16 | (static_cast<unsigned>(getpid()) & 0xFFFF);
    url parts;
    parts.parse(uri);  // a URI that cannot be parsed leads to no host
    const eConfigID_t configID = ReadConfigID(uri);
    const auto transport = ChooseTransport(uri);
    const auto byteOrder = ReadByteOrder(uri);
    if (!transport || !byteOrder) return nullptr;
    auto socket = OpenSocket(*transport, parts);
    if (!socket) return nullptr;

    NetworkClient* const client = MakeClient(connectionID, std::move(socket), configID);
    if (!client) return nullptr;
    client->SetPayloadOrder(*byteOrder);
    if (transport->multicast || client->ConfirmConnection()) return client;
    Print("NetworkFactory::Connect - failed to confirm connection with host %s\n", parts.address.c_str());
    delete client;
    return nullptr;
} catch (const std::bad_alloc&) {
    Print("NetworkFactory::Connect - no memory\n");
    return nullptr;
}

void NetworkFactory::Disconnect(NetworkClient* client)
{
    if (!client) return;
    client->ConfirmDisconnect();
    NetworkClient::Release(client);
}

}  // namespace vexa::corvalis::config::access
