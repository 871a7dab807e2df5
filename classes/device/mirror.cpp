#include "device/mirror.h"

#include <sys/eventfd.h>
#include <sys/time.h>

namespace vexa {

namespace {

/// Of states that wait for a slow subscriber.
constexpr size_t kMaxStatuses = 64;

timeval TimeNow()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return now;
}

/// Those that still exist; the others are forgotten.
template <class Target>
std::vector<std::shared_ptr<Target>> Alive(std::vector<std::weak_ptr<Target>>& targets)
{
    std::erase_if(targets, [](const auto& target) { return target.expired(); });
    std::vector<std::shared_ptr<Target>> alive;
    for (const auto& target : targets)
        if (auto found = target.lock()) alive.push_back(std::move(found));
    return alive;
}

}  // namespace

void Mirror::Changed(eParam_t id, Value value, timeval time)
{
    const MutexLock hold(m_lock);
    // Without a catalogue the values are still to be read.
    if (!m_catalogue || !m_catalogue->Find(id)) return;
    Tell(id, value, Change::Kind::kEvent, time);
    Entry& entry = EntryOf(id);
    entry.changed = ++m_now;
    entry.told = value;
    entry.value = std::move(value);
    m_touched.insert(id);
}

void Mirror::ChangesMissing()
{
    const MutexLock hold(m_lock);
    m_isMissing = true;
    eventfd_write(m_wake, 1);
}

bool Mirror::TakeMissing()
{
    const MutexLock hold(m_lock);
    return std::exchange(m_isMissing, false);
}

std::set<eParam_t> Mirror::TakeTouched()
{
    const MutexLock hold(m_lock);
    return std::exchange(m_touched, {});
}

Mirror::Moment Mirror::Now() const
{
    const MutexLock hold(m_lock);
    return m_now;
}

void Mirror::SetCatalogue(std::shared_ptr<const Catalogue> catalogue)
{
    const MutexLock hold(m_lock);
    if (m_catalogue != catalogue)
        std::erase_if(m_values, [&](const auto& entry) { return !catalogue->Find(eParam_t{entry.first}); });
    m_catalogue = std::move(catalogue);
}

std::shared_ptr<const Catalogue> Mirror::Parameters() const
{
    const MutexLock hold(m_lock);
    return m_catalogue;
}

void Mirror::TakeAnswer(eParam_t id, const std::optional<Value>& value, Moment asked)
{
    const MutexLock hold(m_lock);
    const auto known = m_values.find(id);
    if (known != m_values.end() && known->second.changed > asked) return;
    if (!value) {
        m_values.erase(id);
        return;
    }
    Entry& entry = EntryOf(id);
    if (m_wasInStep && entry.told != value) Tell(id, *value, Change::Kind::kDifference, {});
    entry.value = *value;
    entry.told = value;
}

void Mirror::NoteAnswer(eParam_t id, const Value& value, Moment asked)
{
    const MutexLock hold(m_lock);
    const auto known = m_values.find(id);
    if (known != m_values.end() && known->second.changed <= asked) known->second.value = value;
}

std::optional<Value> Mirror::Kept(eParam_t id) const
{
    const MutexLock hold(m_lock);
    if (m_status.state != DeviceState::kInStep) return std::nullopt;
    const auto known = m_values.find(id);
    if (known == m_values.end() || known->second.isVolatile) return std::nullopt;
    return known->second.value;
}

Mirror::Entry& Mirror::EntryOf(eParam_t id)
{
    const auto [entry, isNew] = m_values.try_emplace(id);
    if (isNew) entry->second.isVolatile = m_catalogue->Find(id)->HasClassName("volatile");
    return entry->second;
}

void Mirror::SetStatus(DeviceStatus status)
{
    const MutexLock hold(m_lock);
    if (status.model.empty()) {
        status.model = m_status.model;
        status.isModelAssumed = m_status.isModelAssumed;
    }
    if (status.software.empty()) status.software = m_status.software;
    if (status.state == m_status.state) status.since = m_status.since;
    const bool isNews = status.state != m_status.state || status.reason != m_status.reason;
    m_status = std::move(status);
    if (m_status.state == DeviceState::kInStep) {
        m_wasInStep = true;
        for (const auto& feed : Alive(m_feeds))
            if (feed->awaitsInitial) TellAll(*feed);
    }
    if (!isNews) return;
    for (const auto& statuses : Alive(m_statuses)) {
        statuses->push_back(m_status);
        if (statuses->size() > kMaxStatuses) statuses->pop_front();
    }
    m_changed.NotifyAll();
    m_deliveries.Wake();
}

DeviceStatus Mirror::Status() const
{
    const MutexLock hold(m_lock);
    return m_status;
}

bool Mirror::IsInStep() const
{
    const MutexLock hold(m_lock);
    return m_status.state == DeviceState::kInStep;
}

bool Mirror::WaitUntilInStep(const Deadline& deadline) const
{
    const MutexLock hold(m_lock);
    while (m_status.state != DeviceState::kInStep)
        if (!m_changed.Wait(m_lock, deadline)) return m_status.state == DeviceState::kInStep;
    return true;
}

void Mirror::Subscribe(const std::shared_ptr<Feed>& feed)
{
    const MutexLock hold(m_lock);
    m_feeds.push_back(feed);
    if (feed->awaitsInitial && m_status.state == DeviceState::kInStep) TellAll(*feed);
}

std::shared_ptr<void> Mirror::WatchStatus(std::function<void(const DeviceStatus&)> onStatus)
{
    const auto statuses = std::make_shared<Statuses>();
    {
        const MutexLock hold(m_lock);
        statuses->push_back(m_status);
        m_statuses.push_back(statuses);
    }
    return m_deliveries.Add([this, statuses, onStatus = std::move(onStatus)] {
        const std::optional<DeviceStatus> status = TakeStatus(*statuses);
        if (status) onStatus(*status);
        return status.has_value();
    });
}

std::optional<DeviceStatus> Mirror::TakeStatus(Statuses& statuses)
{
    const MutexLock hold(m_lock);
    if (statuses.empty()) return std::nullopt;
    DeviceStatus oldest = std::move(statuses.front());
    statuses.pop_front();
    return oldest;
}

Change Mirror::MakeChange(eParam_t id, const Value& value, Change::Kind kind, timeval time) const
{
    const bool isDevices = time.tv_sec != 0;
    return {id,
            Catalogue::NameOf(*m_catalogue->Find(id)),
            value,
            kind,
            isDevices ? time : TimeNow(),
            isDevices,
            m_catalogue};
}

void Mirror::Tell(eParam_t id, const Value& value, Change::Kind kind, timeval time)
{
    std::optional<Change> change;
    for (const auto& feed : Alive(m_feeds)) {
        if (feed->awaitsInitial) continue;  // it gets this value with all the others
        if (!change) change = MakeChange(id, value, kind, time);
        if (feed->Wants(change->name)) feed->Add(*change);
    }
    if (change) m_deliveries.Wake();
}

void Mirror::TellAll(Feed& feed)
{
    feed.awaitsInitial = false;
    for (const auto& [id, descriptor] : m_catalogue->All()) {
        const auto known = m_values.find(id);
        if (known == m_values.end()) continue;
        const Change change = MakeChange(id, known->second.value, Change::Kind::kInitial, {});
        if (feed.Wants(change.name)) feed.Add(change);
    }
    m_deliveries.Wake();
}

}  // namespace vexa
