// The engine's allocator and its failure hook.

#include "regex/alloc.h"

#include <cstdlib>

namespace Orlo::IMPL::re {
namespace {

thread_local long t_countdown = 0;  // 0: never fail
thread_local long t_made = 0;

// True when this allocation is the one the hook asked to fail.
bool fails_now() {
    ++t_made;
    return t_countdown > 0 && --t_countdown == 0;
}

}  // namespace

void* re_malloc(size_t bytes) {
    return fails_now() ? nullptr : std::malloc(bytes);
}

void* re_realloc(void* block, size_t bytes) {
    return fails_now() ? nullptr : std::realloc(block, bytes);
}

void fail_allocation(long n) {
    t_countdown = n > 0 ? n : 0;
}

long allocations_made() {
    return t_made;
}

}  // namespace Orlo::IMPL::re
