#include "vexactl/connection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <system_error>
#include <thread>

#include "config/base/deadline.h"
#include "vexactl/interrupts.h"
#include "vexactl/times.h"

using vexa::DeviceState;
using vexa::DeviceStatus;

namespace {

std::atomic<bool> hasLeftSome = false;

int NewEvent()
{
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd == -1) throw std::system_error(errno, std::generic_category(), "eventfd");
    return fd;
}

void EndSoon(std::unique_ptr<vexa::Device> device)
{
    constexpr std::chrono::milliseconds kGrace(200);
    const auto ended = std::make_shared<std::promise<void>>();
    const auto end = ended->get_future();
    std::thread([ended, device = std::move(device)]() mutable {
        device.reset();
        ended->set_value();
    }).detach();
    if (end.wait_for(kGrace) == std::future_status::timeout) hasLeftSome = true;
}

}  // namespace

Connection::Connection(const std::string& address, vexa::DeviceOptions options)
    : m_newsFd(NewEvent()), m_device(std::make_unique<vexa::Device>(address, std::move(options)))
{
    m_subscription = m_device->WatchStatus([this](const DeviceStatus& status) { Add(status); });
}

Connection::~Connection()
{
    m_subscription = {};
    const DeviceStatus status = m_device->Status();
    const bool mayLookUp = status.state == DeviceState::kConnecting && status.reason.empty();
    if (mayLookUp) EndSoon(std::move(m_device));
    m_device.reset();
    close(m_newsFd);
}

bool Connection::HasLeftSome()
{
    return hasLeftSome;
}

void Connection::Add(const DeviceStatus& status)
{
    const vexa::MutexLock hold(m_lock);
    eventfd_write(m_newsFd, 1);
    m_news.push_back(status);
}

std::optional<DeviceStatus> Connection::TakeNews()
{
    const vexa::MutexLock hold(m_lock);
    eventfd_t ignored;
    if (m_news.empty()) eventfd_read(m_newsFd, &ignored);
    if (m_news.empty()) return std::nullopt;
    DeviceStatus oldest = std::move(m_news.front());
    m_news.pop_front();
    return oldest;
}

bool Connection::IsInStep()
{
    while (TakeNews()) continue;
    return m_device->Status().state == DeviceState::kInStep;
}

DeviceStatus Connection::Await(double seconds)
{
    const vexa::Deadline deadline(MillisecondsOf(seconds));
    for (;;) {
        Interrupts::Instance().Check();
        while (TakeNews()) continue;
        DeviceStatus status = m_device->Status();
        if (status.state != DeviceState::kConnecting || !status.reason.empty()) return status;
        pollfd events[] = {{Interrupts::Instance().Fd(), POLLIN, 0}, {m_newsFd, POLLIN, 0}};
        if (poll(events, 2, deadline.PollTimeout()) == 0) return {};
    }
}
