/// Measures what reaching a store over the network costs beside a bare exchange of the same bytes, and prints
/// one table. In every row the two sides take turns within one run, and every figure is a median.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "config/access/config_factory_impl.h"
#include "config/access/network_client.h"
#include "config/access/network_server.h"
#include "config/descriptors/registry.h"
#include "ratio_table.h"

namespace {

namespace net = vexa::corvalis::config::access;
constexpr eParam_t kNumber = eParamID_RegisterSave, kText = eParamID_CustomClipName;

// --- the floor ---

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

/// A Redis server on a free port, and one connection to it. Absent when it cannot be started.
class Redis {
  public:
    Redis()
    {
        net::Socket probe(AF_INET, SOCK_STREAM);
        probe.create();
        probe.bind("127.0.0.1", 0);
        const std::string port = std::to_string(probe.local_port());
        probe.close();
        m_child = fork();
        if (m_child == 0) {
            execlp("redis-server", "redis-server", "--port", port.c_str(), "--save", "", "--appendonly", "no",
                   "--loglevel", "warning", nullptr);
            _exit(127);
        }
        for (int i = 0; i < 100 && !m_present; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            m_socket.close();
            m_present = m_socket.create() && m_socket.connect("127.0.0.1", std::stoi(port));
        }
        if (m_present) Command("*3\r\n$3\r\nSET\r\n$1\r\nk\r\n$1\r\n7\r\n");
    }
    ~Redis()
    {
        kill(m_child, SIGTERM);
        waitpid(m_child, nullptr, 0);
    }
    bool IsPresent() const { return m_present; }
    void Get() { Command("*2\r\n$3\r\nGET\r\n$1\r\nk\r\n"); }
    void Set() { Command("*3\r\n$3\r\nSET\r\n$1\r\nk\r\n$1\r\n7\r\n"); }

  private:
    void Command(const char* bytes)
    {
        char reply[64];  // the replies of these commands come in one piece
        m_socket.send(bytes, static_cast<unsigned int>(strlen(bytes)));
        m_socket.recv_some(reply, sizeof reply);
    }

    pid_t m_child;
    bool m_present = false;
    net::Socket m_socket{AF_INET, SOCK_STREAM};
};

// --- the library ---

/// A server of this process and clients of it.
class Service {
  public:
    explicit Service(int type) : m_server(new net::NetworkServer(AF_INET, type, 0))
    {
        if (!m_server->Init()) exit(1);
        m_uri = (type == SOCK_STREAM ? "tcp://127.0.0.1:" : "udp://127.0.0.1:") +
                std::to_string(m_server->Port());
        if (!m_server->Start()) exit(1);
    }
    ~Service() { m_server->Stop(); }
    Config* Connect(const char* options = "") const
    {
        return ConfigFactoryImpl::GetInstance()->Connect(m_uri + options);
    }
    const std::string& Uri() const { return m_uri; }

  private:
    net::NetworkServer* const m_server;
    std::string m_uri;
};

/// Gets a second of many clients at once, all together.
double TotalRate(const Service& service, int clients)
{
    constexpr int kGets = 20'000;
    std::vector<Config*> configs;
    for (int i = 0; i < clients; ++i) configs.push_back(service.Connect());
    const double seconds = SecondsOf([&] {
        std::vector<std::thread> threads;
        for (Config* const config : configs)
            threads.emplace_back([config, clients] {
                for (int i = 0; i < kGets / clients; ++i) config->Get(kNumber);
            });
        for (std::thread& thread : threads) thread.join();
    });
    for (Config* const config : configs) ConfigFactoryImpl::GetInstance()->Disconnect(config);
    return kGets / seconds;
}

void CompareManyClients(const Service& service)
{
    for (const int clients : {8, 64}) {
        std::vector<double> ones, manys, ratios;
        for (int round = 0; round < kRounds; ++round) {
            ones.push_back(TotalRate(service, 1));
            manys.push_back(TotalRate(service, clients));
            ratios.push_back(manys.back() / ones.back());
        }
        const std::string what = "TCP Get, " + std::to_string(clients) + " clients against one";
        PrintRow(what.c_str(), Number("%.0f /s", Median(ones)), Number("%.0f /s", Median(manys)),
                 Median(ratios), ">=", 1);
    }
}

/// Connections that only take what they are sent.
class Drains {
  public:
    void Add(std::unique_ptr<net::Socket> socket)
    {
        m_threads.emplace_back([socket = socket.get()] {
            char bytes[4096];
            while (socket->recv_some(bytes, sizeof bytes) > 0) continue;
        });
        m_sockets.push_back(std::move(socket));
    }
    ~Drains()
    {
        for (auto& socket : m_sockets) socket->close();
        for (std::thread& thread : m_threads) thread.join();
    }

  private:
    std::vector<std::unique_ptr<net::Socket>> m_sockets;
    std::vector<std::thread> m_threads;
};

template <class Record>
void Send(net::Socket& socket, const Record& record)
{
    const auto bytes = net::Encode(record);
    socket.send(bytes.data(), bytes.size());
}

/// One change to many TCP listeners, against a bare loop of `send` of the event's bytes.
void CompareEvents(const Service& service, Config& store, int listeners)
{
    Drains drains;
    const int port = std::stoi(service.Uri().substr(service.Uri().rfind(':') + 1));
    for (int i = 0; i < listeners; ++i) {
        auto socket = std::make_unique<net::Socket>(AF_INET, SOCK_STREAM);
        socket->create();
        socket->connect("127.0.0.1", port);
        net::XCONFIGMGR_CONNECTION_REQUEST_T connect;
        connect.msgtype = XCFG_CONNECT_REQUEST;
        Send(*socket, connect);
        net::XCONFIGMGR_EVENT_HANDLER_REQUEST_T listen;
        listen.msgtype = XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST;
        Send(*socket, listen);
        net::XCONFIGMGR_REQUEST_T get;  // answered after the registration
        get.msgtype = XCFG_GET_PARAM_REQUEST;
        get.paramID = kNumber;
        Send(*socket, get);
        char replies[28 + 52];
        socket->recv(replies, sizeof replies);
        drains.Add(std::move(socket));
    }
    net::Socket listener(AF_INET, SOCK_STREAM);
    listener.create();
    listener.bind("127.0.0.1", 0);
    listener.listen();
    std::vector<std::unique_ptr<net::Socket>> bare;
    for (int i = 0; i < listeners; ++i) {
        auto client = std::make_unique<net::Socket>(AF_INET, SOCK_STREAM);
        client->create();
        client->connect("127.0.0.1", listener.local_port());
        bare.push_back(std::make_unique<net::Socket>(AF_INET, SOCK_STREAM));
        listener.accept(bare.back().get());
        drains.Add(std::move(client));
    }

    const int changes = std::max(20, 2000 / listeners);
    std::vector<double> floors, times, ratios;
    unsigned int value = 0;
    for (int round = 0; round < kRounds; ++round) {
        const char bytes[net::kResponseBytes] = {};
        floors.push_back(SecondsOf([&] {
                             for (int i = 0; i < changes; ++i)
                                 for (auto& socket : bare) socket->send(bytes, sizeof bytes);
                         }) /
                         changes);
        times.push_back(SecondsOf([&] {
                            for (int i = 0; i < changes; ++i) store.Set(kNumber, value++ % 20 + 1);
                        }) /
                        changes);
        ratios.push_back(times.back() / floors.back());
    }
    const std::string what = "one change to " + std::to_string(listeners) + " TCP listeners";
    PrintRow(what.c_str(), Number("%.1f us", Median(floors) * 1e6), Number("%.1f us", Median(times) * 1e6),
             Median(ratios), "<=", 1.5);
    for (auto& socket : bare) socket->close();
}

void CompareCachedGet(Config& cached, Config& store)
{
    constexpr int kGets = 200'000;
    std::vector<double> floors, times, ratios;
    const auto time = [](Config& config) {
        return SecondsOf([&] {
                   for (int i = 0; i < kGets; ++i) config.Get(eParamID_SystemState);
               }) /
               kGets;
    };
    for (int round = 0; round < kRounds; ++round) {
        floors.push_back(time(store));
        times.push_back(time(cached));
        ratios.push_back(times.back() / floors.back());
    }
    PrintRow("cached Get against a local one", Number("%.1f ns", Median(floors) * 1e9),
             Number("%.1f ns", Median(times) * 1e9), Median(ratios), "<=", 1.5);
}

double ResidentKiB()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:")) return std::stod(line.substr(6));
    return 0;
}

/// What idle connections add to the process that serves them; the clients are in another one.
void MeasureMemory(const Service& service)
{
    constexpr int kClients = 200;
    service.Connect();  // what is needed once
    const double before = ResidentKiB();
    int ready[2], done[2];
    if (pipe(ready) != 0 || pipe(done) != 0) return;
    const pid_t child = fork();
    if (child == 0) {
        close(done[1]);
        char byte = 1;
        for (int i = 0; i < kClients; ++i) service.Connect()->Get(kNumber);
        if (write(ready[1], &byte, 1) == 1 && read(done[0], &byte, 1) >= 0) _exit(0);
        _exit(1);
    }
    char byte;
    if (read(ready[0], &byte, 1) != 1) return;
    const double each = (ResidentKiB() - before) / kClients;
    close(done[1]);
    waitpid(child, nullptr, 0);
    PrintRow("resident memory of an idle client, with stack", "40 KiB", Number("%.1f KiB", each), each / 40,
             "<=", 1);
}

}  // namespace

int main()
{
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    setenv("PRODUCT_ID", "ROWAN", 0);
    CreateDescriptors();
    auto redis = std::make_unique<Redis>();  // before there are threads
    Config* const store = ConfigFactoryImpl::GetInstance()->Connect("local:");
    const Service tcp(SOCK_STREAM), udp(SOCK_DGRAM);
    PrintHead();
    MeasureMemory(tcp);
    Config* const tcpClient = tcp.Connect();
    Config* const udpClient = udp.Connect();
    Config* const cached = tcp.Connect("/caching=true");
    if (!store || !tcpClient || !udpClient || !cached) return 1;
    store->Set(kText, std::string("Scene 12"));

    {
        PingPong stream(SOCK_STREAM), datagrams(SOCK_DGRAM);
        std::string text;
        CompareRates(
            "TCP Get against a bare exchange", 5000, [&] { stream.Exchange(); },
            [&] { tcpClient->Get(kNumber); }, 0.8);
        CompareRates(
            "UDP Get against a bare exchange", 5000, [&] { datagrams.Exchange(); },
            [&] { udpClient->Get(kNumber); }, 0.8);
        CompareRates(
            "TCP Get String against a bare exchange", 5000, [&] { stream.Exchange(); },
            [&] { tcpClient->Get(kText, text); }, 0.6);
    }
    CompareManyClients(tcp);
    if (redis->IsPresent()) {
        unsigned int value = 0;
        CompareRates(
            "TCP Get against GET of Redis", 5000, [&] { redis->Get(); }, [&] { tcpClient->Get(kNumber); }, 1);
        CompareRates(
            "TCP Set against SET of Redis", 5000, [&] { redis->Set(); },
            [&] { tcpClient->Set(kNumber, value++ % 20 + 1); }, 1);
    }
    CompareCachedGet(*cached, *store);
    ConfigFactoryImpl::GetInstance()->Disconnect(udpClient);
    for (const int listeners : {1, 10, 100, 500}) CompareEvents(tcp, *store, listeners);
    redis.reset();
    fflush(stdout);
    _exit(allMet ? 0 : 1);  // the servers' threads are still there
}
