/// DeliveryThreads: the threads of a client that call its listeners.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "config/base/mutex.h"

namespace vexa::corvalis::config::access {

/// A listener may disconnect its client from a callback. The client has to live until the callback has
/// returned: then the thread of the callback deletes it. Thread: any.
class DeliveryThreads {
  public:
    /// @param deleteClient  deletes the client, and this object with it.
    explicit DeliveryThreads(std::function<void()> deleteClient) : m_deleteClient(std::move(deleteClient)) {}
    DeliveryThreads(const DeliveryThreads&) = delete;
    DeliveryThreads& operator=(const DeliveryThreads&) = delete;

    /// Starts a thread, which takes no signals: they are left to the application's own threads.
    /// @param name  at most 15 characters. @return the thread, to be joined. Throws std::system_error.
    std::thread Start(const char* name, std::function<void()> body);
    /// Waits for the end of a thread of this object; a thread that joins itself is on its way out of its last
    /// callback, and is detached.
    static void Join(std::thread& thread);
    /// Whether the calling thread is one of these.
    bool IsCurrent() const;
    /// The calling thread, one of these, deletes the client when its body has returned.
    void DeleteClientAtEnd() { m_deletingThread = std::this_thread::get_id(); }

  private:
    const std::function<void()> m_deleteClient;
    std::atomic<std::thread::id> m_deletingThread;
};

/// The delivery thread that receives events: it may end by itself and be started again. Thread: any.
class EventsThread {
  public:
    explicit EventsThread(DeliveryThreads& threads) : m_threads(threads) {}
    EventsThread(const EventsThread&) = delete;
    EventsThread& operator=(const EventsThread&) = delete;

    /// Does nothing while the thread runs. @param stop  cleared for the new thread.
    /// @param body  returns when there is nothing more to come.
    /// @return false, after one line, when no thread can be started.
    bool Start(const char* name, std::atomic<bool>& stop, const std::function<void()>& body);
    /// For the body, when it receives no more: from now on Start waits for its end and starts another thread.
    void MarkEnded() { m_running = false; }
    /// Waits for its end. The body must be on its way out.
    void Join();

  private:
    void Run(const std::function<void()>& body);

    DeliveryThreads& m_threads;
    Mutex m_lock;
    std::thread m_thread VEXA_GUARDED_BY(m_lock);
    std::atomic<bool> m_running = false;  // set under the lock, cleared by the thread
};

}  // namespace vexa::corvalis::config::access
