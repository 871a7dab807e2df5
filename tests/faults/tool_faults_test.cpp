#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "faults/faults.h"
#include "support/daemon.h"
#include "support/queue_test.h"

using namespace faults;
using testing::HasSubstr;

namespace {

using MainstayQueueToolFaults = QueueTest;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__powerpc__)
constexpr int kStep = 997;  // between the allocations that fail: each needs a run, which is slow here
#else
constexpr int kStep = 37;
#endif

struct Row {
    std::string transport;
    Failure failure;
    int status;
    std::string message;  ///< empty: the failure has no effect
};

/// The tool, over the network with a configuration of this process. @param transport  tcp, udp or mq.
std::vector<std::string> CommandOver(const std::string& transport, const Daemon& daemon)
{
    if (transport == "mq") return {VEXACTL, "--verbose", "--timeout", "20", "--mq"};
    const std::string uri = transport == "tcp" ? daemon.Tcp() : daemon.Udp();
    return {VEXACTL, "--verbose", "--timeout", "20",
            "--uri=" + uri + "/configid=" + std::to_string(getpid())};
}

/// The tool, with calls that fail, at a daemon where nothing does.
void RunRows(const std::vector<Row>& rows, Daemon&& daemon)
{
    for (const Row& row : rows) {
        SCOPED_TRACE(row.transport + ", call " + std::to_string(row.failure.call) + ", " +
                     strerror(row.failure.error) + ", after " + std::to_string(row.failure.skip));
        auto command = CommandOver(row.transport, daemon);
        command.insert(command.end(), {"get", "RegisterSave", "ReelName"});
        Faults faults;
        faults.Arm(row.failure);
        const ProgramResult result = RunProgram(command, "", faults.Environment());
        EXPECT_EQ(result.status, row.status) << result.err;
        EXPECT_THAT(result.err, HasSubstr(row.message));
        if (row.status == 0) {
            EXPECT_EQ(result.out, "RegisterSave = 1\nReelName = \"\"\n");
        }
        EXPECT_GE(faults.Failed(row.failure.call), std::min(row.failure.times, 3));
    }
    daemon.Stop();
}

TEST(ToolFaults, OverTheNetwork)
{
    const std::string lost = "vexactl: lost the connection to ";
    RunRows(
        {
            {"tcp", {kSend, EINTR, 3}, 0, ""},
            {"tcp", {kSend, EAGAIN, 3}, 0, ""},
            {"tcp", {kSend, kOneByte, kMany}, 0, ""},
            {"tcp", {kRecv, EINTR, 3}, 0, ""},
            {"tcp", {kRecv, kOneByte, kMany}, 0, ""},
            {"tcp", {kPoll, EINTR, 3}, 0, ""},
            {"tcp", {kSocket, EMFILE}, 6, ": Too many open files\n"},
            {"tcp", {kConnect, ECONNREFUSED}, 6, ": Connection refused\n"},
            {"tcp", {kSetsockopt, ENOBUFS}, 0, ""},
            {"tcp", {kSend, EPIPE}, 6, ": Broken pipe\n"},
            {"tcp", {kSend, EPIPE, 1, 3}, 6, lost},
            {"tcp", {kRecv, ECONNRESET}, 6, ": Connection reset by peer without a word"},
            {"tcp", {kPoll, ENOMEM, 3}, 0, ""},
            {"tcp", {kPthreadCreate, EAGAIN}, 0, ""},  // signals end the tool without a goodbye
            {"tcp", {kEventfd, EMFILE}, 0, ""},
            {"tcp", {kPthreadCreate, EAGAIN, 1, 1}, 6, ": no thread: Resource temporarily unavailable\n"},
            {"udp", {kPthreadCreate, EAGAIN, 1, 2}, 6, ": Resource temporarily unavailable\n"},
            {"udp", {kSend, ENOBUFS, 1, 1}, 0, ""},
        },
        Daemon());
}

TEST_F(MainstayQueueToolFaults, OverTheQueues)
{
    const std::string noQueue = "PosixMQFactory::Connect - mq_open failed: ";
    RunRows(
        {
            {"mq", {kMqTimedsend, EINTR, 3}, 0, ""},
            {"mq", {kMqTimedsend, EAGAIN, 3}, 0, ""},
            {"mq", {kMqTimedreceive, EINTR, 3}, 0, ""},
            {"mq", {kMqTimedreceive, EAGAIN, 3, 1}, 0, ""},
            {"mq", {kPoll, EINTR, 3}, 0, ""},
            {"mq", {kMqOpen, EMFILE, 1, 1}, 0, ""},  // done without
            {"mq",
             {kMqOpen, EMFILE},
             6,
             "vexactl: cannot connect to the queue /mainstay: the queue /mainstay: Too many open files\n"},
            {"mq", {kMqOpen, ENOSPC, 1, 1}, 6, noQueue + "No space left on device\n"},
            {"mq", {kMqOpen, EACCES, 1, 1}, 6, noQueue + "Permission denied\n"},
            {"mq", {kMqTimedsend, ENOMEM}, 6, "PosixMQFactory::ConfirmConnection: mq_send failed\n"},
            {"mq", {kMqTimedsend, ENOMEM, 1, 2}, 6, "Get - mq_send failed: Cannot allocate memory\n"},
            {"mq", {kMqTimedreceive, EBADF}, 6, "mq_receive failed\n: Bad file descriptor\n"},
            {"mq", {kMqGetattr, EBADF}, 6, "unable to get mq_msgsize: Bad file descriptor\n"},
            {"mq", {kEventfd, EMFILE, 1, 1}, 6, "vexactl: eventfd: Too many open files\n"},
        },
        Daemon({"--no-tcp", "--no-udp"}));
}

/// Without a notification, events are met when the watch asks whether the daemon is still there. The value of the
/// beginning shows that it listens: what is set before is a part of that.
TEST_F(MainstayQueueToolFaults, AWatchWithoutNotificationHearsLater)
{
    struct Refused {
        Call call;
        std::string message, value;
    };
    Daemon daemon({"--no-tcp", "--no-udp"});
    for (const Refused& row :
         {Refused{kMqSetattr, "EnableMQEvents - mq_setattr failed to set O_NONBLOCK on", "7"},
          Refused{kMqNotify, "EnableMQEvents - mq_notify (enable): Bad file descriptor\n", "8"}}) {
#ifdef __SANITIZE_THREAD__
        if (row.call == kMqNotify) continue;  // asked of the kernel itself
#endif
        Faults faults;
        faults.Arm({row.call, EBADF});
        Program watch({VEXACTL, "--verbose", "--mq", "watch", "--initial", "--count", "1", "RegisterSave"},
                      "", faults.Environment());
        watch.WaitForOutput("  RegisterSave = ");
        EXPECT_EQ(RunProgram({VEXACTL, "--mq", "set", "RegisterSave", row.value}).status, 0);
        const ProgramResult result = watch.Wait();
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.err, HasSubstr(row.message));
        EXPECT_THAT(result.out, HasSubstr("  RegisterSave = " + row.value + "\n"));
    }
    daemon.Stop();
}

/// The allocations from the first socket on, one after the other: the tool does all, or says that it failed.
TEST(ToolFaults, WithoutMemory)
{
    constexpr int kOfTheMessage = 20;  // allocations, at most, of a tool that gets no socket
    const Daemon daemon({"--no-mq", "--no-udp"});
    auto command = CommandOver("tcp", daemon);
    command.insert(command.end(), {"set", "ReelName", "a text that does not fit into its object"});
    const ProgramResult whole = RunProgram(command, "", {"PRODUCT_ID=OAK"});
    Faults noSocket;
    noSocket.Arm({kSocket, EMFILE});
    RunProgram(command, "", noSocket.Environment());
    bool failed = true;
    for (int skip = noSocket.Begun(kNew) - kOfTheMessage; failed; skip += kStep) {
        SCOPED_TRACE("allocation " + std::to_string(skip));
        Faults faults;
        faults.Arm({kNew, ENOMEM, 1, skip});
        const ProgramResult result = RunProgram(command, "", faults.Environment());
        failed = faults.Failed(kNew) > 0;
        if (failed && result.status != 0) {
            EXPECT_TRUE(result.status == 6 || result.status == 1) << "lost, or not read back";
            EXPECT_THAT(result.err, HasSubstr("vexactl: "));
        } else {
            EXPECT_EQ(result.out, whole.out) << result.err;
        }
    }
}

}  // namespace
