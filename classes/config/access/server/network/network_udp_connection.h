/// NetworkUDPConnection: all clients of the UDP server.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "config/access/server/admission.h"
#include "config/access/server/network/change_announcer.h"
#include "config/access/server/network/network_connection.h"
#include "config/access/server/traffic.h"

namespace vexa::corvalis::config::access {

/// Answers datagrams on the server's thread, and multicasts the changes of every store that is open for its
/// clients, on whichever thread they are made.
///
/// A store is open from the first Connect Request for its configuration until all clients that connected have
/// disconnected. At most kMaxDatagramPeerStores are; when another one is asked for, the one whose clients have
/// been silent for the longest time is closed, if that is an hour. Thread: one; announcements come on the threads that change the stores.
class NetworkUDPConnection : public NetworkConnection {
  public:
    /// Clients that a configuration remembers. Crashed clients never disconnect, so beyond this number it
    /// stays open for good.
    static constexpr size_t kMaxClients = 4096;

    /// Bytes of a reply, for each byte of the request, to an address that has not connected: whoever forges a
    /// sender could have much more sent to it than he sends himself.
    static constexpr size_t kMaxUnconnectedFactor = 8;

    /// How long the clients of a configuration may be silent without losing it to others.
    static constexpr std::chrono::hours kPatience{1};

    /// @param socket  borrowed: the server's, for the replies, unless AnswerThrough names another one.
    /// @param payloadOrder  of texts as the clients read and write them.
    explicit NetworkUDPConnection(Socket& socket, std::endian payloadOrder = std::endian::native,
                                  std::chrono::milliseconds patience = kPatience);
    ~NetworkUDPConnection() override;

    /// Whom it serves, and what they may do. Default: everybody, everything. Before the first datagram.
    void SetRules(std::shared_ptr<const AccessRules> rules) { m_admission = Admission(std::move(rules)); }
    /// The socket for further replies, which is borrowed.
    void AnswerThrough(Socket& socket) { m_socket = &socket; }
    /// Multicasts the changes of a configuration even when no client has connected to it, which does not
    /// count as connected. A failure prints one line.
    void Announce(eConfigID_t configID);
    /// Handles one datagram; drops a datagram that is too short, of an unknown type, or a request without payload
    /// that is longer than its record, after one line.
    /// @param data  the received bytes. @param from  gets the reply.
    void ProcessMessages(const char* data, int length, const sockaddr_in& from);
    /// The store of a configuration to which a client is connected; null after one line.
    Config* GetConfig(uint32_t configID);

  private:
    /// Address, port, connection identifier, which clients of different hosts may share.
    using Client = std::tuple<uint32_t, uint16_t, uint32_t>;
    static Client ClientOf(const MessagePrefix& request, const sockaddr_in& from)
    {
        return {from.sin_addr.s_addr, from.sin_port, request.connectionID};
    }

    /// What is listed of a client.
    class Listed {
      public:
        explicit Listed(const Client& client, eConfigID_t configID, Right right, Share share);
        Traffic traffic;
        std::chrono::steady_clock::time_point lastHeard = std::chrono::steady_clock::now();

        uint32_t Host() const { return m_host; }
        const Share& ShareOfHost() const { return m_share; }

      private:
        void AppendClients(std::vector<ClientInfo>& clients) const;

        const uint32_t m_host;
        const uint16_t m_port;
        const eConfigID_t m_configID;
        const Right m_right;
        const Share m_share;
        timeval m_since{};
        const ListedSource m_listed{[this](auto& clients) { AppendClients(clients); }};
    };

    struct Entry {
        Config* config = nullptr;  // from OpenPeerStore
        std::unique_ptr<ChangeAnnouncer> announcer;
        std::map<Client, Listed> clients;
        std::map<uint32_t, Share> kept;  // by host, of the clients that a permanent one does not remember
        bool isAnnounced = false;
        bool isPermanent = false;
        std::chrono::steady_clock::time_point lastHeard;

        bool IsConnected() const { return isPermanent || !clients.empty(); }
        bool IsConnectedTo(const sockaddr_in& from) const;
        size_t MaxPayloadFor(const sockaddr_in& from) const;
        /// Has heard of a client. @return null: it has not connected, or is not known any more.
        Traffic* TrafficOf(const Client& client);
        /// Stays open for good, without remembering its clients; their addresses keep their shares.
        void MakePermanent();
    };
    /// A datagram: the request, its payload and its sender.
    struct Datagram {
        XCONFIGMGR_REQUEST_T request;
        const char* payload;
        const sockaddr_in& from;
        Traffic* traffic;
    };

    using Handler = void (NetworkUDPConnection::*)(Entry&, const Datagram&);
    static Handler FindHandler(uint32_t type);

    void ProcessConnectRequest(const MessagePrefix& request, const sockaddr_in& from);
    void ProcessDisconnectRequest(const MessagePrefix& request, const sockaddr_in& from);
    void ProcessGetRequest(Entry& entry, const Datagram& datagram);
    void ProcessSetRequest(Entry& entry, const Datagram& datagram);
    void ProcessGetStreamRequest(Entry& entry, const Datagram& datagram);
    void ProcessSetStreamRequest(Entry& entry, const Datagram& datagram);
    void ProcessGetDataRequest(Entry& entry, const Datagram& datagram);
    void ProcessSetDataRequest(Entry& entry, const Datagram& datagram);

    bool Admit(const sockaddr_in& from);
    bool MaySet(Entry& entry, const Datagram& datagram, eParam_t id, const std::string& value);
    bool MayRead(Entry& entry, const Datagram& datagram);
    bool Deny(Entry& entry, const Datagram& datagram, eParam_t id, const std::string& value);
    bool SetStream(Entry& entry, const Datagram& datagram, ConfigValue* value);
    void Remember(Entry& entry, const MessagePrefix& request, const sockaddr_in& from);
    const std::string& OriginOf(const sockaddr_in& from);
    Entry* OpenEntry(eConfigID_t configID);
    bool CloseSilent();
    bool IsSilentSince(std::chrono::steady_clock::time_point when) const
    {
        return when <= std::chrono::steady_clock::now() - m_patience;
    }
    void ForgetSilent(uint32_t host);
    void Close(std::map<uint32_t, Entry>::iterator entry);
    void CloseIfUnused(uint32_t configID);
    void AnnounceStream(Entry& entry, const Datagram& datagram, eMessageType_t type,
                        const ChangeAnnouncer::OwnChange& change);
    void FireDependentParamsChangedEvents(const XCONFIGMGR_REQUEST_T& request);
    void SendCurrent(Config& config, eParam_t id, timeval time) VEXA_REQUIRES(m_sender.lock);
    bool Confirm(const MessagePrefix& request, eMessageType_t type, unsigned int length,
                 const sockaddr_in& to);
    bool Reply(XCONFIGMGR_RESPONSE_T response, const std::string& payload, const sockaddr_in& to);

    Socket* m_socket;
    const std::endian m_payloadOrder;
    const std::chrono::milliseconds m_patience;
    MulticastSender m_sender;  // outlives the announcers
    std::map<uint32_t, Entry> m_entries;
    Admission m_admission{nullptr};
    uint32_t m_lastHost = INADDR_ANY;                  // of the last datagram, from which none comes
    Admitted m_admitted;                               // that host
    std::chrono::steady_clock::time_point m_askAgain;  // the addresses of this machine may change
    sockaddr_in m_last{};                              // who has sent the last request
    std::string m_lastOrigin;
};

}  // namespace vexa::corvalis::config::access
