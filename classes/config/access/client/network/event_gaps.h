/// EventGaps: whether multicast events have been lost on their way.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <map>
#include <utility>

namespace vexa::corvalis::config::access {

/// A server counts the events of numbers that it sends, over all configurations; the kernel counts what finds
/// no room in the socket. A server that was restarted sends from another port. Thread: one at a time; the
/// owner's lock guards it.
class EventGaps {
  public:
    /// Before the events of a new registration.
    void Forget() { *this = EventGaps(); }
    /// An event of a number. @param isOurs  it is of the client's own configuration.
    /// @return whether events of this sender, or of the one before, may be missing.
    bool IsAfterGap(const sockaddr_in& from, uint32_t number, bool isOurs);
    /// @param lost  datagrams that the socket has dropped so far. @return whether it is more than before.
    bool HasLost(uint32_t lost) { return std::exchange(m_lost, lost) < lost; }

  private:
    using Sender = std::pair<uint32_t, uint16_t>;
    static constexpr size_t kMaxSenders = 64;  // anybody on this host may send

    std::map<Sender, uint32_t> m_next;  // the number of the next event
    Sender m_ours{};                    // who sent the last one of the own configuration
    uint32_t m_lost = 0;
};

}  // namespace vexa::corvalis::config::access
