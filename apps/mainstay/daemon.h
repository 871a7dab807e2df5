/// The control daemon: its store, what it remembers and does, and the servers by which applications reach it.
#pragma once

#include <bit>
#include <memory>
#include <string>
#include <vector>

#include "mainstay/actions/actions.h"
#include "mainstay/actions/presets.h"
#include "mainstay/actions/programs.h"
#include "mainstay/state/keeper.h"
#include "mainstay/state/settings_file.h"

namespace vexa::corvalis::config::access {
class AccessRules;
class NetworkServer;
}  // namespace vexa::corvalis::config::access
class Config;
namespace control {
class ControlServer;
class StateReports;
class Rollback;
}  // namespace control
namespace vexa::config::access {
class QueueService;
}

/// Where and how the daemon serves.
struct Options {
    int tcpPort = 0, udpPort = 0;                    ///< 0: a free one
    std::endian payloadOrder = std::endian::native;  ///< of texts on the network
    int stallSeconds = 60;                           ///< that a TCP client may take nothing
    std::string control;                             ///< path of the control socket; empty: the usual one
    bool noTcp = false, noUdp = false, noQueues = false;
    std::vector<std::string> bind;   ///< addresses to listen on; none: all
    std::vector<std::string> allow;  ///< rules, which AccessRules takes
    std::string stateDirectory;      ///< "": nothing is kept beyond the end of the process
    double commitInterval = 0.5;     ///< seconds from a change to its place on the disk
    size_t historyLimit = 100'000;   ///< changes
    std::string media;               ///< directory of the media
    std::vector<actions::ProgramAction> actions;
};

/// Thread: the main thread.
class Daemon {
  public:
    Daemon();
    ~Daemon();

    /// Opens the store and starts the servers.
    /// @return false after one line with the reason.
    bool Start(const Options& options);
    /// Returns when the store has answered, and nobody keeps its turn for himself.
    void AskStore();
    /// "queue /mainstay, TCP port 43110, UDP port 43110".
    std::string Endpoints() const;
    /// "state in /var/lib/mainstay", "state not kept".
    std::string StateText() const;

  private:
    using Server = vexa::corvalis::config::access::NetworkServer;
    bool StartServer(int socketType, int port, const Options& options, const char* name);

    bool OpenState(const Options& options);
    void ApplyLocale();
    bool OpenStore(const Options& options);
    bool StartServers(const Options& options);
    bool StartQueues();
    bool StartControl(const Options& options);
    void AddEndpoint(const std::string& endpoint);

    std::unique_ptr<state::SettingsFile> m_file;
    std::unique_ptr<state::Keeper> m_keeper;
    Config* m_store = nullptr;
    std::unique_ptr<actions::Presets> m_presets;
    std::unique_ptr<actions::Programs> m_programs;
    std::unique_ptr<actions::Actions> m_actions;
    std::unique_ptr<vexa::config::access::QueueService> m_queues;
    std::vector<Server*> m_servers;  // each is freed by its own thread after Stop
    std::vector<std::string> m_endpoints;
    std::shared_ptr<vexa::corvalis::config::access::AccessRules> m_rules;
    unsigned int m_locale = 0;  // of the texts of the catalogue
    std::unique_ptr<control::StateReports> m_reports;
    std::unique_ptr<control::Rollback> m_rollback;
    std::unique_ptr<control::ControlServer> m_control;
};
