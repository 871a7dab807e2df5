/// A client of the message queues and the scripted daemon that it talks to.
#pragma once

#include <optional>

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "config/descriptors/registry/registry.h"
#include "support/queue_test.h"
#include "support/recording_listener.h"
#include "support/scripted_daemon.h"
#include "support/stderr_of.h"

class MQClientTest : public QueueTest {
  protected:
    void Start() override
    {
        StderrOf([] { CreateDescriptors(); });
        m_daemon.emplace();
        m_client = m_factory.emplace().Connect("mq:");
        ASSERT_NE(m_client, nullptr);
        m_id = m_client->ConnectionID();
    }
    ~MQClientTest() override
    {
        if (m_factory) Disconnect();
    }

    void Disconnect() { m_factory->Disconnect(std::exchange(m_client, nullptr)); }
    /// Answers the next request of a type with these bytes, and the others rightly.
    void AnswerWith(uint32_t type, std::function<std::string(const MQRequest&)> answer)
    {
        m_daemon->SetScript([=](ScriptedDaemon& self, const MQRequest& request) {
            if (request.msgtype == type) self.Send(request.info.connectionID, answer(request));
            return request.msgtype == type;
        });
    }

    std::optional<ScriptedDaemon> m_daemon;
    std::optional<mq::PosixMQFactory> m_factory;
    mq::PosixMQClient* m_client = nullptr;
    uint32_t m_id = 0;
    RecordingListener m_listener;  // outlives the client
};

inline std::string Number(unsigned int value)
{
    char text[32];
    snprintf(text, sizeof text, "int %08x=%u", kNumber, value);
    return text;
}
