/// Connection: what a client knows of its server, and who is told when that changes.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "config/base/export.h"
#include "config/base/mutex.h"

namespace vexa {

/// What a client has found out about its server.
enum class ConnectionChange : uint8_t {
    kLost,           ///< no answers come any more, or no events
    kRestored,       ///< the server answers again; changes in between were not heard
    kEventsMissing,  ///< events were lost: what listeners heard last may be old
};

/// Implemented by whoever wants to know; see AddConnectionListener (config/access/connector/reachability.h).
class VEXA_EXPORT ConnectionListener {
  public:
    virtual ~ConnectionListener() = default;
    /// Called on the thread that noticed it. It may add and remove connection listeners; it must not use the
    /// configuration, nor wait for a thread that does.
    virtual void ConnectionChanged(ConnectionChange change) = 0;
};

/// What became of a request.
enum class Answer : uint8_t {
    kGiven,    ///< it was answered without an error, or needed no answer from elsewhere
    kRefused,  ///< the server answered with an error
    kNone,     ///< no answer, none that makes sense, or none is given to such a request
};

/// Of the last Get or Set that this thread made through a client; kGiven before the first one. Thread: any.
VEXA_EXPORT Answer LastAnswer();
/// For clients, at the beginning and end of such a request. Thread: any.
VEXA_EXPORT void NoteAnswer(Answer answer);

/// A base of the configurations that can be lost: clients, and caches around them.
/// Thread: any. A listener that was removed on another thread is not running and is not called again.
class VEXA_EXPORT Connection {
  public:
    Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Whether the server answers, as far as was seen.
    bool IsReachable() const { return m_reachable; }
    /// @param listener  borrowed until it is removed; not null. Throws std::bad_alloc.
    void AddConnectionListener(ConnectionListener* listener) VEXA_EXCLUDES(m_lock);
    void RemoveConnectionListener(ConnectionListener* listener) VEXA_EXCLUDES(m_lock);

  protected:
    ~Connection() = default;  // not virtual: the tables of the configurations stay as they are
    /// Tells the listeners if that is news. Hold no lock that they may take.
    void SetReachable(bool reachable) VEXA_EXCLUDES(m_lock);
    /// Tells the listeners that changes may have been missed. Hold no lock that they may take.
    void TellEventsMissing() VEXA_EXCLUDES(m_lock);

  private:
    void Tell(ConnectionChange change) VEXA_REQUIRES(m_lock);

    std::atomic<bool> m_reachable = true;
    RecursiveMutex m_lock;  // held over the calls: they come in the order of the changes
    std::vector<ConnectionListener*> m_listeners VEXA_GUARDED_BY(m_lock);  // null where one was removed
};

}  // namespace vexa
