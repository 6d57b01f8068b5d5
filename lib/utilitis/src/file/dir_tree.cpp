// Copying and moving whole directories. DuplicateDir walks the source and
// rebuilds it under the target; TransferDir renames when it can and falls
// back on that copy followed by the removal of the source when it can't.
//
// The copy reads the source with the enumeration's readers, so it sees the
// tree as an enumeration does: a link is what it points to. Following links
// can lead a walk back into itself, or into the copy it is making, where it
// would go on until the paths grow too long; so the walk keeps the identity
// (device and inode) of the source directories on its way down and of every
// target directory it has made or entered, and refuses to enter any of them.
// A target inside the source is refused before anything is made, by
// comparing the two paths with the links of their existing parts resolved.
//
// A move never destroys before it has a complete copy: a rename is atomic,
// and the copy route removes the source only once the whole copy stands.

#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <new>
#include <set>
#include <string_view>
#include <vector>

#include "file/dir_impl.h"
#include "orlo/dir.h"
#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"

namespace Orlo {

namespace {

using IMPL::LastComponent;
using IMPL::LinkStatus;
using IMPL::WithoutTrailingSeparators;

// The sentences of the failures of a move: those of rename, and the checks
// that come before it, which report in the same terms.
constexpr SysErrorText kMoveErrors[] = {
    {EACCES, "permission denied"},
    {EPERM, "permission denied"},
    {EBUSY, "the source or the target dir is in use"},
    {EDQUOT, "the quota of disk blocks or inodes has been exhausted"},
    {EEXIST, "the target path already exists"},
    {ENOTEMPTY, "the target path already exists"},
    {EINVAL, "the target path is inside the source dir"},
    {ELOOP, "too many symbolic links encountered while traversing the path"},
    {EMLINK, "the link count of the target's parent dir would exceed the limit"},
    {ENAMETOOLONG, "path is too long"},
    {ENOENT, "the source dir or a directory of the target path does not exist"},
    {ENOMEM, "out of memory"},
    {ENOSPC, "no space left on the device"},
    {ENOTDIR, "the source is not a directory, or a component of a path prefix is not a directory"},
    {EROFS, "the file system is read-only"},
};

[[noreturn]] void ThrowInvalidArgument(const char* head) {
    throw dirExp(ExpMessage(head), DirCode::InvalidArgument);
}

// `dir` + "/" + `name`, without doubling the "/" of the root.
stringEx Join(const stringEx& dir, const stringEx& name) {
    stringEx path = dir;
    if (path.empty() || path[path.size() - 1] != CDir::kSeparator) path += CDir::kSeparator;
    path += name;
    return path;
}

// ---- nesting ------------------------------------------------------------------------

// The full path `full` with the links of the part of it that exists
// resolved; the part that doesn't exist yet is kept as text.
stringEx Resolved(const stringEx& full) {
    if (char* real = realpath(full.c_str(), nullptr)) {
        const stringEx resolved(real);
        free(real);
        return resolved;
    }
    const uint32_t slash = full.rfind(CDir::kSeparator);
    if (slash == npos || full.size() <= 1) return full;
    const stringEx parent = slash == 0 ? stringEx("/") : stringEx(full, 0, slash);
    return Join(Resolved(parent), stringEx(full, slash + 1));
}

// Whether `inner` is `outer` or lies below it, by text.
bool Inside(std::string_view inner, std::string_view outer) {
    if (outer == "/") return true;
    return inner.starts_with(outer) &&
           (inner.size() == outer.size() || inner[outer.size()] == CDir::kSeparator);
}

// Whether the directory `to` would be `from` itself or lie inside it.
bool Nested(const stringEx& from, const stringEx& to) {
    return Inside(Resolved(to).view(), Resolved(from).view());
}

// ---- the walk -----------------------------------------------------------------------

// The identity of a directory, whatever path reaches it.
struct DirId {
    dev_t device;
    ino_t inode;
    auto operator<=>(const DirId&) const = default;
};

DirId IdOf(const stringEx& path) {
    const struct stat status = PosixStat(path);
    return {status.st_dev, status.st_ino};
}

// Thrown by the walk when it would enter a directory that it must not; the
// caller turns it into its nesting text.
struct NestingFound {};

[[noreturn]] void ThrowCantList(const stringEx& dir, int error) {
    throw dirExp(ExpMessage("CDir::DuplicateDir - failed open dir")
                     .Detail("  dir path   = ", dir)
                     .SysError("  error code = ", "  error desc = ", error, IMPL::kOpendirErrors),
                 DirCode::OpenDir);
}

// Opens `cookie` on `dir`. The readers would take a directory that can't
// be opened for an empty one, and a copy must not lose one without a word.
void OpenListing(const stringEx& dir, CDirCookie& cookie) {
    if (!cookie.Open(dir)) ThrowCantList(dir, errno);
}

// Whether `to` is itself the file that `from` leads to, so that removing
// `to` would remove what is to be copied.
bool IsTheSourceFile(const stringEx& from, const stringEx& to) {
    struct stat source {};
    struct stat target {};
    return stat(from.c_str(), &source) == 0 && LinkStatus(to, target) &&
           source.st_dev == target.st_dev && source.st_ino == target.st_ino;
}

class TreeCopy {
  public:
    TreeCopy(bool overwrite, bool subFiles) : m_overwrite(overwrite), m_subFiles(subFiles) {}

    // Copies the directory `from` as `to`; both full, without a final "/".
    // Throws NestingFound, dirExp, bad_alloc.
    void Copy(const stringEx& from, const stringEx& to) {
        CDirCookie listing;
        // First, so that a source that is missing or no directory fails
        // before anything is made.
        OpenListing(from, listing);
        const DirId source = IdOf(from);
        if (m_targets.contains(source) || OnTheWayDown(source)) throw NestingFound();
        if (!IsDir(to)) CDir::MakeDir(to, false);
        const DirId target = IdOf(to);
        if (target == source || OnTheWayDown(target)) throw NestingFound();
        m_targets.insert(target);

        m_sourceChain.push_back(source);
        if (m_subFiles) {
            stringEx file;
            while (CDir::NextFile(from, listing, file, true))
                CopyFile(file, Join(to, LastComponent(file)));
        }
        listing.Release();
        // Listed in full first, so that one stream is open at a time
        // however deep the tree.
        for (const stringEx& dir : SubDirsOf(from))
            Copy(dir, Join(to, LastComponent(dir)));
        m_sourceChain.pop_back();
    }

  private:
    bool OnTheWayDown(const DirId& id) const {
        return std::find(m_sourceChain.begin(), m_sourceChain.end(), id) != m_sourceChain.end();
    }

    static PathList SubDirsOf(const stringEx& dir) {
        CDirCookie listing;
        OpenListing(dir, listing);
        PathList dirs;
        stringEx path;
        while (CDir::NextDir(dir, listing, path, true, false))
            dirs.push_back(path);
        return dirs;
    }

    void CopyFile(const stringEx& from, const stringEx& to) const {
        if (m_overwrite) {
            if (IsTheSourceFile(from, to)) return;
            // Removed rather than copied over: DuplicateFile doesn't
            // truncate, and would write through a link in the target.
            struct stat status {};
            if (LinkStatus(to, status) && !S_ISDIR(status.st_mode)) CDir::RemoveFile(to, false);
        }
        CDir::DuplicateFile(from, to, m_overwrite, false);
    }

    const bool m_overwrite;
    const bool m_subFiles;
    // The source directories being copied, outermost first.
    std::vector<DirId> m_sourceChain;
    // Every target directory made or entered.
    std::set<DirId> m_targets;
};

// ---- messages ----------------------------------------------------------------------

ExpMessage CopyMessage(const char* head, const stringEx& from, const stringEx& to, bool overwrite,
                       bool subFiles) {
    ExpMessage message(head);
    message.Detail("  dir to copy         = ", from)
        .Detail("  dir to copy to      = ", to)
        .Bool("  overwrite exist     = ", overwrite)
        .Bool("  copy sub files      = ", subFiles);
    return message;
}

ExpMessage MoveMessage(const char* head, const stringEx& from, const stringEx& to) {
    ExpMessage message(head);
    message.Detail("  source dir = ", from).Detail("  target dir = ", to);
    return message;
}

[[noreturn]] void ThrowMoveFailure(const stringEx& from, const stringEx& to, int error) {
    throw dirExp(MoveMessage("CDir::TransferDir - failed transfer dir", from, to)
                     .SysError("  error code = ", "  error desc = ", error, kMoveErrors),
                 DirCode::TransferDir);
}

[[noreturn]] void ThrowMoveFailure(const stringEx& from, const stringEx& to, const dirExp& inner) {
    throw dirExp(MoveMessage("CDir::TransferDir - failed transfer dir", from, to).Wraps(inner),
                 DirCode::TransferDir);
}

// The move where a rename can't do it: copy everything, then remove the
// source. The source is touched only after the copy is complete.
void MoveByCopy(const stringEx& from, const stringEx& to, bool overwrite) {
    try {
        CDir::DuplicateDir(from, to, overwrite, true);
    } catch (const dirExp& e) {
        ThrowMoveFailure(from, to, e);
    }
    try {
        CDir::RemoveDir(from, true, true);
    } catch (const dirExp& e) {
        ThrowMoveFailure(from, to, e);
    }
}

}  // namespace

void CDir::DuplicateDir(const stringEx& source, const stringEx& target, bool overwrite,
                        bool subFiles) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (source.empty() || target.empty()) {
            ThrowInvalidArgument("CDir::DuplicateDir - nothing to copy");
        }
        const stringEx from = WithoutTrailingSeparators(ConvToFullPath(source));
        const stringEx to = WithoutTrailingSeparators(ConvToFullPath(target));
        const char* nesting = "CDir::DuplicateDir - dir nesting found in recursive copy mode";
        if (Nested(from, to)) {
            throw dirExp(CopyMessage(nesting, from, to, overwrite, subFiles),
                         DirCode::DuplicateDir);
        }
        try {
            TreeCopy(overwrite, subFiles).Copy(from, to);
        } catch (const NestingFound&) {
            throw dirExp(CopyMessage(nesting, from, to, overwrite, subFiles),
                         DirCode::DuplicateDir);
        } catch (const dirExp& e) {
            throw dirExp(CopyMessage("CDir::DuplicateDir - failed duplicate dir", from, to,
                                     overwrite, subFiles)
                             .Wraps(e),
                         DirCode::DuplicateDir);
        }
    });
}

void CDir::TransferDir(const stringEx& source, const stringEx& target, bool overwrite) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (source.empty() || target.empty()) {
            ThrowInvalidArgument("CDir::TransferDir - nothing to move");
        }
        const stringEx from = WithoutTrailingSeparators(ConvToFullPath(source));
        const stringEx to = WithoutTrailingSeparators(ConvToFullPath(target));
        if (Nested(from, to)) {
            throw dirExp(MoveMessage("CDir::TransferDir - dir nesting found in recursive copy mode",
                                     from, to),
                         DirCode::TransferDir);
        }
        struct stat status {};
        if (!LinkStatus(from, status)) {
            const int error = errno;
            ThrowMoveFailure(from, to, error);
        }
        // A link is refused: renaming it would move the name and leave the
        // tree, copying it would move the tree and then fail to remove it.
        if (!S_ISDIR(status.st_mode)) ThrowMoveFailure(from, to, ENOTDIR);
        if (IMPL::Exists(to)) {
            if (!overwrite) ThrowMoveFailure(from, to, EEXIST);
            // rename can't merge two trees.
            MoveByCopy(from, to, true);
            return;
        }
        for (;;) {
            if (rename(from.c_str(), to.c_str()) == 0) return;
            if (errno != EINTR) break;
        }
        const int error = errno;
        if (error != EXDEV) ThrowMoveFailure(from, to, error);
        MoveByCopy(from, to, overwrite);
    });
}

}  // namespace Orlo
