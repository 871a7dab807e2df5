/// Connection: the device of a session, and the news of its state.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "config/base/mutex.h"
#include "device/device.h"

/// Thread: one at a time.
class Connection {
  public:
    Connection(const std::string& address, vexa::DeviceOptions options);
    /// Says goodbye. Does not wait for a look-up of a name, which has no limit: HasLeftSome.
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    vexa::Device& Get() const { return *m_device; }
    /// Waits until it is in step, or the first attempt has failed. Throws Interrupted.
    /// @return the status; still connecting, without a reason, when the time is over.
    vexa::DeviceStatus Await(double seconds);
    /// Whether it is now. How it was before is no news any more.
    bool IsInStep();
    /// The next state that was reached, if there is one.
    std::optional<vexa::DeviceStatus> TakeNews() VEXA_EXCLUDES(m_lock);
    /// Readable while there are some.
    int NewsFd() const { return m_newsFd; }

    /// Whether a thread of an ended connection still runs, so that the process must not tidy up under it.
    static bool HasLeftSome();

  private:
    void Add(const vexa::DeviceStatus& status) VEXA_EXCLUDES(m_lock);

    const int m_newsFd;  // an eventfd
    vexa::Mutex m_lock;
    std::deque<vexa::DeviceStatus> m_news VEXA_GUARDED_BY(m_lock);
    std::unique_ptr<vexa::Device> m_device;
    vexa::Subscription m_subscription;
};
