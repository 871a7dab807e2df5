#include "config/access/server/queues/queue_service.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "config/access/io/connection_utilities.h"
#include "config/access/io/message_queue.h"
#include "config/access/protocol/value_payload.h"
#include "config/access/server/peer_stores.h"
#include "config/access/server/queues/queue_clients.h"
#include "config/base/diagnostic_log.h"
#include "config/base/log.h"
#include "config/config.h"
#include "config/config_event_listener.h"
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

/// The type that answers a request. Data requests have codes of their own.
uint32_t AnswerTo(uint32_t type)
{
    return type >= XCFG_GET_DATA_REQUEST ? type | 1 : ResponseTo(eMessageType_t{type});
}

}  // namespace

/// The service itself.
class QueueService::Service : public ConfigEventListener {
  public:
    Service() = default;
    ~Service() override;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    bool Start();

    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;
    bool DataChanged(eParam_t id, std::string& data, timeval time) override;

  private:
    using Response = XCONFIGMGR_RESPONSE_T;
    using Request = XCONFIGMGR_REQUEST_T;

    bool OpenQueue();
    void Run();
    ssize_t ReceiveNext();
    void Handle(const char* data, size_t length);
    void HandleConnection(const XCONFIGMGR_CONNECTION_REQUEST_T& request);
    void HandleListener(const XCONFIGMGR_CONNECTION_REQUEST_T& request);
    void HandleParameter(const char* data, size_t length);
    std::string Answer(Config& config, const Request& request, const char* stream, Response& response);
    static bool SetText(Config& config, const Request& request, const char* stream);
    void SendEvent(Response& event, eMessageType_t type, eParam_t id, timeval time,
                   const std::string& stream);
    bool SendStream(eMessageType_t type, eParam_t id, timeval time);
    void StampLastUpdate(Response& response) const;

    QueueClients m_clients;
    mqd_t m_queue = -1;
    std::vector<char> m_message;  // for any message of the queue
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
    Config* m_store = nullptr;               // configuration 0, from OpenPeerStore
    std::atomic<uint64_t> m_lastUpdate = 0;  // of configuration 0: seconds, then microseconds
};

QueueService::QueueService() : m_service(std::make_unique<Service>()) {}

QueueService::~QueueService() = default;

bool QueueService::Start()
{
    return m_service->Start();
}

// --- life ---

QueueService::Service::~Service()
{
    if (m_thread.joinable()) {
        m_stop = true;
        // Wakes the thread; a full queue keeps it awake anyway.
        SendMessage(m_queue, "", 0, 0, Deadline(0));
        m_thread.join();
    }
    if (m_store) m_store->RemoveConfigEventListener(this);
    net::ClosePeerStore(m_store);
    if (m_queue == -1) return;
    mq_unlink(kRequestQueue);
    mq_close(m_queue);
}

/// The queue of a crashed daemon is taken over, with its clients and their pending requests. A file lock,
/// which ends with its process, marks the queue of a running daemon.
bool QueueService::Service::OpenQueue()
{
    const mqd_t queue = CreateQueue(kRequestQueue, O_RDWR);
    mq_attr attributes{};
    struct stat status {};
    if (queue == -1 || flock(queue, LOCK_EX | LOCK_NB) != 0 || mq_getattr(queue, &attributes) != 0 ||
        fstat(queue, &status) != 0) {
        if (queue != -1 && errno == EWOULDBLOCK)
            Print("mainstay: another daemon serves the queue %s\n", kRequestQueue);
        else
            Print("mainstay: cannot open the queue %s: %s\n", kRequestQueue, strerror(errno));
        if (queue != -1) mq_close(queue);
        return false;
    }
    // A queue without a name was removed meanwhile, by a daemon that ended.
    if (status.st_nlink > 0 && attributes.mq_msgsize >= static_cast<long>(kQueueRequestBytes)) {
        m_queue = queue;
        m_message.resize(static_cast<size_t>(attributes.mq_msgsize));
        return true;
    }
    if (status.st_nlink > 0)
        mq_unlink(kRequestQueue);  // made by another program, for messages that are too small
    mq_close(queue);
    return OpenQueue();
}

bool QueueService::Service::Start()
{
    if (!OpenQueue()) return false;
    m_store = net::OpenPeerStore(0);
    if (!m_store) return Report("mainstay: cannot serve the queue\n");
    m_store->AddConfigEventListener(this);
    m_thread = std::thread([this] {
        pthread_setname_np(pthread_self(), "cfg-mq-server");
        const vexa::PeerLog limited;
        Run();
    });
    return true;
}

void QueueService::Service::Run()
{
    while (!m_stop) {
        try {
            const ssize_t length = ReceiveNext();
            if (length >= 0 && !m_stop) Handle(m_message.data(), static_cast<size_t>(length));
        } catch (...) {
            Print("mainstay: a request was lost by an exception\n");
        }
    }
}

/// @return the size of the next request; -1 when there is none yet.
ssize_t QueueService::Service::ReceiveNext()
{
    if (!m_clients.HasWaitingReplies())
        return mq_receive(m_queue, m_message.data(), m_message.size(), nullptr);
    std::vector<pollfd> descriptors{{m_queue, POLLIN, 0}};
    m_clients.AppendPollEntries(descriptors);
    if (poll(descriptors.data(), descriptors.size(), -1) == -1) return -1;  // interrupted
    m_clients.SendWaitingReplies();
    return ReceiveNow(m_queue, m_message.data(), m_message.size());
}

// --- requests ---

void QueueService::Service::Handle(const char* data, size_t length)
{
    XCONFIGMGR_CONNECTION_REQUEST_T head;
    if (!Decode(data, length, head)) return PrintMalformed("too short", length);
    if (DiagnosticLogIsOn())
        DiagnosticLog("mainstay: %s from %s\n", GetMessageName(head.msgtype),
                      ConnectionUtilities::GetQueueName(head.info.connectionID).c_str());
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
    if (!m_clients.SetEvents(request.info.connectionID, wanted))
        response.listenerError = response.error = kQueueErrorRefused;
    m_clients.Reply(request.info.connectionID, wire::Bytes<wire::HostOrder>(response));
}

void QueueService::Service::HandleParameter(const char* data, size_t length)
{
    Request request;
    if (!Decode(data, length, request)) return PrintMalformed("a request that is too short", length);
    if (request.streamLength > length - kQueueRequestBytes)
        return PrintMalformed("a request with less stream than it says", length);

    Response response;
    response.msgtype = AnswerTo(request.msgtype);
    response.info = request.info;
    response.paramID = request.paramID;
    std::string stream;
    // Clients of the queues have configuration 0; others would be opened for good at the word of any client.
    if (request.info.configID == 0 && m_store->GetParamDescriptor(request.paramID)) {
        stream = Answer(*m_store, request, data + kQueueRequestBytes, response);
    } else {
        response.error = kQueueErrorRefused;
    }
    StampLastUpdate(response);
    response.streamLength = static_cast<uint32_t>(stream.size());
    if (!stream.empty()) response.streamFormat = kQueueStreamFormat;
    m_clients.Reply(request.info.connectionID, wire::Bytes<wire::HostOrder>(response, stream));
}

/// Carries the request out. @return the stream of the response.
std::string QueueService::Service::Answer(Config& config, const Request& request, const char* stream,
                                          Response& response)
{
    switch (request.msgtype) {
        case XCFG_GET_PARAM_REQUEST:
            response.value = config.Get(request.paramID);
            return "";
        case XCFG_SET_PARAM_REQUEST:
            if (!config.Set(request.paramID, request.value)) response.error = kQueueErrorRefused;
            return "";
        case XCFG_SET_STREAM_PARAM_REQUEST:
            if (!SetText(config, request, stream)) {
                response.error = kQueueErrorRefused;
                return "";
            }
            break;
        default:
            break;
    }
    std::string text = net::WritePayload(config.GetSerializable(request.paramID));
    if (!text.empty() && text.size() <= m_clients.MaxStream(request.info.connectionID)) return text;
    // A text that was stored counts as stored even if it does not fit into the response.
    if (request.msgtype == XCFG_GET_STREAM_PARAM_REQUEST) response.error = kQueueErrorNoValue;
    return "";
}

bool QueueService::Service::SetText(Config& config, const Request& request, const char* stream)
{
    const auto object = net::ReadPayload(stream, request.streamLength);
    auto* const value = dynamic_cast<StringValue*>(object.get());
    if (!value || value->GetParamID() != request.paramID) return false;
    std::string text;
    value->Get(text);
    return config.Set(request.paramID, text);
}

// --- events ---

/// The store does not report when it last changed; its events do.
void QueueService::Service::StampLastUpdate(Response& response) const
{
    const uint64_t time = m_lastUpdate;
    response.seconds = static_cast<uint32_t>(time >> 32);
    response.microseconds = static_cast<uint32_t>(time);
}

void QueueService::Service::SendEvent(Response& event, eMessageType_t type, eParam_t id, timeval time,
                                      const std::string& stream)
{
    event.msgtype = type;
    event.paramID = id;
    SetTime(event, time);
    m_lastUpdate = uint64_t{event.seconds} << 32 | event.microseconds;
    m_clients.SendEvent(event, stream);
}

bool QueueService::Service::ParamChanged(eParam_t id, unsigned int value, timeval time)
{
    Response event;
    event.value = value;
    SendEvent(event, XCFG_PARAM_CHANGED_EVENT, id, time, "");
    return true;
}

bool QueueService::Service::ParamChanged(eParam_t id, std::string, timeval time)
{
    return SendStream(XCFG_PARAM_STRING_CHANGED_EVENT, id, time);
}

bool QueueService::Service::DataChanged(eParam_t id, std::string&, timeval time)
{
    return SendStream(XCFG_PARAM_DATA_CHANGED_EVENT, id, time);
}

/// Sends the stored value, so that the last event tells the last value.
bool QueueService::Service::SendStream(eMessageType_t type, eParam_t id, timeval time)
{
    const std::string stream = net::WritePayload(m_store->GetSerializable(id));
    if (stream.empty()) return false;
    Response event;
    event.streamFormat = kQueueStreamFormat;
    SendEvent(event, type, id, time, stream);
    return true;
}

}  // namespace vexa::config::access
