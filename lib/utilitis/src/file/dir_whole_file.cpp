// Files as one value: read a whole file into a string, replace a file with a
// string, keep time-stamped copies of a file and put the newest back.
//
// Read and write exclude each other through the share lock of CSysFile: a
// reader holds it shared and a writer exclusive for the length of one call,
// and a loser fails at once rather than wait. The writer opens without
// truncating, takes the lock, and only then cuts the file, so a file that
// is busy elsewhere is never touched. There is no temporary file: once the
// cut is made, a failing write leaves the file short.
//
// A string's length is 32-bit, so the size of the file is checked against
// what the destination can hold before any memory is taken; a bigger file
// fails instead of coming back cut. The system may move fewer bytes per call
// than asked (at most about 2 GiB on Linux), so reads and writes go on until
// the whole size is moved or the file ends.
//
// Backup copies sit in a CDir's directory under the name stem@time.ext. The
// time is "%Y%M%d_%H%T%S" of the local zone, so the names sort like the
// times and the rotation can go by name alone.

#include <fcntl.h>

#include <algorithm>
#include <cstdint>
#include <new>

#include "file/dir_impl.h"
#include "orlo/dir.h"
#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "orlo/log.h"
#include "orlo/sysfile.h"
#include "orlo/time.h"

namespace Orlo {

namespace IMPL {

void WriteAll(CSysFile& file, const char* data, uint64_t size) {
    uint64_t done = 0;
    do {
        const int64_t written = file.Write(data + done, size - done);
        if (written <= 0) return;
        done += uint64_t(written);
    } while (done < size);
}

}  // namespace IMPL

namespace {

// The largest file, in bytes, whose content fits a string of `Text` with
// its terminator.
template <class Text>
constexpr uint64_t LargestReadable() {
    constexpr uint64_t unit = sizeof(typename Text::value_type);
    if constexpr (unit == 1) return Text::max_size() - 1;
    // (size / unit) + 2 units are taken: whole units, a partial one, the
    // terminator.
    return (uint64_t(Text::max_size()) - 2) * unit + (unit - 1);
}

[[noreturn]] void ThrowTooLarge(const stringEx& path, int64_t size, uint64_t limit) {
    throw dirExp(ExpMessage("CDir::ReadFile - file too large to read into one string")
                     .Detail("  file path  = ", path)
                     .Int64("  file size  = ", size)
                     .Int64("  size limit = ", int64_t(limit)),
                 DirCode::InvalidArgument);
}

// Reads up to `size` bytes; fewer only when the file ends first.
uint64_t ReadAll(CSysFile& file, char* data, uint64_t size) {
    uint64_t done = 0;
    do {
        const int64_t got = file.Read(data + done, size - done);
        if (got <= 0) break;
        done += uint64_t(got);
    } while (done < size);
    return done;
}

template <class Text>
void ReadInto(const stringEx& path, Text& destination) {
    IMPL::Empty(destination);
    if (path.empty())
        throw dirExp(ExpMessage("CDir::ReadFile - read what ?"), DirCode::InvalidArgument);
    CSysFile file;
    file.Open(path, O_RDONLY, IMPL::kNeverWait, FileShare::Shared, 0666, 0);
    const int64_t size = file.GetSize();
    constexpr uint64_t unit = sizeof(typename Text::value_type);
    if (size < 0 || uint64_t(size) > LargestReadable<Text>()) {
        ThrowTooLarge(file.GetPath(), size, LargestReadable<Text>());
    }
    destination.assign_discard(uint32_t(uint64_t(size) / unit + (unit == 1 ? 1 : 2)));
    const uint64_t got = ReadAll(file, reinterpret_cast<char*>(destination.data()), uint64_t(size));
    destination.set_length(uint32_t(got / unit));
    file.Close();
}

// Writes all of `data` at the file's position, in as many writes as the
// kernel needs (one write moves at most about 2 GiB). A failure of the
// first write is the write's failure. Once a write has come back short, a
// failure of the rest ends the write quietly: a write cut short, by the
// file-size limit say, is not reported. Returns the bytes written.
uint64_t WriteReportingFirstFailure(CSysFile& file, const char* data, uint64_t size) {
    uint64_t done = 0;
    do {
        int64_t written = 0;
        if (done == 0) {
            written = file.Write(data, size);
        } else {
            try {
                written = file.Write(data + done, size - done);
            } catch (const sysfileExp&) {
                break;
            }
        }
        if (written <= 0) break;
        done += uint64_t(written);
    } while (done < size);
    return done;
}

// Makes the file hold `data` and nothing else, as emptying it and then
// writing would, and with the same result when the write fails: the file
// holds what was written, no byte of the old content. The new content goes
// over the old and the file is cut behind it, which spares the file system
// freeing all of the file's blocks to allocate them again, and waiting for
// pages of the old content still being written out.
void ReplaceContent(CSysFile& file, const char* data, uint64_t size) {
    try {
        WriteReportingFirstFailure(file, data, size);
    } catch (const sysfileExp&) {
        try {
            file.ResizeToCurrentPos();
        } catch (const sysfileExp&) {
            // The write's failure is the one to report.
        }
        throw;
    }
    file.ResizeToCurrentPos();
}

void WriteBytes(const stringEx& path, const char* data, uint64_t size, bool flush, bool append) {
    if (path.empty()) {
        throw dirExp(ExpMessage("CDir::WriteFile - write what ?"), DirCode::InvalidArgument);
    }
    CSysFile file;
    // No O_TRUNC: the content may only go once the exclusive lock is held.
    file.Open(path, O_WRONLY, O_CREAT | IMPL::kNeverWait, FileShare::Exclusive, 0666, 0);
    if (append) {
        file.SeekEnd(0);
        WriteReportingFirstFailure(file, data, size);
    } else {
        file.SeekBegin(0);
        ReplaceContent(file, data, size);
    }
    if (flush) file.Flush();
    file.Close();
}

template <class Text>
void WriteFrom(const stringEx& path, const Text& source, bool flush, bool append) {
    // c_str() and not data(): a null string is written from the empty text.
    WriteBytes(path, reinterpret_cast<const char*>(source.c_str()),
               uint64_t(source.size()) * sizeof(typename Text::value_type), flush, append);
}

// ---- backups -------------------------------------------------------------------------------

// The name of `file` cut at its last ".": "a.tar.gz" is "a.tar" and "gz",
// "Makefile" is "Makefile" and "".
struct NameParts {
    stringEx stem;
    stringEx extension;
};

NameParts SplitName(const stringEx& file) {
    const stringEx name = CDir::GetPathFilename(file);
    const uint32_t dot = name.rfind('.');
    if (dot == npos) return {name, stringEx()};
    return {stringEx(name, 0, dot), stringEx(name, dot + 1)};
}

// stem@YYYYMMDD_HHMMSS.ext for the present local time; the "." stays when
// there is no extension, so that one pattern finds the copies of any name.
stringEx BackupName(const NameParts& parts) {
    stringEx name = parts.stem;
    name += '@';
    name += CTime::now().Format(stringEx::view("%Y%M%d_%H%T%S"));
    name += '.';
    name += parts.extension;
    return name;
}

// The copies of the file whose name is split in `parts`, in `dir`, newest
// first: descending byte order, in which a longer name comes before its
// prefix.
PathList Backups(const CDir& dir, const NameParts& parts) {
    stringEx pattern = parts.stem;
    pattern += "@*.";
    pattern += parts.extension;
    PathList copies;
    dir.GetAllFiles(copies, pattern, false, true, false);
    std::sort(copies.begin(), copies.end(),
              [](const stringEx& a, const stringEx& b) { return b.compare(a) < 0; });
    return copies;
}

}  // namespace

// ---- read and write ---------------------------------------------------------------------

void CDir::ReadFile(const stringEx& path, stringEx& destination) {
    GuardDeclared<dirExp, sysfileExp, std::bad_alloc>([&] { ReadInto(path, destination); });
}

void CDir::ReadFile(const stringEx& path, byteEx& destination) {
    GuardDeclared<dirExp, sysfileExp, std::bad_alloc>([&] { ReadInto(path, destination); });
}

void CDir::ReadFile(const stringEx& path, wstringEx& destination) {
    GuardDeclared<dirExp, sysfileExp, std::bad_alloc>([&] { ReadInto(path, destination); });
}

void CDir::WriteFile(const stringEx& path, const stringEx& source, bool flush, bool append) {
    GuardDeclared<dirExp, sysfileExp, std::bad_alloc>(
        [&] { WriteFrom(path, source, flush, append); });
}

void CDir::WriteFile(const stringEx& path, const byteEx& source, bool flush, bool append) {
    GuardDeclared<dirExp, sysfileExp, std::bad_alloc>(
        [&] { WriteFrom(path, source, flush, append); });
}

void CDir::WriteFile(const stringEx& path, const wstringEx& source, bool flush, bool append) {
    GuardDeclared<dirExp, sysfileExp, std::bad_alloc>(
        [&] { WriteFrom(path, source, flush, append); });
}

void CDir::ReadFileAt(const stringEx& name, stringEx& destination) const {
    ReadFile(Combine(name), destination);
}

void CDir::ReadFileAt(const stringEx& name, byteEx& destination) const {
    ReadFile(Combine(name), destination);
}

void CDir::ReadFileAt(const stringEx& name, wstringEx& destination) const {
    ReadFile(Combine(name), destination);
}

void CDir::WriteFileAt(const stringEx& name, const stringEx& source, bool flush,
                       bool append) const {
    WriteFile(Combine(name), source, flush, append);
}

void CDir::WriteFileAt(const stringEx& name, const byteEx& source, bool flush, bool append) const {
    WriteFile(Combine(name), source, flush, append);
}

void CDir::WriteFileAt(const stringEx& name, const wstringEx& source, bool flush,
                       bool append) const {
    WriteFile(Combine(name), source, flush, append);
}

// ---- backup and restore ------------------------------------------------------------------

void CDir::BackupFile(const stringEx& file, uint32_t keep, bool flush) const {
    const NameParts parts = SplitName(file);
    if (keep > 0) {
        const stringEx copy = Combine(BackupName(parts));
        // A copy from the same second is already the state to keep.
        if (!IMPL::Exists(copy)) DuplicateFile(file, copy, true, flush);
    }
    const PathList copies = Backups(*this, parts);
    // The oldest stand last; a copy that won't go must not cost the others.
    for (size_t i = copies.size(); i > keep; --i) {
        try {
            RemoveFile(copies[i - 1], false);
        } catch (const dirExp& e) {
            CLog::Warning("util.dir.backup", "failed remove backup file\n@ %s", e.message.c_str());
        }
    }
}

bool CDir::RestoreFile(const stringEx& file) const {
    const PathList copies = Backups(*this, SplitName(file));
    if (copies.empty()) return false;
    const stringEx& newest = copies.front();
    try {
        // A file that is gone is what a restore is most often for.
        if (IMPL::Exists(file)) RemoveFile(file, false);
        TransferFile(newest, file, true, false, true);
    } catch (const dirExp& e) {
        CLog::Error("util.dir.restore",
                    "failed restore the backup file\n  from = %s\n  to   = %s\n@ %s",
                    newest.c_str(), file.c_str(), e.message.c_str());
        return false;
    }
    return true;
}

}  // namespace Orlo
