/// The message-queue service: the daemon's end of the request queue.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "config/access/server/queues/queue_clients.h"
#include "config/config_event_listener.h"

class Config;

/// Answers requests on a thread of its own and sends the changes of configuration 0, which is what clients of
/// the queues connect to, on the threads that make them.
class QueueService : public ConfigEventListener {
  public:
    QueueService() = default;
    /// Ends the thread and removes the request queue.
    ~QueueService() override;
    QueueService(const QueueService&) = delete;
    QueueService& operator=(const QueueService&) = delete;

    /// @return false after one line: another daemon serves the queue, or the system refuses it.
    bool Start();

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;
    bool DataChanged(eParam_t id, std::string& data, timeval time) override;

  private:
    using Response = vexa::config::access::XCONFIGMGR_RESPONSE_T;
    using Request = vexa::config::access::XCONFIGMGR_REQUEST_T;

    bool OpenQueue();
    void Run();
    ssize_t ReceiveNext();
    void Handle(const char* data, size_t length);
    void HandleConnection(const vexa::config::access::XCONFIGMGR_CONNECTION_REQUEST_T& request);
    void HandleListener(const vexa::config::access::XCONFIGMGR_CONNECTION_REQUEST_T& request);
    void HandleParameter(const char* data, size_t length);
    std::string Answer(Config& config, const Request& request, const char* stream, Response& response);
    static bool SetText(Config& config, const Request& request, const char* stream);
    void SendEvent(Response& event, eMessageType_t type, eParam_t id, timeval time,
                   const std::string& stream);
    bool SendStream(eMessageType_t type, eParam_t id, timeval time);
    void StampLastUpdate(Response& response) const;

    QueueClients m_clients;
    mqd_t m_queue = -1;
    std::vector<char> m_message;  // for any message of the queue
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
    Config* m_store = nullptr;               // configuration 0, from OpenPeerStore
    std::atomic<uint64_t> m_lastUpdate = 0;  // of configuration 0: seconds, then microseconds
};
