/// Output: the lines of the tool, data on standard output and messages on standard error.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "config/base/mutex.h"

using Json = nlohmann::ordered_json;

/// Thrown on the main thread when nobody reads standard output any more. No std::exception: only main ends the
/// tool.
struct OutputClosed {};

/// One line; bytes that are no UTF-8 are replaced.
std::string Dump(const Json& json);
/// A text in quotes, on one line.
std::string Quoted(const std::string& text);

/// Shared by all sessions of the tool. Thread: any.
class Output {
  public:
    Output();
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    /// The library's messages are for developers: the tool reports the same to its user in its own words.
    /// Thread: the main thread, while there is no other one.
    void HideLibraryMessages();
    /// What the device chose cannot control a terminal. Throws OutputClosed, on the main thread.
    void Print(const std::string& line) VEXA_EXCLUDES(m_lock);
    /// As it is, for scripts; on a terminal like the other lines.
    void PrintExactly(const std::string& text) VEXA_EXCLUDES(m_lock);
    /// "vexactl: ..."
    void Complain(const std::string& message) VEXA_EXCLUDES(m_lock);
    /// A bar below all lines, where a person reads the messages. Not once something was asked.
    void ShowProgress(size_t done, size_t of) VEXA_EXCLUDES(m_lock);
    void HideProgress() VEXA_EXCLUDES(m_lock);
    /// On standard error as it is: a prompt, or the end of its line.
    void Ask(const std::string& prompt) VEXA_EXCLUDES(m_lock);
    /// Whether a person reads the messages.
    bool IsTerminal() const { return isatty(fileno(m_messages)); }
    /// @return false, after a message, when not everything could be written.
    bool Finish() VEXA_EXCLUDES(m_lock);
    /// Whether nobody reads standard output any more.
    static bool IsClosed();

  private:
    void Write(FILE* stream, const std::string& text) VEXA_REQUIRES(m_lock);
    void EraseBar() VEXA_REQUIRES(m_lock);
    void DrawBar() VEXA_REQUIRES(m_lock);

    const std::thread::id m_mainThread = std::this_thread::get_id();
    FILE* m_messages = stderr;
    const bool m_isColoured;
    vexa::Mutex m_lock;
    std::string m_bar VEXA_GUARDED_BY(m_lock);
    size_t m_done VEXA_GUARDED_BY(m_lock) = 0;
    bool m_hasAsked VEXA_GUARDED_BY(m_lock) = false;
};
