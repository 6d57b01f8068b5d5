// Uncontended lock and unlock: the fast locks against CMutex and
// std::mutex. The fast locks are meant to cost no more than std::mutex when
// nobody else wants them. Each run counts under the lock and checks the
// count afterwards; the fast locks must also end free and must never have
// made their wait semaphore, so a run that fell onto the contended path
// aborts instead of reporting a figure.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "orlo/fast_lock.h"
#include "orlo/mutex.h"

namespace {

void Require(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "benchmark result is wrong: %s\n", what);
        std::abort();
    }
}

// The library's locks and std::mutex spell lock and unlock differently.
template <class Lock>
void Acquire(Lock& lock) {
    if constexpr (requires { lock.Lock(); }) {
        lock.Lock();
    } else {
        lock.lock();
    }
}

template <class Lock>
void Release(Lock& lock) {
    if constexpr (requires { lock.UnLock(); }) {
        lock.UnLock();
    } else {
        lock.unlock();
    }
}

template <class Lock>
void BM_UncontendedLockUnlock(benchmark::State& state) {
    Lock lock;
    int64_t counter = 0;
    for (auto _ : state) {
        Acquire(lock);
        ++counter;
        Release(lock);
        benchmark::DoNotOptimize(counter);
    }
    Require(counter == static_cast<int64_t>(state.iterations()), "count under the lock");
    if constexpr (requires { lock.LockCount(); }) {
        Require(lock.LockCount() == -1, "the lock ends free");
        Require(lock.WaitSemaphore() == nullptr, "no wait semaphore without contention");
    }
}

BENCHMARK(BM_UncontendedLockUnlock<Orlo::FASTPDU_PCLOCK>);
BENCHMARK(BM_UncontendedLockUnlock<Orlo::FASTPDU_SPIN_PCLOCK>);
BENCHMARK(BM_UncontendedLockUnlock<Orlo::CMutex>);
BENCHMARK(BM_UncontendedLockUnlock<std::mutex>);

}  // namespace
