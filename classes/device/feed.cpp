#include "device/feed.h"

#include <fnmatch.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <utility>

namespace vexa {

Feed::Feed(std::vector<std::string> patterns, bool wantsInitial)
    : awaitsInitial(wantsInitial),
      m_patterns(std::move(patterns)),
      m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
}

bool Feed::Wants(const std::string& name) const
{
    return m_patterns.empty() || std::ranges::any_of(m_patterns, [&](const std::string& pattern) {
               return fnmatch(pattern.c_str(), name.c_str(), FNM_CASEFOLD) == 0;
           });
}

void Feed::Add(const Change& change)
{
    const auto* const text = std::get_if<std::string>(&change.value);
    const MutexLock hold(m_lock);
    m_changes.Add(change.id, change, change.name.size() + (text ? text->size() : 0));
    eventfd_write(m_descriptor.Get(), 1);
}

std::optional<Change> Feed::Take()
{
    Change change;
    const MutexLock hold(m_lock);
    if (!m_changes.Take(change)) return std::nullopt;
    change.skipped = m_changes.LeftOut() - std::exchange(m_toldSkipped, m_changes.LeftOut());
    eventfd_t ignored;
    if (m_changes.IsEmpty()) eventfd_read(m_descriptor.Get(), &ignored);
    return change;
}

std::optional<Change> ChangeQueue::Next(std::chrono::milliseconds timeout)
{
    const Deadline deadline(static_cast<unsigned int>(std::clamp<long long>(timeout.count(), 0, INT_MAX)));
    for (;;) {
        if (std::optional<Change> change = m_feed->Take()) return change;
        if (WaitFor(m_feed->Descriptor(), POLLIN, deadline, -1) == Ready::kTimedOut) return std::nullopt;
    }
}

int ChangeQueue::Descriptor() const
{
    return m_feed->Descriptor();
}

}  // namespace vexa
