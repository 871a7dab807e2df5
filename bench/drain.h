/// Many connections that only receive.
#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "config/access/io/socket.h"

/// One thread receives for all of them and counts the bytes. Thread: one uses it.
class Drain {
  public:
    using Sockets = std::vector<std::unique_ptr<vexa::corvalis::config::access::Socket>>;

    explicit Drain(Sockets sockets);
    ~Drain();
    Drain(const Drain&) = delete;
    Drain& operator=(const Drain&) = delete;

    size_t Size() const { return m_sockets.size(); }
    /// Waits until so many bytes more than at the last call have arrived, on all of them together.
    void Await(size_t bytes);

  private:
    void Take();

    Sockets m_sockets;
    int m_events;
    size_t m_awaited = 0;
    std::atomic<size_t> m_taken = 0;
    std::atomic<bool> m_stop = false;
    std::thread m_thread;
};
