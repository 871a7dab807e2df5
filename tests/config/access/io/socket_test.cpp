#include "config/access/io/socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include "support/gate.h"
#include "support/raw_peer.h"
#include "support/stderr_of.h"

namespace {

using vexa::corvalis::config::access::Socket;

/// A listening socket on a free port of this host, a socket connected to it and the accepted one.
struct Connection {
    Connection()
    {
        EXPECT_TRUE(listener.create() && listener.bind("127.0.0.1", 0) && listener.listen());
        EXPECT_TRUE(client.create() && client.connect("127.0.0.1", listener.local_port()));
        EXPECT_TRUE(listener.accept(&server));
    }
    Socket listener{AF_INET, SOCK_STREAM}, client{AF_INET, SOCK_STREAM}, server{AF_INET, SOCK_STREAM};
};

TEST(Socket, WithoutDescriptorFails)
{
    Socket socket(AF_INET, SOCK_STREAM);
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(socket.bind(0)); }), "Socket::bind: invalid socketn");
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(socket.listen() || socket.connect("127.0.0.1", 1)); }), "");
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(socket.read_select(0)); }),
              "Socket::read_select - invalid socket\n");
    EXPECT_FALSE(socket.add_membership("239.71.18.33", "127.0.0.1"));
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(socket.set_buffer_size(SO_KEEPALIVE, 1)); }),
              "Socket::set_buffer_size: The option must be one of SO_RCVBUF or SO_SNDBUF\n");
}

TEST(Socket, SendsAndReceivesUntilTheEnd)
{
    Connection connection;
    int length = 0;
    EXPECT_FALSE(connection.server.sendall("", &length));
    connection.client.send("xyz", 3);
    connection.client.close();
    char received[8];
    for (const int count : {3, 0}) EXPECT_EQ(connection.server.recv(received, sizeof received), count);
}

TEST(Socket, ADescriptorMayHaveAnyNumber)
{
    constexpr int kBeyondASet = FD_SETSIZE + 100;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit enough{std::max<rlim_t>(limit.rlim_cur, kBeyondASet + 1), limit.rlim_max};
    if (setrlimit(RLIMIT_NOFILE, &enough) != 0) GTEST_SKIP() << "the system gives fewer descriptors";
    Connection connection;
    const int high = fcntl(connection.client.fd, F_DUPFD_CLOEXEC, kBeyondASet);
    ASSERT_GE(high, kBeyondASet);
    close(connection.client.fd);
    connection.client.fd = high;
    connection.server.send("x", 1);
    EXPECT_TRUE(connection.client.read_select(RawPeer::kDeadlineMs));
    char byte = 0;
    EXPECT_EQ(connection.client.recv(&byte, 1), 1);
    setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(Socket, CloseWakesTheThreadInside)
{
    Connection connection;
    const int number = connection.server.fd;
    Socket datagrams(AF_INET, SOCK_DGRAM);
    ASSERT_TRUE(datagrams.create() && datagrams.bind("127.0.0.1", 0));
    {
        char bytes[2];
        sockaddr_in from;
        const WatchedThread reader([&] { EXPECT_LE(connection.server.recv(bytes, 1), 0); });
        const WatchedThread receiver([&] { EXPECT_EQ(datagrams.recvfrom(bytes + 1, 1, from), 0); });
        EXPECT_TRUE(reader.Waits() && receiver.Waits());
        connection.server.close();
        datagrams.close();
        EXPECT_EQ(connection.server.fd, -1);
    }
    EXPECT_EQ(fcntl(number, F_GETFD), -1) << "still open";
}

TEST(Socket, LocalSocketsAreFilesNamedByNumber)
{
    const int number = getpid();
    const std::string path = "/tmp/vexa_" + std::to_string(number);
    Socket listener(AF_UNIX, SOCK_STREAM), client(AF_UNIX, SOCK_STREAM), server(AF_UNIX, SOCK_STREAM);
    EXPECT_EQ(StderrOf([&] {
                  ASSERT_TRUE(listener.create() && listener.bind(number) && listener.listen());
                  ASSERT_TRUE(client.create() && client.connect("ignored", number));
              }),
              "Local path = " + path + "\nLocal path = " + path + "\n");
    ASSERT_TRUE(listener.accept(&server));
    Socket successor(AF_UNIX, SOCK_STREAM);
    StderrOf([&] { EXPECT_TRUE(successor.create() && successor.bind(number)) << "the old file stays"; });
    unlink(path.c_str());
}

TEST(Socket, ConnectIgnoresWhatIsNoAddress)
{
    Connection connection;
    Socket client(AF_INET, SOCK_STREAM);
    errno = EAFNOSUPPORT;  // left over from an earlier call
    EXPECT_TRUE(client.create() && client.connect("localhost", connection.listener.local_port()));
}

TEST(Socket, APortThatTheSystemChoosesIsNotShared)
{
    std::vector<std::unique_ptr<Socket>> sockets;
    std::set<int> ports;
    constexpr size_t kCount = 600;  // some would share, if they could
    while (sockets.size() < kCount) {
        sockets.push_back(std::make_unique<Socket>(AF_INET, SOCK_DGRAM));
        Socket& socket = *sockets.back();
        ASSERT_TRUE(socket.create());
        ASSERT_TRUE(sockets.size() % 2 ? socket.connect("127.0.0.1", 9) : socket.bind("127.0.0.1", 0));
        ports.insert(socket.local_port());
    }
    EXPECT_EQ(ports.size(), kCount);
}

TEST(Socket, NonBlockingSenseIsInverted)
{
    Connection connection;
    connection.server.set_non_blocking(false);
    EXPECT_TRUE(fcntl(connection.server.fd, F_GETFL) & O_NONBLOCK);
    connection.server.set_non_blocking(true);
    EXPECT_FALSE(fcntl(connection.server.fd, F_GETFL) & O_NONBLOCK);
}

}  // namespace
