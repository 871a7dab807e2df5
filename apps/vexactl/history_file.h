/// The lines that were typed, over the runs of the shell. Thread: the main thread.
#pragma once

#include <string>
#include <vector>

/// One line each, the newest last, in a file that only its user reads. Where it cannot be kept, it is not.
/// Several shells may add to it.
class HistoryFile {
  public:
    /// @param path  empty: none.
    explicit HistoryFile(std::string path) : m_path(std::move(path)) {}

    /// $XDG_STATE_HOME/vexactl/history, or ~/.local/state/vexactl/history; empty where neither is known.
    static std::string UsualPath();

    /// The newest lines; the file forgets the others.
    std::vector<std::string> Load() const;
    void Append(const std::string& line) const;

  private:
    const std::string m_path;
};
