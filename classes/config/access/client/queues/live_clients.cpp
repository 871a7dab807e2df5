#include "config/access/client/queues/live_clients.h"

#include <condition_variable>
#include <map>
#include <mutex>

#include "config/access/client/queues/posix_mq_client.h"

namespace vexa::config::access {

namespace {

struct Life {
    unsigned int users = 0;
    bool closed = false;
    bool leftToUsers = false;
};

struct Registry {
    std::mutex lock;  // guards what follows
    std::condition_variable userLeft;
    std::map<PosixMQClient*, Life> lives;
};

Registry& Clients()
{
    static Registry& registry = *new Registry;  // never destroyed: notifications fire while the process ends
    return registry;
}

}  // namespace

LiveClients::Use::Use(PosixMQClient* client) : m_client(nullptr)
{
    Registry& clients = Clients();
    const std::lock_guard hold(clients.lock);
    const auto life = clients.lives.find(client);
    if (life == clients.lives.end() || life->second.closed) return;
    ++life->second.users;
    m_client = client;
}

LiveClients::Use::~Use()
{
    if (!m_client) return;
    Registry& clients = Clients();
    {
        const std::lock_guard hold(clients.lock);
        Life& life = clients.lives[m_client];
        if (--life.users > 0) return;
        clients.userLeft.notify_all();
        if (!life.leftToUsers) return;
    }
    delete m_client;
}

void LiveClients::Add(PosixMQClient* client)
{
    Registry& clients = Clients();
    const std::lock_guard hold(clients.lock);
    clients.lives[client] = {};
}

bool LiveClients::Close(PosixMQClient* client)
{
    Registry& clients = Clients();
    const std::lock_guard hold(clients.lock);
    const auto life = clients.lives.find(client);
    return life != clients.lives.end() && !std::exchange(life->second.closed, true);
}

void LiveClients::WaitUntilUnused(PosixMQClient* client)
{
    Registry& clients = Clients();
    std::unique_lock hold(clients.lock);
    const Life& life = clients.lives[client];
    clients.userLeft.wait(hold, [&] { return life.users == 0; });
}

void LiveClients::LeaveToUsers(PosixMQClient* client)
{
    Registry& clients = Clients();
    const std::lock_guard hold(clients.lock);
    clients.lives[client].leftToUsers = true;
}

void LiveClients::Remove(PosixMQClient* client)
{
    Registry& clients = Clients();
    const std::lock_guard hold(clients.lock);
    clients.lives.erase(client);
}

}  // namespace vexa::config::access
