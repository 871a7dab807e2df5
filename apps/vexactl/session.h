/// One run of the tool at one device: what was asked for, the connection, and what is said about it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "vexactl/connection.h"
#include "vexactl/exit_status.h"
#include "vexactl/interrupts.h"
#include "vexactl/output.h"
#include "vexactl/parameter.h"

class BackgroundWatch;

/// The connection cannot carry a request out, or was lost.
struct ConnectionError : std::runtime_error {
    explicit ConnectionError(const std::string& message, ExitStatus exitStatus = ExitStatus::kCannotConnect)
        : std::runtime_error(message), status(exitStatus)
    {
    }
    const ExitStatus status;
};

/// The options of every command.
struct Settings {
    std::string uri = "tcp://127.0.0.1:43110";  ///< the device; several with commas
    std::string devicesFile;                    ///< one a line, instead
    std::string model;    ///< that the device has to be, or is taken for; of the catalogue without one
    std::string control;  ///< path of the daemon's control socket; empty: the usual one
    bool queues = false;  ///< the daemon of this machine, through its message queues, instead of the URI
    bool json = false;
    bool verbose = false;      ///< show the library's messages
    double timeout = 5;        ///< seconds, for connecting and for each answer
    std::string format;        ///< of values and changes; empty: the usual one
    bool hasDevice = false;    ///< it was named
    bool isOneOfMany = false;  ///< lines begin with the device
};

/// Connects when the first command needs it and keeps the connection for all further ones. Thread: one, but for
/// the printing operations.
class Session : public Settings {
  public:
    explicit Session(Output& output);
    /// At one of several devices.
    Session(Output& output, const Settings& settings, const std::string& device);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int scriptLine = 0;  ///< of the script that is being read; 0: not reading one

    /// The device, in step. Throws ConnectionError, and Interrupted after a signal.
    vexa::Device* Connect();
    /// The same device over a transport that carries data: UDP instead of TCP, at the same host and port.
    vexa::Device* ConnectForData();
    /// Gives them back; the next command connects anew. A watch in the background goes on then.
    void Disconnect();
    /// Of the device that is in step.
    const vexa::Catalogue& Parameters() const { return *m_catalogue; }
    /// Of a device that was named, else of the model that was, else of this machine's. Throws ConnectionError.
    const vexa::Catalogue& Described();
    bool NeedsNoDevice() const { return !hasDevice && !model.empty(); }

    /// One parameter of a device that is in step, or nothing after a message.
    std::optional<Parameter> Find(const std::string& name);
    /// What the device answers. Throws ConnectionError when it does not, and Interrupted.
    std::vector<vexa::GetResult> Read(vexa::Device& device, const std::vector<Parameter>& parameters) const;
    /// Throws for a failure of the connection.
    void RequireConnection(vexa::Failure failure, const std::string& reason) const;
    /// The news of the device's state, one by one; of the one for data if there is one.
    std::optional<vexa::DeviceStatus> TakeNews();
    int NewsFd() const;
    std::string Place() const { return queues ? "the queue /mainstay" : uri; }
    Output& Lines() const { return m_output; }

    // Output; any thread.
    /// Data, on standard output. What a watch in the background has heard comes before it.
    void Print(const std::string& line);
    void Print(Json object);
    void PrintExactly(const std::string& text);
    /// A parameter in the form that was asked for. @param usual  otherwise.
    void PrintValue(const Parameter& parameter, const std::optional<Value>& value, const std::string& usual);
    /// The same for a watch. @param more  for programs, before the value. @param form  see Settings::format.
    void PrintChange(const Parameter& parameter, const std::optional<Value>& value, const std::string& usual,
                     const Json& more, const std::string& time, const std::string& form);
    /// A message for people, on standard error, as "vexactl: ..." or "vexactl: line 3: ...".
    /// With --json an object on standard output instead. @return the status.
    ExitStatus Fail(ExitStatus status, const std::string& message, const Json& details = Json::object());
    void Complain(const std::string& message, ExitStatus status = ExitStatus::kUsage)
    {
        Fail(status, message);
    }
    /// The same for what is no failure.
    void Note(const std::string& message, const Json& details = Json::object());

    /// Prints changes in the background from now on. @param names  of parameters; none: all. @param ofData  over
    /// a transport that carries data.
    void StartWatch(const std::vector<std::string>& names, bool ofData);
    void StopWatch();

  private:
    vexa::Device* Open(std::unique_ptr<Connection>& connection, const std::string& address);
    std::string Address() const { return queues ? "mq:" : uri; }
    std::string DataAddress() const;
    void BeginWatch();
    void PrintLine(const std::string& line);
    std::string Formatted(const std::string& form, const Parameter& parameter,
                          const std::optional<Value>& value, const std::string& time) const;

    Output& m_output;
    std::unique_ptr<Connection> m_connection, m_dataConnection;
    std::shared_ptr<const vexa::Catalogue> m_catalogue;
    std::optional<std::vector<std::string>> m_watched;
    bool m_watchesData = false;
    std::unique_ptr<BackgroundWatch> m_watch;
};
