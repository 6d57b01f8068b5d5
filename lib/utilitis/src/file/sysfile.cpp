// CSysFile's members and the seek and range-lock helpers under them.
//
// Each member makes one system call (GetSize three), repeats it while a
// signal interrupts it, and turns any other failure into a sysfileExp: a head
// line naming the member, the path, the error number and the sentence for it.
// Members that stand on a free helper (the seeks, the locks) wrap the
// helper's text behind "@ " under their own head line, so a message reads
// from the member inward to the system call.
//
// Ownership: `m_owner` is a heap counter shared by all copies of one open
// descriptor. Every path that leaves a value closed goes through Release,
// which clears the fields first and closes last, so a failing close still
// leaves the value closed and never closes twice.

#include "orlo/sysfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cerrno>
#include <memory>
#include <span>
#include <utility>

#include "file/sysfile_impl.h"
#include "orlo/dir.h"
#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"

namespace Orlo {

namespace {

using IMPL::RetryOnSignal;

constexpr SysErrorText kReadErrors[] = {
    {EIO, "physical io error, or background process attempt to read from console terminal"},
    {ENXIO, "device not exist, or the request was outside the capabilities of the device"},
    {EBADF, "invalid file descriptor"},
    {EAGAIN, "the thread would be delayed in non block mode"},
    {ENOMEM, "insufficient memory was available to fulfill the request"},
    {EISDIR, "the file refers to a directory"},
    {EINVAL, "the stream is linked (directly or indirectly) downstream from a multiplexer"},
    {EBADMSG, "reading control message on a stream file"},
    {EOVERFLOW, "offset or length is out-of-range"},
    {ENOBUFS, "insufficient resources were available in the system to perform the operation"},
};

constexpr SysErrorText kWriteErrors[] = {
    {EIO, "physical io error, or background process attempt to write to its console terminal"},
    {ENXIO, "device not exist, or the request was outside the capabilities of the device"},
    {EBADF, "invalid file descriptor"},
    {EAGAIN, "the thread would be delayed in non block mode"},
    {ENOMEM, "insufficient memory was available to fulfill the request"},
    {EINVAL, "the stream is linked (directly or indirectly) downstream from a multiplexer"},
    {EFBIG, "no room for write, or offset out-of-range"},
    {ENOSPC, "there was no free space remaining on the device containing the file"},
    {EPIPE, "error writing pipe, pipe has been broken"},
    {ERANGE, "the transfer request size was outside the range supported by the streams file"},
    {ENOBUFS, "insufficient resources were available in the system to perform the operation"},
};

constexpr SysErrorText kSeekErrors[] = {
    {EBADF, "invalid file descriptor"},
    {EINVAL, "invalide argument, or the resulting file offset would be negative for the file"},
    {ESPIPE, "the fildes argument is associated with a pipe, fifo, or socket"},
    {EOVERFLOW, "the new file offset is too big"},
};

constexpr SysErrorText kGetTimeErrors[] = {
    {EBADF, "invalid file descriptor"},
    {EIO, "io error occurred while reading from the file system"},
    {EOVERFLOW, "some fields cannot be represented correctly in the structure"},
};

constexpr SysErrorText kSetTimeErrors[] = {
    {EPERM, "the calling process does not have the appropriate privileges"},
    {ENOENT, "file not exists"},
    {EACCES, "permission is denied"},
    {ENOTDIR, "path prefix is not a valid directory"},
    {EROFS, "the file system containing the file is read-only"},
    {ENAMETOOLONG, "pathname is too long"},
    {ELOOP, "a loop exists in the symbolic links or links level is too deep"},
};

constexpr SysErrorText kFlushErrors[] = {
    {EBADF, "invalid file descriptor"},
    {EINVAL, "the file is not support this operation"},
    {EIO, "io error occurred to the file system"},
};

constexpr SysErrorText kResizeErrors[] = {
    {EBADF, "invalid file descriptor"},
    {EINVAL, "invalid size or there is no write permission"},
    {EFBIG, "size too big"},
    {EIO, "io error to the file system"},
    {EROFS, "the file resides on a read-only file system"},
};

constexpr SysErrorText kLockErrors[] = {
    {EDEADLK, "deadlock detected"},
    {EBADF,
     "invalid file descriptor or wrong access mode, or the open mode does not match the lock "
     "type"},
    {EINVAL, "invalid arguments or file does not support locking"},
    {ENOLCK, "lock number exceed the system limit"},
    {EOVERFLOW, "offset out-of-range"},
};

constexpr SysErrorText kUnlockErrors[] = {
    {EBADF, "invalid file descriptor or wrong access mode"},
    {EINVAL, "invalid arguments"},
    {ENOLCK, "lock number exceed the system limit"},
    {EOVERFLOW, "offset out-of-range"},
};

// The common form of a member's failure: head, path, error number, sentence.
[[noreturn]] void ThrowFileError(const char* head, const stringEx& path, int error,
                                 std::span<const SysErrorText> known, int32_t code) {
    throw sysfileExp(ExpMessage(head)
                         .Detail("  file path  = ", path)
                         .SysError("  error code = ", "  error desc = ", error, known),
                     code);
}

// Runs `work`, a call of a free helper, and puts the helper's failure behind
// "@ " under the member's own head line and code.
template <class Work>
auto WrapHelper(const char* head, const stringEx& path, int32_t code, Work&& work) {
    try {
        return work();
    } catch (const sysfileExp& inner) {
        throw sysfileExp(ExpMessage(head).Detail("  file path = ", path).Wraps(inner), code);
    }
}

// The full form of the path to open, or the failure to find it as the
// open's own.
stringEx FullPathOf(const stringEx& path) {
    try {
        return CDir::ConvToFullPath(path);
    } catch (const byExp& inner) {
        throw sysfileExp(ExpMessage("CSysFile::Open - failed determine the file path to open")
                             .Detail("  file name  = ", path)
                             .Wraps(inner),
                         FileCode::Open);
    }
}

// A file time as the library reports it: the local zone bias taken off.
CTime FileTime(time_t seconds) {
    return CTime(int64_t(seconds) * kUsPerSecond - int64_t(IMPL::LocalZoneBias()) * kUsPerMinute);
}

}  // namespace

// ---- free helpers ----------------------------------------------------------------------

int64_t PosixSeekFile(int fd, int64_t offset, int whence) {
    const off64_t position = RetryOnSignal([&] { return lseek64(fd, offset, whence); });
    if (position != -1) return position;
    const int error = errno;
    throw sysfileExp(ExpMessage("PosixSeekFile - error seek file pointer")
                         .SysError("  sys error  = ", "  error desc = ", error, kSeekErrors),
                     FileCode::Seek);
}

bool PosixLockFile(int fd, uint32_t from, uint32_t length, int type, bool wait) {
    struct flock region {};
    region.l_type = static_cast<short>(type);
    region.l_whence = SEEK_SET;
    region.l_start = from;
    region.l_len = length;
    const int command = wait ? F_SETLKW : F_SETLK;
    if (RetryOnSignal([&] { return fcntl(fd, command, &region); }) != -1) return true;
    const int error = errno;
    if (!wait && (error == EACCES || error == EAGAIN)) return false;
    throw sysfileExp(ExpMessage("PosixLockFile - failed lock file region")
                         .UInt("  from       = ", from)
                         .UInt("  length     = ", length)
                         .SysError("  error code = ", "  error desc = ", error, kLockErrors),
                     FileCode::Lock);
}

void PosixUnLockFile(int fd, uint32_t from, uint32_t length) {
    struct flock region {};
    region.l_type = F_UNLCK;
    region.l_whence = SEEK_SET;
    region.l_start = from;
    region.l_len = length;
    if (RetryOnSignal([&] { return fcntl(fd, F_SETLKW, &region); }) != -1) return;
    const int error = errno;
    throw sysfileExp(ExpMessage("PosixUnLockFile - failed unlock file region")
                         .UInt("  from       = ", from)
                         .UInt("  length     = ", length)
                         .SysError("  error code = ", "  error desc = ", error, kUnlockErrors),
                     FileCode::Unlock);
}

// ---- ownership ---------------------------------------------------------------------------

CSysFile::CSysFile(const CSysFile& other) noexcept
    : m_handle(other.m_handle), m_owner(other.m_owner), m_path(other.m_path) {
    if (m_owner) m_owner->fetch_add(1, std::memory_order_relaxed);
}

CSysFile::CSysFile(CSysFile&& other) noexcept
    : m_handle(std::exchange(other.m_handle, -1)),
      m_owner(std::exchange(other.m_owner, nullptr)),
      m_path(std::move(other.m_path)) {}

CSysFile& CSysFile::operator=(const CSysFile& other) {
    if (this == &other) return *this;
    CSysFile former(std::move(*this));
    *this = CSysFile(other);
    former.Close();
    return *this;
}

CSysFile& CSysFile::operator=(CSysFile&& other) {
    if (this == &other) return *this;
    CSysFile former(std::move(*this));
    m_handle = std::exchange(other.m_handle, -1);
    m_owner = std::exchange(other.m_owner, nullptr);
    m_path = std::move(other.m_path);
    former.Close();
    return *this;
}

CSysFile::~CSysFile() noexcept(false) {
    ThrowUnlessUnwinding([&] { GuardDeclared<sysfileExp>([&] { Release(); }); });
}

void CSysFile::Release() {
    const int handle = std::exchange(m_handle, -1);
    Counter* owner = std::exchange(m_owner, nullptr);
    const stringEx path = std::move(m_path);
    m_path.clear();
    if (!owner) return;
    // acq_rel: the last owner must see every write the others made through
    // the descriptor's record before it frees the counter.
    if (owner->fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    delete owner;
    __Close(handle, path);
}

void CSysFile::__Close(int handle, const stringEx& path) {
    const int error = IMPL::CloseDescriptor(handle);
    if (error == 0) return;
    throw sysfileExp(ExpMessage("CSysFile::__Close - error close file descriptor")
                         .Detail("  file path  = ", path)
                         .SysError("  sys error  = ", "  error desc = ", error, IMPL::kCloseErrors),
                     FileCode::Close);
}

// ---- open and close ------------------------------------------------------------------------

void CSysFile::Open(const stringEx& path, int access, int create, int share, uint32_t mode,
                    uint32_t options) {
    // A logger may throw from the warnings of the open; that is its choice.
    GuardDeclared<byExp>([&] {
        m_path.clear();
        // Allocated first, so that no failure can come between the open and
        // the descriptor's owner.
        auto owner = std::make_unique<Counter>(1);
        const stringEx full = FullPathOf(path);
        const int handle = PosixOpenFile(full, access, create, share, mode, options);
        CSysFile former(std::move(*this));
        m_handle = handle;
        m_owner = owner.release();
        m_path = full;
        former.Close();
    });
}

void CSysFile::Open(int console) {
    GuardDeclared<sysfileExp>([&] {
        m_path.clear();
        if (console < ConsoleStream::Input || console > ConsoleStream::Error) {
            throw sysfileExp(
                ExpMessage("CSysFile::Open - unknown console type: ").AppendInt(console),
                FileCode::Open);
        }
        CSysFile former(std::move(*this));
        m_handle = console;
        former.Close();
    });
}

CSysFile CSysFile::ReOpen(int access, int share, uint32_t options) const {
    return GuardDeclared<byExp>([&] {
        if (m_path.empty()) {
            throw sysfileExp(ExpMessage("CSysFile::ReOpen - don't know how to reopen, empty path"),
                             FileCode::Open);
        }
        CSysFile fresh;
        fresh.Open(m_path, access, 0, share, 0666, options);
        return fresh;
    });
}

CSysFile CSysFile::Duplicate() const {
    return GuardDeclared<sysfileExp>([&] {
        auto owner = std::make_unique<Counter>(1);
        // Close-on-exec like every descriptor the library opens; plain dup
        // would drop it.
        const int handle = RetryOnSignal([&] { return fcntl(m_handle, F_DUPFD_CLOEXEC, 0); });
        if (handle == -1) {
            ThrowFileError("CSysFile::Duplicate - failed duplicate file descriptor", m_path, errno,
                           IMPL::kDuplicateErrors, FileCode::Duplicate);
        }
        CSysFile copy;
        copy.m_handle = handle;
        copy.m_owner = owner.release();
        copy.m_path = m_path;
        return copy;
    });
}

int CSysFile::Disclaim() {
    return GuardDeclared<sysfileExp>([&] {
        if (!m_owner || m_owner->load(std::memory_order_acquire) != 1) {
            throw sysfileExp(ExpMessage("CSysFile::Disclaim - ownership check failed"),
                             FileCode::Disclaim);
        }
        delete std::exchange(m_owner, nullptr);
        m_path.clear();
        return std::exchange(m_handle, -1);
    });
}

void CSysFile::Close() {
    GuardDeclared<sysfileExp>([&] { Release(); });
}

// ---- transfer -----------------------------------------------------------------------------

int64_t CSysFile::Read(void* buffer, uint64_t size) {
    return GuardDeclared<sysfileExp>([&] {
        const ssize_t count = RetryOnSignal([&] { return read(m_handle, buffer, size); });
        if (count == -1) {
            ThrowFileError("CSysFile::Read - failed reading file", m_path, errno, kReadErrors,
                           FileCode::Read);
        }
        return int64_t(count);
    });
}

int64_t CSysFile::Write(const void* buffer, uint64_t size) {
    return GuardDeclared<sysfileExp>([&] {
        const ssize_t count = RetryOnSignal([&] { return write(m_handle, buffer, size); });
        if (count == -1) {
            // The read's head line on purpose: both directions share it.
            ThrowFileError("CSysFile::Read - failed reading file", m_path, errno, kWriteErrors,
                           FileCode::Write);
        }
        return int64_t(count);
    });
}

// ---- position and size -----------------------------------------------------------------------

int64_t CSysFile::SeekBegin(int64_t offset) {
    return GuardDeclared<sysfileExp>([&] {
        return WrapHelper("CSysFile::SeekBegin - failed seeking in file", m_path, FileCode::Seek,
                          [&] { return PosixSeekFile(m_handle, offset, SEEK_SET); });
    });
}

int64_t CSysFile::SeekCurrent(int64_t offset) {
    return GuardDeclared<sysfileExp>([&] {
        return WrapHelper("CSysFile::SeekCurrent - failed seeking in file", m_path, FileCode::Seek,
                          [&] { return PosixSeekFile(m_handle, offset, SEEK_CUR); });
    });
}

int64_t CSysFile::SeekEnd(int64_t offset) {
    return GuardDeclared<sysfileExp>([&] {
        return WrapHelper("CSysFile::SeekEnd - failed seeking in file", m_path, FileCode::Seek,
                          [&] { return PosixSeekFile(m_handle, offset, SEEK_END); });
    });
}

int64_t CSysFile::GetCurrentPos() const {
    return GuardDeclared<sysfileExp>([&] {
        return WrapHelper("CSysFile::GetCurrentPos - failed get current position", m_path,
                          FileCode::GetPosition,
                          [&] { return PosixSeekFile(m_handle, 0, SEEK_CUR); });
    });
}

int64_t CSysFile::GetSize() const {
    return GuardDeclared<sysfileExp>([&] {
        return WrapHelper("CSysFile::GetSize - failed retrive file size", m_path, FileCode::GetSize,
                          [&] {
                              const int64_t saved = PosixSeekFile(m_handle, 0, SEEK_CUR);
                              const int64_t size = PosixSeekFile(m_handle, 0, SEEK_END);
                              PosixSeekFile(m_handle, saved, SEEK_SET);
                              return size;
                          });
    });
}

void CSysFile::ResizeToCurrentPos() {
    GuardDeclared<sysfileExp>([&] {
        const int64_t position = GetCurrentPos();
        if (RetryOnSignal([&] { return ftruncate64(m_handle, position); }) != -1) return;
        const int error = errno;
        throw sysfileExp(
            ExpMessage("CSysFile::ResizeToCurrentPos - failed set the size of shared memory object")
                .Detail("  file path  = ", m_path)
                .Int64("  resize to  = ", position)
                .SysError("  error code = ", "  error desc = ", error, kResizeErrors),
            FileCode::Resize);
    });
}

void CSysFile::Flush() {
    GuardDeclared<sysfileExp>([&] {
        if (RetryOnSignal([&] { return fsync(m_handle); }) != -1) return;
        ThrowFileError("CSysFile::Flush - failed flush the file", m_path, errno, kFlushErrors,
                       FileCode::Flush);
    });
}

// ---- range locks -------------------------------------------------------------------------------

void CSysFile::Lock(uint32_t from, uint32_t length, int type) {
    GuardDeclared<sysfileExp>([&] {
        WrapHelper("CSysFile::Lock - failed lock file", m_path, FileCode::Lock,
                   [&] { return PosixLockFile(m_handle, from, length, type, true); });
    });
}

bool CSysFile::TryLock(uint32_t from, uint32_t length, int type) {
    return GuardDeclared<sysfileExp>([&] {
        return WrapHelper("CSysFile::TryLock - error occured while trying to lock file", m_path,
                          FileCode::Lock,
                          [&] { return PosixLockFile(m_handle, from, length, type, false); });
    });
}

void CSysFile::UnLock(uint32_t from, uint32_t length) {
    GuardDeclared<sysfileExp>([&] {
        WrapHelper("CSysFile::UnLock - failed unlock file", m_path, FileCode::Unlock,
                   [&] { PosixUnLockFile(m_handle, from, length); });
    });
}

// ---- times
// ---------------------------------------------------------------------------------------

namespace {

struct stat64 StatusOf(int handle, const stringEx& path) {
    struct stat64 status {};
    if (RetryOnSignal([&] { return fstat64(handle, &status); }) != -1) return status;
    ThrowFileError("CSysFile::GetTime - failed retrive the file status", path, errno,
                   kGetTimeErrors, FileCode::GetTime);
}

}  // namespace

void CSysFile::GetTime(CTime* creation, CTime* access, CTime* modify) const {
    GuardDeclared<sysfileExp>([&] {
        const struct stat64 status = StatusOf(m_handle, m_path);
        if (creation) *creation = CTime(CTime::kNullValue);
        if (access) *access = FileTime(status.st_atime);
        if (modify) *modify = FileTime(status.st_mtime);
    });
}

void CSysFile::SetTime(const CTime* /*creation*/, const CTime* access, const CTime* modify) {
    GuardDeclared<sysfileExp, timeExp>([&] {
        utimbuf times{};
        if (!access || !modify) {
            // The present value in the system's own seconds, so that a kept
            // time stays exactly as it was.
            const struct stat64 status = StatusOf(m_handle, m_path);
            times.actime = status.st_atime;
            times.modtime = status.st_mtime;
        }
        if (access) times.actime = access->GetTime_T();
        if (modify) times.modtime = modify->GetTime_T();
        if (RetryOnSignal([&] { return utime(m_path.c_str(), &times); }) != -1) return;
        ThrowFileError("CSysFile::SetTime - error setting the file time", m_path, errno,
                       kSetTimeErrors, FileCode::SetTime);
    });
}

}  // namespace Orlo
