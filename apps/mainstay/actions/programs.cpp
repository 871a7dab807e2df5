#include "mainstay/actions/programs.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "config/base/deadline.h"
#include "config/base/harmless.h"
#include "config/base/log.h"

namespace actions {

namespace {

/// Someone who presses a key again and again, not a queue of work.
constexpr size_t kMaxWaiting = 16;
/// A program that prints without end must not fill the log: the rest is read, and left out.
constexpr size_t kMaxOutputBytes = size_t{64} << 10;

/// What an own process group needs, and no more: nothing of the daemon's signals and descriptors.
class SpawnSettings {
  public:
    explicit SpawnSettings(int output)
    {
        posix_spawn_file_actions_init(&m_files);
        posix_spawn_file_actions_addopen(&m_files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&m_files, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&m_files, output, STDERR_FILENO);
        posix_spawnattr_init(&m_attributes);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&m_attributes, &none);
        posix_spawnattr_setsigdefault(&m_attributes, &all);
        posix_spawnattr_setpgroup(&m_attributes, 0);
        posix_spawnattr_setflags(&m_attributes,
                                 POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnSettings()
    {
        posix_spawnattr_destroy(&m_attributes);
        posix_spawn_file_actions_destroy(&m_files);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    const posix_spawn_file_actions_t* Files() const { return &m_files; }
    const posix_spawnattr_t* Attributes() const { return &m_attributes; }

  private:
    posix_spawn_file_actions_t m_files;
    posix_spawnattr_t m_attributes;
};

std::vector<std::string> EnvironmentOf(const ProgramRequest& request)
{
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry)
        if (strncmp(*entry, "VEXA_", 5) != 0 && strncmp(*entry, "NOTIFY_SOCKET=", 14) != 0)
            environment.emplace_back(*entry);
    environment.push_back("VEXA_PARAM=" + request.param);
    environment.push_back("VEXA_VALUE=" + request.value);
    environment.push_back("VEXA_TEXT=" + request.text);
    environment.push_back("VEXA_WHO=" + request.who);
    return environment;
}

/// As exec wants them: pointers into the texts, and a null.
std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::string HowItEnded(int status, bool isOverdue)
{
    if (isOverdue) return "took too long and was ended";
    if (WIFSIGNALED(status)) return std::string("was ended: ") + strsignal(WTERMSIG(status));
    if (const int code = WEXITSTATUS(status)) return "failed with status " + std::to_string(code);
    return "done";
}

}  // namespace

class Programs::Line {
  public:
    Line()
    {
        if (pipe2(m_end.data(), O_CLOEXEC) != 0) m_end = {-1, -1};
        m_thread = std::thread([this] { Run(); });
    }
    ~Line()
    {
        {
            vexa::MutexLock hold(m_lock);
            m_isEnding = true;
            m_changed.NotifyAll();
        }
        close(m_end[1]);  // whoever polls the other end wakes up
        m_thread.join();
        close(m_end[0]);
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    bool Add(const ProgramAction& action, ProgramRequest request)
    {
        vexa::MutexLock hold(m_lock);
        if (m_waiting.size() == kMaxWaiting) return false;
        m_waiting.emplace_back(&action, std::move(request));
        m_changed.NotifyOne();
        return true;
    }

  private:
    using Job = std::pair<const ProgramAction*, ProgramRequest>;

    void Run()
    {
        pthread_setname_np(pthread_self(), "ms-program");
        vexa::MutexLock hold(m_lock);
        while (!m_isEnding) {
            if (m_waiting.empty()) {
                m_changed.Wait(m_lock);
                continue;
            }
            const Job job = std::move(m_waiting.front());
            m_waiting.pop_front();
            const vexa::MutexUnlock release(m_lock);
            try {
                RunProgram(*job.first, job.second);
            } catch (const std::exception& error) {
                vexa::Print("mainstay: %s: %s\n", job.second.param.c_str(), error.what());
            }
        }
    }

    void RunProgram(const ProgramAction& action, const ProgramRequest& request)
    {
        const std::string name = request.param + " " + request.text + ": " + action.run.front();
        std::array<int, 2> output{};
        if (pipe2(output.data(), O_CLOEXEC) != 0) return vexa::PrintError("mainstay: pipe");
        std::vector<std::string> arguments = action.run, environment = EnvironmentOf(request);
        pid_t child = 0;
        const SpawnSettings settings(output[1]);
        const int error = posix_spawn(&child, arguments[0].c_str(), settings.Files(), settings.Attributes(),
                                      Pointers(arguments).data(), Pointers(environment).data());
        close(output[1]);
        if (error == 0) {
            vexa::Print("mainstay: %s started by %s\n", vexa::Harmless(name).c_str(), request.who.c_str());
            const bool isInTime = CopyOutput(output[0], child, action, name);
            if (!isInTime) kill(-child, SIGKILL);
            int status = 0;
            while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
            }
            vexa::Print("mainstay: %s %s\n", vexa::Harmless(name).c_str(),
                        HowItEnded(status, !isInTime).c_str());
        } else {
            vexa::Print("mainstay: %s cannot be started: %s\n", vexa::Harmless(name).c_str(),
                        strerror(error));
        }
        close(output[0]);
    }

    /// To the log, until the program has ended. Its descendants may keep the output open: they are not waited for.
    /// @return false when its time, or the daemon's, is over.
    bool CopyOutput(int output, pid_t child, const ProgramAction& action, const std::string& name)
    {
        const int process = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
        const vexa::Deadline deadline(
            static_cast<unsigned int>(std::chrono::milliseconds(action.timeout).count()));
        size_t bytes = 0;
        bool hasEnded = false, isOpen = true;
        while (!hasEnded && !deadline.IsOver()) {
            std::array<pollfd, 3> ready{
                {{isOpen ? output : -1, POLLIN, 0}, {process, POLLIN, 0}, {m_end[0], POLLIN, 0}}};
            poll(ready.data(), ready.size(), deadline.PollTimeout());
            hasEnded = ready[1].revents != 0 || (process == -1 && !isOpen);
            if (ready[2].revents != 0) break;
            if (ready[0].revents != 0) isOpen = CopySome(output, bytes, name);
        }
        close(process);
        return hasEnded;
    }

    static bool CopySome(int output, size_t& bytes, const std::string& name)
    {
        std::array<char, 2048> text{};
        const ssize_t n = read(output, text.data(), text.size());
        if (n <= 0) return n == -1 && errno == EINTR;
        if (bytes < kMaxOutputBytes)
            vexa::Print("mainstay: %s says: %.*s%s", vexa::Harmless(name).c_str(), static_cast<int>(n),
                        text.data(), text[static_cast<size_t>(n) - 1] == '\n' ? "" : "\n");
        bytes += static_cast<size_t>(n);
        return true;
    }

    vexa::Mutex m_lock;
    vexa::CondVar m_changed;
    std::deque<Job> m_waiting VEXA_GUARDED_BY(m_lock);
    bool m_isEnding VEXA_GUARDED_BY(m_lock) = false;
    std::array<int, 2> m_end{-1, -1};
    std::thread m_thread;
};

Programs::Programs(std::vector<ProgramAction> actions) : m_actions(std::move(actions)) {}

Programs::~Programs() = default;

bool Programs::Has(eParam_t param) const
{
    return std::ranges::any_of(m_actions,
                               [param](const ProgramAction& action) { return action.param == param; });
}

const ProgramAction* Programs::Find(eParam_t param, unsigned int value) const
{
    const ProgramAction* general = nullptr;
    for (const ProgramAction& action : m_actions) {
        if (action.param != param) continue;
        if (action.value == value) return &action;
        if (!action.value) general = &action;
    }
    return general;
}

bool Programs::Start(const ProgramAction& action, ProgramRequest request)
{
    vexa::MutexLock hold(m_lock);
    auto& line = m_lines[action.param];
    if (!line) line = std::make_unique<Line>();
    return line->Add(action, std::move(request));
}

}  // namespace actions
