#include "config/base/log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "support/stderr_of.h"

namespace {

using testing::HasSubstr;

/// Standard error is a pipe whose reader takes nothing until it is asked to.
class UnreadLog {
  public:
    UnreadLog() : m_saved(dup(STDERR_FILENO))
    {
        EXPECT_EQ(pipe2(m_pipe, O_NONBLOCK), 0);
        fcntl(m_pipe[1], F_SETFL, 0);  // a writer would wait
        dup2(m_pipe[1], STDERR_FILENO);
    }
    ~UnreadLog()
    {
        dup2(m_saved, STDERR_FILENO);
        for (const int descriptor : {m_saved, m_pipe[0], m_pipe[1]}) close(descriptor);
    }
    std::string ReadAll() const
    {
        std::string text;
        char piece[4096];
        for (ssize_t count; (count = read(m_pipe[0], piece, sizeof piece)) > 0;)
            text.append(piece, static_cast<size_t>(count));
        return text;
    }

  private:
    const int m_saved;
    int m_pipe[2] = {};
};

TEST(Log, LeavesOutWhatNobodyReadsAndSaysHowMuch)
{
    const UnreadLog log;
    const std::string line(1000, 'x');
    for (int i = 0; i < 1000; ++i) vexa::Print("%s\n", line.c_str());
    EXPECT_LT(log.ReadAll().size(), size_t{1000} * line.size());
    vexa::Print("again\n");
    const std::string text = log.ReadAll();
    EXPECT_THAT(text, HasSubstr(" more lines were left out\nagain\n"));
}

TEST(Log, LimitsOnlyWhatPeersCause)
{
    constexpr int kLines = 2 * static_cast<int>(vexa::PeerLog::kBurst);
    const auto count = [] {
        const std::string text = StderrOf([] {
            for (int i = 0; i < kLines; ++i) vexa::Print("line\n");
        });
        return std::ranges::count(text, '\n');
    };
    EXPECT_EQ(count(), kLines);
    {
        const vexa::PeerLog limited;
        EXPECT_LT(count(), kLines);
    }
    EXPECT_THAT(StderrOf([] { vexa::Print("after\n"); }), HasSubstr("more lines were left out\nafter\n"));
}

TEST(Log, KeepsErrnoAndNamesIt)
{
    errno = ENOENT;
    EXPECT_EQ(StderrOf([] { vexa::PrintError("what"); }), "what: No such file or directory\n");
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
