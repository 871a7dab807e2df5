/// Standard descriptors that were closed before a program started.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace vexa {

/// Opens /dev/null in place of those that are closed: the first socket would take their number, and what is
/// printed would go to a peer. Thread: the main thread, before anything else.
inline void OpenStandardDescriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO;)
        if (fcntl(fd, F_GETFD) != -1 || open("/dev/null", O_RDWR) == -1) ++fd;
}

}  // namespace vexa
