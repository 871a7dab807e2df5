/// Keeper: makes the stores of the daemon remember, and writes the history of their changes.
///
/// A store that gets its first peer receives the values that were kept of its configuration. A thread of the keeper,
/// "ms-state", writes what has changed in one transaction, the interval after the first change. Whoever changes a
/// value never waits for the disk.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "config/access/server/peer_stores.h"
#include "config/base/mutex.h"
#include "config/config.h"
#include "mainstay/state/settings_file.h"

namespace state {

/// For people: what is kept and what is not.
struct KeeperStatus {
    std::string path;                ///< "" when nothing is kept beyond the end of the process
    std::string problem;             ///< why nothing can be written at the moment
    size_t waiting = 0;              ///< changes that are not on the disk
    size_t lost = 0;                 ///< lines of the history for which there was no room meanwhile
    int64_t saved = 0;               ///< microseconds since 1970 of the last writing; 0: none
    std::vector<std::string> notes;  ///< what was moved aside, what no longer fits
};

/// The parameter's values that are kept over a restart.
bool IsKept(ParamDescriptor& descriptor);
/// A parameter's value in a store; nothing when it has none.
std::optional<vexa::Value> ReadValue(Config& store, ParamDescriptor& descriptor);
bool WriteValue(Config& store, ParamDescriptor& descriptor, const vexa::Value& value);
/// Why a store would not take a value as it is; nothing when it would. Stores enforce no length of texts.
std::optional<std::string> Misfit(ParamDescriptor& descriptor, const vexa::Value& value);
/// "FanSpeed"; the number of one that this model does not have.
std::string NameOf(eParam_t id);
/// A value for lines that people read: no secrets, nothing that would end the line, and not much of a long text. "" for an unknown
/// parameter.
std::string Shown(eParam_t id, const vexa::Value& value);
/// Now, in microseconds since 1970.
int64_t Now();

/// Thread: made, started and stopped by one; the rest on any.
class Keeper : public vexa::corvalis::config::access::PeerStoreWatcher {
  public:
    /// @param file  open, and outlives the keeper. @param interval  from the first change to its transaction.
    Keeper(SettingsFile& file, std::chrono::milliseconds interval);
    ~Keeper() override;

    /// From now on stores receive their values. Before the first one is opened.
    void Watch();
    /// Begins to write.
    void Start();
    /// From now on the stores refuse changes, which would be lost. Writes what there is, notes that the unit was shut down in order, and makes a copy. Call it before the stores
    /// are closed: connections may outlive their server.
    void Stop();

    // PeerStoreWatcher
    void Opened(Config& store) override;
    void Closing(Config& store) override;

    KeeperStatus Status() const;
    /// Writes what there is at once, on this thread. @return false when it cannot: see Status.
    bool Flush();
    /// @param onLines  called with what was added to the history, once it is on the disk, on the thread that wrote it;
    /// it must not wait, nor throw. Before Start.
    void OnLines(std::function<void(const std::vector<HistoryLine>&)> onLines)
    {
        m_onLines = std::move(onLines);
    }

  private:
    class StoreHistory;
    class StopGate;
    struct Change {
        int64_t time;
        eConfigID_t configID;
        eParam_t param;
        vexa::Value before, after;
        std::string who;
    };

    void Run();
    void Note(Change change) VEXA_EXCLUDES(m_lock);
    void NoteCorrections(Config& store, const Values& values) VEXA_EXCLUDES(m_lock);
    void MarkDirty() VEXA_EXCLUDES(m_lock);
    void AddNote(const std::string& note) VEXA_EXCLUDES(m_lock);
    void LoadWritten() VEXA_EXCLUDES(m_storesLock);
    bool Fits(eParam_t param, const vexa::Value& value, std::string& objections) const;
    Values Known(eConfigID_t configID) const VEXA_REQUIRES(m_storesLock);
    std::optional<vexa::Value> ToBeKept(Config& store, ParamDescriptor& descriptor) const
        VEXA_REQUIRES(m_storesLock);
    Values Unwritten(Config& store) VEXA_REQUIRES(m_storesLock);
    Batch Collect(const std::deque<Change>& changes) VEXA_EXCLUDES(m_storesLock);
    void NoteWritten(bool isWritten) VEXA_EXCLUDES(m_storesLock);
    bool WriteOnce() VEXA_EXCLUDES(m_writeLock);
    void Failed(std::deque<Change> changes, const std::exception& reason) VEXA_EXCLUDES(m_lock);
    void Succeeded(std::vector<HistoryLine> lines, int64_t newestID) VEXA_EXCLUDES(m_lock);
    void BackUp();

    SettingsFile& m_file;
    const std::chrono::milliseconds m_interval;
    const std::shared_ptr<std::atomic<bool>>
        m_isClosed;                        // shared with the gates, which belong to their stores
    std::vector<ParamDescriptor*> m_kept;  // of the model
    std::function<void(const std::vector<HistoryLine>&)> m_onLines;

    vexa::Mutex m_writeLock;   // one transaction at a time; held over the disk
    vexa::Mutex m_storesLock;  // before the locks of a store
    std::map<eConfigID_t, std::unique_ptr<StoreHistory>> m_stores VEXA_GUARDED_BY(m_storesLock);
    // What the file has, what is being written, and what closed stores have left to write: the later ones are newer.
    std::map<eConfigID_t, Values> m_written VEXA_GUARDED_BY(m_storesLock);
    std::map<eConfigID_t, Values> m_writing VEXA_GUARDED_BY(m_storesLock);
    std::map<eConfigID_t, Values> m_closed VEXA_GUARDED_BY(m_storesLock);
    bool m_isStopping VEXA_GUARDED_BY(m_storesLock) = false;

    mutable vexa::Mutex m_lock;  // innermost: taken by those who change values
    vexa::CondVar m_changed;
    std::deque<Change> m_changes VEXA_GUARDED_BY(m_lock);
    size_t m_changeBytes VEXA_GUARDED_BY(m_lock) = 0;
    bool m_isDirty VEXA_GUARDED_BY(m_lock) = false, m_isEnding VEXA_GUARDED_BY(m_lock) = false;
    KeeperStatus m_status VEXA_GUARDED_BY(m_lock);

    std::thread m_thread;
};

}  // namespace state
