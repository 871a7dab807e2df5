// A device that goes, comes back, or is silent: nobody who follows it ends with an old value.
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <thread>

#include "device/device.h"
#include "support/program.h"
#include "support/queue_test.h"
#include "support/raw_peer.h"
#include "support/test_server.h"

using namespace std::chrono_literals;
using vexa::Change, vexa::Device, vexa::DeviceState, vexa::Failure, vexa::Value;

namespace {

constexpr std::chrono::milliseconds kPatience(RawPeer::kDeadlineMs);
const vexa::DeviceOptions kQuick{.timeout = 1s, .probeInterval = 200ms};

/// The next change as "ReelName=one", with a mark when the device did not tell it.
std::string NextOf(vexa::ChangeQueue& changes, std::chrono::milliseconds patience = kPatience)
{
    const std::optional<Change> change = changes.Next(patience);
    if (!change) return "nothing";
    return change->name + "=" + change->Text() + (change->kind == Change::Kind::kEvent ? "" : " *");
}

/// A daemon that starts again on its ports.
class Daemon {
  public:
    explicit Daemon(bool withQueue) : m_withQueue(withQueue) { Start("OAK"); }
    /// One that is killed would leave its queue.
    ~Daemon()
    {
        m_program->Signal(SIGTERM);
        m_program->Wait();
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    void Restart(int signal, const std::string& model)
    {
        m_program->Signal(signal);
        m_program->Wait();
        Start(model);
    }
    void Signal(int signal) const { m_program->Signal(signal); }
    std::string Uri(const std::string& scheme) const
    {
        if (scheme == "mq") return "mq:";
        return scheme + "://127.0.0.1:" + (scheme == "tcp" ? m_tcpPort : m_udpPort) +
               "/configid=" + std::to_string(getpid());
    }

  private:
    void Start(const std::string& model)
    {
        std::vector<std::string> command{MAINSTAY, "--tcp-port", m_tcpPort, "--udp-port", m_udpPort};
        if (!m_withQueue) command.emplace_back("--no-mq");
        m_program.emplace(command, "", std::vector<std::string>{"PRODUCT_ID=" + model});
        m_program->WaitForOutput("mainstay: ready");
        m_tcpPort = std::to_string(NumberAfter("TCP port ", m_program->Err()));
        m_udpPort = std::to_string(NumberAfter("UDP port ", m_program->Err()));
        m_user.emplace(std::stoi(m_tcpPort));
        EXPECT_EQ(m_user->Ask(WordList{16, 1, 0, static_cast<uint32_t>(getpid()), 0, 4096}, 7)[0], 32u);
    }

    const bool m_withQueue;
    std::string m_tcpPort = "0", m_udpPort = "0";
    std::optional<Program> m_program;
    std::optional<RawPeer> m_user;  // of the configuration, whose values would go with its last user
};

void FollowsADaemonThatComesAndGoes(const std::string& scheme)
{
    Daemon daemon(scheme == "mq");
    Device device(daemon.Uri(scheme), kQuick);
    const auto isInStep = [&] { return device.Status().state == DeviceState::kInStep; };
    const auto isLost = [&] { return device.Status().state == DeviceState::kLost; };
    ASSERT_TRUE(device.WaitUntilInStep(kPatience)) << device.Status().reason;
    EXPECT_EQ(device.Status().model, "OAK");
    vexa::ChangeQueue changes = device.Changes({"ReelName", "RegisterSave"}, false);
    EXPECT_TRUE(device.Set("ReelName", "one"));
    EXPECT_EQ(NextOf(changes), "ReelName=one");

    daemon.Restart(SIGKILL, "OAK");
    EXPECT_EQ(NextOf(changes), "ReelName= *") << "it has forgotten the value";
    ASSERT_TRUE(Eventually(isInStep));
    EXPECT_TRUE(device.Set("RegisterSave", "7"));
    EXPECT_EQ(NextOf(changes), "RegisterSave=7") << "the difference is told once";

    daemon.Signal(SIGSTOP);
    ASSERT_TRUE(Eventually(isLost));
    EXPECT_EQ(device.Get("RegisterSave").failure, Failure::kNotConnected);
    EXPECT_EQ(device.Kept(eParamID_RegisterSave).failure, Failure::kNotConnected);
    EXPECT_EQ(device.Set("RegisterSave", "8").outcome, vexa::SetResult::Outcome::kNotSent);
    daemon.Signal(SIGCONT);
    ASSERT_TRUE(Eventually(isInStep));
    EXPECT_EQ(device.Kept(eParamID_RegisterSave).value, Value(7u));
    EXPECT_EQ(NextOf(changes, 0ms), "nothing");

    daemon.Restart(SIGTERM, "HAZEL");
    ASSERT_TRUE(Eventually([&] { return isInStep() && device.Status().model == "HAZEL"; }));
    EXPECT_EQ(device.Get("ReelName").failure, Failure::kNoSuchParameter);
    EXPECT_EQ(NextOf(changes), "RegisterSave=1 *");
}

class DeviceRecovery : public testing::TestWithParam<std::string> {};

TEST_P(DeviceRecovery, FollowsADaemonThatComesAndGoes)
{
    FollowsADaemonThatComesAndGoes(GetParam());
}
INSTANTIATE_TEST_SUITE_P(, DeviceRecovery, testing::Values("tcp", "udp"),
                         [](const auto& row) { return row.param; });

using MainstayQueueDevice = QueueTest;

TEST_F(MainstayQueueDevice, FollowsADaemonThatComesAndGoes)
{
    FollowsADaemonThatComesAndGoes("mq");
}

/// Stands between clients and a server, and cuts their connections.
class Proxy {
  public:
    explicit Proxy(int serverPort) : m_serverPort(serverPort)
    {
        sockaddr_in address = Address("127.0.0.1", 0);
        socklen_t length = sizeof address;
        EXPECT_EQ(bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(m_listener, 8), 0);
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(address.sin_port);
        m_thread = std::jthread([this] { Accept(); });
    }
    ~Proxy()
    {
        shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        Cut();
        m_pipes.clear();
        close(m_listener);
    }
    void Cut()
    {
        const std::lock_guard hold(m_lock);
        for (const int fd : m_open) shutdown(fd, SHUT_RDWR);
        m_open.clear();
    }

    int port = 0;

  private:
    void Accept()
    {
        for (int client = 0; (client = accept(m_listener, nullptr, nullptr)) != -1;) {
            const int server = socket(AF_INET, SOCK_STREAM, 0);
            const sockaddr_in address = Address("127.0.0.1", m_serverPort);
            EXPECT_EQ(connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
            const std::lock_guard hold(m_lock);
            m_open.insert(m_open.end(), {client, server});
            m_pipes.emplace_back([client, server] {
                std::jthread back([=] { Copy(server, client); });
                Copy(client, server);
                back.join();
                close(client);
                close(server);
            });
        }
    }
    static void Copy(int from, int to)
    {
        char bytes[1000];
        for (ssize_t count = 0; (count = recv(from, bytes, sizeof bytes, 0)) > 0;)
            if (send(to, bytes, static_cast<size_t>(count), MSG_NOSIGNAL) != count) break;
        shutdown(to, SHUT_RDWR);
        shutdown(from, SHUT_RDWR);
    }

    const int m_serverPort;
    const int m_listener = socket(AF_INET, SOCK_STREAM, 0);
    std::mutex m_lock;
    std::vector<int> m_open;
    std::vector<std::jthread> m_pipes;
    std::jthread m_thread;
};

TEST(DeviceModel, FollowsAStoreThroughRandomCuts)
{
    constexpr eConfigID_t kConfig = 91;
    constexpr eParam_t kNumbers[] = {eParamID_RegisterSave, eParamID_RegisterRecall, eParamID_RegisterLoad};
    LocalStore store(kConfig);
    TestServer server;
    Proxy proxy(server.port);
    Device device("127.0.0.1:" + std::to_string(proxy.port) + "/configid=" + std::to_string(kConfig), kQuick);
    ASSERT_TRUE(device.WaitUntilInStep(kPatience));
    vexa::ChangeQueue changes = device.Changes({"Register*", "SysName"});
    std::minstd_rand random(4711);
    for (unsigned int i = 0; i < 2000; ++i) {
        const auto dice = random() % 100;
        if (dice < 2) proxy.Cut();
        if (dice < 50) store->Set(kNumbers[random() % 3], static_cast<unsigned int>(random() % 20 + 1));
        if (dice >= 50) store->Set(eParamID_SysName, std::to_string(random() % 5));
        if (dice == 99) device.Get("SysName");
        if (dice == 98) device.WaitUntilInStep(kPatience);
    }
    std::string name;
    ASSERT_TRUE(Eventually([&] {
        store->Get(eParamID_SysName, name);
        return device.Kept(eParamID_SysName).value == Value(name) &&
               std::ranges::all_of(
                   kNumbers, [&](eParam_t id) { return device.Kept(id).value == Value(store->Get(id)); });
    }));
    std::map<eParam_t, Value> told;
    while (const auto change = changes.Next(0ms)) {
        if (change->kind == Change::Kind::kDifference) {
            EXPECT_NE(told[change->id], change->value) << change->name << ": told twice";
        }
        told[change->id] = change->value;
    }
    EXPECT_EQ(told[eParamID_SysName], Value(name));
    for (const eParam_t id : kNumbers) EXPECT_EQ(told[id], Value(store->Get(id)));
}

}  // namespace
