/// Giving the interpreter's lock back for a time.
#pragma once

#include <pybind11/pybind11.h>

namespace vexa::python {

/// The lock of the interpreter is free during its scope, for what may wait. When the interpreter has begun to end
/// meanwhile, the thread stays here for ever: to ask for the lock then would end it in the middle of its stack.
class Unlocked {
  public:
    Unlocked() : m_state(PyEval_SaveThread()) {}
    ~Unlocked();
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

  private:
    PyThreadState* const m_state;
};

/// Makes the end of the interpreter known to the scopes of this module.
void WatchForTheEnd();

}  // namespace vexa::python
