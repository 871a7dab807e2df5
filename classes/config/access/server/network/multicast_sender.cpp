#include "config/access/server/network/multicast_sender.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include "config/access/protocol/value_payload.h"
#include "config/access/server/traffic.h"
#include "config/base/log.h"

namespace vexa::corvalis::config::access {

namespace {

constexpr int kSendBufferBytes = 786'432;

}  // namespace

MulticastSender::MulticastSender() : m_socket(AF_INET, SOCK_DGRAM)
{
    SemaphoreHelper::Init(lock);
    m_group.sin_family = AF_INET;
    m_group.sin_port = htons(kMulticastPort);
    m_group.sin_addr.s_addr = inet_addr(kMulticastGroup);
    if (!m_socket.create()) {
        Print("NetworkUDPConnection - failed to create multicast Socket\n");
        return;
    }
    // The address also chooses the interface.
    if (!m_socket.bind(kMulticastInterface, 0)) {
        PrintError("SocketConnect multicast");
        Print("NetworkUDPConnection - failed to bind multicast Socket\n");
        return;
    }
    m_socket.set_buffer_size(SO_SNDBUF, kSendBufferBytes);
    m_socket.set_non_blocking(false);  // non-blocking: no change of a store waits for the network
}

MulticastSender::~MulticastSender()
{
    SemaphoreHelper::Destroy(lock);
}

void MulticastSender::Send(Event event)
{
    const bool isData = event.record.msgtype == XCFG_PARAM_DATA_CHANGED_EVENT;
    if (event.payload.size() > kMaxDatagramPayload) {
        Print("NetworkUDPConnection::%s - the value is too large for an event (ParamID:0x%0x)\n",
              isData ? "DataChanged" : "ParamChanged", event.record.paramID);
        return;
    }
    if (event.record.msgtype == XCFG_PARAM_CHANGED_EVENT) event.record.requestID = m_sequence++;
    event.record.streamLength = static_cast<uint32_t>(event.payload.size());
    event.record.streamFormat = kStreamFormat;
    const std::string datagram = MessageBytes(event.record, event.payload);
    if (m_socket.sendto(datagram.data(), static_cast<unsigned int>(datagram.size()), m_group)) {
        Count(Transport::kUdp, Counter::kEventsSent);
        Count(Transport::kUdp, Counter::kBytesOut, datagram.size());
        return;
    }
    PrintError(isData ? "NetworkUDPConnection::DataChanged" : "NetworkUDPConnection::ParamChanged");
}

}  // namespace vexa::corvalis::config::access
