// CMutex and CProcMutex. Both are a recursive pthread mutex; the operations
// are one set of functions on a pthread_mutex_t, shared by the two classes,
// which differ in where the mutex lives, who makes and destroys it, and the
// class name of their head lines.
//
// Making a mutex is a sequence of steps (attribute, type, sharing, init,
// attribute release, first lock); a step that fails undoes the ones before
// it, in reverse order, before it throws, so a failed constructor leaves
// nothing behind. A CProcMutex is made only by the process that created its
// shared memory; the others find it ready.

#include "orlo/mutex.h"

#include <fcntl.h>

#include <cerrno>

#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "sync_impl.h"

namespace Orlo {

namespace {

constexpr SysErrorText kInitErrors[] = {
    {EBUSY, "attempt to reinitialize the mutex"},
    {EINVAL, "invalid attr object"},
};
constexpr SysErrorText kLockErrors[] = {
    {EINVAL, "mutex object does not correctly initialized"},
    {EDEADLK, "deadlock detected"},
    {EAGAIN, "maximum number of recursive locks has been exceeded"},
};
constexpr SysErrorText kUnlockErrors[] = {
    {EAGAIN, "maximum number of recursive locks has been exceeded"},
    {EINVAL, "mutex object does not correctly initialized"},
    {EPERM, "the current thread does not own the mutex"},
};
constexpr SysErrorText kDestroyErrors[] = {
    {EBUSY, "attempt to destroy a locked mutex"},
    {EINVAL, "the value specified by mutex is invalid"},
};

// The head lines of one way of making a mutex.
struct MakeHeads {
    const char* attrInit;
    const char* setType;
    const char* setShared;
    const char* init;
    const char* attrRelease;
};

constexpr MakeHeads kPrivateHeads = {
    "CMutex::CMutex - failed create mutex attribute",
    "CMutex::CMutex - failed create mutex (set type)",
    nullptr,
    "CMutex::CMutex - failed create mutex",
    "CMutex::CMutex - failed release mutex attribute",
};
constexpr MakeHeads kNamedHeads = {
    "CreateNamedMutex - failed create mutex attribute",
    "CreateNamedMutex - failed create mutex (set type)",
    "CreateNamedMutex - failed create mutex (set shared)",
    "CreateNamedMutex - failed create mutex",
    "CreateNamedMutex - failed release mutex attribute",
};

// The head lines of one class's operations.
struct OperationHeads {
    const char* lock;
    const char* tryLock;
    const char* unlock;
    const char* destroy;
};

constexpr OperationHeads kMutexHeads = {
    "CMutex::Lock - failed lock mutex",
    "CMutex::TryLock - failed lock mutex",
    "CMutex::UnLock - failed unlock mutex",
    "CMutex::~CMutex - failed close mutex",
};
constexpr OperationHeads kProcMutexHeads = {
    "CProcMutex::Lock - failed lock mutex",
    "CProcMutex::TryLock - failed lock mutex",
    "CProcMutex::UnLock - failed unlock mutex",
    "CProcMutex::~CProcMutex - failed close mutex",
};

[[noreturn]] void ThrowMutexError(const char* head, int error, std::span<const SysErrorText> known,
                                  int32_t code) {
    throw mutexExp(ExpMessage(head).SysError("  error code = ", "  error desc = ", error, known),
                   code);
}

// Initialises `mutex` as a recursive mutex, process-shared if `shared`.
void MakeRecursiveMutex(pthread_mutex_t* mutex, bool shared, const MakeHeads& heads) {
    pthread_mutexattr_t attr;
    int rc = pthread_mutexattr_init(&attr);
    if (rc != 0) {
        ThrowMutexError(heads.attrInit, rc,
                        IMPL::AnyError(rc, "insufficient memory exists to initialize the attrs"),
                        SyncCode::Create);
    }
    auto failWithAttr = [&](const char* head, int error, std::span<const SysErrorText> known) {
        pthread_mutexattr_destroy(&attr);
        ThrowMutexError(head, error, known, SyncCode::Create);
    };
    rc = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    if (rc != 0) {
        failWithAttr(heads.setType, rc, IMPL::AnyError(rc, "attr's type value is invalid"));
    }
    if (shared) {
        rc = pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
        if (rc != 0) {
            failWithAttr(heads.setShared, rc,
                         IMPL::AnyError(rc, "the process-shared attribute is invalid"));
        }
    }
    rc = pthread_mutex_init(mutex, &attr);
    if (rc != 0) failWithAttr(heads.init, rc, kInitErrors);
    rc = pthread_mutexattr_destroy(&attr);
    if (rc != 0) {
        pthread_mutex_destroy(mutex);
        ThrowMutexError(heads.attrRelease, rc,
                        IMPL::AnyError(rc, "the value specified by attr is invalid"),
                        SyncCode::Create);
    }
}

bool LockMutex(pthread_mutex_t* mutex, const char* head) {
    const int rc = pthread_mutex_lock(mutex);
    if (rc != 0) ThrowMutexError(head, rc, kLockErrors, SyncCode::Wait);
    return true;
}

bool TryLockMutex(pthread_mutex_t* mutex, const char* head) {
    const int rc = pthread_mutex_trylock(mutex);
    if (rc == 0) return true;
    if (rc == EBUSY) return false;
    ThrowMutexError(head, rc, kLockErrors, SyncCode::Wait);
}

bool LockMutexUntil(pthread_mutex_t* mutex, const timespec& deadline) {
    const int rc = pthread_mutex_timedlock(mutex, &deadline);
    if (rc == 0) return true;
    if (rc == ETIMEDOUT) return false;
    ThrowMutexError("TimedLock - failed lock mutex", rc, kLockErrors, SyncCode::Wait);
}

bool LockMutexFor(pthread_mutex_t* mutex, uint32_t milliseconds, const OperationHeads& heads) {
    if (milliseconds == 0) return TryLockMutex(mutex, heads.tryLock);
    if (milliseconds == IMPL::kWaitForever) return LockMutex(mutex, heads.lock);
    return LockMutexUntil(mutex, IMPL::DeadlineAfter(milliseconds));
}

void UnlockMutex(pthread_mutex_t* mutex, const char* head) {
    const int rc = pthread_mutex_unlock(mutex);
    if (rc != 0) ThrowMutexError(head, rc, kUnlockErrors, SyncCode::Unlock);
}

// The first lock of a new mutex; if it fails the mutex is destroyed, as the
// constructor that made it fails.
void LockNewMutex(pthread_mutex_t* mutex, const char* head) {
    const int rc = pthread_mutex_lock(mutex);
    if (rc == 0) return;
    pthread_mutex_destroy(mutex);
    ThrowMutexError(head, rc, kLockErrors, SyncCode::Wait);
}

}  // namespace

// ---- CMutex ---------------------------------------------------------------------

CMutex::CMutex(bool initiallyOwned) {
    GuardDeclared<mutexExp>([&] {
        MakeRecursiveMutex(&m_mutex, false, kPrivateHeads);
        if (initiallyOwned) LockNewMutex(&m_mutex, kMutexHeads.lock);
    });
}

CMutex::~CMutex() noexcept(false) {
    ThrowUnlessUnwinding([&] {
        GuardDeclared<mutexExp>([&] {
            const int rc = pthread_mutex_destroy(&m_mutex);
            if (rc != 0) ThrowMutexError(kMutexHeads.destroy, rc, kDestroyErrors, SyncCode::Close);
        });
    });
}

bool CMutex::Lock() {
    return GuardDeclared<mutexExp>([&] { return LockMutex(&m_mutex, kMutexHeads.lock); });
}

bool CMutex::TryLock() {
    return GuardDeclared<mutexExp>([&] { return TryLockMutex(&m_mutex, kMutexHeads.tryLock); });
}

bool CMutex::TimedLock(uint32_t milliseconds) {
    return GuardDeclared<mutexExp, timeExp>(
        [&] { return LockMutexFor(&m_mutex, milliseconds, kMutexHeads); });
}

bool CMutex::TimedLock(const timespec& absolute) {
    return GuardDeclared<mutexExp>([&] { return LockMutexUntil(&m_mutex, absolute); });
}

void CMutex::UnLock() {
    GuardDeclared<mutexExp>([&] { UnlockMutex(&m_mutex, kMutexHeads.unlock); });
}

// ---- CProcMutex -------------------------------------------------------------------
// The shared memory's failure is wrapped in the mutex's own; the handlers of
// the function-try-blocks run after the shared memory object has been torn
// down, which removes an area that this process created.

CProcMutex::CProcMutex(const stringEx& name, bool initiallyOwned) try
    : CSharedMemoryObject(name, O_RDWR, sizeof(pthread_mutex_t)) {
    InitIfCreated(initiallyOwned);
} catch (const shmemExp& inner) {
    throw mutexExp(ExpMessage("CProcMutex::CProcMutex - failed create shared memory")
                       .Detail("  name = ", name)
                       .Wraps(inner),
                   SyncCode::Create);
} catch (...) {
    IMPL::RethrowIfDeclared<mutexExp>();
}

CProcMutex::CProcMutex(const wstringEx& name, bool initiallyOwned)
    : CProcMutex(IMPL::NarrowName(name), initiallyOwned) {}

CProcMutex::CProcMutex(const stringEx& name) try
    : CSharedMemoryObject(open_existing, name, O_RDWR, sizeof(pthread_mutex_t)) {
} catch (const shmemExp& inner) {
    throw mutexExp(ExpMessage("CProcMutex::CProcMutex - failed open shared memory")
                       .Detail("  name = ", name)
                       .Wraps(inner),
                   SyncCode::Create);
} catch (...) {
    IMPL::RethrowIfDeclared<mutexExp>();
}

CProcMutex::CProcMutex(const wstringEx& name) : CProcMutex(IMPL::NarrowName(name)) {}

CProcMutex::~CProcMutex() noexcept(false) {
    // An attached process leaves the mutex to its creator.
    if (!CreatedByMe()) return;
    const int rc = pthread_mutex_destroy(NativeHandle());
    if (rc == 0) return;
    // The mutex may still be held through another process's view: keep the
    // area for it rather than pull the name away.
    LeaveAreaBehind();
    ThrowUnlessUnwinding([&] {
        GuardDeclared<mutexExp>(
            [&] { ThrowMutexError(kProcMutexHeads.destroy, rc, kDestroyErrors, SyncCode::Close); });
    });
}

void CProcMutex::InitIfCreated(bool initiallyOwned) {
    // An existing mutex is ready; its owner, if any, is somebody else.
    if (!CreatedByMe()) return;
    MakeRecursiveMutex(NativeHandle(), true, kNamedHeads);
    if (initiallyOwned) LockNewMutex(NativeHandle(), kProcMutexHeads.lock);
}

bool CProcMutex::Lock() {
    return GuardDeclared<mutexExp>([&] { return LockMutex(NativeHandle(), kProcMutexHeads.lock); });
}

bool CProcMutex::TryLock() {
    return GuardDeclared<mutexExp>(
        [&] { return TryLockMutex(NativeHandle(), kProcMutexHeads.tryLock); });
}

bool CProcMutex::TimedLock(uint32_t milliseconds) {
    return GuardDeclared<mutexExp, timeExp>(
        [&] { return LockMutexFor(NativeHandle(), milliseconds, kProcMutexHeads); });
}

bool CProcMutex::TimedLock(const timespec& absolute) {
    return GuardDeclared<mutexExp>([&] { return LockMutexUntil(NativeHandle(), absolute); });
}

void CProcMutex::UnLock() {
    GuardDeclared<mutexExp>([&] { UnlockMutex(NativeHandle(), kProcMutexHeads.unlock); });
}

}  // namespace Orlo
