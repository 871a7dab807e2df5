#include "vexactl/interrupts.h"

#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <utility>

#include "config/base/no_destructor.h"

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

bool IsIgnored(int signal)
{
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t SignalsToTake()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kSignals)
        if (!IsIgnored(signal)) sigaddset(&signals, signal);
    return signals;
}

}  // namespace

void EndBySignal(int signal)
{
    ::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    raise(signal);
    _exit(128 + signal);
}

Interrupts& Interrupts::Instance()
{
    static vexa::NoDestructor<Interrupts> instance;
    return *instance;
}

void Interrupts::Start()
{
    if (m_isStarted.exchange(true)) return;
    m_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const sigset_t signals = SignalsToTake();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        std::thread([this] { Run(); }).detach();
    } catch (const std::system_error&) {  // they end the tool as they end any other
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    }
}

void Interrupts::Check()
{
    const vexa::MutexLock hold(m_lock);
    CheckLocked();
}

void Interrupts::CheckLocked()
{
    if (m_signal == 0) return;
    m_isFound = true;
    throw Interrupted{m_signal};
}

void Interrupts::SetStop(std::function<void()> stop)
{
    const vexa::MutexLock hold(m_lock);
    m_stop = std::move(stop);
}

void Interrupts::EndCommands()
{
    const vexa::MutexLock hold(m_lock);
    m_endsCommands = true;
}

bool Interrupts::Forget()
{
    const vexa::MutexLock hold(m_lock);
    if (!IsForCommand(m_signal)) return false;
    m_signal = 0;
    m_isFound = false;
    eventfd_t ignored;
    eventfd_read(m_fd, &ignored);
    return true;
}

bool Interrupts::IsForCommand(int signal) const
{
    return m_endsCommands && signal == SIGINT;
}

/// A command ends with the wait that it is in.
bool Interrupts::MayTakeLong(int signal)
{
    const vexa::MutexLock hold(m_lock);
    return IsForCommand(signal);
}

void Interrupts::SetTidy(std::function<void()> tidy)
{
    const vexa::MutexLock hold(m_lock);
    while (m_isTidying) m_never.Wait(m_lock);
    if (tidy) CheckLocked();
    m_tidy = std::move(tidy);
}

void Interrupts::Run()
{
    constexpr std::chrono::seconds kGrace(1);
    pthread_setname_np(pthread_self(), "vexactl-signals");
    const sigset_t signals = SignalsToTake();
    for (int signal = 0; sigwait(&signals, &signal) == 0;) {
        if (!Note(signal)) EndBySignal(signal);
        if (MayTakeLong(signal)) continue;
        std::this_thread::sleep_for(kGrace);
        if (!StopWaits()) EndBySignal(signal);
    }
}

/// @return false when the tool has to end now.
bool Interrupts::Note(int signal)
{
    std::function<void()> tidy;
    {
        const vexa::MutexLock hold(m_lock);
        if (m_signal != 0 && !IsForCommand(m_signal)) return false;
        m_signal = signal;
        m_isTidying = m_tidy != nullptr;
        tidy = m_tidy;
    }
    eventfd_write(m_fd, 1);
    if (!tidy) return true;
    tidy();
    return false;
}

bool Interrupts::StopWaits()
{
    const vexa::MutexLock hold(m_lock);
    if (m_stop) m_stop();
    return m_isFound || m_stop;
}
