/// NetworkClient: listeners, and the threads that call them.
#include <pthread.h>

#include <cstdio>
#include <system_error>

#include "config/access/client/network/network_client.h"
#include "config/base/no_signals.h"

namespace vexa::corvalis::config::access {

namespace {

/// The client whose callbacks this thread makes.
thread_local const NetworkClient* deliveringFor = nullptr;

}  // namespace

bool NetworkClient::AddConfigEventListener(ConfigEventListener* listener)
{
    if (!listener) return false;
    const std::lock_guard hold(m_registrationLock);
    if (m_listeners.Contains(listener)) return true;
    if (m_listeners.IsEmpty() && !m_registered) {
        const bool stream = m_socket->type == SOCK_STREAM;
        m_registered = stream ? RegisterForEvents(eParam_t{}) : RegisterForEvents();
        if (!m_registered) return false;
    }
    try {
        m_listeners.Append(listener);  // before the thread starts, or it might miss the first event
        if (StartEventsThread()) return true;
    } catch (...) {
        Failed("AddConfigEventListener");
    }
    m_listeners.Erase(listener);
    return false;
}

bool NetworkClient::AddConfigEventListener(eParam_t, ConfigEventListener* listener)
{
    return AddConfigEventListener(listener);
}

bool NetworkClient::RemoveConfigEventListener(ConfigEventListener* listener)
{
    bool removed;
    {
        const std::lock_guard hold(m_registrationLock);
        removed = m_listeners.Erase(listener);
        if (removed && m_listeners.IsEmpty()) {
            UnregisterForEvents();
            m_registered = false;
        }
    }
    m_listeners.WaitForDelivery();
    return removed;
}

bool NetworkClient::StartEventsThread()
{
    const std::lock_guard hold(m_threadLock);
    if (m_eventsRunning) return true;
    if (m_eventsThread.joinable()) Join(m_eventsThread);  // ended by itself
    m_stopEvents = false;
    try {
        const bool stream = m_socket->type == SOCK_STREAM;
        m_eventsThread = StartDeliveryThread(stream ? "TCPClntPrcsEvts" : "UDPClntPrcsEvts",
                                             [this] { RunEventsThread(); });
        m_eventsRunning = true;
    } catch (const std::system_error&) {
        fputs("NetworkClient::StartEventsThread - unable to start thread", stderr);
    }
    return m_eventsRunning;
}

void NetworkClient::RunEventsThread()
{
    try {
        ProcessEvents();
    } catch (...) {
        fputs("NetworkClient::ProcessEvents - ended by an exception\n", stderr);
    }
    const std::lock_guard ended(m_threadLock);
    m_eventsRunning = false;
}

std::thread NetworkClient::StartDeliveryThread(const char* name, std::function<void()> body)
{
    const vexa::config::access::NoSignals inherited;
    return std::thread([this, name, body = std::move(body)] {
        pthread_setname_np(pthread_self(), name);
        deliveringFor = this;
        try {
            body();
        } catch (...) {
            fprintf(stderr, "NetworkClient - thread %s ended by an exception\n", name);
        }
        deliveringFor = nullptr;
        if (m_deletingThread == std::this_thread::get_id()) delete this;
    });
}

void NetworkClient::StopEventsThread()
{
    m_stopEvents = true;
    m_replies->Stop();
    m_socket->close();
    if (m_eventSocket) m_eventSocket->close();
    // From a callback: the other threads may be waiting for their turn to deliver. The destructor joins them.
    if (deliveringFor == this) return;
    std::thread ending;
    {
        const std::lock_guard hold(m_threadLock);
        ending.swap(m_eventsThread);
    }
    Join(ending);
}

/// A thread cannot wait for itself; it is on its way out of its last callback.
void NetworkClient::Join(std::thread& thread)
{
    if (!thread.joinable()) return;
    try {
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else
            thread.join();
    } catch (const std::system_error&) {
        fputs("NetworkClient::StopEventsThread - thread join failed", stderr);
    }
}

void NetworkClient::Deliver(const XCONFIGMGR_RESPONSE_T& event)
{
    timeval now{};  // integer events carry no time over TCP, so all of them get the time of delivery
    gettimeofday(&now, nullptr);
    m_listeners.Deliver(
        [&](ConfigEventListener& listener) { listener.ParamChanged(event.paramID, event.value, now); });
}

void NetworkClient::Deliver(const XCONFIGMGR_RESPONSE_T& event, const std::string& text)
{
    m_listeners.Deliver(
        [&](ConfigEventListener& listener) { listener.ParamChanged(event.paramID, text, TimeOf(event)); });
}

void NetworkClient::Release(NetworkClient* client)
{
    client->StopEventsThread();
    if (deliveringFor != client) {
        delete client;
        return;
    }
    client->m_listeners.Clear();  // none is called any more, though the callback is not over
    client->m_deletingThread = std::this_thread::get_id();
}

}  // namespace vexa::corvalis::config::access
