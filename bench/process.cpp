#include "process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "config/access/io/socket.h"

Process::Process(const std::vector<std::string>& command)
{
    std::vector<char*> arguments;
    for (const std::string& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    m_id = fork();
    if (m_id != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

Process::~Process()
{
    kill(m_id, SIGTERM);
    waitpid(m_id, nullptr, 0);
}

OneProcessor::OneProcessor()
{
    sched_getaffinity(0, sizeof m_before, &m_before);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof one, &one);
}

OneProcessor::~OneProcessor()
{
    sched_setaffinity(0, sizeof m_before, &m_before);
}

double ResidentKiB(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:")) return std::stod(line.substr(6));
    return 0;
}

int FreePort()
{
    vexa::corvalis::config::access::Socket probe(AF_INET, SOCK_STREAM);
    probe.create();
    probe.bind("127.0.0.1", 0);
    return probe.local_port();
}
