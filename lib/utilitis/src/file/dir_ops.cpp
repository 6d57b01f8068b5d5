// Directory and file operations: make and remove directories, remove, copy
// and move files, make links and temporary files.
//
// Each operation is one system call wrapped in its own message, or a short
// sequence of the others; a sequence wraps the failure of a step in its own
// head line so that the message tells both what was asked and what broke.
//
// Nothing here follows a symbolic link to destroy something: RemoveDir
// empties a tree by lstat, so a link inside it is removed as a link, and it
// refuses to empty a path that is itself a link. TransferFile refuses to
// move a file onto itself, which its remove-then-link order would destroy.
//
// Copies go through CSysFile with the share modes of the whole-file calls,
// so a copy neither reads a file while a guarded writer holds it nor writes
// one that somebody is reading.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <new>

#include "file/dir_impl.h"
#include "orlo/dir.h"
#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "orlo/sysfile.h"
#include "orlo/time.h"

namespace Orlo {

namespace {

using IMPL::Exists;
using IMPL::kOpendirErrors;
using IMPL::LinkStatus;
using IMPL::WithoutTrailingSeparators;

constexpr SysErrorText kMkdirErrors[] = {
    {EACCES, "permission denied"},
    {EEXIST, "the path already exists"},
    {ELOOP, "too many symbolic links encountered while traversing the path"},
    {EMLINK, "the link count of the parent directory would exceed the limit"},
    {ENAMETOOLONG, "path is too long"},
    {ENOENT, "a component of the path prefix does not exist"},
    {ENOSPC, "no space left on the device"},
    {ENOTDIR, "a component of the path prefix is not a directory"},
    {EROFS, "the parent directory resides on a read-only file system"},
    {EDQUOT, "the quota of disk blocks or inodes has been exhausted"},
};

constexpr SysErrorText kRmdirErrors[] = {
    {EACCES, "permission denied"},
    {EPERM, "permission denied"},
    {EBUSY, "the directory is in use"},
    {EINVAL, "the path has \".\" as its last component"},
    {ENOTEMPTY, "the directory is not empty"},
    {EEXIST, "the directory is not empty"},
    {ENOENT, "the directory does not exist"},
    {ENOTDIR, "the path is not a directory"},
    {EROFS, "the directory resides on a read-only file system"},
    {ELOOP, "too many symbolic links encountered while traversing the path"},
    {ENAMETOOLONG, "path is too long"},
};

constexpr SysErrorText kReaddirErrors[] = {
    {EBADF, "the argument does not refer to an open directory stream"},
    {ENOENT, "the current position of the directory stream is invalid"},
    {EOVERFLOW,
     "one of the values in the structure to be returned cannot be represented correctly"},
};

constexpr SysErrorText kUnlinkErrors[] = {
    {EPERM, "permission denied"},
    {EACCES, "permission denied"},
    {EBUSY, "file is in use"},
    {ETXTBSY, "file is in use"},
    {ENOTDIR, "a component of the pathname is not a directory"},
    {EINVAL, "the value of the attribute argument is invalid"},
    {EROFS, "the named file resides on a read-only file system"},
    {ENAMETOOLONG, "pathname is too long"},
    {ELOOP, "a loop exists in symbolic links "},
};

constexpr SysErrorText kLinkErrors[] = {
    {EACCES, "permission denied"},
    {EDQUOT, "the quota of disk blocks or inodes has been exhausted"},
    {EEXIST, "the new path already exists"},
    {EIO, "io error occurred"},
    {ELOOP, "too many symbolic links encountered while traversing the path"},
    {EMLINK, "the file already has the maximum number of links"},
    {ENAMETOOLONG, "path is too long"},
    {ENOENT, "the old path or a directory of the new path does not exist"},
    {ENOSPC, "no space left on the device"},
    {ENOTDIR, "a component of a path prefix is not a directory"},
    {EPERM, "the old path is a directory, or the file system does not support links"},
    {EROFS, "the file resides on a read-only file system"},
    {EXDEV, "the two paths are not on the same file system"},
};

constexpr SysErrorText kSymlinkErrors[] = {
    {EACCES, "permission denied"},
    {EDQUOT, "the quota of disk blocks or inodes has been exhausted"},
    {EEXIST, "the new path already exists"},
    {EIO, "io error occurred"},
    {ELOOP, "too many symbolic links encountered while traversing the path"},
    {ENAMETOOLONG, "path is too long"},
    {ENOENT, "a directory of the new path does not exist"},
    {ENOSPC, "no space left on the device"},
    {ENOTDIR, "a component of the new path prefix is not a directory"},
    {EPERM, "the file system does not support symbolic links"},
    {EROFS, "the new path resides on a read-only file system"},
};

constexpr SysErrorText kCreateErrors[] = {
    {EACCES, "permission denied"},
    {EDQUOT, "the quota of disk blocks or inodes has been exhausted"},
    {EMFILE, "the maximum file descriptors are currently open in the calling process"},
    {ENFILE, "the maximum allowable number of files is currently open in the system"},
    {ENAMETOOLONG, "file or path name is too long"},
    {ENOENT, "the directory does not exist"},
    {ENOSPC, "no space left on the device"},
    {ENOTDIR, "a component of the path is not a directory"},
    {EROFS, "the directory resides on a read-only file system"},
};

// The unit of a file copy.
constexpr uint64_t kCopyChunk = 0x40000;
// How often a temporary name is tried in the system's and in a CDir's
// directory.
constexpr uint32_t kSysTempTries = 10000;
constexpr uint32_t kDirTempTries = 1000;
// The permission of a shortcut script: runnable by everybody.
constexpr uint32_t kScriptMode = 0755;

[[noreturn]] void ThrowInvalidArgument(const char* head) {
    throw dirExp(ExpMessage(head), DirCode::InvalidArgument);
}

// Calls `call` until it succeeds or fails other than by EINTR. Returns 0 or
// the error number.
template <class Call>
int Retried(Call call) {
    for (;;) {
        if (call() == 0) return 0;
        if (errno != EINTR) return errno;
    }
}

// ---- make and remove directories ---------------------------------------------------

void MakeOneDir(const stringEx& dir, bool recursive) {
    const int error = Retried([&] { return mkdir(dir.c_str(), 0777); });
    if (error == 0) return;
    // A parent made meanwhile by somebody else is as good as made here.
    if (recursive && error == EEXIST && IsDir(dir)) return;
    throw dirExp(ExpMessage("CDir::MakeDir - failed create dir")
                     .Detail("  dir to create = ", dir)
                     .Bool("  is recursive  = ", recursive)
                     .SysError("  error code    = ", "  error desc    = ", error, kMkdirErrors),
                 DirCode::MakeDir);
}

[[noreturn]] void ThrowRemoveDir(const stringEx& dir, bool subDirs, bool subFiles, int error) {
    throw dirExp(
        ExpMessage("CDir::RemoveDir - failed remove dir")
            .Detail("  dir to remove     = ", dir)
            .Bool("  remove sub dirs   = ", subDirs)
            .Bool("  remove sub files  = ", subFiles)
            .SysError("  error code        = ", "  error desc        = ", error, kRmdirErrors),
        DirCode::RemoveDir);
}

[[noreturn]] void ThrowListing(const char* head, const stringEx& dir, int error,
                               std::span<const SysErrorText> known, int32_t code) {
    throw dirExp(ExpMessage(head)
                     .Detail("  dir path   = ", dir)
                     .SysError("  error code = ", "  error desc = ", error, known),
                 code);
}

// The names in `dir` but "." and "..", read in full before anything in the
// directory is changed.
PathList NamesIn(const stringEx& dir) {
    DIR* stream = opendir(dir.c_str());
    if (!stream) {
        ThrowListing("CDir::RemoveDir - failed open dir", dir, errno, kOpendirErrors,
                     DirCode::OpenDir);
    }
    PathList names;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(stream);
        if (!entry) {
            const int error = errno;
            if (error == EINTR) continue;
            closedir(stream);
            if (error == 0) return names;
            ThrowListing("CDir::RemoveDir - failed read dir", dir, error, kReaddirErrors,
                         DirCode::ReleaseCookie);
        }
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
        names.push_back(stringEx(name));
    }
}

// Removes what the flags allow inside the real directory `dir`.
void EmptyDir(const stringEx& dir, bool subDirs, bool subFiles) {
    for (const stringEx& name : NamesIn(dir)) {
        stringEx path = dir;
        path += CDir::kSeparator;
        path += name;
        struct stat status {};
        // Gone since it was listed: nothing left to remove.
        if (!LinkStatus(path, status)) continue;
        if (!S_ISDIR(status.st_mode)) {
            if (subFiles) CDir::RemoveFile(path, false);
        } else if (subDirs) {
            CDir::RemoveDir(path, subDirs, subFiles);
        }
    }
}

// ---- remove a file ------------------------------------------------------------------

[[noreturn]] void ThrowRemoveFile(const stringEx& path, const char* reason) {
    throw dirExp(ExpMessage("CDir::RemoveFile - failed remove file")
                     .Detail("  file path  = ", path)
                     .Detail("  error desc = ", reason),
                 DirCode::RemoveFile);
}

// Write permission on the file and write and search permission on its
// directory, for a forced removal. Failures show in the retry.
void LoosenForRemoval(const stringEx& file) {
    struct stat status {};
    if (LinkStatus(file, status) && !S_ISLNK(status.st_mode)) {
        chmod(file.c_str(), (status.st_mode & 07777) | S_IWUSR);
    }
    const stringEx dir = CDir::GetPathDir(file);
    if (stat(dir.c_str(), &status) == 0) {
        chmod(dir.c_str(), (status.st_mode & 07777) | S_IWUSR | S_IXUSR);
    }
}

// ---- copy and move ----------------------------------------------------------------------

void CopyBytes(const stringEx& from, const stringEx& to, bool flush) {
    CSysFile source;
    source.Open(from, O_RDONLY, IMPL::kNeverWait, FileShare::Shared, 0666, 0);
    CSysFile destination;
    destination.Open(to, O_WRONLY, O_CREAT | IMPL::kNeverWait, FileShare::Exclusive, 0666, 0);
    // A device such as /dev/zero never reaches its end: anything but a
    // regular file is copied only as far as the size it reports.
    struct stat status {};
    const bool regular = fstat(source.GetHandle(), &status) == 0 && S_ISREG(status.st_mode);
    uint64_t left = regular ? UINT64_MAX : uint64_t(source.GetSize());
    byteEx buffer;
    buffer.assign_discard(uint32_t(kCopyChunk));
    while (left > 0) {
        const uint64_t want = left < kCopyChunk ? left : kCopyChunk;
        const int64_t got = source.Read(buffer.data(), want);
        if (got <= 0) break;
        IMPL::WriteAll(destination, buffer.data(), uint64_t(got));
        left -= uint64_t(got);
    }
    if (flush) destination.Flush();
    destination.Close();
    source.Close();
}

bool SameFile(const stringEx& a, const stringEx& b) {
    struct stat first {
    }, second{};
    return LinkStatus(a, first) && LinkStatus(b, second) && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

[[noreturn]] void ThrowTransfer(const char* head, const stringEx& from, const stringEx& to,
                                const byExp* inner) {
    ExpMessage message(head);
    message.Detail("  from = ", from).Detail("  to   = ", to);
    if (inner) message.Wraps(*inner);
    throw dirExp(message, DirCode::TransferFile);
}

void RemoveMovedSource(const stringEx& from, const stringEx& to) {
    try {
        CDir::RemoveFile(from, false);
    } catch (const dirExp& e) {
        ThrowTransfer("CDir::TransferFile - error remove (unlink) the source", from, to, &e);
    }
}

// ---- temporary names ------------------------------------------------------------------------

// Creates a new file in `dir` named by the time in hexadecimal digits. Returns
// its path, or empty with `error` set: EEXIST when every try found the name
// taken, otherwise the error that stopped it.
stringEx CreateUniqueFile(const stringEx& dir, uint32_t tries, int& error) {
    int64_t stamp = CTime::now().us;
    error = EEXIST;
    for (uint32_t attempt = 0; attempt < tries;) {
        stringEx path = dir;
        path.AppendFormat("%" PRIx64 ".tmp", uint64_t(stamp));
        const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            close(fd);
            return path;
        }
        if (errno == EINTR) continue;
        if (errno != EEXIST) {
            error = errno;
            return stringEx();
        }
        ++attempt;
        // The clock may not have moved since the last try; the name must.
        stamp = std::max(stamp + 1, CTime::now().us);
    }
    return stringEx();
}

// `dirLabel` heads the directory line when the tries ran out, `padded` the
// same label lined up with "  error code = " for a system error.
[[noreturn]] void ThrowTempName(const char* head, const char* dirLabel, const char* padded,
                                const stringEx& dir, int error) {
    ExpMessage message(head);
    if (error == EEXIST) {
        message.Detail(dirLabel, dir).Detail("  error    = ", "too many retry time");
    } else {
        message.Detail(padded, dir)
            .SysError("  error code = ", "  error desc = ", error, kCreateErrors);
    }
    throw dirExp(message, DirCode::TempName);
}

// ---- shortcut script ----------------------------------------------------------------------

// `text` in single quotes for the shell, a quote inside written as '\''.
stringEx ShellQuoted(const stringEx& text) {
    stringEx quoted("'");
    for (uint32_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\'') {
            quoted += "'\\''";
        } else {
            quoted += text[i];
        }
    }
    quoted += '\'';
    return quoted;
}

stringEx ShortcutScript(const stringEx& target, const stringEx& arguments,
                        const stringEx& workFolder) {
    stringEx script("#!/bin/sh\n# shortcut to ");
    script += target;
    script += '\n';
    if (!workFolder.empty()) {
        script += "cd ";
        script += ShellQuoted(workFolder);
        script += " || exit 1\n";
    }
    script += ShellQuoted(target);
    if (!arguments.empty()) {
        script += ' ';
        script += arguments;
    }
    script += " \"$@\"\n";
    return script;
}

}  // namespace

// ---- directories ------------------------------------------------------------------------

void CDir::MakeDir(const stringEx& path, bool recursive) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (path.empty()) ThrowInvalidArgument("CDir::MakeDir - nothing to make");
        const stringEx full = WithoutTrailingSeparators(ConvToFullPath(path));
        if (!recursive) {
            MakeOneDir(full, false);
            return;
        }
        // Every prefix that ends before a "/", then the whole path.
        for (uint32_t slash = full.find(kSeparator, 1);; slash = full.find(kSeparator, slash + 1)) {
            const stringEx prefix = slash == npos ? full : stringEx(full, 0, slash);
            if (!IsDir(prefix)) MakeOneDir(prefix, true);
            if (slash == npos) return;
        }
    });
}

void CDir::RemoveDir(const stringEx& path, bool subDirs, bool subFiles) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (path.empty()) ThrowInvalidArgument("CDir::RemoveDir - nothing to remove");
        const stringEx dir = WithoutTrailingSeparators(ConvToFullPath(path));
        struct stat status {};
        if (!LinkStatus(dir, status)) ThrowRemoveDir(dir, subDirs, subFiles, errno);
        // A link to a directory is not emptied through: its target is
        // somebody else's tree.
        if (!S_ISDIR(status.st_mode)) ThrowRemoveDir(dir, subDirs, subFiles, ENOTDIR);
        if (subDirs || subFiles) {
            try {
                EmptyDir(dir, subDirs, subFiles);
            } catch (const dirExp& e) {
                throw dirExp(ExpMessage("CDir::RemoveDir - failed remove dir")
                                 .Detail("  dir to remove     = ", dir)
                                 .Bool("  remove sub dirs   = ", subDirs)
                                 .Bool("  remove sub files  = ", subFiles)
                                 .Wraps(e),
                             DirCode::RemoveDir);
            }
        }
        const int error = Retried([&] { return rmdir(dir.c_str()); });
        if (error != 0) ThrowRemoveDir(dir, subDirs, subFiles, error);
    });
}

// ---- files ---------------------------------------------------------------------------------

void CDir::RemoveFile(const stringEx& path, bool force) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        const stringEx file = WithoutTrailingSeparators(path);
        if (file.empty()) ThrowRemoveFile(path, "nothing to remove");
        struct stat status {};
        if (LinkStatus(file, status) && S_ISDIR(status.st_mode)) {
            ThrowRemoveFile(file, "the path is a directory");
        }
        int error = Retried([&] { return unlink(file.c_str()); });
        if (error != 0 && force && (error == EPERM || error == EACCES)) {
            LoosenForRemoval(file);
            error = Retried([&] { return unlink(file.c_str()); });
        }
        if (error == 0) return;
        throw dirExp(ExpMessage("CDir::RemoveFile - failed remove file")
                         .Detail("  file path  = ", file)
                         .SysError("  error code = ", "  error desc = ", error, kUnlinkErrors),
                     DirCode::RemoveFile);
    });
}

void CDir::DuplicateFile(const stringEx& source, const stringEx& destination, bool overwrite,
                         bool flush) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        const stringEx from = ConvToFullPath(source);
        const stringEx to = ConvToFullPath(destination);
        if (!overwrite && Exists(to)) {
            throw dirExp(ExpMessage("CDir::DuplicateFile - error copy file, dest already exists")
                             .Detail("  source file       = ", from)
                             .Detail("  destination file  = ", to),
                         DirCode::DuplicateFile);
        }
        try {
            CopyBytes(from, to, flush);
        } catch (const byExp& e) {
            throw dirExp(ExpMessage("CDir::DuplicateFile - error copy file")
                             .Detail("  source file       = ", from)
                             .Detail("  destination file  = ", to)
                             .Wraps(e),
                         DirCode::DuplicateFile);
        }
    });
}

void CDir::TransferFile(const stringEx& source, const stringEx& destination, bool overwrite,
                        bool sync, bool allowCopy) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        const stringEx from = WithoutTrailingSeparators(source);
        const stringEx to = WithoutTrailingSeparators(destination);
        if (from.empty() || to.empty())
            ThrowInvalidArgument("CDir::TransferFile - nothing to move");
        if (SameFile(from, to)) return;
        if (Exists(to)) {
            if (!overwrite) {
                ThrowTransfer("CDir::TransferFile - error move file, dest already exists", from, to,
                              nullptr);
            }
            RemoveFile(to, false);
        }
        const int error = Retried([&] { return link(from.c_str(), to.c_str()); });
        if (error == 0) {
            RemoveMovedSource(from, to);
            return;
        }
        if ((error == EXDEV || error == EMLINK) && allowCopy) {
            try {
                DuplicateFile(from, to, overwrite, sync);
            } catch (const dirExp& e) {
                ThrowTransfer("CDir::TransferFile - error copy file to the target", from, to, &e);
            }
            RemoveMovedSource(from, to);
            return;
        }
        throw dirExp(ExpMessage("CDir::TransferFile - error link file to the target path")
                         .Detail("  from                = ", from)
                         .Detail("  to                  = ", to)
                         .Bool("  allow copy & delete = ", allowCopy)
                         .SysError("  error code          = ", "  error description   = ", error,
                                   kLinkErrors),
                     DirCode::TransferFile);
    });
}

// ---- links ----------------------------------------------------------------------------------

void CDir::MakeSymbolicLink(const stringEx& target, const stringEx& link, const stringEx& arguments,
                            const stringEx& workFolder) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (target.empty() || link.empty()) {
            ThrowInvalidArgument("CDir::MakeSymbolicLink - nothing to make");
        }
        if (arguments.empty() && workFolder.empty()) {
            const int error = Retried([&] { return symlink(target.c_str(), link.c_str()); });
            if (error == 0) return;
            throw dirExp(
                ExpMessage("CDir::MakeSymbolicLink - failed create symbolic link")
                    .Detail("  old path     = ", target)
                    .Detail("  new path     = ", link)
                    .SysError("  error number = ", "  error desc   = ", error, kSymlinkErrors),
                DirCode::MakeSymbolicLink);
        }
        try {
            WriteFile(link, ShortcutScript(target, arguments, workFolder), false, false);
            SetAttributes(link, kScriptMode);
        } catch (const byExp& e) {
            throw dirExp(ExpMessage("CDir::MakeSymbolicLink - failed create shell script")
                             .Detail("  arguments    = ", arguments)
                             .Detail("  work folder  = ", workFolder)
                             .Wraps(e),
                         DirCode::MakeSymbolicLink);
        }
    });
}

void CDir::MakeHardLink(const stringEx& target, const stringEx& link) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (target.empty() || link.empty()) {
            ThrowInvalidArgument("CDir::MakeHardLink - nothing to make");
        }
        const int error = Retried([&] { return ::link(target.c_str(), link.c_str()); });
        if (error == 0) return;
        throw dirExp(ExpMessage("CDir::MakeHardLink - failed create hard link")
                         .Detail("  old path     = ", target)
                         .Detail("  new path     = ", link)
                         .SysError("  error number = ", "  error desc   = ", error, kLinkErrors),
                     DirCode::MakeHardLink);
    });
}

// ---- temporary files ----------------------------------------------------------------------

stringEx CDir::GenTempFileNameInSysTempDir() {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        const stringEx dir = GetTempDir();
        int error = 0;
        stringEx path = CreateUniqueFile(dir, kSysTempTries, error);
        if (!path.empty()) return ConvToFullPath(path);
        ThrowTempName("CDir::GenTempFileNameInSysTempDir - error generate unique temp file name",
                      "  temp dir = ", "  temp dir   = ", dir, error);
    });
}

stringEx CDir::GenTempFileName() const {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (m_path.empty() || !IsDir(m_path)) {
            throw dirExp(
                ExpMessage("CDir::GenTempFileName - invalid obj, or the base dir has been removed")
                    .Detail("  base dir = ", m_path),
                DirCode::InvalidObject);
        }
        int error = 0;
        stringEx path = CreateUniqueFile(m_path, kDirTempTries, error);
        if (!path.empty()) return path;
        ThrowTempName("CDir::GenTempFileName - error generate unique temp file name",
                      "  base dir = ", "  base dir   = ", m_path, error);
    });
}

}  // namespace Orlo
