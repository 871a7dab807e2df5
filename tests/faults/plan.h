/// What becomes of the system calls of a program: a file that the program, through a preloaded library, and its
/// test map together.
#pragma once

#include <atomic>

namespace faults {

/// The calls that can fail. `kNew` is every allocation by operator new, whose failure is std::bad_alloc.
enum Call {
    kSocket,
    kSetsockopt,
    kBind,
    kListen,
    kConnect,
    kAccept4,
    kSend,
    kSendto,
    kRecv,
    kRecvfrom,
    kPoll,
    kEventfd,
    kMqOpen,
    kMqSend,
    kMqTimedsend,
    kMqReceive,
    kMqTimedreceive,
    kMqGetattr,
    kMqSetattr,
    kMqNotify,
    kFlock,
    kOpen,    // also open64
    kPwrite,  // also pwrite64, and write to a file
    kFsync,   // also fdatasync
    kRename,
    kPthreadCreate,
    kNew,
    kCalls
};

/// Instead of an error number: no failure, but send and recv transfer a single byte.
inline constexpr int kOneByte = -1;

struct Rule {
    std::atomic<int> error, skip, times;  ///< after `skip` more calls, `times` fail
    std::atomic<int> begun, failed;       ///< calls since the program started
};
static_assert(std::atomic<int>::is_always_lock_free);

struct Plan {
    Rule rules[kCalls];
};

/// The environment variable that names the file.
inline constexpr const char* kPlanVariable = "VEXA_FAULTS";

}  // namespace faults
