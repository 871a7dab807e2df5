#include "support/terminal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

Terminal::Terminal(const std::vector<std::string>& command, const std::vector<std::string>& environment)
{
    const winsize size{24, 80, 0, 0};
    m_child = forkpty(&m_keyboard, nullptr, nullptr, &size);
    if (m_child != 0) return;
    for (const std::string& entry : environment) putenv(const_cast<char*>(entry.c_str()));
    std::vector<char*> argv;
    for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
}

Terminal::~Terminal()
{
    if (m_child > 0) {
        kill(m_child, SIGKILL);
        Wait();
    }
    close(m_keyboard);
}

void Terminal::Type(const std::string& keys) const
{
    EXPECT_EQ(write(m_keyboard, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

/// @return false when nothing came for a while.
bool Terminal::Read()
{
    pollfd screen{m_keyboard, POLLIN, 0};
    char piece[4096];
    const ssize_t count = poll(&screen, 1, 100) == 1 ? read(m_keyboard, piece, sizeof piece) : 0;
    m_isClosed = count == -1;
    if (count > 0) m_screen.append(piece, static_cast<size_t>(count));
    return count > 0;
}

void Terminal::WaitFor(const std::string& text)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    size_t place;
    while ((place = m_screen.find(text, m_seen)) == std::string::npos) {
        ASSERT_LT(std::chrono::steady_clock::now(), end) << "no " << text << " in\n"
                                                         << testing::PrintToString(m_screen.substr(m_seen));
        if (Read()) continue;
        ASSERT_FALSE(m_isClosed) << "no " << text << " in\n"
                                 << testing::PrintToString(m_screen.substr(m_seen));
    }
    m_seen = place + text.size();
}

int Terminal::Wait()
{
    int status = 0;
    while (waitpid(m_child, &status, WNOHANG) == 0) Read();
    while (Read()) continue;
    m_child = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
