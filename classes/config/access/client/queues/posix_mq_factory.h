/// PosixMQFactory: makes clients of the control daemon's message queues.
#pragma once

#include <mqueue.h>

#include <atomic>
#include <memory>
#include <string>

#include "config/base/deadline.h"
#include "config/base/export.h"

namespace vexa::config::access {

class PosixMQClient;
struct SharedExchanges;

/// For applications that talk to the daemon of their device directly. One per process: the wait for an answer
/// of one connection keeps the others of its factory from asking. Thread: any.
class VEXA_EXPORT PosixMQFactory {
  public:
    /// Opens the daemon's queue; the descriptor becomes that of a later daemon when this one has ended. Without
    /// a daemon it ends the process, deliberately: an application of the device cannot go on without it.
    PosixMQFactory();
    /// @param requestQueue  the daemon's queue, open; owned from now on.
    explicit PosixMQFactory(mqd_t requestQueue);
    /// Releases nothing: the daemon's queue stays open until the process ends, for the clients that remain.
    virtual ~PosixMQFactory();
    PosixMQFactory(const PosixMQFactory&) = delete;
    PosixMQFactory& operator=(const PosixMQFactory&) = delete;

    /// A connected client. @param uri  only its priority counts.
    /// @return null after one line or more; give a client back with Disconnect.
    PosixMQClient* Connect(std::string uri);
    /// @param client  must not be used any more; null is ignored. Waits for a running callback; called from a
    /// callback of the client, it has the client deleted after that.
    void Disconnect(PosixMQClient* client);

    /// The handshake of Connect. @return false after one line or more.
    bool ConfirmConnection(mqd_t requestQueue, mqd_t responseQueue, unsigned int connectionID,
                           unsigned int priority);
    /// The handshake of Disconnect, which prints only a difference of identifiers.
    bool ConfirmDisconnect(PosixMQClient* client);

    /// 10 for a URI with "priority=", whatever follows, else 0.
    static unsigned int GetPriority(const std::string& uri);

    /// How long the daemon may take to answer a Connect, in milliseconds. Default no limit: a line a minute then
    /// tells of the wait. It also counts for a Connect that is waiting, which another thread can end like that.
    void SetConnectTimeout(unsigned int timeout) { m_connectTimeout = timeout; }

  private:
    mqd_t OpenResponseQueue(unsigned int& connectionID);

    const std::shared_ptr<SharedExchanges> m_shared;
    mqd_t m_requestQueue;
    std::atomic<unsigned int> m_connections = 0;
    std::atomic<unsigned int> m_connectTimeout = Deadline::kNever;
};

}  // namespace vexa::config::access
