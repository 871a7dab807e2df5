#include "vexactl/session.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "config/access/connector/config_factory_impl.h"
#include "config/access/connector/reachability.h"
#include "config/access/protocol/mq_protocol.h"
#include "config/access/protocol/value_payload.h"
#include "config/base/harmless.h"
#include "config/descriptors/registry/registry.h"

namespace mq = vexa::config::access;
namespace net = vexa::corvalis::config::access;

namespace {

/// The session, while there is one.
Session* running = nullptr;

/// "2026-03-01T12:00:00.000123+0100", local time.
std::string TimeText(timeval time)
{
    tm parts{};
    localtime_r(&time.tv_sec, &parts);
    // A peer may send anything.
    const auto microseconds = static_cast<long>(std::clamp<suseconds_t>(time.tv_usec, 0, 999'999));
    char date[32], zone[8], text[56];
    strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
    strftime(zone, sizeof zone, "%z", &parts);
    snprintf(text, sizeof text, "%s.%06ld%s", date, microseconds, zone);
    return text;
}

/// Keeps standard output away from the library, which writes statistics there when an answer does not come.
class QuietOutput {
  public:
    QuietOutput() : m_own(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        fflush(stdout);
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (m_own != -1 && nowhere != -1) dup2(nowhere, STDOUT_FILENO);
        if (nowhere != -1) close(nowhere);
    }
    ~QuietOutput()
    {
        if (m_own == -1) return;
        dup2(m_own, STDOUT_FILENO);
        close(m_own);
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

  private:
    const int m_own;
};

}  // namespace

/// Prints the changes that it receives.
class Watcher : public ConfigEventListener, public vexa::ConnectionListener {
  public:
    Watcher(Session& session, Config& config, std::vector<eParam_t> only, unsigned int atMost)
        : m_session(session),
          m_config(&config),
          m_only(std::move(only)),
          m_atMost(atMost),
          m_changed(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        vexa::AddConnectionListener(config, this);
        if (config.AddConfigEventListener(this)) return;
        vexa::RemoveConnectionListener(config, this);
        close(m_changed);
        throw ConnectionError("cannot hear of changes over this connection");
    }
    ~Watcher() override
    {
        if (m_config) {
            m_config->RemoveConfigEventListener(this);
            vexa::RemoveConnectionListener(*m_config, this);
        }
        close(m_changed);
    }
    /// The configuration is gone.
    void Forget() { m_config = nullptr; }

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override
    {
        return Tell(id, value, time);
    }
    bool ParamChanged(eParam_t id, std::string value, timeval time) override { return Tell(id, value, time); }
    bool DataChanged(eParam_t id, std::string& data, timeval time) override { return Tell(id, data, time); }

    void ConnectionChanged(vexa::ConnectionChange change) override
    {
        if (change != vexa::ConnectionChange::kLost) m_isMissing = true;
        eventfd_write(m_changed, 1);
    }

    /// Readable after a change, of the connection as well.
    int ChangedFd() const { return m_changed; }
    bool IsDone() const { return m_atMost > 0 && m_told >= m_atMost; }
    /// Whether changes may not have been heard since the last call.
    bool TakeMissing() { return m_isMissing.exchange(false); }

  private:
    bool Tell(eParam_t id, const Value& value, timeval time)
    {
        if (IsDone() || (!m_only.empty() && std::ranges::find(m_only, id) == m_only.end())) return true;
        ParamDescriptor* const descriptor = m_config->GetParamDescriptor(id);
        if (!descriptor) return false;
        const Parameter parameter(descriptor);
        if (m_session.json) {
            Json json{{"time", TimeText(time)}};
            json.update(parameter.ToJson(value));
            m_session.Print(json);
        } else {
            m_session.Print(TimeText(time) + "  " + parameter.Name() + " = " + parameter.Text(value));
        }
        ++m_told;
        eventfd_write(m_changed, 1);
        return true;
    }

    Session& m_session;
    Config* m_config;
    const std::vector<eParam_t> m_only;
    const unsigned int m_atMost;
    const int m_changed;
    std::atomic<unsigned int> m_told = 0;
    std::atomic<bool> m_isMissing = false;
};

Session::Session()
{
    running = this;
    // The library ends a process that it cannot serve, with a status that a script would misunderstand.
    atexit([] {
        if (!running) return;
        running->Complain((running->m_config ? "lost the connection to " : "cannot connect to ") +
                          running->Place());
        _exit(static_cast<int>(ExitStatus::kCannotConnect));
    });
}

Session::~Session()
{
    try {
        Disconnect();
    } catch (const std::exception&) {  // not even memory for the message of a time-out
        m_watcher.reset();
        if (m_config) m_disconnect();
    }
    running = nullptr;
    if (m_catalogue) ConfigFactoryImpl::GetInstance()->Disconnect(m_catalogue);
}

Config* Session::Connect()
{
    if (m_config) return m_config;
    if (IsOver("caching=true")) {
        Complain("a cache hides what became of a value: leave caching=true out of the URI");
        return nullptr;
    }
    if (!verbose) HideLibraryMessages();
    CreateDescriptors();
    if (IsRemote()) Interrupts::Instance().Start();
    const Deadline limit = Limit();
    m_reason.clear();
    m_config = queues ? ConnectQueues() : ConnectUri();
    Interrupts::Instance().Check();
    if (!m_config) Complain("cannot connect to " + Place() + (m_reason.empty() ? "" : ": " + m_reason));
    return m_config;
}

Config* Session::ConnectUri()
{
    ConfigFactory* const connector = ConfigFactoryImpl::GetInstance();
    Config* const config = connector->Connect(uri);
    m_disconnect = [=] { connector->Disconnect(config); };
    url parts;
    if (!config && IsRemote() && parts.parse(uri)) vexa::uri::ResolveHost(parts.address, m_reason);
    return config;
}

Config* Session::ConnectQueues()
{
    // Without the daemon's queue the factory ends the process.
    const mqd_t queue = mq_open(mq::kRequestQueue, O_RDWR | O_CLOEXEC);
    if (queue == -1) {
        m_reason = strerror(errno);
        if (errno == EACCES) m_reason += "; it is open to the user and the group of the daemon";
        return nullptr;
    }
    mq_close(queue);
    if (!m_factory) m_factory = std::make_unique<mq::PosixMQFactory>();
    // The library gives up first, so that the queue of this connection is removed.
    const auto milliseconds = static_cast<unsigned int>(timeout * 1000);
    m_factory->SetConnectTimeout(milliseconds);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    Interrupts::Instance().SetStop([] {});  // Connect removes its queue when its time is over
    mq::PosixMQClient* const client = m_factory->Connect("");
    Interrupts::Instance().SetStop(nullptr);
    if (!client && std::chrono::steady_clock::now() >= end)
        throw ConnectionError(NoAnswer(), ExitStatus::kTimedOut);
    if (!client) return nullptr;
    client->SetReplyTimeout(milliseconds);
    Interrupts::Instance().SetStop([=] { client->Stop(); });
    m_disconnect = [=, this] { m_factory->Disconnect(client); };
    return client;
}

std::string Session::Place() const
{
    return queues ? std::string("the queue ") + mq::kRequestQueue : uri;
}

size_t Session::LongestText() const
{
    if (queues) return mq::kQueueMessageBytes - mq::kQueueResponseBytes - net::kTextObjectBytes;
    return IsRemote() ? net::kLongestText : std::string().max_size();
}

Config* Session::ConnectForCatalogue()
{
    if (m_config) return m_config;
    if (!verbose) HideLibraryMessages();
    CreateDescriptors();
    if (!m_catalogue) m_catalogue = ConfigFactoryImpl::GetInstance()->Connect("local:");
    return m_catalogue;
}

void Session::Disconnect()
{
    if (!m_config) return;
    Interrupts::Instance().SetStop(nullptr);
    if (!IsRemote()) {
        StopWatch();
        m_disconnect();
    } else {
        // The library waits a second for the answer to its Disconnect. What was done stays done without it.
        constexpr double kTidySeconds = 5;
        const QuietOutput quiet;
        const Deadline silent(kTidySeconds, "", fileno(m_messages));
        m_disconnect();
        if (m_watcher) m_watcher->Forget();
        m_watcher.reset();
    }
    m_config = nullptr;
}

/// The library's messages are for developers: the tool reports the same to its user in its own words.
void Session::HideLibraryMessages()
{
    if (m_messages != stderr || getenv("VEXA_LOG")) return;
    const int own = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    FILE* const messages = own == -1 ? nullptr : fdopen(own, "w");
    if (!messages || nowhere == -1) return;
    setvbuf(messages, nullptr, _IONBF, 0);
    m_messages = messages;
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
}

Deadline Session::Limit() const
{
    constexpr double kAfterLibrary = 0.5;  // the queue client has the same limit, and leaves nothing behind
    const double limit = timeout + (queues ? kAfterLibrary : 0);
    return Deadline(IsRemote() ? limit : 0, "vexactl: " + NoAnswer(), fileno(m_messages));
}

void Session::CheckConnection() const
{
    if (vexa::IsReachable(*m_config)) return;
    // A queue does not show that its daemon is gone.
    if (queues) throw ConnectionError(NoAnswer(), ExitStatus::kTimedOut);
    throw ConnectionError("lost the connection to " + Place());
}

void Session::RequireAnswers() const
{
    if (IsOver("multicast:")) throw ConnectionError(uri + " only tells of changes: watch");
}

std::optional<Value> Session::Read(const Parameter& parameter)
{
    RequireAnswers();
    m_whyNothing = "this connection carries no data values";
    if (parameter.HoldsBytes() && !CarriesData()) return std::nullopt;
    m_whyNothing = "it has no value";
    return Ask([&](Config& config) -> std::optional<Value> {
        return IsRemote() ? ReadRemote(parameter, config) : parameter.Read(config);
    });
}

std::optional<Value> Session::ReadRemote(const Parameter& parameter, Config& config)
{
    vexa::NoteAnswer(vexa::Answer::kGiven);
    // The result of a Get of a number says only whether it is 0.
    auto value = parameter.HoldsText() ? parameter.Read(config) : Value(config.Get(parameter.Id()));
    switch (vexa::LastAnswer()) {
        case vexa::Answer::kGiven:
            return value;
        case vexa::Answer::kRefused:
            m_whyNothing =
                parameter.HoldsText() ? "the device has no value for it" : "the device does not know it";
            break;
        case vexa::Answer::kNone:
            m_whyNothing = "the device's answer holds no value";
    }
    return std::nullopt;
}

bool Session::Write(const Parameter& parameter, const Value& value)
{
    RequireAnswers();
    const auto* const text = std::get_if<std::string>(&value);
    return Ask([&](Config& config) {
        return text ? config.Set(parameter.Id(), *text)
                    : config.Set(parameter.Id(), std::get<unsigned int>(value));
    });
}

bool Session::ConfirmsWrites(const Parameter& parameter) const
{
    return !IsRemote() || queues || (IsOver("udp:") && !parameter.HoldsText());
}

std::optional<Parameter> Session::Find(const std::string& name)
{
    auto parameter = Parameter::Find(*m_config, name);
    if (!parameter)
        Complain("unknown parameter " + Quoted(name) + "; \"list\" shows all, \"list '*PART*'\" some");
    return parameter;
}

void Session::WriteLine(FILE* stream, const std::string& text)
{
    const std::string line = vexa::Harmless(text);
    fwrite(line.data(), 1, line.size(), stream);
    fputc('\n', stream);
}

void Session::Print(const std::string& line)
{
    const vexa::MutexLock hold(m_output);
    errno = 0;
    WriteLine(stdout, line);
    if (ferror(stdout) && errno == EPIPE && std::this_thread::get_id() == m_mainThread) throw OutputClosed{};
}

void Session::Complain(const std::string& message)
{
    const std::string place = scriptLine ? "line " + std::to_string(scriptLine) + ": " : "";
    const vexa::MutexLock hold(m_output);
    WriteLine(m_messages, "vexactl: " + place + message);
}

void Session::StartWatch(std::vector<eParam_t> only, unsigned int atMost)
{
    StopWatch();
    m_watcher = Ask(
        [&](Config& config) { return std::make_unique<Watcher>(*this, config, std::move(only), atMost); });
}

void Session::StopWatch()
{
    if (!m_watcher) return;
    const Deadline limit = Limit();
    m_watcher.reset();
}

void Session::WaitForWatch(double seconds)
{
    using Clock = std::chrono::steady_clock;
    constexpr long long kProbeMs = 1000;  // how often the device is asked whether it is still there
    const auto end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));

    while (!m_watcher->IsDone()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (seconds > 0 && left <= 0) break;
        WaitForNews(seconds > 0 ? std::min<long long>(left, kProbeMs) : kProbeMs);
    }
}

/// Waits for a change, a signal, the end of the output or the time, after which the device is asked whether it
/// is still there; so it is when the connection seems lost, for another daemon may have taken the queue over.
void Session::WaitForNews(long long milliseconds)
{
    pollfd events[] = {
        {Interrupts::Instance().Fd(), POLLIN, 0}, {m_watcher->ChangedFd(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    const int ready = poll(events, 3, static_cast<int>(milliseconds));
    Interrupts::Instance().Check();
    if (events[2].revents & POLLERR) throw OutputClosed{};
    if ((ready == 0 || !vexa::IsReachable(*m_config)) && IsRemote() && !IsOver("multicast:"))
        Ask([](Config& config) { return config.Get(eParamID_SystemState); });
    eventfd_t ignored;
    eventfd_read(m_watcher->ChangedFd(), &ignored);
    if (m_watcher->TakeMissing()) Complain("changes may be missing");
    CheckConnection();
}
