#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <memory>
#include <random>

#include "config/access/connection_utilities.h"
#include "config/access/message_queue.h"
#include "config/access/network_payload.h"
#include "config/config_value.h"
#include "support/program.h"

using testing::HasSubstr;

namespace {

namespace mq = vexa::config::access;

constexpr eParam_t kNumber = eParamID_RegisterSave, kText = eParamID_ReelName;

/// A client that speaks in records. Every wait has an end.
class RawClient {
  public:
    explicit RawClient(uint32_t number = 0) : m_id((static_cast<uint32_t>(getpid()) << 16) + number)
    {
        m_name = mq::ConnectionUtilities::GetQueueName(m_id);
        mq_unlink(m_name.c_str());
        m_responses = mq::CreateQueue(m_name, O_RDWR);
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

    mq::XCONFIGMGR_REQUEST_T Request(eMessageType_t type, eParam_t id = {}, uint32_t value = 0)
    {
        mq::XCONFIGMGR_REQUEST_T request;
        request.msgtype = type;
        request.info = {m_id, ++m_requestID, 0, 10};
        request.paramID = id;
        request.value = value;
        return request;
    }
    void Send(const std::string& bytes)
    {
        ASSERT_TRUE(mq::SendMessage(m_requests, bytes.data(), bytes.size(), 10)) << strerror(errno);
    }
    template <class Record>
    void Send(const Record& record, const std::string& with = "")
    {
        const auto bytes = wire::Encode<wire::HostOrder>(record);
        Send(std::string(bytes.data(), bytes.size()) + with);
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
        wire::Decode<wire::HostOrder>(message.data(), message.size(), response);
        stream.assign(message.data() + mq::kQueueResponseBytes,
                      length > mq::kQueueResponseBytes ? length - mq::kQueueResponseBytes : 0);
        return response;
    }
    template <class Record>
    mq::XCONFIGMGR_RESPONSE_T Exchange(const Record& request, const std::string& with = "")
    {
        Send(request, with);
        const mq::XCONFIGMGR_RESPONSE_T response = Receive();
        EXPECT_EQ(response.info.connectionID, request.info.connectionID);
        EXPECT_EQ(response.info.requestID, request.info.requestID);
        EXPECT_EQ(response.info.priority, 10u);
        return response;
    }
    void Connect()
    {
        const mq::XCONFIGMGR_CONNECTION_REQUEST_T request{Request(XCFG_CONNECT_REQUEST)};
        EXPECT_EQ(Exchange(request).msgtype, XCFG_CONNECT_RESPONSE);
    }
    uint32_t SetEvents(bool wanted)
    {
        mq::XCONFIGMGR_EVENT_HANDLER_REQUEST_T request;
        static_cast<mq::XCONFIGMGR_CONNECTION_REQUEST_T&>(request) = Request(
            wanted ? XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST : XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST);
        const auto response = Exchange(request);
        EXPECT_EQ(response.listenerError, 0u);
        EXPECT_EQ(response.error, 0u);
        return response.msgtype;
    }

    std::string stream;

  private:
    const uint32_t m_id;
    std::string m_name;
    mqd_t m_responses, m_requests;
    uint32_t m_requestID = 0;
};

std::string TextStream(const std::string& text)
{
    StringValue value(0, kText, eCParam_StringValue, text);
    return vexa::corvalis::config::access::WritePayload(&value);
}

class MainstayQueue : public testing::Test {
  protected:
    MainstayQueue() : m_daemon({MAINSTAY, "--tcp-port", "0", "--udp-port", "0"}, "", {"PRODUCT_ID=OAK"})
    {
        m_daemon.WaitForOutput("mainstay: ready, queue /mainstay, TCP port ");
        m_uri = "tcp://127.0.0.1:" + std::to_string(NumberAfter("TCP port ", m_daemon.Err()));
        m_udp = "udp://127.0.0.1:" + std::to_string(NumberAfter("UDP port ", m_daemon.Err()));
    }
    /// A daemon that is not killed removes its queue.
    ~MainstayQueue() override
    {
        m_daemon.Signal(SIGTERM);
        if (!m_ended) m_daemon.Wait();
    }
    ProgramResult EndDaemon(int signal)
    {
        m_daemon.Signal(signal);
        m_ended = true;
        return m_daemon.Wait();
    }
    static std::vector<std::string> Command(const std::string& uri, std::vector<std::string> arguments)
    {
        if (uri == "queue")
            arguments.insert(arguments.begin(), {VEXACTL, "--mq"});
        else
            arguments.insert(arguments.begin(), {VEXACTL, "--uri", uri});
        return arguments;
    }
    ProgramResult Tool(std::vector<std::string> arguments, const std::string& input = "") const
    {
        return RunProgram(Command(m_uri, std::move(arguments)), input, {"PRODUCT_ID=OAK"});
    }

    Program m_daemon;
    std::string m_uri, m_udp;

  private:
    bool m_ended = false;
};

TEST_F(MainstayQueue, AnswersEveryRequest)
{
    RawClient client;
    client.Connect();
    auto response = client.Exchange(client.Request(XCFG_SET_PARAM_REQUEST, kNumber, 500));
    EXPECT_EQ(response.msgtype, XCFG_SET_PARAM_RESPONSE);
    EXPECT_EQ(response.error, 0u);
    response = client.Exchange(client.Request(XCFG_GET_PARAM_REQUEST, kNumber));
    EXPECT_EQ(response.msgtype, XCFG_GET_PARAM_RESPONSE);
    EXPECT_EQ(response.value, 20u) << "corrected";
    EXPECT_GT(response.seconds, 1'700'000'000u);
    EXPECT_EQ(client.Exchange(client.Request(XCFG_SET_PARAM_REQUEST, eParamID_SystemCommand, 9)).error,
              mq::kQueueErrorRefused);
    EXPECT_EQ(client.Exchange(client.Request(XCFG_GET_PARAM_REQUEST, eParam_t{0x12345678})).error,
              mq::kQueueErrorRefused);

    auto elsewhere = client.Request(XCFG_GET_PARAM_REQUEST, kNumber);
    elsewhere.info.configID = 5;
    EXPECT_EQ(client.Exchange(elsewhere).error, mq::kQueueErrorRefused) << "no store at anybody's word";

    auto set = client.Request(XCFG_SET_STREAM_PARAM_REQUEST, kText);
    const std::string stream = TextStream("Scene");
    set.streamLength = static_cast<uint32_t>(stream.size());
    set.streamFormat = mq::kQueueStreamFormat;
    response = client.Exchange(set, stream);
    EXPECT_EQ(response.error, 0u);
    EXPECT_EQ(response.streamLength, client.stream.size());
    response = client.Exchange(client.Request(XCFG_GET_STREAM_PARAM_REQUEST, kText));
    EXPECT_EQ(response.msgtype, XCFG_GET_STREAM_PARAM_RESPONSE);
    EXPECT_EQ(client.stream, stream);
    EXPECT_EQ(client.Exchange(set, std::string(stream.size(), 'x')).error, mq::kQueueErrorRefused);
    Tool({"set", "ReelName", std::string(2000, 'x')});  // more than a message holds
    EXPECT_EQ(client.Exchange(client.Request(XCFG_GET_STREAM_PARAM_REQUEST, kText)).error,
              mq::kQueueErrorNoValue);

    const std::pair<eMessageType_t, uint32_t> notServed[] = {{XCFG_POPULATE_PARAM_REQUEST, 130},
                                                             {XCFG_GET_DATA_REQUEST, 257},
                                                             {XCFG_GET_DATA_RESPONSE, 257},
                                                             {XCFG_SET_DATA_REQUEST, 259}};
    for (const auto& [type, answer] : notServed) {
        response = client.Exchange(client.Request(type, kNumber));
        EXPECT_EQ(response.msgtype, answer);
        EXPECT_NE(response.error, 0u);
    }
    const mq::XCONFIGMGR_CONNECTION_REQUEST_T disconnect{client.Request(XCFG_DISCONNECT_REQUEST)};
    EXPECT_EQ(client.Exchange(disconnect).msgtype, XCFG_DISCONNECT_RESPONSE);
}

TEST_F(MainstayQueue, TellsEveryClientOfEveryChange)
{
    RawClient one(1), two(2), deaf(3);
    for (RawClient* const client : {&one, &two, &deaf}) client->Connect();
    EXPECT_EQ(one.SetEvents(true), XCFG_ADD_CONFIG_EVENT_LISTENER_RESPONSE);
    EXPECT_EQ(one.SetEvents(true), XCFG_ADD_CONFIG_EVENT_LISTENER_RESPONSE);
    two.SetEvents(true);
    EXPECT_EQ(Tool({"set", "RegisterSave", "7"}).status, 0);
    EXPECT_EQ(Tool({"set", "ReelName", "from tcp"}).status, 0);
    for (RawClient* const client : {&one, &two}) {
        auto event = client->Receive();
        EXPECT_EQ(event.msgtype, XCFG_PARAM_CHANGED_EVENT);
        EXPECT_EQ(event.paramID, kNumber);
        EXPECT_EQ(event.value, 7u);
        event = client->Receive();
        EXPECT_EQ(event.msgtype, XCFG_PARAM_STRING_CHANGED_EVENT);
        EXPECT_THAT(client->stream, HasSubstr("from tcp"));
        EXPECT_EQ(event.streamLength, client->stream.size());
    }
    EXPECT_EQ(two.SetEvents(false), XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE);
    deaf.Exchange(deaf.Request(XCFG_SET_PARAM_REQUEST, kNumber, 8));
    EXPECT_EQ(one.Receive().value, 8u);
    EXPECT_EQ(two.Exchange(two.Request(XCFG_GET_PARAM_REQUEST, kNumber)).value, 8u) << "no event came before";
}

TEST_F(MainstayQueue, OnlyTheCulpritSuffers)
{
    RawClient full(1), gone(2), good(3);
    full.Connect();
    full.SetEvents(true);
    {
        RawClient crashing(4);
        crashing.Connect();
        crashing.SetEvents(true);
    }
    std::string script;
    for (int i = 0; i < 500; ++i) script += "set RegisterSave " + std::to_string(i % 20 + 1) + "\n";
    EXPECT_EQ(Tool({"shell"}, script).status, 0);
    m_daemon.WaitForOutput(" is full or its messages too small: 1 events lost\n");

    std::mt19937 random(1);
    for (const size_t length : {0u, 1u, 4u, 19u, 20u, 35u, 36u, 52u, 512u})
        for (const uint32_t type : {0u, 16u, 48u, 80u, 113u, 144u, 999u}) {
            std::string garbage(length, '\0');
            for (char& c : garbage) c = static_cast<char>(random());
            if (length >= sizeof type) memcpy(garbage.data(), &type, sizeof type);
            good.Send(garbage);
        }
    // A reply that finds the queue full comes when there is room.
    full.Send(full.Request(XCFG_GET_PARAM_REQUEST, kNumber));
    good.Connect();
    EXPECT_EQ(good.Exchange(good.Request(XCFG_GET_PARAM_REQUEST, kNumber)).value, 20u);
    mq::XCONFIGMGR_RESPONSE_T last;
    do {
        last = full.Receive();
    } while (last.msgtype == XCFG_PARAM_CHANGED_EVENT);
    EXPECT_EQ(last.msgtype, XCFG_GET_PARAM_RESPONSE);
    EXPECT_EQ(last.value, 20u);
}

TEST_F(MainstayQueue, IsTakenOverAfterACrashAndRemovedAtAStop)
{
    const ProgramResult second = RunProgram({MAINSTAY, "--tcp-port", "0", "--udp-port", "0"});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.err, testing::EndsWith("mainstay: another daemon serves the queue /mainstay\n"));
    EXPECT_THAT(second.err, testing::Not(HasSubstr("NetworkServer")));

    RawClient client;
    client.Connect();
    EndDaemon(SIGKILL);
    Program successor({MAINSTAY, "--no-tcp", "--no-udp"}, "", {"PRODUCT_ID=OAK"});
    EXPECT_EQ(client.Exchange(client.Request(XCFG_GET_PARAM_REQUEST, kNumber)).value, 1u)
        << "a client outlives a daemon";
    successor.Signal(SIGTERM);
    EXPECT_EQ(successor.Wait().status, 0);
    EXPECT_EQ(mq_open(mq::kRequestQueue, O_WRONLY), -1);
}

/// As a user would, with every transport at once.
using MainstayQueueNotify = MainstayQueue;

TEST_F(MainstayQueueNotify, TheToolReachesTheDaemonThroughQueues)
{
    const std::string places[] = {"queue", m_uri, m_udp};
    std::vector<std::unique_ptr<Program>> watchers;
    for (const std::string& place : places) {
        watchers.push_back(std::make_unique<Program>(Command(place, {"watch"})));
        for (int value = 1; watchers.back()->Out().empty(); value = value % 20 + 1)  // until it listens
            Tool({"set", "RegisterSave", std::to_string(value)});
    }
    for (const std::string& place : places)
        EXPECT_EQ(RunProgram(Command(place, {"set", "ReelName", "by " + place})).status, 0);
    for (const auto& watcher : watchers)
        for (const std::string& place : places) watcher->WaitForOutput("ReelName = \"by " + place + "\"\n");

    const ProgramResult run = RunProgram(Command("queue", {"shell"}),
                                         "set RegisterSave 500\nset SystemCommand 9\nget RegisterSave\n"
                                         "set ReelName \"" +
                                             std::string(443, 'x') +
                                             "\"\n"
                                             "set ReelName \"" +
                                             std::string(444, 'x') + "\"\nalarms raised\n");
    EXPECT_EQ(run.status, 5);
    EXPECT_THAT(run.out,
                HasSubstr("RegisterSave corrected to 20 (500 is outside 1 to 20)\nRegisterSave = 20\n"
                          "ReelName stored \"xxx"));
    EXPECT_THAT(run.err, HasSubstr("\"9\" refused: not one of"));
    EXPECT_THAT(run.err, HasSubstr("refused: longer than 443 bytes"));
    EXPECT_THAT(run.err, HasSubstr("this connection carries no alarms"));

    for (const auto& watcher : watchers) {  // killed, one would leave its queue behind
        watcher->Signal(SIGINT);
        EXPECT_EQ(watcher->Wait().status, 0);
    }
    m_daemon.Signal(SIGSTOP);
    const ProgramResult silent = RunProgram(Command("queue", {"--timeout", "0.2", "get", "RegisterSave"}));
    EXPECT_EQ(silent.status, 7);
    EXPECT_EQ(silent.err, "vexactl: no answer from the queue /mainstay in time\n");
    m_daemon.Signal(SIGCONT);
    EXPECT_EQ(EndDaemon(SIGTERM).status, 0);
    const ProgramResult gone = RunProgram(Command("queue", {"get", "RegisterSave"}));
    EXPECT_EQ(gone.status, 6);
    EXPECT_EQ(gone.err, "vexactl: cannot connect to the queue /mainstay\n");
}

}  // namespace
