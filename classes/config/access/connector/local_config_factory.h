/// LocalConfigFactory: the stores of this process, shared by all local clients of one configuration ID.
#pragma once

#include <map>
#include <string>

#include "config/base/semaphore_helper.h"
#include "config/param_ids.h"

class Config;
class ConfigManager;

namespace vexa::config::access {

/// Thread: any.
class LocalConfigFactory {
  public:
    LocalConfigFactory();
    /// Stores that still have users are not deleted.
    ~LocalConfigFactory();
    LocalConfigFactory(const LocalConfigFactory&) = delete;
    LocalConfigFactory& operator=(const LocalConfigFactory&) = delete;

    /// The number behind "configid=" in a URI, limited to 32 bits; 0 when there is none.
    eConfigID_t GetConfigID(std::string uri);
    /// The store of the URI's configuration ID, made and filled with factory defaults for its first user.
    Config* Connect(std::string uri);
    /// Gives one use back; the store is deleted with its last user, from a callback of it when that has ended.
    /// @param config  may be anything: what this factory did not hand out, or has deleted, is not followed.
    /// @return false for null and for anything that this factory did not hand out.
    bool Disconnect(Config* config);

  private:
    bool TakeUse(Config* config, ConfigManager*& last);

    LockSemaphore m_tableLock;
    std::map<eConfigID_t, Config*> m_stores VEXA_GUARDED_BY(m_tableLock);  // each a ConfigManager; owned
};

}  // namespace vexa::config::access
