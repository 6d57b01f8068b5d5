// The fast locks' bookkeeping: recursion counts, the one semaphore installed
// at the first contention, and when the spin lock spins. A sleeper counts
// itself in (LockCount rises); a spinner leaves the count alone.

#include "orlo/fast_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "orlo/semaphore.h"
#include "sync/sync_test_support.h"

namespace Orlo {
namespace {

using synctest::Eventually;
using synctest::SleepMs;

// Sets the processor flag for one test and puts the real one back.
class ProcessorFlag {
  public:
    explicit ProcessorFlag(bool several) : m_saved(IMPL::multiProcessor) {
        IMPL::multiProcessor = several;
    }
    ~ProcessorFlag() { IMPL::multiProcessor = m_saved; }

  private:
    bool m_saved;
};

// Recursion counts, then the owner locking again while another thread
// waits: one unlock of two must not let the waiter in.
template <class Lock>
void CheckRecursion(Lock& lock) {
    for (int32_t depth = 0; depth < 3; ++depth) {
        lock.Lock();
        EXPECT_EQ(lock.LockCount(), depth);
    }
    for (int32_t depth = 1; depth >= -1; --depth) {
        lock.UnLock();
        EXPECT_EQ(lock.LockCount(), depth);
    }
    EXPECT_EQ(lock.WaitSemaphore(), nullptr) << "no contention, yet a kernel object";
    std::atomic<bool> acquired{false};
    lock.Lock();
    std::thread waiter([&] {
        lock.Lock();
        acquired = true;
        lock.UnLock();
    });
    EXPECT_TRUE(Eventually([&] { return lock.LockCount() == 1; })) << "the waiter never counted in";
    lock.Lock();
    EXPECT_EQ(lock.LockCount(), 2);
    lock.UnLock();
    SleepMs(20);
    EXPECT_FALSE(acquired) << "one unlock of two released the lock";
    lock.UnLock();
    waiter.join();
    EXPECT_TRUE(acquired);
    EXPECT_EQ(lock.LockCount(), -1);
}

TEST(FastLocks, RecursionCountsAlsoWhileAnotherThreadWaits) {
    {
        SCOPED_TRACE("FASTPDU_PCLOCK");
        FASTPDU_PCLOCK lock;
        CheckRecursion(lock);
    }
    {
        SCOPED_TRACE("FASTPDU_SPIN_PCLOCK");
        FASTPDU_SPIN_PCLOCK lock(1000);
        CheckRecursion(lock);
    }
}

// Three waiters and the unlocker race to install the semaphore at the first
// contention; whoever wins, it stays the one for good.
TEST(FastLocks, TheFirstContentionInstallsOneSemaphore) {
    constexpr int kWaiters = 3;
    for (int round = 0; round < 100; ++round) {
        FASTPDU_PCLOCK lock;
        int counter = 0;
        lock.Lock();
        std::vector<std::thread> waiters;
        for (int i = 0; i < kWaiters; ++i) {
            waiters.emplace_back([&] {
                lock.Lock();
                ++counter;
                lock.UnLock();
            });
        }
        EXPECT_TRUE(Eventually([&] { return lock.LockCount() == kWaiters; }));
        lock.UnLock();
        for (std::thread& t : waiters)
            t.join();

        const CSem* installed = lock.WaitSemaphore();
        ASSERT_NE(installed, nullptr) << "round " << round;
        lock.Lock();
        ASSERT_EQ(lock.WaitSemaphore(), installed) << "round " << round;
        lock.UnLock();
        ASSERT_EQ(counter, kWaiters) << "round " << round;
        ASSERT_EQ(lock.LockCount(), -1) << "round " << round;
    }
}

TEST(FastSpinLock, SpinsOnlyOnAMachineWithSeveralProcessors) {
    const struct {
        const char* what;
        bool severalProcessors;
        int32_t spinCount;
        bool sleeps;
    } cases[] = {
        {"one processor: never spins", false, 0, true},
        {"several processors, no bound: never sleeps", true, 0, false},
        {"several processors, attempts used up", true, 100, true},
        {"several processors, negative count", true, -1, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ProcessorFlag flag(c.severalProcessors);
        FASTPDU_SPIN_PCLOCK lock(c.spinCount);
        lock.Lock();
        std::thread contender([&] {
            lock.Lock();
            lock.UnLock();
        });
        if (c.sleeps) {
            EXPECT_TRUE(Eventually([&] { return lock.LockCount() == 1; }));
        } else {
            SleepMs(30);
            EXPECT_EQ(lock.LockCount(), 0) << "the contender counted itself in to sleep";
        }
        lock.UnLock();
        contender.join();
        EXPECT_EQ(lock.WaitSemaphore() != nullptr, c.sleeps);
        EXPECT_EQ(lock.LockCount(), -1);
    }
}

}  // namespace
}  // namespace Orlo
