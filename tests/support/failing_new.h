/// Lets allocations of the test's own thread fail, as they do when memory is short, and measures them.
#pragma once

#include <cstddef>

/// The largest allocation of this thread by operator new so far, and from now on again.
std::size_t TakeLargestNew();

/// One allocation of this thread by operator new fails with std::bad_alloc while the object lives.
class FailingNew {
  public:
    /// @param skip  allocations that succeed before it.
    explicit FailingNew(long skip);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;

    /// Whether that allocation was reached.
    bool Failed() const;
};

/// Runs an operation with its first allocation failing, then with its second, and so on, until it no longer gets to
/// the one that fails.
/// @param step  how many allocations lie between two that fail.
/// @return how often one failed.
template <class Operation>
int WithEachAllocationFailing(const Operation& operation, long step = 1)
{
    for (int runs = 0;; ++runs) {
        const FailingNew failing(runs * step);
        operation();
        if (!failing.Failed()) return runs;
    }
}

/// The same where something has to be done with memory before and after each run.
/// @param prepare  takes the number of the run.
template <class Prepare, class Operation, class Check>
int WithEachAllocationFailing(const Prepare& prepare, const Operation& operation, const Check& check)
{
    for (int runs = 0;; ++runs) {
        prepare(runs);
        bool failed;
        {
            const FailingNew failing(runs);
            operation();
            failed = failing.Failed();
        }
        check();
        if (!failed) return runs;
    }
}
