/// DaemonHold: old values that the daemon puts back itself, whatever becomes of the tool. Thread: that of the session.
#pragma once

#include "vexactl/changes.h"
#include "vexactl/control_client.h"

/// Where the control socket of this machine belongs to the daemon of the device; elsewhere it holds nothing. A signal
/// does not end its requests: a hold that nobody knows of would undo later changes.
class DaemonHold {
  public:
    /// @param session  borrowed.
    explicit DaemonHold(Session& session) : m_session(session) {}

    /// Before anything is written; says why when the daemon of this device refuses. @return whether it holds.
    bool Start(vexa::Device& device, const ValueChanges& changes, double seconds);
    /// 0: the daemon holds nothing.
    unsigned int Number() const { return m_number; }
    /// The new values stay, or the old ones are back. @return false when it was decided before.
    /// Throws ConnectionError.
    bool Release();
    /// From now on it is the daemon's business alone.
    void Leave() { m_number = 0; }
    /// Has the daemon put the old values back, in a moment. @return false when it does not answer.
    bool PutBackNow();

  private:
    bool IsOfDaemon(vexa::Device& device);
    Json Ask(const Json& request) { return ControlClient(m_session, false).Ask(request); }
    void Hold(unsigned int seconds);
    bool Refused(const std::string& reason);

    Session& m_session;
    unsigned int m_number = 0;
    Json m_values;  // as the daemon takes them
};
