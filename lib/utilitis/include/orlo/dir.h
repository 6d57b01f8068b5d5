// Directories, paths and whole files: CDir, the checked stat behind it and
// the cookie of a directory enumeration.
//
// A CDir stands for one directory by its full path, which always ends in
// "/". The object itself is small (that one string) and most of the class is
// static: splitting and completing paths, making and removing directories,
// copying and moving files and trees, reading and writing a file as one
// value, asking the file system for its layout and room. What needs a base
// directory is a member: Combine, the enumerations, backups, and the *At
// forms of the whole-file calls, which resolve a relative name against the
// object's path before calling the static form.
//
// Paths are byte strings. Nothing here converts, validates or assumes an
// encoding: a name with a line feed, a blank or bytes that are not UTF-8 is
// handled like any other. Full paths are made by text alone (ConvToFullPath):
// "." and ".." components are removed without asking the file system, so a
// ".." after a symbolic link goes back up the text, not up the link's target.
//
// The enumeration reads directories with opendir and readdir and classifies
// each entry with stat, not lstat: a link to a directory is a directory and
// is followed, loops included, until the system refuses the path (ELOOP or a
// name too long). There is no sorting: results come in readdir order, and a
// caller that needs an order sorts them itself. Which failures end an
// enumeration and which are passed over is part of the contract and is told
// at GetAllFiles.
//
// Failures are dirExp with the DirCode of the operation; whole-file calls
// also let the sysfileExp of CSysFile (orlo/sysfile.h) through unchanged.
// Every operation may throw std::bad_alloc. A CDir belongs to one thread;
// the static functions are as thread-safe as the system calls under them,
// except that relative paths depend on the process's working directory.

#ifndef ORLO_DIR_H
#define ORLO_DIR_H

#include <dirent.h>
#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "orlo/stringEx.h"

namespace Orlo {

// A result list of the enumerations: full paths, appended to, never cleared.
using PathList = std::vector<stringEx>;

// ---- checked stat ---------------------------------------------------------------

// The status of `path`, following symbolic links, with the call repeated
// while a signal interrupts it. A missing file is a failure like any other.
// Throws dirExp (DirCode::PathStatus) "PosixStat - failed retrive the status
// of giving path" with the path and the system error.
struct stat PosixStat(const stringEx& path);

// Whether `path` names something that is not a directory (a regular file, a
// FIFO, a socket, a device, a link to one of these). Trailing "/" are taken
// off first. False for an empty path and for a path whose status can't be
// had (missing, dangling link, no permission). Never throws but bad_alloc.
bool IsFile(const stringEx& path);
// Whether `path` names a directory or a link to one; otherwise as IsFile.
bool IsDir(const stringEx& path);

// ---- storage ---------------------------------------------------------------------

// How the file system that holds a path is laid out, as statvfs reports it.
// Block counts are in units of `blockSize`; "available" is what a user
// without privileges may take, "free" includes the blocks kept for root.
struct StorageTopology {
    uint64_t blockSize = 0;    // the unit of the block counts (f_frsize)
    uint64_t ioBlockSize = 0;  // the preferred size of a transfer (f_bsize)
    uint64_t totalBlocks = 0;
    uint64_t freeBlocks = 0;
    uint64_t availableBlocks = 0;
    uint64_t totalFileNodes = 0;  // inodes; 0 on file systems that don't count them
    uint64_t freeFileNodes = 0;
    uint64_t availableFileNodes = 0;
    uint64_t maxNameLength = 0;  // of one path component
    bool readOnly = false;
};

// The room of the file system that holds a path, in bytes.
struct SpaceInfo {
    uint64_t totalBytes = 0;
    uint64_t freeBytes = 0;       // with the blocks kept for root
    uint64_t availableBytes = 0;  // to a user without privileges
};

// ---- enumeration cookie ---------------------------------------------------------

// A shared handle on an open directory stream: the stream and a reference
// count, null before the first read and after the last. Copies share the
// stream and its position; the last release closes it. NextFile and NextDir
// open it on their first call and release it at the end of the directory.
class CDirCookie {
  public:
    CDirCookie() noexcept = default;
    // Shares the stream of `other` (one atomic increment).
    CDirCookie(const CDirCookie& other) noexcept;
    // Takes over `other`, which is left null.
    CDirCookie(CDirCookie&& other) noexcept;
    // Release this cookie's share first, so they throw what Release throws.
    CDirCookie& operator=(const CDirCookie& other);
    CDirCookie& operator=(CDirCookie&& other);
    // Releases this cookie's share. A failing closedir throws as Release,
    // unless an exception is already propagating, when it is dropped.
    ~CDirCookie() noexcept(false);

    // Opens a stream on `dirPath` if the cookie is null. Returns false,
    // leaving the cookie null and errno as opendir set it, when opendir
    // fails, whatever the reason: the enumeration takes an unreadable
    // directory for an empty one, a caller that can't afford to opens the
    // cookie itself and reports errno. Returns true when the cookie holds a
    // stream. Never throws but bad_alloc.
    bool Open(const stringEx& dirPath);
    // Gives up this cookie's share and leaves it null; the last share closes
    // the stream. Does nothing on a null cookie. Throws dirExp
    // (DirCode::ReleaseCookie) "CDirCookie::Release - failed close dir
    // stream" when closedir fails; the cookie is null all the same.
    void Release();

    bool IsNull() const noexcept { return m_stream == nullptr; }
    // The stream, null when the cookie is null. Owned by the cookie.
    DIR* Stream() const noexcept { return m_stream; }

  private:
    using Counter = std::atomic<uint32_t>;

    DIR* m_stream = nullptr;
    Counter* m_refs = nullptr;
};

// ---- CDir -------------------------------------------------------------------------

class CDir {
  public:
    // The path separator; GetPathSeparator returns it as the number 47.
    static constexpr char kSeparator = '/';
    static constexpr int GetPathSeparator() noexcept { return kSeparator; }

    // An object for no directory: its path is empty and every member that
    // needs a base directory fails on it.
    CDir() noexcept = default;
    // Open(path, create, noCheck).
    explicit CDir(const stringEx& path, bool create = false, bool noCheck = false);

    // Makes this object stand for the directory `path`: the path is made
    // full and given a final "/". Unless `noCheck`, the directory must exist;
    // with `create` a missing one is made, with its parents (MakeDir).
    // On failure the object keeps its former path.
    // Throws dirExp: DirCode::InvalidArgument "CDir::Open - nothing to open"
    // for an empty path; DirCode::OpenDir "CDir::Open - error open dir, not
    // exist" with the path as given and the working directory when it is no
    // directory and `create` is false; what ConvToFullPath and MakeDir throw.
    void Open(const stringEx& path, bool create = false, bool noCheck = false);

    // The full path with its final "/", or empty for an object that stands
    // for no directory.
    const stringEx& GetPath() const noexcept { return m_path; }

    // `name` resolved against this directory: an empty name stays empty, an
    // absolute one is returned as it is, a relative one is appended to the
    // path and made full ("sub/../a.txt" gives the path + "a.txt").
    // Throws what ConvToFullPath throws.
    stringEx Combine(const stringEx& name) const;

    // ---- paths ----------------------------------------------------------------

    // `path` as an absolute path without "." or ".." components and without
    // doubled "/": a relative path is taken against the working directory,
    // and a leading "~" (alone or before "/") stands for $HOME, or for the
    // user's home directory when HOME is not set. ".." above the root stays
    // at the root. A final "/" is kept; "a/." and "a/.." end without one.
    // The file system is not asked, so the path need not exist.
    // Throws dirExp: DirCode::InvalidArgument "CDir::ConvToFullPath -
    // nothing to convert" for an empty path; what GetPwd throws for a
    // relative one.
    static stringEx ConvToFullPath(const stringEx& path);

    // The directory part of `path` up to and with its last "/" ("a/b.c"
    // gives "a/", "/x" gives "/"), or "./" when there is no "/".
    // Throws dirExp (DirCode::InvalidArgument) "CDir::GetPathDir - nothing
    // to match" for an empty path.
    static stringEx GetPathDir(const stringEx& path);
    // What follows the last "/" of `path` (empty when it ends in "/"), or
    // the whole path when it has none. Throws dirExp
    // (DirCode::InvalidArgument) "CDir::GetPathFilename - nothing to match"
    // for an empty path.
    static stringEx GetPathFilename(const stringEx& path);

    // The mount point of the file system that holds `path` (made full
    // first): the longest mount point that is `path` or one of its parent
    // directories by text. The table is read from "/etc/mtab", else
    // "/proc/mounts", else "/etc/mnttab", else from the output of "mount".
    // Throws dirExp: DirCode::InvalidArgument "CDir::GetPathVolume - path is
    // empty"; DirCode::PathStatus "CDir::GetPathVolume - volume not found"
    // when no table is readable or no mount point holds the path; what
    // ConvToFullPath throws.
    static stringEx GetPathVolume(const stringEx& path);

    // The full path of the first file called `name` in the directories of
    // $PATH, in order (an empty entry is the working directory). A name with
    // a "/" is not searched for but taken as it is, made full.
    // Throws dirExp: DirCode::InvalidArgument "CDir::FindInPath - nothing to
    // search" for an empty name; DirCode::FindInPath "CDir::FindInPath -
    // can't find file in path" with the name and $PATH when no directory
    // has it.
    static stringEx FindInPath(const stringEx& name);

    // The working directory, as getcwd gives it (no final "/" but for the
    // root). Throws dirExp (DirCode::GetWorkDir) "CDir::GetPwd - error get
    // the path length of current working dir", or "CDir::GetPwd - error get
    // current working dir" when the directory has been removed.
    static stringEx GetPwd();

    // The directory for temporary files, with a final "/": $TMPDIR if it is
    // a directory, else the first directory of "/tmp", "/var/tmp",
    // "/usr/tmp", else "./tmp/". Never throws but bad_alloc.
    static stringEx GetTempDir();

    // The mode of `path` (st_mode: type and permission bits), links
    // followed. Throws dirExp (DirCode::GetAttributes) "CDir::GetAttributes
    // - failed getting path attributes".
    static uint32_t GetAttributes(const stringEx& path);
    // chmod(path, mode). Throws dirExp (DirCode::SetAttributes)
    // "CDir::SetAttributes - failed setting path attributes".
    static void SetAttributes(const stringEx& path, uint32_t mode);

    // Creates a new empty file with a unique name in the temporary
    // directory and returns its full path: the present time in hexadecimal
    // digits + ".tmp". Uniqueness is the system's (O_CREAT | O_EXCL): a
    // name that exists is replaced by the next, at most 10000 times.
    // Throws dirExp (DirCode::TempName) "CDir::GenTempFileNameInSysTempDir -
    // error generate unique temp file name" when the tries run out or the
    // file can't be created.
    static stringEx GenTempFileNameInSysTempDir();
    // The same in this object's directory, at most 1000 times. Throws dirExp:
    // DirCode::InvalidObject "CDir::GenTempFileName - invalid obj, or the
    // base dir has been removed" when the object stands for no existing
    // directory; DirCode::TempName "CDir::GenTempFileName - error generate
    // unique temp file name".
    stringEx GenTempFileName() const;

    // ---- directory and file operations -----------------------------------------

    // Makes the directory `path` (mode 0777 less the umask). Without
    // `recursive` the parent must exist and `path` must not; with it every
    // missing parent is made first and an existing directory is success.
    // Throws dirExp: DirCode::InvalidArgument "CDir::MakeDir - nothing to
    // make"; DirCode::MakeDir "CDir::MakeDir - failed create dir" with the
    // directory that could not be made and the system error.
    static void MakeDir(const stringEx& path, bool recursive = false);

    // Removes the directory `path`. With `subFiles` the files in it go
    // first, with `subDirs` its sub-directories, recursively (with their
    // files when `subFiles`, otherwise only empty ones). Symbolic links are
    // removed as files and never followed. Throws dirExp
    // (DirCode::RemoveDir): "CDir::RemoveDir - nothing to remove" for an
    // empty path (code DirCode::InvalidArgument), "CDir::RemoveDir - failed
    // remove dir" with the system error, or wrapping the failure found
    // inside the tree.
    static void RemoveDir(const stringEx& path, bool subDirs = false, bool subFiles = false);

    // Removes the file `path` (trailing "/" taken off first); a symbolic
    // link is removed, not its target. With `force`, a refusal for lack of
    // permission makes it add write permission to the file and write and
    // search permission to its directory, and try once more.
    // Throws dirExp (DirCode::RemoveFile) "CDir::RemoveFile - failed remove
    // file" for an empty path, a directory, or a failing unlink.
    static void RemoveFile(const stringEx& path, bool force = false);

    // Copies the bytes of `source` over `destination`, both made full,
    // 256 KiB at a time; the destination is created (mode 0666 less the
    // umask) if needed, and not truncated: a shorter source leaves the old
    // tail of the destination in place. With `flush` the copy is synced.
    // Throws dirExp (DirCode::DuplicateFile): "CDir::DuplicateFile - error
    // copy file, dest already exists" when `overwrite` is false and the
    // destination exists; "CDir::DuplicateFile - error copy file" wrapping
    // any failure of the copy.
    static void DuplicateFile(const stringEx& source, const stringEx& destination, bool overwrite,
                              bool flush = false);

    // Moves `source` to `destination` by a hard link and the removal of the
    // source. Across file systems (or past the link limit) it copies and
    // removes instead if `allowCopy`, syncing the copy when `sync`. With
    // `overwrite` an existing destination is removed first. Moving a file
    // onto itself (the same file by device and inode) does nothing.
    // Throws dirExp (DirCode::TransferFile): "CDir::TransferFile - error move
    // file, dest already exists"; "CDir::TransferFile - error link file to
    // the target path" with the system error; "CDir::TransferFile - error
    // copy file to the target" and "CDir::TransferFile - error remove
    // (unlink) the source" wrapping the failure of those steps; what
    // RemoveFile throws for the destination.
    static void TransferFile(const stringEx& source, const stringEx& destination, bool overwrite,
                             bool sync = false, bool allowCopy = true);

    // Copies the directory `source` as `target`, whose parent must exist.
    // The target is made if it doesn't exist, then each directory gets its
    // files (only with `subFiles`; without, the copy is the bare tree of
    // directories) and then its sub-directories, depth first, in readdir
    // order. Hidden names are copied like any other. An existing target is
    // merged into: existing directories are kept and filled; an existing
    // file fails the copy unless `overwrite`, when it is removed and copied
    // anew, so no old tail stays and a link in the target is replaced, not
    // written through. A file where the source has a directory, or a
    // directory where it has a file, fails either way. File contents are
    // copied as DuplicateFile copies them; modes, owners and times are not.
    //
    // The source is read through NextFile and NextDir, so a symbolic link
    // counts as what it points to: a link to a file gives a file with the
    // content, a link to a directory a directory with its tree, and a
    // dangling link fails the copy. Special files are read like files (a
    // FIFO without a writer gives an empty file).
    //
    // A target that is the source or lies inside it, by text or through
    // links, is refused before anything is made. The walk also refuses to
    // enter a directory that is one of its own ancestors or a directory of
    // the target (a link loop, a link into the copy), which would otherwise
    // copy until the paths grow too long; that refusal comes with the copy
    // half made. Any failure leaves what was copied so far.
    //
    // Throws dirExp: DirCode::InvalidArgument "CDir::DuplicateDir - nothing
    // to copy" for an empty path; DirCode::DuplicateDir "CDir::DuplicateDir
    // - dir nesting found in recursive copy mode" with the four arguments,
    // and "CDir::DuplicateDir - failed duplicate dir" with the four
    // arguments wrapping the failure of a step (a source that is missing, no
    // directory or unreadable, a directory that can't be made, a file copy).
    static void DuplicateDir(const stringEx& source, const stringEx& target, bool overwrite,
                             bool subFiles = true);

    // Moves the directory `source` to the path `target`, whose parent must
    // exist. When the target doesn't exist this is a rename: atomic, and
    // links inside stay links. Across file systems the tree is copied
    // (DuplicateDir, so links are followed and the copy holds what they
    // point to) and the source is then removed, its links as links; the
    // source stays until the copy is complete, so a failure loses nothing.
    // An existing target is refused unless `overwrite`, when the source is
    // merged into it by the same copy and removal, files of the same name
    // being replaced. `source` must be a directory itself, not a link to
    // one. A target that is the source or lies inside it is refused before
    // anything is touched.
    //
    // Throws dirExp: DirCode::InvalidArgument "CDir::TransferDir - nothing to
    // move" for an empty path; DirCode::TransferDir "CDir::TransferDir - dir
    // nesting found in recursive copy mode" with both paths, and
    // "CDir::TransferDir - failed transfer dir" with both paths and either
    // the system error (a source that is missing or no directory, a target
    // that exists, a failing rename) or, wrapped, the failure of the copy or
    // of the removal of the source.
    static void TransferDir(const stringEx& source, const stringEx& target, bool overwrite);

    // Makes `link` a symbolic link to `target`. With `arguments` or a
    // `workFolder`, makes instead an executable shell script at `link`
    // that changes to the work folder and runs the target with the
    // arguments and its own ("#!/bin/sh", a comment, "cd" with the folder,
    // the target, the arguments, " \"$@\"").
    // Throws dirExp (DirCode::MakeSymbolicLink): "CDir::MakeSymbolicLink -
    // nothing to make" (code DirCode::InvalidArgument) for an empty target
    // or link; "CDir::MakeSymbolicLink - failed create symbolic link" with
    // the system error; "CDir::MakeSymbolicLink - failed create shell
    // script" wrapping the failure of writing the script.
    static void MakeSymbolicLink(const stringEx& target, const stringEx& link,
                                 const stringEx& arguments = stringEx(),
                                 const stringEx& workFolder = stringEx());
    // Makes `link` a hard link to `target`. Throws dirExp: "CDir::MakeHardLink
    // - nothing to make" (DirCode::InvalidArgument); DirCode::MakeHardLink
    // "CDir::MakeHardLink - failed create hard link" with the system error.
    static void MakeHardLink(const stringEx& target, const stringEx& link);

    // ---- storage ---------------------------------------------------------------------

    // The layout of the file system that holds `path` (statvfs, links
    // followed). Throws dirExp (DirCode::PathStatus) "CDir::GetStorageTopology
    // - failed retrieve storage's topology info" with the path and the
    // system error, a missing path included.
    static StorageTopology GetStorageTopology(const stringEx& path);
    // The total, free and available bytes of the file system that holds
    // `path`: the block counts of GetStorageTopology times the block size.
    // Throws dirExp (DirCode::PathStatus) "CDir::GetSpaceInfo - failed
    // retrieve space info" with the path and the system error.
    static SpaceInfo GetSpaceInfo(const stringEx& path);

    // ---- enumeration ---------------------------------------------------------------

    // The next entry of the directory `dirPath` that is no directory, read
    // through `cookie` (opened here on the first call). Entries are
    // classified by stat, so a link counts as what it points to; with
    // `hidden` false, names that begin with "." are skipped. Returns true
    // with `outPath` = `dirPath` + name (a "/" put between when `dirPath`
    // lacks it), or false at the end, when the cookie is released, and when
    // the directory can't be opened. `outPath` is emptied first, so it may
    // not be `dirPath` itself.
    // Throws dirExp: what PosixStat throws for an entry that can't be
    // examined (a dangling link, for one), which ends nothing: the cookie
    // stays open and the next call goes on with the next entry;
    // DirCode::ReleaseCookie "CDir::NextFile - failed read dir entry" when
    // readdir fails.
    static bool NextFile(const stringEx& dirPath, CDirCookie& cookie, stringEx& outPath,
                         bool hidden);
    // The same for the next directory entry. "." and ".." are returned if
    // and only if `dots`; other names that begin with "." only if `hidden`.
    // readdir failures read "CDir::NextDir - failed read dir entry".
    static bool NextDir(const stringEx& dirPath, CDirCookie& cookie, stringEx& outPath, bool hidden,
                        bool dots);

    // Appends to `list` the full path of every file that matches `pattern`
    // and returns the size of the whole list (old entries included).
    //
    // The pattern is a wildcard for the bare name ("?" any one byte, "*" any
    // run, case-sensitive, the whole name must match) with an optional
    // directory part: "src/*.c" looks in this directory's "src", "/etc/*"
    // in "/etc". There is no wildcard in a directory part, and "./*.c" has
    // none (its name part is the whole text, which no name matches). An
    // empty pattern means "*" and is changed to "*" in the caller's string.
    // A directory part that is no directory is a failure, not an empty list.
    //
    // With `recursive` the sub-directories are walked first (GetAllSubDirs,
    // depth first, links followed) and then each directory is read in that
    // order; names within one directory come in readdir order. `hidden`
    // lets names that begin with "." match and be walked ("." and ".." never
    // match). Nothing is removed from `list` on failure.
    //
    // What fails, for either `tolerant`: a directory that can't be opened
    // is empty, silently; an entry that can't be examined before the first
    // file of a directory hides the rest of that directory, silently; one
    // after it fails the call; so does any failure of the walk at the top
    // level. With `tolerant`, a failure of the walk below the top level
    // drops that subtree and the walk goes on; without, it fails the call.
    //
    // Throws dirExp (DirCode::EnumFiles) "CDir::GetAllFiles - failed find
    // files" with this object's path, wrapping the failure.
    size_t GetAllFiles(PathList& list, stringEx& pattern, bool recursive, bool hidden,
                       bool tolerant) const;
    // The same for a pattern the caller doesn't need changed (a literal).
    size_t GetAllFiles(PathList& list, const stringEx& pattern, bool recursive, bool hidden,
                       bool tolerant) const;

    // Appends to `list` the full path (without a final "/") of every
    // directory that matches `pattern`, and returns the size of the list.
    // The pattern works as in GetAllFiles. With `recursive` every
    // sub-directory is descended into, whether it matched or not, and its
    // entries follow it directly (depth first, pre-order); a link to a
    // directory is followed, and a loop ends when the system refuses the
    // path. `dots` adds the "." and ".." of each directory read (never
    // descended into). A failure below the first level drops that subtree
    // when `tolerant`, and fails the call otherwise.
    // Throws dirExp (DirCode::EnumSubDirs) "CDir::GetAllSubDirs - failed
    // find subdirs" with this object's path, wrapping the failure.
    size_t GetAllSubDirs(PathList& list, stringEx& pattern, bool recursive, bool hidden, bool dots,
                         bool tolerant) const;
    size_t GetAllSubDirs(PathList& list, const stringEx& pattern, bool recursive, bool hidden,
                         bool dots, bool tolerant) const;

    // ---- whole files -----------------------------------------------------------------

    // Replaces the content of `destination` with the bytes of the file at
    // `path`. The destination is emptied first, also when the call then
    // fails (a shared buffer is let go, a view becomes the null string). The
    // file is opened with a shared lock, so it can't be read while a writer
    // holds it, and nothing waits: a FIFO, a socket or a terminal fails
    // instead of blocking. The wide form keeps whole 4-byte units, raw, and drops
    // the trailing bytes of a size that isn't a multiple of 4; no encoding
    // is converted in any form. A file of 0 bytes gives an empty string;
    // a file that reports size 0 but has content (under /proc) gives an
    // empty string too.
    // Throws dirExp (DirCode::InvalidArgument): "CDir::ReadFile - read what
    // ?" for an empty path; "CDir::ReadFile - file too large to read into
    // one string" with the path, the size and the limit when the file
    // doesn't fit a string (more than 4294967293 bytes, 4294967283 for the
    // wide form), before any memory is taken; sysfileExp for a failure of
    // open, size or read.
    static void ReadFile(const stringEx& path, stringEx& destination);
    static void ReadFile(const stringEx& path, byteEx& destination);
    static void ReadFile(const stringEx& path, wstringEx& destination);

    // Replaces the content of the file at `path` with `source`, or appends
    // it with `append`; the file is created (mode 0666 less the umask) if it
    // doesn't exist. The file is opened with an exclusive lock taken without
    // waiting, so a file that another reader or writer holds fails untouched;
    // only then is it truncated and written, so a failure of the write
    // leaves it empty or partly written. With `flush` it is synced after the
    // write. The wide form writes 4 bytes per unit, raw, without a byte
    // order mark.
    // Throws dirExp (DirCode::InvalidArgument) "CDir::WriteFile - write what
    // ?" for an empty path, before anything is touched; sysfileExp for a
    // failure of open ("sharing mode conflict", "file dose not exists or
    // can't be created", ...), seek, resize, write, flush or close.
    static void WriteFile(const stringEx& path, const stringEx& source, bool flush = false,
                          bool append = false);
    static void WriteFile(const stringEx& path, const byteEx& source, bool flush = false,
                          bool append = false);
    static void WriteFile(const stringEx& path, const wstringEx& source, bool flush = false,
                          bool append = false);

    // ReadFile and WriteFile of `name` resolved against this directory
    // (Combine). The same failures, and those of Combine.
    void ReadFileAt(const stringEx& name, stringEx& destination) const;
    void ReadFileAt(const stringEx& name, byteEx& destination) const;
    void ReadFileAt(const stringEx& name, wstringEx& destination) const;
    void WriteFileAt(const stringEx& name, const stringEx& source, bool flush = false,
                     bool append = false) const;
    void WriteFileAt(const stringEx& name, const byteEx& source, bool flush = false,
                     bool append = false) const;
    void WriteFileAt(const stringEx& name, const wstringEx& source, bool flush = false,
                     bool append = false) const;

    // ---- backup and restore -----------------------------------------------------------

    // Keeps time-stamped copies of `file` in this directory. The copy of
    // "a.tar.gz" made at 16:05:01 on 15 November 2026 (local time) is
    // "a.tar@20261115_160501.gz"; a name without "." gets a final ".":
    // "Makefile@20261115_160501.". A second backup in the same second makes
    // no copy. Then the copies (stem + "@*." + extension in this directory)
    // are trimmed to the newest `keep`, by name; `keep` 0 makes no copy and
    // removes them all. A copy that can't be removed is logged (warning,
    // "util.dir.backup") and the rest go on. `flush` syncs the new copy.
    // Throws what DuplicateFile and GetAllFiles throw; a failed copy may be
    // left half-written under its final name. What a logger throws passes
    // through.
    void BackupFile(const stringEx& file, uint32_t keep, bool flush = false) const;

    // Puts the newest copy made by BackupFile back in place of `file` and
    // returns true; the copy leaves the rotation. Returns false when there is
    // no copy, and when removing `file` or moving the copy fails, which is
    // logged (error, "util.dir.restore"); if the removal worked and the move
    // didn't, `file` is gone and the copy stays. A `file` that doesn't exist
    // is simply restored. Throws what GetAllFiles throws; what a logger
    // throws passes through.
    bool RestoreFile(const stringEx& file) const;

  private:
    stringEx m_path;
};

}  // namespace Orlo

#endif  // ORLO_DIR_H
