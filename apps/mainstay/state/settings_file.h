/// SettingsFile: what a device remembers, in one SQLite file.
///
/// DIR/settings.db has the values of every model that this unit has been, its presets and the history of changes;
/// DIR/settings.db.bak is the last good copy. Everything is changed in transactions that are on the disk when they
/// return. Each value carries a check sum, so that a damaged file is noticed even where its structure is whole.
#pragma once

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/base/mutex.h"
#include "config/param_ids.h"
#include "device/value.h"
namespace SQLite {  // NOLINT(readability-identifier-naming): theirs
class Database;
}

namespace state {

/// Parameters and what they hold.
using Values = std::map<eParam_t, vexa::Value>;

/// One line of the history.
struct HistoryLine {
    int64_t id = 0;    ///< ascending; given when it is written
    int64_t time = 0;  ///< microseconds since 1970
    eConfigID_t configID = 0;
    eParam_t param{};
    std::string before, after, who;
};

/// What is written in one transaction.
struct Batch {
    std::map<eConfigID_t, Values> values;
    std::vector<HistoryLine> history;
};

struct SavedPreset {
    unsigned int number = 0;
    int64_t saved = 0;  ///< microseconds since 1970
    Values values;
};

/// Which lines of the history are asked for.
struct HistoryQuery {
    int64_t since = 0;             ///< microseconds since 1970
    int64_t afterID = 0;           ///< only later ones
    std::vector<eParam_t> params;  ///< empty: all
    size_t limit = 1000;           ///< the newest ones of them
};

/// Thread: any; each operation has the file for itself. They throw SQLite::Exception, and then have changed nothing.
class SettingsFile {
  public:
    /// @param directory  "" keeps everything in memory. @param model  whose values and presets this is about.
    SettingsFile(std::string directory, std::string model, size_t historyLimit);
    ~SettingsFile();
    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;

    /// Makes the directory this process's own, then opens the file, or makes it. One that is damaged, of a newer
    /// version or of another program is moved aside and replaced by the last good copy.
    /// @return false when another process has the directory. A directory that cannot be used now is no failure: see
    /// Problem.
    bool Open();
    /// Why nothing can be written: "" when it can.
    std::string Problem() const;
    /// What the user should know of the file: what was moved aside, and what took its place.
    std::vector<std::string> Notes() const;
    /// "DIR/settings.db", "" in memory.
    std::string Path() const { return m_path; }

    /// The values of the model, by configuration.
    std::map<eConfigID_t, Values> LoadValues();
    /// How many values there are of other models.
    size_t CountOfOtherModels();
    /// After an operation failed: opens a file that could not be opened yet, and starts anew with the last good copy
    /// when the file turned out to be damaged. Throws while the obstacle is there.
    /// @param reason  what the operation threw. @return whether it is another file now, with values of its own.
    bool Recover(const std::exception& reason);
    /// @return the identifier of the newest line of the history, if the batch had any.
    int64_t Write(const Batch& batch);

    void SavePreset(const SavedPreset& preset);
    std::optional<SavedPreset> LoadPreset(unsigned int number);
    /// @return false when there is none.
    bool DeletePreset(unsigned int number);
    void DeleteAllPresets();
    /// Without their values, ascending; how many values each has.
    std::vector<std::pair<SavedPreset, size_t>> ListPresets();

    /// Ascending in time.
    std::vector<HistoryLine> ReadHistory(const HistoryQuery& query);
    /// The identifier of the newest line, 0 without any.
    int64_t NewestLine();

    /// Replaces the last good copy, unless this file is damaged.
    void BackUp();
    /// Whether the last good copy is missing, or older than a day.
    bool WantsBackUp() const;

  private:
    class DirectoryLock;

    bool LockDirectory();
    void OpenOrReplace() VEXA_REQUIRES(m_lock);
    void OpenExisting() VEXA_REQUIRES(m_lock);
    void OpenReadOnly() VEXA_REQUIRES(m_lock);
    void MoveAside(const std::string& reason) VEXA_REQUIRES(m_lock);
    void RestoreBackUp() VEXA_REQUIRES(m_lock);
    SQLite::Database& File() VEXA_REQUIRES(m_lock);
    void PutValues(const Batch& batch) VEXA_REQUIRES(m_lock);
    bool Erase(unsigned int number) VEXA_REQUIRES(m_lock);
    void PutHistory(const std::vector<HistoryLine>& lines) VEXA_REQUIRES(m_lock);

    const std::string m_directory, m_path, m_model;
    const size_t m_historyLimit;
    std::unique_ptr<DirectoryLock> m_directoryLock;
    mutable vexa::Mutex m_lock;
    std::unique_ptr<SQLite::Database> m_file VEXA_GUARDED_BY(m_lock);
    bool m_isReadOnly VEXA_GUARDED_BY(m_lock) = false;
    std::string m_problem VEXA_GUARDED_BY(m_lock);
    std::vector<std::string> m_notes VEXA_GUARDED_BY(m_lock);
};

}  // namespace state
