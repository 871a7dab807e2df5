/// Reaching a store over the network. The server, its clients and the floor run in this process.
#include <algorithm>
#include <atomic>
#include <thread>

#include "config/access/client/cache/config_cache.h"
#include "config/access/connector/config_factory_impl.h"
#include "config/access/protocol/network_protocol.h"
#include "config/access/server/network/network_server.h"
#include "config/config.h"
#include "config/descriptors/registry/registry.h"
#include "drain.h"
#include "parts.h"
#include "ping_pong.h"
#include "process.h"
#include "redis.h"
#include "table.h"

namespace {

constexpr eParam_t kNumber = eParamID_RegisterSave, kText = eParamID_CustomClipName;

// --- the floor ---

/// Both ends of as many connections.
std::pair<Drain::Sockets, Drain::Sockets> BareConnections(size_t count)
{
    net::Socket listener(AF_INET, SOCK_STREAM);
    listener.create();
    listener.bind("127.0.0.1", 0);
    listener.listen();
    Drain::Sockets near, far;
    while (near.size() < count) {
        far.push_back(std::make_unique<net::Socket>(AF_INET, SOCK_STREAM));
        far.back()->create();
        far.back()->connect("127.0.0.1", listener.local_port());
        near.push_back(std::make_unique<net::Socket>(AF_INET, SOCK_STREAM));
        listener.accept(near.back().get());
    }
    return {std::move(near), std::move(far)};
}

// --- the library ---

class Service {
  public:
    explicit Service(int type) : m_type(type), m_server(new net::NetworkServer(AF_INET, type, 0))
    {
        if (!m_server->Init()) exit(1);
        m_port = m_server->Port();
        if (!m_server->Start()) exit(1);
    }
    ~Service() { m_server->Stop(); }
    Config* Connect(const char* options = "") const
    {
        const char* const scheme = IsStream() ? "tcp" : "udp";
        return ConfigFactoryImpl::GetInstance()->Connect(std::string(scheme) +
                                                         "://127.0.0.1:" + std::to_string(m_port) + options);
    }
    bool IsStream() const { return m_type == SOCK_STREAM; }
    /// A TCP connection that has registered for events.
    std::unique_ptr<net::Socket> Listen() const;

  private:
    const int m_type;
    net::NetworkServer* const m_server;  // its thread owns it
    int m_port;
};

template <class Record>
void Send(net::Socket& socket, const Record& record)
{
    const auto bytes = net::Encode(record);
    socket.send(bytes.data(), bytes.size());
}

std::unique_ptr<net::Socket> Service::Listen() const
{
    auto socket = std::make_unique<net::Socket>(AF_INET, SOCK_STREAM);
    socket->create();
    socket->connect("127.0.0.1", m_port);
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
    char replies[28 + net::kResponseBytes];
    socket->recv(replies, sizeof replies);
    return socket;
}

template <class Connect>
Drain::Sockets Open(size_t count, const Connect& connect)
{
    Drain::Sockets sockets;
    while (sockets.size() < count) sockets.push_back(connect());
    return sockets;
}

/// Clients that are disconnected with the scope.
class Clients {
  public:
    Clients(const Service& service, size_t count)
    {
        while (m_clients.size() < count) m_clients.push_back(service.Connect());
    }
    ~Clients()
    {
        for (Config* const client : m_clients) ConfigFactoryImpl::GetInstance()->Disconnect(client);
    }
    Config* operator[](size_t i) const { return m_clients[i]; }
    size_t size() const { return m_clients.size(); }

  private:
    std::vector<Config*> m_clients;
};

// --- rows ---

void CompareExchanges(Config& tcp, Config& udp)
{
    PingPong stream(SOCK_STREAM), datagrams(SOCK_DGRAM);
    const Work overTcp = Repeat([&] { stream.Exchange(); }), overUdp = Repeat([&] { datagrams.Exchange(); });
    std::string text;
    CompareRates("TCP Get, against a bare exchange", 5000, overTcp, Repeat([&] { tcp.Get(kNumber); }), 0.8);
    CompareRates("UDP Get, against a bare exchange", 5000, overUdp, Repeat([&] { udp.Get(kNumber); }), 0.8);
    CompareRates("TCP Get of a text", 5000, overTcp, Repeat([&] { tcp.Get(kText, text); }), 0.6);
    CompareRates("UDP Get of a text", 5000, overUdp, Repeat([&] { udp.Get(kText, text); }), 0.6);
}

void CompareCache(Config& client, Config& store)
{
    // Only here: every change of the store would be sent to it, and Redis has no subscribers elsewhere.
    ConfigCache cached(&client);
    client.AddConfigEventListener(&cached);
    CompareTimes("Get of a client cache, against a local Get", 200'000,
                 Repeat([&] { store.Get(eParamID_SystemState); }),
                 Repeat([&] { cached.Get(eParamID_SystemState); }), 1.5);
    client.RemoveConfigEventListener(&cached);
}

/// All clients connected, asked in turn by one thread; and a thread each.
void CompareClients(const Service& service, const char* name, std::initializer_list<size_t> counts)
{
    const Clients one(service, 1);
    const Work alone = Repeat([&] { one[0]->Get(kNumber); });
    for (const size_t count : counts) {
        const Clients many(service, count);
        const Work inTurn = [&](int gets) {
            for (int i = 0; i < gets; ++i) many[static_cast<size_t>(i) % many.size()]->Get(kNumber);
        };
        CompareRates(std::string(name) + " Get, " + std::to_string(count) + " clients in turn, against one",
                     5000, alone, inTurn, {});
        if (count > 100) continue;
        const Work together = [&](int gets) {
            std::vector<std::thread> threads;
            for (size_t i = 0; i < many.size(); ++i)
                threads.emplace_back([&, i] {
                    for (int get = 0; get < gets / static_cast<int>(many.size()); ++get)
                        many[i]->Get(kNumber);
                });
            for (std::thread& thread : threads) thread.join();
        };
        CompareRates(std::string(name) + " Get, " + std::to_string(count) + " clients at once, against one",
                     20'000, alone, together, service.IsStream() ? std::optional(1.0) : std::nullopt);
    }
}

/// Changes until all listeners have them, against as many bare sends.
void CompareListeners(const Service& service, Config& store, size_t listeners)
{
    const OneProcessor one;
    auto connections = BareConnections(listeners);
    const auto& bare = connections.first;
    Drain bareDrain(std::move(connections.second));
    Drain drain(Open(listeners, [&] { return service.Listen(); }));
    const int changes = std::max(20, 2000 / static_cast<int>(listeners));
    const auto bytesOf = [&](int count) {
        return static_cast<size_t>(count) * listeners * net::kResponseBytes;
    };
    const Work floor = [&](int count) {
        const char bytes[net::kResponseBytes] = {};
        for (int i = 0; i < count; ++i)
            for (const auto& socket : bare) socket->send(bytes, sizeof bytes);
        bareDrain.Await(bytesOf(count));
    };
    unsigned int value = 0;
    const Work library = [&](int count) {
        for (int i = 0; i < count; ++i) store.Set(kNumber, value++ % 20 + 1);
        drain.Await(bytesOf(count));
    };
    CompareTimes("a change to " + std::to_string(listeners) + " TCP listeners, against bare sends", changes,
                 floor, library, 1.5);
}

/// Messages until all subscribers have them: each for itself, and in bursts whose sender does not wait in
/// between.
void CompareSubscribers(const Service& service, Config& client, Redis& redis, size_t subscribers)
{
    Drain theirs(Open(subscribers, [&] { return redis.Subscribe(); }));
    Drain ours(Open(subscribers, [&] { return service.Listen(); }));
    const Work publish = [&](int messages) {
        redis.Publish(messages);
        theirs.Await(static_cast<size_t>(messages) * subscribers * Redis::kMessageBytes);
    };
    unsigned int value = 0;
    const Work change = [&](int messages) {
        for (int i = 0; i < messages; ++i) client.Set(kNumber, value++ % 20 + 1);
        ours.Await(static_cast<size_t>(messages) * subscribers * net::kResponseBytes);
    };
    const std::string to = " to " + std::to_string(subscribers) + " subscribers, against Redis";
    const int messages = std::max(20, 10'000 / static_cast<int>(subscribers));
    CompareRates("a change" + to, messages, Repeat([&] { publish(1); }), Repeat([&] { change(1); }), 1);
    CompareRates("a burst of changes" + to, messages, publish, change, 1);
}

/// Sets until the server has carried them out.
Work Sets(Config& client)
{
    return [&client](int count) {
        for (int i = 0; i < count; ++i) client.Set(kNumber, static_cast<unsigned int>(i) % 20 + 1);
        client.Get(kNumber);
    };
}

/// Sets on a thread of its own, as fast as the server takes them.
class Setting {
  public:
    explicit Setting(Config& client)
        : m_thread([this, sets = Sets(client)] {
              while (!m_stop) sets(1000);
          })
    {
    }
    ~Setting()
    {
        m_stop = true;
        m_thread.join();
    }

  private:
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};

/// The time of a Get that one in a hundred exceeds.
double SlowGet(Config& client)
{
    constexpr size_t kGets = 2000;
    std::vector<double> seconds(kGets);
    for (double& one : seconds) one = SecondsOf([&] { client.Get(kNumber); });
    std::ranges::sort(seconds);
    return seconds[kGets * 99 / 100];
}

/// One client sets without a pause while many listen. Without listeners it sets in another configuration.
void CompareSettingWithListeners(const Service& service, size_t listeners)
{
    Config* const alone = service.Connect("/configid=1");
    Config* const heard = service.Connect();
    Config* const other = service.Connect();
    const Drain drain(Open(listeners, [&] { return service.Listen(); }));
    const std::string during = " while " + std::to_string(listeners) + " listen, against none";
    CompareRates("TCP Set" + during, 20'000, Sets(*alone), Sets(*heard), 0.5);

    std::vector<double> without, with, ratios;
    for (int turn = 0; turn < 7; ++turn) {
        {
            const Setting setting(*alone);
            without.push_back(SlowGet(*other));
        }
        const Setting setting(*heard);
        with.push_back(SlowGet(*other));
        ratios.push_back(with.back() / without.back());
    }
    PrintRow("99th percentile of another client's Get" + during, Format(Median(without) * 1e6, 1, " us"),
             Format(Median(with) * 1e6, 1, " us"), Median(ratios), Target{Target::kAtMost, 3});
    for (Config* const client : {alone, heard, other}) ConfigFactoryImpl::GetInstance()->Disconnect(client);
}

void CompareWithRedis(Config& tcp, Config& udp)
{
    Redis redis;
    if (!redis.IsPresent()) return PrintFigure("Redis is not installed", "-");
    unsigned int value = 0;
    const Work get = Repeat([&] { redis.Get(); }), set = Repeat([&] { redis.Set(); });
    const auto setOver = [&](Config& config) {
        return Repeat([&] { config.Set(kNumber, value++ % 20 + 1); });
    };
    CompareRates("TCP Get, against GET of Redis", 5000, get, Repeat([&] { tcp.Get(kNumber); }), 1);
    CompareRates("TCP Set (not answered), against SET of Redis", 5000, set, setOver(tcp), 1);
    CompareRates("UDP Set (answered), against SET of Redis", 5000, set, setOver(udp), 0.9);
}

/// Exchanges, in which client and server take turns anyway: on one processor.
void CompareOneByOne(Config& store)
{
    const OneProcessor one;
    auto* const connector = ConfigFactoryImpl::GetInstance();
    const Service tcp(SOCK_STREAM), udp(SOCK_DGRAM);
    Config* const tcpClient = tcp.Connect();
    Config* const udpClient = udp.Connect();
    CompareExchanges(*tcpClient, *udpClient);
    CompareWithRedis(*tcpClient, *udpClient);
    CompareCache(*tcpClient, store);
    for (Config* const client : {tcpClient, udpClient}) connector->Disconnect(client);
}

void ComparePublishing(const Service& service, Config& store)
{
    Config* const client = service.Connect();
    Redis redis;
    for (const size_t listeners : {1u, 10u, 100u, 500u}) {
        CompareListeners(service, store, listeners);
        if (redis.IsPresent()) CompareSubscribers(service, *client, redis, listeners);
    }
    ConfigFactoryImpl::GetInstance()->Disconnect(client);
    CompareSettingWithListeners(service, 500);
}

}  // namespace

void MeasureNetwork()
{
    CreateDescriptors();
    PrintPart("network");
    auto* const connector = ConfigFactoryImpl::GetInstance();
    Config* const store = connector->Connect("local:");
    store->Set(kText, std::string("Scene 12"));
    CompareOneByOne(*store);
    const Service tcp(SOCK_STREAM), udp(SOCK_DGRAM);
    ComparePublishing(tcp, *store);
    CompareClients(tcp, "TCP", {8, 64, 1000});
    CompareClients(udp, "UDP", {8, 64, 1000});
    connector->Disconnect(store);
}
