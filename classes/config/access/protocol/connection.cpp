#include "config/access/protocol/connection.h"

#include <algorithm>

#include "config/base/log.h"

namespace vexa {

namespace {

thread_local Answer lastAnswer = Answer::kGiven;

}  // namespace

Answer LastAnswer()
{
    return lastAnswer;
}

void NoteAnswer(Answer answer)
{
    lastAnswer = answer;
}

void Connection::AddConnectionListener(ConnectionListener* listener)
{
    const RecursiveMutexLock hold(m_lock);
    const auto free = std::ranges::find(m_listeners, nullptr);
    if (free != m_listeners.end())
        *free = listener;
    else
        m_listeners.push_back(listener);
}

void Connection::RemoveConnectionListener(ConnectionListener* listener)
{
    const RecursiveMutexLock hold(m_lock);
    std::ranges::replace(m_listeners, listener, nullptr);
}

void Connection::SetReachable(bool reachable)
{
    if (m_reachable == reachable) return;
    const RecursiveMutexLock hold(m_lock);
    if (m_reachable.exchange(reachable) == reachable) return;
    Tell(reachable ? ConnectionChange::kRestored : ConnectionChange::kLost);
}

void Connection::TellEventsMissing()
{
    const RecursiveMutexLock hold(m_lock);
    Tell(ConnectionChange::kEventsMissing);
}

void Connection::Tell(ConnectionChange change)
{
    for (size_t i = 0; i < m_listeners.size(); ++i) {  // a callback may change the list
        ConnectionListener* const listener = m_listeners[i];
        try {
            if (listener) listener->ConnectionChanged(change);
        } catch (...) {
            Print("Connection::Tell - a listener failed with an exception\n");
        }
    }
}

}  // namespace vexa
