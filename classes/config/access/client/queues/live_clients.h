/// LiveClients: which message-queue clients exist, and who uses them.
#pragma once

#include <utility>

namespace vexa::config::access {

class PosixMQClient;

/// The system starts threads for clients that may be gone by then: such a thread finds nothing here. A client
/// goes away when nobody uses it any more. Clients are told apart by their address. Thread: any.
class LiveClients {
  public:
    /// Keeps a client for the life of a scope, if it is still there.
    class Use {
      public:
        /// @param client  may be gone, or null.
        explicit Use(PosixMQClient* client);
        /// Deletes the client if it was left to its users and this is the last one.
        ~Use();
        Use(Use&& other) noexcept : m_client(std::exchange(other.m_client, nullptr)) {}
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        Use& operator=(Use&&) = delete;

        explicit operator bool() const { return m_client != nullptr; }
        PosixMQClient* operator->() const { return m_client; }

      private:
        PosixMQClient* m_client;
    };

    static void Add(PosixMQClient* client);
    /// Nobody else begins to use the client. @return false when it is gone, or ends already.
    static bool Close(PosixMQClient* client);
    /// Waits until a closed client has no users. Not for one of them.
    static void WaitUntilUnused(PosixMQClient* client);
    /// The last user deletes the closed client.
    static void LeaveToUsers(PosixMQClient* client);
    /// For the client's destructor.
    static void Remove(PosixMQClient* client);
};

}  // namespace vexa::config::access
