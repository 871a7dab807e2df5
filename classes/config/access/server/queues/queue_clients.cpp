#include "config/access/server/queues/queue_clients.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "config/access/io/connection_utilities.h"
#include "config/access/io/left_queues.h"
#include "config/access/io/message_queue.h"
#include "config/base/local_process.h"
#include "config/base/log.h"

namespace vexa::config::access {

namespace net = corvalis::config::access;
using net::Count, net::Counter, net::Transport;

namespace {

/// Requests of others are answered in between.
constexpr size_t kEventsAtATime = 16;
/// A thread that has the lock again and again, and does not take it, must not stop the events.
constexpr unsigned int kGiveWayMs = 1;

mqd_t OpenForSending(uint32_t connectionID)
{
    return mq_open(ConnectionUtilities::GetQueueName(connectionID).c_str(),
                   O_WRONLY | O_NONBLOCK | O_CLOEXEC);
}

bool Send(mqd_t queue, const std::string& message)
{
    if (!SendMessage(queue, message.data(), message.size(), 0)) return false;
    Count(Transport::kQueue, Counter::kBytesOut, message.size());
    return true;
}

void SendGoodbye(mqd_t queue, uint32_t connectionID)
{
    XCONFIGMGR_CONNECTION_RESPONSE_T goodbye;
    goodbye.msgtype = XCFG_DISCONNECT_RESPONSE;
    goodbye.info = {connectionID, kQueueUnasked, 0, 0};
    Send(queue, wire::Bytes<wire::HostOrder>(goodbye));
}

/// The lock on its queue tells which process a client is; its number tells 16 bits of it.
std::shared_ptr<QueueClient> Know(mqd_t queue, uint32_t connectionID)
{
    auto client = std::make_shared<QueueClient>();
    struct stat status {};
    fstat(queue, &status);
    const pid_t holder = LockHolder(queue);
    const pid_t process = holder > 0 ? holder : static_cast<pid_t>(connectionID >> 16);
    client->info.transport = "queue";
    client->info.address = ProcessText(process, status.st_uid);
    client->info.program = ProgramName(process);
    gettimeofday(&client->info.since, nullptr);
    client->origin = OriginOf(client->info);
    return client;
}

}  // namespace

QueueClients::Request::Request(QueueClients& clients) : m_clients(clients)
{
    ++clients.m_requests;
    clients.m_lock.Lock();
}

QueueClients::Request::~Request()
{
    --m_clients.m_requests;
    m_clients.m_lock.Unlock();
    m_clients.m_requestEnded.NotifyOne();
}

QueueClients::~QueueClients()
{
    for (auto& [connectionID, client] : m_clients) mq_close(client.queue);
}

// --- coming and going ---

bool QueueClients::Connect(uint32_t connectionID)
{
    const Request request(*this);
    const auto known = m_clients.find(connectionID);
    if (known != m_clients.end()) Drop(known);
    DropAllGone();
    return Open(connectionID) != nullptr;
}

/// @return null after one line.
QueueClients::Client* QueueClients::Open(uint32_t connectionID)
{
    const std::string name = ConnectionUtilities::GetQueueName(connectionID);
    if (m_clients.size() >= kMaxClients) {
        Count(Transport::kQueue, Counter::kRefused);
        Print("mainstay: too many clients for %s\n", name.c_str());
        return nullptr;
    }
    Client& client = m_clients[connectionID];  // first: a descriptor without an entry would be lost
    client.connectionID = connectionID;
    client.queue = OpenForSending(connectionID);
    mq_attr attributes{};
    if (client.queue == -1 || mq_getattr(client.queue, &attributes) != 0) {
        Print("mainstay: cannot open the queue %s of a client: %s\n", name.c_str(), strerror(errno));
        Drop(m_clients.find(connectionID));
        return nullptr;
    }
    client.messageBytes = static_cast<size_t>(attributes.mq_msgsize);
    client.holdsLock = IsLocked(client.queue);
    client.known = Know(client.queue, connectionID);
    Count(Transport::kQueue, Counter::kConnections);
    return &client;
}

/// A known connection, or one that an earlier daemon has known. @return null after one line.
QueueClients::Client* QueueClients::FindOrAdopt(uint32_t connectionID)
{
    const auto known = m_clients.find(connectionID);
    if (known != m_clients.end()) return &known->second;
    Client* const client = Open(connectionID);
    if (!client) return nullptr;
    SetWanted(*client, m_right != corvalis::config::access::Right::kNone);
    if (client->holdsLock) SendGoodbye(client->queue, connectionID);
    return client;
}

void QueueClients::Disconnect(uint32_t connectionID)
{
    const Request request(*this);
    const auto client = m_clients.find(connectionID);
    if (client == m_clients.end()) return;
    SetWanted(client->second, false);
    client->second.isLeaving = true;
    if (client->second.replies.empty()) Drop(client);
}

QueueClients::Clients::iterator QueueClients::Drop(Clients::iterator client)
{
    SetWanted(client->second, false);
    SetFull(client->second, false);
    if (client->second.known) client->second.known->isGone = true;
    mq_close(client->second.queue);
    return m_clients.erase(client);
}

bool QueueClients::SetEvents(uint32_t connectionID, bool wanted)
{
    const Request request(*this);
    const auto known = m_clients.find(connectionID);
    Client* const client = known == m_clients.end() ? Open(connectionID) : &known->second;
    if (client) SetWanted(*client, wanted);
    return client != nullptr;
}

void QueueClients::SetWanted(Client& client, bool wanted)
{
    if (client.wantsEvents == wanted) return;
    client.wantsEvents = wanted;
    wanted ? ++m_listeners : --m_listeners;
    m_changes.SetWanted(m_listeners > 0);
    if (!wanted) return;
    TakeChanges();  // made before
    client.position = m_events.End();
}

void QueueClients::SetFull(Client& client, bool isFull)
{
    if (client.isFull == isFull) return;
    client.isFull = isFull;
    isFull ? ++m_fullClients : --m_fullClients;
}

size_t QueueClients::MaxStream(uint32_t connectionID)
{
    const Request request(*this);
    const Client* const client = FindOrAdopt(connectionID);
    return client && client->messageBytes >= kQueueResponseBytes ? client->messageBytes - kQueueResponseBytes
                                                                 : 0;
}

std::shared_ptr<QueueClient> QueueClients::Find(uint32_t connectionID)
{
    const Request request(*this);
    const auto known = m_clients.find(connectionID);
    return known == m_clients.end() ? nullptr : known->second.known;
}

void QueueClients::AppendClients(std::vector<net::ClientInfo>& clients) const
{
    const MutexLock hold(m_lock);
    for (const auto& [connectionID, client] : m_clients) {
        net::ClientInfo& info = clients.emplace_back(client.known->info);
        client.known->traffic.AppendTo(info);
        info.right = NameOf(m_right);
        info.listens = client.wantsEvents;
        info.waitingEvents = client.wantsEvents ? m_events.End() - client.position : 0;
        info.skippedEvents = client.missed;
    }
}

// --- the end of clients ---

/// The lock of a client that has ended can be taken. Of one that never held it, only a removed queue tells.
bool QueueClients::IsGone(const Client& client)
{
    if (!HasName(client.queue)) return true;
    if (!client.holdsLock || !LockQueue(client.queue)) return false;
    mq_unlink(ConnectionUtilities::GetQueueName(client.connectionID).c_str());
    return true;
}

void QueueClients::DropGone()
{
    const MutexLock hold(m_lock);
    DropAllGone();
}

void QueueClients::DropAllGone()
{
    for (auto client = m_clients.begin(); client != m_clients.end();)
        client = IsGone(client->second) ? Drop(client) : std::next(client);
}

void QueueClients::SayGoodbye()
{
    const MutexLock hold(m_lock);
    for (const auto& [connectionID, client] : m_clients) SendGoodbye(client.queue, connectionID);
}

void QueueClients::SayGoodbyeToStrangers()
{
    for (const uint32_t connectionID : ListClientQueues()) {
        const mqd_t queue = OpenForSending(connectionID);
        if (queue == -1) continue;
        if (IsLocked(queue)) SendGoodbye(queue, connectionID);
        mq_close(queue);
    }
}

// --- sending ---

void QueueClients::Reply(uint32_t connectionID, const std::string& reply)
{
    const Request request(*this);
    Client* const client = FindOrAdopt(connectionID);
    if (client && !SendOrKeep(*client, reply))
        Print("mainstay: cannot answer %s: %s\n", ConnectionUtilities::GetQueueName(connectionID).c_str(),
              strerror(errno));
}

/// @return false, with errno, when the reply is lost.
bool QueueClients::SendOrKeep(Client& client, const std::string& reply)
{
    if (reply.size() > client.messageBytes) {
        errno = EMSGSIZE;
        return false;
    }
    TakeChanges();
    if (client.replies.empty() && SendEvents(client, m_events.End(), SIZE_MAX)) {
        if (Send(client.queue, reply)) return true;
        if (errno != EAGAIN) return false;
        SetFull(client, true);
    }
    if (client.replies.size() >= kMaxReplies) {
        errno = ENOBUFS;
        return false;
    }
    client.replies.push_back({reply, m_events.End()});
    m_changes.Wake();
    return true;
}

void QueueClients::TakeChanges()
{
    if (m_changes.IsEmpty()) return;
    for (QueueEvent event; m_changes.Take(event); m_hasNews = true) {
        const size_t bytes = event.bytes.size();
        const eParam_t id = event.id;
        event.number = m_events.End() + 1;
        m_events.Add(id, std::move(event), bytes);
    }
    const uint64_t leftOut = m_changes.TakeLeftOut();
    if (leftOut == 0) return;
    for (auto& [connectionID, client] : m_clients)
        if (client.wantsEvents) CountMissed(client, leftOut);
}

void QueueClients::PassOn()
{
    const Request request(*this);
    TakeChanges();
    const Position end = m_events.End();
    const auto waits = [end](const Clients::value_type& entry) {
        return entry.second.wantsEvents && entry.second.position < end;
    };
    if (std::any_of(m_clients.begin(), m_clients.end(), waits))
        m_changes.Wake();
    else
        DropRead();
}

bool QueueClients::SendWaiting()
{
    const MutexLock hold(m_lock);
    TakeChanges();
    if (!std::exchange(m_hasNews, false)) return false;
    try {
        SendToAll();
    } catch (...) {
        m_hasNews = true;
        throw;
    }
    DropRead();
    return m_hasNews;
}

/// While it gives way to a request, clients come and go, and there may be news for those that it has served.
void QueueClients::SendToAll()
{
    for (auto entry = m_clients.begin(); entry != m_clients.end();) {
        const uint32_t connectionID = entry->first;
        Client& client = entry->second;
        if (!client.isFull && !SendAll(client, kEventsAtATime)) m_hasNews |= !client.isFull;
        if (client.isLeaving && client.replies.empty()) Drop(entry);
        if (m_requests > 0) m_requestEnded.Wait(m_lock, Deadline(kGiveWayMs));
        entry = m_clients.upper_bound(connectionID);
    }
}

/// Replies and events in their order. @return false when something is left.
bool QueueClients::SendAll(Client& client, size_t maxEvents)
{
    while (!client.replies.empty()) {
        const WaitingReply& reply = client.replies.front();
        if (!SendEvents(client, reply.after, maxEvents)) return false;
        // One that fails for another reason than want of room could never be sent.
        if (!Send(client.queue, reply.bytes) && errno == EAGAIN) {
            SetFull(client, true);
            return false;
        }
        client.replies.pop_front();
    }
    return SendEvents(client, m_events.End(), maxEvents);
}

/// The events up to a position. @return false when some are left.
bool QueueClients::SendEvents(Client& client, Position end, size_t maxEvents)
{
    if (!client.wantsEvents || client.position >= end) return true;
    bool isDone = true, isFull = false;
    std::string message;
    const auto send = [&](const QueueEvent& event) {
        if (event.number > end) return false;
        isDone = false;
        if (maxEvents-- == 0) return false;
        isFull = !SendEvent(client, event, message);
        return isDone = !isFull;
    };
    CountMissed(client, m_events.Read(client.position, send));
    if (isFull) SetFull(client, true);
    return isDone;
}

/// @param message  overwritten. @return false when there is no room. An event that the queue cannot take is
/// passed over.
bool QueueClients::SendEvent(const Client& client, const QueueEvent& event, std::string& message)
{
    if (event.bytes.size() > client.messageBytes) return true;
    message = event.bytes;
    memcpy(message.data() + sizeof(uint32_t), &client.connectionID, sizeof client.connectionID);
    if (!Send(client.queue, message)) return errno != EAGAIN;
    Count(Transport::kQueue, Counter::kEventsSent);
    return true;
}

/// Prints one line at the first event and at every tenfold.
void QueueClients::CountMissed(Client& client, uint64_t count)
{
    const uint64_t before = client.missed;
    client.missed += count;
    if (count > 0) Count(Transport::kQueue, Counter::kEventsSkipped, count);
    if (count == 0 || (before > 0 && std::to_string(before).size() == std::to_string(client.missed).size()))
        return;
    Print("mainstay: %s lags: newer events have overtaken %llu of its own\n",
          ConnectionUtilities::GetQueueName(client.connectionID).c_str(),
          static_cast<unsigned long long>(client.missed));
}

/// Forgets the events that every client has got.
void QueueClients::DropRead()
{
    Position read = m_events.End();
    for (const auto& [connectionID, client] : m_clients)
        if (client.wantsEvents) read = std::min(read, client.position);
    m_events.Drop(read);
}

void QueueClients::AppendPollEntries(std::vector<pollfd>& descriptors)
{
    const MutexLock hold(m_lock);
    if (m_fullClients == 0) return;
    for (const auto& [connectionID, client] : m_clients)
        if (client.isFull) descriptors.push_back({client.queue, POLLOUT, 0});
}

void QueueClients::RetryFull()
{
    const MutexLock hold(m_lock);
    for (auto& [connectionID, client] : m_clients) SetFull(client, false);
    m_hasNews = true;
}

}  // namespace vexa::config::access
