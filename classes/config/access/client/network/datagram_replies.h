/// DatagramReplies: replies and events of a UDP client.
#pragma once

#include <memory>
#include <optional>

#include "config/access/client/network/reply_source.h"
#include "config/access/io/socket.h"

namespace vexa::corvalis::config::access {

/// What the clients ask for, each way.
inline constexpr int kClientBufferBytes = 108'544;

/// Replies of a connected UDP socket, and the socket on which events come: the same one when it is bound for
/// multicast.
class DatagramReplies : public ReplySource {
  public:
    /// @param socket  borrowed.
    explicit DatagramReplies(Socket& socket) : m_socket(socket), m_isConnected(socket.is_connected()) {}

    bool Send(const std::string& request, const ReplyMatch& match, unsigned int timeoutMs) override;
    Outcome Await(unsigned int timeoutMs, Message& reply) override;
    Outcome AwaitFirst(char* bytes, unsigned int length, unsigned int timeoutMs) override;
    void Stop() override;
    /// An exchange without a word about its failure. @return whether the reply came.
    bool ExchangeSilently(const std::string& request, const ReplyMatch& match, unsigned int timeoutMs);

    /// Opens the socket for events of a client that has a server, once: bound to the group, so that nobody can
    /// send to it alone. @return false when that fails.
    bool OpenEventSocket(int port);
    Socket& EventSocket() { return m_eventSocket ? *m_eventSocket : m_socket; }
    /// Datagrams that the event socket had no room for.
    uint32_t LostEvents();

  private:
    void DropLateReplies();
    std::optional<Outcome> ReceiveReply(Message& reply);
    bool Accepts(const Message& message) const;

    Socket& m_socket;
    const bool m_isConnected;  // to a server; else bound for multicast
    std::unique_ptr<Socket> m_eventSocket;
    ReplyMatch m_match;
};

/// The message that a datagram holds, its payload limited to the received bytes; nothing when the datagram is
/// shorter than its record.
std::optional<Message> ReadDatagram(const char* data, size_t length);

}  // namespace vexa::corvalis::config::access
