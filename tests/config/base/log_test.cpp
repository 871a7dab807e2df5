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

TEST(Log, SpellsOutWhatATerminalWouldObey)
{
    const std::pair<const char*, const char*> rows[] = {
        {"plain\ttext\n", "plain\ttext\n"},
        {"\x1b]0;owned\a\r\x7f", "\\u001b]0;owned\\u0007\\u000d\\u007f"},
        {"\u009b32m \u0085", "\\u009b32m \\u0085"},
        {"\u202eback\u202c \u2066\u200f\u061c\u2028", "\\u202eback\\u202c \\u2066\\u200f\\u061c\\u2028"},
        {"\u00e9 \u20ac \u65e5\u672c \U0001f600", "\u00e9 \u20ac \u65e5\u672c \U0001f600"},
        {"\x9b"
         "32m \xc2",
         "\\x9b32m \\xc2"},                                       // no UTF-8
        {"\xc1\x9b \xe0\x82\x9b", "\\xc1\\x9b \\xe0\\x82\\x9b"},  // longer than they need be
        {"\xf4\x90\x80\x80 \xed\xa0\x80", "\\xf4\\x90\\x80\\x80 \\xed\\xa0\\x80"},
    };
    for (const auto& row : rows) EXPECT_EQ(StderrOf([&] { vexa::Print("%s", row.first); }), row.second);
}

}  // namespace
