/// Events as a network server sends them, and what becomes of a connection.
#pragma once

#include <string>

#include "support/raw_peer.h"
#include "support/scripted_server.h"

constexpr eParam_t kNumber = eParamID_RegisterSave, kText = eParamID_CustomClipName;

/// A message to listeners, of the time 1000.000005.
inline std::string Event(eMessageType_t type, eParam_t id, uint32_t value, const std::string& payload = "",
                         int32_t configID = 0, uint32_t sequence = 0)
{
    net::XCONFIGMGR_REQUEST_T about;
    about.configID = configID;
    about.paramID = id;
    about.requestID = sequence;
    net::SetTime(about, {1000, 5});
    return ReplyTo(about, type, value, payload);
}

inline std::string NumberEvent(uint32_t value)
{
    return Event(XCFG_PARAM_CHANGED_EVENT, kNumber, value);
}

/// Sends events to all listeners on this host, as one server does.
class EventSender {
  public:
    EventSender() : m_socket(AF_INET, SOCK_DGRAM)
    {
        EXPECT_TRUE(m_socket.create() && m_socket.bind("127.0.0.1", 0));
    }
    void Send(const std::string& bytes, const char* to = net::kMulticastGroup)
    {
        EXPECT_TRUE(m_socket.sendto(bytes.data(), static_cast<unsigned int>(bytes.size()),
                                    Address(to, net::kMulticastPort)));
    }

  private:
    net::Socket m_socket;
};

inline void Multicast(const std::string& bytes)
{
    EventSender().Send(bytes);
}
