// The engine's allocator: malloc and realloc, with a test hook.
//
// Every allocation of the engine, at compile and at match time, goes
// through re_malloc and re_realloc, so that a test can make the Nth one
// fail and check that each failure ends in REG_ESPACE with nothing leaked.
// The countdown is per thread: the engine allocates on its caller's thread.
//
// Implementation details only, past this point.

#ifndef ORLO_SRC_REGEX_ALLOC_H
#define ORLO_SRC_REGEX_ALLOC_H

#include <cstddef>

namespace Orlo::IMPL::re {

void* re_malloc(size_t bytes);
void* re_realloc(void* block, size_t bytes);

// Test hook: with `n` above 0 the nth allocation from now on this thread
// fails (returns null), once; 0 turns failing off.
void fail_allocation(long n);
// Allocations made on this thread so far.
long allocations_made();

}  // namespace Orlo::IMPL::re

#endif  // ORLO_SRC_REGEX_ALLOC_H
