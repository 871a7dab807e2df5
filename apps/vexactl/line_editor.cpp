#include "vexactl/line_editor.h"

#include <cstdio>
#include <iostream>

#ifdef VEXACTL_LINE_EDITING

#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <string_view>
#include <utility>

namespace {

/// As long as it lives, what the process writes to these of its descriptors, where they are a terminal, can be
/// read here.
class CaughtOutput {
  public:
    explicit CaughtOutput(const std::vector<int>& streams)
    {
        if (pipe2(m_pipe, O_CLOEXEC) != 0) return;
        fcntl(m_pipe[0], F_SETFL, O_NONBLOCK);
        fflush(stdout);
        for (const int stream : streams) {
            const int own = isatty(stream) ? fcntl(stream, F_DUPFD_CLOEXEC, 3) : -1;
            if (own == -1) continue;
            m_own.emplace_back(stream, own);
            dup2(m_pipe[1], stream);
        }
    }
    ~CaughtOutput()
    {
        fflush(stdout);
        for (const auto& [stream, own] : m_own) {
            dup2(own, stream);
            close(own);
        }
        if (m_pipe[1] != -1) close(m_pipe[1]);
        const std::string rest = m_unfinished + Take();
        fwrite(rest.data(), 1, rest.size(), stdout);
        if (m_pipe[0] != -1) close(m_pipe[0]);
    }
    CaughtOutput(const CaughtOutput&) = delete;
    CaughtOutput& operator=(const CaughtOutput&) = delete;

    int Descriptor() const { return m_pipe[0]; }
    /// The lines that are complete.
    std::string TakeLines()
    {
        m_unfinished += Take();
        const size_t end = m_unfinished.rfind('\n') + 1;
        std::string lines = m_unfinished.substr(0, end);
        m_unfinished.erase(0, end);
        return lines;
    }

  private:
    std::string Take() const
    {
        std::string all;
        char piece[4096];
        for (ssize_t count; (count = read(m_pipe[0], piece, sizeof piece)) > 0;)
            all.append(piece, static_cast<size_t>(count));
        return all;
    }

    int m_pipe[2] = {-1, -1};
    std::vector<std::pair<int, int>> m_own;  // each with where it leads
    std::string m_unfinished;
};

/// Where a text ends on a terminal.
class Cursor {
  public:
    explicit Cursor(int columns) : m_columns(columns) {}
    void Pass(wchar_t c)
    {
        const int width = std::iswcntrl(static_cast<wint_t>(c)) ? 2 : std::max(0, wcwidth(c));  // "^A"
        if (m_column + width > m_columns) Break();
        m_column += width;
        if (m_column == m_columns) Break();
    }
    int Row() const { return m_row; }

  private:
    void Break()
    {
        ++m_row;
        m_column = 0;
    }

    const int m_columns;
    int m_row = 0, m_column = 0;
};

/// The editor sets the terminal's modes again and again: at each line, and when the process goes on.
void MakeInterruptAKey()
{
    termios modes{};
    if (tcgetattr(STDIN_FILENO, &modes) != 0 || modes.c_cc[VINTR] == _POSIX_VDISABLE) return;
    modes.c_cc[VINTR] = _POSIX_VDISABLE;
    tcsetattr(STDIN_FILENO, TCSADRAIN, &modes);
}

int Columns()
{
    constexpr int kUsual = 80;
    winsize size{};
    return ioctl(STDIN_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

size_t WidthOf(const std::string& text)
{
    size_t width = 0;
    std::mbstate_t state{};
    for (size_t at = 0; at < text.size();) {
        wchar_t c = 0;
        const size_t length = std::mbrtowc(&c, text.data() + at, text.size() - at, &state);
        if (length == 0 || length > text.size()) return text.size();
        width += static_cast<size_t>(std::max(0, wcwidth(c)));
        at += length;
    }
    return width;
}

std::string InColumns(const std::vector<std::string>& texts)
{
    constexpr size_t kGap = 2, kMany = 100;
    size_t width = 1;
    for (const std::string& text : texts) width = std::max(width, WidthOf(text) + kGap);
    const size_t inRow = std::max<size_t>(1, static_cast<size_t>(Columns()) / width);
    const size_t count = std::min(texts.size(), kMany), rows = (count + inRow - 1) / inRow;
    std::string all;
    for (size_t row = 0; row < rows; ++row) {
        for (size_t i = row; i < count; i += rows) {
            all += texts[i];
            if (i + rows < count) all.append(width - WidthOf(texts[i]), ' ');
        }
        all += '\n';
    }
    if (texts.size() > count) all += "... and " + std::to_string(texts.size() - count) + " more\n";
    return all;
}

std::string CommonBeginning(const std::vector<std::string>& texts)
{
    std::string common = texts.front();
    for (const std::string& text : texts) {
        const auto end = std::ranges::mismatch(common, text).in1;
        common.erase(end, common.end());
    }
    const auto isInside = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80; };
    if (common.size() < texts.front().size() && isInside(texts.front()[common.size()])) {
        while (!common.empty() && isInside(common.back())) common.pop_back();
        if (!common.empty()) common.pop_back();
    }
    return common;
}

bool CanMoveCursor()
{
    const char* const terminal = getenv("TERM");
    return terminal && *terminal && terminal != std::string_view("dumb");
}

}  // namespace

class LineEditor::Editing {
  public:
    Editing(Completer completer, std::vector<int> streams)
        : m_completer(std::move(completer)), m_streams(std::move(streams))
    {
        constexpr int kMostLines = 1000;
        m_output = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w");
        m_editor = el_init("vexactl", stdin, m_output, stderr);
        m_history = history_init();
        HistEvent event;
        history(m_history, &event, H_SETSIZE, kMostLines);
        history(m_history, &event, H_SETUNIQUE, 1);
        el_set(m_editor, EL_CLIENTDATA, this);
        el_set(m_editor, EL_HIST, history, m_history);
        el_set(m_editor, EL_EDITOR, "emacs");
        el_set(m_editor, EL_SIGNAL, 1);
        el_set(
            m_editor, EL_PROMPT, +[](EditLine* editor) { return Of(editor).Prompt(); });
        el_set(
            m_editor, EL_GETCFN, +[](EditLine* editor, wchar_t* key) { return Of(editor).ReadKey(*key); });
        // The narrow form of this operation keeps copies of its texts that it never frees.
        el_wset(
            m_editor, EL_ADDFN, L"complete", L"Complete the word",
            +[](EditLine* editor, wint_t) { return Of(editor).Complete(); });
        el_source(m_editor, nullptr);
        el_set(m_editor, EL_BIND, "^I", "complete", nullptr);
    }
    ~Editing()
    {
        el_end(m_editor);
        history_end(m_history);
        fclose(m_output);
    }
    Editing(const Editing&) = delete;
    Editing& operator=(const Editing&) = delete;

    std::optional<std::string> Read(const std::string& prompt)
    {
        m_prompt = prompt;
        CaughtOutput caught(m_streams);
        m_caught = &caught;
        for (;;) {
            m_isCancelled = m_isRaw = false;
            int length = 0;
            const char* const typed = el_gets(m_editor, &length);
            if (!typed || length <= 0) {
                fputc('\n', m_output);
                fflush(m_output);
                return std::nullopt;
            }
            if (m_isCancelled) continue;
            std::string line(typed, static_cast<size_t>(length));
            if (line.ends_with('\n')) line.pop_back();
            return line;
        }
    }

    void Remember(const std::string& line)
    {
        HistEvent event;
        history(m_history, &event, H_ENTER, line.c_str());
    }

  private:
    static Editing& Of(EditLine* editor)
    {
        void* self = nullptr;
        el_get(editor, EL_CLIENTDATA, &self);
        return *static_cast<Editing*>(self);
    }

    /// Shown once the terminal hands every key over: what is typed before is the terminal's.
    char* Prompt() { return m_isRaw ? m_prompt.data() : m_nothing; }

    /// @return 1, or 0 at the end of the input.
    int ReadKey(wchar_t& key)
    {
        constexpr wchar_t kCancel = 3;
        std::mbstate_t state{};
        for (;;) {
            WaitForKey();
            char byte = 0;
            const ssize_t count = read(STDIN_FILENO, &byte, 1);
            if (count == -1 && errno == EINTR) continue;
            if (count <= 0) return 0;
            const size_t length = std::mbrtowc(&key, &byte, 1, &state);
            if (length == static_cast<size_t>(-1)) state = {};  // no text: dropped
            if (length == 1) break;  // a Ctrl-D that the terminal has taken arrives as an empty character
        }
        if (key == kCancel) key = Cancel();
        return 1;
    }

    void WaitForKey()
    {
        for (;;) {
            MakeInterruptAKey();
            if (!std::exchange(m_isRaw, true)) el_set(m_editor, EL_REFRESH);
            pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {m_caught->Descriptor(), POLLIN, 0}};
            poll(sources, 2, -1);
            if (sources[1].revents & POLLIN) {
                const std::string lines = m_caught->TakeLines();
                if (!lines.empty()) PrintAbove(lines);
            }
            if (sources[0].revents) return;
        }
    }

    /// @return the key that ends the line.
    wchar_t Cancel()
    {
        const LineInfoW* const line = el_wline(m_editor);
        el_cursor(m_editor, static_cast<int>(line->lastchar - line->cursor));
        el_insertstr(m_editor, "^C");
        el_set(m_editor, EL_REFRESH);
        m_isCancelled = true;
        return L'\n';
    }

    /// The line gives way, and is drawn anew below.
    void PrintAbove(const std::string& lines)
    {
        const LineInfoW* const line = el_wline(m_editor);
        Cursor cursor(Columns());
        for (const char c : m_prompt) cursor.Pass(static_cast<unsigned char>(c));
        for (const wchar_t* c = line->buffer; c < line->cursor; ++c) cursor.Pass(*c);
        fputc('\r', m_output);
        if (cursor.Row() > 0) fprintf(m_output, "\033[%dA", cursor.Row());
        fputs("\033[J", m_output);
        fwrite(lines.data(), 1, lines.size(), m_output);
        el_set(m_editor, EL_REFRESH);
        fflush(m_output);
    }

    unsigned char Complete()
    {
        const LineInfo* const line = el_line(m_editor);
        const std::string before(line->buffer, static_cast<size_t>(line->cursor - line->buffer));
        const Completion completion = m_completer(before);
        if (completion.candidates.empty()) return CC_ERROR;
        const bool isOnly = completion.candidates.size() == 1;
        const std::string common = CommonBeginning(completion.candidates);
        const std::string typed = before.substr(completion.from);
        if (isOnly || common.size() > typed.size()) {
            Replace(typed, common);
        } else {
            PrintAbove(InColumns(completion.shown));
        }
        return CC_REFRESH;
    }

    void Replace(const std::string& typed, const std::string& text)
    {
        const auto isFirst = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80; };
        el_deletestr(m_editor, static_cast<int>(std::ranges::count_if(typed, isFirst)));
        el_insertstr(m_editor, text.c_str());
    }

    const Completer m_completer;
    const std::vector<int> m_streams;
    std::string m_prompt;
    char m_nothing[1] = "";
    FILE* m_output = nullptr;
    EditLine* m_editor = nullptr;
    History* m_history = nullptr;
    CaughtOutput* m_caught = nullptr;
    bool m_isCancelled = false, m_isRaw = false;
};

LineEditor::LineEditor(Completer completer, std::vector<int> streams)
    : m_editing(CanMoveCursor() ? std::make_unique<Editing>(std::move(completer), std::move(streams))
                                : nullptr)
{
}

void LineEditor::Remember(const std::string& line)
{
    if (m_editing) m_editing->Remember(line);
}

#else

class LineEditor::Editing {
  public:
    std::optional<std::string> Read(const std::string&) { return std::nullopt; }
};

LineEditor::LineEditor(Completer, std::vector<int>) {}

void LineEditor::Remember(const std::string&) {}

#endif

LineEditor::~LineEditor() = default;

std::optional<std::string> LineEditor::Read(const std::string& prompt)
{
    if (m_editing) return m_editing->Read(prompt);
    std::cout << prompt << std::flush;
    std::string line;
    if (std::getline(std::cin, line)) return line;
    std::cout << std::endl;
    return std::nullopt;
}
