#include "vexactl/deadline.h"

#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "vexactl/exit_status.h"

namespace {

// The data of the signal handler, set before the timer starts.
char line[512];
size_t lineLength;
int lineDescriptor;

void End(int)
{
    if (write(lineDescriptor, line, lineLength) == -1) lineLength = 0;  // no way to report it
    _exit(static_cast<int>(ExitStatus::kTimedOut));
}

void StartTimer(double seconds)
{
    itimerval timer{};
    timer.it_value.tv_sec = static_cast<time_t>(seconds);
    timer.it_value.tv_usec = static_cast<suseconds_t>(std::fmod(seconds, 1) * 1e6);
    setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

Deadline::Deadline(double seconds, const std::string& message, int messages)
{
    lineLength = message.copy(line, sizeof line - 1);
    if (lineLength > 0) line[lineLength++] = '\n';
    lineDescriptor = messages;
    signal(SIGALRM, End);
    StartTimer(seconds);
}

Deadline::~Deadline()
{
    StartTimer(0);
}
