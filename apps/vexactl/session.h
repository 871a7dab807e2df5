/// One run of the tool: its connection, its output and its watch.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "vexactl/exit_status.h"
#include "vexactl/parameter.h"

class Watcher;

/// Connects when the first command needs it and keeps the connection for all further ones. Thread: the main
/// thread, but for the printing operations, which the watch uses from wherever a change is delivered.
class Session {
  public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    std::string uri = "local:";
    bool json = false;
    int scriptLine = 0;  ///< of the script that is being read; 0: not reading one

    /// The configuration, or null after a message. @see ExitStatus::kCannotConnect
    Config* Connect();
    /// One parameter of it, or nothing after a message.
    std::optional<Parameter> Find(const std::string& name);

    /// A line of data, on standard output.
    void Print(const std::string& line);
    void Print(const Json& object) { Print(Dump(object)); }
    /// A message for people, on standard error, as "vexactl: ..." or "vexactl: line 3: ...".
    void Complain(const std::string& message);

    /// Tells of every change from now on, of these parameters or, with none named, of all.
    void StartWatch(std::vector<eParam_t> only);
    void StopWatch();
    /// Waits for the watch: until interrupted, until so many changes were told, or for so many seconds (0: no
    /// limit).
    void WaitForWatch(unsigned int changes, double seconds);

  private:
    Config* m_config = nullptr;
    std::unique_ptr<Watcher> m_watcher;
    std::mutex m_output;
};
