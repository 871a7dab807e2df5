/// A control daemon that follows a script: what a client of the message queues does with one that answers late,
/// wrongly or not at all.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "config/access/io/connection_utilities.h"
#include "config/access/io/message_queue.h"
#include "config/values/config_value.h"
#include "support/stream_bytes.h"

namespace mq = vexa::config::access;

constexpr eParam_t kNumber = eParamID_RegisterSave, kText = eParamID_ReelName;

/// A request with all that follows it.
struct MQRequest : mq::XCONFIGMGR_REQUEST_T {
    std::string bytes;
};

inline std::string TextStream(const std::string& text)
{
    StringValue value(0, kText, eCParam_StringValue, text);
    return Streamed(value);
}

/// The right answer to a request, for a store whose numbers are all 7.
inline mq::XCONFIGMGR_RESPONSE_T AnswerTo(const MQRequest& request)
{
    mq::XCONFIGMGR_RESPONSE_T answer;
    answer.msgtype = ResponseTo(eMessageType_t{request.msgtype});
    answer.info = request.info;
    answer.paramID = request.paramID;
    answer.seconds = 0x80000001;  // after 2038
    answer.microseconds = 5;
    answer.value = 7;
    return answer;
}

inline std::string Bytes(mq::XCONFIGMGR_RESPONSE_T answer, const std::string& stream = "")
{
    if (!stream.empty()) {
        answer.streamLength = static_cast<uint32_t>(stream.size());
        answer.streamFormat = mq::kQueueStreamFormat;
    }
    return vexa::wire::Bytes<vexa::wire::HostOrder>(answer, stream);
}

inline std::string NumberEvent(uint32_t connectionID, uint32_t value)
{
    return Bytes({{XCFG_PARAM_CHANGED_EVENT, {connectionID}}, 0, kNumber, 11, 0, 0, value});
}

inline std::string TextEvent(uint32_t connectionID, const std::string& text)
{
    return Bytes({{XCFG_PARAM_STRING_CHANGED_EVENT, {connectionID}}, 0, kText}, TextStream(text));
}

/// Owns the queue of the daemon. What the script does not handle is answered rightly, on the same thread.
class ScriptedDaemon {
  public:
    /// @return whether the request is handled.
    using Script = std::function<bool(ScriptedDaemon&, const MQRequest&)>;

    explicit ScriptedDaemon(Script script = nullptr) : m_stop(eventfd(0, 0)), m_script(std::move(script))
    {
        mq_unlink(mq::kRequestQueue);
        m_queue = mq::CreateQueue(mq::kRequestQueue, O_RDWR);
        EXPECT_NE(m_queue, -1);
        m_thread = std::thread([this] { Serve(); });
    }
    ~ScriptedDaemon()
    {
        Hang();
        mq_unlink(mq::kRequestQueue);
        mq_close(m_queue);
        close(m_stop);
    }
    ScriptedDaemon(const ScriptedDaemon&) = delete;
    ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;

    /// When this returns, the script before is not running any more.
    void SetScript(Script script)
    {
        const std::lock_guard hold(m_scriptLock);
        m_script = std::move(script);
    }
    /// Serves no more; the queue stays.
    void Hang()
    {
        eventfd_write(m_stop, 1);
        if (m_thread.joinable()) m_thread.join();
    }
    /// Waits for room, but not for a client that has disconnected.
    void Send(uint32_t connectionID, const std::string& bytes)
    {
        while (const auto queue = Client(connectionID)) {
            if (mq::SendMessage(queue->descriptor, bytes.data(), bytes.size(), 0, vexa::Deadline(20), m_stop))
                return;
            if (errno != ETIMEDOUT) return;
        }
    }
    /// The types of all requests, but for the connection's.
    std::vector<uint32_t> Types() const
    {
        std::vector<uint32_t> types;
        for (const MQRequest& request : Requests())
            if (request.msgtype > XCFG_DISCONNECT_REQUEST) types.push_back(request.msgtype);
        return types;
    }
    std::vector<MQRequest> Requests() const
    {
        const std::lock_guard hold(m_lock);
        return m_requests;
    }

  private:
    /// Open as long as its client is connected: closing it takes the client, in this process, its notification.
    struct Queue {
        explicit Queue(const std::string& name) : descriptor(mq_open(name.c_str(), O_WRONLY)) {}
        ~Queue() { mq_close(descriptor); }
        const mqd_t descriptor;
    };

    std::shared_ptr<Queue> Client(uint32_t connectionID) const
    {
        const std::lock_guard hold(m_lock);
        const auto client = m_clients.find(connectionID);
        return client == m_clients.end() ? nullptr : client->second;
    }
    void Serve()
    {
        std::vector<char> message;
        size_t length = 0;
        while (mq::WaitForQueue(m_queue, POLLIN, vexa::Deadline(vexa::Deadline::kNever), m_stop)) {
            if (!mq::ReceiveMessage(m_queue, message, length)) continue;
            MQRequest request;  // ReceiveMessage adds zeros to short ones
            vexa::wire::Decode<vexa::wire::HostOrder>(message.data(), message.size(),
                                                      static_cast<mq::XCONFIGMGR_REQUEST_T&>(request));
            request.bytes.assign(message.data(), length);
            Handle(request);
        }
    }
    void Handle(const MQRequest& request)
    {
        const uint32_t id = request.info.connectionID;
        {
            const std::lock_guard hold(m_lock);
            m_requests.push_back(request);
            if (request.msgtype == XCFG_CONNECT_REQUEST)
                m_clients[id] = std::make_shared<Queue>(mq::ConnectionUtilities::GetQueueName(id));
        }
        {
            const std::lock_guard hold(m_scriptLock);
            if (m_script && m_script(*this, request)) return;
        }
        const uint32_t type = request.msgtype;
        if (type <= XCFG_DISCONNECT_REQUEST)
            Send(id, Bytes(AnswerTo(request)).substr(0, 24));
        else if (type == XCFG_GET_STREAM_PARAM_REQUEST || type == XCFG_SET_STREAM_PARAM_REQUEST)
            Send(id, Bytes(AnswerTo(request), TextStream("Scene")));
        else
            Send(id, Bytes(AnswerTo(request)));
        const std::lock_guard hold(m_lock);
        if (type == XCFG_DISCONNECT_REQUEST) m_clients.erase(id);
    }

    const int m_stop;
    mqd_t m_queue;
    std::mutex m_scriptLock;
    Script m_script;            // guarded by m_scriptLock
    mutable std::mutex m_lock;  // guards what follows
    std::map<uint32_t, std::shared_ptr<Queue>> m_clients;
    std::vector<MQRequest> m_requests;
    std::thread m_thread;
};
