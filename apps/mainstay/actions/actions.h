/// Actions: what the device does when a command is set, beyond storing and announcing it.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "config/base/mutex.h"
#include "config/config.h"
#include "config/config_event_listener.h"
#include "config/descriptors/param_descriptor.h"
#include "mainstay/actions/presets.h"
#include "mainstay/actions/programs.h"

namespace actions {

/// Whether setting the parameter asks the device to do something: it has no state to keep.
bool IsCommand(ParamDescriptor& descriptor);
/// Whether the daemon itself carries the command out: programs are not asked then.
bool IsBuiltIn(ParamDescriptor& descriptor);

/// Hears the commands of the store and carries them out, one after the other, on the thread "ms-actions": presets,
/// clearing alarms, the actions of the catalogue, programs. Thread: made and destroyed by one; the rest on any.
class Actions : public ConfigEventListener {
  public:
    /// @param store, presets, programs  borrowed.
    Actions(Config& store, Presets& presets, Programs& programs);
    /// Finishes the commands that wait.
    ~Actions() override;

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;

    /// Commands that nobody carried out, each with its latest value: for people.
    std::vector<std::string> Notes() const;

  private:
    struct Command {
        ParamDescriptor* descriptor;
        vexa::Value value;
        std::string who;
        // Of a preset that is to be saved, as it was when the command came; nothing when an earlier command has yet to
        // change values.
        std::optional<state::Values> snapshot;
    };
    using Handler = std::function<void(const Command&)>;

    void ChooseHeard();
    bool Hear(eParam_t id, vexa::Value value);
    bool IsIdle() const;
    void Run();
    void RestoreFactorySettings(const Command& command);
    void ClearAlarms(const Command& command);
    void RunProgram(const Command& command);
    void NoteUnserved(const Command& command);

    Config& m_store;
    Presets& m_presets;
    Programs& m_programs;
    const std::map<eParam_t, Handler> m_handlers;
    /// A command, or whatever mainstay.conf names.
    struct Heard {
        ParamDescriptor* descriptor;
        bool isFollower;  // announced along with another parameter, too: then only another value is a command
        vexa::Value value;  // the last one
    };
    std::map<eParam_t, Heard> m_heard;  // guarded by the store's turn

    mutable vexa::Mutex m_lock;  // innermost: taken by those who change values
    vexa::CondVar m_changed;
    std::deque<Command> m_commands VEXA_GUARDED_BY(m_lock);
    std::map<eParam_t, std::string> m_unserved VEXA_GUARDED_BY(m_lock);
    bool m_isBusy VEXA_GUARDED_BY(m_lock) = false, m_isEnding VEXA_GUARDED_BY(m_lock) = false;
    std::thread m_thread;
};

}  // namespace actions
