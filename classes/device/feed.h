/// Feed: the changes that wait for one subscriber of a Device.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/base/mutex.h"
#include "config/delivery/backlog.h"
#include "device/device.h"
#include "device/records.h"

namespace vexa {

/// Thread: any.
class Feed {
  public:
    Feed(std::vector<std::string> patterns, bool wantsInitial);

    void Add(const Change& change) VEXA_EXCLUDES(m_lock);
    std::optional<Change> Take() VEXA_EXCLUDES(m_lock);
    /// Readable while there are changes.
    int Descriptor() const { return m_descriptor.Get(); }

    bool Wants(const std::string& name) const;
    /// Whether it is to get all values next, and only then changes. For the mirror alone, under its lock.
    bool awaitsInitial;

  private:
    const std::vector<std::string> m_patterns;
    const SocketFd m_descriptor;  // an eventfd
    Mutex m_lock;
    Backlog<Change> m_changes VEXA_GUARDED_BY(m_lock);
    uint64_t m_toldSkipped VEXA_GUARDED_BY(m_lock) = 0;
};

}  // namespace vexa
