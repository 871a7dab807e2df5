#include "vexactl/devices.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

constexpr size_t kAtATime = 32;

std::string Trimmed(const std::string& text)
{
    constexpr char kBlanks[] = " \t\r";
    const size_t from = text.find_first_not_of(kBlanks);
    return from == std::string::npos ? "" : text.substr(from, text.find_last_not_of(kBlanks) + 1 - from);
}

/// One a line; what begins with # is a comment.
std::vector<std::string> DevicesIn(const std::string& file)
{
    std::ifstream stream(file);
    if (!stream) throw ConnectionError("cannot read " + Quoted(file), ExitStatus::kUsage);
    std::vector<std::string> devices;
    for (std::string line; std::getline(stream, line);) {
        const std::string device = Trimmed(line.substr(0, line.find('#')));
        if (!device.empty()) devices.push_back(device);
    }
    if (devices.empty()) throw ConnectionError(Quoted(file) + " names no device", ExitStatus::kUsage);
    return devices;
}

std::vector<std::string> DevicesOf(const Settings& settings)
{
    if (settings.queues) return {};
    if (!settings.devicesFile.empty()) return DevicesIn(settings.devicesFile);
    if (settings.uri.find(',') == std::string::npos) return {};
    std::vector<std::string> devices;
    std::istringstream stream(settings.uri);
    for (std::string device; std::getline(stream, device, ',');) devices.push_back(Trimmed(device));
    return devices;
}

/// At one of them. What went wrong is told; a signal is for the main thread to find.
ExitStatus RunOne(Output& output, const Settings& settings, const std::string& device,
                  const std::function<ExitStatus(Session&)>& command)
{
    Session session(output, settings, device);
    try {
        return command(session);
    } catch (const ConnectionError& error) {
        return session.Fail(error.status, error.what());
    } catch (const Interrupted&) {
        return ExitStatus::kFalse;
    } catch (const std::exception& error) {
        return session.Fail(ExitStatus::kCannotConnect, error.what());
    }
}

/// Shows how many devices are done, for the life of a scope.
class Progress {
  public:
    Progress(Output& output, size_t devices, bool isShown)
        : m_output(output), m_devices(devices), m_isShown(isShown && devices > 1)
    {
        if (m_isShown) m_output.ShowProgress(0, m_devices);
    }
    ~Progress()
    {
        if (m_isShown) m_output.HideProgress();
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Thread: any.
    void Done()
    {
        const size_t done = ++m_done;
        if (m_isShown) m_output.ShowProgress(done, m_devices);
    }

  private:
    Output& m_output;
    const size_t m_devices;
    const bool m_isShown;
    std::atomic<size_t> m_done = 0;
};

}  // namespace

ExitStatus OnDevices(Session& session, const std::function<ExitStatus(Session&)>& command, bool endsSoon)
{
    const std::vector<std::string> devices = DevicesOf(session);
    if (devices.empty()) return command(session);
    if (!session.verbose) session.Lines().HideLibraryMessages();
    Interrupts::Instance().Start();
    Progress progress(session.Lines(), devices.size(), endsSoon);
    std::atomic<size_t> next = 0;
    std::atomic<ExitStatus> worst = ExitStatus::kDone;
    const auto work = [&] {
        for (size_t i = 0; (i = next++) < devices.size();) {
            const ExitStatus status = RunOne(session.Lines(), session, devices[i], command);
            for (ExitStatus known = worst; status > known && !worst.compare_exchange_weak(known, status);)
                continue;
            progress.Done();
        }
    };
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < std::min(devices.size(), kAtATime); ++i) threads.emplace_back(work);
    threads.clear();
    Interrupts::Instance().Check();
    return worst;
}
