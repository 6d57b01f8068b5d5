// Every lock against real contention: threads on all processors each add to
// a plain counter under the lock many times, every eighth round through a
// nested (recursive) lock. Any gap in the exclusion loses increments, and
// under ThreadSanitizer it is reported as a race on the counter.

#include <fcntl.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

#include "orlo/fast_lock.h"
#include "orlo/mutex.h"
#include "sync/sync_test_support.h"

namespace Orlo {
namespace {

using synctest::NameGuard;
using synctest::RunThreads;

template <class Lock>
int64_t CountUnderLock(Lock& lock, int threads, int rounds) {
    int64_t counter = 0;
    RunThreads(threads, [&](int) {
        for (int i = 0; i < rounds; ++i) {
            const bool nested = i % 8 == 0;
            lock.Lock();
            if (nested) lock.Lock();
            ++counter;
            if (nested) lock.UnLock();
            lock.UnLock();
        }
    });
    return counter;
}

// Counts under a fast lock and checks that the lock ends free.
template <class Lock, class... Args>
int64_t CountUnderFastLock(int threads, int rounds, Args... args) {
    Lock lock(args...);
    const int64_t counted = CountUnderLock(lock, threads, rounds);
    EXPECT_EQ(lock.LockCount(), -1);
    return counted;
}

TEST(LocksUnderContention, NoIncrementIsLost) {
    NameGuard name("contention");
    const struct {
        const char* lock;
        int threads;
        int rounds;
        std::function<int64_t(int, int)> count;
    } cases[] = {
        {"FASTPDU_PCLOCK", 4, 20000,
         [](int t, int r) { return CountUnderFastLock<FASTPDU_PCLOCK>(t, r); }},
        {"FASTPDU_SPIN_PCLOCK, bounded spin", 4, 20000,
         [](int t, int r) { return CountUnderFastLock<FASTPDU_SPIN_PCLOCK>(t, r, 1000); }},
        {"FASTPDU_SPIN_PCLOCK, no spin at all", 4, 20000,
         [](int t, int r) { return CountUnderFastLock<FASTPDU_SPIN_PCLOCK>(t, r, -1); }},
        // Spinning without bound never sleeps; one spinner per processor
        // keeps the holder running.
        {"FASTPDU_SPIN_PCLOCK, unbounded spin", 2, 5000,
         [](int t, int r) { return CountUnderFastLock<FASTPDU_SPIN_PCLOCK>(t, r, 0); }},
        {"CMutex", 4, 20000,
         [](int t, int r) {
             CMutex lock;
             return CountUnderLock(lock, t, r);
         }},
        {"CProcMutex", 4, 20000,
         [&](int t, int r) {
             CProcMutex lock(name.name.c_str(), false);
             return CountUnderLock(lock, t, r);
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.lock);
        EXPECT_EQ(c.count(c.threads, c.rounds), int64_t{c.threads} * c.rounds);
    }
}

}  // namespace
}  // namespace Orlo
