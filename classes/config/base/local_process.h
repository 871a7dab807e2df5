/// Processes and users of this host, by name: for logs and lists.
#pragma once

#include <sys/types.h>

#include <string>

#include "config/base/export.h"

namespace vexa {

/// "pid 4711 user engineer", with the user's number where it has no name. Thread: any.
VEXA_EXPORT std::string ProcessText(pid_t process, uid_t user);
/// The name that the program of a process bears now, which it may have chosen itself, fit for one line; empty when
/// there is no such process. Thread: any.
VEXA_EXPORT std::string ProgramName(pid_t process);

}  // namespace vexa
