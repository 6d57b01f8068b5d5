// Counting semaphores: CSem for the threads of one process, CProcSem for all
// processes that know its name.
//
// Both wrap a POSIX semaphore and use the words of the trade: P takes one
// unit, sleeping while there is none; V gives units back. A time-out is in
// milliseconds: 0 only tries, 0xFFFFFFFF waits for ever, anything else is a
// deadline on the system clock. A signal that interrupts a wait doesn't end
// it: the wait goes on towards the same deadline.
//
// A named semaphore is created by the first process that asks for the name
// and attached by the others; only the creator removes the name when its
// object goes, and processes still attached keep working on it. Names are
// taken with a leading "/", which is put in front when it is missing, so "x"
// and "/x" are one semaphore.
//
// Failures are semExp in the library's message form. Both directions of a
// semaphore share a head line and a code: a failed V reads "P" too.
//
// An object may be used by any number of threads at once; destroying it
// while a thread still waits on it is a caller error.

#ifndef ORLO_SEMAPHORE_H
#define ORLO_SEMAPHORE_H

#include <semaphore.h>

#include <cstdint>
#include <ctime>

#include "orlo/stringEx.h"

namespace Orlo {

class CSem {
  public:
    // An unnamed semaphore holding `initialCount` units. `maximumCount` is
    // accepted and ignored: a POSIX semaphore has no ceiling of its own.
    // Throws semExp (SyncCode::Create) if the semaphore can't be made, e.g.
    // for a count above SEM_VALUE_MAX.
    CSem(uint32_t initialCount, uint32_t maximumCount);
    CSem(const CSem&) = delete;
    CSem& operator=(const CSem&) = delete;
    // Throws semExp (SyncCode::Close) if the semaphore can't be destroyed,
    // unless an exception is already propagating.
    ~CSem() noexcept(false);

    // Takes one unit, sleeping until there is one. Returns true. Throws
    // semExp (SyncCode::Wait) on a failure of the system.
    bool P();
    // Takes one unit if there is one, without sleeping. Returns whether it
    // did. Throws semExp (SyncCode::Wait) on a failure of the system.
    bool TryP();
    // Takes one unit, sleeping no later than `absolute` (system clock).
    // Returns false on time-out. Throws semExp (SyncCode::Wait) for an
    // invalid deadline or a failure of the system.
    bool P(const timespec& absolute);
    // P with a time-out: 0 is TryP, 0xFFFFFFFF is P(), anything else a
    // deadline that many milliseconds from now. Returns false on time-out.
    // Throws semExp as the form it becomes, and timeExp (TimeCode::OutOfRange)
    // if the deadline lies outside the 32-bit range of seconds.
    bool P(uint32_t milliseconds);
    // Gives `count` units, one post each; 0 gives none. Throws semExp
    // (SyncCode::Wait) if a post fails, e.g. when the count would overflow.
    void V(uint32_t count = 1);

  private:
    sem_t m_sem;
};

class CProcSem {
  public:
    // Attaches to the semaphore of `name`, or creates it with `initialCount`
    // units if there is none; an existing semaphore keeps its count. Throws
    // semExp (SyncCode::Create) if neither works: a name with a "/" inside,
    // a name too long, a count above SEM_VALUE_MAX, no permission. A wide
    // name is turned into narrow text in the present locale first.
    CProcSem(const stringEx& name, uint32_t initialCount);
    CProcSem(const wstringEx& name, uint32_t initialCount);
    // Attaches to the semaphore of `name`, which must exist. Throws semExp
    // (SyncCode::OpenNamed) otherwise.
    explicit CProcSem(const stringEx& name);
    explicit CProcSem(const wstringEx& name);
    CProcSem(const CProcSem&) = delete;
    CProcSem& operator=(const CProcSem&) = delete;
    // Detaches; the creator also removes the name (one already gone is no
    // failure). Throws semExp (SyncCode::Close) if either step fails, unless
    // an exception is already propagating; a failed detach leaves the name.
    ~CProcSem() noexcept(false);

    // As the operations of CSem, on the named semaphore.
    bool P();
    bool TryP();
    bool P(const timespec& absolute);
    bool P(uint32_t milliseconds);
    void V(uint32_t count = 1);

    // True if this object created the semaphore and so removes its name.
    bool CreatedByMe() const noexcept { return !m_unlinkName.empty(); }

  private:
    void CreateOrAttach(const stringEx& name, uint32_t initialCount);
    void OpenExisting(const stringEx& name);
    void Close();

    sem_t* m_handle = nullptr;
    // The name to remove at the end; empty unless this object created it.
    stringEx m_unlinkName;
};

}  // namespace Orlo

#endif  // ORLO_SEMAPHORE_H
