#include "unlocked.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace py = pybind11;

namespace vexa::python {
namespace {

/// Threads that are about to have the lock again.
std::atomic<int> returning{0};
/// The one that ends the interpreter; none as long as nobody does.
std::atomic<std::thread::id> ending{};

/// Called with the lock, before the interpreter takes it away from all other threads.
void End()
{
    ending = std::this_thread::get_id();
    PyThreadState* const state = PyEval_SaveThread();
    while (returning > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    PyEval_RestoreThread(state);
}

bool IsEndingElsewhere()
{
    const std::thread::id thread = ending;
    return thread != std::thread::id() && thread != std::this_thread::get_id();
}

}  // namespace

Unlocked::~Unlocked()
{
    ++returning;
    if (IsEndingElsewhere()) {
        --returning;
        for (;;) pause();
    }
    PyEval_RestoreThread(m_state);
    --returning;
}

void WatchForTheEnd()
{
    py::module_::import("atexit").attr("register")(py::cpp_function(&End));
}

}  // namespace vexa::python
