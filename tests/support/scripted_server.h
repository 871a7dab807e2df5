/// A server that follows a script: what a client does with a peer that splits, mixes up or refuses.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <functional>
#include <string>
#include <thread>

#include "config/access/io/socket.h"
#include "config/access/protocol/value_payload.h"

namespace net = vexa::corvalis::config::access;

/// The answer to a request that has no value.
inline std::string Confirmation(const net::MessagePrefix& request, uint32_t type, uint32_t error = 0)
{
    net::XCONFIGMGR_CONNECTION_RESPONSE_T response;
    static_cast<net::MessagePrefix&>(response) = request;
    response.msgtype = type;
    response.error = error;
    return net::MessageBytes(response);
}

/// One end of a conversation in records. Every wait has an end.
class ScriptedPeer {
  public:
    explicit ScriptedPeer(net::Socket& socket) : m_socket(socket) {}

    /// The next request; its payload, if any, comes after it. A Disconnect is shorter than the others.
    net::XCONFIGMGR_REQUEST_T Receive(uint32_t bytes = net::kRequestBytes)
    {
        char data[net::kMaxMessageBytes] = {};
        EXPECT_TRUE(m_socket.read_select(10'000));
        if (m_socket.type == SOCK_STREAM) {
            const uint32_t first = std::min(bytes, 24u);
            EXPECT_EQ(m_socket.recv(data, first), static_cast<int>(first));
            net::MessagePrefix prefix;
            if (net::Decode(data, first, prefix) && prefix.msgtype == XCFG_DISCONNECT_REQUEST) bytes = first;
            if (bytes > first) {
                EXPECT_EQ(m_socket.recv(data + first, bytes - first), static_cast<int>(bytes - first));
            }
        } else {
            EXPECT_GT(m_socket.recvfrom(data, sizeof data, m_client), 0);
        }
        net::XCONFIGMGR_REQUEST_T request;
        net::Decode(data, sizeof data, request);
        return request;
    }
    /// The payload of a request, over TCP.
    std::string ReceiveBytes(uint32_t length)
    {
        std::string bytes(length, '\0');
        EXPECT_TRUE(m_socket.read_select(10'000));
        EXPECT_EQ(m_socket.recv(bytes.data(), length), static_cast<int>(length));
        return bytes;
    }
    void Send(const std::string& bytes)
    {
        if (m_socket.type == SOCK_STREAM)
            m_socket.send(bytes.data(), static_cast<unsigned int>(bytes.size()));
        else
            m_socket.sendto(bytes.data(), static_cast<unsigned int>(bytes.size()), m_client);
    }
    /// Answers the client's first request.
    void Connect(uint32_t type = XCFG_CONNECT_RESPONSE, uint32_t error = 0)
    {
        Send(Confirmation(Receive(24), type, error));
    }
    void Close() { m_socket.close(); }
    /// Says nothing until the client has ended the connection.
    void AwaitEnd()
    {
        char data[net::kMaxMessageBytes];
        while (m_socket.wait_ready(POLLIN, 10'000) != 0 && m_socket.recv_some(data, sizeof data) > 0)
            continue;
    }

  private:
    net::Socket& m_socket;
    sockaddr_in m_client{};
};

/// Serves one client, over TCP (SOCK_STREAM) or UDP, on a free port and a thread of its own.
class ScriptedServer {
  public:
    ScriptedServer(int type, std::function<void(ScriptedPeer&)> script) : m_socket(AF_INET, type)
    {
        EXPECT_TRUE(m_socket.create() && m_socket.bind("127.0.0.1", 0));
        EXPECT_TRUE(type == SOCK_DGRAM || m_socket.listen());
        m_uri = (type == SOCK_STREAM ? "tcp://127.0.0.1:" : "udp://127.0.0.1:") +
                std::to_string(m_socket.local_port());
        m_thread = std::thread([this, type, script = std::move(script)] {
            net::Socket accepted(AF_INET, type);
            if (type == SOCK_STREAM && !m_socket.accept(&accepted)) return;
            ScriptedPeer peer(type == SOCK_STREAM ? accepted : m_socket);
            script(peer);
        });
    }
    ~ScriptedServer() { m_thread.join(); }

    const std::string& Uri() const { return m_uri; }

  private:
    net::Socket m_socket;
    std::string m_uri;
    std::thread m_thread;
};

/// A response to a request, with a value or a payload.
inline std::string ReplyTo(const net::XCONFIGMGR_REQUEST_T& request, eMessageType_t type, uint32_t value,
                           const std::string& payload = "", uint32_t error = 0)
{
    auto response = net::ResponseFor(request, type);
    response.value = value;
    response.error = error;
    response.streamLength = static_cast<uint32_t>(payload.size());
    response.streamFormat = net::kStreamFormat;
    return net::MessageBytes(response, payload);
}
