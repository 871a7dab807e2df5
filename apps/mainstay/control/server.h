/// ControlServer: the local socket by which an operator controls the daemon.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "config/base/mutex.h"
#include "mainstay/control/control.h"

namespace control {

/// The option's path or, without one, "control" in the first directory of $RUNTIME_DIRECTORY, else in the state
/// directory. Empty: there is none, and no socket.
std::string SocketPath(const std::string& option, const std::string& stateDirectory);

/// Answers requests, one a line, each client on a thread of its own, so that none can keep the others waiting.
/// Thread: one makes, starts and deletes it.
class ControlServer {
  public:
    /// Clients at a time; the operators of one device are few.
    static constexpr size_t kMaxClients = 32;
    /// A request may hold an imported preset.
    static constexpr size_t kMaxLineBytes = size_t{1} << 20;
    /// A client that asks nothing for so long loses its place. One with a stream may be silent.
    static constexpr unsigned int kIdleMs = 300'000;
    /// A client that takes nothing of an answer for so long is cut off; of a stream, which somebody may be reading
    /// page by page, after the other time.
    static constexpr unsigned int kAnswerStallMs = 10'000, kStreamStallMs = 600'000;

    explicit ControlServer(Handlers handlers);
    /// Ends every connection, after the request that is being carried out.
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    /// Takes over the socket of a daemon that has ended. @return false after one line.
    bool Start(const std::string& path);

  private:
    class Connection;

    bool Listen();
    bool RemoveStale() const;
    void Run();
    void Accept();
    void Serve(int socket);

    const Handlers m_handlers;
    std::string m_path;
    int m_socket = -1;
    int m_stop = -1;  // an eventfd, readable at the end
    std::thread m_thread;
    vexa::Mutex m_lock;
    vexa::CondVar m_left;
    size_t m_clients VEXA_GUARDED_BY(m_lock) = 0;
};

}  // namespace control
