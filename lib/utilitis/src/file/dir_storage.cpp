// The file system under a path: its layout and its room, from statvfs.
//
// Both queries make one call and differ only in what they give back: the
// layout in the file system's own units, the room in bytes. A path that
// can't be examined is a failure, never a zero-sized file system.

#include <sys/statvfs.h>

#include <cerrno>
#include <new>

#include "orlo/dir.h"
#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"

namespace Orlo {

namespace {

constexpr SysErrorText kStatvfsErrors[] = {
    {EACCES, "search permission is denied for one of the directories in the path prefix"},
    {EIO, "io error occurred while reading from the file system"},
    {ELOOP, "too many symbolic links encountered while traversing the path"},
    {ENAMETOOLONG, "path is too long"},
    {ENOENT, "the file referred to by the path does not exist"},
    {ENOMEM, "out of memory"},
    {ENOSYS, "the file system does not support this call"},
    {ENOTDIR, "a component of the path prefix is not a directory"},
    {EOVERFLOW, "some values were too large to be represented in the returned struct"},
};

// statvfs of `path`, repeated while interrupted; a failure is told under
// `head`.
struct statvfs FileSystemStatus(const char* head, const stringEx& path) {
    struct statvfs status {};
    for (;;) {
        if (statvfs(path.c_str(), &status) == 0) return status;
        const int error = errno;
        if (error == EINTR) continue;
        throw dirExp(ExpMessage(head)
                         .Detail("  file path  = ", path)
                         .SysError("  error code = ", "  error desc = ", error, kStatvfsErrors),
                     DirCode::PathStatus);
    }
}

// The unit of the block counts. Old systems leave f_frsize 0 and count in
// f_bsize.
uint64_t BlockSize(const struct statvfs& status) {
    return status.f_frsize != 0 ? status.f_frsize : status.f_bsize;
}

}  // namespace

StorageTopology CDir::GetStorageTopology(const stringEx& path) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        const struct statvfs status = FileSystemStatus(
            "CDir::GetStorageTopology - failed retrieve storage's topology info", path);
        StorageTopology topology;
        topology.blockSize = BlockSize(status);
        topology.ioBlockSize = status.f_bsize;
        topology.totalBlocks = status.f_blocks;
        topology.freeBlocks = status.f_bfree;
        topology.availableBlocks = status.f_bavail;
        topology.totalFileNodes = status.f_files;
        topology.freeFileNodes = status.f_ffree;
        topology.availableFileNodes = status.f_favail;
        topology.maxNameLength = status.f_namemax;
        topology.readOnly = (status.f_flag & ST_RDONLY) != 0;
        return topology;
    });
}

SpaceInfo CDir::GetSpaceInfo(const stringEx& path) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        const struct statvfs status =
            FileSystemStatus("CDir::GetSpaceInfo - failed retrieve space info", path);
        const uint64_t unit = BlockSize(status);
        SpaceInfo space;
        space.totalBytes = uint64_t(status.f_blocks) * unit;
        space.freeBytes = uint64_t(status.f_bfree) * unit;
        space.availableBytes = uint64_t(status.f_bavail) * unit;
        return space;
    });
}

}  // namespace Orlo
