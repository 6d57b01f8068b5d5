// What the descriptor sources share: the retry on an interrupted call and the
// error sentences of the calls that both CSysFile and CFileMapping make.
// Implementation details only; nothing here is part of the library's surface.

#ifndef ORLO_SRC_FILE_SYSFILE_IMPL_H
#define ORLO_SRC_FILE_SYSFILE_IMPL_H

#include <cerrno>

#include "orlo/exp_message.h"

namespace Orlo::IMPL {

// Calls `call` until it returns something other than -1 or fails with an
// error other than EINTR. errno is untouched after the last call, so the
// caller reads it at once.
template <class Call>
auto RetryOnSignal(Call&& call) {
    for (;;) {
        auto result = call();
        if (result != -1 || errno != EINTR) return result;
    }
}

inline constexpr SysErrorText kDuplicateErrors[] = {
    {EBADF, "invalid file descriptor"},
    {EMFILE, "the number of file descriptors in use by this process would exceed"},
};

inline constexpr SysErrorText kCloseErrors[] = {
    {EBADF, "invalid file descriptor"},
    {EIO, "io error occurred"},
};

// close(2) that reports only real failures. An interrupted close has
// released the descriptor all the same on this platform, and repeating it
// could close a descriptor that another thread has just been given, so EINTR
// counts as success. Returns 0 or the error number.
int CloseDescriptor(int handle) noexcept;

}  // namespace Orlo::IMPL

#endif  // ORLO_SRC_FILE_SYSFILE_IMPL_H
