#include "config/access/client/network/network_factory.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <optional>

#include "config/access/client/network/network_tcp_client.h"
#include "config/access/client/network/network_udp_client.h"
#include "config/access/protocol/uri.h"

namespace vexa::corvalis::config::access {

namespace {

eConfigID_t ReadConfigID(const std::string& uri)
{
    constexpr std::string_view kKey = "configid=";
    const size_t key = uri.find(kKey);
    if (key == std::string::npos) return 0;
    const char* const text = uri.c_str() + key + kKey.size();
    char* end;
    const long number = strtol(text, &end, 10);
    if (end == text) {
        const int matches = *text == '\0' ? EOF : 0;  // as scanf counts them
        fprintf(stderr, "NetworkFactory::Connect - unable to read configid, matches = %d, uri = %s\n",
                matches, uri.c_str());
        return 0;
    }
    using Limits = std::numeric_limits<eConfigID_t>;
    return static_cast<eConfigID_t>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

std::optional<std::endian> ReadByteOrder(const std::string& uri)
{
    constexpr std::string_view kKey = "byteorder=";
    const size_t key = uri.find(kKey);
    if (key == std::string::npos) return std::endian::native;
    const size_t start = key + kKey.size();
    if (uri.substr(start, uri.find_first_of("/?&;, ", start) - start) == "big") return std::endian::big;
    fprintf(stderr, "NetworkFactory::Connect - byteorder is big or left out, uri = %s\n", uri.c_str());
    return std::nullopt;
}

struct Transport {
    int socketType;
    bool multicast;
};

std::optional<Transport> ChooseTransport(const std::string& uri)
{
    if (uri.find("tcp") != std::string::npos) return Transport{SOCK_STREAM, false};
    if (uri.find("udp") != std::string::npos) return Transport{SOCK_DGRAM, false};
    if (uri.find("multicast") != std::string::npos) return Transport{SOCK_DGRAM, true};
    fprintf(stderr, "NetworkFactory::Connect - The transport for %s is not supported\n", uri.c_str());
    return std::nullopt;
}

std::unique_ptr<Socket> OpenSocket(const Transport& transport, const url& parts)
{
    std::unique_ptr<Socket> socket(new (std::nothrow) Socket(AF_INET, transport.socketType));
    if (!socket) {
        fputs("NetworkFactory::Connect - failed to allocate a socket\n", stderr);
        return nullptr;
    }
    if (!socket->create()) {
        fputs("NetworkFactory::Connect - failed to create socket\n", stderr);
        return nullptr;
    }
    const long port = strtol(parts.port.c_str(), nullptr, 10);
    const int number = port > 0 && port <= UINT16_MAX ? static_cast<int>(port) : -1;
    if (transport.multicast ? number > 0 && socket->bind(number)
                            : number > 0 && socket->connect(parts.address, number))
        return socket;
    fprintf(stderr, "NetworkFactory::Connect - failed to connect to host %s, port %ld\n",
            parts.address.c_str(), port);
    return nullptr;
}

NetworkClient* MakeClient(unsigned int connectionID, std::unique_ptr<Socket> socket, eConfigID_t configID)
try {
    if (socket->type == SOCK_STREAM) return new NetworkTCPClient(connectionID, socket.release(), configID);
    return new NetworkUDPClient(connectionID, socket.release(), configID);
} catch (const std::exception& error) {  // no memory, or no thread
    fprintf(stderr, "NetworkFactory::Connect - failed to make a client: %s\n", error.what());
    return nullptr;
}

}  // namespace

std::atomic<unsigned int> NetworkFactory::s_connection_counter = 0;

NetworkClient* NetworkFactory::Connect(std::string uri)
try {
    const unsigned int connectionID =
        s_connection_counter++ << 16 | (static_cast<unsigned>(getpid()) & 0xFFFF);
    url parts;
    parts.parse(uri);  // what cannot be parsed leads to no host
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
    fprintf(stderr, "NetworkFactory::Connect - failed to confirm connection with host %s\n",
            parts.address.c_str());
    delete client;
    return nullptr;
} catch (const std::bad_alloc&) {
    fputs("NetworkFactory::Connect - no memory\n", stderr);
    return nullptr;
}

void NetworkFactory::Disconnect(NetworkClient* client)
{
    if (!client) return;
    client->ConfirmDisconnect();
    NetworkClient::Release(client);
}

}  // namespace vexa::corvalis::config::access
