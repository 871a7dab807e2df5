#include "config/access/client/queues/posix_mq_factory.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>

#include "config/access/client/queues/live_clients.h"
#include "config/access/client/queues/mq_connection.h"
#include "config/access/io/connection_utilities.h"
#include "config/access/io/left_queues.h"
#include "config/access/protocol/uri.h"
#include "config/base/log.h"

namespace vexa::config::access {

namespace {

/// A daemon that is gone must not delay the end of its clients.
const std::atomic<unsigned int> kDisconnectTimeoutMs = 1000;

/// The time of a handshake. Its limit may change meanwhile. Thread: one.
class HandshakeTime {
  public:
    /// @param limit  borrowed.
    explicit HandshakeTime(const std::atomic<unsigned int>& limit) : m_limit(limit) {}

    /// What is left as of now. Prints a line for each minute that has passed.
    Deadline Left()
    {
        const auto passed = std::chrono::steady_clock::now() - m_start;
        if (passed >= m_told + std::chrono::minutes(1)) {
            m_told = std::chrono::floor<std::chrono::minutes>(passed);
            Print("PosixMQFactory - the daemon has not answered for %d minutes\n",
                  static_cast<int>(m_told.count()));
        }
        const unsigned int limit = m_limit;
        if (limit == Deadline::kNever) return Deadline(Deadline::kNever);
        const auto left =
            std::chrono::milliseconds(limit) - std::chrono::floor<std::chrono::milliseconds>(passed);
        return Deadline(static_cast<unsigned int>(std::max<long long>(left.count(), 0)));
    }
    bool IsOver() { return Left().IsOver(); }

  private:
    const std::atomic<unsigned int>& m_limit;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::chrono::minutes m_told{0};
};

XCONFIGMGR_CONNECTION_REQUEST_T HandshakeRequest(eMessageType_t type, unsigned int connectionID,
                                                 unsigned int priority, SharedExchanges& shared)
{
    XCONFIGMGR_CONNECTION_REQUEST_T request;
    request.msgtype = type;
    request.info = {connectionID, shared.nextRequestID++, 0, priority};
    return request;
}

bool Send(mqd_t queue, const XCONFIGMGR_CONNECTION_REQUEST_T& request, HandshakeTime& time)
{
    const std::string bytes = wire::Bytes<wire::HostOrder>(request);
    do {
        if (SendMessage(queue, bytes.data(), bytes.size(), request.info.priority, time.Left())) return true;
    } while (errno == ETIMEDOUT && !time.IsOver() && HasName(queue));
    return false;
}

/// @param daemon  its queue, without whose name nothing comes. @return false, with errno.
bool WaitForMessage(mqd_t daemon, mqd_t queue, HandshakeTime& time)
{
    while (!WaitForQueue(queue, POLLIN, NextLook(time.Left()))) {
        if (errno != ETIMEDOUT || time.IsOver()) return false;
        if (HasName(daemon)) continue;
        errno = EIDRM;
        return false;
    }
    return true;
}

/// The first message that is no event, and no goodbye of a daemon that has ended.
/// @param daemon  its queue. @param buffer  for any message of the queue.
bool ReceiveAnswer(mqd_t daemon, mqd_t queue, uint32_t requestID, std::vector<char>& buffer,
                   HandshakeTime& time, MQMessage& answer)
{
    while (WaitForMessage(daemon, queue, time)) {
        const ssize_t count = ReceiveNow(queue, buffer.data(), buffer.size());
        if (count == -1 && errno == EAGAIN) continue;
        if (count == -1) return false;
        answer = MQMessage::Decode(buffer.data(), static_cast<size_t>(count));
        const bool isStray = answer.msgtype == XCFG_DISCONNECT_RESPONSE && answer.info.requestID != requestID;
        if (!answer.IsEvent() && !isStray) return true;
    }
    return false;
}

/// Answers to a client that has had the same name must not look like answers to this one: the numbers jump
/// ahead, by less than half of all, so that those before count as earlier ones.
void LeaveNumbers(SharedExchanges& shared)
{
    uint32_t random = 0;
    if (getrandom(&random, sizeof random, 0) == sizeof random) shared.nextRequestID += random >> 2;
}

/// A new queue, locked. @return -1, with errno: EEXIST when another client may have the name.
mqd_t MakeResponseQueue(unsigned int connectionID, SharedExchanges& shared)
{
    const std::string name = ConnectionUtilities::GetQueueName(connectionID);
    mqd_t queue = CreateQueue(name, O_RDWR | O_EXCL);
    if (queue == -1 && errno == EEXIST) {
        LeaveNumbers(shared);
        const bool removed = RemoveIfLeft(connectionID);
        errno = EEXIST;
        if (removed) queue = CreateQueue(name, O_RDWR | O_EXCL);
    }
    if (queue == -1 || (LockQueue(queue) && HasName(queue))) return queue;
    mq_close(queue);  // another process has taken it for one that is left, and removes it
    errno = EEXIST;
    return -1;
}

/// The daemon may run as another user: the group of its own queue gives it access, whatever this process's
/// umask.
void ShareWithDaemon(mqd_t requestQueue, mqd_t responseQueue)
{
    struct stat daemon {};
    // A refusal is ignored: the Connect shows whether the permission was needed.
    if (fstat(requestQueue, &daemon) == 0 &&
        fchown(responseQueue, static_cast<uid_t>(-1), daemon.st_gid) == 0)
        static_cast<void>(fchmod(responseQueue, kQueueMode));
}

void PrintHelp()
{
    Print(
        "PosixMQFactory::Connect - If you are getting this error:\n"
        "PosixMQFactory::Connect - // You only need to do this once (per boot)\n"
        "PosixMQFactory::Connect - $ mkdir /dev/mqueue\n"
        "PosixMQFactory::Connect - $ mount -t mqueue none /dev/mqueue\n"
        "PosixMQFactory::Connect - // Do this each time you get this error\n"
        "PosixMQFactory::Connect - $ kill <your client pid>\n"
        "PosixMQFactory::Connect - $ kill <mainstay pid>\n"
        "PosixMQFactory::Connect - $ ls -la /dev/mqueue\n"
        "PosixMQFactory::Connect - $ rm /dev/mqueue/*\n"
        "PosixMQFactory::Connect - // This last command deletes the queues and gives you a fresh start\n"
        "PosixMQFactory::Connect - // To be fixed in a future release...\n"
        "PosixMQFactory::Connect - // see also: man 7 mq_overview\n");
}

}  // namespace

PosixMQFactory::PosixMQFactory() : m_shared(std::make_shared<SharedExchanges>())
{
    m_requestQueue = mq_open(kRequestQueue, O_RDWR | O_CLOEXEC);
    if (m_requestQueue != -1) return;
    PrintError("PosixMQFactory: mq_open failed");
    Print("PosixMQFactory: mq_open on request queue failed for %s\n", kRequestQueue);
    Print("PosixMQFactory: Are two copies of the mainstay running?\n");
    exit(-1);
}

PosixMQFactory::PosixMQFactory(mqd_t requestQueue)
    : m_shared(std::make_shared<SharedExchanges>()), m_requestQueue(requestQueue)
{
}

PosixMQFactory::~PosixMQFactory() = default;

unsigned int PosixMQFactory::GetPriority(const std::string& uri)
{
    constexpr unsigned int kHigh = 10;
    return vexa::uri::Option(uri, "priority") ? kHigh : 0;
}

PosixMQClient* PosixMQFactory::Connect(std::string uri)
{
    if (m_requestQueue == -1) {
        Print("PosixMQFactory::Connect: _request_queue not valid\n");
        return nullptr;
    }
    ReopenIfRemoved(kRequestQueue, m_requestQueue);  // by a daemon that has ended; else the handshake fails
    unsigned int connectionID = 0;
    const mqd_t responseQueue = OpenResponseQueue(connectionID);
    const std::string name = ConnectionUtilities::GetQueueName(connectionID);
    if (responseQueue == -1) {
        PrintError("PosixMQFactory::Connect - mq_open failed");
        Print("PosixMQFactory::Connect: mq_open on response queue %s failed\n", name.c_str());
        PrintHelp();
        return nullptr;
    }
    ShareWithDaemon(m_requestQueue, responseQueue);
    const unsigned int priority = GetPriority(uri);
    try {
        if (ConfirmConnection(m_requestQueue, responseQueue, connectionID, priority))
            return new PosixMQClient(connectionID, priority, m_requestQueue, responseQueue, m_shared, 0);
    } catch (const std::exception& error) {  // no memory
        Print("PosixMQFactory::Connect - failed to make a client: %s\n", error.what());
    }
    Print("PosixMQFactory::Connect - failed to confirm connection %s with server\n", name.c_str());
    if (HasName(responseQueue)) mq_unlink(name.c_str());
    mq_close(responseQueue);
    return nullptr;
}

/// Only the low half of a process identifier fits into a name, so another client, of this process or of
/// another one, may have it: the next number is tried then.
/// @return -1, with errno, on failure.
mqd_t PosixMQFactory::OpenResponseQueue(unsigned int& connectionID)
{
    constexpr int kAttempts = 1000;
    for (int i = 0; i < kAttempts; ++i) {
        connectionID = (static_cast<unsigned int>(getpid()) << 16) + (m_connections++ & 0xFFFF);
        const mqd_t queue = MakeResponseQueue(connectionID, *m_shared);
        if (queue != -1 || errno != EEXIST) return queue;
    }
    return -1;
}

bool PosixMQFactory::ConfirmConnection(mqd_t requestQueue, mqd_t responseQueue, unsigned int connectionID,
                                       unsigned int priority)
{
    HandshakeTime time(m_connectTimeout);
    const auto request = HandshakeRequest(XCFG_CONNECT_REQUEST, connectionID, priority, *m_shared);
    if (!Send(requestQueue, request, time)) {
        PrintError("PosixMQFactory::ConfirmConnection");
        return Report("PosixMQFactory::ConfirmConnection: mq_send failed\n");
    }
    mq_attr attributes{};
    if (mq_getattr(responseQueue, &attributes) != 0) {
        PrintError("PosixMQFactory::ConfirmConnection -  mq_getattr failed, unable to get mq_msgsize");
        return Report("PosixMQFactory::ConfirmConnection - mq_getattr failed, unable to get mq_msgsize\n");
    }
    std::vector<char> buffer;
    try {
        buffer.resize(static_cast<size_t>(attributes.mq_msgsize));
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        PrintError("PosixMQFactory::ConfirmConnection - new failed\n");
        return Report("PosixMQFactory::ConfirmConnection - new of %ld bytes failed\n",
                      static_cast<long>(attributes.mq_msgsize));
    }
    MQMessage answer;
    if (!ReceiveAnswer(requestQueue, responseQueue, request.info.requestID, buffer, time, answer)) {
        PrintError("PosixMQFactory::ConfirmConnection - mq_receive failed\n");
        return Report("PosixMQFactory::ConfirmConnection - mq_receive for connectionID %X failed\n",
                      connectionID);
    }
    if (answer.msgtype != XCFG_CONNECT_RESPONSE)
        return Report("PosixMQFactory::ConfirmConnection: unexpected msgtype == %d\n",
                      static_cast<int>(answer.msgtype));
    if (!ConnectionUtilities::IsValidResponse(request.info, answer.info))
        return Report("PosixMQFactory::ConfirmConnection: mismatched msgInfo\n");
    if (answer.listenerError == 0) return true;  // a connection response has its error there
    return Report("PosixMQFactory::ConfirmConnection: server responded with error %d\n",
                  static_cast<int>(answer.listenerError));
}

void PosixMQFactory::Disconnect(PosixMQClient* client)
{
    if (!LiveClients::Close(client)) return;
    // First, end the waits of this connection and the waits for it.
    client->Stop();
    const bool fromCallback = client->IsInCallback();
    if (!fromCallback) LiveClients::WaitUntilUnused(client);
    ConfirmDisconnect(client);
    if (HasName(client->Connection().responseQueue))
        mq_unlink(ConnectionUtilities::GetQueueName(client->ConnectionID()).c_str());
    if (fromCallback)
        LiveClients::LeaveToUsers(client);
    else
        delete client;
}

bool PosixMQFactory::ConfirmDisconnect(PosixMQClient* client)
{
    HandshakeTime time(kDisconnectTimeoutMs);
    const auto request = HandshakeRequest(XCFG_DISCONNECT_REQUEST, client->ConnectionID(),
                                          client->Connection().priority, *m_shared);
    DrainQueue(client->Connection().responseQueue);
    mq_attr attributes{};
    if (!Send(client->Connection().requestQueue, request, time) ||
        mq_getattr(client->Connection().responseQueue, &attributes) != 0)
        return false;
    std::vector<char> buffer;
    try {
        buffer.resize(static_cast<size_t>(attributes.mq_msgsize));
    } catch (const std::bad_alloc&) {
        return false;
    }
    MQMessage answer;
    return ReceiveAnswer(client->Connection().requestQueue, client->Connection().responseQueue,
                         request.info.requestID, buffer, time, answer) &&
           answer.msgtype == XCFG_DISCONNECT_RESPONSE &&
           ConnectionUtilities::IsValidResponse(request.info, answer.info) && answer.listenerError == 0;
}

}  // namespace vexa::config::access
