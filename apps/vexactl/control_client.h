/// ControlClient: the other end of the daemon's control socket.
#pragma once

#include <string>

#include "vexactl/session.h"

/// One connection, one request after the other. Thread: the main thread.
class ControlClient {
  public:
    /// Throws ConnectionError: kCannotConnect without a daemon, kRefused without permission; Interrupted.
    /// @param session  borrowed; says which socket, and how long to wait.
    /// @param mayBeInterrupted  whether a signal ends its waits.
    explicit ControlClient(const Session& session, bool mayBeInterrupted = true);
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    /// The answer. Throws ConnectionError: kRefused with the daemon's reason; kTimedOut, kCannotConnect; Interrupted.
    Json Ask(const Json& request);
    /// The next line of a stream, waiting as long as it takes. Throws as above, and OutputClosed when nobody reads
    /// the tool's lines any more.
    Json Next();

    /// The socket of the session.
    static std::string PathOf(const Session& session);

  private:
    Json Receive(unsigned int milliseconds);
    void Await(short events, unsigned int milliseconds);
    void Connect();
    void Send(const std::string& bytes, unsigned int milliseconds);

    const std::string m_path;
    const unsigned int m_timeout;
    const bool m_mayBeInterrupted;
    const int m_socket;
    std::string m_input;
};
