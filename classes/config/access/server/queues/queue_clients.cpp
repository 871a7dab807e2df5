#include "config/access/server/queues/queue_clients.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "config/access/io/connection_utilities.h"
#include "config/access/io/message_queue.h"
#include "config/base/log.h"

namespace vexa::config::access {

namespace {

/// Whether there is a process whose identifier ends in these 16 bits, which is all that is known of it. Where
/// processes are hidden, there may be one.
bool MayProcessLive(uint32_t lowHalf)
{
    DIR* const processes = opendir("/proc");
    if (!processes || ::access("/proc/1/stat", R_OK) != 0) return true;
    bool lives = false;
    while (const dirent* const entry = readdir(processes)) {
        const long pid = strtol(entry->d_name, nullptr, 10);
        lives = lives || (pid > 0 && static_cast<uint32_t>(pid & 0xFFFF) == lowHalf);
    }
    closedir(processes);
    return lives;
}

bool HasName(mqd_t queue)
{
    struct stat status {};
    return fstat(queue, &status) != 0 || status.st_nlink > 0;
}

bool Send(mqd_t queue, const std::string& message)
{
    return SendMessage(queue, message.data(), message.size(), 0);
}

}  // namespace

QueueClients::QueueClients()
{
    SemaphoreHelper::Init(m_lock);
}

QueueClients::~QueueClients()
{
    for (auto& [connectionID, client] : m_clients) mq_close(client.queue);
    SemaphoreHelper::Destroy(m_lock);
}

bool QueueClients::Connect(uint32_t connectionID)
{
    SemaphoreHelper hold(m_lock);
    const auto known = m_clients.find(connectionID);
    if (known != m_clients.end()) Drop(known);
    DropWithoutQueue();
    return Open(connectionID);
}

bool QueueClients::Open(uint32_t connectionID)
{
    const std::string name = ConnectionUtilities::GetQueueName(connectionID);
    if (m_clients.size() >= kMaxClients) return Report("mainstay: too many clients for %s\n", name.c_str());
    Client& client = m_clients[connectionID];  // first: a descriptor without an entry would be lost
    client.queue = mq_open(name.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    mq_attr attributes{};
    if (client.queue == -1 || mq_getattr(client.queue, &attributes) != 0) {
        Print("mainstay: cannot open the queue %s of a client: %s\n", name.c_str(), strerror(errno));
        Drop(m_clients.find(connectionID));
        return false;
    }
    client.messageBytes = static_cast<size_t>(attributes.mq_msgsize);
    return true;
}

void QueueClients::Disconnect(uint32_t connectionID)
{
    SemaphoreHelper hold(m_lock);
    const auto client = m_clients.find(connectionID);
    if (client == m_clients.end()) return;
    client->second.wantsEvents = false;
    client->second.isLeaving = true;
    if (client->second.replies.empty()) Drop(client);
}

QueueClients::Clients::iterator QueueClients::Drop(Clients::iterator client)
{
    mq_close(client->second.queue);
    m_waitingReplies -= client->second.replies.size();
    return m_clients.erase(client);
}

void QueueClients::DropWithoutQueue()
{
    for (auto client = m_clients.begin(); client != m_clients.end();)
        client = HasName(client->second.queue) ? std::next(client) : Drop(client);
}

bool QueueClients::SetEvents(uint32_t connectionID, bool wanted)
{
    SemaphoreHelper hold(m_lock);
    const auto client = m_clients.find(connectionID);
    if (client == m_clients.end() && !Open(connectionID)) return false;
    m_clients[connectionID].wantsEvents = wanted;
    return true;
}

size_t QueueClients::MaxStream(uint32_t connectionID) const
{
    SemaphoreHelper hold(m_lock);
    const auto client = m_clients.find(connectionID);
    if (client == m_clients.end() || client->second.messageBytes < kQueueResponseBytes) return 0;
    return client->second.messageBytes - kQueueResponseBytes;
}

// --- sending ---

void QueueClients::Reply(uint32_t connectionID, const std::string& reply)
{
    SemaphoreHelper hold(m_lock);
    if (!m_clients.contains(connectionID) && !Open(connectionID)) return;
    if (!SendOrQueue(m_clients[connectionID], reply))
        Print("mainstay: cannot answer %s: %s\n", ConnectionUtilities::GetQueueName(connectionID).c_str(),
              strerror(errno));
}

/// @return false, with errno, when the reply is lost.
bool QueueClients::SendOrQueue(Client& client, const std::string& reply)
{
    if (reply.size() > client.messageBytes) {
        errno = EMSGSIZE;
        return false;
    }
    if (client.replies.empty()) {
        if (Send(client.queue, reply)) return true;
        if (errno != EAGAIN) return false;
    }
    if (client.replies.size() >= kMaxReplies) {
        errno = ENOBUFS;
        return false;
    }
    client.replies.push_back(reply);
    ++m_waitingReplies;
    return true;
}

bool QueueClients::HasWaitingReplies() const
{
    SemaphoreHelper hold(m_lock);
    return m_waitingReplies > 0;
}

void QueueClients::SendWaitingReplies()
{
    SemaphoreHelper hold(m_lock);
    for (auto client = m_clients.begin(); client != m_clients.end();) {
        SendWaitingReplies(client->second);
        const bool leaves = client->second.isLeaving && client->second.replies.empty();
        client = leaves ? Drop(client) : std::next(client);
    }
}

/// A reply that fails for another reason than want of room is dropped: it could never be sent.
void QueueClients::SendWaitingReplies(Client& client)
{
    while (!client.replies.empty() && (Send(client.queue, client.replies.front()) || errno != EAGAIN)) {
        client.replies.pop_front();
        --m_waitingReplies;
    }
}

void QueueClients::AppendPollEntries(std::vector<pollfd>& descriptors) const
{
    SemaphoreHelper hold(m_lock);
    for (const auto& [connectionID, client] : m_clients)
        if (!client.replies.empty()) descriptors.push_back({client.queue, POLLOUT, 0});
}

void QueueClients::SendEvent(XCONFIGMGR_RESPONSE_T event, const std::string& stream)
{
    event.streamLength = static_cast<uint32_t>(stream.size());
    SemaphoreHelper hold(m_lock);
    for (auto next = m_clients.begin(); next != m_clients.end();) {
        const auto entry = next++;
        Client& client = entry->second;
        if (!client.wantsEvents) continue;
        event.info.connectionID = entry->first;
        // A reply that waits goes first: the client needs it to go on.
        if (client.replies.empty() && Send(client.queue, wire::Bytes<wire::HostOrder>(event, stream)))
            client.lostEvents = 0;
        else if (!CountLost(*entry, client))
            Drop(entry);
    }
}

/// Prints one line at the first lost event and at every tenfold.
/// @return false when the client is gone. The queue of a process that ended is removed.
bool QueueClients::CountLost(const Clients::value_type& entry, Client& client)
{
    unsigned int step = ++client.lostEvents;
    while (step % 10 == 0) step /= 10;
    if (step != 1) return true;
    const std::string name = ConnectionUtilities::GetQueueName(entry.first);
    if (!HasName(client.queue)) return false;
    if (!MayProcessLive(entry.first >> 16)) {
        mq_unlink(name.c_str());
        return false;
    }
    Print("mainstay: %s is full or its messages too small: %u events lost\n", name.c_str(),
          client.lostEvents);
    return true;
}

}  // namespace vexa::config::access
