#include "config/access/io/left_queues.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "config/access/io/connection_utilities.h"

namespace vexa::config::access {

namespace {

/// Calls visit with the names in a folder until it returns false. @return false when it cannot be read.
template <class Visit>
bool VisitFolder(const char* folder, const Visit& visit)
{
    DIR* const entries = opendir(folder);
    if (!entries) return false;
    for (const dirent* entry = readdir(entries); entry && visit(entry->d_name);) entry = readdir(entries);
    closedir(entries);
    return true;
}

/// Whether another process may have this identifier, of which a queue's name tells only 16 bits.
bool MayProcessLive(uint32_t lowHalf)
{
    bool lives = false;
    const bool known = VisitFolder("/proc", [&](const char* name) {
        const long pid = strtol(name, nullptr, 10);
        lives = pid > 0 && pid != getpid() && static_cast<uint32_t>(pid & 0xFFFF) == lowHalf;
        return !lives;
    });
    return lives || !known;
}

/// Closing a descriptor of a queue takes it, for the whole process, the notification of its messages. So those
/// of this process are left alone.
bool MayBeOpenHere(const std::string& name)
{
    const std::string folder = "/proc/self/fd/";
    bool isOpen = false;
    const bool known = VisitFolder(folder.c_str(), [&](const char* descriptor) {
        std::string target(name.size() + 1, '\0');
        const ssize_t length = readlink((folder + descriptor).c_str(), target.data(), target.size());
        isOpen = length >= 0 && target.substr(0, static_cast<size_t>(length)) == name;
        return !isOpen;
    });
    return isOpen || !known;
}

bool IsOwn(mqd_t queue)
{
    struct stat status {};
    return fstat(queue, &status) == 0 && status.st_uid == geteuid();
}

}  // namespace

bool LockQueue(mqd_t queue)
{
    return flock(queue, LOCK_EX | LOCK_NB) == 0;
}

bool IsLocked(mqd_t queue)
{
    if (!LockQueue(queue)) return errno == EWOULDBLOCK;
    flock(queue, LOCK_UN);
    return false;
}

/// A line of the list: "1: FLOCK  ADVISORY  WRITE 4711 00:1b:93 0 EOF", with the number of the file at the end of
/// the third part from behind.
pid_t LockHolder(mqd_t queue)
{
    struct stat status {};
    if (fstat(queue, &status) != 0) return 0;
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        int process = 0;
        unsigned int major = 0, minor = 0;
        unsigned long long file = 0;
        if (sscanf(line.c_str(), "%*s FLOCK %*s %*s %d %x:%x:%llu", &process, &major, &minor, &file) == 4 &&
            file == status.st_ino && makedev(major, minor) == status.st_dev)
            return process;
    }
    return 0;
}

bool HasName(mqd_t queue)
{
    struct stat status {};
    return fstat(queue, &status) != 0 || status.st_nlink > 0;
}

std::vector<uint32_t> ListClientQueues(const char* folder)
{
    std::vector<uint32_t> connections;
    VisitFolder(folder, [&](const char* name) {
        unsigned int process, number;
        if (sscanf(name, "mqd_%u_%u", &process, &number) != 2) return true;
        const uint32_t connectionID = process << 16 | (number & 0xFFFF);
        if (ConnectionUtilities::GetQueueName(connectionID).substr(1) == name)
            connections.push_back(connectionID);
        return true;
    });
    return connections;
}

bool RemoveIfLeft(uint32_t connectionID)
{
    const std::string name = ConnectionUtilities::GetQueueName(connectionID);
    if (MayBeOpenHere(name)) return false;
    const mqd_t queue = mq_open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (queue == -1) return false;
    // Under the lock nobody else takes the name for a new queue.
    const bool removed = IsOwn(queue) && LockQueue(queue) && HasName(queue) &&
                         !MayProcessLive(connectionID >> 16) && mq_unlink(name.c_str()) == 0;
    mq_close(queue);
    return removed;
}

bool RemoveLeftQueues(const char* folder)
{
    bool removed = false;
    for (const uint32_t connectionID : ListClientQueues(folder)) removed |= RemoveIfLeft(connectionID);
    return removed;
}

}  // namespace vexa::config::access
