#include "drain.h"

#include <sys/epoll.h>
#include <unistd.h>

Drain::Drain(Sockets sockets) : m_sockets(std::move(sockets)), m_events(epoll_create1(EPOLL_CLOEXEC))
{
    for (const auto& socket : m_sockets) {
        epoll_event event{.events = EPOLLIN, .data = {.fd = socket->fd}};
        epoll_ctl(m_events, EPOLL_CTL_ADD, socket->fd, &event);
    }
    m_thread = std::thread([this] { Take(); });
}

Drain::~Drain()
{
    m_stop = true;
    m_thread.join();
    close(m_events);
}

void Drain::Take()
{
    std::vector<char> bytes(65'536);
    epoll_event ready[64];
    while (!m_stop) {
        const int count = epoll_wait(m_events, ready, std::size(ready), 100);
        size_t taken = 0;
        for (int i = 0; i < count; ++i) {
            const ssize_t length = read(ready[i].data.fd, bytes.data(), bytes.size());
            if (length > 0) taken += static_cast<size_t>(length);
        }
        m_taken += taken;
        m_taken.notify_all();
    }
}

void Drain::Await(size_t bytes)
{
    m_awaited += bytes;
    for (size_t taken = m_taken; taken < m_awaited; taken = m_taken) m_taken.wait(taken);
}
