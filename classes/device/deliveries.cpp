#include "device/deliveries.h"

#include <pthread.h>

#include <algorithm>

#include "config/base/log.h"
#include "config/base/no_signals.h"

namespace vexa {

Deliveries::Deliveries() : m_shared(std::make_shared<Shared>()) {}

Deliveries::~Deliveries()
{
    Stop();
}

void Deliveries::Stop()
{
    {
        const MutexLock hold(m_shared->lock);
        m_shared->isStopping = true;
        m_shared->changed.NotifyAll();
    }
    if (m_thread.joinable()) m_thread.join();
}

std::shared_ptr<void> Deliveries::Add(Step step)
{
    auto subscriber = std::make_shared<Subscriber>(Subscriber{std::move(step)});
    std::shared_ptr<void> subscription(
        nullptr, [shared = m_shared, subscriber](void*) { Remove(*shared, subscriber); });
    const MutexLock hold(m_shared->lock);
    m_shared->subscribers.push_back(subscriber);
    m_shared->isAwake = true;
    m_shared->changed.NotifyAll();
    if (!m_thread.joinable()) {
        const NoSignals inherited;
        m_thread = std::thread([shared = m_shared] { Run(*shared); });
        m_shared->thread = m_thread.get_id();
    }
    return subscription;
}

void Deliveries::Remove(Shared& shared, const std::shared_ptr<Subscriber>& subscriber)
{
    const MutexLock hold(shared.lock);
    subscriber->isGone = true;
    std::erase(shared.subscribers, subscriber);
    while (subscriber->isRunning && shared.thread != std::this_thread::get_id())
        shared.changed.Wait(shared.lock);
}

void Deliveries::Wake()
{
    const MutexLock hold(m_shared->lock);
    m_shared->isAwake = true;
    m_shared->changed.NotifyAll();
}

void Deliveries::Run(Shared& shared)
{
    pthread_setname_np(pthread_self(), "cfg-dev-deliver");
    const MutexLock hold(shared.lock);
    while (!shared.isStopping) {
        if (!shared.isAwake) {
            shared.changed.Wait(shared.lock);
            continue;
        }
        shared.isAwake = false;
        try {
            RunAll(shared);
        } catch (const std::bad_alloc&) {  // the others still wait for theirs
            shared.isAwake = true;
        }
    }
}

void Deliveries::RunAll(Shared& shared)
{
    const auto subscribers = shared.subscribers;
    for (const auto& subscriber : subscribers)
        if (!subscriber->isGone && !shared.isStopping && RunOne(shared, *subscriber)) shared.isAwake = true;
}

bool Deliveries::RunOne(Shared& shared, Subscriber& subscriber) VEXA_REQUIRES(shared.lock)
{
    subscriber.isRunning = true;
    bool hasMore = false;
    {
        const MutexUnlock release(shared.lock);
        try {
            hasMore = subscriber.step();
        } catch (...) {
            Print("vexa::Device - a callback failed with an exception\n");
            hasMore = true;
        }
    }
    subscriber.isRunning = false;
    shared.changed.NotifyAll();
    return hasMore;
}

}  // namespace vexa
