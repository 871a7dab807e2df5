#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mqueue.h>

#include <optional>

#include "config/access/client/queues/posix_mq_client.h"
#include "config/access/client/queues/posix_mq_factory.h"
#include "faults/faults.h"
#include "support/daemon.h"
#include "support/queue_test.h"

using namespace faults;
using testing::HasSubstr;

namespace {

using MainstayQueueFaults = QueueTest;

/// Runs the tool over the queues.
ProgramResult Tool(std::vector<std::string> arguments, const std::vector<std::string>& environment = {})
{
    arguments.insert(arguments.begin(), {VEXACTL, "--mq", "--verbose"});
    return RunProgram(arguments, "", environment);
}

void ExpectService()
{
    const ProgramResult set = Tool({"set", "RegisterSave", "7"});
    EXPECT_EQ(set.status, 0) << set.err;
}

/// A daemon that does not start says why, and leaves nothing behind; but a queue that it cannot lock may belong to
/// another one.
TEST_F(MainstayQueueFaults, ADaemonThatCannotStartSaysWhy)
{
    const std::string kQueueFailed = "mainstay: cannot open the queue /mainstay: ";
    const std::string noThread = ": Resource temporarily unavailable\n";
    const std::pair<Failure, std::string> rows[] = {
        {{kMqOpen, EMFILE, kMany}, kQueueFailed + "Too many open files\n"},
        {{kMqOpen, ENOSPC}, kQueueFailed + "No space left on device\n"},
        {{kMqOpen, EACCES}, kQueueFailed + "Permission denied\n"},
        {{kFlock, ENOLCK}, kQueueFailed + "No locks available\n"},
        {{kPthreadCreate, EAGAIN}, "mainstay: cannot serve" + noThread},        // commands
        {{kPthreadCreate, EAGAIN, 1, 1}, "mainstay: cannot serve" + noThread},  // queues
        {{kPthreadCreate, EAGAIN, 1, 2}, "mainstay: cannot serve" + noThread},
        {{kPthreadCreate, EAGAIN, 1, 5}, "mainstay: cannot serve" + noThread},  // state
        {{kPthreadCreate, EAGAIN, 1, 4}, noThread + "NetworkServer::Start - pthread_create failed\n"},
        {{kPthreadCreate, EAGAIN, 1, 3}, noThread + "NetworkServer::Start - pthread_create failed\n"},
        {{kSocket, EMFILE}, "mainstay: cannot serve TCP port 0: Too many open files\n"},
        {{kSocket, EMFILE, 1, 1}, "mainstay: cannot serve UDP port 0: Too many open files\n"},
        {{kSocket, EMFILE, 1, 3}, "Too many open files\nNetworkServer::Init - failed to create Socket\n"},
        {{kBind, EACCES}, "mainstay: cannot serve TCP port 0: Permission denied\n"},
        {{kBind, EADDRINUSE, 1, 2}, "in use\nNetworkServer::Init - failed to bind Socket\n"},
        {{kListen, EADDRINUSE}, "listen - listen returned -1NetworkServer::Init - listen failed\n"},
        {{kNew, ENOMEM, 1, 1000}, "mainstay: cannot serve: std::bad_alloc\n"},
    };
    for (const auto& [failure, message] : rows) {
        SCOPED_TRACE(message);
        Faults faults;
        faults.Arm(failure);
        const ProgramResult result = RunProgram(
            {MAINSTAY, "--tcp-port", "0", "--udp-port", "0", "--bind", "0.0.0.0"}, "", faults.Environment());
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr(message));
        EXPECT_EQ(mq_unlink("/mainstay"), failure.call == kFlock ? 0 : -1);
    }
}

class MainstayQueueFaulty : public QueueTest {
  protected:
    void Start() override { m_daemon.emplace(std::vector<std::string>{"--no-udp"}, m_faults.Environment()); }
    /// A daemon that is not killed removes its queue.
    void TearDown() override
    {
        if (!m_daemon) return;
        ExpectService();
        m_daemon->Stop();
    }

    Faults m_faults;
    std::optional<Daemon> m_daemon;
};

TEST_F(MainstayQueueFaulty, OneClientSuffersAtMost)
{
    struct {
        Failure failure;
        int status;
        std::string message;  ///< empty: nothing may be written
    } const rows[] = {
        {{kMqReceive, EINTR, 3}, 0, ""},
        {{kPoll, EINTR, 3}, 0, ""},
        {{kMqSend, EINTR, 3}, 0, ""},
        {{kMqSend, EAGAIN, 3}, 0, ""},
        {{kMqSend, EBADF}, 7, "mainstay: cannot answer /mqd_"},
        {{kMqOpen, EMFILE}, 7, " of a client: Too many open files\n"},
        {{kMqOpen, EACCES}, 7, " of a client: Permission denied\n"},
    };
    for (const auto& [failure, status, message] : rows) {
        SCOPED_TRACE(std::to_string(failure.call) + ", " + strerror(failure.error));
        const std::string before = m_daemon->Err();
        m_faults.Arm(failure);
        if (failure.call == kPoll) m_faults.Arm({kMqSend, EAGAIN});  // for a reply that waits
        const ProgramResult result = Tool({"--timeout", "0.5", "set", "RegisterSave", "5"});
        EXPECT_EQ(result.status, status) << result.err;
        if (message.empty())
            EXPECT_EQ(m_daemon->Err(), before);
        else
            m_daemon->WaitForOutput(message);
        EXPECT_EQ(m_faults.Failed(failure.call), failure.times);
        m_faults.Disarm(failure.call);
        ExpectService();
    }
}

/// Each allocation that a client leads to, one after the other. Numbers need none of those that texts need.
TEST_F(MainstayQueueFaulty, WithoutMemoryOneClientSuffersAtMost)
{
    constexpr unsigned int kPatienceMs = 300;
    vexa::config::access::PosixMQFactory factory;
    factory.SetConnectTimeout(kPatienceMs);
    const auto sets = [&](eParam_t id, auto value) {
        auto* const client = factory.Connect("");
        if (!client) return false;
        client->SetReplyTimeout(kPatienceMs);
        const bool isSet = client->Set(id, value, timeval{});
        factory.Disconnect(client);
        return isSet;
    };
    bool isServed = false;  // without a failure
    for (int skip = 0, tries = 0; !isServed && tries < 200; ++tries) {
        SCOPED_TRACE("allocation " + std::to_string(skip));
        m_faults.Arm({kNew, ENOMEM, 1, skip});
        const bool isSet = sets(eParamID_ReelName, std::string("a text that does not fit into its object"));
        const int failed = m_faults.Failed(kNew);
        m_faults.Disarm(kNew);
        isServed = isSet && failed == 0;
        skip += failed;
        EXPECT_TRUE(sets(eParamID_RegisterSave, 7u));
    }
    EXPECT_TRUE(isServed) << "too many allocations, or no texts any more";
}

}  // namespace
