/// Rollback: old values, which come back unless somebody confirms the new ones. Thread: that of the session.
#pragma once

#include <optional>

#include "vexactl/daemon_hold.h"

/// The tool holds the values and the time, so it has to stay until it is decided, unless the daemon holds them as well.
class Rollback {
  public:
    /// @param seconds  of the time to confirm; nothing where nobody is asked.
    Rollback(Session& session, vexa::Device& device, const std::optional<double>& seconds);

    /// Before the first of them is written; from now on runs the time. Borrows the list.
    void Start(const ValueChanges& changes);
    /// Until when somebody may confirm, and a lost connection come back.
    const vexa::Deadline& End() const { return m_end; }
    /// Whether there is something to put back.
    bool HasChanges() const { return m_changes && !Differing().empty(); }
    /// Whether the daemon puts the old values back where the tool does not.
    const DaemonHold& Daemon() const { return m_daemon; }
    /// The new values stay. Throws ConnectionError when the daemon cannot be told.
    void Confirm();
    /// The tool has no say in it any more.
    void LeaveToDaemon();
    /// At the end of the time: whether somebody has told the daemon meanwhile that the new values stay.
    bool IsConfirmedElsewhere();
    /// Puts the old values back, the last one first, as soon as the device can be reached; tells what came back, and
    /// what did not. Gives up after the same time once more. A signal does not end this, but a second one the tool.
    void Undo();

  private:
    /// Those that are to be put back, the last one first: what the device shows, or may have.
    std::vector<const ValueChange*> Differing() const;
    /// @return false when the connection is lost, or a value cannot be sent at all.
    bool PutBack(const std::vector<const ValueChange*>& differing, std::string& reason);
    /// The daemon has nothing more to do.
    void Release();
    void Tell(const std::vector<const ValueChange*>& first, const std::vector<const ValueChange*>& left,
              const std::string& reason);

    Session& m_session;
    vexa::Device& m_device;
    const double m_seconds;  // 0: nobody is asked
    DaemonHold m_daemon;
    vexa::Deadline m_end{0};
    const ValueChanges* m_changes = nullptr;
};

/// Asks whether the new values stay, and puts the old ones back unless the answer is yes, in time, and the device can
/// be reached.
ExitStatus AskWhetherToKeep(Session& session, vexa::Device& device, Rollback& rollback);
