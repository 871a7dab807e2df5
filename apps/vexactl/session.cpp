#include "vexactl/session.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "config/access/config_factory_impl.h"
#include "config/descriptors/registry.h"

namespace {

/// "2026-03-01T12:00:00.000123+0100", local time.
std::string TimeText(timeval time)
{
    tm parts{};
    localtime_r(&time.tv_sec, &parts);
    char date[32], zone[8], text[56];
    strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
    strftime(zone, sizeof zone, "%z", &parts);
    snprintf(text, sizeof text, "%s.%06ld%s", date, static_cast<long>(time.tv_usec), zone);
    return text;
}

}  // namespace

/// Prints the changes that it hears of.
class Watcher : public ConfigEventListener {
  public:
    Watcher(Session& session, Config& config, std::vector<eParam_t> only)
        : m_session(session),
          m_config(config),
          m_only(std::move(only)),
          m_changed(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        m_config.AddConfigEventListener(this);
    }
    ~Watcher() override
    {
        m_config.RemoveConfigEventListener(this);
        close(m_changed);
    }

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override
    {
        return Tell(id, value, time);
    }
    bool ParamChanged(eParam_t id, std::string value, timeval time) override { return Tell(id, value, time); }
    bool DataChanged(eParam_t id, std::string& data, timeval time) override { return Tell(id, data, time); }

    /// Readable after a change.
    int ChangedFd() const { return m_changed; }
    unsigned int Told() const { return m_told; }

  private:
    bool Tell(eParam_t id, const Value& value, timeval time)
    {
        if (!m_only.empty() && std::ranges::find(m_only, id) == m_only.end()) return true;
        ParamDescriptor* const descriptor = m_config.GetParamDescriptor(id);
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
    Config& m_config;
    const std::vector<eParam_t> m_only;
    const int m_changed;
    std::atomic<unsigned int> m_told = 0;
};

Session::Session() = default;

Session::~Session()
{
    StopWatch();
    if (m_config) ConfigFactoryImpl::GetInstance()->Disconnect(m_config);
}

Config* Session::Connect()
{
    if (m_config) return m_config;
    CreateDescriptors();
    m_config = ConfigFactoryImpl::GetInstance()->Connect(uri);
    if (!m_config) Complain("cannot connect to " + uri);
    return m_config;
}

std::optional<Parameter> Session::Find(const std::string& name)
{
    auto parameter = Parameter::Find(*m_config, name);
    if (!parameter)
        Complain("unknown parameter " + Quoted(name) + "; \"list\" shows all, \"list '*PART*'\" some");
    return parameter;
}

void Session::Print(const std::string& line)
{
    const std::lock_guard hold(m_output);
    fwrite(line.data(), 1, line.size(), stdout);
    fputc('\n', stdout);
}

void Session::Complain(const std::string& message)
{
    const std::string place = scriptLine ? "line " + std::to_string(scriptLine) + ": " : "";
    const std::lock_guard hold(m_output);
    fprintf(stderr, "vexactl: %s%s\n", place.c_str(), message.c_str());
}

void Session::StartWatch(std::vector<eParam_t> only)
{
    StopWatch();
    m_watcher = std::make_unique<Watcher>(*this, *m_config, std::move(only));
}

void Session::StopWatch()
{
    m_watcher.reset();
}

void Session::WaitForWatch(unsigned int changes, double seconds)
{
    using Clock = std::chrono::steady_clock;
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stops, nullptr);
    const int stopped = signalfd(-1, &stops, SFD_CLOEXEC);
    const auto end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));

    while (changes == 0 || m_watcher->Told() < changes) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (seconds > 0 && left <= 0) break;
        pollfd events[] = {{stopped, POLLIN, 0}, {m_watcher->ChangedFd(), POLLIN, 0}};
        if (poll(events, 2, seconds > 0 ? static_cast<int>(std::min<long long>(left, 1'000'000)) : -1) < 0)
            break;
        if (events[0].revents) break;
        eventfd_t ignored;
        eventfd_read(m_watcher->ChangedFd(), &ignored);
    }
    close(stopped);
}
