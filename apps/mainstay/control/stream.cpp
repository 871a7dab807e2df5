#include "mainstay/control/stream.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace control {

std::string Line(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Stream::Stream() : m_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_descriptor == -1) throw std::system_error(errno, std::generic_category(), "eventfd");
}

Stream::~Stream()
{
    close(m_descriptor);
}

void Stream::Push(const Json& json)
{
    const std::string line = Line(json);
    const vexa::MutexLock hold(m_lock);
    // Once one is left out, so are the next: the count stands where they would have stood.
    if (m_skipped > 0 || m_lines.size() + line.size() > kMaxBytes)
        ++m_skipped;
    else
        m_lines += line;
    eventfd_write(m_descriptor, 1);
}

std::string Stream::Take()
{
    const vexa::MutexLock hold(m_lock);
    eventfd_t ignored;
    eventfd_read(m_descriptor, &ignored);
    std::string lines = std::exchange(m_lines, {});
    if (m_skipped > 0) lines += Line({{"skipped", std::exchange(m_skipped, 0)}});
    return lines;
}

}  // namespace control
