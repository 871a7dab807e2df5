/// One application of the soak test: reads, writes and listens at random over one transport. soak/driver.py
/// starts and kills many of them and compares the values that they see.
///
/// vexa_soak_client list
/// vexa_soak_client URI|queue BOARD SLOT SEED SYNC_NUMBER SYNC_TEXT OWN SHARED ALL
///
/// Every fifth slot's client is slow: it lags behind the changes.
/// The last three are lists of parameters; no other process writes the own ones. Without own ones it only
/// carries out the commands on standard input: a line at a time, each answered by its first word.
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <thread>

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "config/access/connector/config_factory_impl.h"
#include "config/descriptors/registry/registry.h"
#include "parameters.h"

namespace mq = vexa::config::access;

namespace {

using Clock = std::chrono::steady_clock;

/// Never 0 and read through every cache, so it shows whether the daemon answers.
constexpr eParam_t kProbe = eParamID_RegisterRecall;
constexpr unsigned int kQueueTimeoutMs = 20'000;

/// The part of a file that a client shares with the driver: it outlives a killed client. Slot 0 is the
/// daemon's.
struct Slot {
    std::atomic<uint64_t> operations;
    std::atomic<uint64_t>
        generation;  ///< of the daemon that it is connected to; slot 0: odd while there is none
    /// The numbers of the last write that was begun and the last that was read back. Those after lateAfter
    /// until lateUntil were on their way when the predecessor of this client was killed, and may still
    /// arrive.
    struct Own {
        std::atomic<uint64_t> begun, stored, lateAfter, lateUntil;
    } own[4];
};
static_assert(sizeof(Slot) == 18 * sizeof(uint64_t), "the driver counts on it");

Slot* MapBoard(const char* path)
{
    const int file = open(path, O_RDWR | O_CLOEXEC);
    struct stat status {};
    fstat(file, &status);
    void* const memory =
        mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory != MAP_FAILED) return static_cast<Slot*>(memory);
    perror("vexa_soak_client: board");
    exit(1);
}

/// The last value of each parameter that a listener heard.
class Recorder : public ConfigEventListener {
  public:
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval) override
    {
        return Keep(id, std::to_string(value));
    }
    bool ParamChanged(eParam_t id, std::string value, timeval) override { return Keep(id, Printable(value)); }
    bool DataChanged(eParam_t id, std::string& data, timeval) override { return Keep(id, Printable(data)); }

    void Clear()
    {
        const std::lock_guard hold(m_lock);
        m_heard.clear();
    }
    std::map<eParam_t, std::string> Heard() const
    {
        const std::lock_guard hold(m_lock);
        return m_heard;
    }
    /// @return whether it heard the value last, in time.
    bool Await(const Parameter& parameter, uint64_t write, Clock::time_point end)
    {
        std::unique_lock hold(m_lock);
        const std::string value = parameter.Printed(write);
        return m_changed.wait_until(hold, end, [&] { return m_heard[parameter.id] == value; });
    }

    bool isRegistered = false;
    /// It takes its time for each event.
    bool isSlow = false;

  private:
    bool Keep(eParam_t id, std::string value)
    {
        if (isSlow) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const std::lock_guard hold(m_lock);
        m_heard[id] = std::move(value);
        m_changed.notify_all();
        return true;
    }

    mutable std::mutex m_lock;
    std::condition_variable m_changed;
    std::map<eParam_t, std::string> m_heard;
};

class Client {
  public:
    explicit Client(char** arguments)
        : m_uri(arguments[0]),
          m_isCached(m_uri.ends_with("caching=true")),
          m_isUdp(m_uri.starts_with("udp")),
          m_daemon(*MapBoard(arguments[1])),
          m_slot((&m_daemon)[1 + std::stoul(arguments[2])]),
          m_random(std::stoul(arguments[3])),
          m_syncNumber(arguments[4]),
          m_syncText(arguments[5]),
          m_own(ReadList(arguments[6])),
          m_shared(ReadList(arguments[7])),
          m_all(ReadList(arguments[8])),
          m_isPaused(m_own.empty())
    {
        m_listeners[0].isSlow = std::stoul(arguments[2]) % 5 == 0;
        for (Slot::Own& own : m_slot.own) {
            own.lateAfter = own.stored.load();
            own.lateUntil = own.begun.load();
        }
    }

    void Run()
    {
        while (DoAsTold()) {
            if (m_isPaused) continue;
            KeepConnected();
            ++m_slot.operations;
            Operate();
        }
        Disconnect();
    }

  private:
    unsigned int Random(size_t below) { return static_cast<unsigned int>(m_random() % below); }
    const Parameter& AnyOf(const std::vector<Parameter>& list) { return list[Random(list.size())]; }
    bool IsCurrent() const { return m_daemon.generation == m_generation; }
    bool Answers() { return m_config && m_config->Get(kProbe) != 0; }

    /// Reports a failure, which counts only while the daemon stays.
    void Check(bool good, const std::string& what)
    {
        if (!good && IsCurrent()) printf("differs: %s\n", what.c_str());
        fflush(stdout);
    }

    // --- connection ---

    static void Rest() { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }

    void KeepConnected()
    {
        while (!m_config || !IsCurrent()) {
            Disconnect();
            while ((m_generation = m_daemon.generation) % 2 == 1) Rest();
            m_config = Connect();
            Check(m_config, "connect: refused");
            if (!m_config) {
                Rest();
                continue;
            }
            for (Recorder& listener : m_listeners) Add(listener);
            for (size_t own = 0; own < m_own.size(); ++own) WriteOwn(own, 1);
            m_slot.generation = m_generation;
        }
    }

    Config* Connect()
    {
        if (m_uri != "queue") return ConfigFactoryImpl::GetInstance()->Connect(m_uri);
        if (!m_queues) m_queues = std::make_unique<mq::PosixMQFactory>();
        m_queues->SetConnectTimeout(kQueueTimeoutMs);
        m_queueClient = m_queues->Connect("");
        if (m_queueClient) m_queueClient->SetReplyTimeout(kQueueTimeoutMs);
        return m_queueClient;
    }

    /// A cache stays until the process ends: the connector does not take it back.
    void Disconnect()
    {
        if (!m_config) return;
        for (Recorder& listener : m_listeners)
            if (m_isCached || (IsCurrent() && Random(2))) Remove(listener);
        if (m_queueClient)
            m_queues->Disconnect(m_queueClient);
        else if (!m_isCached)
            ConfigFactoryImpl::GetInstance()->Disconnect(m_config);
        for (Recorder& listener : m_listeners) listener.isRegistered = false;
        if (!IsCurrent()) m_queues.reset();  // the next daemon may have another queue
        m_config = nullptr;
    }

    void Add(Recorder& listener)
    {
        listener.Clear();
        listener.isRegistered = m_config->AddConfigEventListener(&listener);
        Check(listener.isRegistered, "listener: refused");
    }

    void Remove(Recorder& listener)
    {
        if (!listener.isRegistered) return;
        Check(m_config->RemoveConfigEventListener(&listener), "listener: cannot be removed");
        listener.isRegistered = false;
    }

    // --- operations ---

    void Operate()
    {
        const unsigned int dice = Random(80);
        if (dice < 20)
            WriteOwn(Random(m_own.size()), 1 + Random(5));
        else if (dice < 36)
            WriteShared(AnyOf(m_shared));
        else if (dice < 44)
            Toggle(m_listeners[Random(std::size(m_listeners))]);
        else if (dice < 48)
            RenewListeners();
        else if (dice < 49 && !m_isCached)
            Disconnect();
        else
            Read(AnyOf(m_all));
    }

    void Toggle(Recorder& listener) { listener.isRegistered ? Remove(listener) : Add(listener); }

    void RenewListeners()
    {
        for (Recorder& listener : m_listeners) Remove(listener);
        for (Recorder& listener : m_listeners) Add(listener);
    }

    std::string Read(const Parameter& parameter)
    {
        if (parameter.kind == Parameter::kNumber) {
            const unsigned int number = m_config->Get(parameter.id);
            if (number == 0) Check(Answers(), "get: no answer");
            return std::to_string(number);
        }
        std::string text;
        if (parameter.kind == Parameter::kText)
            Check(m_config->Get(parameter.id, text), "get: no text");
        else if (m_isUdp)
            Check(m_config->GetData(parameter.id, text), "get: no data");
        return Printable(text);
    }

    bool Write(const Parameter& parameter, uint64_t write)
    {
        std::string text = parameter.Text(write);
        if (parameter.kind == Parameter::kNumber) return m_config->Set(parameter.id, parameter.Number(write));
        return parameter.kind == Parameter::kText ? m_config->Set(parameter.id, text)
                                                  : m_config->SetData(parameter.id, text);
    }

    /// Several writes at once, then the last one is read back.
    void WriteOwn(size_t place, unsigned int count)
    {
        const Parameter& parameter = m_own[place];
        Slot::Own& own = m_slot.own[place];
        const uint64_t last = own.begun + count;
        while (own.begun < last) Check(Write(parameter, ++own.begun), "own: refused");

        // A cache may still show one of the writes before, until the last one's event. That the daemon
        // answers on the same connection is proof as well.
        const std::string now = m_isCached ? parameter.Printed(last) : Read(parameter);
        if (m_isCached) Check(Answers(), "own: no answer");
        if (!IsCurrent()) return;
        if (now == parameter.Printed(last)) {
            own.stored = last;
            return;
        }
        for (uint64_t late = own.lateAfter + 1; late <= own.lateUntil; ++late)
            if (now == parameter.Printed(late)) return;
        Check(false, "own: wrote " + parameter.Printed(last) + ", reads " + now);
    }

    /// Also beyond the range, which the store corrects. Not through a cache: it does not call its listeners
    /// for its own writes, so they would not have heard the last value.
    void WriteShared(const Parameter& parameter)
    {
        if (m_isCached) return;
        if (parameter.kind == Parameter::kNumber && Random(4) == 0)
            m_config->Set(parameter.id, parameter.highest + 1 + Random(100));
        else
            Check(Write(parameter, Random(1'000'000)), "shared: refused");
    }

    // --- the driver's commands ---

    /// Carries a command out that comes before the next operation is due. @return false at the end.
    bool DoAsTold()
    {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (poll(&input, 1, m_isPaused ? -1 : static_cast<int>(Random(120))) <= 0) return true;
        char line[64] = {}, verb[16] = "quit";
        unsigned long long write = 0;
        if (read(STDIN_FILENO, line, sizeof line - 1) > 0) sscanf(line, "%15s %llu", verb, &write);
        if (std::string(verb) == "quit") return false;
        Do(verb, write);
        puts(verb);
        fflush(stdout);
        return true;
    }

    void Do(const std::string& verb, uint64_t write)
    {
        m_isPaused = verb != "resume";
        KeepConnected();
        if (verb == "resume" || verb == "clear")
            for (Recorder& listener : m_listeners) listener.Clear();
        if (verb == "announce") Announce();
        if (verb == "announce" || verb == "sync")
            Check(Write(m_syncNumber, write) && Write(m_syncText, write), "sync: refused");
        if (verb == "await") Await(write);
        if (verb == "show") Show();
    }

    /// Sets the shared parameters to their current values.
    void Announce()
    {
        for (const Parameter& parameter : m_shared) {
            std::string text;
            if (parameter.kind == Parameter::kNumber)
                m_config->Set(parameter.id, m_config->Get(parameter.id));
            else if (m_config->Get(parameter.id, text))
                m_config->Set(parameter.id, text);
        }
    }

    /// Waits for the last change of all: a listener that heard it heard everything before. Over UDP numbers
    /// and texts have a thread each.
    void Await(uint64_t write)
    {
        const auto end = Clock::now() + std::chrono::seconds(20);
        for (Recorder& listener : m_listeners)
            if (listener.isRegistered &&
                !(listener.Await(m_syncNumber, write, end) && listener.Await(m_syncText, write, end)))
                puts("deaf");
    }

    void Show()
    {
        for (const Parameter& parameter : m_all)
            if (parameter.kind != Parameter::kData || m_isUdp)
                printf("get %08x %s\n", parameter.id, Read(parameter).c_str());
        for (const Recorder& listener : m_listeners) {
            if (!listener.isRegistered) continue;
            for (const auto& [id, value] : listener.Heard()) printf("heard %08x %s\n", id, value.c_str());
        }
    }

    const std::string m_uri;
    const bool m_isCached, m_isUdp;
    Slot& m_daemon;
    Slot& m_slot;
    std::mt19937 m_random;
    const Parameter m_syncNumber, m_syncText;
    const std::vector<Parameter> m_own, m_shared, m_all;  // written alone; with all clients; read
    bool m_isPaused;
    uint64_t m_generation = 0;
    Config* m_config = nullptr;
    std::unique_ptr<mq::PosixMQFactory> m_queues;
    mq::PosixMQClient* m_queueClient = nullptr;
    Recorder m_listeners[3];
};

}  // namespace

int main(int count, char** arguments)
{
    CreateDescriptors();
    constexpr int kArguments = 10;
    if (count == kArguments)
        Client(arguments + 1).Run();
    else
        PrintParameters();
}
