/// The verbs watch and wait. Thread: the main thread, or that of one of several devices.
#pragma once

#include <climits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "vexactl/session.h"

/// Prints the changes of a device: those that wait, when it is told to.
class ChangePrinter {
  public:
    ChangePrinter(Session& session, vexa::Device& device, const std::vector<std::string>& names,
                  bool wantsInitial)
        : m_session(session), m_format(session.format), m_changes(device.Changes(names, wantsInitial))
    {
    }

    /// @param atMost  changes; values of the beginning do not count. @return how many.
    unsigned int Print(unsigned int atMost);
    /// Readable while there are changes.
    int Descriptor() const { return m_changes.Descriptor(); }

  private:
    Session& m_session;
    const std::string m_format;  // the session's may be another one when the change comes
    vexa::ChangeQueue m_changes;
};

/// A watch beside other commands, on a thread of its own.
class BackgroundWatch {
  public:
    BackgroundWatch(Session& session, vexa::Device& device, const std::vector<std::string>& names);
    ~BackgroundWatch();
    BackgroundWatch(const BackgroundWatch&) = delete;
    BackgroundWatch& operator=(const BackgroundWatch&) = delete;

    /// Prints what was heard until now. Thread: any.
    void Flush() VEXA_EXCLUDES(m_lock);

  private:
    void Run();

    vexa::Mutex m_lock;
    ChangePrinter m_printer VEXA_GUARDED_BY(m_lock);
    const int m_changes, m_end;  // descriptors
    std::thread m_thread;
};

struct WatchOptions {
    std::optional<unsigned int> changes;  ///< ends the watch
    std::optional<double> seconds;        ///< likewise
    bool initial = false;                 ///< begins with the values
    bool follow = false;                  ///< goes on after a lost connection
    bool alarms = false;                  ///< over a transport that carries them

    bool IsLimited() const { return changes || seconds; }
};

/// Prints changes until a limit is reached or a signal comes. @param names  of parameters; none: all.
/// @param inBackground  beside other commands, when there is no limit.
ExitStatus Watch(Session& session, const std::vector<std::string>& names, const WatchOptions& options,
                 bool inBackground);
/// Waits until a parameter has a value, as in "TransportState=Recording".
ExitStatus Wait(Session& session, const std::string& condition, std::optional<double> seconds);
