#include "vexactl/output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "config/base/harmless.h"

namespace {

bool ObeysControls()
{
    const char* const terminal = getenv("TERM");
    return terminal && *terminal && std::string_view(terminal) != "dumb";
}

/// Whether messages may have colours; the variable is a convention among programs.
bool WantsColours()
{
    const char* const off = getenv("NO_COLOR");
    return isatty(STDERR_FILENO) && !(off && *off) && ObeysControls();
}

std::string BarOf(size_t done, size_t of)
{
    constexpr size_t kWidth = 30;
    const size_t filled = kWidth * done / of;
    return "[" + std::string(filled, '#') + std::string(kWidth - filled, '.') + "] " + std::to_string(done) +
           " of " + std::to_string(of) + " devices";
}

}  // namespace

std::string Dump(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string Quoted(const std::string& text)
{
    return Dump(Json(text));
}

Output::Output() : m_isColoured(WantsColours()) {}

Output::~Output()
{
    if (m_messages == stderr) return;
    dup2(fileno(m_messages), STDERR_FILENO);
    fclose(m_messages);
}

void Output::HideLibraryMessages()
{
    if (m_messages != stderr || getenv("VEXA_LOG")) return;
    const int own = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    FILE* const messages = own == -1 ? nullptr : fdopen(own, "w");
    if (messages && nowhere != -1) {
        setvbuf(messages, nullptr, _IONBF, 0);
        m_messages = messages;
        dup2(nowhere, STDERR_FILENO);
    }
    if (nowhere != -1) close(nowhere);
}

void Output::Write(FILE* stream, const std::string& text)
{
    EraseBar();
    fwrite(text.data(), 1, text.size(), stream);
    fputc('\n', stream);
    DrawBar();
}

void Output::EraseBar()
{
    if (!m_bar.empty()) fputs("\r\033[K", m_messages);
}

void Output::DrawBar()
{
    if (m_bar.empty()) return;
    fflush(stdout);
    fputs(m_bar.c_str(), m_messages);
}

void Output::ShowProgress(size_t done, size_t of)
{
    const vexa::MutexLock hold(m_lock);
    if (m_hasAsked || !IsTerminal() || !ObeysControls()) return;
    EraseBar();
    m_done = std::max(m_done, done);  // threads may overtake one another
    m_bar = BarOf(m_done, of);
    DrawBar();
}

void Output::HideProgress()
{
    const vexa::MutexLock hold(m_lock);
    EraseBar();
    m_bar.clear();
    m_done = 0;
}

void Output::Print(const std::string& line)
{
    const vexa::MutexLock hold(m_lock);
    errno = 0;
    Write(stdout, vexa::Harmless(line));
    if (ferror(stdout) && errno == EPIPE && std::this_thread::get_id() == m_mainThread) throw OutputClosed{};
}

void Output::PrintExactly(const std::string& text)
{
    if (isatty(STDOUT_FILENO)) return Print(text);
    const vexa::MutexLock hold(m_lock);
    Write(stdout, text);
}

void Output::Complain(const std::string& message)
{
    const vexa::MutexLock hold(m_lock);
    Write(m_messages, (m_isColoured ? "\033[31mvexactl:\033[0m " : "vexactl: ") + vexa::Harmless(message));
}

void Output::Ask(const std::string& prompt)
{
    const vexa::MutexLock hold(m_lock);
    EraseBar();
    m_bar.clear();
    m_hasAsked = true;
    fputs(vexa::Harmless(prompt).c_str(), m_messages);
}

bool Output::Finish()
{
    if (fflush(stdout) == 0 && !ferror(stdout)) return true;
    Complain("cannot write to standard output");
    return false;
}

bool Output::IsClosed()
{
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) == 1 && output.revents & POLLERR;
}
