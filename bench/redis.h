/// A Redis server to compare with.
#pragma once

#include <memory>
#include <string>

#include "config/access/io/socket.h"
#include "process.h"

/// On a free port, without persistence; ended with the scope. Absent when it is not installed.
class Redis {
  public:
    using Socket = vexa::corvalis::config::access::Socket;

    Redis();
    bool IsPresent() const { return m_client != nullptr; }
    /// Over one connection, one after the other.
    void Get() { Command("*2\r\n$3\r\nGET\r\n$1\r\nk\r\n"); }
    void Set() { Command("*3\r\n$3\r\nSET\r\n$1\r\nk\r\n$1\r\n7\r\n"); }
    /// Without a wait for the replies, which are taken at the end.
    void Publish(int messages);
    /// A connection that has subscribed and is sent kMessageBytes for each message.
    std::unique_ptr<Socket> Subscribe() const;
    static constexpr size_t kMessageBytes = 34;

  private:
    std::unique_ptr<Socket> Connect() const;
    void Command(const char* bytes);

    const int m_port;
    const Process m_server;
    std::unique_ptr<Socket> m_client;
};
