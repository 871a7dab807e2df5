#include "redis.h"

#include <chrono>
#include <cstring>
#include <thread>

namespace {

constexpr std::string_view kMessage = "*3\r\n$7\r\nmessage\r\n$1\r\nc\r\n$4\r\n1234\r\n";
static_assert(kMessage.size() == Redis::kMessageBytes);

}  // namespace

Redis::Redis()
    : m_port(FreePort()),
      m_server({"redis-server", "--port", std::to_string(m_port), "--save", "", "--appendonly", "no",
                "--loglevel", "warning"})
{
    for (int i = 0; i < 100 && !m_client; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        m_client = Connect();
    }
    if (m_client) Set();
}

std::unique_ptr<Redis::Socket> Redis::Connect() const
{
    auto socket = std::make_unique<Socket>(AF_INET, SOCK_STREAM);
    if (!socket->create() || !socket->connect("127.0.0.1", m_port)) return nullptr;
    return socket;
}

void Redis::Command(const char* bytes)
{
    char reply[64];  // the replies of these commands come in one piece
    m_client->send(bytes, static_cast<unsigned int>(strlen(bytes)));
    m_client->recv_some(reply, sizeof reply);
}

void Redis::Publish(int messages)
{
    constexpr std::string_view kCommand = "*3\r\n$7\r\nPUBLISH\r\n$1\r\nc\r\n$4\r\n1234\r\n";
    for (int i = 0; i < messages; ++i) m_client->send(kCommand.data(), kCommand.size());
    char reply[4096];  // ":3\r\n" each
    for (int lines = 0; lines < messages;) {
        const int length = m_client->recv_some(reply, sizeof reply);
        if (length <= 0) return;
        for (int i = 0; i < length; ++i) lines += reply[i] == '\n';
    }
}

std::unique_ptr<Redis::Socket> Redis::Subscribe() const
{
    auto socket = Connect();
    constexpr std::string_view kCommand = "*2\r\n$9\r\nSUBSCRIBE\r\n$1\r\nc\r\n";
    socket->send(kCommand.data(), kCommand.size());
    char confirmation[64];
    socket->recv_some(confirmation, sizeof confirmation);
    return socket;
}
