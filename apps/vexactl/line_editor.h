/// Lines that a person types at a terminal. Thread: the main thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What may stand at the end of a line, before the cursor.
struct Completion {
    size_t from = 0;                      ///< of the bytes that are replaced, up to the cursor
    std::vector<std::string> candidates;  ///< in place of them
    std::vector<std::string> shown;       ///< to choose from: the same, as people read them
};
using Completer = std::function<Completion(const std::string& before)>;

/// Reads lines with editing, a history and completion. What the process prints meanwhile, on any thread, stands
/// above the line that is being typed, which stays whole. Without libedit, or on a terminal that cannot move its
/// cursor, lines are read as the terminal delivers them.
class LineEditor {
  public:
    /// @param streams  descriptors on which the process prints.
    LineEditor(Completer completer, std::vector<int> streams);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    /// A line that was typed; Ctrl-C begins a new one. @return nothing at the end: Ctrl-D.
    std::optional<std::string> Read(const std::string& prompt);
    /// Adds a line to those that the arrow keys show.
    void Remember(const std::string& line);

  private:
    class Editing;
    std::unique_ptr<Editing> m_editing;  // null: none
};
