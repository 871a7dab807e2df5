#include "config/access/server/queues/queue_events.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace vexa::config::access {

QueueEvents::QueueEvents() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_descriptor == -1) throw std::system_error(errno, std::generic_category(), "eventfd");
}

QueueEvents::~QueueEvents()
{
    close(m_descriptor);
}

void QueueEvents::Add(QueueEvent event, bool wake)
{
    const size_t bytes = event.bytes.size();
    const eParam_t id = event.id;
    {
        const MutexLock hold(m_lock);
        m_isEmpty = false;
        m_events.Add(id, std::move(event), bytes);
        if (!wake || std::exchange(m_isWoken, true)) return;
    }
    Wake();
}

bool QueueEvents::Take(QueueEvent& event)
{
    const MutexLock hold(m_lock);
    const bool taken = m_events.Take(event);
    if (!taken) m_isWoken = false;
    m_isEmpty = !taken;
    return taken;
}

uint64_t QueueEvents::TakeLeftOut()
{
    const MutexLock hold(m_lock);
    const uint64_t before = m_leftOut;
    m_leftOut = m_events.LeftOut();
    return m_leftOut - before;
}

void QueueEvents::Wake()
{
    eventfd_write(m_descriptor, 1);
}

void QueueEvents::Clear()
{
    eventfd_t count;
    eventfd_read(m_descriptor, &count);
}

}  // namespace vexa::config::access
