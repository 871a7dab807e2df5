/// NetworkTCPConnection: one client of the TCP server.
#pragma once

#include <atomic>
#include <bit>
#include <chrono>
#include <list>
#include <memory>
#include <string>

#include "config/access/server/admission.h"
#include "config/access/server/network/network_connection.h"
#include "config/access/server/network/tcp_stream.h"
#include "config/access/server/traffic.h"
#include "config/config_event_listener.h"

class Serializable;

namespace vexa::corvalis::config::access {

/// Answers the client's requests on a thread of its own. A client that listens hears the changes of its store
/// through the store's ChangeFeed. The connection ends with the client, after a message that it cannot read,
/// and when the client takes nothing for too long; no other connection is affected.
class NetworkTCPConnection : public NetworkConnection, public ConfigEventListener {
  public:
    /// @param payloadOrder  of texts as the client reads and writes them.
    /// @param stallTimeout  as of TcpStream; also how long the client may take to connect, and to send the rest of
    /// a request that it has begun.
    /// @param admitted  what the client may do. @param share  of its address, kept as long as the connection.
    /// @param from  its address, as accept had it.
    NetworkTCPConnection(std::unique_ptr<Socket> socket, std::endian payloadOrder,
                         std::chrono::milliseconds stallTimeout, Admitted admitted, Share share,
                         const sockaddr_storage& from);
    ~NetworkTCPConnection() override;
    NetworkTCPConnection(const NetworkTCPConnection&) = delete;
    NetworkTCPConnection& operator=(const NetworkTCPConnection&) = delete;

    /// The connections of the process. Thread: any.
    static size_t Count();

    /// One event for this client alone, while it listens, whatever parameters it asked for.
    using ConfigEventListener::ParamChanged;
    bool ParamChanged(eParam_t id, unsigned int value, timeval time) override;
    /// Sends the text that the store holds now.
    bool ParamChanged(eParam_t id, std::string value, timeval time) override;

    /// Starts the connection's thread, which deletes the connection at its end.
    /// @return false, after its lines, when there is no thread: the caller still owns the connection.
    bool Start();
    /// The thread ends before its next message; a wait for one goes on. Thread: any, while the connection
    /// lives.
    void Stop() { m_stop = true; }

  private:
    struct RequestHandler;
    static const RequestHandler kHandlers[];
    static const RequestHandler* FindHandler(uint32_t type);
    static void* pthread_start(void* connection);

    void Run();
    bool ProcessMessages();
    bool ProcessConnectRequest(const XCONFIGMGR_CONNECTION_REQUEST_T& request);
    bool ProcessDisconnectRequest(const XCONFIGMGR_CONNECTION_REQUEST_T& request);
    bool ProcessAddConfigEventListenerRequest(const XCONFIGMGR_EVENT_HANDLER_REQUEST_T& request);
    bool ProcessRemoveConfigEventListenerRequest(const XCONFIGMGR_EVENT_HANDLER_REQUEST_T& request);
    bool ProcessGetRequest(const XCONFIGMGR_REQUEST_T& request);
    bool ProcessSetRequest(const XCONFIGMGR_REQUEST_T& request);
    bool ProcessGetStreamRequest(const XCONFIGMGR_REQUEST_T& request);
    bool ProcessSetStreamRequest(const XCONFIGMGR_REQUEST_T& request);

    void AppendClients(std::vector<ClientInfo>& clients) const;
    bool MaySet(uint32_t type, eParam_t id, const std::string& value);
    bool MayRead(uint32_t type, eParam_t id);
    bool Deny(uint32_t type, eParam_t id, const std::string& value);
    bool SetStream(const XCONFIGMGR_REQUEST_T& request, ConfigValue* value);
    int AwaitRequest();
    bool ReadRest(const RequestHandler& kind, char* record);
    template <class Record, auto kHandler>
    bool Process(const char* record);
    bool ReadStream(uint32_t length, std::string& payload);
    bool OpenStore(eConfigID_t configID);
    void LeaveStore();
    template <class Record>
    bool SendRecord(const Record& record);
    bool SendStreamResponse(XCONFIGMGR_RESPONSE_T& response, const std::string& payload);
    bool SendEvent(XCONFIGMGR_RESPONSE_T event, const std::string& payload);
    uint32_t ProcessID() const { return m_connectionID & 0xFFFF; }

    const std::endian m_payloadOrder;
    const unsigned int m_patience;              // milliseconds
    const std::shared_ptr<TcpStream> m_stream;  // shared with the feed that is just sending
    std::atomic<bool> m_stop = false;
    const Admitted m_admitted;
    const Share m_connectionShare;
    const ClientInfo m_peer;  // what is known of it from the start
    const std::string m_origin;
    Traffic m_traffic;

    // Of the connection's thread.
    Deadline m_requestEnd;        // of the whole Connect, then of each request once its first byte is there
    uint32_t m_connectionID = 0;  // of the last Connect Request
    Share m_storeShare;
    Config* m_config = nullptr;               // from OpenPeerStore; null before Connect
    std::atomic<eConfigID_t> m_configID = 0;  // listed by others
    std::list<eParam_t> m_params;             // the parameters that the client asked for; filters nothing
    std::string m_name;                       // of the client, for the diagnostic log

    const ListedSource m_listed{[this](auto& clients) { AppendClients(clients); }};
};

}  // namespace vexa::corvalis::config::access
