#include "mainstay/state/keeper.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <utility>

#include "config/base/log.h"
#include "config/base/origin.h"
#include "config/config_event_listener.h"
#include "config/descriptors/descriptor_table.h"
#include "config/descriptors/integer_descriptor.h"
#include "config/descriptors/string_descriptor.h"
#include "config/manager/update_precondition.h"
#include "device/catalogue.h"
#include "device/format.h"

namespace net = vexa::corvalis::config::access;

namespace state {

namespace {

using std::chrono::milliseconds;

/// A disk that is full does not become empty at once.
constexpr milliseconds kRetry{1000};
/// Lines that wait for the disk. More than these are left out, the oldest first.
constexpr size_t kMaxWaitingLines = 100'000, kMaxWaitingBytes = size_t{16} << 20;
/// Texts are cut off in the history: it is to tell what happened, not to restore it.
constexpr size_t kMaxShownText = 256;
/// Peers may open many configurations, and everything that is kept is in memory, too.
constexpr size_t kMaxTextOfOthers = 4096;
/// Peers may open any configuration.
constexpr size_t kMaxKeptConfigurations = 64;
/// The bit of eParamID_PersistStatus that an orderly stop sets.
constexpr unsigned int kStoppedInOrder = 1;

vexa::Value DefaultOf(ParamDescriptor& descriptor)
{
    if (auto* const number = dynamic_cast<IntegerDescriptor*>(&descriptor))
        return number->GetFactoryDefault();
    auto* const text = dynamic_cast<StringDescriptor*>(&descriptor);
    return text ? text->GetFactoryDefault() : std::string();
}

size_t BytesOf(const vexa::Value& value)
{
    const auto* const text = std::get_if<std::string>(&value);
    return text ? text->size() : 0;
}

/// What the history shows of it, and one byte that tells of more.
void CutOff(vexa::Value& value)
{
    auto* const text = std::get_if<std::string>(&value);
    if (text && text->size() > kMaxShownText) *text = text->substr(0, kMaxShownText + 1);
}

void Overlay(Values& values, const std::map<eConfigID_t, Values>& newer, eConfigID_t configID)
{
    const auto found = newer.find(configID);
    if (found == newer.end()) return;
    for (const auto& [param, value] : found->second) values[param] = value;
}

/// Some values set others back when they are set: so the second pass sets what the first one has changed again.
void Apply(Config& store, const Values& values)
{
    const vexa::OriginScope origin("start");
    for (int pass = 0; pass < 2; ++pass)
        for (const auto& [param, value] : values) {
            ParamDescriptor* const descriptor = FindDescriptor(param);
            if (descriptor && ReadValue(store, *descriptor) != value) WriteValue(store, *descriptor, value);
        }
}

}  // namespace

bool IsKept(ParamDescriptor& descriptor)
{
    return descriptor.GetPersistenceType() == ePersist;
}

std::optional<vexa::Value> ReadValue(Config& store, ParamDescriptor& descriptor)
{
    if (vexa::HoldsText(descriptor)) {
        std::string text;
        if (store.Get(descriptor.GetParamID(), text)) return text;
    } else {
        unsigned int number = 0;
        if (store.Get(descriptor.GetParamID(), number)) return number;
    }
    return std::nullopt;
}

bool WriteValue(Config& store, ParamDescriptor& descriptor, const vexa::Value& value)
{
    if (const auto* const number = std::get_if<unsigned int>(&value))
        return store.Set(descriptor.GetParamID(), *number);
    std::string text = std::get<std::string>(value);
    if (vexa::HoldsBytes(descriptor)) return store.SetData(descriptor.GetParamID(), text);
    return store.Set(descriptor.GetParamID(), text);
}

std::optional<std::string> Misfit(ParamDescriptor& descriptor, const vexa::Value& value)
{
    const bool isText = std::holds_alternative<std::string>(value);
    if (isText != vexa::HoldsText(descriptor)) return "of another type";
    if (isText || descriptor.HasClassName("do_not_validate")) return std::nullopt;
    return vexa::Objection(descriptor, value);
}

std::string NameOf(eParam_t id)
{
    if (ParamDescriptor* const descriptor = FindDescriptor(id)) return vexa::Catalogue::NameOf(*descriptor);
    std::array<char, 16> text{};
    snprintf(text.data(), text.size(), "0x%08x", static_cast<unsigned int>(id));
    return text.data();
}

std::string Shown(eParam_t id, const vexa::Value& value)
{
    ParamDescriptor* const descriptor = FindDescriptor(id);
    if (!descriptor) return "";
    if (descriptor->HasClassName("password")) return "********";
    std::string line;
    for (const char c : vexa::Format(*descriptor, value))
        line += c == '\n' ? "\\n" : c == '\t' ? "\\t" : std::string(1, c);
    if (line.size() > kMaxShownText) line = line.substr(0, kMaxShownText) + "...";
    return line;
}

int64_t Now()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

/// Hears the changes of one store, each on the thread that makes it, one after the other.
class Keeper::StoreHistory : public ConfigEventListener {
  public:
    StoreHistory(Keeper& keeper, Config& store)
        : m_keeper(keeper), m_store(store), m_configID(store.GetConfigID())
    {
        for (const eParam_t id : store.GetParamIDs()) {
            ParamDescriptor* const descriptor = FindDescriptor(id);
            if (!descriptor) continue;
            const bool isStatus = descriptor->HasClassName("readonly");
            if (isStatus && !IsKept(*descriptor)) continue;
            m_known[id] = {ReadValue(store, *descriptor).value_or(0U), isStatus,
                           !IsKept(*descriptor) && descriptor->HasClassName("volatile")};
        }
        store.AddConfigEventListener(this);
    }
    ~StoreHistory() override { m_store.RemoveConfigEventListener(this); }

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval) override { return Changed(id, value); }
    bool ParamChanged(eParam_t id, std::string value, timeval) override
    {
        return Changed(id, std::move(value));
    }
    bool DataChanged(eParam_t id, std::string& data, timeval) override { return Changed(id, data); }

    Config& Store() const { return m_store; }

  private:
    struct Known {
        vexa::Value value;
        bool isStatus = false;
        bool isVolatile = false;  // the same value again means something: a command
    };

    bool Changed(eParam_t id, vexa::Value value)
    {
        const auto found = m_known.find(id);
        if (found == m_known.end()) return true;
        Known& known = found->second;
        if (known.value == value && !known.isVolatile) return true;
        std::swap(known.value, value);
        if (known.isStatus)
            m_keeper.MarkDirty();
        else
            m_keeper.Note({Now(), m_configID, id, std::move(value), known.value, vexa::CurrentOrigin()});
        return true;
    }

    Keeper& m_keeper;
    Config& m_store;
    const eConfigID_t m_configID;
    std::map<eParam_t, Known> m_known;  // guarded by the store's turn
};

/// What the daemon acknowledges after it has written for the last time would be lost: so it refuses.
class Keeper::StopGate : public vexa::config::UpdatePrecondition {
  public:
    explicit StopGate(std::shared_ptr<std::atomic<bool>> isClosed) : m_isClosed(std::move(isClosed)) {}
    bool IsUpdateValid(Config*, vexa::config::IntegerQueue&) override { return !*m_isClosed; }
    bool IsUpdateValid(Config*, vexa::config::StringQueue&) override { return !*m_isClosed; }
    bool IsUpdateValid(Config*, eParam_t, Serializable&) override { return !*m_isClosed; }

  private:
    const std::shared_ptr<std::atomic<bool>> m_isClosed;
};

Keeper::Keeper(SettingsFile& file, milliseconds interval)
    : m_file(file), m_interval(interval), m_isClosed(std::make_shared<std::atomic<bool>>(false))
{
    for (const eParam_t id : GetParamIDs()) {
        ParamDescriptor* const descriptor = FindDescriptor(id);
        if (descriptor && IsKept(*descriptor)) m_kept.push_back(descriptor);
    }
    m_status.problem = m_file.Problem();
    try {
        LoadWritten();
        if (const size_t others = m_file.CountOfOtherModels())
            AddNote(std::to_string(others) + " stored values are of other models, and stay in the file");
    } catch (const std::exception& error) {
        AddNote(std::string("the stored values cannot be read: ") + error.what());
    }
}

Keeper::~Keeper()
{
    Stop();
}

void Keeper::LoadWritten()
{
    auto written = m_file.LoadValues();
    std::string objections;
    for (auto& [configID, values] : written)
        std::erase_if(values,
                      [&](const auto& entry) { return !Fits(entry.first, entry.second, objections); });
    if (!objections.empty())
        AddNote("stored values that do not fit any more stay in the file: " + objections);
    vexa::MutexLock hold(m_storesLock);
    m_written = std::move(written);
}

/// A value that does not fit counts as none, so that it is neither applied nor replaced.
bool Keeper::Fits(eParam_t param, const vexa::Value& value, std::string& objections) const
{
    ParamDescriptor* const descriptor = FindDescriptor(param);
    std::optional<std::string> objection;
    if (!descriptor)
        objection = "unknown";
    else if (!IsKept(*descriptor))
        objection = "not kept";
    else
        objection = Misfit(*descriptor, value);
    if (!objection) return true;
    objections += (objections.empty() ? "" : ", ") + NameOf(param) + " (" + *objection + ")";
    return false;
}

void Keeper::Watch()
{
    net::WatchPeerStores(this);
}

void Keeper::Start()
{
    MarkDirty();  // that the unit runs, and was not shut down in order yet
    m_thread = std::thread([this] { Run(); });
}

void Keeper::Stop()
{
    {
        vexa::MutexLock hold(m_storesLock);
        if (std::exchange(m_isStopping, true)) return;
    }
    *m_isClosed = true;
    net::WatchPeerStores(nullptr);  // tells of every open store that it closes
    if (!m_thread.joinable()) return;
    {
        vexa::MutexLock hold(m_lock);
        m_isEnding = true;
        m_changed.NotifyAll();
    }
    m_thread.join();
    if (WriteOnce()) BackUp();
}

/// What a restart would find, once everything is written.
Values Keeper::Known(eConfigID_t configID) const
{
    Values values;
    for (const auto* const layer : {&m_written, &m_writing, &m_closed}) Overlay(values, *layer, configID);
    return values;
}

void Keeper::Opened(Config& store)
{
    const eConfigID_t configID = store.GetConfigID();
    Values values;
    {
        vexa::MutexLock hold(m_storesLock);
        values = Known(configID);
    }
    Apply(store, values);
    // Before anybody else uses the store, which owns it.
    auto gate = std::make_unique<StopGate>(m_isClosed);
    if (store.AddUpdatePrecondition(gate.get())) static_cast<void>(gate.release());
    auto history = std::make_unique<StoreHistory>(*this, store);
    NoteCorrections(store, values);
    {
        vexa::MutexLock hold(m_storesLock);
        m_stores[configID] = std::move(history);
        m_closed.erase(configID);  // the store has it now
    }
    MarkDirty();
}

/// What the store has made of kept values that it did not take as they are.
void Keeper::NoteCorrections(Config& store, const Values& values)
{
    for (const auto& [param, value] : values) {
        ParamDescriptor* const descriptor = FindDescriptor(param);
        auto now = descriptor ? ReadValue(store, *descriptor) : std::nullopt;
        if (now && *now != value) Note({Now(), store.GetConfigID(), param, value, std::move(*now), "start"});
    }
}

void Keeper::Closing(Config& store)
{
    const eConfigID_t configID = store.GetConfigID();
    std::unique_ptr<StoreHistory> history;  // its removal waits for its callback, so not under the lock
    vexa::MutexLock hold(m_storesLock);
    const auto found = m_stores.find(configID);
    if (found == m_stores.end()) return;
    if (Values values = Unwritten(store); !values.empty()) m_closed[configID] = std::move(values);
    history = std::move(found->second);
    m_stores.erase(found);
}

KeeperStatus Keeper::Status() const
{
    KeeperStatus status;
    {
        vexa::MutexLock hold(m_lock);
        status = m_status;
        status.waiting = m_changes.size() + (m_isDirty && m_changes.empty() ? 1 : 0);
    }
    status.path = m_file.Path();
    const std::vector<std::string> notes = m_file.Notes();
    status.notes.insert(status.notes.begin(), notes.begin(), notes.end());
    return status;
}

bool Keeper::Flush()
{
    return WriteOnce();
}

void Keeper::Note(Change change)
{
    CutOff(change.before);
    CutOff(change.after);
    const auto bytesOf = [](const Change& each) {
        return sizeof each + BytesOf(each.before) + BytesOf(each.after) + each.who.size();
    };
    vexa::MutexLock hold(m_lock);
    m_changeBytes += bytesOf(change);
    m_changes.push_back(std::move(change));
    while (m_changes.size() > kMaxWaitingLines || m_changeBytes > kMaxWaitingBytes) {
        m_changeBytes -= bytesOf(m_changes.front());
        m_changes.pop_front();
        ++m_status.lost;
    }
    if (m_isDirty) return;
    m_isDirty = true;
    m_changed.NotifyOne();
}

void Keeper::MarkDirty()
{
    vexa::MutexLock hold(m_lock);
    m_isDirty = true;
    m_changed.NotifyOne();
}

void Keeper::AddNote(const std::string& note)
{
    {
        vexa::MutexLock hold(m_lock);
        if (std::find(m_status.notes.begin(), m_status.notes.end(), note) != m_status.notes.end()) return;
        m_status.notes.push_back(note);
    }
    vexa::Print("mainstay: %s\n", note.c_str());
}

/// A value as it is written: nothing for one that is not kept.
std::optional<vexa::Value> Keeper::ToBeKept(Config& store, ParamDescriptor& descriptor) const
{
    std::optional<vexa::Value> value = ReadValue(store, descriptor);
    if (!value || (store.GetConfigID() != 0 && BytesOf(*value) > kMaxTextOfOthers)) return std::nullopt;
    if (descriptor.GetParamID() == eParamID_PersistStatus && store.GetConfigID() == 0) {
        const unsigned int others = std::get<unsigned int>(*value) & ~kStoppedInOrder;
        value = others | (m_isStopping ? kStoppedInOrder : 0);
    }
    return value;
}

Values Keeper::Unwritten(Config& store)
{
    const eConfigID_t configID = store.GetConfigID();
    const Values known = Known(configID);
    Values unwritten;
    for (ParamDescriptor* const descriptor : m_kept) {
        const std::optional<vexa::Value> value = ToBeKept(store, *descriptor);
        if (!value) continue;
        const auto found = known.find(descriptor->GetParamID());
        if (*value != (found == known.end() ? DefaultOf(*descriptor) : found->second))
            unwritten[descriptor->GetParamID()] = *value;
    }
    if (unwritten.empty() || !known.empty() || m_written.size() < kMaxKeptConfigurations || configID == 0)
        return unwritten;
    AddNote("the values of more than " + std::to_string(kMaxKeptConfigurations) +
            " configurations are not kept");
    return {};
}

Batch Keeper::Collect(const std::deque<Change>& changes)
{
    Batch batch;
    for (const Change& change : changes)
        batch.history.push_back({0, change.time, change.configID, change.param,
                                 Shown(change.param, change.before), Shown(change.param, change.after),
                                 change.who});
    vexa::MutexLock hold(m_storesLock);
    batch.values = std::move(m_closed);
    m_closed.clear();
    for (const auto& [configID, history] : m_stores)
        if (Values values = Unwritten(history->Store()); !values.empty())
            batch.values[configID] = std::move(values);
    m_writing = batch.values;
    return batch;
}

void Keeper::NoteWritten(bool isWritten)
{
    vexa::MutexLock hold(m_storesLock);
    for (auto& [configID, values] : m_writing) {
        if (isWritten)
            for (auto& [param, value] : values) m_written[configID][param] = std::move(value);
        else if (!m_stores.contains(configID))
            m_closed[configID].merge(values);  // what was left there meanwhile is newer
    }
    m_writing.clear();
}

bool Keeper::WriteOnce()
{
    vexa::MutexLock one(m_writeLock);
    std::deque<Change> changes;
    {
        vexa::MutexLock hold(m_lock);
        changes.swap(m_changes);
        m_changeBytes = 0;
        m_isDirty = false;
    }
    try {
        Batch batch = Collect(changes);
        if (batch.history.empty() && batch.values.empty()) return true;
        const int64_t newestID = m_file.Write(batch);
        NoteWritten(true);
        Succeeded(std::move(batch.history), newestID);
        return true;
    } catch (const std::exception& error) {
        NoteWritten(false);
        Failed(std::move(changes), error);
        return false;
    }
}

void Keeper::Succeeded(std::vector<HistoryLine> lines, int64_t newestID)
{
    {
        vexa::MutexLock hold(m_lock);
        if (!m_status.problem.empty()) vexa::Print("mainstay: the settings are written again\n");
        m_status.problem.clear();
        m_status.saved = Now();
    }
    if (lines.empty() || !m_onLines) return;
    int64_t id = newestID - static_cast<int64_t>(lines.size());
    for (HistoryLine& line : lines) line.id = ++id;
    m_onLines(lines);
}

void Keeper::Failed(std::deque<Change> changes, const std::exception& reason)
{
    {
        vexa::MutexLock hold(m_lock);
        if (m_status.problem.empty())
            vexa::Print("mainstay: cannot write the settings: %s; trying again\n", reason.what());
        m_status.problem = reason.what();
        for (const Change& change : m_changes) changes.push_back(change);
        m_changes.clear();
        m_changeBytes = 0;
    }
    for (Change& change : changes) Note(std::move(change));
    MarkDirty();
    try {
        if (m_file.Recover(reason)) LoadWritten();
    } catch (const std::exception&) {  // the obstacle is still there
    }
}

void Keeper::BackUp()
{
    try {
        m_file.BackUp();
    } catch (const std::exception& error) {
        AddNote(std::string("there is no new copy of the settings: ") + error.what());
    }
}

void Keeper::Run()
{
    pthread_setname_np(pthread_self(), "ms-state");
    vexa::MutexLock hold(m_lock);
    milliseconds delay{0};  // the first time at once: see Start
    while (!m_isEnding) {
        if (!m_isDirty) {
            m_changed.Wait(m_lock);
            continue;
        }
        const vexa::Deadline deadline(static_cast<unsigned int>(delay.count()));
        while (!m_isEnding && !deadline.IsOver()) m_changed.Wait(m_lock, deadline);
        if (m_isEnding) break;
        const vexa::MutexUnlock release(m_lock);
        bool isWritten = false;
        try {
            isWritten = WriteOnce();
            if (isWritten && m_file.WantsBackUp()) BackUp();
        } catch (const std::
                     exception&) {  // no memory, not even for saying so: all values are written the next time
            MarkDirty();
        }
        delay =
            isWritten ? m_interval : std::clamp(10 * m_interval, m_interval, std::max(m_interval, kRetry));
    }
}

}  // namespace state
