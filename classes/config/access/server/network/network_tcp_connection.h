/// NetworkTCPConnection: one client of the TCP server.
#pragma once

#include <atomic>
#include <bit>
#include <list>
#include <memory>
#include <string>

#include "config/access/server/network/network_connection.h"
#include "config/access/server/network/tcp_stream.h"
#include "config/config_event_listener.h"

class Serializable;

namespace vexa::corvalis::config::access {

/// Answers the client's requests on a thread of its own and sends it the changes of its store, on the threads
/// that make them. It ends with the client, after a message that it cannot read, and when the client does not
/// read its messages; no other connection is affected.
///
/// Locks: the stream's lock orders the messages that are sent and guards the members that events read. It is
/// never held over a call into a store: a store calls ParamChanged with its listener lock held.
class NetworkTCPConnection : public NetworkConnection, public ConfigEventListener {
  public:
    /// @param payloadOrder  of texts as the client reads and writes them.
    explicit NetworkTCPConnection(std::unique_ptr<Socket> socket,
                                  std::endian payloadOrder = std::endian::native);
    ~NetworkTCPConnection() override = default;

    /// Events; they are sent while the client is registered, whatever parameters it asked for.
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

    bool ReadRest(const RequestHandler& kind, char* record);
    template <class Record, auto kHandler>
    bool Process(const char* record);
    bool ReadStream(uint32_t length, std::string& payload);
    bool OpenStore(eConfigID_t configID);
    void LeaveStore();
    void SetRegistered(bool registered) VEXA_EXCLUDES(m_stream.lock);
    bool IsRegistered() const VEXA_REQUIRES(m_stream.lock) { return m_isRegistered && !m_stream.HasFailed(); }
    template <class Record>
    bool SendRecord(const Record& record) VEXA_EXCLUDES(m_stream.lock);
    bool SendStreamResponse(XCONFIGMGR_RESPONSE_T& response, const std::string& payload)
        VEXA_REQUIRES(m_stream.lock);
    uint32_t ProcessID() const VEXA_EXCLUDES(m_stream.lock);
    XCONFIGMGR_RESPONSE_T EventFor(eMessageType_t type, eParam_t id) const VEXA_REQUIRES(m_stream.lock);

    const std::endian m_payloadOrder;
    mutable TcpStream m_stream;  // own synchronisation
    std::atomic<bool> m_stop = false;

    uint32_t m_connectionID VEXA_GUARDED_BY(m_stream.lock) = 0;  // of the last Connect Request
    bool m_isRegistered VEXA_GUARDED_BY(m_stream.lock) = false;  // whether the client wants events

    // Of the connection's thread. Events read the first two, which change only while the connection is not in
    // the store's list.
    Config* m_config = nullptr;  // from OpenPeerStore; null before Connect
    eConfigID_t m_configID = 0;
    bool m_isInStoreList = false;  // stays when the client unregisters: once per opened store is enough
    std::list<eParam_t> m_params;  // the parameters that the client asked for; filters nothing
    std::string m_name;            // of the client, for the diagnostic log
};

}  // namespace vexa::corvalis::config::access
