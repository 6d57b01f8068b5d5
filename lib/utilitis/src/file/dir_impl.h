// Helpers shared by the CDir sources: path text pieces that several
// operations need, an lstat that reports instead of throwing, the error
// sentences of stat and opendir, and the open flags and transfer loops of
// the calls that read or write whole files.
//
// Implementation details of the file module; not part of the library's
// surface.

#ifndef ORLO_FILE_DIR_IMPL_H
#define ORLO_FILE_DIR_IMPL_H

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>

#include "orlo/exp_message.h"
#include "orlo/stringEx.h"

namespace Orlo {
class CSysFile;
}

namespace Orlo::IMPL {

// The extra open flags of every file that CDir reads or writes whole. A
// pattern can name a FIFO, a socket or a terminal as well as a file: open,
// read and write must fail on them rather than wait for a peer that never
// comes, and a terminal must not become the process's controlling one. For
// regular files neither flag changes anything.
inline constexpr int kNeverWait = O_NONBLOCK | O_NOCTTY;

// The sentences for the documented errors of stat and lstat.
inline constexpr SysErrorText kStatErrors[] = {
    {EACCES, "search permission is denied for one of the directories in the path prefix"},
    {ELOOP, "too many symbolic links encountered while traversing the path"},
    {ENAMETOOLONG, "path is too long"},
    {ENOENT, "a component of the path does not exist, or the path is an empty string"},
    {ENOTDIR, "a component of the path prefix is not a directory"},
    {EOVERFLOW, "the file size, inode number or number of blocks cannot be represented"},
    {ENOMEM, "out of memory"},
    {EIO, "io error occurred while reading from the file system"},
};

// The sentences for the documented errors of opendir.
inline constexpr SysErrorText kOpendirErrors[] = {
    {EACCES, "permission denied"},
    {EMFILE, "the maximum file descriptors are currently open in the calling process"},
    {ENFILE, "the maximum allowable number of files is currently open in the system"},
    {ENOENT, "the directory does not exist"},
    {ENOMEM, "insufficient memory to complete the operation"},
    {ENOTDIR, "the path is not a directory"},
};

// `path` without its trailing "/"; the root keeps its one "/".
stringEx WithoutTrailingSeparators(const stringEx& path);

// What follows the last "/" of `path`, or all of it.
stringEx LastComponent(const stringEx& path);

// lstat, repeated while interrupted. False with errno set on failure.
bool LinkStatus(const stringEx& path, struct stat& status) noexcept;

// Whether anything, a dangling link included, stands at `path`.
inline bool Exists(const stringEx& path) noexcept {
    struct stat status {};
    return LinkStatus(path, status);
}

// Empties a string that is about to be filled, without writing into memory
// it only borrows: a view becomes the null string, a shared block is let go,
// a block of its own is kept for the new content.
template <class Text>
void Empty(Text& text) {
    if (text.is_view()) {
        text = Text();
        return;
    }
    text.clear();
}

// Writes all `size` bytes to `file`, in as many calls as the system needs
// (one call for 0 bytes), and stops early only if a call writes nothing.
// Throws what CSysFile::Write throws.
void WriteAll(CSysFile& file, const char* data, uint64_t size);

}  // namespace Orlo::IMPL

#endif  // ORLO_FILE_DIR_IMPL_H
