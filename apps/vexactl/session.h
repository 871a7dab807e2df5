/// One run of the tool: its connection, its output and its watch.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "config/access/protocol/uri.h"
#include "config/base/mutex.h"
#include "vexactl/deadline.h"
#include "vexactl/exit_status.h"
#include "vexactl/interrupts.h"
#include "vexactl/parameter.h"

class Watcher;
namespace vexa::config::access {
class PosixMQFactory;
}

/// The connection cannot carry a request out, or was lost.
struct ConnectionError : std::runtime_error {
    explicit ConnectionError(const std::string& message, ExitStatus exitStatus = ExitStatus::kCannotConnect)
        : std::runtime_error(message), status(exitStatus)
    {
    }
    const ExitStatus status;
};

/// Thrown on the main thread when nobody reads standard output any more. No std::exception: only main ends the
/// tool.
struct OutputClosed {};

/// Connects when the first command needs it and keeps the connection for all further ones. Thread: the main
/// thread, but for the printing operations, which the watch uses on the threads that deliver changes.
class Session {
  public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    std::string uri = "tcp://127.0.0.1:43110";
    bool queues = false;  ///< the daemon of this device, through its message queues, instead of the URI
    bool json = false;
    bool verbose = false;  ///< show the library's messages
    double timeout = 5;    ///< seconds, for each request to the device
    int scriptLine = 0;    ///< of the script that is being read; 0: not reading one

    /// The configuration, or null after a message. @see ExitStatus::kCannotConnect
    Config* Connect();
    /// Any configuration: the catalogue is this program's own, so no device is needed to describe it.
    /// It is no connection: other commands do not use it.
    Config* ConnectForCatalogue();
    /// Gives it back; the next command connects anew.
    void Disconnect();
    /// One parameter of it, or nothing after a message.
    std::optional<Parameter> Find(const std::string& name);

    // The device's answers. A lost connection throws ConnectionError, a signal Interrupted; no answer in time
    // ends the tool.
    /// Nothing when there is no value, or none that this connection carries: WhyNothing.
    std::optional<Value> Read(const Parameter& parameter);
    /// Why the last Read gave nothing, as the end of a sentence: "the device does not know it".
    const std::string& WhyNothing() const { return m_whyNothing; }
    /// @return false when the device reported that it does not accept the value. Not every connection reports
    /// it.
    bool Write(const Parameter& parameter, const Value& value);
    /// Throws ConnectionError for a connection that only delivers changes.
    void RequireAnswers() const;
    /// Any other use of the configuration.
    template <class Use>
    auto Ask(const Use& use)
    {
        const Deadline limit = Limit();
        auto result = use(*m_config);
        Interrupts::Instance().Check();
        CheckConnection();
        return result;
    }
    /// Whether bytes can be read and written: not over TCP, nor the queues.
    bool CarriesData() const { return !queues && !IsOver("tcp:"); }
    /// In bytes, for writing and for reading back.
    size_t LongestText() const;
    /// Whether the device reports what it did with a value; otherwise only reading it back shows it.
    bool ConfirmsWrites(const Parameter& parameter) const;

    /// A line of data, on standard output. Throws OutputClosed, on the main thread.
    void Print(const std::string& line);
    void Print(const Json& object) { Print(Dump(object)); }
    /// A message for people, on standard error, as "vexactl: ..." or "vexactl: line 3: ...".
    void Complain(const std::string& message);

    /// Prints every change from now on, of these parameters or, with none named, of all. @param atMost  so many
    /// changes; 0: no limit.
    void StartWatch(std::vector<eParam_t> only, unsigned int atMost = 0);
    void StopWatch();
    /// Waits for the watch: until all its changes were printed, or for so many seconds (0: no limit). Throws
    /// Interrupted, and ConnectionError when no more changes come. Interrupts must have been started.
    void WaitForWatch(double seconds);
    void WaitForNews(long long milliseconds);

  private:
    bool IsOver(const char* scheme) const { return !queues && vexa::uri::Contains(uri, scheme); }
    bool IsRemote() const { return queues || IsOver("tcp:") || IsOver("udp:") || IsOver("multicast:"); }
    std::string Place() const;
    std::string NoAnswer() const { return "no answer from " + Place() + " in time"; }
    Config* ConnectUri();
    Config* ConnectQueues();
    Deadline Limit() const;
    void CheckConnection() const;
    void HideLibraryMessages();
    std::optional<Value> ReadRemote(const Parameter& parameter, Config& config);
    /// The watch prints from other threads. What the device chose cannot control a terminal.
    void WriteLine(FILE* stream, const std::string& text) VEXA_REQUIRES(m_output);

    Config* m_config = nullptr;
    Config* m_catalogue = nullptr;  // a local store, where there was no other configuration
    std::function<void()> m_disconnect;
    std::unique_ptr<vexa::config::access::PosixMQFactory> m_factory;
    std::string m_reason, m_whyNothing;  // why there is no connection; why there is no value
    const std::thread::id m_mainThread = std::this_thread::get_id();
    FILE* m_messages = stderr;
    std::unique_ptr<Watcher> m_watcher;
    vexa::Mutex m_output;
};
