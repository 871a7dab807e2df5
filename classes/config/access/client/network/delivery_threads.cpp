#include "config/access/client/network/delivery_threads.h"

#include <pthread.h>

#include <system_error>

#include "config/base/log.h"
#include "config/base/no_signals.h"

namespace vexa::corvalis::config::access {

namespace {

/// The object to which this thread belongs.
thread_local const DeliveryThreads* current = nullptr;

}  // namespace

std::thread DeliveryThreads::Start(const char* name, std::function<void()> body)
{
    const NoSignals inherited;
    return std::thread([this, name, body = std::move(body)] {
        pthread_setname_np(pthread_self(), name);
        const PeerLog limited;
        current = this;
        try {
            body();
        } catch (...) {
            Print("NetworkClient - thread %s ended by an exception\n", name);
        }
        current = nullptr;
        if (m_deletingThread != std::this_thread::get_id()) return;
        const auto deleteClient = m_deleteClient;  // the client takes this object with it
        deleteClient();
    });
}

void DeliveryThreads::Join(std::thread& thread)
{
    if (!thread.joinable()) return;
    try {
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else
            thread.join();
    } catch (const std::system_error&) {
        Print("NetworkClient::StopEventsThread - thread join failed");
    }
}

bool DeliveryThreads::IsCurrent() const
{
    return current == this;
}

bool EventsThread::Start(const char* name, std::atomic<bool>& stop, const std::function<void()>& body)
{
    const MutexLock hold(m_lock);
    if (m_running) return true;
    DeliveryThreads::Join(m_thread);  // ended by itself
    stop = false;
    try {
        m_running = true;  // the thread may end at once
        m_thread = m_threads.Start(name, [this, body] { Run(body); });
    } catch (const std::system_error&) {
        m_running = false;
        Print("NetworkClient::StartEventsThread - unable to start thread");
    }
    return m_running;
}

void EventsThread::Run(const std::function<void()>& body)
{
    try {
        body();
    } catch (...) {
        Print("NetworkClient::ProcessEvents - ended by an exception\n");
    }
    m_running = false;
}

void EventsThread::Join()
{
    std::thread ending;
    {
        const MutexLock hold(m_lock);
        ending.swap(m_thread);
    }
    DeliveryThreads::Join(ending);
}

}  // namespace vexa::corvalis::config::access
