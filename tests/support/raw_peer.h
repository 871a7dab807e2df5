/// Clients that speak records over raw sockets. Every wait has an end: what does not come in time is missing.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "config/access/protocol/value_payload.h"
#include "config/values/config_value.h"

/// 32-bit words as they travel.
using WordList = std::vector<uint32_t>;

inline std::string NetworkBytes(const WordList& words)
{
    std::string bytes;
    for (const uint32_t word : words)
        for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(word >> shift);
    return bytes;
}

/// So many words; zeros for what is missing.
inline WordList NetworkWords(const std::string& bytes, size_t count)
{
    WordList words(count);
    memcpy(words.data(), bytes.data(), std::min(bytes.size(), 4 * count));
    for (uint32_t& word : words) word = ntohl(word);
    return words;
}

/// What stands before the payload of a reply or event.
inline WordList RecordOf(const std::string& datagram)
{
    return NetworkWords(datagram, 13);
}

/// A request of the client 0x21234, with a payload of so many bytes to come. Every word differs from what a
/// server would fill in.
inline WordList RequestWords(uint32_t type, int32_t config, uint32_t id, uint32_t value = 0,
                             uint32_t length = 0)
{
    const auto configID = static_cast<uint32_t>(config);
    return {type, 0x21234, 7, configID, 5, 4097, id, value, 11, 22, length, length ? 3072u : 0u};
}

/// The same with its payload.
inline std::string RequestBytes(uint32_t type, int32_t config, uint32_t id, const std::string& payload)
{
    return NetworkBytes(RequestWords(type, config, id, 0, static_cast<uint32_t>(payload.size()))) + payload;
}

/// A text as a payload.
inline std::string TextPayload(const std::string& text, uint32_t id, int32_t config = 0)
{
    StringValue value(config, eParam_t{id}, eCParam_StringValue, text);
    return vexa::corvalis::config::access::WritePayload(&value);
}

/// The reply to it.
inline WordList ReplyWords(uint32_t type, int32_t config, uint32_t id, uint32_t error, uint32_t value,
                           size_t length = 0)
{
    const auto configID = static_cast<uint32_t>(config), size = static_cast<uint32_t>(length);
    return {type, 0x21234, 7, configID, 5, 4097, id, error, value, 11, 22, size, size ? 3072u : 0u};
}

inline sockaddr_in Address(const char* host, int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = inet_addr(host);
    return address;
}

/// A TCP or UDP client of a server on this host.
class RawPeer {
  public:
    static constexpr int kDeadlineMs = 20'000;

    /// @param receiveBuffer  small: the server soon finds that the peer does not read. 0: the system's choice.
    explicit RawPeer(int port, int type = SOCK_STREAM, int receiveBuffer = 0)
        : m_socket(MakeSocket(type, receiveBuffer))
    {
        const int yes = 1;
        setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        const sockaddr_in address = Address("127.0.0.1", port);
        EXPECT_EQ(connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    /// From an address of this host.
    RawPeer(const char* from, int port, int type) : m_socket(MakeSocket(type, 0))
    {
        const sockaddr_in own = Address(from, 0), address = Address("127.0.0.1", port);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
        EXPECT_EQ(connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~RawPeer() { close(m_socket); }
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    /// All of it, unless the server has closed. A datagram is sent as one.
    void Send(const std::string& bytes) { send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    void Send(const WordList& words) { Send(NetworkBytes(words)); }
    /// No more requests; replies are still read.
    void EndRequests() { shutdown(m_socket, SHUT_WR); }

    /// So many bytes of a stream, or fewer at its end; one datagram.
    std::string Receive(size_t length = 65536)
    {
        std::string bytes(length, '\0');
        const ssize_t count = recv(m_socket, bytes.data(), length, MSG_WAITALL);
        bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return bytes;
    }
    /// So many words; zeros for what does not come.
    WordList ReceiveWords(size_t count) { return NetworkWords(Receive(4 * count), count); }
    /// A request and its answer.
    WordList Ask(const WordList& request, size_t count)
    {
        Send(request);
        return ReceiveWords(count);
    }
    /// Whether the server ends the connection without a further byte.
    bool IsClosed()
    {
        char byte;
        return IsReadable(kDeadlineMs) && recv(m_socket, &byte, 1, 0) <= 0;
    }
    bool IsReadable(int milliseconds)
    {
        pollfd readable{m_socket, POLLIN, 0};
        return poll(&readable, 1, milliseconds) > 0;
    }

  protected:
    static int MakeSocket(int type, int receiveBuffer)
    {
        const int made = socket(AF_INET, type | SOCK_CLOEXEC, 0);
        const timeval deadline{kDeadlineMs / 1000, 0};
        setsockopt(made, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
        if (receiveBuffer) setsockopt(made, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        return made;
    }
    /// A datagram socket that is bound, not connected.
    RawPeer(const sockaddr_in& address, int receiveBuffer) : m_socket(MakeSocket(SOCK_DGRAM, receiveBuffer))
    {
        const int yes = 1;
        setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    const int m_socket;
};

/// Hears the events of one configuration that are sent to the multicast group.
class RawEvents : private RawPeer {
  public:
    explicit RawEvents(int32_t configID) : RawPeer(Address("0.0.0.0", 63110), 8 << 20), m_configID(configID)
    {
        const ip_mreq group{{inet_addr("239.71.18.33")}, {inet_addr("127.0.0.1")}};
        EXPECT_EQ(setsockopt(m_socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group), 0);
    }
    /// The next datagram of the configuration; empty when none comes. Others, even empty ones, are passed over.
    std::string Next()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kDeadlineMs);
        do {
            std::string datagram = Receive();
            if (RecordOf(datagram)[3] == static_cast<uint32_t>(m_configID)) return datagram;
        } while (std::chrono::steady_clock::now() < end);
        return "";
    }
    /// The record of the next one; zeros when none comes.
    WordList NextWords() { return RecordOf(Next()); }

  private:
    const int32_t m_configID;
};

/// How many: of "/proc/self/fd" the open descriptors of this process, of "/proc/self/task" its threads.
inline auto EntriesOf(const char* directory)
{
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

/// Whether a promise is kept in time.
inline bool Comes(std::promise<void>& promise)
{
    constexpr std::chrono::milliseconds kDeadline(RawPeer::kDeadlineMs);
    return promise.get_future().wait_for(kDeadline) == std::future_status::ready;
}

/// Whether a condition comes true in time.
template <class Condition>
bool Eventually(const Condition& condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(RawPeer::kDeadlineMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
