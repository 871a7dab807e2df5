#include "config/access/server/queues/queue_service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "config/access/io/connection_utilities.h"
#include "config/access/io/left_queues.h"
#include "config/access/io/message_queue.h"
#include "config/access/protocol/value_payload.h"
#include "config/access/server/admission.h"
#include "config/access/server/denials.h"
#include "config/access/server/peer_stores.h"
#include "config/access/server/queues/queue_clients.h"
#include "config/base/diagnostic_log.h"
#include "config/base/log.h"
#include "config/base/origin.h"
#include "config/config.h"
#include "config/config_event_listener.h"
#include "config/descriptors/param_descriptor.h"
#include "config/values/config_value.h"

namespace vexa::config::access {

namespace net = vexa::corvalis::config::access;

namespace {

template <class Record>
bool Decode(const char* data, size_t length, Record& record)
{
    return wire::Decode<wire::HostOrder>(data, length, record);
}

void PrintMalformed(const char* what, size_t length)
{
    Print("mainstay: dropped a message: %s (%zu bytes)\n", what, length);
}

/// @return -1, with errno; ENOENT when the queue was removed meanwhile.
mqd_t OpenOrMake()
{
    const mqd_t queue = CreateQueue(kRequestQueue, O_RDWR | O_EXCL);
    return queue == -1 && errno == EEXIST ? mq_open(kRequestQueue, O_RDWR | O_CLOEXEC) : queue;
}

/// The name of the request queue for a message: whoever has taken it is named, too. @param queue  -1: it cannot
/// be opened.
std::string NameWithOwner(mqd_t queue)
{
    struct stat status {};
    const std::string path = std::string(kQueueFolder) + kRequestQueue;
    const bool isKnown = (queue == -1 ? stat(path.c_str(), &status) : fstat(queue, &status)) == 0;
    if (!isKnown || status.st_uid == geteuid()) return kRequestQueue;
    return std::string(kRequestQueue) + " of user " + std::to_string(status.st_uid);
}

/// The type that answers a request. Data requests have codes of their own.
uint32_t AnswerTo(uint32_t type)
{
    return type >= XCFG_GET_DATA_REQUEST ? type | 1 : ResponseTo(eMessageType_t{type});
}

/// Why a queue is not served.
bool ReportObstacle(const std::string& name, bool isLocked, int error)
{
    if (isLocked)
        return Report("mainstay: the queue %s cannot be used, nor removed: %s\n", name.c_str(),
                      strerror(error));
    if (error == EWOULDBLOCK) return Report("mainstay: another daemon serves the queue %s\n", name.c_str());
    return Report("mainstay: cannot open the queue %s: %s\n", name.c_str(), strerror(error));
}

}  // namespace

/// The service itself.
class QueueService::Service : public ConfigEventListener {
  public:
    Service() = default;
    ~Service() override;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void SetRight(net::Right right) { m_right = right; }
    bool Start();

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;
    bool DataChanged(eParam_t id, std::string& data, timeval time) override;

  private:
    using Response = XCONFIGMGR_RESPONSE_T;
    using Request = XCONFIGMGR_REQUEST_T;

    bool OpenQueue();
    bool TakeOver(mqd_t queue);
    void Run(const char* name, void (Service::*step)());
    void ServeNext();
    void SendNext();
    QueueClient* Find(uint32_t connectionID);
    void Handle(const char* data, size_t length);
    void HandleConnection(const XCONFIGMGR_CONNECTION_REQUEST_T& request);
    void HandleListener(const XCONFIGMGR_CONNECTION_REQUEST_T& request);
    void HandleParameter(const char* data, size_t length);
    std::string Answer(ParamDescriptor& descriptor, const Request& request, const char* stream,
                       Response& response);
    bool SetText(const Request& request, const char* stream);
    bool IsPermitted(const Request& request, const char* stream);
    void StampLastUpdate(Response& response) const;
    void Stamp(Response& event, timeval time);
    void AddEvent(Response& event, eMessageType_t type, eParam_t id, const std::string& stream);
    bool AddStream(eMessageType_t type, eParam_t id, timeval time);

    static thread_local const Service* t_serving;  // whose requests this thread handles

    net::Right m_right = net::Right::kAdmin;
    QueueEvents m_changes;  // before m_clients, which use it
    QueueClients m_clients{m_changes};
    mqd_t m_queue = -1;
    std::vector<char> m_message;                                         // for any message of the queue
    std::unordered_map<uint32_t, std::shared_ptr<QueueClient>> m_known;  // of the thread for requests
    bool m_hasChanged = false;                                           // a value, by the request
    std::vector<pollfd> m_awaited;                                       // of SendNext
    Deadline m_nextLook{kLookMs};  // at full clients, whether they still live
    std::atomic<bool> m_stop = false;
    std::promise<void> m_ended;  // of m_thread
    std::thread m_thread, m_sender;
    Config* m_store = nullptr;               // configuration 0, from OpenPeerStore
    std::atomic<uint64_t> m_lastUpdate = 0;  // of configuration 0: seconds, then microseconds
};

thread_local const QueueService::Service* QueueService::Service::t_serving = nullptr;

QueueService::QueueService() : m_service(std::make_unique<Service>()) {}

QueueService::~QueueService() = default;

void QueueService::SetRight(net::Right right)
{
    m_service->SetRight(right);
}

bool QueueService::Start()
{
    return m_service->Start();
}

// --- life ---

QueueService::Service::~Service()
{
    m_stop = true;
    m_changes.Wake();
    if (m_thread.joinable()) {
        // Only a message ends the wait of that thread. Others may take some of them.
        const auto ended = m_ended.get_future();
        do SendMessage(m_queue, "", 0, 0, Deadline(0));
        while (ended.wait_for(std::chrono::milliseconds(10)) != std::future_status::ready);
        m_thread.join();
    }
    if (m_sender.joinable()) m_sender.join();
    if (m_store) m_store->RemoveConfigEventListener(this);
    net::ClosePeerStore(m_store);
    if (m_queue == -1) return;
    if (HasName(m_queue)) mq_unlink(kRequestQueue);  // else the name may be another daemon's by now
    m_clients.SayGoodbye();                          // its receivers look for the name
    mq_close(m_queue);
}

/// A file lock, which ends with its process, marks the queue of a running daemon. The queue of a crashed one is
/// taken over, with its clients and their pending requests; one that others may use, or that does not fit, is
/// made anew.
bool QueueService::Service::OpenQueue()
{
    constexpr int kAttempts = 10;  // others may make and remove it meanwhile
    for (int i = 0; i < kAttempts; ++i) {
        const mqd_t queue = OpenOrMake();
        if (queue == -1 && errno == ENOENT) continue;
        const int error = errno;
        const std::string name = NameWithOwner(queue);
        if (queue == -1)
            return Report("mainstay: cannot open the queue %s: %s\n", name.c_str(), strerror(error));
        const bool isLocked = LockQueue(queue);
        if (isLocked && TakeOver(queue)) return true;
        const bool isRemoved = isLocked && (!HasName(queue) || mq_unlink(kRequestQueue) == 0);
        const int obstacle = errno;
        mq_close(queue);
        if (!isRemoved) return ReportObstacle(name, isLocked, obstacle);
    }
    return Report("mainstay: the queue %s is removed again and again\n", kRequestQueue);
}

/// @return false when the locked queue cannot be used.
bool QueueService::Service::TakeOver(mqd_t queue)
{
    mq_attr attributes{};
    struct stat status {};
    if (mq_getattr(queue, &attributes) != 0 || fstat(queue, &status) != 0 || status.st_nlink == 0 ||
        status.st_uid != geteuid() || (status.st_mode & S_IRWXO) != 0 ||
        attributes.mq_msgsize < static_cast<long>(kQueueRequestBytes))
        return false;
    m_message.resize(static_cast<size_t>(attributes.mq_msgsize));
    m_queue = queue;
    return true;
}

bool QueueService::Service::Start()
{
    if (!OpenQueue()) return false;
    m_clients.SetRight(m_right);
    m_store = net::OpenPeerStore(0);
    if (!m_store) return Report("mainstay: cannot serve the queue\n");
    m_store->AddConfigEventListener(this);
    RemoveLeftQueues();
    QueueClients::SayGoodbyeToStrangers();
    m_sender = std::thread([this] { Run("cfg-mq-events", &Service::SendNext); });
    m_thread = std::thread([this] {
        Run("cfg-mq-server", &Service::ServeNext);
        m_ended.set_value();
    });
    return true;
}

void QueueService::Service::Run(const char* name, void (Service::*step)())
{
    pthread_setname_np(pthread_self(), name);
    const vexa::PeerLog limited;
    while (!m_stop) {
        try {
            (this->*step)();
        } catch (...) {
            Print("mainstay: a request was lost by an exception\n");
        }
    }
}

void QueueService::Service::ServeNext()
{
    const ssize_t length = mq_receive(m_queue, m_message.data(), m_message.size(), nullptr);
    if (length == -1 || m_stop) return;
    t_serving = this;
    try {
        Handle(m_message.data(), static_cast<size_t>(length));
    } catch (...) {
        m_clients.PassOn();
        throw;
    }
    if (std::exchange(m_hasChanged, false)) m_clients.PassOn();
}

/// Sends, or waits for a change, room for what waits, or the end.
void QueueService::Service::SendNext()
{
    if (m_clients.SendWaiting()) return;
    m_awaited.assign(1, {m_changes.Descriptor(), POLLIN, 0});
    m_clients.AppendPollEntries(m_awaited);
    const bool isAnyFull = m_awaited.size() > 1;
    if (poll(m_awaited.data(), m_awaited.size(), isAnyFull ? static_cast<int>(kLookMs) : -1) == -1)
        return;  // interrupted
    if (m_awaited[0].revents) m_changes.Clear();
    const auto hasRoom = [](const pollfd& queue) { return queue.revents != 0; };
    if (std::any_of(m_awaited.begin() + 1, m_awaited.end(), hasRoom)) m_clients.RetryFull();
    if (!isAnyFull || !m_nextLook.IsOver()) return;
    m_clients.DropGone();
    m_nextLook = Deadline(kLookMs);
}

// --- requests ---

/// A client that m_clients know; null when there is none. Without their lock, but for the first time.
QueueClient* QueueService::Service::Find(uint32_t connectionID)
{
    if (m_known.size() > QueueClients::kMaxClients) m_known.clear();  // among them some that are gone
    std::shared_ptr<QueueClient>& known = m_known[connectionID];
    if (!known || known->isGone) known = m_clients.Find(connectionID);
    if (known) return known.get();
    m_known.erase(connectionID);
    return nullptr;
}

void QueueService::Service::Handle(const char* data, size_t length)
{
    XCONFIGMGR_CONNECTION_REQUEST_T head;
    if (!Decode(data, length, head)) return PrintMalformed("too short", length);
    if (DiagnosticLogIsOn())
        DiagnosticLog("mainstay: %s from %s\n", GetMessageName(head.msgtype),
                      ConnectionUtilities::GetQueueName(head.info.connectionID).c_str());
    QueueClient* const client = Find(head.info.connectionID);
    net::Count(net::Transport::kQueue, net::Counter::kBytesIn, length);
    net::Traffic::CountRequest(net::Transport::kQueue, head.msgtype, client ? &client->traffic : nullptr);
    const std::string stranger =
        client ? "" : "queue " + ConnectionUtilities::GetQueueName(head.info.connectionID);
    const OriginScope origin(client ? &client->origin : &stranger);
    switch (head.msgtype) {
        case XCFG_CONNECT_REQUEST:
        case XCFG_DISCONNECT_REQUEST:
            return HandleConnection(head);
        case XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST:
        case XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST:
            return HandleListener(head);
        case XCFG_GET_PARAM_REQUEST:
        case XCFG_SET_PARAM_REQUEST:
        case XCFG_GET_STREAM_PARAM_REQUEST:
        case XCFG_SET_STREAM_PARAM_REQUEST:
            return HandleParameter(data, length);
        case XCFG_POPULATE_PARAM_REQUEST:
        case XCFG_GET_DATA_REQUEST:
        case XCFG_GET_DATA_RESPONSE:
        case XCFG_SET_DATA_REQUEST:
        case XCFG_SET_DATA_RESPONSE: {
            Response response;
            response.msgtype = AnswerTo(head.msgtype);
            response.info = head.info;
            response.error = kQueueErrorNotServed;
            return m_clients.Reply(head.info.connectionID, wire::Bytes<wire::HostOrder>(response));
        }
        default:
            PrintMalformed("of no known type", length);
    }
}

void QueueService::Service::HandleConnection(const XCONFIGMGR_CONNECTION_REQUEST_T& request)
{
    const uint32_t connectionID = request.info.connectionID;
    const bool connects = request.msgtype == XCFG_CONNECT_REQUEST;
    if (connects && !m_clients.Connect(connectionID)) return;
    XCONFIGMGR_CONNECTION_RESPONSE_T response;
    response.msgtype = AnswerTo(request.msgtype);
    response.info = request.info;
    m_clients.Reply(connectionID, wire::Bytes<wire::HostOrder>(response));
    if (!connects) m_clients.Disconnect(connectionID);
}

void QueueService::Service::HandleListener(const XCONFIGMGR_CONNECTION_REQUEST_T& request)
{
    const bool wanted = request.msgtype == XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST;
    Response response;
    response.msgtype = AnswerTo(request.msgtype);
    response.info = request.info;
    // Clients read the error in one place or in the other.
    if ((wanted && m_right == net::Right::kNone) || !m_clients.SetEvents(request.info.connectionID, wanted))
        response.listenerError = response.error = kQueueErrorRefused;
    m_clients.Reply(request.info.connectionID, wire::Bytes<wire::HostOrder>(response));
}

void QueueService::Service::HandleParameter(const char* data, size_t length)
{
    Request request;
    if (!Decode(data, length, request)) return PrintMalformed("a request that is too short", length);

    Response response;
    response.msgtype = AnswerTo(request.msgtype);
    response.info = request.info;
    response.paramID = request.paramID;
    std::string stream;
    // Clients of the queues have configuration 0; others would be opened for good at the word of any client.
    ParamDescriptor* const descriptor =
        request.info.configID == 0 ? m_store->GetParamDescriptor(request.paramID) : nullptr;
    const bool isWhole = request.msgtype != XCFG_SET_STREAM_PARAM_REQUEST ||
                         request.streamLength <= length - kQueueRequestBytes;
    if (descriptor && isWhole &&
        (m_right == net::Right::kAdmin || IsPermitted(request, data + kQueueRequestBytes)))
        stream = Answer(*descriptor, request, data + kQueueRequestBytes, response);
    else
        response.error = kQueueErrorRefused;
    StampLastUpdate(response);
    response.streamLength = static_cast<uint32_t>(stream.size());
    if (!stream.empty()) response.streamFormat = kQueueStreamFormat;
    m_clients.Reply(request.info.connectionID, wire::Bytes<wire::HostOrder>(response, stream));
}

/// Carries the request out. @return the stream of the response.
std::string QueueService::Service::Answer(ParamDescriptor& descriptor, const Request& request,
                                          const char* stream, Response& response)
{
    const bool isNumber = descriptor.GetParamType() != eCParam_StringValue;
    switch (request.msgtype) {
        case XCFG_GET_PARAM_REQUEST:
            if (!isNumber) response.error = kQueueErrorNoValue;
            response.value = m_store->Get(request.paramID);
            return "";
        case XCFG_SET_PARAM_REQUEST:
            if (!m_store->Set(request.paramID, request.value)) response.error = kQueueErrorRefused;
            return "";
        case XCFG_SET_STREAM_PARAM_REQUEST:
            if (!SetText(request, stream)) {
                response.error = kQueueErrorRefused;
                return "";
            }
            break;
        default:
            break;
    }
    std::string text = isNumber ? "" : net::WritePayload(m_store->GetSerializable(request.paramID));
    if (!text.empty() && text.size() <= m_clients.MaxStream(request.info.connectionID)) return text;
    // A text that was stored counts as stored even if it does not fit into the response.
    if (request.msgtype == XCFG_GET_STREAM_PARAM_REQUEST) response.error = kQueueErrorNoValue;
    return "";
}

/// What is denied is answered as an unknown parameter is.
bool QueueService::Service::IsPermitted(const Request& request, const char* stream)
{
    const eParam_t id{request.paramID};
    const bool sets = net::IsSetRequest(request.msgtype);
    if (sets ? net::MaySet(m_right, *m_store, id) : net::MayRead(m_right, *m_store, id)) return true;
    std::string value = sets ? std::to_string(request.value) : "";
    if (request.msgtype == XCFG_SET_STREAM_PARAM_REQUEST)
        net::ReadTextPayload(stream, request.streamLength, value);
    QueueClient* const client = Find(request.info.connectionID);
    const std::string name = ConnectionUtilities::GetQueueName(request.info.connectionID);
    net::DenyRequest(
        {net::Transport::kQueue, request.msgtype, m_right, name, client ? client->origin : "queue " + name},
        *m_store, id, value, client ? &client->traffic : nullptr);
    return false;
}

bool QueueService::Service::SetText(const Request& request, const char* stream)
{
    const auto object = net::ReadPayload(stream, request.streamLength);
    auto* const value = dynamic_cast<StringValue*>(object.get());
    if (!value || value->GetParamID() != request.paramID) return false;
    std::string text;
    value->Get(text);
    return m_store->Set(request.paramID, text);
}

/// The store does not report when it last changed; its events do.
void QueueService::Service::StampLastUpdate(Response& response) const
{
    const uint64_t time = m_lastUpdate;
    response.seconds = static_cast<uint32_t>(time >> 32);
    response.microseconds = static_cast<uint32_t>(time);
}

// --- events ---

void QueueService::Service::AddEvent(Response& event, eMessageType_t type, eParam_t id,
                                     const std::string& stream)
{
    event.msgtype = type;
    event.paramID = id;
    event.streamLength = static_cast<uint32_t>(stream.size());
    const bool isOwn = t_serving == this;  // PassOn follows
    m_changes.Add({id, wire::Bytes<wire::HostOrder>(event, stream)}, !isOwn);
    if (isOwn) m_hasChanged = true;
}

bool QueueService::Service::ParamChanged(eParam_t id, unsigned int value, timeval time)
{
    Response event;
    Stamp(event, time);
    if (!m_changes.AreWanted() || !net::MayRead(m_right, *m_store, id)) return true;
    event.value = value;
    AddEvent(event, XCFG_PARAM_CHANGED_EVENT, id, "");
    return true;
}

bool QueueService::Service::ParamChanged(eParam_t id, std::string, timeval time)
{
    return AddStream(XCFG_PARAM_STRING_CHANGED_EVENT, id, time);
}

bool QueueService::Service::DataChanged(eParam_t id, std::string&, timeval time)
{
    return AddStream(XCFG_PARAM_DATA_CHANGED_EVENT, id, time);
}

/// Adds the stored value, so that the last event tells the last value.
bool QueueService::Service::AddStream(eMessageType_t type, eParam_t id, timeval time)
{
    Response event;
    Stamp(event, time);
    if (!m_changes.AreWanted() || !net::MayRead(m_right, *m_store, id)) return true;
    const std::string stream = net::WritePayload(m_store->GetSerializable(id));
    if (stream.empty()) return false;
    event.streamFormat = kQueueStreamFormat;
    AddEvent(event, type, id, stream);
    return true;
}

/// The time of an event is also that of the last update.
void QueueService::Service::Stamp(Response& event, timeval time)
{
    SetTime(event, time);
    m_lastUpdate = uint64_t{event.seconds} << 32 | event.microseconds;
}

}  // namespace vexa::config::access
