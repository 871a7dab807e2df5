#include "vexactl/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

/// What path names: through a link, so that the link stays one.
std::string TargetOf(const std::string& path)
{
    const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), free);
    return real ? real.get() : path;
}

mode_t UsualMode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

bool WriteAll(int fd, const std::string& content)
{
    for (size_t done = 0; done < content.size();) {
        const ssize_t count = write(fd, content.data() + done, content.size() - done);
        if (count == -1 && errno == EINTR) continue;
        if (count == -1) return false;
        done += static_cast<size_t>(count);
    }
    return true;
}

/// Closes, whatever was before. @return whether all of it succeeded.
bool Closed(int fd, bool isDone)
{
    const int failure = errno;
    const bool isClosed = close(fd) == 0;
    if (!isDone) errno = failure;
    return isDone && isClosed;
}

bool WriteThrough(const std::string& path, const std::string& content)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    return fd != -1 && Closed(fd, WriteAll(fd, content));
}

/// The rename lasts through a loss of power when its directory was written, too.
bool SyncDirectoryOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return fd != -1 && Closed(fd, fsync(fd) == 0);
}

bool Replace(const std::string& path, const std::string& content, mode_t mode)
{
    std::string beside = path + ".XXXXXX";
    const int fd = mkostemp(beside.data(), O_CLOEXEC);
    if (fd == -1) return false;
    const bool isWritten = Closed(fd, fchmod(fd, mode) == 0 && WriteAll(fd, content) && fsync(fd) == 0);
    if (isWritten && rename(beside.c_str(), path.c_str()) == 0) return SyncDirectoryOf(path);
    const int failure = errno;
    unlink(beside.c_str());
    errno = failure;
    return false;
}

/// One byte more than wanted, when there is more.
bool ReadAll(int fd, size_t most, std::string& content)
{
    char bytes[16'384];
    while (content.size() <= most) {
        const ssize_t count = read(fd, bytes, std::min(sizeof bytes, most + 1 - content.size()));
        if (count == -1 && errno == EINTR) continue;
        if (count == -1) return false;
        if (count == 0) break;
        content.append(bytes, static_cast<size_t>(count));
    }
    return true;
}

}  // namespace

std::optional<std::string> ReadFile(const std::string& path, size_t most, std::string& reason)
{
    std::string content;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool isRead = fd != -1 && Closed(fd, ReadAll(fd, most, content));
    if (isRead && content.size() <= most) return content;
    reason = isRead ? "it is too large" : strerror(errno);
    return std::nullopt;
}

std::string WriteNewFile(const std::string& path, const std::string& content, bool isPrivate)
{
    constexpr mode_t kPermissions = 0777, kOnlyUser = 0600;
    struct stat before {};
    const bool isThere = stat(path.c_str(), &before) == 0;
    bool isDone = false;
    if (isThere && !S_ISREG(before.st_mode)) {
        isDone = WriteThrough(path, content);
    } else {
        const mode_t usual = isThere ? before.st_mode & kPermissions : UsualMode();
        isDone = Replace(TargetOf(path), content, isPrivate ? kOnlyUser : usual);
    }
    return isDone ? "" : strerror(errno);
}
