#include "config/access/client/network/event_gaps.h"

namespace vexa::corvalis::config::access {

bool EventGaps::IsAfterGap(const sockaddr_in& from, uint32_t number, bool isOurs)
{
    const Sender sender{from.sin_addr.s_addr, from.sin_port};
    if (m_next.size() == kMaxSenders && !m_next.contains(sender)) m_next.clear();
    uint32_t& next = m_next.try_emplace(sender, number).first->second;
    const bool isMissing = next != number;
    next = number + 1;

    const bool isKnown = m_ours != Sender{};
    const bool isSame = m_ours == sender;
    if (isOurs) m_ours = sender;
    return isKnown && !isSame ? isOurs : isMissing;  // another server's events are of no concern
}

}  // namespace vexa::corvalis::config::access
