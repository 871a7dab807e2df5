#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "faults/faults.h"
#include "support/program.h"

using namespace faults;
using testing::HasSubstr;

namespace {

struct Row {
    std::string transport;
    Failure failure;
    int status;
    std::string message;  ///< empty: nobody notices
    std::string verb = "get";
};

/// The tool, with calls that fail, at a daemon where nothing does.
void RunRows(const std::vector<Row>& rows, Program& daemon)
{
    daemon.WaitForOutput("mainstay: ready");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.transport + ", call " + std::to_string(row.failure.call) + ", " +
                     strerror(row.failure.error) + ", after " + std::to_string(row.failure.skip));
        std::vector<std::string> command{VEXACTL, "--verbose", "--timeout", "20", "--mq"};
        if (row.transport != "mq") {
            const int port = NumberAfter(row.transport == "tcp" ? "TCP port " : "UDP port ", daemon.Err());
            command.back() = "--uri=" + row.transport + "://127.0.0.1:" + std::to_string(port) +
                             "/configid=" + std::to_string(getpid());
        }
        command.insert(command.end(), {row.verb, "RegisterSave", "ReelName"});
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
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.Wait().status, 0);
}

TEST(ToolFaults, OverTheNetwork)
{
    const std::string deaf =
        "StartEventsThread - unable to start threadvexactl: cannot hear of changes over this connection\n";
    const std::string lost = "vexactl: lost the connection to ";
    Program daemon({MAINSTAY, "--no-mq", "--tcp-port", "0", "--udp-port", "0"}, "", {"PRODUCT_ID=OAK"});
    RunRows(
        {
            {"tcp", {kConnect, EINTR}, 0, ""},
            {"tcp", {kSend, EINTR, 3}, 0, ""},
            {"tcp", {kSend, EAGAIN, 3}, 0, ""},
            {"tcp", {kSend, kOneByte, kMany}, 0, ""},
            {"tcp", {kRecv, EINTR, 3}, 0, ""},
            {"tcp", {kRecv, kOneByte, kMany}, 0, ""},
            {"tcp", {kPoll, EINTR, 3}, 0, ""},
            {"tcp", {kSocket, EMFILE}, 6, "Socket::create - socket() failed: Too many open files\n"},
            {"tcp", {kConnect, ECONNREFUSED}, 6, "connect_inet - connect() failed: Connection refused\n"},
            {"tcp", {kSetsockopt, ENOBUFS}, 6, "(TCP_NODELAY) failed: No buffer space available\n"},
            {"tcp", {kSend, EPIPE}, 6, "send - failedNetworkClient::ConfirmConnection: send failed\n"},
            {"tcp", {kSend, EPIPE, 1, 1}, 6, "send - failedNetworkClient::Get - send failed\n" + lost},
            {"tcp", {kRecv, ECONNRESET}, 6, "NetworkClient::ConfirmConnection - receive failed\n"},
            {"tcp", {kRecv, ECONNRESET, 1, 1}, 6, "NetworkClient::Get - receive failed\n" + lost},
            {"tcp", {kPoll, ENOMEM}, 6, "Socket::read_select: Cannot allocate memory\n"},
            {"tcp", {kPthreadCreate, EAGAIN}, 6, deaf, "watch"},
            {"udp", {kRecv, EINTR, 3}, 0, ""},
            {"udp", {kPthreadCreate, EAGAIN}, 6, "to make a client: Resource temporarily unavailable\n"},
            {"udp", {kPthreadCreate, EAGAIN, 1, 1}, 6, deaf, "watch"},
            {"udp", {kSend, ENOBUFS, 1, 1}, 6, "send - failedNetworkClient::Get - send failed\n" + lost},
        },
        daemon);
}

TEST(MainstayQueueToolFaults, OverTheQueues)
{
    const std::string noQueue = "PosixMQFactory::Connect - mq_open failed: ";
    Program daemon({MAINSTAY, "--no-tcp", "--no-udp"}, "", {"PRODUCT_ID=OAK"});
    RunRows(
        {
            {"mq", {kMqTimedsend, EINTR, 3}, 0, ""},
            {"mq", {kMqTimedsend, EAGAIN, 3}, 0, ""},
            {"mq", {kMqTimedreceive, EINTR, 3}, 0, ""},
            {"mq", {kMqTimedreceive, EAGAIN, 3, 1}, 0, ""},
            {"mq", {kPoll, EINTR, 3}, 0, ""},
            {"mq", {kMqOpen, EMFILE, 1, 3}, 0, ""},  // repeated, or done without
            {"mq", {kMqOpen, EMFILE}, 6, "vexactl: cannot connect to the queue /mainstay\n"},
            {"mq", {kMqOpen, EMFILE, 3, 2}, 6, noQueue + "Too many open files\n"},
            {"mq", {kMqOpen, ENOSPC, 1, 2}, 6, noQueue + "No space left on device\n"},
            {"mq", {kMqOpen, EACCES, 1, 2}, 6, noQueue + "Permission denied\n"},
            {"mq", {kMqTimedsend, ENOMEM}, 6, "PosixMQFactory::ConfirmConnection: mq_send failed\n"},
            {"mq", {kMqTimedsend, ENOMEM, 1, 1}, 7, "Get - mq_send failed: Cannot allocate memory\n"},
            {"mq", {kMqTimedreceive, EBADF, 1, 1}, 6, "mq_receive failed\n: Bad file descriptor\n"},
            {"mq", {kMqTimedreceive, EBADF, 1, 2}, 7, "Get - mq_receive failed: Bad file descriptor\n"},
            {"mq", {kMqGetattr, EBADF, 1, 2}, 6, "unable to get mq_msgsize: Bad file descriptor\n"},
            {"mq", {kEventfd, EMFILE}, 6, "failed to make a client: eventfd: Too many open files\n"},
        },
        daemon);
}

}  // namespace
