/// A UDP client whose server answers anything, and events that come from anywhere. Each piece is a datagram:
/// one before the right answer to each request, the others as events.
#include <sys/socket.h>

#include <thread>

#include "config/access/client/network/network_udp_client.h"
#include "config/access/protocol/value_payload.h"
#include "fuzz/harness.h"
#include "fuzz/listener.h"

namespace net = vexa::corvalis::config::access;

namespace {

constexpr unsigned int kConnection = 0x1234;
constexpr int kRequests = 8;  // of UseClient

std::string RightAnswer(const net::XCONFIGMGR_REQUEST_T& request)
{
    const bool data = request.msgtype == XCFG_GET_DATA_REQUEST;
    const eMessageType_t type{data ? XCFG_GET_DATA_RESPONSE : ResponseTo(eMessageType_t{request.msgtype})};
    if (type != XCFG_CONNECT_RESPONSE && type != XCFG_DISCONNECT_RESPONSE)
        return net::MessageBytes(net::ResponseFor(request, type));
    net::XCONFIGMGR_CONNECTION_RESPONSE_T response;
    static_cast<net::MessagePrefix&>(response) = request;
    response.msgtype = type;
    return net::MessageBytes(response);
}

void Send(int descriptor, const std::string& bytes)
{
    send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

void Serve(int server, Pieces& pieces)
{
    for (int i = 0; i < kRequests; ++i) {
        char bytes[net::kMaxMessageBytes] = {};
        if (recv(server, bytes, sizeof bytes, 0) <= 0) return;
        net::XCONFIGMGR_REQUEST_T request;
        net::Decode(bytes, sizeof bytes, request);
        Send(server, pieces.Next());
        Send(server, RightAnswer(request));
    }
}

void UseClient(net::NetworkUDPClient& client)
{
    unsigned int number;
    std::string text, bytes;
    client.ConfirmConnection();
    client.Get(eParamID_RegisterSave, number);
    client.Get(eParamID_ReelName, text);
    client.Set(eParamID_RegisterSave, 1);
    client.Set(eParamID_ReelName, text.substr(0, 100));
    client.GetData(eParamID_SW_Error_Alarm, bytes);
    client.SetData(eParamID_SW_Error_Alarm, bytes);
    Require(client.IsReachable(), "a right answer is found among others");
    client.ConfirmDisconnect();
}

void TestReplies(Pieces& pieces)
{
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    std::thread server(Serve, ends[0], std::ref(pieces));
    auto* const socket = new net::Socket(AF_UNIX, SOCK_DGRAM);
    socket->fd = ends[1];
    auto* const client = new net::NetworkUDPClient(kConnection, socket, 0);
    UseClient(*client);
    server.join();
    net::NetworkClient::Release(client);
    close(ends[0]);
}

/// The client listens on a port of its own instead of the group's, which every server of this machine sends
/// to.
void TestEvents(Pieces& pieces)
{
    auto* const socket = new net::Socket(AF_INET, SOCK_DGRAM);
    Require(socket->create() && socket->bind("127.0.0.1", 0), "there is a socket");
    net::Socket server(AF_INET, SOCK_DGRAM);
    Require(server.create() && server.connect("127.0.0.1", socket->local_port()), "and another one");
    auto* const client = new net::NetworkUDPClient(kConnection, socket, 0);
    Listener listener;
    Require(client->AddConfigEventListener(&listener), "a client can listen");
    while (!pieces.IsEmpty()) Send(server.fd, pieces.Next());

    net::XCONFIGMGR_RESPONSE_T last;
    last.msgtype = XCFG_PARAM_CHANGED_EVENT;
    last.paramID = eParamID_SystemState;
    last.value = Listener::kShuttingDown;
    do Send(server.fd, net::MessageBytes(last));  // there may be no room yet
    while (!listener.HeardLast());
    net::NetworkClient::Release(client);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    [[maybe_unused]] static Config& catalogue = OpenStore();
    Pieces pieces(data, size);
    TestReplies(pieces);
    TestEvents(pieces);
    return 0;
}
