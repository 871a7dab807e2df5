/// The message-queue service: the daemon's end of the request queue.
#pragma once

#include <memory>

#include "config/access/server/access_rules.h"
#include "config/base/export.h"

namespace vexa::config::access {

/// Answers requests on a thread of its own and sends the changes of configuration 0, the one of all clients
/// of the queues, on the threads that make them.
/// Thread: one makes, starts and deletes it; changes come on any.
class VEXA_EXPORT QueueService {
  public:
    QueueService();
    /// Ends the thread and removes the request queue.
    ~QueueService();
    QueueService(const QueueService&) = delete;
    QueueService& operator=(const QueueService&) = delete;

    /// What the clients may do. Default: everything. Before Start.
    void SetRight(corvalis::config::access::Right right);
    /// @return false after one line: another daemon serves the queue, or the system refuses it.
    bool Start();

  private:
    class Service;
    const std::unique_ptr<Service> m_service;
};

}  // namespace vexa::config::access
