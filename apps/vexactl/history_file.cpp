#include "vexactl/history_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

constexpr size_t kMostLines = 1000;

/// Writes lines, to the end of a file or to a new one. @return false when it is not all there.
bool Write(const std::string& path, const std::string& lines, int flags)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, S_IRUSR | S_IWUSR);
    if (file == -1) return false;
    const bool isWritten = fchmod(file, S_IRUSR | S_IWUSR) == 0 &&
                           write(file, lines.data(), lines.size()) == static_cast<ssize_t>(lines.size());
    close(file);
    return isWritten;
}

std::string Joined(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines) text += line + '\n';
    return text;
}

}  // namespace

std::string HistoryFile::UsualPath()
{
    const char* const state = getenv("XDG_STATE_HOME");
    const char* const home = getenv("HOME");
    fs::path folder;
    if (state && fs::path(state).is_absolute())
        folder = state;
    else if (home && *home)
        folder = fs::path(home) / ".local/state";
    return folder.empty() ? "" : folder / "vexactl/history";
}

std::vector<std::string> HistoryFile::Load() const
{
    std::vector<std::string> lines;
    std::ifstream file(m_path);
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    if (lines.size() <= kMostLines) return lines;
    lines.erase(lines.begin(), lines.end() - kMostLines);
    const std::string rest = m_path + "." + std::to_string(getpid());
    if (!Write(rest, Joined(lines), O_TRUNC) || rename(rest.c_str(), m_path.c_str()) != 0)
        unlink(rest.c_str());
    return lines;
}

void HistoryFile::Append(const std::string& line) const
{
    if (m_path.empty()) return;
    std::error_code isThere;
    const fs::path folder = fs::path(m_path).parent_path();
    fs::create_directories(folder.parent_path(), isThere);
    mkdir(folder.c_str(), S_IRWXU);
    Write(m_path, line + '\n', O_APPEND);
}
