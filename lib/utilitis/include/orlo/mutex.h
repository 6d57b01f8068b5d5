// The locks: CMutex for the threads of one process, CProcMutex for all
// processes that know its name, and (from orlo/fast_lock.h) the fast locks
// FASTPDU_PCLOCK and FASTPDU_SPIN_PCLOCK.
//
// CMutex and CProcMutex are recursive POSIX mutexes: the owner may lock
// again and must unlock as often. CProcMutex keeps its mutex, process-shared,
// in a shared memory object of exactly the mutex's size. The process that
// created the area initialises the mutex and destroys it at the end, whatever
// other processes still do with it; an attached process only maps and
// unmaps. A mutex left locked by a dead process stays locked: it is not a
// robust mutex.
//
// A time-out is in milliseconds: 0 only tries, 0xFFFFFFFF waits for ever,
// anything else is a deadline on the system clock.
//
// Failures are mutexExp in the library's message form; a destructor throws
// only when no other exception is propagating.

#ifndef ORLO_MUTEX_H
#define ORLO_MUTEX_H

#include <pthread.h>

#include <cstdint>
#include <ctime>

#include "orlo/fast_lock.h"
#include "orlo/shared_memory.h"
#include "orlo/stringEx.h"

namespace Orlo {

class CMutex {
  public:
    // A recursive mutex, taken before returning if `initiallyOwned`. Throws
    // mutexExp (SyncCode::Create) if it can't be made, (SyncCode::Wait) if
    // the first lock fails; nothing is left allocated either way.
    explicit CMutex(bool initiallyOwned = false);
    CMutex(const CMutex&) = delete;
    CMutex& operator=(const CMutex&) = delete;
    // Throws mutexExp (SyncCode::Close) if the mutex can't be destroyed, e.g.
    // while it is locked, unless an exception is already propagating.
    ~CMutex() noexcept(false);

    // Takes the mutex, sleeping while another thread holds it. Returns true.
    // Throws mutexExp (SyncCode::Wait), e.g. when the recursion limit is hit.
    bool Lock();
    // Takes the mutex if no other thread holds it. Returns whether it did.
    // Throws mutexExp (SyncCode::Wait) on a failure of the system.
    bool TryLock();
    // Lock with a time-out: 0 is TryLock, 0xFFFFFFFF is Lock, anything else
    // a deadline that many milliseconds from now. Returns false on time-out.
    // Throws mutexExp (SyncCode::Wait), and timeExp (TimeCode::OutOfRange)
    // if the deadline lies outside the 32-bit range of seconds.
    bool TimedLock(uint32_t milliseconds);
    // Lock no later than `absolute` (system clock). Returns false on
    // time-out. Throws mutexExp (SyncCode::Wait), also for an invalid
    // deadline when the mutex is held.
    bool TimedLock(const timespec& absolute);
    // Gives up one level of the caller's lock. Throws mutexExp
    // (SyncCode::Unlock), e.g. when the caller doesn't own the mutex.
    void UnLock();

    // The POSIX mutex, for a condition wait that pairs with it.
    pthread_mutex_t* NativeHandle() noexcept { return &m_mutex; }

  private:
    pthread_mutex_t m_mutex;
};

class CProcMutex : public CSharedMemoryObject {
  public:
    // Attaches to the mutex of `name`, or creates the shared memory and the
    // mutex in it, taken before returning if `initiallyOwned`. An existing
    // mutex is ready as it is and `initiallyOwned` is ignored: the caller
    // doesn't own it. The name goes to the shared memory object unchanged.
    // Throws mutexExp (SyncCode::Create), wrapping the shmemExp when the
    // shared memory fails, or (SyncCode::Wait) if the first lock fails.
    CProcMutex(const stringEx& name, bool initiallyOwned);
    CProcMutex(const wstringEx& name, bool initiallyOwned);
    // Attaches to the mutex of `name`, which must exist. Throws mutexExp
    // (SyncCode::Create) wrapping the shmemExp otherwise.
    explicit CProcMutex(const stringEx& name);
    explicit CProcMutex(const wstringEx& name);
    // The creator destroys the mutex; then the view goes and the creator
    // removes the name. Throws mutexExp (SyncCode::Close) if the mutex can't
    // be destroyed, e.g. while it is locked, and the area is then left in
    // place; unless an exception is already propagating.
    ~CProcMutex() noexcept(false) override;

    // As the operations of CMutex, on the shared mutex.
    bool Lock();
    bool TryLock();
    bool TimedLock(uint32_t milliseconds);
    bool TimedLock(const timespec& absolute);
    void UnLock();

    pthread_mutex_t* NativeHandle() noexcept { return static_cast<pthread_mutex_t*>(Address()); }

  private:
    void InitIfCreated(bool initiallyOwned);
};

}  // namespace Orlo

#endif  // ORLO_MUTEX_H
