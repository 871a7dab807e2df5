#include "device/records.h"

#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>

#include "config/access/protocol/value_payload.h"
#include "config/param_types.h"

namespace vexa {

using namespace corvalis::config::access;

namespace {

constexpr uint32_t kTextClass = 1, kTextType = eCParam_StringValue;

uint32_t NextConnectionID()
{
    static std::atomic<uint32_t> count = 0;
    return (++count << 16) | (static_cast<uint32_t>(getpid()) & 0xFFFF);
}

void AppendWord(std::string& bytes, uint32_t word, std::endian order)
{
    if (order != std::endian::native) word = wire::SwapBytes(word);
    bytes.append(reinterpret_cast<const char*>(&word), sizeof word);
}

uint32_t FirstWord(const std::string& bytes)
{
    uint32_t word = 0;
    memcpy(&word, bytes.data(), std::min(sizeof word, bytes.size()));
    return word;
}

std::endian OtherOrder()
{
    return std::endian::native == std::endian::little ? std::endian::big : std::endian::little;
}

uint32_t TypeOf(LinkRequest::Kind kind, bool isText)
{
    switch (kind) {
        case LinkRequest::Kind::kGetNumber:
            return XCFG_GET_PARAM_REQUEST;
        case LinkRequest::Kind::kGetText:
            return XCFG_GET_STREAM_PARAM_REQUEST;
        case LinkRequest::Kind::kGetData:
            return XCFG_GET_DATA_REQUEST;
        case LinkRequest::Kind::kSetData:
            return XCFG_SET_DATA_REQUEST;
        case LinkRequest::Kind::kSet:
            break;
    }
    return isText ? XCFG_SET_STREAM_PARAM_REQUEST : XCFG_SET_PARAM_REQUEST;
}

struct FreeAddresses {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

/// Connects to one address. @return false with the reason.
bool ConnectToAddress(const addrinfo& address, const Deadline& deadline, int wake, SocketFd& socket,
                      LinkFailure& failure)
{
    socket.Reset(::socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    int error = socket.Get() == -1 ? errno : 0;
    if (error == 0 && connect(socket.Get(), address.ai_addr, address.ai_addrlen) != 0) error = errno;
    if (error == EINPROGRESS) {
        const Ready ready = WaitFor(socket.Get(), POLLOUT, deadline, wake);
        if (ready != Ready::kReady) return NotReady(ready, "no answer to the connection", failure);
        socklen_t length = sizeof error;
        getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &length);
    }
    failure = {LinkFailure::Kind::kLost, strerror(error)};
    return error == 0;
}

}  // namespace

Records::Records(eConfigID_t configID) : m_configID(configID), m_connectionID(NextConnectionID()) {}

template <class Record>
Record Records::Filled(uint32_t type) const
{
    Record record;
    record.msgtype = type;
    record.connectionID = m_connectionID;
    record.configID = m_configID;
    return record;
}

std::string Records::Prefix(uint32_t type) const
{
    return MessageBytes(Filled<XCONFIGMGR_CONNECTION_REQUEST_T>(type));
}

std::string Records::Listen() const
{
    return MessageBytes(Filled<XCONFIGMGR_EVENT_HANDLER_REQUEST_T>(XCFG_ADD_CONFIG_EVENT_LISTENER_REQUEST));
}

std::string Records::Request(const LinkRequest& request, uint32_t number) const
{
    const auto* const text = std::get_if<std::string>(&request.value);
    auto record = Filled<XCONFIGMGR_REQUEST_T>(TypeOf(request.kind, text != nullptr));
    record.requestID = number;
    record.paramID = request.id;
    if (!request.IsSet()) return MessageBytes(record);
    timeval now{};
    gettimeofday(&now, nullptr);
    SetTime(record, now);
    if (!text) {
        record.value = std::get<unsigned int>(request.value);
        return MessageBytes(record);
    }
    std::string payload = *text;
    if (request.kind == LinkRequest::Kind::kSet) {
        payload.clear();
        for (const uint32_t word :
             {kTextClass, static_cast<uint32_t>(m_configID), uint32_t{request.id}, kTextType})
            AppendWord(payload, word, m_textOrder);
        payload.append(*text).push_back('\0');
        record.streamFormat = kStreamFormat;
    }
    record.streamLength = static_cast<uint32_t>(payload.size());
    return MessageBytes(record, payload);
}

std::optional<Value> Records::ValueOf(const XCONFIGMGR_RESPONSE_T& response, const std::string& payload)
{
    switch (response.msgtype) {
        case XCFG_GET_STREAM_PARAM_REQUEST:  // so a server of datagrams answers
        case XCFG_GET_STREAM_PARAM_RESPONSE:
        case XCFG_PARAM_STRING_CHANGED_EVENT:
            return TextOf(payload);
        case XCFG_GET_DATA_RESPONSE:
        case XCFG_PARAM_DATA_CHANGED_EVENT:
            return payload;
        default:
            return response.value;
    }
}

/// The class of a text is 1 in the order of the device, which nothing else tells.
std::optional<Value> Records::TextOf(const std::string& payload)
{
    if (payload.size() < kTextObjectBytes || payload.back() != '\0') return std::nullopt;
    const uint32_t first = FirstWord(payload);
    if (first != kTextClass && first != wire::SwapBytes(kTextClass)) return std::nullopt;
    m_textOrder = first == kTextClass ? std::endian::native : OtherOrder();
    const std::string text = payload.substr(kTextObjectBytes - 1);
    return std::string(text.c_str());
}

void SocketFd::Reset(int fd)
{
    if (m_fd != -1) close(m_fd);
    m_fd = fd;
}

Ready WaitFor(int fd, short events, const Deadline& deadline, int wake, int second)
{
    for (;;) {
        pollfd waits[] = {{fd, events, 0}, {wake, POLLIN, 0}, {second, POLLIN, 0}};
        const int ready = poll(waits, 3, deadline.PollTimeout());
        if (waits[1].revents != 0 && ready > 0) return Ready::kWoken;
        if (ready > 0) return Ready::kReady;
        if (ready == 0) return Ready::kTimedOut;
        if (errno != EINTR) return Ready::kReady;  // the operation itself shows the error
    }
}

bool Lost(LinkFailure& failure, std::string reason)
{
    failure = {LinkFailure::Kind::kLost, std::move(reason)};
    return false;
}

bool NotReady(Ready how, const char* what, LinkFailure& failure)
{
    failure = how == Ready::kWoken
                  ? LinkFailure{LinkFailure::Kind::kLost, "interrupted"}
                  : LinkFailure{LinkFailure::Kind::kTimedOut, std::string(what) + " in time"};
    return false;
}

/// Names have only the addresses that this host can reach; it is not asked about numeric ones, as loopback alone does not
/// count for it.
int LookUp(const std::string& host, int port, int type, addrinfo** found)
{
    addrinfo hints{};
    hints.ai_socktype = type;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    const std::string service = std::to_string(port);
    const int error = getaddrinfo(host.c_str(), service.c_str(), &hints, found);
    if (error != EAI_NONAME) return error;
    hints.ai_flags = AI_ADDRCONFIG | AI_NUMERICSERV;
    return getaddrinfo(host.c_str(), service.c_str(), &hints, found);
}

bool ConnectTo(const std::string& host, int port, int type, const Deadline& deadline, int wake,
               SocketFd& socket, LinkFailure& failure)
{
    addrinfo* found = nullptr;
    const int error = LookUp(host, port, type, &found);
    if (error != 0) {
        failure = {LinkFailure::Kind::kLost, error == EAI_SYSTEM ? strerror(errno) : gai_strerror(error)};
        return false;
    }
    const std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
    for (const addrinfo* address = found; address; address = address->ai_next)
        if (ConnectToAddress(*address, deadline, wake, socket, failure)) {
            constexpr int kOn = 1;
            if (type == SOCK_STREAM) setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
            return true;
        }
    return false;
}

}  // namespace vexa
