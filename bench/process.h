/// Programs that the benchmarks compare with, or measure from outside.
#pragma once

#include <sched.h>
#include <sys/types.h>

#include <string>
#include <vector>

/// A program, from here to the end of the scope.
class Process {
  public:
    explicit Process(const std::vector<std::string>& command);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    pid_t Id() const { return m_id; }

  private:
    pid_t m_id;
};

/// Keeps this thread, and the threads that it starts meanwhile, on one processor. Two threads that take turns
/// cost three times as much on two processors, and the scheduler's choice between the two varies.
class OneProcessor {
  public:
    OneProcessor();
    ~OneProcessor();
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

  private:
    cpu_set_t m_before;
};

/// Resident memory of a process in KiB; 0 when there is none.
double ResidentKiB(pid_t process);

/// A TCP port that is free now.
int FreePort();
