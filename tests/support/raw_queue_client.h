/// A client of the message queues that speaks in records. Every wait has an end.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "config/access/io/left_queues.h"
#include "support/raw_peer.h"
#include "support/scripted_daemon.h"

class RawClient {
  public:
    /// @param depth  of its queue; 0: as the library's.
    explicit RawClient(uint32_t number = 0, long depth = 0)
        : m_id((static_cast<uint32_t>(getpid()) << 16) + number)
    {
        m_name = mq::ConnectionUtilities::GetQueueName(m_id);
        mq_unlink(m_name.c_str());
        mq_attr attributes{};
        attributes.mq_maxmsg = depth;
        attributes.mq_msgsize = mq::kQueueMessageBytes;
        m_responses = depth ? mq_open(m_name.c_str(), O_RDWR | O_CREAT, 0600, &attributes)
                            : mq::CreateQueue(m_name, O_RDWR);
        m_requests = mq_open(mq::kRequestQueue, O_WRONLY);
        EXPECT_NE(m_responses, -1);
        EXPECT_NE(m_requests, -1);
    }
    ~RawClient()
    {
        mq_close(m_responses);
        mq_close(m_requests);
        mq_unlink(m_name.c_str());
    }

    void Send(const std::string& bytes)
    {
        ASSERT_TRUE(mq::SendMessage(m_requests, bytes.data(), bytes.size(), 10)) << strerror(errno);
    }
    void Request(uint32_t type, eParam_t id = {}, uint32_t value = 0, const std::string& with = "",
                 uint32_t configID = 0)
    {
        const auto length = static_cast<uint32_t>(with.size());
        const std::string record =
            Words({type, m_id, ++m_requestID, configID, 10, id, value, length, length ? 0xA00u : 0});
        Send(record.substr(0, type < 48 ? 20 : type < 80 ? 24 : 36) + with);
    }
    /// The next message; `stream` gets what it carries.
    mq::XCONFIGMGR_RESPONSE_T Receive()
    {
        std::vector<char> message;
        size_t length = 0;
        pollfd readable{m_responses, POLLIN, 0};
        EXPECT_EQ(poll(&readable, 1, 10'000), 1) << "no message came";
        EXPECT_TRUE(mq::ReceiveMessage(m_responses, message, length));
        mq::XCONFIGMGR_RESPONSE_T response;
        vexa::wire::Decode<vexa::wire::HostOrder>(message.data(), message.size(), response);
        stream.assign(message.data() + mq::kQueueResponseBytes,
                      length > mq::kQueueResponseBytes ? length - mq::kQueueResponseBytes : 0);
        return response;
    }
    /// A request, as above, and its answer.
    mq::XCONFIGMGR_RESPONSE_T Ask(uint32_t type, eParam_t id = {}, uint32_t value = 0,
                                  const std::string& with = "", uint32_t configID = 0)
    {
        Request(type, id, value, with, configID);
        const mq::XCONFIGMGR_RESPONSE_T response = Receive();
        EXPECT_EQ(response.info.connectionID, m_id);
        EXPECT_EQ(response.info.requestID, m_requestID);
        EXPECT_EQ(response.info.priority, 10u);
        return response;
    }
    /// As the library's clients do.
    void Lock() const { EXPECT_TRUE(mq::LockQueue(m_responses)); }
    /// As a killed process does: the queue stays.
    void Die()
    {
        mq_close(m_responses);
        m_responses = -1;
    }
    const std::string& Name() const { return m_name; }
    void Connect() { EXPECT_EQ(Ask(16).msgtype, 32u); }
    uint32_t SetEvents(bool wanted)
    {
        const auto response = Ask(wanted ? 48 : 49);
        EXPECT_EQ(response.listenerError + response.error, 0u);
        return response.msgtype;
    }

    std::string stream;

  private:
    const uint32_t m_id;
    std::string m_name;
    mqd_t m_responses, m_requests;
    uint32_t m_requestID = 0;
};
