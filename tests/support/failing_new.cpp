#include "support/failing_new.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

constexpr long kNever = -1;
thread_local long toSkip = kNever;
thread_local size_t largest = 0;

}  // namespace

size_t TakeLargestNew()
{
    return std::exchange(largest, 0);
}

FailingNew::FailingNew(long skip)
{
    toSkip = skip;
}

FailingNew::~FailingNew()
{
    toSkip = kNever;
}

bool FailingNew::Failed() const
{
    return toSkip == kNever;
}

// In place of the standard library's. Its forms for arrays call these; sanitizers' forms are complete themselves.

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    largest = std::max(largest, size);
    if (toSkip != kNever && toSkip-- == 0) return nullptr;
    return malloc(size ? size : 1);
}

void* operator new(size_t size)
{
    if (void* const memory = operator new(size, std::nothrow)) return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    free(memory);
}
