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
#include <system_error>
#include <utility>

#include "config/base/deadline.h"
#include "config/base/log.h"

namespace actions {

namespace {

/// Someone who presses a key again and again, not a queue of work.
constexpr size_t kMaxWaiting = 16;
/// A program that prints without end must not fill the log: the rest is read, and left out.
constexpr size_t kMaxOutputBytes = size_t{64} << 10;
/// A program that was killed ends at once, unless it hangs in a driver.
constexpr unsigned int kKilledMilliseconds = 2000;

class Pipe {
  public:
    Pipe()
    {
        if (pipe2(m_ends.data(), O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe");
    }
    ~Pipe()
    {
        close(m_ends[0]);
        CloseWriting();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int Reading() const { return m_ends[0]; }
    int Writing() const { return m_ends[1]; }
    void CloseWriting()
    {
        if (m_ends[1] != -1) close(std::exchange(m_ends[1], -1));
    }

  private:
    std::array<int, 2> m_ends{};
};

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
        // Ignored as in the daemon: when that has stopped, nobody reads what the program prints.
        sigdelset(&all, SIGPIPE);
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

/// A program that was started. Nothing here waits for it.
class Child {
  public:
    explicit Child(pid_t pid) : m_pid(pid), m_descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {}
    ~Child()
    {
        if (m_descriptor != -1) close(m_descriptor);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool HasEnded()
    {
        m_hasEnded = m_hasEnded || waitpid(m_pid, &m_status, WNOHANG) != 0;
        return m_hasEnded;
    }
    /// Of waitpid, once it has ended.
    int Status() const { return m_status; }
    /// With all that it has started, and alone if it has left its group.
    void Kill() const
    {
        if (m_hasEnded) return;
        kill(-m_pid, SIGKILL);
        kill(m_pid, SIGKILL);
    }

    /// Becomes readable when it ends; -1 on systems that have no such thing.
    int Descriptor() const { return m_descriptor; }
    int PollTimeout(const vexa::Deadline& deadline) const
    {
        constexpr int kLookAgain = 50;
        return m_descriptor == -1 ? std::min(kLookAgain, deadline.PollTimeout()) : deadline.PollTimeout();
    }

  private:
    const pid_t m_pid;
    const int m_descriptor;
    int m_status = 0;
    bool m_hasEnded = false;
};

/// What a program prints, on its way to the log.
class Output {
  public:
    /// @param descriptor  borrowed.
    Output(int descriptor, const std::string& name) : m_descriptor(descriptor), m_name(name)
    {
        fcntl(descriptor, F_SETFL, O_NONBLOCK);
    }

    /// -1 when nothing more will come.
    int Descriptor() const { return m_isOpen ? m_descriptor : -1; }
    /// @return false when there is nothing at the moment.
    bool CopySome()
    {
        std::array<char, 2048> text{};
        const ssize_t n = read(m_descriptor, text.data(), text.size());
        if (n <= 0) {
            m_isOpen = n == -1 && (errno == EAGAIN || errno == EINTR);
            return false;
        }
        Print({text.data(), static_cast<size_t>(n)});
        return true;
    }
    /// What it has printed until now. Its descendants may print for ever.
    void CopyRest()
    {
        while (!m_isCut && CopySome()) {
        }
    }

  private:
    void Print(std::string_view text)
    {
        if (m_isCut) return;
        const std::string_view shown = text.substr(0, kMaxOutputBytes - m_bytes);
        m_bytes += shown.size();
        m_isCut = shown.size() < text.size();
        if (!shown.empty())
            vexa::Print("mainstay: %s says: %.*s%s", m_name.c_str(), static_cast<int>(shown.size()),
                        shown.data(), shown.back() == '\n' ? "" : "\n");
        if (m_isCut)
            vexa::Print("mainstay: %s says more than %zu KiB: the rest is left out\n", m_name.c_str(),
                        kMaxOutputBytes >> 10);
    }

    const int m_descriptor;
    const std::string m_name;
    size_t m_bytes = 0;
    bool m_isOpen = true, m_isCut = false;
};

/// What a wait for a program came to.
enum class End { kEnded, kOverdue, kStopping };

std::string HowItEnded(End end, int status, bool isOverdue)
{
    if (isOverdue)
        return end == End::kEnded
                   ? "took too long and was ended"
                   : "took too long, was killed and has not ended: nobody waits for it any more";
    if (end == End::kStopping) return "still runs; the daemon stops without waiting for it";
    if (WIFSIGNALED(status)) return std::string("was ended: ") + strsignal(WTERMSIG(status));
    if (const int code = WEXITSTATUS(status)) return "failed with status " + std::to_string(code);
    return "done";
}

}  // namespace

class Programs::Line {
  public:
    Line() : m_thread([this] { Run(); }) {}
    ~Line()
    {
        {
            vexa::MutexLock hold(m_lock);
            m_isEnding = true;
            m_changed.NotifyAll();
        }
        m_end.CloseWriting();  // whoever polls the other end wakes up
        m_thread.join();
        vexa::MutexLock hold(m_lock);
        if (!m_waiting.empty())
            vexa::Print("mainstay: %s: %zu more waited for their program, and are not carried out\n",
                        m_waiting.front().second.param.c_str(), m_waiting.size());
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
        const std::string name = request.param + " " + request.shown + ": " + action.run.front();
        std::vector<std::string> arguments = action.run, environment = EnvironmentOf(request);
        Pipe pipe;
        pid_t pid = 0;
        const SpawnSettings settings(pipe.Writing());
        const int error = posix_spawn(&pid, arguments[0].c_str(), settings.Files(), settings.Attributes(),
                                      Pointers(arguments).data(), Pointers(environment).data());
        pipe.CloseWriting();
        if (error != 0) {
            vexa::Print("mainstay: %s cannot be started: %s\n", name.c_str(), strerror(error));
            return;
        }
        vexa::Print("mainstay: %s started by %s\n", name.c_str(), request.who.c_str());
        Child child(pid);
        Output output(pipe.Reading(), name);
        const std::chrono::milliseconds timeout = action.timeout;
        End end = Follow(child, output, vexa::Deadline(static_cast<unsigned int>(timeout.count())));
        const bool isOverdue = end == End::kOverdue;
        if (isOverdue) {
            child.Kill();
            end = Follow(child, output, vexa::Deadline(kKilledMilliseconds));
        }
        output.CopyRest();
        vexa::Print("mainstay: %s %s\n", name.c_str(), HowItEnded(end, child.Status(), isOverdue).c_str());
    }

    /// Copies what it prints. Its descendants may keep the output open: they are not waited for.
    End Follow(Child& child, Output& output, const vexa::Deadline& deadline)
    {
        while (!child.HasEnded()) {
            if (deadline.IsOver()) return End::kOverdue;
            std::array<pollfd, 3> ready{{{output.Descriptor(), POLLIN, 0},
                                         {child.Descriptor(), POLLIN, 0},
                                         {m_end.Reading(), POLLIN, 0}}};
            poll(ready.data(), ready.size(), child.PollTimeout(deadline));
            if (ready[0].revents != 0) output.CopySome();
            if (ready[2].revents != 0) return child.HasEnded() ? End::kEnded : End::kStopping;
        }
        return End::kEnded;
    }

    vexa::Mutex m_lock;
    vexa::CondVar m_changed;
    std::deque<Job> m_waiting VEXA_GUARDED_BY(m_lock);
    bool m_isEnding VEXA_GUARDED_BY(m_lock) = false;
    Pipe m_end;  // nothing is written: its end is the daemon's stop
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
