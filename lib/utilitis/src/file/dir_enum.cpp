// Enumeration: the cookie on a directory stream, the two readers NextFile
// and NextDir, and the wildcard walks GetAllFiles and GetAllSubDirs.
//
// The readers give one entry per call and keep their place in the cookie.
// Each entry is classified by stat of its full path, so a link stands for
// what it points to and one that points nowhere can't be classified: that
// failure leaves the cookie where it was, and the caller decides whether
// the rest of the directory is worth reading.
//
// GetAllFiles makes two passes when recursive: GetAllSubDirs first lists
// every directory of the tree (depth first, pre-order), then each directory
// of that list is read for files. Which failures are swallowed is a matter
// of where they happen, and the walk below is written so that each case can
// be found at one place:
//
//   - a directory that can't be opened reads as empty (the readers);
//   - the first read of each directory in the file pass swallows anything,
//     so an entry that can't be examined before the first file hides the
//     rest of that directory (ReadFilesOf);
//   - a later failure in the file pass ends the enumeration;
//   - in the directory walk, a failure of a sub-directory's own walk is
//     dropped when tolerant (the catch around the recursion), while one in
//     the directory being read ends that walk.
//
// Each level that gives up wraps the failure in its own text, with its base
// directory, so the message reads from the outermost directory inward.

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <new>

#include "file/dir_impl.h"
#include "orlo/dir.h"
#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"

namespace Orlo {

namespace {

constexpr SysErrorText kReaddirErrors[] = {
    {EBADF, "the argument does not refer to an open directory stream"},
    {ENOENT, "the current position of the directory stream is invalid"},
    {EOVERFLOW,
     "one of the values in the structure to be returned cannot be represented correctly"},
};

constexpr SysErrorText kClosedirErrors[] = {
    {EBADF, "invalid dir descriptor"},
};

bool IsDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

bool EndsInDots(const stringEx& path) {
    const std::string_view text = path.view();
    return text.ends_with("/.") || text.ends_with("/..");
}

// The next entry of the stream, or null at its end. `head` names the
// reader in the message.
dirent* ReadEntry(const char* head, const CDirCookie& cookie, const stringEx& dirPath) {
    for (;;) {
        // readdir tells its end from a failure only through errno.
        errno = 0;
        if (dirent* entry = readdir(cookie.Stream())) return entry;
        const int error = errno;
        if (error == 0) return nullptr;
        if (error == EINTR) continue;
        throw dirExp(ExpMessage(head)
                         .Detail("  dir path   = ", dirPath)
                         .SysError("  error code = ", "  error desc = ", error, kReaddirErrors),
                     DirCode::ReleaseCookie);
    }
}

// Whether an entry is one the reader gives out.
struct EntryFilter {
    bool wantDirs;
    bool hidden;
    bool dots;

    bool Accepts(const char* name, mode_t mode) const {
        if (S_ISDIR(mode) != wantDirs) return false;
        if (wantDirs && IsDotOrDotDot(name)) return dots;
        return hidden || name[0] != '.';
    }
};

// The common loop of NextFile and NextDir.
bool NextEntry(const char* head, const stringEx& dirPath, CDirCookie& cookie, stringEx& outPath,
               const EntryFilter& filter) {
    IMPL::Empty(outPath);
    if (!cookie.Open(dirPath)) return false;
    stringEx base = dirPath;
    if (base.empty() || base[base.size() - 1] != CDir::kSeparator) base += CDir::kSeparator;
    for (;;) {
        const dirent* entry = ReadEntry(head, cookie, dirPath);
        if (!entry) {
            cookie.Release();
            return false;
        }
        stringEx path = base;
        path.append(entry->d_name);
        // stat, not lstat: a link is what it points to. Even the entries
        // that the filter will drop are examined.
        const struct stat status = PosixStat(path);
        if (!filter.Accepts(entry->d_name, status.st_mode)) continue;
        outPath = path;
        return true;
    }
}

// Whether the bare name at the end of `path` matches the wildcard.
bool NameMatches(const stringEx& path, const stringEx& pattern) {
    const uint32_t slash = path.rfind(CDir::kSeparator);
    const uint32_t start = slash == npos ? 0 : slash + 1;
    return path.WildMatch(pattern.c_str(), start, '?', '*', false);
}

// Opens `where` on the directory part of `pattern` and sets `namePart` to
// the rest; false, touching neither, when the pattern has no directory part
// (an empty pattern becomes "*" on the way).
bool PatternDirectory(const CDir& base, stringEx& pattern, CDir& where, stringEx& namePart) {
    // An empty pattern means every name; it is changed in the caller's text.
    if (pattern.empty()) {
        pattern = stringEx("*");
        return false;
    }
    const stringEx dirPart = CDir::GetPathDir(pattern);
    if (dirPart.view() == "./") return false;
    namePart = CDir::GetPathFilename(pattern);
    where.Open(dirPart[0] == CDir::kSeparator ? dirPart : base.Combine(dirPart));
    return true;
}

// Appends the files of the directory `dir` whose names match.
void ReadFilesOf(const stringEx& dir, const stringEx& pattern, bool hidden, PathList& list) {
    // No existence check: a directory that has gone since the walk listed
    // it can't be opened and so reads as empty, like an unreadable one.
    const CDir where(dir, false, true);
    CDirCookie cookie;
    stringEx path;
    try {
        if (!CDir::NextFile(where.GetPath(), cookie, path, hidden)) return;
    } catch (...) {
        // Whatever the first read of a directory meets, the directory is
        // passed over without a word, and nothing may escape from here.
        try {
            cookie.Release();
        } catch (...) {
        }
        return;
    }
    do {
        if (NameMatches(path, pattern)) list.push_back(path);
    } while (CDir::NextFile(where.GetPath(), cookie, path, hidden));
}

[[noreturn]] void ThrowNoBaseDir(const char* head) {
    throw dirExp(ExpMessage(head), DirCode::InvalidObject);
}

}  // namespace

// ---- the cookie -------------------------------------------------------------------

CDirCookie::CDirCookie(const CDirCookie& other) noexcept
    : m_stream(other.m_stream), m_refs(other.m_refs) {
    if (m_refs) m_refs->fetch_add(1, std::memory_order_relaxed);
}

CDirCookie::CDirCookie(CDirCookie&& other) noexcept
    : m_stream(other.m_stream), m_refs(other.m_refs) {
    other.m_stream = nullptr;
    other.m_refs = nullptr;
}

CDirCookie& CDirCookie::operator=(const CDirCookie& other) {
    if (m_stream == other.m_stream) return *this;
    CDirCookie copy(other);
    Release();
    std::swap(m_stream, copy.m_stream);
    std::swap(m_refs, copy.m_refs);
    return *this;
}

CDirCookie& CDirCookie::operator=(CDirCookie&& other) {
    if (this == &other) return *this;
    Release();
    std::swap(m_stream, other.m_stream);
    std::swap(m_refs, other.m_refs);
    return *this;
}

CDirCookie::~CDirCookie() noexcept(false) {
    ThrowUnlessUnwinding([&] { Release(); });
}

bool CDirCookie::Open(const stringEx& dirPath) {
    if (m_stream) return true;
    DIR* stream = opendir(dirPath.c_str());
    if (!stream) return false;
    try {
        m_refs = new Counter(1);
    } catch (...) {
        closedir(stream);
        throw;
    }
    m_stream = stream;
    return true;
}

void CDirCookie::Release() {
    if (!m_stream) return;
    DIR* stream = m_stream;
    Counter* refs = m_refs;
    m_stream = nullptr;
    m_refs = nullptr;
    if (refs->fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    delete refs;
    // closedir frees the stream whatever it answers; there is nothing to
    // retry, even after EINTR.
    if (closedir(stream) == 0) return;
    const int error = errno;
    throw dirExp(ExpMessage("CDirCookie::Release - failed close dir stream")
                     .SysError("  error code = ", "  error desc = ", error, kClosedirErrors),
                 DirCode::ReleaseCookie);
}

// ---- the readers ----------------------------------------------------------------------

bool CDir::NextFile(const stringEx& dirPath, CDirCookie& cookie, stringEx& outPath, bool hidden) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        return NextEntry("CDir::NextFile - failed read dir entry", dirPath, cookie, outPath,
                         EntryFilter{false, hidden, false});
    });
}

bool CDir::NextDir(const stringEx& dirPath, CDirCookie& cookie, stringEx& outPath, bool hidden,
                   bool dots) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        return NextEntry("CDir::NextDir - failed read dir entry", dirPath, cookie, outPath,
                         EntryFilter{true, hidden, dots});
    });
}

// ---- the walks ---------------------------------------------------------------------------

size_t CDir::GetAllFiles(PathList& list, const stringEx& pattern, bool recursive, bool hidden,
                         bool tolerant) const {
    stringEx copy = pattern;
    return GetAllFiles(list, copy, recursive, hidden, tolerant);
}

size_t CDir::GetAllFiles(PathList& list, stringEx& pattern, bool recursive, bool hidden,
                         bool tolerant) const {
    return GuardDeclared<dirExp, std::bad_alloc>([&]() -> size_t {
        if (m_path.empty()) ThrowNoBaseDir("CDir::GetAllFiles - invalid obj, no base dir");
        try {
            CDir where;
            stringEx namePart;
            if (PatternDirectory(*this, pattern, where, namePart)) {
                return where.GetAllFiles(list, namePart, recursive, hidden, tolerant);
            }
            // The walk lists directories without their final "/".
            PathList dirs{IMPL::WithoutTrailingSeparators(m_path)};
            if (recursive) GetAllSubDirs(dirs, stringEx("*"), true, hidden, false, tolerant);
            for (const stringEx& dir : dirs)
                ReadFilesOf(dir, pattern, hidden, list);
            return list.end() - list.begin();
        } catch (const dirExp& e) {
            throw dirExp(ExpMessage("CDir::GetAllFiles - failed find files")
                             .Detail("  base dir = ", m_path)
                             .Wraps(e),
                         DirCode::EnumFiles);
        }
    });
}

size_t CDir::GetAllSubDirs(PathList& list, const stringEx& pattern, bool recursive, bool hidden,
                           bool dots, bool tolerant) const {
    stringEx copy = pattern;
    return GetAllSubDirs(list, copy, recursive, hidden, dots, tolerant);
}

size_t CDir::GetAllSubDirs(PathList& list, stringEx& pattern, bool recursive, bool hidden,
                           bool dots, bool tolerant) const {
    return GuardDeclared<dirExp, std::bad_alloc>([&]() -> size_t {
        if (m_path.empty()) ThrowNoBaseDir("CDir::GetAllSubDirs - invalid obj, no base dir");
        try {
            CDir where;
            stringEx namePart;
            if (PatternDirectory(*this, pattern, where, namePart)) {
                return where.GetAllSubDirs(list, namePart, recursive, hidden, dots, tolerant);
            }
            CDirCookie cookie;
            stringEx path;
            while (NextDir(m_path, cookie, path, hidden, dots)) {
                if (NameMatches(path, pattern)) list.push_back(path);
                if (!recursive || (dots && EndsInDots(path))) continue;
                // Descent doesn't depend on the match. A sub-directory that
                // has gone, loops too deep or can't be read costs only its
                // own subtree when tolerant.
                try {
                    const CDir below(path);
                    below.GetAllSubDirs(list, pattern, true, hidden, dots, tolerant);
                } catch (...) {
                    if (!tolerant) throw;
                }
            }
            return list.end() - list.begin();
        } catch (const dirExp& e) {
            throw dirExp(ExpMessage("CDir::GetAllSubDirs - failed find subdirs")
                             .Detail("  base dir = ", m_path)
                             .Wraps(e),
                         DirCode::EnumSubDirs);
        }
    });
}

}  // namespace Orlo
