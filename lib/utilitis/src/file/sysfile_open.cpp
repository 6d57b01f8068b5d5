// PosixOpenFile and SetShareMode: everything an open needs, in one call.
//
// The steps run in a fixed order (open, access advice, share lock, descriptor
// flags) and each later step that fails closes the descriptor before it
// throws, so a caller either owns a fully set-up descriptor or nothing.
// Losing direct I/O and a refused access advice are not failures: both are
// logged under "util.sysfile" and the open goes on.
//
// The open never waits. A FIFO opened for reading waits for a writer (and
// one opened for writing for a reader), which would hang a tool that was
// only asked to read every file matching a pattern. So the descriptor is
// opened with O_NONBLOCK, which makes such an open return at once, and the
// flag is taken off again before the descriptor is handed out, so reads and
// writes keep their usual blocking behaviour. A writer without a reader on
// the FIFO gets ENXIO instead of waiting.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "file/sysfile_impl.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "orlo/log.h"
#include "orlo/sysfile.h"

namespace Orlo {

namespace {

constexpr const char* kLogName = "util.sysfile";

constexpr SysErrorText kOpenErrors[] = {
    {ENOENT, "file dose not exists or can't be created"},
    {EIO, "stream io error"},
    {ENXIO,
     "the device associated with this special file does not exist, or fifo opened without "
     "reading peer"},
    {EAGAIN, "the pseudo-terminal device is locked"},
    {ENOMEM, "unable to allocate the necessary system resource"},
    {EACCES, "permission denied or confilct flags compination"},
    {EEXIST, "file already exists"},
    {ENOTDIR, "path is not a directory"},
    {EISDIR, "the file is a directory and write permission is specified"},
    {EINVAL, "invalid arguments or synchronized io for this file does not supported"},
    {ENFILE, "the maximum allowable number of files is currently open in the system"},
    {EMFILE, "the maximum file descriptors are currently open in the calling process"},
    {ETXTBSY, "try to open a pure procedure file that is being executed in writable mode"},
    {ENOSPC, "device or directory not ready file can not be created"},
    {EROFS, "open file in read-only media with write permission"},
    {ENAMETOOLONG, "file or path name is too long"},
    {ELOOP, "a loop exists in symbolic links, or too many level of links"},
    {ENOSR, "failed allocate stream handle"},
    {EOVERFLOW, "file too big"},
};

constexpr SysErrorText kAdviceErrors[] = {
    {EBADF, "invalid file descriptor"},
    {EINVAL, "unknown advice"},
    {ESPIPE, "the file is associated with a pipe or fifo device"},
};

constexpr SysErrorText kControlErrors[] = {
    {EBADF, "invalid file descriptor or wrong access mode"},
    {EINVAL, "invalid arguments"},
    {EOVERFLOW, "one of the values is out-of-range"},
};

constexpr SysErrorText kShareErrors[] = {
    {EAGAIN, "sharing mode conflict"},
    {ENOLCK, "sharing lock number exceed the system limit"},
};

[[noreturn]] void ThrowOpenError(const stringEx& path, int error) {
    throw sysfileExp(ExpMessage("PosixOpenFile - failed open specified file")
                         .Detail("  file path  = ", path)
                         .SysError("  error code = ", "  error desc = ", error, kOpenErrors),
                     FileCode::Open);
}

[[noreturn]] void ThrowControlError(const stringEx& path, int error) {
    throw sysfileExp(ExpMessage("PosixOpenFile - failed set file control options")
                         .Detail("  file path  = ", path)
                         .SysError("  error code = ", "  error desc = ", error, kControlErrors),
                     FileCode::Open);
}

// Runs `work`, a step that may throw after the descriptor exists (a logger
// may), and closes the descriptor if it does.
template <class Work>
void OrClose(int fd, Work&& work) {
    try {
        work();
    } catch (...) {
        IMPL::CloseDescriptor(fd);
        throw;
    }
}

int OpenRetrying(const stringEx& path, int flags, uint32_t mode) {
    return IMPL::RetryOnSignal([&] { return open(path.c_str(), flags, mode_t(mode)); });
}

// Direct I/O where the file system allows it: any refusal of O_DIRECT falls
// back to a plain open at once, and only the fallback's failure counts.
int OpenDirect(const stringEx& path, int flags, uint32_t mode) {
    for (;;) {
        if (int fd = open(path.c_str(), flags | O_DIRECT, mode_t(mode)); fd >= 0) return fd;
        const int fd = open(path.c_str(), flags, mode_t(mode));
        if (fd >= 0) {
            OrClose(fd, [&] {
                CLog::Warning(kLogName,
                              "PosixOpenFile - failed set direct io (no buffer) access mode\n"
                              "  file path = %s\n",
                              path.c_str());
            });
            return fd;
        }
        const int error = errno;
        if (error != EINTR) ThrowOpenError(path, error);
    }
}

void Advise(int fd, const stringEx& path, uint32_t options) {
    int advice = 0;
    if (options & FileOption::AdviseSequential) {
        advice = POSIX_FADV_SEQUENTIAL;
    } else if (options & FileOption::AdviseRandom) {
        advice = POSIX_FADV_RANDOM;
    } else {
        return;
    }
    // posix_fadvise returns its error rather than setting errno.
    const int error = posix_fadvise(fd, 0, 0, advice);
    if (error == 0 || !CLog::Accepts(LogLevel::Warning)) return;
    OrClose(fd, [&] {
        CLog::Warning(kLogName,
                      ExpMessage("PosixOpenFile - failed set access advice")
                          .Detail("  file path  = ", path)
                          .SysError("  error code = ", "  error desc = ", error, kAdviceErrors));
    });
}

// The status flags: the open was made non-blocking only for its own sake.
void RestoreBlocking(int fd, const stringEx& path, int create) {
    if (create & O_NONBLOCK) return;
    const int status = IMPL::RetryOnSignal([&] { return fcntl(fd, F_GETFL); });
    if (status != -1 && !(status & O_NONBLOCK)) return;
    int error = errno;
    if (status != -1) {
        const int set =
            IMPL::RetryOnSignal([&] { return fcntl(fd, F_SETFL, status & ~O_NONBLOCK); });
        if (set != -1) return;
        error = errno;
    }
    IMPL::CloseDescriptor(fd);
    ThrowControlError(path, error);
}

void SetCloseOnExec(int fd, const stringEx& path) {
    const int flags = IMPL::RetryOnSignal([&] { return fcntl(fd, F_GETFD); });
    const int wanted = flags == -1 ? FD_CLOEXEC : flags | FD_CLOEXEC;
    if (IMPL::RetryOnSignal([&] { return fcntl(fd, F_SETFD, wanted); }) != -1) return;
    const int error = errno;
    IMPL::CloseDescriptor(fd);
    ThrowControlError(path, error);
}

}  // namespace

namespace IMPL {

int CloseDescriptor(int handle) noexcept {
    if (close(handle) == 0) return 0;
    const int error = errno;
    return error == EINTR ? 0 : error;
}

}  // namespace IMPL

int PosixOpenFile(const stringEx& path, int access, int create, int share, uint32_t mode,
                  uint32_t options) {
    const int flags = access | create | O_LARGEFILE | O_NONBLOCK;
    int fd = -1;
    if (options & FileOption::DirectIo) {
        fd = OpenDirect(path, flags, mode);
    } else {
        fd = OpenRetrying(path, flags, mode);
        if (fd < 0) ThrowOpenError(path, errno);
    }
    Advise(fd, path, options);
    SetShareMode(fd, share, path);
    RestoreBlocking(fd, path, create);
    SetCloseOnExec(fd, path);
    return fd;
}

void SetShareMode(int fd, int share, const stringEx& path) {
    if (share != FileShare::Shared && share != FileShare::Exclusive) return;
    const int operation = (share == FileShare::Shared ? LOCK_SH : LOCK_EX) | LOCK_NB;
    if (IMPL::RetryOnSignal([&] { return flock(fd, operation); }) == 0) return;
    const int error = errno;
    // File systems without flock still work, only without the exclusion.
    if (error == EBADF || error == EINVAL || error == EOPNOTSUPP) return;
    IMPL::CloseDescriptor(fd);
    throw sysfileExp(
        ExpMessage("SetShareMode - failed set file sharing mode")
            .Detail("  file path    = ", path)
            .Detail("  sharing mode = ", share == FileShare::Shared ? "shared" : "exclusive")
            .SysError("  error code   = ", "  error desc   = ", error, kShareErrors),
        FileCode::Open);
}

}  // namespace Orlo
