/// What it costs the daemon to remember.
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

#include "config/access/connector/config_factory_impl.h"
#include "config/config.h"
#include "config/descriptors/descriptor_table.h"
#include "config/descriptors/integer_descriptor.h"
#include "config/descriptors/registry/registry.h"
#include "parts.h"
#include "process.h"
#include "table.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kSetsARound = 20'000;
constexpr int kStarts = 15;
constexpr double kMoreMsTarget = 30;
constexpr double kWritesTarget = 2;    // a second
constexpr double kMemoryTarget = 1.1;  // at the end, against half way

/// A directory that is there to the end of the scope.
class Directory {
  public:
    Directory()
    {
        std::string name = std::filesystem::temp_directory_path() / "vexa-bench-XXXXXX";
        m_path = mkdtemp(name.data()) ? name : "";
        if (m_path.empty()) exit(1);
    }
    ~Directory() { std::filesystem::remove_all(m_path); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    const std::string& Path() const { return m_path; }

  private:
    std::string m_path;
};

/// Where a daemon tells that it is ready.
class ReadySocket {
  public:
    explicit ReadySocket(const Directory& directory) : m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const std::string path = directory.Path() + "/ready";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        if (bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) exit(1);
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~ReadySocket()
    {
        unsetenv("NOTIFY_SOCKET");
        close(m_socket);
    }
    ReadySocket(const ReadySocket&) = delete;
    ReadySocket& operator=(const ReadySocket&) = delete;

    void Await() const
    {
        std::array<char, 64> text{};
        while (recv(m_socket, text.data(), text.size() - 1, 0) > 0)
            if (std::string_view(text.data()).starts_with("READY")) return;
        exit(1);
    }

  private:
    const int m_socket;
};

/// A daemon that is ready, and its first client.
class Daemon {
  public:
    /// @param state  "" keeps nothing.
    explicit Daemon(const std::string& state) : m_port(FreePort())
    {
        const Directory directory;
        const ReadySocket ready(directory);
        std::vector<std::string> command{
            MAINSTAY, "--tcp-port", std::to_string(m_port), "--no-udp", "--no-mq", "--state", state};
        if (state.empty()) command.resize(command.size() - 2);
        m_startSeconds = SecondsOf([&] {
            m_process.emplace(command);
            ready.Await();
        });
    }
    ~Daemon()
    {
        if (m_client) ConfigFactoryImpl::GetInstance()->Disconnect(m_client);
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    double StartMilliseconds() const { return m_startSeconds * 1e3; }
    pid_t Id() const { return m_process->Id(); }
    Config& Client()
    {
        if (!m_client)
            m_client = ConfigFactoryImpl::GetInstance()->Connect("tcp://127.0.0.1:" + std::to_string(m_port));
        if (!m_client) exit(1);
        return *m_client;
    }

  private:
    const int m_port;
    double m_startSeconds = 0;
    std::optional<Process> m_process;
    Config* m_client = nullptr;
};

void SetMany(Config& client, int count)
{
    static unsigned int value = 0;
    for (int i = 0; i < count; ++i) client.Set(eParamID_RS422ID, ++value % 60'000);
    client.Get(eParamID_RS422ID);  // all of them are carried out now
}

void MeasureSets()
{
    const Directory directory;
    Daemon without(""), with(directory.Path());
    CompareRates(
        "TCP Set with the state kept, against without", kSetsARound,
        [&](int count) { SetMany(without.Client(), count); },
        [&](int count) { SetMany(with.Client(), count); }, 0.9);
}

/// Counts how often files of a directory are written. Writes in quick succession are one.
class Writings {
  public:
    explicit Writings(const std::string& directory) : m_notices(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        inotify_add_watch(m_notices, directory.c_str(), IN_MODIFY);
    }
    ~Writings() { close(m_notices); }
    Writings(const Writings&) = delete;
    Writings& operator=(const Writings&) = delete;

    void Look()
    {
        std::array<char, 4096> notices{};
        bool any = false;
        while (read(m_notices, notices.data(), notices.size()) > 0) any = true;
        if (!any) return;
        if (Clock::now() - m_last > 50ms) ++m_count;
        m_last = Clock::now();
    }
    int Count() const { return m_count; }

  private:
    const int m_notices;
    int m_count = 0;
    Clock::time_point m_last;
};

void MeasureLongRun(int seconds)
{
    const Directory directory;
    Daemon daemon(directory.Path());
    daemon.Client().Get(eParamID_RS422ID);
    Writings writings(directory.Path());
    double early = 0;
    const auto start = Clock::now();
    for (int i = 0; i < seconds * 1000; ++i) {
        SetMany(daemon.Client(), 1);
        writings.Look();
        if (i == seconds * 500) early = ResidentKiB(daemon.Id());
        std::this_thread::sleep_until(start + std::chrono::milliseconds(i + 1));
    }
    const double duration = std::chrono::duration<double>(Clock::now() - start).count();
    const double rate = seconds * 1000 / duration, late = ResidentKiB(daemon.Id());
    const std::string changes = Format(rate, 0) + " changes a second";
    const double aSecond = writings.Count() / duration;
    PrintRow(changes + ", times that files are written", "", Format(aSecond, 1, "/s"), aSecond,
             Target{Target::kAtMost, kWritesTarget});
    PrintRow("resident after " + Format(duration, 0, "s") + " of them, against half of it",
             Format(early / 1024, 1, "MiB"), Format(late / 1024, 1, "MiB"), late / early,
             Target{Target::kAtMost, kMemoryTarget});
}

/// Other values than the default for all that is kept. @return how many.
int ChangeAll(Config& client)
{
    int changed = 0;
    for (const eParam_t id : GetParamIDs()) {
        ParamDescriptor* const descriptor = FindDescriptor(id);
        if (!descriptor || descriptor->GetPersistenceType() != ePersist) continue;
        if (auto* const number = dynamic_cast<IntegerDescriptor*>(descriptor)) {
            const bool isHighest = number->GetFactoryDefault() == number->GetMaxValue();
            client.Set(id, isHighest ? number->GetMinValue() : number->GetMaxValue());
        } else {
            std::string text = "another text";
            client.Set(id, text);
        }
        ++changed;
    }
    client.Get(eParamID_RS422ID);
    return changed;
}

void CompareStarts(const std::string& what, const std::string& state)
{
    std::vector<double> without, with;
    for (int i = 0; i < kStarts; ++i) {
        without.push_back(Daemon("").StartMilliseconds());
        with.push_back(Daemon(state).StartMilliseconds());
    }
    const double more = Median(with) - Median(without);
    PrintRow("start with " + what + ", " + Format(kMoreMsTarget, 0, "ms") + " more at most",
             Format(Median(without), 1, "ms"), Format(Median(with), 1, "ms"), more / kMoreMsTarget,
             Target{Target::kAtMost, 1});
}

void MeasureStart()
{
    const Directory directory;
    const int count = ChangeAll(Daemon(directory.Path()).Client());
    CompareStarts(std::to_string(count) + " stored values", directory.Path());
    {
        Daemon daemon(directory.Path());
        for (int i = 0; i < 10; ++i) {
            SetMany(daemon.Client(), 10'000);
            std::this_thread::sleep_for(1s);  // no more lines may wait
        }
    }
    CompareStarts("100,000 changes of history", directory.Path());
}

}  // namespace

void MeasureState(int seconds)
{
    PrintPart("state of the daemon");
    CreateDescriptors();
    MeasureSets();
    MeasureStart();
    MeasureLongRun(seconds);
}
