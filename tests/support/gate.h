/// Forces threads into an order: a gate stops one of them inside a callback, until the test lets it go.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

#include "support/raw_peer.h"

/// A thread that a test can see waiting. It is joined at the end.
class WatchedThread {
  public:
    template <class Body>
    explicit WatchedThread(Body body)
        : m_thread([this, body] {
              m_id = gettid();
              body();
              m_done = true;
          })
    {
    }
    /// Whether the thread waits for something, after it has run as far as it can.
    bool Waits() const
    {
        constexpr std::chrono::milliseconds kShortWait(30);  // of a thread that goes on by itself
        EXPECT_TRUE(Eventually([this] { return m_done || IsAsleep(); }));
        if (!m_done) std::this_thread::sleep_for(kShortWait);
        return !m_done;
    }

  private:
    bool IsAsleep() const
    {
        std::ifstream file("/proc/self/task/" + std::to_string(m_id) + "/stat");
        std::string stat;
        std::getline(file, stat);
        const size_t name = stat.rfind(") ");
        return name != std::string::npos && stat[name + 2] == 'S';
    }

    std::atomic<pid_t> m_id = 0;
    std::atomic<bool> m_done = false;
    std::jthread m_thread;
};

/// Keeps this thread, and those that it starts, on one processor for a scope. There a thread that gives way runs
/// only while no other one can.
class OneProcessor {
  public:
    OneProcessor()
    {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        sched_getaffinity(0, sizeof m_before, &m_before);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof m_before, &m_before); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

    /// For the calling thread.
    static void GiveWay()
    {
        const sched_param none{};
        sched_setscheduler(0, SCHED_IDLE, &none);
    }

  private:
    cpu_set_t m_before;
};

/// Every wait has an end, so that a fault is a failed test and not one that hangs.
class Gate {
  public:
    ~Gate() { Open(); }

    /// For the thread that is to stop: until Open.
    void Pass()
    {
        std::unique_lock hold(m_lock);
        m_reached = true;
        m_changed.notify_all();
        EXPECT_TRUE(m_changed.wait_for(hold, kPatience, [&] { return m_open; })) << "the gate stays closed";
    }
    bool IsReached() const
    {
        const std::lock_guard hold(m_lock);
        return m_reached;
    }
    void Await()
    {
        std::unique_lock hold(m_lock);
        EXPECT_TRUE(m_changed.wait_for(hold, kPatience, [&] { return m_reached; })) << "no thread came";
    }
    void Open()
    {
        const std::lock_guard hold(m_lock);
        m_open = true;
        m_changed.notify_all();
    }
    /// Whether an operation of another thread waits for the one that stands in Pass. Opens the gate, and ends
    /// when the operation has.
    template <class Operation>
    bool KeepsWaiting(const Operation& operation)
    {
        Await();
        const WatchedThread other(operation);
        const bool waits = other.Waits();
        Open();
        return waits;
    }

  private:
    static constexpr std::chrono::milliseconds kPatience{RawPeer::kDeadlineMs};

    mutable std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_reached = false, m_open = false;
};
