/// The requests about what the device remembers: status, log, presets.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "config/access/server/denials.h"
#include "config/base/mutex.h"
#include "config/config.h"
#include "mainstay/actions/actions.h"
#include "mainstay/actions/presets.h"
#include "mainstay/control/control.h"
#include "mainstay/state/keeper.h"

namespace control {

/// What the requests are about; all of it outlives them.
struct Device {  // NOLINT(clang-analyzer-core.NullDereference): the daemon has them all before it serves
    Config& store;
    state::SettingsFile& file;
    state::Keeper& keeper;
    actions::Presets& presets;
    actions::Actions& actions;
    std::vector<std::string> endpoints;  ///< "TCP port 43110"
    std::vector<std::string> rules;      ///< "10.1.0.0/16=write", in the order in which they match
    unsigned int locale = 0;             ///< of the texts of this process, as eParamID_Locale
};

/// Thread: any; made and deleted by one. The keeper must have stopped when it is deleted.
class StateReports {
  public:
    explicit StateReports(Device device);
    ~StateReports();
    StateReports(const StateReports&) = delete;
    StateReports& operator=(const StateReports&) = delete;
    /// Handlers that borrow this.
    void AddTo(Handlers& handlers);

  private:
    /// A client that wants to hear of new lines of the history.
    struct Follower {
        std::weak_ptr<Stream> stream;
        int64_t lastID;  // that it has
        std::vector<eParam_t> params;
    };

    Json Status() const;
    Answer Log(const Json& request);
    Json ListPresets();
    Json DoPreset(const Json& request);
    Json Save(unsigned int number, const Json& request);
    Json Result(eParam_t parameter, const actions::PresetResult& result) const;
    void Follow(const std::vector<state::HistoryLine>& lines);
    void FollowDenials(const vexa::corvalis::config::access::Denial& denial);

    const Device m_device;
    const std::string m_since;
    vexa::Mutex m_lock;
    std::vector<Follower> m_followers VEXA_GUARDED_BY(m_lock);
    vexa::Mutex m_denialLock;  // never held over the disk: a server's thread takes it
    std::vector<Follower> m_denialFollowers VEXA_GUARDED_BY(m_denialLock);
};

}  // namespace control
