#include "device/link.h"

#include "config/access/protocol/mq_protocol.h"
#include "config/access/protocol/value_payload.h"
#include "device/config_link.h"
#include "device/tcp_link.h"
#include "device/udp_link.h"

namespace vexa {

LinkTraits TraitsOf(Transport transport)
{
    namespace net = corvalis::config::access;
    namespace mq = config::access;
    constexpr size_t kQueueText = mq::kQueueMessageBytes - mq::kQueueResponseBytes - net::kTextObjectBytes;
    switch (transport) {
        case Transport::kTcp:
            return {true, false, net::kLongestText};
        case Transport::kUdp:
            return {false, true, net::kLongestText};
        case Transport::kQueue:
            return {true, false, kQueueText};
        case Transport::kLocal:
            break;
    }
    return {true, true, std::string().max_size()};
}

std::unique_ptr<Link> MakeLink(const DeviceAddress& address, LinkEvents& events)
{
    switch (address.transport) {
        case Transport::kTcp:
            return std::make_unique<TcpLink>(address, events);
        case Transport::kUdp:
            return std::make_unique<UdpLink>(address, events);
        case Transport::kQueue:
        case Transport::kLocal:
            break;
    }
    return std::make_unique<ConfigLink>(address, events);
}

}  // namespace vexa
