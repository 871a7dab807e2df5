/// A network server in this process, and the stores that it serves.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "config/access/connector/config_factory_impl.h"
#include "config/access/server/network/network_server.h"
#include "config/config.h"
#include "config/descriptors/registry/registry.h"
#include "config/manager/config_manager.h"

/// A connection of the connector that is given back with its scope.
class Connected {
  public:
    explicit Connected(const std::string& uri)
    {
        CreateDescriptors();
        m_config = ConfigFactoryImpl::GetInstance()->Connect(uri);
    }
    ~Connected() { ConfigFactoryImpl::GetInstance()->Disconnect(m_config); }
    Connected(const Connected&) = delete;
    Connected& operator=(const Connected&) = delete;
    Config* operator->() const { return m_config; }
    Config& operator*() const { return *m_config; }
    Config* get() const { return m_config; }

  private:
    Config* m_config;
};

/// The store of a configuration, which lives as long as it has users.
struct LocalStore : Connected {
    explicit LocalStore(eConfigID_t id) : Connected("local:configid=" + std::to_string(id)) {}
    ConfigManager* Manager() const { return dynamic_cast<ConfigManager*>(get()); }
};

/// A TCP (SOCK_STREAM) or UDP (SOCK_DGRAM) server on a free port, stopped with its scope:
///
///     TestServer server(SOCK_STREAM);
///     ... "tcp://127.0.0.1:" + std::to_string(server.port)
class TestServer {
  public:
    /// @param announced  configurations whose changes a UDP server multicasts by itself.
    /// @param stallTimeout  of TCP clients that take nothing.
    explicit TestServer(int type = SOCK_STREAM, const std::vector<eConfigID_t>& announced = {},
                        std::chrono::milliseconds stallTimeout = std::chrono::minutes(1))
        : m_server(new vexa::corvalis::config::access::NetworkServer(AF_INET, type, 0))
    {
        CreateDescriptors();
        for (const eConfigID_t id : announced) m_server->Announce(id);
        m_server->SetStallTimeout(stallTimeout);
        EXPECT_TRUE(m_server->Init());
        port = m_server->Port();
        EXPECT_TRUE(m_server->Start());
    }
    ~TestServer() { Stop(); }
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    /// Stops it early. TCP connections go on until their clients leave.
    void Stop()
    {
        if (!m_server) return;
        m_server->Stop();
        m_server = nullptr;
    }
    /// "tcp://127.0.0.1:PORT/configid=N".
    std::string Uri(const char* scheme, eConfigID_t id = 0) const
    {
        return std::string(scheme) + "://127.0.0.1:" + std::to_string(port) +
               "/configid=" + std::to_string(id);
    }

    int port = 0;

  private:
    vexa::corvalis::config::access::NetworkServer* m_server;  // its thread's, once started
};
