/// Programs that the benchmarks compare with, or measure from outside.
#pragma once

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

/// Resident memory of a process in KiB; 0 when there is none.
double ResidentKiB(pid_t process);

/// A TCP port that is free now.
int FreePort();
