/// Deadline: when a wait ends.
#pragma once

#include <algorithm>
#include <chrono>
#include <climits>

namespace vexa {

/// A point on the monotonic clock, or never. Immutable. Thread: any.
class Deadline {
  public:
    /// Milliseconds of a wait that has no limit.
    static constexpr unsigned int kNever = 0xFFFFFFFF;

    /// So far from now; kNever: without a limit.
    explicit Deadline(unsigned int milliseconds)
        : m_limited(milliseconds != kNever),
          m_end(std::chrono::steady_clock::now() + std::chrono::milliseconds(m_limited ? milliseconds : 0))
    {
    }

    /// Whether there is an end at all.
    bool IsLimited() const { return m_limited; }
    /// Meaningless without a limit.
    std::chrono::steady_clock::time_point End() const { return m_end; }
    /// The remaining milliseconds, rounded up, as poll takes them: -1 without a limit, 0 when the time is
    /// over.
    int PollTimeout() const
    {
        if (!m_limited) return -1;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(m_end - std::chrono::steady_clock::now());
        return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
    }
    /// The same as an unsigned number: kNever without a limit.
    unsigned int Left() const { return static_cast<unsigned int>(PollTimeout()); }
    /// Whether no time is left. Never without a limit.
    bool IsOver() const { return PollTimeout() == 0; }

  private:
    bool m_limited;
    std::chrono::steady_clock::time_point m_end;
};

}  // namespace vexa
