// CSem and CProcSem. The waits and posts are one set of functions on a
// sem_t, shared by both classes, which differ only in how the semaphore is
// made and released and in the class name of their head lines.
//
// Every wait repeats when a signal interrupts it (EINTR), towards the same
// deadline, so a signal never ends a wait early. errno is saved at once after
// each failed call: building a message may change it.

#include "orlo/semaphore.h"

#include <fcntl.h>

#include <cerrno>

#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "sync_impl.h"

namespace Orlo {

namespace {

constexpr SysErrorText kInitErrors[] = {
    {EINVAL, "the init value exceeds max limited"},
    {ENOSPC, "the max semaphores limit has been reached"},
    {EPERM, "permission denied"},
};
constexpr SysErrorText kDestroyErrors[] = {
    {EBUSY, "there are currently processes blocked on the semaphore"},
    {EINVAL, "current object is not a valid semaphore"},
};
constexpr SysErrorText kNamedErrors[] = {
    {EACCES, "access denied"},
    {EEXIST, "the named semaphore already exists"},
    {EINVAL, "unsupport name or value is too big"},
    {EMFILE, "too many file descriptors are currently open in this process"},
    {ENAMETOOLONG, "semaphore name is too long"},
    {ENFILE, "too many semaphores are currently open in the system"},
    {ENOENT, "the named semaphore does not exist"},
    {ENOSPC, "there is insufficient space for the creation of the new named semaphore"},
};
constexpr SysErrorText kCloseErrors[] = {{EINVAL, "current object is not a valid semaphore"}};
constexpr SysErrorText kUnlinkErrors[] = {
    {EACCES, "access denied"},
    {ENAMETOOLONG, "semaphore name is too long"},
};
constexpr SysErrorText kWaitErrors[] = {
    {EINVAL, "current object is not a valid semaphore"},
    {EDEADLK, "deadlock detected"},
};
constexpr SysErrorText kTimedWaitErrors[] = {
    {EINVAL, "invalid semaphore obj or invalid timeout argument"},
    {EDEADLK, "deadlock detected"},
};
constexpr const char* kPostText = "current object is not a valid semaphore";

// The head lines of one class: its waits and posts share one.
constexpr const char* kSemHead = "CSem::P - failed P a semaphore";
constexpr const char* kProcSemHead = "CProcSem::P - failed P a semaphore";

[[noreturn]] void ThrowSemError(const char* head, int error, std::span<const SysErrorText> known,
                                int32_t code) {
    throw semExp(ExpMessage(head).SysError("  error code = ", "  error desc = ", error, known),
                 code);
}

// The named forms line their labels up with "  semaphore name = ".
[[noreturn]] void ThrowNamedError(const char* head, const stringEx& name, int error,
                                  std::span<const SysErrorText> known, int32_t code) {
    throw semExp(ExpMessage(head)
                     .Detail("  semaphore name = ", name)
                     .SysError("  error code     = ", "  error desc     = ", error, known),
                 code);
}

bool Wait(sem_t* sem, const char* head) {
    while (sem_wait(sem) != 0) {
        const int error = errno;
        if (error != EINTR) ThrowSemError(head, error, kWaitErrors, SyncCode::Wait);
    }
    return true;
}

bool TryWait(sem_t* sem, const char* head) {
    while (sem_trywait(sem) != 0) {
        const int error = errno;
        if (error == EAGAIN) return false;
        if (error != EINTR) ThrowSemError(head, error, kWaitErrors, SyncCode::Wait);
    }
    return true;
}

bool WaitUntil(sem_t* sem, const timespec& deadline) {
    while (sem_timedwait(sem, &deadline) != 0) {
        const int error = errno;
        if (error == ETIMEDOUT) return false;
        if (error != EINTR) {
            ThrowSemError("TimedWait - failed P a semaphore", error, kTimedWaitErrors,
                          SyncCode::Wait);
        }
    }
    return true;
}

bool WaitFor(sem_t* sem, uint32_t milliseconds, const char* head) {
    if (milliseconds == 0) return TryWait(sem, head);
    if (milliseconds == IMPL::kWaitForever) return Wait(sem, head);
    return WaitUntil(sem, IMPL::DeadlineAfter(milliseconds));
}

void Post(sem_t* sem, uint32_t count, const char* head) {
    for (; count > 0; --count) {
        if (sem_post(sem) == 0) continue;
        const int error = errno;
        ThrowSemError(head, error, IMPL::AnyError(error, kPostText), SyncCode::Wait);
    }
}

// sem_open, repeated while a signal interrupts it. The count and the mode
// only matter with O_CREAT. Returns null and sets `error` on failure.
sem_t* OpenNamed(const stringEx& name, int flags, uint32_t initialCount, int& error) {
    for (;;) {
        sem_t* handle = sem_open(name.c_str(), flags, 0666, initialCount);
        if (handle != SEM_FAILED) return handle;
        error = errno;
        if (error != EINTR) return nullptr;
    }
}

}  // namespace

// ---- CSem -----------------------------------------------------------------------

CSem::CSem(uint32_t initialCount, uint32_t /*maximumCount*/) {
    GuardDeclared<semExp>([&] {
        if (sem_init(&m_sem, 0, initialCount) == 0) return;
        const int error = errno;
        ThrowSemError("CSem::__Init - failed create semaphore", error, kInitErrors,
                      SyncCode::Create);
    });
}

CSem::~CSem() noexcept(false) {
    ThrowUnlessUnwinding([&] {
        GuardDeclared<semExp>([&] {
            if (sem_destroy(&m_sem) == 0) return;
            const int error = errno;
            ThrowSemError("CSem::~CSem - failed destroy semaphore", error, kDestroyErrors,
                          SyncCode::Close);
        });
    });
}

bool CSem::P() {
    return GuardDeclared<semExp>([&] { return Wait(&m_sem, kSemHead); });
}

bool CSem::TryP() {
    return GuardDeclared<semExp>([&] { return TryWait(&m_sem, kSemHead); });
}

bool CSem::P(const timespec& absolute) {
    return GuardDeclared<semExp>([&] { return WaitUntil(&m_sem, absolute); });
}

bool CSem::P(uint32_t milliseconds) {
    return GuardDeclared<semExp, timeExp>([&] { return WaitFor(&m_sem, milliseconds, kSemHead); });
}

void CSem::V(uint32_t count) {
    GuardDeclared<semExp>([&] { Post(&m_sem, count, kSemHead); });
}

// ---- CProcSem -------------------------------------------------------------------

CProcSem::CProcSem(const stringEx& name, uint32_t initialCount) {
    GuardDeclared<semExp>([&] { CreateOrAttach(IMPL::SlashName(name), initialCount); });
}

CProcSem::CProcSem(const wstringEx& name, uint32_t initialCount)
    : CProcSem(IMPL::NarrowName(name), initialCount) {}

CProcSem::CProcSem(const stringEx& name) {
    GuardDeclared<semExp>([&] { OpenExisting(IMPL::SlashName(name)); });
}

CProcSem::CProcSem(const wstringEx& name) : CProcSem(IMPL::NarrowName(name)) {}

CProcSem::~CProcSem() noexcept(false) {
    ThrowUnlessUnwinding([&] { GuardDeclared<semExp>([&] { Close(); }); });
}

void CProcSem::CreateOrAttach(const stringEx& name, uint32_t initialCount) {
    int error = 0;
    // Attaching first leaves the count of an existing semaphore alone.
    m_handle = OpenNamed(name, 0, 0, error);
    if (m_handle) return;
    m_handle = OpenNamed(name, O_CREAT, initialCount, error);
    if (!m_handle) {
        ThrowNamedError("CreateNamedSemaphore - failed create named semaphore", name, error,
                        kNamedErrors, SyncCode::Create);
    }
    m_unlinkName = name;
}

void CProcSem::OpenExisting(const stringEx& name) {
    int error = 0;
    m_handle = OpenNamed(name, 0, 0, error);
    if (m_handle) return;
    ThrowNamedError("OpenNamedSemaphore - failed create named semaphore", name, error, kNamedErrors,
                    SyncCode::OpenNamed);
}

void CProcSem::Close() {
    sem_t* handle = m_handle;
    m_handle = nullptr;
    if (handle && sem_close(handle) != 0) {
        const int error = errno;
        // The name stays behind: it may still be what the handle refers to.
        ThrowSemError("CProcSem::~CProcSem - failed close named semaphore", error, kCloseErrors,
                      SyncCode::Close);
    }
    if (m_unlinkName.empty() || sem_unlink(m_unlinkName.c_str()) == 0) return;
    const int error = errno;
    if (error == ENOENT) return;  // somebody removed it already: the goal is reached
    ThrowNamedError("CProcSem::~CProcSem - failed unlink the named semaphore", m_unlinkName, error,
                    kUnlinkErrors, SyncCode::Close);
}

bool CProcSem::P() {
    return GuardDeclared<semExp>([&] { return Wait(m_handle, kProcSemHead); });
}

bool CProcSem::TryP() {
    return GuardDeclared<semExp>([&] { return TryWait(m_handle, kProcSemHead); });
}

bool CProcSem::P(const timespec& absolute) {
    return GuardDeclared<semExp>([&] { return WaitUntil(m_handle, absolute); });
}

bool CProcSem::P(uint32_t milliseconds) {
    return GuardDeclared<semExp, timeExp>(
        [&] { return WaitFor(m_handle, milliseconds, kProcSemHead); });
}

void CProcSem::V(uint32_t count) {
    GuardDeclared<semExp>([&] { Post(m_handle, count, kProcSemHead); });
}

}  // namespace Orlo
