/// A program at a terminal, which types and reads as a person does.
#pragma once

#include <string>
#include <vector>

/// The program is killed at the end, unless Wait was called.
class Terminal {
  public:
    /// @param environment  "NAME=value" entries that are added.
    Terminal(const std::vector<std::string>& command, const std::vector<std::string>& environment);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void Type(const std::string& keys) const;
    /// Waits for a text on the screen, behind the one that the last call waited for; fails the test after a while.
    void WaitFor(const std::string& text);
    /// Waits for the end. @return the exit status, or 128 + the signal.
    int Wait();
    /// All that the program wrote, controls included.
    const std::string& Screen() const { return m_screen; }

  private:
    bool Read();

    pid_t m_child = -1;
    int m_keyboard = -1;
    std::string m_screen;
    size_t m_seen = 0;
    bool m_isClosed = false;
};
