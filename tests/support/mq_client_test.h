/// A client of the message queues and the scripted daemon that it talks to.
#pragma once

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "config/descriptors/registry/registry.h"
#include "support/recording_listener.h"
#include "support/scripted_daemon.h"
#include "support/stderr_of.h"

class MQClientTest : public testing::Test {
  protected:
    MQClientTest()
    {
        StderrOf([] { CreateDescriptors(); });
        m_client = m_factory.Connect("mq:");
        EXPECT_NE(m_client, nullptr);
        m_id = m_daemon.Requests()[0].info.connectionID;
    }
    ~MQClientTest() override { Disconnect(); }

    void Disconnect() { m_factory.Disconnect(std::exchange(m_client, nullptr)); }
    /// Answers the next request of a type with these bytes, and the others rightly.
    void AnswerWith(uint32_t type, std::function<std::string(const MQRequest&)> answer)
    {
        m_daemon.SetScript([=](ScriptedDaemon& self, const MQRequest& request) {
            if (request.msgtype == type) self.Send(request.info.connectionID, answer(request));
            return request.msgtype == type;
        });
    }

    ScriptedDaemon m_daemon;
    mq::PosixMQFactory m_factory;
    mq::PosixMQClient* m_client;
    uint32_t m_id;
    RecordingListener m_listener;  // outlives the client
};

inline std::string Number(unsigned int value)
{
    char text[32];
    snprintf(text, sizeof text, "int %08x=%u", kNumber, value);
    return text;
}
