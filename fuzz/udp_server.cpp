/// Datagrams to the UDP server, one a piece.
#include <cstring>
#include <vector>

#include "config/access/server/network/network_udp_connection.h"
#include "fuzz/harness.h"

namespace net = vexa::corvalis::config::access;

namespace {

/// Four configurations: others would have to be made first, and the events of the usual ones reach all
/// programs of this machine.
constexpr eConfigID_t kFirstConfig = 4096;
constexpr size_t kConfigs = 4;

void ChooseConfig(std::string& datagram)
{
    constexpr size_t kConfigWord = 12;
    if (datagram.size() < kConfigWord + sizeof(uint32_t)) return;
    const auto chosen = static_cast<unsigned char>(datagram[kConfigWord + 3]) % kConfigs;
    const uint32_t word = vexa::wire::NetworkOrder::Convert(static_cast<uint32_t>(kFirstConfig + chosen));
    memcpy(datagram.data() + kConfigWord, &word, sizeof word);
}

/// Replies go to the server's own socket, where they stay unread.
struct Server {
    Server()
    {
        for (size_t i = 0; i < kConfigs; ++i)
            stores[i] = &OpenStore(kFirstConfig + static_cast<eConfigID_t>(i));
        Require(socket.create() && socket.bind("127.0.0.1", 0), "there is a socket");
        client = socket.inet_address;
        client.sin_port = htons(static_cast<uint16_t>(socket.local_port()));
    }
    net::Socket socket{AF_INET, SOCK_DGRAM};
    sockaddr_in client{};
    Config* stores[kConfigs];
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Server& server = *new Server;
    net::NetworkUDPConnection connection(server.socket);
    for (Pieces pieces(data, size); !pieces.IsEmpty();) {
        std::string datagram = pieces.Next();
        ChooseConfig(datagram);
        const std::vector<char> exactly(datagram.begin(), datagram.end());
        connection.ProcessMessages(exactly.data(), static_cast<int>(exactly.size()), server.client);
    }
    for (Config* const store : server.stores) RequireService(*store);
    return 0;
}
