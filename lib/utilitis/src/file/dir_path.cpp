// Paths: the checked stat, the object's own directory, and the path texts
// (full path, directory and name parts, mount point, search in $PATH, the
// working and the temporary directory).
//
// A full path is made by text: the working directory (or $HOME for "~") is
// put in front of a relative path, then the components are walked once,
// dropping empty ones and ".", and letting ".." take back the one before.
// The file system is never asked, which keeps the function usable for paths
// that don't exist yet and free of races with a tree that changes, at the
// price that ".." after a symbolic link is taken by text.
//
// IsFile and IsDir answer false instead of throwing when the status can't
// be had: their callers (Open, FindInPath, the temporary directory) want a
// yes or no, and a path that can't be examined is neither a file nor a
// directory to them.

#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "file/dir_impl.h"
#include "orlo/dir.h"
#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"

namespace Orlo {

namespace IMPL {

stringEx WithoutTrailingSeparators(const stringEx& path) {
    uint32_t length = path.size();
    while (length > 1 && path[length - 1] == CDir::kSeparator)
        --length;
    if (length == path.size()) return path;
    return stringEx(path, 0, length);
}

stringEx LastComponent(const stringEx& path) {
    const uint32_t slash = path.rfind(CDir::kSeparator);
    if (slash == npos) return path;
    return stringEx(path, slash + 1);
}

bool LinkStatus(const stringEx& path, struct stat& status) noexcept {
    for (;;) {
        if (lstat(path.c_str(), &status) == 0) return true;
        if (errno != EINTR) return false;
    }
}

}  // namespace IMPL

namespace {

using IMPL::kStatErrors;

constexpr SysErrorText kChmodErrors[] = {
    {EACCES, "search permission is denied for one of the directories in the path prefix"},
    {ELOOP, "too many symbolic links encountered while traversing the path"},
    {ENAMETOOLONG, "path is too long"},
    {ENOENT, "the file does not exist"},
    {ENOTDIR, "a component of the path prefix is not a directory"},
    {EPERM, "the effective user id does not match the owner of the file"},
    {EROFS, "the named file resides on a read-only file system"},
    {EIO, "io error occurred"},
};

constexpr SysErrorText kPathconfErrors[] = {
    {EACCES, "search permission is denied for a component of the path prefix"},
    {ENOENT, "the current working dir does not exist"},
    {ELOOP, "too many symbolic links encountered while traversing the path"},
    {ENAMETOOLONG, "path is too long"},
    {ENOTDIR, "a component of the path prefix is not a directory"},
    {EINVAL, "the path length of the file system can't be determined"},
};

constexpr SysErrorText kGetcwdErrors[] = {
    {EACCES, "permission to read or search a component of the path was denied"},
    {ENOENT, "the current working dir has been removed"},
    {ENOMEM, "out of memory"},
};

// The room getcwd is first given when pathconf names no limit.
constexpr long kDefaultPathRoom = 4096;

// stat, repeated while interrupted. Returns 0 or the error number.
int StatusOf(const stringEx& path, struct stat& status) noexcept {
    for (;;) {
        if (stat(path.c_str(), &status) == 0) return 0;
        if (errno != EINTR) return errno;
    }
}

// The mode of `path` with trailing "/" taken off, or nothing (false) when
// the path is empty or can't be examined.
bool ModeOf(const stringEx& path, mode_t& mode) {
    if (path.empty()) return false;
    struct stat status {};
    if (StatusOf(IMPL::WithoutTrailingSeparators(path), status) != 0) return false;
    mode = status.st_mode;
    return true;
}

[[noreturn]] void ThrowInvalidArgument(const char* head) {
    throw dirExp(ExpMessage(head), DirCode::InvalidArgument);
}

// ---- full path ----------------------------------------------------------------

// $HOME, or the home directory of the user, or empty when neither is known.
stringEx HomeDirectory() {
    const char* home = getenv("HOME");
    if (home && *home) return stringEx(home);
    long room = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(room > 0 ? size_t(room) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found) {
        return stringEx();
    }
    return stringEx(found->pw_dir ? found->pw_dir : "");
}

bool StartsWithHome(const stringEx& path) {
    return path[0] == '~' && (path.size() == 1 || path[1] == CDir::kSeparator);
}

// `path` with the directory that a relative path is relative to put in
// front: the home directory for "~", else the working directory.
stringEx Anchored(const stringEx& path) {
    if (path[0] == CDir::kSeparator) return path;
    stringEx anchored;
    if (StartsWithHome(path)) {
        stringEx home = HomeDirectory();
        if (!home.empty()) {
            anchored = home;
            anchored.append(path, 1, npos);
            if (anchored[0] == CDir::kSeparator) return anchored;
            return Anchored(anchored);  // a relative $HOME
        }
    }
    anchored = CDir::GetPwd();
    anchored += CDir::kSeparator;
    anchored += path;
    return anchored;
}

// `absolute` with its "", "." and ".." components resolved by text.
stringEx Normalized(const stringEx& absolute, bool keepFinalSeparator) {
    std::vector<std::string_view> parts;
    const std::string_view text = absolute.view();
    size_t begin = 0;
    while (begin <= text.size()) {
        size_t end = text.find(CDir::kSeparator, begin);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view part = text.substr(begin, end - begin);
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        begin = end + 1;
    }
    stringEx full;
    for (const std::string_view part : parts) {
        full += CDir::kSeparator;
        full.append(part.data(), uint32_t(part.size()));
    }
    if (parts.empty() || keepFinalSeparator) full += CDir::kSeparator;
    return full;
}

// The first "dir/name" that is a file, for the directories of a $PATH
// value in order; an empty entry stands for the working directory.
bool FindInDirectories(std::string_view search, const stringEx& name, stringEx& found) {
    if (search.empty()) return false;
    size_t begin = 0;
    while (begin <= search.size()) {
        size_t end = search.find(':', begin);
        if (end == std::string_view::npos) end = search.size();
        found =
            end == begin ? stringEx(".") : stringEx(search.data() + begin, uint32_t(end - begin));
        found += CDir::kSeparator;
        found += name;
        if (IsFile(found)) return true;
        begin = end + 1;
    }
    return false;
}

// ---- mount table ----------------------------------------------------------------

// A mount point as the tables write it: blanks, tabs, line feeds and
// backslashes are given as a backslash and three octal digits.
std::string DecodeMountPoint(std::string_view field) {
    std::string point;
    for (size_t i = 0; i < field.size(); ++i) {
        const bool octal = field[i] == '\\' && i + 3 < field.size() && field[i + 1] >= '0' &&
                           field[i + 1] <= '3' && field[i + 2] >= '0' && field[i + 2] <= '7' &&
                           field[i + 3] >= '0' && field[i + 3] <= '7';
        if (!octal) {
            point.push_back(field[i]);
            continue;
        }
        point.push_back(
            char((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 + (field[i + 3] - '0')));
        i += 3;
    }
    return point;
}

// The second blank-separated field of a table line ("device point type
// options ..."), or empty.
std::string_view SecondField(std::string_view line) {
    const char* blanks = " \t\n";
    size_t begin = line.find_first_not_of(blanks);
    if (begin == std::string_view::npos) return {};
    begin = line.find_first_of(blanks, begin);
    if (begin == std::string_view::npos) return {};
    begin = line.find_first_not_of(blanks, begin);
    if (begin == std::string_view::npos) return {};
    size_t end = line.find_first_of(blanks, begin);
    if (end == std::string_view::npos) end = line.size();
    return line.substr(begin, end - begin);
}

// The mount point of a line of "mount": "device on point type fs (...)",
// or "device on point (fs, ...)" on systems without the type word.
std::string_view MountCommandPoint(std::string_view line) {
    const size_t on = line.find(" on ");
    if (on == std::string_view::npos) return {};
    const size_t begin = on + 4;
    size_t end = line.rfind(" type ");
    if (end == std::string_view::npos || end < begin) end = line.rfind(" (");
    if (end == std::string_view::npos || end < begin) return {};
    return line.substr(begin, end - begin);
}

using PointParser = std::string_view (*)(std::string_view);

// Reads every line of `stream` and collects the mount points in `points`.
void CollectMountPoints(FILE* stream, PointParser parser, std::vector<std::string>& points) {
    char* line = nullptr;
    size_t room = 0;
    ssize_t length;
    while ((length = getline(&line, &room, stream)) >= 0) {
        const std::string_view field = parser(std::string_view(line, size_t(length)));
        if (!field.empty()) points.push_back(DecodeMountPoint(field));
    }
    free(line);
}

// The mount points of the first table that can be read; false when none.
bool ReadMountPoints(std::vector<std::string>& points) {
    for (const char* table : {"/etc/mtab", "/proc/mounts", "/etc/mnttab"}) {
        FILE* stream = fopen(table, "re");
        if (!stream) continue;
        CollectMountPoints(stream, SecondField, points);
        fclose(stream);
        return true;
    }
    FILE* command = popen("mount 2>/dev/null", "r");
    if (!command) return false;
    CollectMountPoints(command, MountCommandPoint, points);
    return pclose(command) == 0 || !points.empty();
}

// Whether the mount point `point` holds the full path `path`.
bool Holds(std::string_view point, std::string_view path) {
    if (point == "/") return true;
    if (path.substr(0, point.size()) != point) return false;
    return path.size() == point.size() || path[point.size()] == CDir::kSeparator;
}

}  // namespace

// ---- checked stat ----------------------------------------------------------------

struct stat PosixStat(const stringEx& path) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        struct stat status {};
        const int error = StatusOf(path, status);
        if (error == 0) return status;
        throw dirExp(ExpMessage("PosixStat - failed retrive the status of giving path")
                         .Detail("  file path  = ", path)
                         .SysError("  error code = ", "  error desc = ", error, kStatErrors),
                     DirCode::PathStatus);
    });
}

bool IsFile(const stringEx& path) {
    mode_t mode = 0;
    return ModeOf(path, mode) && !S_ISDIR(mode);
}

bool IsDir(const stringEx& path) {
    mode_t mode = 0;
    return ModeOf(path, mode) && S_ISDIR(mode);
}

// ---- the object ---------------------------------------------------------------------

CDir::CDir(const stringEx& path, bool create, bool noCheck) {
    Open(path, create, noCheck);
}

void CDir::Open(const stringEx& path, bool create, bool noCheck) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (path.empty()) ThrowInvalidArgument("CDir::Open - nothing to open");
        stringEx full = ConvToFullPath(path);
        if (full[full.size() - 1] != kSeparator) full += kSeparator;
        if (!noCheck && !IsDir(full)) {
            if (!create) {
                // The working directory explains a relative path; a failure
                // to get it must not hide the failure being reported.
                stringEx workDir;
                try {
                    workDir = GetPwd();
                } catch (const dirExp&) {
                }
                throw dirExp(ExpMessage("CDir::Open - error open dir, not exist")
                                 .Detail("  dir to open         = ", path)
                                 .Detail("  current working dir = ", workDir),
                             DirCode::OpenDir);
            }
            MakeDir(full, true);
        }
        m_path = full;
    });
}

stringEx CDir::Combine(const stringEx& name) const {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (name.empty()) return stringEx();
        if (name[0] == kSeparator) return name;
        if (m_path.empty()) {
            throw dirExp(ExpMessage("CDir::Combine - invalid obj, no base dir")
                             .Detail("  file name = ", name),
                         DirCode::InvalidObject);
        }
        stringEx joined = m_path;
        joined += name;
        return ConvToFullPath(joined);
    });
}

// ---- path texts -------------------------------------------------------------------

stringEx CDir::ConvToFullPath(const stringEx& path) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (path.empty()) ThrowInvalidArgument("CDir::ConvToFullPath - nothing to convert");
        const bool keepFinal = path[path.size() - 1] == kSeparator;
        return Normalized(Anchored(path), keepFinal);
    });
}

stringEx CDir::GetPathDir(const stringEx& path) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (path.empty()) ThrowInvalidArgument("CDir::GetPathDir - nothing to match");
        const uint32_t slash = path.rfind(kSeparator);
        if (slash == npos) return stringEx("./");
        return stringEx(path, 0, slash + 1);
    });
}

stringEx CDir::GetPathFilename(const stringEx& path) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (path.empty()) ThrowInvalidArgument("CDir::GetPathFilename - nothing to match");
        return IMPL::LastComponent(path);
    });
}

stringEx CDir::GetPathVolume(const stringEx& path) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (path.empty()) ThrowInvalidArgument("CDir::GetPathVolume - path is empty");
        const stringEx full = ConvToFullPath(path);
        std::vector<std::string> points;
        const std::string* best = nullptr;
        if (ReadMountPoints(points)) {
            // Later lines win a tie: a file system mounted over another
            // hides it.
            for (const std::string& point : points) {
                if (!Holds(point, full.view())) continue;
                if (!best || point.size() >= best->size()) best = &point;
            }
        }
        if (!best) {
            throw dirExp(ExpMessage("CDir::GetPathVolume - volume not found"), DirCode::PathStatus);
        }
        return stringEx(best->data(), uint32_t(best->size()));
    });
}

stringEx CDir::FindInPath(const stringEx& name) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        if (name.empty()) ThrowInvalidArgument("CDir::FindInPath - nothing to search");
        const char* variable = getenv("PATH");
        stringEx found;
        if (name.find(kSeparator) != npos) {
            if (IsFile(name)) return ConvToFullPath(name);
        } else if (FindInDirectories(variable ? variable : "", name, found)) {
            return ConvToFullPath(found);
        }
        throw dirExp(ExpMessage("CDir::FindInPath - can't find file in path")
                         .Detail("  file name         = ", name)
                         .Detail("  environment path  = ", variable),
                     DirCode::FindInPath);
    });
}

stringEx CDir::GetPwd() {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        errno = 0;
        long room = pathconf(".", _PC_PATH_MAX);
        if (room < 0 && errno != 0) {
            const int error = errno;
            throw dirExp(
                ExpMessage("CDir::GetPwd - error get the path length of current working dir")
                    .SysError("  system error no   = ", "  system error desc = ", error,
                              kPathconfErrors),
                DirCode::GetWorkDir);
        }
        if (room <= 0) room = kDefaultPathRoom;
        // pathconf's figure is a hint: a deeper directory gets more room.
        for (uint64_t size = uint64_t(room) + 1;; size *= 2) {
            stringEx path;
            path.assign_discard(uint32_t(std::min<uint64_t>(size, stringEx::max_size())));
            if (getcwd(path.data(), path.capacity())) {
                path.set_length(uint32_t(strlen(path.data())));
                return path;
            }
            const int error = errno;
            if (error == ERANGE && size < stringEx::max_size()) continue;
            throw dirExp(ExpMessage("CDir::GetPwd - error get current working dir")
                             .SysError("  system error no   = ", "  system error desc = ", error,
                                       kGetcwdErrors),
                         DirCode::GetWorkDir);
        }
    });
}

stringEx CDir::GetTempDir() {
    return GuardDeclared<std::bad_alloc>([&] {
        const char* variable = getenv("TMPDIR");
        if (variable && *variable && IsDir(variable)) {
            stringEx dir(variable);
            if (dir[dir.size() - 1] != kSeparator) dir += kSeparator;
            return dir;
        }
        for (const char* candidate : {"/tmp", "/var/tmp", "/usr/tmp"}) {
            if (!IsDir(candidate)) continue;
            stringEx dir(candidate);
            dir += kSeparator;
            return dir;
        }
        return stringEx("./tmp/");
    });
}

uint32_t CDir::GetAttributes(const stringEx& path) {
    return GuardDeclared<dirExp, std::bad_alloc>([&] {
        struct stat status {};
        const int error = StatusOf(path, status);
        if (error == 0) return uint32_t(status.st_mode);
        throw dirExp(ExpMessage("CDir::GetAttributes - failed getting path attributes")
                         .Detail("  file path  = ", path)
                         .SysError("  error code = ", "  error desc = ", error, kStatErrors),
                     DirCode::GetAttributes);
    });
}

void CDir::SetAttributes(const stringEx& path, uint32_t mode) {
    GuardDeclared<dirExp, std::bad_alloc>([&] {
        while (chmod(path.c_str(), mode_t(mode)) != 0) {
            const int error = errno;
            if (error == EINTR) continue;
            throw dirExp(ExpMessage("CDir::SetAttributes - failed setting path attributes")
                             .Detail("  file path  = ", path)
                             .Octal("  attributes = ", mode)
                             .SysError("  error code = ", "  error desc = ", error, kChmodErrors),
                         DirCode::SetAttributes);
        }
    });
}

}  // namespace Orlo
