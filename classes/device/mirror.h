/// Mirror: what a Device knows of its device, and who is told.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "config/base/mutex.h"
#include "device/deliveries.h"
#include "device/device.h"
#include "device/feed.h"
#include "device/link.h"

namespace vexa {

/// Thread: any.
class Mirror : public LinkEvents {
  public:
    /// The number of the last change that the device has told. An answer to a question that was asked before a
    /// change does not count: the change is newer.
    using Moment = uint64_t;

    Mirror(Deliveries& deliveries, int wake) : m_deliveries(deliveries), m_wake(wake) {}

    // The device's side.
    void Changed(eParam_t id, Value value, timeval time) override VEXA_EXCLUDES(m_lock);
    void ChangesMissing() override VEXA_EXCLUDES(m_lock);
    /// Whether changes were missing since the last call.
    bool TakeMissing() VEXA_EXCLUDES(m_lock);
    /// The parameters that were told to have changed since the last call.
    std::set<eParam_t> TakeTouched() VEXA_EXCLUDES(m_lock);

    Moment Now() const VEXA_EXCLUDES(m_lock);
    /// Values of another model go.
    void SetCatalogue(std::shared_ptr<const Catalogue> catalogue) VEXA_EXCLUDES(m_lock);
    std::shared_ptr<const Catalogue> Parameters() const VEXA_EXCLUDES(m_lock);
    /// An answer to a question of a moment; nothing: the device has no value. Tells what is different from what
    /// was told before.
    void TakeAnswer(eParam_t id, const std::optional<Value>& value, Moment asked) VEXA_EXCLUDES(m_lock);
    /// The same without telling: the device will.
    void NoteAnswer(eParam_t id, const Value& value, Moment asked) VEXA_EXCLUDES(m_lock);
    /// What is known of a parameter that tells all its changes, in step.
    std::optional<Value> Kept(eParam_t id) const VEXA_EXCLUDES(m_lock);

    // Its state.
    /// Tells it if it is news. `since` moves with the state only. In step means that all values are known.
    void SetStatus(DeviceStatus status) VEXA_EXCLUDES(m_lock);
    DeviceStatus Status() const VEXA_EXCLUDES(m_lock);
    bool IsInStep() const VEXA_EXCLUDES(m_lock);
    bool WaitUntilInStep(const Deadline& deadline) const VEXA_EXCLUDES(m_lock);

    // The subscribers' side.
    void Subscribe(const std::shared_ptr<Feed>& feed) VEXA_EXCLUDES(m_lock);
    std::shared_ptr<void> WatchStatus(std::function<void(const DeviceStatus&)> onStatus)
        VEXA_EXCLUDES(m_lock);

  private:
    struct Entry {
        Value value = 0u;
        std::optional<Value> told;  ///< to the subscribers
        Moment changed = 0;
        bool isVolatile = false;
    };
    using Statuses = std::deque<DeviceStatus>;

    Entry& EntryOf(eParam_t id) VEXA_REQUIRES(m_lock);
    void Tell(eParam_t id, const Value& value, Change::Kind kind, timeval time) VEXA_REQUIRES(m_lock);
    void TellAll(Feed& feed) VEXA_REQUIRES(m_lock);
    Change MakeChange(eParam_t id, const Value& value, Change::Kind kind, timeval time) const
        VEXA_REQUIRES(m_lock);
    std::optional<DeviceStatus> TakeStatus(Statuses& statuses) VEXA_EXCLUDES(m_lock);

    Deliveries& m_deliveries;
    const int m_wake;  // an eventfd of the worker
    mutable Mutex m_lock;
    mutable CondVar m_changed;
    DeviceStatus m_status VEXA_GUARDED_BY(m_lock);
    std::shared_ptr<const Catalogue> m_catalogue VEXA_GUARDED_BY(m_lock);
    std::unordered_map<uint32_t, Entry> m_values VEXA_GUARDED_BY(m_lock);
    std::vector<std::weak_ptr<Feed>> m_feeds VEXA_GUARDED_BY(m_lock);
    std::vector<std::weak_ptr<Statuses>> m_statuses VEXA_GUARDED_BY(m_lock);
    std::set<eParam_t> m_touched VEXA_GUARDED_BY(m_lock);
    Moment m_now VEXA_GUARDED_BY(m_lock) = 0;
    bool m_isMissing VEXA_GUARDED_BY(m_lock) = false;
    bool m_wasInStep VEXA_GUARDED_BY(m_lock) = false;
};

}  // namespace vexa
