/// Programs: what the commands of a product do, as mainstay.conf says.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "config/base/mutex.h"
#include "config/param_ids.h"

namespace actions {

/// What one entry of mainstay.conf says: [action.SystemCommand.6], or [action.SystemCommand] for all values.
struct ProgramAction {
    eParam_t param{};
    std::optional<unsigned int> value;  ///< nothing: every other value
    std::vector<std::string> run;  ///< program and arguments; empty: another program of the device does it
    std::chrono::seconds timeout{60};
};

/// What the program learns of its command: in VEXA_PARAM, VEXA_VALUE, VEXA_TEXT and VEXA_WHO.
struct ProgramRequest {
    std::string param, value, text, who;
    std::string shown;  ///< the value as the log may have it
};

/// Runs programs, one at a time for each parameter, without a shell. What they print goes to the log, and so does what
/// became of them. Thread: made and destroyed by one; the rest on any.
class Programs {
  public:
    explicit Programs(std::vector<ProgramAction> actions);
    /// Leaves the programs that run alone: one that restarts the daemon must not end with it.
    ~Programs();

    /// Whether there is an entry for any of its values.
    bool Has(eParam_t param) const;
    /// Null without an entry.
    const ProgramAction* Find(eParam_t param, unsigned int value) const;
    /// Never waits. @return false when too many wait already.
    bool Start(const ProgramAction& action, ProgramRequest request);

  private:
    /// The programs of one parameter.
    class Line;

    const std::vector<ProgramAction> m_actions;
    vexa::Mutex m_lock;
    std::map<eParam_t, std::unique_ptr<Line>> m_lines VEXA_GUARDED_BY(m_lock);
};

}  // namespace actions
