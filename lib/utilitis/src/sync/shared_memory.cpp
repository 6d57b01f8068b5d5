// Shared memory objects: the four steps (create or open, open, map, close
// and remove) and the object made of them.
//
// Create-or-attach opens the name first and creates it only when that fails,
// so an existing area is never resized: only a creator sets the size, and a
// creator that can't set it removes the name again, leaving no area behind.
// The object releases in the reverse order of making: unmap, close, and for
// the creator remove; a step that fails while the object is being made
// undoes the ones before it.

#include "orlo/shared_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "sync_impl.h"

namespace Orlo {

namespace {

// Areas are made readable and writable for everybody, less the umask.
constexpr mode_t kAccessMode = 0666;

// The sentences for the shm_open, ftruncate, close and shm_unlink errors,
// but EINVAL, whose sentence depends on the step.
constexpr SysErrorText kAreaErrors[] = {
    {ENOENT, "the shared memory object does not exist"},
    {EEXIST, "the shared memory object already exists"},
    {EACCES, "access denied"},
    {ENOSPC, "there is insufficient space for the creation of the new shared memory object"},
    {ENOTSUP, "the request mode does not supported"},
    {ENAMETOOLONG, "name is too long"},
    {EMFILE, "too many file descriptors are currently in use by this process"},
    {ENFILE, "too many shared memory objects are currently open in the system"},
    {EBADF, "invalid smo descriptor"},
    {EFBIG, "size too big"},
    {EROFS, "the path resides on a read-only file system"},
    {EIO, "io error to the file system"},
};

constexpr auto WithInvalid(const char* text) {
    std::array<SysErrorText, std::size(kAreaErrors) + 1> table{};
    table[0] = {EINVAL, text};
    for (size_t i = 0; i < std::size(kAreaErrors); ++i)
        table[i + 1] = kAreaErrors[i];
    return table;
}

constexpr auto kOpenErrors = WithInvalid("unsupport name");
constexpr auto kSizeErrors = WithInvalid("invalid size or there is no write permission");

constexpr SysErrorText kMapErrors[] = {
    {EACCES, "access denied"},
    {EAGAIN, "mapping could not be locked in memory due to a lack of resources"},
    {EBADF, "invalid descriptor"},
    {ENOMEM, "insufficient memory"},
    {EINVAL, "invalid size, address, or flags argument"},
    {ENODEV, "the device of the descriptor does not support memory mapping"},
    {EMFILE, "too many mapped regions"},
    {ENOTSUP, "the request flags does not supported in this system"},
};

// shm_open, repeated while a signal interrupts it. Returns -1 and sets
// `error` on failure.
int OpenArea(const stringEx& name, int flags, int& error) {
    for (;;) {
        const int descriptor = shm_open(name.c_str(), flags, kAccessMode);
        if (descriptor >= 0) return descriptor;
        error = errno;
        if (error != EINTR) return -1;
    }
}

// The message of a failed open, less its system-error lines.
ExpMessage OpenMessage(const char* function, const stringEx& name, int flags) {
    ExpMessage message(function);
    message.Append(" - failed create shared memory object")
        .Detail("  smo name    = ", name)
        .Hex("  flag        = ", static_cast<uint32_t>(flags))
        .Octal("  access mode = ", kAccessMode);
    return message;
}

[[noreturn]] void ThrowOpenError(const char* function, const stringEx& name, int flags, int error) {
    throw shmemExp(OpenMessage(function, name, flags)
                       .SysError("  error code  = ", "  error desc  = ", error, kOpenErrors),
                   ShmemCode::Open);
}

// Gives a new area its size; on failure removes the area again.
void SizeNewArea(int descriptor, const stringEx& name, int flags, uint32_t size) {
    while (ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
        const int error = errno;
        if (error == EINTR) continue;
        close(descriptor);
        shm_unlink(name.c_str());
        ExpMessage message("CreateSharedMemoryObject");
        message.Append(" - failed set the size of shared memory object")
            .Detail("  smo name    = ", name)
            .Hex("  flag        = ", static_cast<uint32_t>(flags))
            .Octal("  access mode = ", kAccessMode)
            .Hex("  smo size    = ", size)
            .SysError("  error code  = ", "  error desc  = ", error, kSizeErrors);
        throw shmemExp(message, ShmemCode::SetSize);
    }
}

[[noreturn]] void ThrowReleaseError(const char* what, const stringEx& name, int error) {
    throw shmemExp(ExpMessage("CloseAndRemoveSharedMemoryObject - failed ")
                       .Append(what)
                       .Detail("  smo name   = ", name)
                       .SysError("  error code = ", "  error desc = ", error, kOpenErrors),
                   ShmemCode::Release);
}

int ProtectionFor(int flags) {
    return (flags & O_ACCMODE) == O_RDONLY ? PROT_READ : PROT_READ | PROT_WRITE;
}

}  // namespace

// ---- the steps ----------------------------------------------------------------------

int CreateSharedMemoryObject(const stringEx& name, int flags, uint32_t size, bool& created) {
    const stringEx path = IMPL::SlashName(name);
    int error = 0;
    int descriptor = OpenArea(path, flags, error);
    if (descriptor >= 0) {
        created = false;
        return descriptor;
    }
    const int createFlags = flags | O_CREAT;
    descriptor = OpenArea(path, createFlags, error);
    if (descriptor < 0) ThrowOpenError("CreateSharedMemoryObject", path, createFlags, error);
    if (size > 0) SizeNewArea(descriptor, path, createFlags, size);
    created = true;
    return descriptor;
}

int CreateSharedMemoryObject(const wstringEx& name, int flags, uint32_t size, bool& created) {
    return CreateSharedMemoryObject(IMPL::NarrowName(name), flags, size, created);
}

int OpenSharedMemoryObject(const stringEx& name, int flags) {
    const stringEx path = IMPL::SlashName(name);
    int error = 0;
    const int descriptor = OpenArea(path, flags, error);
    if (descriptor < 0) ThrowOpenError("OpenSharedMemoryObject", path, flags, error);
    return descriptor;
}

int OpenSharedMemoryObject(const wstringEx& name, int flags) {
    return OpenSharedMemoryObject(IMPL::NarrowName(name), flags);
}

void* SetupMapView(int descriptor, uint32_t size, void* addressHint, int access) {
    const int protection = ProtectionFor(access);
    void* address = mmap(addressHint, size, protection, MAP_SHARED, descriptor, 0);
    if (address != MAP_FAILED) return address;
    const int error = errno;
    throw shmemExp(ExpMessage("SetupMapView - failed create memory view")
                       .Hex("  size        = ", size)
                       .Pointer("  address arg = ", addressHint)
                       .Hex("  protection  = ", static_cast<uint32_t>(protection))
                       .Hex("  flags       = ", static_cast<uint32_t>(MAP_SHARED))
                       .SysError("  error code  = ", "  error desc  = ", error, kMapErrors),
                   ShmemCode::Map);
}

void CloseAndRemoveSharedMemoryObject(int descriptor, const stringEx& name, bool remove) {
    // After EINTR the descriptor is gone all the same; closing again could
    // close a descriptor that another thread has just been given.
    if (close(descriptor) != 0) {
        const int error = errno;
        if (error != EINTR) {
            ThrowReleaseError("close shared memory object", IMPL::SlashName(name), error);
        }
    }
    if (!remove) return;
    const stringEx path = IMPL::SlashName(name);
    if (shm_unlink(path.c_str()) == 0) return;
    const int error = errno;
    ThrowReleaseError("remove shared memory object", path, error);
}

void CloseAndRemoveSharedMemoryObject(int descriptor, const wstringEx& name, bool remove) {
    CloseAndRemoveSharedMemoryObject(descriptor, IMPL::NarrowName(name), remove);
}

// ---- the object -------------------------------------------------------------------

CSharedMemoryObject::CSharedMemoryObject(const stringEx& name, int flags, uint32_t size)
    : m_name(IMPL::SlashName(name)), m_size(size) {
    GuardDeclared<shmemExp>([&] {
        m_descriptor = CreateSharedMemoryObject(m_name, flags, size, m_createdByMe);
        MapOrDiscard(flags);
    });
}

CSharedMemoryObject::CSharedMemoryObject(const wstringEx& name, int flags, uint32_t size)
    : CSharedMemoryObject(IMPL::NarrowName(name), flags, size) {}

CSharedMemoryObject::CSharedMemoryObject(open_existing_t, const stringEx& name, int flags,
                                         uint32_t size)
    : m_name(IMPL::SlashName(name)), m_size(size) {
    GuardDeclared<shmemExp>([&] {
        m_descriptor = OpenSharedMemoryObject(m_name, flags);
        MapOrDiscard(flags);
    });
}

CSharedMemoryObject::CSharedMemoryObject(open_existing_t, const wstringEx& name, int flags,
                                         uint32_t size)
    : CSharedMemoryObject(open_existing, IMPL::NarrowName(name), flags, size) {}

CSharedMemoryObject::~CSharedMemoryObject() noexcept(false) {
    ThrowUnlessUnwinding([&] { GuardDeclared<shmemExp>([&] { Release(); }); });
}

void CSharedMemoryObject::MapOrDiscard(int flags) {
    try {
        m_address = SetupMapView(m_descriptor, m_size, nullptr, flags);
    } catch (const shmemExp&) {
        // The constructor fails, so no destructor will run: undo it here.
        close(m_descriptor);
        if (m_createdByMe) shm_unlink(m_name.c_str());
        throw;
    }
}

void CSharedMemoryObject::Release() {
    if (void* address = m_address) {
        m_address = nullptr;
        if (munmap(address, m_size) != 0) {
            const int error = errno;
            close(m_descriptor);
            m_descriptor = -1;
            throw shmemExp(ExpMessage("CSharedMemoryObject::~CSharedMemoryObject - failed release "
                                      "memory view")
                               .Pointer("  address    = ", address)
                               .Hex("  size       = ", m_size)
                               .SysError("  error code = ", "  error desc = ", error, kMapErrors),
                           ShmemCode::Release);
        }
    }
    if (m_descriptor < 0) return;
    const int descriptor = m_descriptor;
    m_descriptor = -1;
    CloseAndRemoveSharedMemoryObject(descriptor, m_name, m_createdByMe);
}

}  // namespace Orlo
