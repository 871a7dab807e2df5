/// A client of a local socket that speaks lines. Every wait has an end.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "support/raw_peer.h"

class LineClient {
  public:
    /// @param path  of the socket. A failure leaves its reason in `error`.
    explicit LineClient(const std::string& path) : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{AF_UNIX, ""};
        strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            error = errno;
    }
    ~LineClient() { close(m_socket); }
    LineClient(const LineClient&) = delete;
    LineClient& operator=(const LineClient&) = delete;

    void Send(const std::string& bytes) { send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    /// Without its end; empty at the end of the connection, and when none comes.
    std::string Receive()
    {
        for (size_t end = 0; (end = m_input.find('\n')) == std::string::npos;) {
            pollfd readable{m_socket, POLLIN, 0};
            char bytes[65'536];
            const ssize_t count =
                poll(&readable, 1, RawPeer::kDeadlineMs) > 0 ? recv(m_socket, bytes, sizeof bytes, 0) : 0;
            if (count <= 0) return "";
            m_input.append(bytes, static_cast<size_t>(count));
        }
        const size_t end = m_input.find('\n');
        const std::string line = m_input.substr(0, end);
        m_input.erase(0, end + 1);
        return line;
    }
    nlohmann::json ReceiveJson() { return nlohmann::json::parse(Receive(), nullptr, false); }
    /// A request and its answer.
    nlohmann::json Ask(const nlohmann::json& request)
    {
        Send(request.dump() + "\n");
        return ReceiveJson();
    }

    int error = 0;

  private:
    const int m_socket;
    std::string m_input;
};
