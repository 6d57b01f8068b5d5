// The fast recursive locks: FASTPDU_PCLOCK and FASTPDU_SPIN_PCLOCK, for the
// threads of one process.
//
// The lock is a counter, not a kernel object. `lockCount` is -1 when the
// lock is free and otherwise the number of threads inside or waiting, less
// one (a recursive lock by the owner counts too). Lock adds 1: a thread that
// finds -1 owns the lock at the cost of one locked add, with no system call.
// A thread that finds anything else either is the owner already (the
// recursion goes up) or sleeps on `waitSem`, a semaphore of count 0 that is
// made only at the first contention and kept for the life of the lock: many
// locks cost no kernel resource until they are fought over. UnLock subtracts
// 1 and, if the result shows a waiter, posts the semaphore once; the waiter
// that wakes owns the lock. Newcomers can't overtake a sleeper: once the
// count is not -1, every Lock goes through the semaphore.
//
// Concurrency: `lockCount` changes only by atomic operations; its acquire
// on the way in and release on the way out (or the semaphore's post and wait)
// order what the lock protects. `owner` is read by any thread without the
// lock, which is safe because a thread only compares it with its own id, and
// only the holder writes it. `recursion` is touched by the holder only.
// Installing `waitSem` is a compare-and-exchange from null: two threads that
// meet at the first contention both make a semaphore, one wins, and the
// loser destroys its own.
//
// An event wait that is handed one of these locks lets it go with one
// UnLock and takes it back with Lock; a holder that locked more than once
// keeps the lock while it sleeps.
//
// FASTPDU_SPIN_PCLOCK first tries, a bounded number of times and without any
// pause or yield, to turn -1 into 0 by compare-and-exchange, and only then
// goes the way of the plain lock. On a machine with one processor it never
// spins: the holder can't run while the spinner does.

#ifndef ORLO_FAST_LOCK_H
#define ORLO_FAST_LOCK_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace Orlo {

class CSem;

namespace IMPL {

// True if the machine has more than one processor. Read once while the
// process starts; it reads false before that, so a lock used by an earlier
// static constructor simply doesn't spin. Not to be changed while a spin lock
// may be taken.
extern bool multiProcessor;

}  // namespace IMPL

class FASTPDU_PCLOCK {
  public:
    // A free lock holding no kernel object: lockCount -1, the rest 0.
    FASTPDU_PCLOCK() noexcept = default;
    FASTPDU_PCLOCK(const FASTPDU_PCLOCK&) = delete;
    FASTPDU_PCLOCK& operator=(const FASTPDU_PCLOCK&) = delete;
    // Frees the wait semaphore, if one was made. The lock must be free.
    // Throws semExp if the semaphore can't be destroyed, unless an exception
    // is already propagating.
    ~FASTPDU_PCLOCK() noexcept(false);

    // Takes the lock, sleeping while another thread holds it; the owner may
    // lock again and must unlock as often. Uncontended it is one atomic add.
    // Throws semExp only if the wait semaphore can't be made or waited on.
    void Lock() { LockAfterSpin(pthread_self()); }

    // Gives up one level of the caller's lock and, when the last level goes
    // and a thread waits, wakes one waiter. The caller must own the lock.
    // Throws semExp only if the wait semaphore can't be made or posted.
    void UnLock() {
        if (--m_recursion != 0) {
            m_lockCount.fetch_sub(1, std::memory_order_release);
            return;
        }
        m_owner.store(0, std::memory_order_relaxed);
        if (m_lockCount.fetch_sub(1, std::memory_order_release) - 1 < 0) return;
        WakeOneWaiter();
    }

    // For diagnostics and tests; a snapshot that may be stale at once.
    // -1 when free, else threads inside or waiting (recursions counted) less one.
    int32_t LockCount() const noexcept { return m_lockCount.load(std::memory_order_relaxed); }
    // The semaphore that waiters sleep on; null until the first contention,
    // then the same one for the life of the lock.
    const CSem* WaitSemaphore() const noexcept { return m_waitSem.load(std::memory_order_acquire); }

  protected:
    // Lock from its atomic add on, for a thread whose id is `self`.
    void LockAfterSpin(pthread_t self) {
        if (m_lockCount.fetch_add(1, std::memory_order_acquire) == -1) {
            TakeOwnership(self);
            return;
        }
        // Only this thread can have stored its own id, so a stale read can't
        // make a false match.
        if (m_owner.load(std::memory_order_relaxed) == self) {
            ++m_recursion;
            return;
        }
        WaitForTurn();
        TakeOwnership(self);
    }

    void TakeOwnership(pthread_t self) noexcept {
        m_owner.store(self, std::memory_order_relaxed);
        m_recursion = 1;
    }

    // Sleeps on the semaphore until an unlocker hands the lock over.
    void WaitForTurn();
    void WakeOneWaiter();
    // The wait semaphore, made and installed if nobody has done so yet.
    CSem& InstalledSemaphore();

    std::atomic<int32_t> m_lockCount{-1};
    int32_t m_recursion = 0;
    std::atomic<pthread_t> m_owner{0};
    std::atomic<CSem*> m_waitSem{nullptr};
};

class FASTPDU_SPIN_PCLOCK : public FASTPDU_PCLOCK {
  public:
    // `spinCount` attempts to take a free lock before sleeping; 0 spins
    // without bound and never sleeps, a negative count doesn't spin.
    explicit FASTPDU_SPIN_PCLOCK(int32_t spinCount = 1000) noexcept : m_spinCount(spinCount) {}

    // As FASTPDU_PCLOCK::Lock, with the spin first when the machine has more
    // than one processor. Through a FASTPDU_PCLOCK reference the lock is
    // taken without the spin, which is as correct and only slower.
    void Lock() {
        const pthread_t self = pthread_self();
        if (IMPL::multiProcessor && Spin(self)) return;
        LockAfterSpin(self);
    }

    int32_t SpinCount() const noexcept { return m_spinCount; }

  private:
    // True if the spin took the lock, or found that this thread owns it.
    bool Spin(pthread_t self) {
        const int32_t bound = m_spinCount;
        for (int32_t tries = 0; bound == 0 || tries < bound; ++tries) {
            int32_t expected = -1;
            if (m_lockCount.compare_exchange_strong(expected, 0, std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
                TakeOwnership(self);
                return true;
            }
            if (m_owner.load(std::memory_order_relaxed) == self) {
                m_lockCount.fetch_add(1, std::memory_order_relaxed);
                ++m_recursion;
                return true;
            }
        }
        return false;
    }

    int32_t m_spinCount;
};

}  // namespace Orlo

#endif  // ORLO_FAST_LOCK_H
