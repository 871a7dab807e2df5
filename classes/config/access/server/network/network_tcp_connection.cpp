#include "config/access/server/network/network_tcp_connection.h"

#include <arpa/inet.h>
#include <pthread.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>

#include "config/access/io/connection_name.h"
#include "config/access/protocol/value_payload.h"
#include "config/access/server/denials.h"
#include "config/access/server/peer_stores.h"
#include "config/base/diagnostic_log.h"
#include "config/base/local_process.h"
#include "config/base/log.h"
#include "config/base/origin.h"
#include "config/config.h"
#include "config/descriptors/registry/registry.h"
#include "config/values/config_value.h"

namespace vexa::corvalis::config::access {

namespace {

std::atomic<size_t> connections = 0;

/// What an accepted socket tells of the other end: over the network its address, on this host its process.
ClientInfo PeerOf(const Socket& socket, const sockaddr_storage& from)
{
    ClientInfo peer;
    gettimeofday(&peer.since, nullptr);
    ucred process{};
    socklen_t processLength = sizeof process;
    if (from.ss_family == AF_INET || from.ss_family == AF_INET6) {
        peer.transport = "tcp";
        peer.address = AddressText(from);
    } else if (getsockopt(socket.fd, SOL_SOCKET, SO_PEERCRED, &process, &processLength) == 0) {
        peer.transport = "unix";
        peer.address = vexa::ProcessText(process.pid, process.uid);
        peer.program = vexa::ProgramName(process.pid);
    }
    return peer;
}

}  // namespace

/// A request of the protocol: the bytes of its record, its name in messages, and its handler.
struct NetworkTCPConnection::RequestHandler {
    uint32_t type;
    uint32_t length;
    const char* name;
    bool (NetworkTCPConnection::*process)(const char* record);
    bool needsStore;
};

const NetworkTCPConnection::RequestHandler NetworkTCPConnection::kHandlers[] = {
#define HANDLER(type, record, handler, needsStore)                                             \
    {                                                                                          \
        type, wire::Size<record>(), #type,                                                     \
            &NetworkTCPConnection::Process<record, &NetworkTCPConnection::handler>, needsStore \
    }
    HANDLER(XCFG_CONNECT_REQUEST, XCONFIGMGR_CONNECTION_REQUEST_T, ProcessConnectRequest, false),
    HANDLER(XCFG_DISCONNECT_REQUEST, XCONFIGMGR_CONNECTION_REQUEST_T, ProcessDisconnectRequest, false),
    HANDLER(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST, XCONFIGMGR_EVENT_HANDLER_REQUEST_T,
            ProcessAddConfigEventListenerRequest, true),
    HANDLER(XCFG_REMOVE_CONFIG_EVENT_LISTENER_REQUEST, XCONFIGMGR_EVENT_HANDLER_REQUEST_T,
            ProcessRemoveConfigEventListenerRequest, false),
    HANDLER(XCFG_GET_PARAM_REQUEST, XCONFIGMGR_REQUEST_T, ProcessGetRequest, true),
    HANDLER(XCFG_SET_PARAM_REQUEST, XCONFIGMGR_REQUEST_T, ProcessSetRequest, true),
    HANDLER(XCFG_GET_STREAM_PARAM_REQUEST, XCONFIGMGR_REQUEST_T, ProcessGetStreamRequest, true),
    HANDLER(XCFG_SET_STREAM_PARAM_REQUEST, XCONFIGMGR_REQUEST_T, ProcessSetStreamRequest, true),
#undef HANDLER
};

const NetworkTCPConnection::RequestHandler* NetworkTCPConnection::FindHandler(uint32_t type)
{
    const auto* const found = std::ranges::find(kHandlers, type, &RequestHandler::type);
    return found == std::end(kHandlers) ? nullptr : found;
}

// --- life ---

NetworkTCPConnection::NetworkTCPConnection(std::unique_ptr<Socket> socket, std::endian payloadOrder,
                                           std::chrono::milliseconds stallTimeout, Admitted admitted,
                                           Share share, const sockaddr_storage& from)
    : m_payloadOrder(payloadOrder),
      m_patience(
          static_cast<unsigned int>(std::clamp<long long>(stallTimeout.count(), 0, Deadline::kNever - 1))),
      m_stream(std::make_shared<TcpStream>(std::move(socket), stallTimeout)),
      m_admitted(admitted),
      m_connectionShare(std::move(share)),
      m_peer(PeerOf(m_stream->Peer(), from)),
      m_origin(OriginOf(m_peer)),
      m_requestEnd(m_patience)
{
    ++connections;
    vexa::corvalis::config::access::Count(Transport::kTcp, Counter::kConnections);
}

NetworkTCPConnection::~NetworkTCPConnection()
{
    --connections;
}

void NetworkTCPConnection::AppendClients(std::vector<ClientInfo>& clients) const
{
    ClientInfo& info = clients.emplace_back(m_peer);
    info.configID = m_configID;
    info.right = NameOf(m_admitted.right);
    m_traffic.AppendTo(info);
    m_stream->AppendTo(info);
}

size_t NetworkTCPConnection::Count()
{
    return connections;
}

bool NetworkTCPConnection::Start()
{
    constexpr size_t kStackBytes = size_t{256} * 1024;  // requests nest little, and there may be many clients
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    errno = pthread_create(&thread, &attributes, pthread_start, this);
    pthread_attr_destroy(&attributes);
    if (errno == 0) return true;
    PrintError("NetworkTCPConnection::Start");
    return Report("NetworkTCPConnection::Start - pthread_create failed\n");
}

void* NetworkTCPConnection::pthread_start(void* connection)
{
    pthread_setname_np(pthread_self(), "cfg-tcp-client");
    const PeerLog limited;
    const std::unique_ptr<NetworkTCPConnection> self(static_cast<NetworkTCPConnection*>(connection));
    for (const auto part : {&NetworkTCPConnection::Run, &NetworkTCPConnection::LeaveStore}) {
        try {
            (self.get()->*part)();
        } catch (...) {
            Print("NetworkTCPConnection::pthread_start - ended by an exception\n");
        }
    }
    return nullptr;
}

/// At the end the client gets the answers to all the requests that it has sent.
void NetworkTCPConnection::Run()
{
    const vexa::OriginScope origin(&m_origin);
    const ChangeFeed::Gathering gathering;
    while (!m_stop && ProcessMessages()) {
    }
    m_stream->Finish();
}

bool NetworkTCPConnection::OpenStore(eConfigID_t configID)
{
    if (m_config && m_configID == configID) return true;
    LeaveStore();
    m_storeShare = ShareOfStores(Transport::kTcp, m_admitted, configID);
    if (!m_storeShare)
        return Report("mainstay: %s has %zu configurations open, and gets no other one\n", m_origin.c_str(),
                      kMaxStoresOfAddress);
    m_config = OpenPeerStore(configID);
    ChangeFeed::Gathering::SetStore(m_config);
    m_configID = configID;
    return m_config != nullptr;
}

void NetworkTCPConnection::LeaveStore()
{
    m_stream->StopListening();
    ChangeFeed::Gathering::SetStore(nullptr);
    ClosePeerStore(m_config);
    m_config = nullptr;
    m_storeShare.reset();
}

// --- messages ---

/// A client may be silent as long as it likes, once it has connected. @return as TcpStream::AwaitInput.
int NetworkTCPConnection::AwaitRequest()
{
    if (m_config) {
        static const Deadline forever(Deadline::kNever);
        const int found = m_stream->AwaitInput(forever);
        m_requestEnd = Deadline(m_patience);
        return found;
    }
    const int found = m_stream->AwaitInput(m_requestEnd);
    if (found == -1 && errno == ETIMEDOUT)
        Print("NetworkTCPConnection - a client that has not connected in %u ms is cut off\n", m_patience);
    return found;
}

/// One message. @return false at the end of the connection.
bool NetworkTCPConnection::ProcessMessages()
{
    char record[kRequestBytes];
    if (!m_stream->WaitForRoom()) return false;
    const int found = AwaitRequest();
    if (found == 0) return false;
    const int count = found < 0 ? found : m_stream->Read(record, sizeof(uint32_t), m_requestEnd);
    if (count != sizeof(uint32_t))
        return Report(
            "NetworkTCPConnection::ProcessMessages - error calling recv for socket message "
            "(connection pid = 0x%X)\n",
            ProcessID());
    uint32_t type = 0;
    memcpy(&type, record, sizeof type);
    type = wire::NetworkOrder::Convert(type);
    Traffic::CountRequest(Transport::kTcp, type, &m_traffic);
    const RequestHandler* const handler = FindHandler(type);
    if (!handler) {
        Print("NetworkTCPConnection::ProcessMessages - Unknown message type %d\n", static_cast<int>(type));
        return false;
    }
    if (!ReadRest(*handler, record)) return false;
    DiagnosticLog("NetworkTCPConnection::ProcessMessages - %s from %s\n", GetMessageName(type),
                  m_name.c_str());
    if (handler->needsStore && !m_config)
        return Report("NetworkTCPConnection::ProcessMessages - %s before %s (connection pid = 0x%X)\n",
                      GetMessageName(type), GetMessageName(XCFG_CONNECT_REQUEST), ProcessID());
    return (this->*handler->process)(record);
}

bool NetworkTCPConnection::ReadRest(const RequestHandler& handler, char* record)
{
    const uint32_t rest = handler.length - static_cast<uint32_t>(sizeof(uint32_t));
    if (m_stream->Read(record + sizeof(uint32_t), rest, m_requestEnd) == static_cast<int>(rest)) return true;
    return Report(
        "NetworkTCPConnection::ProcessMessages - error calling recv for %s (connection pid = 0x%X)\n",
        handler.name, ProcessID());
}

template <class Record, auto kHandler>
bool NetworkTCPConnection::Process(const char* record)
{
    Record request;
    Decode(record, wire::Size<Record>(), request);
    return (this->*kHandler)(request);
}

template <class Record>
bool NetworkTCPConnection::SendRecord(const Record& record)
{
    const auto bytes = Encode(record);
    return m_stream->Send(bytes.data(), bytes.size());
}

bool NetworkTCPConnection::ProcessConnectRequest(const XCONFIGMGR_CONNECTION_REQUEST_T& request)
{
    if (DiagnosticLogIsOn()) m_name = GetConnectionName(request.connectionID);
    m_connectionID = request.connectionID;
    m_stream->Rename(m_connectionID);
    if (!OpenStore(request.configID))
        return Report("NetworkTCPConnection::ProcessConnectRequest - unable to connect to the config\n");
    if (SendRecord(Confirmation(request, XCFG_CONNECT_RESPONSE))) return true;
    return Report("NetworkTCPConnection::ProcessConnectRequest - unable to send response\n");
}

bool NetworkTCPConnection::ProcessDisconnectRequest(const XCONFIGMGR_CONNECTION_REQUEST_T& request)
{
    if (SendRecord(Confirmation(request, XCFG_DISCONNECT_RESPONSE))) return true;
    PrintError("NetworkTCPConnection::ProcessDisconnectRequest - unable to send response");
    return Report("NetworkTCPConnection::ProcessDisconnectRequest: unable to send response\n");
}

// --- rights ---

bool NetworkTCPConnection::MaySet(uint32_t type, eParam_t id, const std::string& value)
{
    return access::MaySet(m_admitted.right, *m_config, id) || Deny(type, id, value);
}

bool NetworkTCPConnection::MayRead(uint32_t type, eParam_t id)
{
    return access::MayRead(m_admitted.right, *m_config, id) || Deny(type, id, "");
}

/// @return false.
bool NetworkTCPConnection::Deny(uint32_t type, eParam_t id, const std::string& value)
{
    const std::string address = m_peer.address.substr(0, m_peer.address.rfind(':'));
    DenyRequest({Transport::kTcp, type, m_admitted.right, address, m_origin}, *m_config, id, value,
                &m_traffic);
    return false;
}

// --- values ---

bool NetworkTCPConnection::ProcessGetRequest(const XCONFIGMGR_REQUEST_T& request)
{
    XCONFIGMGR_RESPONSE_T response = ResponseFor(request, XCFG_GET_PARAM_RESPONSE);
    if (MayRead(XCFG_GET_PARAM_REQUEST, request.paramID)) response.value = m_config->Get(request.paramID);
    if (SendRecord(response)) return true;
    return Report("NetworkTCPConnection::ProcessGetRequest - _socket->send failed\n");
}

bool NetworkTCPConnection::ProcessSetRequest(const XCONFIGMGR_REQUEST_T& request)
{
    if (m_admitted.right == Right::kAdmin ||
        MaySet(XCFG_SET_PARAM_REQUEST, request.paramID, std::to_string(request.value)))
        m_config->Set(request.paramID, request.value, TimeOf(request));
    return true;
}

bool NetworkTCPConnection::ProcessGetStreamRequest(const XCONFIGMGR_REQUEST_T& request)
{
    std::string payload;
    const bool isPermitted = MayRead(XCFG_GET_STREAM_PARAM_REQUEST, request.paramID);
    if (isPermitted) payload = WritePayload(m_config->GetSerializable(request.paramID), m_payloadOrder);
    XCONFIGMGR_RESPONSE_T response = ResponseFor(request, XCFG_GET_STREAM_PARAM_RESPONSE);
    if (payload.empty()) {
        if (isPermitted) Print("SendStreamResponse: Invalid serializable value\n");
        response = ErrorResponse(request, XCFG_GET_STREAM_PARAM_RESPONSE, kErrorNoValue);
    }
    return SendStreamResponse(response, payload);
}

bool NetworkTCPConnection::ReadStream(uint32_t length, std::string& payload)
{
    // A length beyond the protocol's limit cannot be right, so the start of the next message is unknown.
    errno = EMSGSIZE;
    if (length <= kMaxRequestPayload) {
        payload.resize(length);
        errno = 0;
        if (m_stream->Read(payload.data(), length, m_requestEnd) == static_cast<int>(length)) return true;
    }
    PrintError("NetworkTCPConnection::ProcessSetStreamRequest");
    return false;
}

bool NetworkTCPConnection::ProcessSetStreamRequest(const XCONFIGMGR_REQUEST_T& request)
{
    if (request.streamLength == 0) {
        Print("NetworkTCPConnection::ProcessSetStreamMessage - invalid streamLength\n");
        return true;
    }
    std::string payload;
    if (!ReadStream(request.streamLength, payload)) return false;
    const auto object = ReadPayload(payload.data(), payload.size(), m_payloadOrder);
    if (SetStream(request, dynamic_cast<ConfigValue*>(object.get()))) return true;
    XCONFIGMGR_RESPONSE_T response =
        ErrorResponse(request, XCFG_SET_STREAM_PARAM_RESPONSE, kErrorSetRejected);
    return SendStreamResponse(response, "");
}

/// What is stored is the parameter that the value names itself.
bool NetworkTCPConnection::SetStream(const XCONFIGMGR_REQUEST_T& request, ConfigValue* value)
{
    if (m_admitted.right != Right::kAdmin && value &&
        !MaySet(XCFG_SET_STREAM_PARAM_REQUEST, value->GetParamID(), TextOf(*value)))
        return false;
    return DoSetRequest(m_config, value, TimeOf(request));
}

/// A response or event with its payload in one piece: nothing can come between.
bool NetworkTCPConnection::SendStreamResponse(XCONFIGMGR_RESPONSE_T& response, const std::string& payload)
{
    response.streamLength = static_cast<uint32_t>(payload.size());
    response.streamFormat = payload.empty() ? 0 : kStreamFormat;
    const std::string message = MessageBytes(response, payload);
    if (m_stream->Send(message.data(), message.size())) return true;
    PrintError("SendStreamResponse: socket send failed");
    return Report("SendStreamResponse: socket send failed");
}

// --- events ---

bool NetworkTCPConnection::ProcessAddConfigEventListenerRequest(
    const XCONFIGMGR_EVENT_HANDLER_REQUEST_T& request)
{
    const eParam_t id{request.paramID};
    if (request.paramID == 0)
        m_params.clear();
    else if (IsValidParamID(id) && std::ranges::find(m_params, id) == m_params.end())
        m_params.push_back(id);

    if (m_stream->IsListening()) return true;
    auto feed = ChangeFeed::Of(*m_config, m_payloadOrder, m_admitted.right == Right::kAdmin);
    if (TcpStream::Listen(m_stream, std::move(feed), m_connectionID, m_configID)) return true;
    PrintError("NetworkTCPConnection::ProcessAddConfigEventListenerRequest");
    return false;
}

bool NetworkTCPConnection::ProcessRemoveConfigEventListenerRequest(
    const XCONFIGMGR_EVENT_HANDLER_REQUEST_T& request)
{
    const auto response = Encode(Confirmation(request, XCFG_REMOVE_CONFIG_EVENT_LISTENER_RESPONSE));
    if (m_stream->SendLast(response.data(), response.size())) return true;
    return Report(
        "NetworkTCPConnection::ProcessRemoveConfigEventListenerRequest - Unable to send response!\n");
}

bool NetworkTCPConnection::ParamChanged(eParam_t id, unsigned int value, timeval)
{
    if (SendEvent(StreamNumberEvent(id, value), "")) return true;
    PrintError("NetworkTCPConnection::ParamChanged - unable to send event to socket");
    return false;
}

bool NetworkTCPConnection::ParamChanged(eParam_t id, std::string, timeval time)
{
    if (!access::MayRead(m_admitted.right, *m_config, id)) return true;
    std::string payload;
    const XCONFIGMGR_RESPONSE_T event = StreamTextEvent(*m_config, id, time, m_payloadOrder, payload);
    if (payload.empty() || SendEvent(event, payload)) return true;
    Stop();
    return Report(
        "NetworkTCPConnection::ParamChanged - call to SendStreamResponse failed, unable to send event to "
        "%d\n",
        static_cast<int>(m_connectionID));
}

bool NetworkTCPConnection::SendEvent(XCONFIGMGR_RESPONSE_T event, const std::string& payload)
{
    if (!m_stream->IsListening()) return true;
    event.connectionID = m_connectionID;
    event.configID = m_configID;
    const std::string message = MessageBytes(event, payload);
    return m_stream->Send(message.data(), message.size());
}

}  // namespace vexa::corvalis::config::access
