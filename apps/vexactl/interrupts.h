/// Signals that end the tool, which says goodbye to the device first, or a command of its shell.
#pragma once

#include <atomic>
#include <functional>

#include "config/base/mutex.h"

/// Thrown on the main thread after a signal. No std::exception: only main ends the tool.
struct Interrupted {
    int signal;
};

/// Ends the process by this signal, as its default action does. Thread: any.
[[noreturn]] void EndBySignal(int signal);

/// Takes SIGINT, SIGTERM and SIGHUP on a thread of its own. The main thread finds out when it asks; while it
/// waits for input, that thread tidies up in its place. A second signal ends the tool at once, and so does the
/// first one when the main thread has not found out within a second and nothing can make it.
/// Lives as long as the process. Thread: the main thread, but where an operation says otherwise.
class Interrupts {
  public:
    /// The one of the process.
    static Interrupts& Instance();

    /// From now on, and once: before there are other threads that take signals. Signals that are ignored stay
    /// so.
    void Start();
    /// Readable after a signal; -1 before Start.
    int Fd() const { return m_fd; }
    /// Throws Interrupted after a signal.
    void Check() VEXA_EXCLUDES(m_lock);
    /// What makes a wait inside the library end; null: nothing does. Called on the other thread.
    void SetStop(std::function<void()> stop) VEXA_EXCLUDES(m_lock);

    /// From now on SIGINT ends a command, not the tool: whoever runs the commands calls Forget after each.
    void EndCommands() VEXA_EXCLUDES(m_lock);
    /// @return whether a signal has ended the command. One that ends the tool stays.
    bool Forget() VEXA_EXCLUDES(m_lock);

    /// For the life of a scope the main thread only waits: a signal calls `tidy` on the other thread and ends
    /// the tool. Throws Interrupted after an earlier one.
    class Idle {
      public:
        explicit Idle(std::function<void()> tidy) { Instance().SetTidy(std::move(tidy)); }
        ~Idle() { Instance().SetTidy(nullptr); }
        Idle(const Idle&) = delete;
        Idle& operator=(const Idle&) = delete;
    };

  private:
    void SetTidy(std::function<void()> tidy) VEXA_EXCLUDES(m_lock);
    void CheckLocked() VEXA_REQUIRES(m_lock);
    void Run();
    bool Note(int signal) VEXA_EXCLUDES(m_lock);
    bool IsForCommand(int signal) const VEXA_REQUIRES(m_lock);
    bool MayTakeLong(int signal) VEXA_EXCLUDES(m_lock);
    bool StopWaits() VEXA_EXCLUDES(m_lock);

    std::atomic<bool> m_isStarted = false;
    int m_fd = -1;
    vexa::Mutex m_lock;
    vexa::CondVar m_never;  // for the main thread, whose connection is gone while the other one tidies up
    bool m_isTidying VEXA_GUARDED_BY(m_lock) = false;
    bool m_isFound VEXA_GUARDED_BY(m_lock) = false;  // the main thread is ending the tool
    bool m_endsCommands VEXA_GUARDED_BY(m_lock) = false;
    int m_signal VEXA_GUARDED_BY(m_lock) = 0;
    std::function<void()> m_stop VEXA_GUARDED_BY(m_lock), m_tidy VEXA_GUARDED_BY(m_lock);
};
