#include "config/access/server/network/network_udp_connection.h"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "config/access/io/connection_name.h"
#include "config/access/protocol/value_payload.h"
#include "config/access/server/denials.h"
#include "config/access/server/peer_stores.h"
#include "config/base/diagnostic_log.h"
#include "config/base/log.h"
#include "config/base/origin.h"
#include "config/config.h"
#include "config/descriptors/string_descriptor.h"
#include "config/values/config_value.h"

namespace vexa::corvalis::config::access {

namespace {

bool IsConnectionRequest(uint32_t type)
{
    return type == XCFG_CONNECT_REQUEST || type == XCFG_DISCONNECT_REQUEST;
}

bool HasPayload(uint32_t type)
{
    return type == XCFG_SET_STREAM_PARAM_REQUEST || type == XCFG_SET_DATA_REQUEST;
}

void PrintTooShort()
{
    Print("NetworkUDPConnection::ProcessDatagramMessages - insufficient message length\n");
}

/// A reply to a Get String request has that request's own type. Were one taken for a request, two servers, or
/// one that has been sent a datagram in its own name, would answer each other for ever.
bool IsLongerThanItsRecord(uint32_t type, size_t size)
{
    const size_t record = IsConnectionRequest(type) ? wire::Size<MessagePrefix>() : kRequestBytes;
    if (HasPayload(type) || size <= record) return false;
    Print("NetworkUDPConnection::ProcessDatagramMessages - \"%s\" of %zu bytes is no request\n",
          GetMessageName(type), size);
    return true;
}

std::string NameOf(Config& config, eParam_t id)
{
    if (ParamDescriptor* const descriptor = config.GetParamDescriptor(id)) return descriptor->GetName();
    return "Invalid";
}

/// The parameters that the store announces when one changes.
std::vector<eParam_t> WithDependents(Config& config, eParam_t id)
{
    std::vector<eParam_t> ids{id};
    if (ParamDescriptor* const descriptor = config.GetParamDescriptor(id))
        std::ranges::copy(descriptor->GetDependentParamIDs(), std::back_inserter(ids));
    return ids;
}

bool IsData(ParamDescriptor& descriptor)
{
    return dynamic_cast<DataDescriptor*>(&descriptor) || dynamic_cast<AlarmDescriptor*>(&descriptor);
}

}  // namespace

NetworkUDPConnection::NetworkUDPConnection(Socket& socket, std::endian payloadOrder,
                                           std::chrono::milliseconds patience)
    : m_socket(&socket), m_payloadOrder(payloadOrder), m_patience(patience)
{
}

NetworkUDPConnection::~NetworkUDPConnection()
{
    while (!m_entries.empty()) Close(m_entries.begin());
}

// --- configurations ---

/// Whatever the connection identifier.
bool NetworkUDPConnection::Entry::IsConnectedTo(const sockaddr_in& from) const
{
    if (isPermanent) return true;  // its clients are not known
    const auto client = clients.lower_bound({from.sin_addr.s_addr, from.sin_port, 0});
    return client != clients.end() && std::get<0>(client->first) == from.sin_addr.s_addr &&
           std::get<1>(client->first) == from.sin_port;
}

Traffic* NetworkUDPConnection::Entry::TrafficOf(const Client& client)
{
    const auto found = clients.find(client);
    if (found == clients.end()) return nullptr;
    found->second.lastHeard = std::chrono::steady_clock::now();
    return &found->second.traffic;
}

void NetworkUDPConnection::Entry::MakePermanent()
{
    isPermanent = true;
    for (const auto& [client, listed] : clients) kept.try_emplace(listed.Host(), listed.ShareOfHost());
    clients.clear();
}

NetworkUDPConnection::Listed::Listed(const Client& client, eConfigID_t configID, Right right, Share share)
    : m_host(std::get<0>(client)),
      m_port(std::get<1>(client)),
      m_configID(configID),
      m_right(right),
      m_share(std::move(share))
{
    gettimeofday(&m_since, nullptr);
}

void NetworkUDPConnection::Listed::AppendClients(std::vector<ClientInfo>& clients) const
{
    ClientInfo& info = clients.emplace_back();
    info.transport = "udp";
    info.address = AddressText(sockaddr_in{AF_INET, m_port, {m_host}, {}});
    info.since = m_since;
    info.configID = m_configID;
    info.right = NameOf(m_right);
    traffic.AppendTo(info);
}

// --- rights ---

/// Nothing is sent to a sender who has no right: he may be somebody else.
bool NetworkUDPConnection::Admit(const sockaddr_in& from)
{
    const auto now = std::chrono::steady_clock::now();
    if (from.sin_addr.s_addr != m_lastHost || from.sin_addr.s_addr == INADDR_ANY || now >= m_askAgain) {
        m_askAgain = now + Admission::kKnownFor;
        sockaddr_storage address{};
        memcpy(&address, &from, sizeof from);
        m_admitted = m_admission.Ask(address);
        m_lastHost = from.sin_addr.s_addr;
    }
    if (m_admitted.right != Right::kNone) return true;
    DenyPeer(Transport::kUdp, PeerAddress(from.sin_addr));
    return false;
}

bool NetworkUDPConnection::MaySet(Entry& entry, const Datagram& datagram, eParam_t id,
                                  const std::string& value)
{
    return access::MaySet(m_admitted.right, *entry.config, id) || Deny(entry, datagram, id, value);
}

bool NetworkUDPConnection::MayRead(Entry& entry, const Datagram& datagram)
{
    const eParam_t id{datagram.request.paramID};
    return access::MayRead(m_admitted.right, *entry.config, id) || Deny(entry, datagram, id, "");
}

/// @return false.
bool NetworkUDPConnection::Deny(Entry& entry, const Datagram& datagram, eParam_t id, const std::string& value)
{
    DenyRequest({Transport::kUdp, datagram.request.msgtype, m_admitted.right,
                 PeerAddress(datagram.from.sin_addr).Text(), OriginOf(datagram.from)},
                *entry.config, id, value, datagram.traffic);
    return false;
}

const std::string& NetworkUDPConnection::OriginOf(const sockaddr_in& from)
{
    if (from.sin_addr.s_addr != m_last.sin_addr.s_addr || from.sin_port != m_last.sin_port) {
        m_lastOrigin = "udp " + AddressText(from);
        m_last = from;
    }
    return m_lastOrigin;
}

size_t NetworkUDPConnection::Entry::MaxPayloadFor(const sockaddr_in& from) const
{
    return IsConnectedTo(from) ? kMaxDatagramPayload : kMaxUnconnectedFactor * kRequestBytes - kResponseBytes;
}

NetworkUDPConnection::Entry* NetworkUDPConnection::OpenEntry(eConfigID_t configID)
{
    const auto key = static_cast<uint32_t>(configID);
    const auto found = m_entries.find(key);
    if (found != m_entries.end()) return &found->second;
    if (m_entries.size() >= kMaxDatagramPeerStores && !CloseSilent()) return nullptr;
    Config* config = OpenPeerStore(configID);
    if (!config && CloseSilent()) config = OpenPeerStore(configID);
    if (!config) return nullptr;
    Entry entry;
    entry.config = config;
    entry.announcer = std::make_unique<ChangeAnnouncer>(*config, m_sender, m_payloadOrder);
    return &m_entries.emplace(key, std::move(entry)).first->second;
}

void NetworkUDPConnection::CloseIfUnused(uint32_t configID)
{
    const auto found = m_entries.find(configID);
    if (!found->second.IsConnected() && !found->second.isAnnounced) Close(found);
}

void NetworkUDPConnection::Close(std::map<uint32_t, Entry>::iterator entry)
{
    entry->second.announcer.reset();
    ClosePeerStore(entry->second.config);
    m_entries.erase(entry);
}

/// Gives up the configuration whose clients have been silent for the longest time: crashed ones, and senders
/// who are nobody, never disconnect. @return false when all have been heard of lately.
bool NetworkUDPConnection::CloseSilent()
{
    const auto when = [](const auto& entry) {
        return entry.second.isAnnounced ? std::chrono::steady_clock::time_point::max()
                                        : entry.second.lastHeard;
    };
    const auto silent = std::ranges::min_element(m_entries, {}, when);
    if (silent == m_entries.end() || !IsSilentSince(when(*silent))) return false;
    Close(silent);
    return true;
}

/// An address that is at its limit loses what it has been silent about for that long.
void NetworkUDPConnection::ForgetSilent(uint32_t host)
{
    for (auto next = m_entries.begin(); next != m_entries.end();) {
        const auto current = next++;
        Entry& entry = current->second;
        std::erase_if(entry.clients, [&](const auto& client) {
            return client.second.Host() == host && IsSilentSince(client.second.lastHeard);
        });
        if (entry.isPermanent && entry.kept.contains(host) && IsSilentSince(entry.lastHeard)) {
            entry.isPermanent = false;
            entry.kept.clear();
        }
        CloseIfUnused(current->first);
    }
}

void NetworkUDPConnection::Announce(eConfigID_t configID)
{
    if (Entry* const entry = OpenEntry(configID))
        entry->isAnnounced = true;
    else
        Print("NetworkUDPConnection::Announce - unable to connect to the config\n");
}

Config* NetworkUDPConnection::GetConfig(uint32_t configID)
{
    const auto found = m_entries.find(configID);
    if (found != m_entries.end() && found->second.IsConnected()) {
        found->second.lastHeard = std::chrono::steady_clock::now();
        return found->second.config;
    }
    Print("NetworkUDPConnection::GetConfig - ConfigID %d instance not present\n", static_cast<int>(configID));
    return nullptr;
}

// --- datagrams ---

NetworkUDPConnection::Handler NetworkUDPConnection::FindHandler(uint32_t type)
{
    switch (type) {
        case XCFG_GET_PARAM_REQUEST:
            return &NetworkUDPConnection::ProcessGetRequest;
        case XCFG_SET_PARAM_REQUEST:
            return &NetworkUDPConnection::ProcessSetRequest;
        case XCFG_GET_STREAM_PARAM_REQUEST:
            return &NetworkUDPConnection::ProcessGetStreamRequest;
        case XCFG_SET_STREAM_PARAM_REQUEST:
            return &NetworkUDPConnection::ProcessSetStreamRequest;
        case XCFG_GET_DATA_REQUEST:
            return &NetworkUDPConnection::ProcessGetDataRequest;
        case XCFG_SET_DATA_REQUEST:
            return &NetworkUDPConnection::ProcessSetDataRequest;
        default:
            return nullptr;
    }
}

void NetworkUDPConnection::ProcessMessages(const char* data, int length, const sockaddr_in& from)
{
    const auto size = static_cast<size_t>(std::max(length, 0));
    Count(Transport::kUdp, Counter::kBytesIn, size);
    if (!Admit(from)) return;
    if (size < sizeof(uint32_t)) return PrintTooShort();
    uint32_t type = 0;
    memcpy(&type, data, sizeof type);
    type = wire::NetworkOrder::Convert(type);
    const Handler handler = FindHandler(type);
    if (!handler && !IsConnectionRequest(type)) {
        Print("NetworkUDPConnection::ProcessDatagramMessages - Unknown message type \"%s\" (0x%X )\n",
              GetMessageName(type), type);
        return;
    }
    MessagePrefix prefix;
    if (!Decode(data, size, prefix)) return PrintTooShort();
    if (IsLongerThanItsRecord(type, size)) return;
    DiagnosticLog("NetworkUDPConnection::ProcessDatagramMessages - %s\n", GetMessageName(type));
    if (IsConnectionRequest(type)) Traffic::CountRequest(Transport::kUdp, type, nullptr);
    if (type == XCFG_CONNECT_REQUEST) return ProcessConnectRequest(prefix, from);
    if (type == XCFG_DISCONNECT_REQUEST) return ProcessDisconnectRequest(prefix, from);

    Datagram datagram{{}, nullptr, from, nullptr};
    if (!Decode(data, size, datagram.request)) return PrintTooShort();
    datagram.payload = data + kRequestBytes;
    if (HasPayload(type) && datagram.request.streamLength > size - kRequestBytes) return PrintTooShort();
    const auto configID = static_cast<uint32_t>(prefix.configID);
    Entry* const entry = GetConfig(configID) ? &m_entries.at(configID) : nullptr;
    if (entry) datagram.traffic = entry->TrafficOf(ClientOf(prefix, from));
    Traffic::CountRequest(Transport::kUdp, type, datagram.traffic);
    if (!entry) return;
    const vexa::OriginScope origin(&OriginOf(from));
    (this->*handler)(*entry, datagram);
}

/// The answer to a request without value, filled up with zeros.
bool NetworkUDPConnection::Confirm(const MessagePrefix& request, eMessageType_t type, unsigned int length,
                                   const sockaddr_in& to)
{
    std::array<char, kResponseBytes> datagram{};
    std::ranges::copy(Encode(Confirmation(request, type)), datagram.begin());
    Count(Transport::kUdp, Counter::kBytesOut, length);
    return m_socket->sendto(datagram.data(), length, to);
}

bool NetworkUDPConnection::Reply(XCONFIGMGR_RESPONSE_T response, const std::string& payload,
                                 const sockaddr_in& to)
{
    response.streamLength = static_cast<uint32_t>(payload.size());
    response.streamFormat = payload.empty() ? 0 : kStreamFormat;
    const std::string datagram = MessageBytes(response, payload);
    Count(Transport::kUdp, Counter::kBytesOut, datagram.size());
    return m_socket->sendto(datagram.data(), static_cast<unsigned int>(datagram.size()), to);
}

void NetworkUDPConnection::Remember(Entry& entry, const MessagePrefix& request, const sockaddr_in& from)
{
    const Client client = ClientOf(request, from);
    if (entry.isPermanent || entry.clients.contains(client)) return;
    Share share = ShareOfStores(Transport::kUdp, m_admitted, request.configID);
    if (!share) return;
    entry.clients.try_emplace(client, client, request.configID, m_admitted.right, std::move(share));
    Count(Transport::kUdp, Counter::kConnections);
}

void NetworkUDPConnection::ProcessConnectRequest(const MessagePrefix& request, const sockaddr_in& from)
{
    // Asked before, so that an address that has enough does not open another one even for a moment.
    const auto hasRoom = [&] {
        return ShareOfStores(Transport::kUdp, m_admitted, request.configID) != nullptr;
    };
    if (!hasRoom()) ForgetSilent(from.sin_addr.s_addr);
    if (!hasRoom()) {
        Count(Transport::kUdp, Counter::kRefused);
        Print("mainstay: %s has %zu configurations open, and gets no other one\n",
              PeerAddress(from.sin_addr).Text().c_str(), kMaxStoresOfAddress);
        return;
    }
    Entry* const entry = OpenEntry(request.configID);
    if (!entry) {
        Print("NetworkUDPConnection::ProcessConnectRequest - unable to connect to the config\n");
        return;
    }
    entry->lastHeard = std::chrono::steady_clock::now();
    Remember(*entry, request, from);
    if (entry->clients.size() > kMaxClients) entry->MakePermanent();
    // As long as a response with a value, for old clients that read a fixed length.
    if (!Confirm(request, XCFG_CONNECT_RESPONSE, kResponseBytes, from))
        Print("NetworkUDPConnection::ProcessConnectRequest - send failed\n");
}

void NetworkUDPConnection::ProcessDisconnectRequest(const MessagePrefix& request, const sockaddr_in& from)
{
    const auto configID = static_cast<uint32_t>(request.configID);
    if (!GetConfig(configID)) {
        Print("NetworkUDPConnection::ProcessDisconnectRequest - Unable to get ConfigManger for ConfigID %d\n",
              request.configID);
        return;
    }
    Entry& entry = m_entries.at(configID);
    if (!entry.isPermanent && entry.clients.erase(ClientOf(request, from)) == 0)
        Print("NetworkUDPConnection::ProcessDisconnectRequest - Unable to find instance to %s\n",
              GetConnectionName(request.connectionID).c_str());
    CloseIfUnused(configID);
    Confirm(request, XCFG_DISCONNECT_RESPONSE, wire::Size<XCONFIGMGR_CONNECTION_RESPONSE_T>(), from);
}

// --- numbers ---

void NetworkUDPConnection::ProcessGetRequest(Entry& entry, const Datagram& datagram)
{
    XCONFIGMGR_RESPONSE_T response = ResponseFor(datagram.request, XCFG_GET_PARAM_RESPONSE);
    if (MayRead(entry, datagram)) response.value = entry.config->Get(datagram.request.paramID);
    Reply(response, "", datagram.from);
}

void NetworkUDPConnection::ProcessSetRequest(Entry& entry, const Datagram& datagram)
{
    const XCONFIGMGR_REQUEST_T& request = datagram.request;
    Config& config = *entry.config;
    ChangeAnnouncer::OwnChange change(*entry.announcer, WithDependents(config, request.paramID));
    XCONFIGMGR_RESPONSE_T response = ResponseFor(request, XCFG_SET_PARAM_RESPONSE);
    const bool isPermitted = m_admitted.right == Right::kAdmin ||
                             MaySet(entry, datagram, request.paramID, std::to_string(request.value));
    const bool isStored = isPermitted && config.Set(request.paramID, request.value);
    if (!isStored) {
        if (isPermitted)
            Print(
                "\tNetworkUDPConnection::ProcessSetRequest - Set failed for paramID 0x%08x (%s), value %d\n",
                request.paramID, NameOf(config, request.paramID).c_str(), static_cast<int>(request.value));
        response = ErrorResponse(request, XCFG_SET_PARAM_RESPONSE, kErrorRefused);
    }
    if (access::MayRead(m_admitted.right, config, request.paramID))
        response.value = config.Get(request.paramID);
    if (!Reply(response, "", datagram.from)) {
        PrintError("NetworkUDPConnection::ProcessSetRequest - send failed");
        Print("NetworkUDPConnection::ProcessSetRequest - send failed\n");
    }
    if (!isStored) return change.AnnounceKept();
    {
        SemaphoreHelper hold(m_sender.lock);
        m_sender.Send(NumberEvent(config, request.paramID, config.Get(request.paramID), TimeOf(request)));
    }
    FireDependentParamsChangedEvents(request);
}

void NetworkUDPConnection::FireDependentParamsChangedEvents(const XCONFIGMGR_REQUEST_T& request)
{
    Config* const config = GetConfig(static_cast<uint32_t>(request.configID));
    if (!config) {
        Print("NetworkUDPConnection::FireDependentParamsChangedEvents - GetConfig returned NULL\n");
        return;
    }
    ParamDescriptor* const descriptor = config->GetParamDescriptor(request.paramID);
    if (!descriptor) {
        Print("NetworkUDPConnection::FireDependentParamsChangedEvents - GetParamDescriptor failed for %s\n",
              NameOf(*config, request.paramID).c_str());
        return;
    }
    for (const eParam_t id : descriptor->GetDependentParamIDs()) {
        SemaphoreHelper hold(m_sender.lock);
        SendCurrent(*config, id, TimeOf(request));
    }
}

/// Sends the stored value, as the event of the parameter's kind.
void NetworkUDPConnection::SendCurrent(Config& config, eParam_t id, timeval time)
{
    ParamDescriptor* const descriptor = config.GetParamDescriptor(id);
    if (!descriptor) {
        Print("NetworkUDPConnection::FireDependentParamsChangedEvents - GetParamDescriptor failed for %s\n",
              NameOf(config, id).c_str());
    } else if (IsData(*descriptor)) {
        std::string data;
        if (config.GetData(id, data))
            m_sender.Send(DataEvent(config, id, std::move(data), time));
        else
            Print("NetworkUDPConnection::FireDependentParamsChangedEvents - GetData failed for %s\n",
                  NameOf(config, id).c_str());
    } else if (descriptor->GetParamType() == eCParam_StringValue) {
        MulticastSender::Event event = TextEvent(config, id, time, m_payloadOrder);
        if (!event.payload.empty()) m_sender.Send(std::move(event));
    } else {
        m_sender.Send(NumberEvent(config, id, config.Get(id), time));
    }
}

// --- texts and data ---

/// Announces a value as the client sent it, and then the current one if another thread has stored a value
/// since.
void NetworkUDPConnection::AnnounceStream(Entry& entry, const Datagram& datagram, eMessageType_t type,
                                          const ChangeAnnouncer::OwnChange& change)
{
    const XCONFIGMGR_REQUEST_T& request = datagram.request;
    MulticastSender::Event event{ResponseFor(request, type), {datagram.payload, request.streamLength}};
    event.record.capacity = kCapacity;
    SemaphoreHelper hold(m_sender.lock);
    m_sender.Send(std::move(event));
    if (change.IsOvertaken()) SendCurrent(*entry.config, request.paramID, TimeOf(request));
}

void NetworkUDPConnection::ProcessGetStreamRequest(Entry& entry, const Datagram& datagram)
{
    const XCONFIGMGR_REQUEST_T& request = datagram.request;
    const bool isPermitted = MayRead(entry, datagram);
    std::string payload;
    if (isPermitted) payload = WritePayload(entry.config->GetSerializable(request.paramID), m_payloadOrder);
    // The request's own code: clients of this transport look for it.
    XCONFIGMGR_RESPONSE_T response = ResponseFor(request, XCFG_GET_STREAM_PARAM_REQUEST);
    if (payload.empty() || payload.size() > entry.MaxPayloadFor(datagram.from)) {
        if (isPermitted) Print("ParamChanged: Invalid serializable value (ParamID:0x%0x)\n", request.paramID);
        response = ErrorResponse(request, XCFG_GET_STREAM_PARAM_REQUEST, kErrorNoValue);
        payload.clear();
    }
    if (!Reply(response, payload, datagram.from))
        Print("NetworkUDPConnection::ProcessGetStreamRequest - sendto failed\n");
}

/// The value may name another parameter than the request, which is announced.
bool NetworkUDPConnection::SetStream(Entry& entry, const Datagram& datagram, ConfigValue* value)
{
    const eParam_t announced{datagram.request.paramID};
    if (m_admitted.right != Right::kAdmin && value)
        for (const eParam_t id : {value->GetParamID(), announced})
            if (!MaySet(entry, datagram, id, TextOf(*value))) return false;
    return DoSetRequest(entry.config, value, TimeOf(datagram.request));
}

void NetworkUDPConnection::ProcessSetStreamRequest(Entry& entry, const Datagram& datagram)
{
    const XCONFIGMGR_REQUEST_T& request = datagram.request;
    const auto object = ReadPayload(datagram.payload, request.streamLength, m_payloadOrder);
    ChangeAnnouncer::OwnChange change(*entry.announcer, WithDependents(*entry.config, request.paramID));
    if (!SetStream(entry, datagram, dynamic_cast<ConfigValue*>(object.get()))) return change.AnnounceKept();
    AnnounceStream(entry, datagram, XCFG_PARAM_STRING_CHANGED_EVENT, change);
    change.AnnounceKept(request.paramID);  // dependents come after what changed them
}

void NetworkUDPConnection::ProcessGetDataRequest(Entry& entry, const Datagram& datagram)
{
    constexpr uint32_t kErrorNoData = 1;
    std::string data;
    XCONFIGMGR_RESPONSE_T response = ResponseFor(datagram.request, XCFG_GET_DATA_RESPONSE);
    if (!MayRead(entry, datagram) || !entry.config->GetData(datagram.request.paramID, data) ||
        data.size() > entry.MaxPayloadFor(datagram.from)) {
        response = ErrorResponse(datagram.request, XCFG_GET_DATA_RESPONSE, kErrorNoData);
        data.clear();
    }
    if (!Reply(response, data, datagram.from))
        Print("NetworkUDPConnection::ProcessGetDataRequest - sendto (failed\n");
}

void NetworkUDPConnection::ProcessSetDataRequest(Entry& entry, const Datagram& datagram)
{
    const XCONFIGMGR_REQUEST_T& request = datagram.request;
    std::string data(datagram.payload, request.streamLength);
    if (m_admitted.right != Right::kAdmin &&
        !MaySet(entry, datagram, request.paramID, std::to_string(data.size()) + " bytes"))
        return;
    ChangeAnnouncer::OwnChange change(*entry.announcer, WithDependents(*entry.config, request.paramID));
    // The store calls its listeners even for data that it refused, which is no change.
    if (!SetText(*entry.config, request.paramID, data.size(),
                 [&] { return entry.config->SetData(request.paramID, data); }))
        return;
    AnnounceStream(entry, datagram, XCFG_PARAM_DATA_CHANGED_EVENT, change);
    change.AnnounceKept(request.paramID);
}

}  // namespace vexa::corvalis::config::access
