#include "config/access/io/connection_utilities.h"

#include <cstdio>
#include <cstring>
#include <map>

#include "config/base/log.h"
#include "config/base/no_destructor.h"
#include "config/base/semaphore_helper.h"

namespace vexa::config::access {

namespace {

constexpr size_t kMaxNames = 1024;

struct ProcessNames {
    StaticLock lock;
    std::map<unsigned int, std::string> names VEXA_GUARDED_BY(lock);
};

ProcessNames& KnownNames()
{
    static NoDestructor<ProcessNames> names;  // notification threads log while the process ends
    return *names;
}

std::string AskForName(unsigned int pid)
{
    const std::string command = "ps --pid " + std::to_string(pid) + " --no-heading | awk '{print $4}'";
    FILE* const output = popen(command.c_str(), "r");
    if (!output) return "";
    char line[256] = "";
    if (!fgets(line, sizeof line, output)) line[0] = '\0';
    pclose(output);
    line[strcspn(line, "\n")] = '\0';
    return line;
}

}  // namespace

std::string ConnectionUtilities::GetQueueName(unsigned int connectionID)
{
    return "/mqd_" + std::to_string(connectionID >> 16) + "_" + std::to_string(connectionID & 0xFFFF);
}

bool ConnectionUtilities::IsValidResponse(MQMessageInfo_t request, MQMessageInfo_t response)
{
    if (request.connectionID != response.connectionID)
        return Report("IsValidResponse - request.connectionID (%s) != response.connectionID (%s)\n",
                      GetQueueName(request.connectionID).c_str(),
                      GetQueueName(response.connectionID).c_str());
    if (request.configID != response.configID)
        return Report("IsValidResponse - request.configID (%d) != response.configID (%d)\n", request.configID,
                      response.configID);
    if (request.requestID != response.requestID)
        return Report("IsValidResponse - request.requestID (%d) != response.requestID (%d)\n",
                      static_cast<int>(request.requestID), static_cast<int>(response.requestID));
    return true;
}

std::string ConnectionUtilities::GetPIDName(unsigned int pid)
{
    ProcessNames& known = KnownNames();
    SemaphoreHelper hold(known.lock);
    const auto found = known.names.find(pid);
    if (found != known.names.end()) return found->second;
    // The first answer stays empty, as callers know it: the first log line about a process has no name.
    if (known.names.size() < kMaxNames) known.names[pid] = AskForName(pid);
    return "";
}

bool HandleErrorResponse(const XCONFIGMGR_RESPONSE_T* response)
{
    return response->error == 0;
}

}  // namespace vexa::config::access
