/// The least that a request and its reply can cost.
#pragma once

#include <sys/socket.h>

#include <thread>

#include "config/access/io/socket.h"
#include "config/access/protocol/network_protocol.h"

namespace net = vexa::corvalis::config::access;

/// Answers 48 bytes with 52 on a thread of its own.
class PingPong {
  public:
    explicit PingPong(int type) : m_listener(AF_INET, type), m_server(AF_INET, type), m_client(AF_INET, type)
    {
        const bool stream = type == SOCK_STREAM;
        m_listener.create();
        m_listener.bind("127.0.0.1", 0);
        if (stream) m_listener.listen();
        m_client.create();
        m_client.connect("127.0.0.1", m_listener.local_port());
        if (stream) m_listener.accept(&m_server);
        m_thread = std::thread([this, stream] { stream ? Serve() : ServeDatagrams(); });
    }
    ~PingPong()
    {
        m_client.close();
        m_listener.close();
        m_server.close();
        m_thread.join();
    }
    void Exchange()
    {
        char bytes[net::kResponseBytes] = {};
        m_client.send(bytes, net::kRequestBytes);
        m_client.recv(bytes, net::kResponseBytes);
    }

  private:
    void Serve()
    {
        char bytes[net::kResponseBytes] = {};
        while (m_server.recv(bytes, net::kRequestBytes) == net::kRequestBytes)
            m_server.send(bytes, net::kResponseBytes);
    }
    void ServeDatagrams()
    {
        char bytes[net::kResponseBytes] = {};
        sockaddr_in from;
        while (m_listener.recvfrom(bytes, net::kRequestBytes, from) > 0)
            m_listener.sendto(bytes, net::kResponseBytes, from);
    }

    net::Socket m_listener, m_server, m_client;
    std::thread m_thread;
};
