#include "config/access/io/connection_name.h"

#include <cstdio>
#include <cstring>
#include <map>

#include "config/base/no_destructor.h"
#include "config/base/semaphore_helper.h"

namespace vexa::corvalis::config::access {

namespace {

/// At most one entry for each of the 65,536 process identifiers that fit.
struct ProcessNames {
    StaticLock lock;
    std::map<uint16_t, std::string> names VEXA_GUARDED_BY(lock);
};

ProcessNames& KnownNames()
{
    static NoDestructor<ProcessNames> names;  // detached threads log while the process ends
    return *names;
}

std::string ReadProcessName(uint16_t process)
{
    const std::string path = "/proc/" + std::to_string(process) + "/cmdline";
    FILE* const file = fopen(path.c_str(), "re");
    if (!file) return "";
    char command[2048] = "";
    const bool found = fscanf(file, "%2047s", command) == 1;
    fclose(file);
    if (!found) return "";
    const char* const slash = strrchr(command, '/');
    return slash ? slash + 1 : command;
}

}  // namespace

std::string GetConnectionName(uint32_t connectionID)
{
    if (connectionID == 0 || connectionID == 0xFFFF) return "event";
    const auto process = static_cast<uint16_t>(connectionID);
    ProcessNames& known = KnownNames();
    {
        SemaphoreHelper hold(known.lock);
        const auto found = known.names.find(process);
        if (found != known.names.end()) return found->second;
    }
    std::string name = ReadProcessName(process);  // may take its time
    SemaphoreHelper hold(known.lock);
    return known.names.try_emplace(process, std::move(name)).first->second;
}

}  // namespace vexa::corvalis::config::access
