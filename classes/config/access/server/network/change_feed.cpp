#include "config/access/server/network/change_feed.h"

#include <pthread.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>
#include <utility>

#include "config/access/protocol/network_protocol.h"
#include "config/access/protocol/value_payload.h"
#include "config/access/server/admission.h"
#include "config/access/server/network/tcp_stream.h"
#include "config/base/log.h"
#include "config/base/no_destructor.h"
#include "config/base/no_signals.h"
#include "config/config.h"

namespace vexa::corvalis::config::access {

namespace {

/// So few receivers are served by the thread that made the changes: waking another thread would take longer.
constexpr size_t kFewReceivers = 16;

std::atomic<size_t> allHistory = 0;  // bytes

thread_local ChangeFeed::Gathering* t_gathering = nullptr;

struct Feeds {
    Mutex lock;
    std::map<std::tuple<Config*, std::endian, bool>, std::weak_ptr<ChangeFeed>> feeds VEXA_GUARDED_BY(lock);
};

Feeds& AllFeeds()
{
    static NoDestructor<Feeds> feeds;  // connections outlive main
    return *feeds;
}

void PutWord(std::string& bytes, size_t position, uint32_t word)
{
    word = wire::NetworkOrder::Convert(word);
    memcpy(&bytes[position], &word, sizeof word);
}

XCONFIGMGR_RESPONSE_T EventRecord(eMessageType_t type, eParam_t id)
{
    XCONFIGMGR_RESPONSE_T event;
    event.msgtype = type;
    event.paramID = id;
    event.streamFormat = kStreamFormat;
    return event;
}

}  // namespace

XCONFIGMGR_RESPONSE_T StreamNumberEvent(eParam_t id, unsigned int value)
{
    XCONFIGMGR_RESPONSE_T event = EventRecord(XCFG_PARAM_CHANGED_EVENT, id);
    event.requestID = kEventRequestID;
    event.value = value;
    return event;
}

XCONFIGMGR_RESPONSE_T StreamTextEvent(Config& config, eParam_t id, timeval time, std::endian payloadOrder,
                                      std::string& payload)
{
    payload = WritePayload(config.GetSerializable(id), payloadOrder);
    if (payload.empty()) Print("SendStreamResponse: Invalid serializable value\n");
    XCONFIGMGR_RESPONSE_T event = EventRecord(XCFG_PARAM_STRING_CHANGED_EVENT, id);
    SetTime(event, time);
    event.streamLength = static_cast<uint32_t>(payload.size());
    return event;
}

// --- batches ---

bool ChangeFeed::Batch::BeginsWithText() const
{
    MessagePrefix prefix;
    return Decode(m_bytes.data(), m_bytes.size(), prefix) &&
           prefix.msgtype == XCFG_PARAM_STRING_CHANGED_EVENT;
}

void ChangeFeed::Batch::Address(uint32_t connectionID, eConfigID_t configID)
{
    constexpr size_t kConnectionID = 4, kConfigID = 12;  // bytes of the record
    for (const size_t begin : m_begins) {
        PutWord(m_bytes, begin + kConnectionID, connectionID);
        PutWord(m_bytes, begin + kConfigID, static_cast<uint32_t>(configID));
    }
}

uint64_t ChangeFeed::Read(Position& position, Batch& batch) const
{
    if (!batch.Follows(position)) {
        batch.m_bytes.clear();
        batch.m_begins.clear();
        batch.m_from = batch.m_to = position;
        const MutexLock hold(m_lock);
        batch.m_missed = m_events.Read(batch.m_to, [&](const Event& event) {
            if (!batch.m_begins.empty() && batch.m_bytes.size() + event.Size() > kBatchBytes) return false;
            batch.m_begins.push_back(batch.m_bytes.size());
            batch.m_bytes.append(event.record.data(), event.record.size()).append(event.payload);
            return true;
        });
    }
    position = batch.m_to;
    return batch.m_missed;
}

// --- gathering ---

ChangeFeed::Gathering::Gathering()
{
    t_gathering = this;
}

ChangeFeed::Gathering::~Gathering()
{
    Deliver();
    t_gathering = nullptr;
}

void ChangeFeed::Gathering::SetStore(const Config* config)
{
    Deliver();
    if (t_gathering) t_gathering->m_config = config;
}

bool ChangeFeed::Gathering::HasEvents()
{
    return t_gathering && t_gathering->m_feed;
}

void ChangeFeed::Gathering::Deliver()
{
    if (!HasEvents()) return;
    const std::shared_ptr<ChangeFeed> feed = std::move(t_gathering->m_feed);
    t_gathering->m_bytes = 0;
    feed->Deliver();
}

/// @return false when the event has to leave by itself, or the others with it.
bool ChangeFeed::Gathering::Holds(ChangeFeed& feed, size_t bytes)
{
    if (&feed.m_config != m_config) return false;
    if (!m_feed) m_feed = feed.weak_from_this().lock();
    if (m_feed.get() != &feed) return false;
    m_bytes += bytes;
    if (m_bytes < kBatchBytes) return true;
    m_bytes = 0;
    return false;
}

// --- life ---

std::shared_ptr<ChangeFeed> ChangeFeed::Of(Config& config, std::endian payloadOrder, bool hasPasswords)
{
    Feeds& all = AllFeeds();
    const MutexLock hold(all.lock);
    std::erase_if(all.feeds, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<ChangeFeed>& known = all.feeds[{&config, payloadOrder, hasPasswords}];
    std::shared_ptr<ChangeFeed> feed = known.lock();
    if (!feed) {
        feed = std::make_shared<ChangeFeed>(config, payloadOrder, hasPasswords);
        feed->Start();
        known = feed;
    }
    return feed;
}

ChangeFeed::ChangeFeed(Config& config, std::endian payloadOrder, bool hasPasswords)
    : m_config(config), m_payloadOrder(payloadOrder), m_hasPasswords(hasPasswords)
{
}

/// Not in the constructor: events come from here on, and share the feed.
void ChangeFeed::Start()
{
    m_config.AddConfigEventListener(this);
    const NoSignals inherited;
    m_thread = std::thread([this] { Run(); });
}

ChangeFeed::~ChangeFeed()
{
    m_config.RemoveConfigEventListener(this);
    {
        const MutexLock hold(m_lock);
        m_stop = true;
        m_changed.NotifyAll();
    }
    if (m_thread.joinable()) m_thread.join();
    const MutexLock hold(m_lock);
    m_events.Clear();
    CountHistory();
}

ChangeFeed::Position ChangeFeed::Add(const std::shared_ptr<TcpStream>& receiver)
{
    const MutexLock hold(m_lock);
    m_receivers.push_back(receiver);
    ++m_receiversVersion;
    return m_end;
}

void ChangeFeed::Remove(const TcpStream* receiver)
{
    const MutexLock hold(m_lock);
    std::erase_if(m_receivers, [&](const auto& known) { return known.lock().get() == receiver; });
    ++m_receiversVersion;
}

// --- events ---

bool ChangeFeed::ParamChanged(eParam_t id, unsigned int value, timeval)
try {
    AddEvent(id, {Encode(StreamNumberEvent(id, value)), ""});
    return true;
} catch (...) {
    Lose();
    return false;
}

bool ChangeFeed::ParamChanged(eParam_t id, std::string, timeval time)
try {
    if (!m_hasPasswords && IsPassword(m_config, id)) return true;
    std::string payload;
    const auto record = Encode(StreamTextEvent(m_config, id, time, m_payloadOrder, payload));
    if (payload.empty()) return false;
    AddEvent(id, {record, std::move(payload)});
    return true;
} catch (...) {
    Lose();
    return false;
}

void ChangeFeed::AddEvent(eParam_t id, Event event)
{
    const size_t bytes = event.Size();
    const bool isGathered = t_gathering && t_gathering->Holds(*this, bytes);
    const bool isScarce = allHistory > kAllHistoryBytes && m_config.GetConfigID() != 0;
    const MutexLock hold(m_lock);
    m_events.LimitHistory(isScarce ? kLittleHistoryBytes : Backlog<Event>::kHistoryBytes);
    m_events.Add(id, std::move(event), bytes - kResponseBytes);
    CountHistory();
    m_end = m_events.End();
    if (!isGathered) Wake();
}

void ChangeFeed::CountHistory()
{
    allHistory += m_events.HistoryBytes() - m_countedHistory;
    m_countedHistory = m_events.HistoryBytes();
}

/// Without the event the clients would keep an old value; the end of their connections makes them read anew.
void ChangeFeed::Lose()
{
    Print("NetworkTCPConnection::ParamChanged - an event was lost by an exception\n");
    const MutexLock hold(m_lock);
    for (const auto& receiver : m_receivers)
        if (const auto stream = receiver.lock()) stream->Abort();
}

// --- delivery ---

void ChangeFeed::Deliver()
{
    {
        const MutexLock hold(m_lock);
        if (m_receivers.size() > kFewReceivers) return Wake();
    }
    SendAll();
}

void ChangeFeed::Wake()
{
    if (m_wanted) return;
    m_wanted = true;
    m_changed.NotifyOne();
}

void ChangeFeed::SendAll()
try {
    while (SendToEach()) continue;
} catch (...) {
    Lose();
}

/// Sends the next batch to each receiver that has room. @return whether there may be more.
bool ChangeFeed::SendToEach()
{
    std::vector<std::weak_ptr<TcpStream>> receivers;
    unsigned int version = 0;
    {
        const MutexLock hold(m_lock);
        receivers = m_receivers;
        version = m_receiversVersion;
    }
    bool more = false;
    Position least = m_end;
    Batch batch;
    for (const auto& receiver : receivers) {
        const auto stream = receiver.lock();
        if (stream && stream->SendEvents(batch, least)) more = true;
    }
    const MutexLock hold(m_lock);
    if (m_receiversVersion == version) m_events.Drop(least);  // a new receiver has not been asked
    CountHistory();
    return more;
}

/// @return false at the end.
bool ChangeFeed::AwaitWork()
{
    const MutexLock hold(m_lock);
    while (!m_wanted && !m_stop) m_changed.Wait(m_lock);
    m_wanted = false;
    return !m_stop;
}

void ChangeFeed::Run()
{
    pthread_setname_np(pthread_self(), "cfg-tcp-events");
    const PeerLog limited;
    while (AwaitWork()) SendAll();
}

}  // namespace vexa::corvalis::config::access
