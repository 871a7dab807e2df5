#include "mainstay/control/server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <deque>
#include <fstream>
#include <mutex>

#include "config/base/origin.h"
#include "support/gate.h"
#include "support/line_client.h"
#include "support/stderr_of.h"
#include "support/temporary_directory.h"

using control::Answer, control::ControlServer, control::Failure, control::Json, control::Peer,
    control::Stream;
using testing::HasSubstr, testing::StartsWith;

namespace {

/// A server whose handlers do what the tests need.
class ControlSocket : public testing::Test {
  protected:
    ControlSocket() { EXPECT_TRUE(m_server.Start(m_path)); }

    control::Handlers Handlers()
    {
        return {{"echo",
                 [](const Json& request, const Peer&) {
                     return Json{{"echo", request.at("text")}};
                 }},
                {"who",
                 [](const Json&, const Peer&) {
                     return Json{{"who", vexa::CurrentOrigin()}};
                 }},
                {"fail", [](const Json&, const Peer&) -> Answer { throw Failure("the disk is full"); }},
                {"wait",
                 [this](const Json&, const Peer&) {
                     m_gate.Pass();
                     return Json{{"waited", true}};
                 }},
                {"follow", [this](const Json&, const Peer&) {
                     const auto stream = std::make_shared<Stream>();
                     const std::lock_guard hold(m_lock);
                     m_stream = stream;
                     return Answer(Json{{"follows", true}}, stream);
                 }}};
    }
    std::shared_ptr<Stream> Followed()
    {
        const std::lock_guard hold(m_lock);
        return m_stream.lock();
    }
    static Json Echo(const std::string& text) { return {{"request", "echo"}, {"text", text}}; }

    const TemporaryDirectory m_directory;
    const std::string m_path = m_directory.Path() + "/control";
    Gate m_gate;
    std::mutex m_lock;
    std::weak_ptr<Stream> m_stream;
    ControlServer m_server{Handlers()};
};

TEST_F(ControlSocket, AnswersEachLineOnce)
{
    LineClient client(m_path);
    for (const char* const bad : {"", "{", "[]", "null", "{\"request\":7}", "{\"text\":1}", "\xFF\xFE\x80",
                                  "{\"request\":\"echo\"}", "{\"request\":\"unheard of\"}"}) {
        client.Send(std::string(bad) + "\n");
        EXPECT_THAT(client.Receive(), StartsWith("{\"error\":\"")) << bad;
    }
    EXPECT_EQ(client.Ask({{"request", "fail"}}), (Json{{"error", "the disk is full"}}));
    const std::string half = Echo("in two pieces, with one more behind").dump() + "\n";
    client.Send(half.substr(0, 20));
    client.Send(half.substr(20) + Echo("next").dump() + "\n");
    EXPECT_EQ(client.ReceiveJson()["echo"], "in two pieces, with one more behind");
    EXPECT_EQ(client.ReceiveJson()["echo"], "next");
    EXPECT_EQ(client.Ask(Echo(std::string(1'000'000, 'x')))["echo"].get<std::string>().size(), 1'000'000u);
    EXPECT_THAT(client.Ask({{"request", "who"}})["who"].get<std::string>(),
                StartsWith("control pid " + std::to_string(getpid()) + " user "));
    client.Send(std::string(ControlServer::kMaxLineBytes + 100'000, '['));
    EXPECT_THAT(client.Receive(), HasSubstr("longer than"));
    EXPECT_EQ(client.Receive(), "");
}

TEST_F(ControlSocket, ClientsDoNotWaitForEachOther)
{
    LineClient slow(m_path), other(m_path);
    slow.Send("{\"request\":\"wait\"}\n");
    m_gate.Await();
    EXPECT_EQ(other.Ask(Echo("here"))["echo"], "here");
    m_gate.Open();
    EXPECT_EQ(slow.ReceiveJson()["waited"], true);
}

TEST_F(ControlSocket, TurnsAwayWhoComesWhenItIsFull)
{
    std::deque<LineClient> clients;
    for (size_t i = 0; i < 100; ++i) {
        LineClient& client = clients.emplace_back(m_path);
        const bool hasRoom = i < ControlServer::kMaxClients;
        EXPECT_TRUE(client.Ask(Echo("here")).contains(hasRoom ? "echo" : "error")) << i;
    }
    EXPECT_EQ(clients.back().Receive(), "");
    clients.clear();
    EXPECT_TRUE(Eventually([&] { return LineClient(m_path).Ask(Echo("again")).contains("echo"); }));
}

// Whoever pushes waits for nobody, and what the client gets tells how many lines it has missed where.
TEST_F(ControlSocket, StreamThatNobodyReadsIsBounded)
{
    LineClient client(m_path);
    client.Ask({{"request", "follow"}});
    const std::string filling(2000, 'x');  // of every other line: a short one would still fit
    const int pushed = 20'000;
    for (int i = 0; i < pushed; ++i) Followed()->Push({{"number", i}, {"filling", i % 2 ? "" : filling}});
    int next = 0, skipped = 0;
    while (next < pushed) {
        const Json line = client.ReceiveJson();
        ASSERT_TRUE(line.is_object());
        if (line.contains("skipped")) {
            skipped += line["skipped"].get<int>();
            next += line["skipped"].get<int>();
        } else {
            ASSERT_EQ(line["number"], next++);
        }
    }
    EXPECT_GT(skipped, pushed / 2);
    Followed()->Push({{"number", pushed}});
    EXPECT_EQ(client.ReceiveJson()["number"], pushed);
}

TEST_F(ControlSocket, StreamEndsWithItsClientAndWithTheServer)
{
    {
        LineClient client(m_path);
        client.Ask({{"request", "follow"}});
        EXPECT_NE(Followed(), nullptr);
    }
    EXPECT_TRUE(Eventually([&] { return Followed() == nullptr; }));
    LineClient last(m_path);
    last.Ask({{"request", "follow"}});
    std::optional<ControlServer> other;
    EXPECT_TRUE(StderrOf([&] {
                    EXPECT_FALSE(other.emplace(Handlers()).Start(m_path));
                }).starts_with("mainstay: another daemon serves "));
    other.reset();
    EXPECT_EQ(access(m_path.c_str(), F_OK), 0) << "the socket of the other one stays";
}

TEST(ControlSocketFile, OfADeadDaemonIsReplacedAndOthersStay)
{
    const TemporaryDirectory directory;
    const std::string path = directory.Path() + "/control";
    EXPECT_EXIT(
        {
            const auto server = new ControlServer({});
            server->Start(path);
            _exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_NE(LineClient(path).error, 0);
    {
        ControlServer server({});
        EXPECT_TRUE(server.Start(path));
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0660u);
        EXPECT_EQ(LineClient(path).error, 0);
    }
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    std::ofstream(path) << "mine";
    ControlServer server({});
    EXPECT_EQ(StderrOf([&] { EXPECT_FALSE(server.Start(path)); }), "mainstay: " + path + " is no socket\n");
    EXPECT_THAT(StderrOf([&] { EXPECT_FALSE(server.Start(directory.Path() + std::string(200, 'x'))); }),
                HasSubstr("too long"));
}

TEST_F(ControlSocket, OthersAreRefused)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    chmod(m_path.c_str(), 0666);  // else the file alone keeps them out
    chmod(m_directory.Path().c_str(), 0755);
    const pid_t child = fork();
    if (child == 0) {
        constexpr uid_t kNobody = 65'534;
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0) _exit(2);
        LineClient client(m_path);
        const bool isRefused = client.Receive().starts_with("{\"error\":\"not permitted");
        _exit(isRefused && client.Receive().empty() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
