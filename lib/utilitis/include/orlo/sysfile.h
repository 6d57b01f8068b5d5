// CSysFile: the checked layer over one POSIX file descriptor that everything
// in the library touching a file by descriptor stands on: the whole-file read
// and guarded write of CDir, the enumeration, the file loggers.
//
// One free function, PosixOpenFile, does all that an open needs (large
// files, direct I/O with a fallback, access advice, a share mode taken with a
// non-blocking flock, close-on-exec); the members each call one system
// function, repeat it while a signal interrupts it (EINTR), and turn any
// other errno into a sysfileExp whose text says in plain words what went
// wrong. Open modes are plain POSIX numbers (O_RDONLY, O_CREAT, ...) and are
// not wrapped.
//
// A CSysFile is a small shared-ownership record, not a resource class of its
// own: copying shares the descriptor through an atomic count, and the last
// copy to go closes it. So two values can stand for one open file, and they
// share its position. A borrowed descriptor (a console stream) has no count
// and is never closed by the library.
//
// The share mode is a flock on the open file description and lasts as long
// as the descriptor: a reader holds it shared, a writer exclusive, and a
// loser fails at once with "sharing mode conflict" instead of waiting. That
// is what keeps two guarded writers of one file apart, across processes.
//
// No lock guards a CSysFile; one value belongs to one thread, while copies
// may live in several.

#ifndef ORLO_SYSFILE_H
#define ORLO_SYSFILE_H

#include <fcntl.h>

#include <atomic>
#include <cstdint>

#include "orlo/stringEx.h"
#include "orlo/time.h"

namespace Orlo {

// The share argument of an open: a flock taken without waiting.
namespace FileShare {
enum Value : int32_t {
    None = 0,
    Shared = 1,     // LOCK_SH: any number of holders
    Exclusive = 2,  // LOCK_EX: one holder, and no shared holder beside it
};
}  // namespace FileShare

// The options argument of an open: a bit set.
namespace FileOption {
enum Value : uint32_t {
    // O_DIRECT, dropped with a warning if refused. The library's own bit,
    // translated to the system's O_DIRECT, whose value differs by machine.
    DirectIo = 0x4000,
    AdviseSequential = 0x10000000,  // posix_fadvise SEQUENTIAL; wins over Random
    AdviseRandom = 0x20000000,      // posix_fadvise RANDOM
};
}  // namespace FileOption

// The console argument of CSysFile::Open: the descriptor number.
namespace ConsoleStream {
enum Value : int32_t {
    Input = 0,
    Output = 1,
    Error = 2,
};
}  // namespace ConsoleStream

// Opens `path` as given (no full-path conversion) with the flags
// access | create | O_LARGEFILE and the permission `mode` for a created file,
// then applies `options` and `share`, and marks the descriptor close-on-exec.
// The open itself never waits: a FIFO without a peer or a device without
// carrier would otherwise hold the caller for ever, so the descriptor is
// opened non-blocking and made blocking again afterwards unless `create`
// asked for O_NONBLOCK. Consequently a FIFO opened for writing without a
// reader fails (ENXIO) instead of waiting for one.
// With FileOption::DirectIo, an open that O_DIRECT makes fail is retried
// without it and the loss is logged as a warning under "util.sysfile". A
// failed access advice is logged under the same name and the open goes on.
// Returns the descriptor, which the caller owns.
// Throws sysfileExp (FileCode::Open): "PosixOpenFile - failed open specified
// file" when open fails, the text of SetShareMode when the share lock is
// refused, "PosixOpenFile - failed set file control options" when the
// descriptor flags can't be set. The descriptor is closed before any throw.
// What a logger throws from the warnings passes through, after the close.
int PosixOpenFile(const stringEx& path, int access, int create, int share, uint32_t mode,
                  uint32_t options);

// Takes the share lock of `share` (FileShare) on `fd` with a non-blocking
// flock; any other value does nothing. A file system without flock (EBADF,
// EINVAL, EOPNOTSUPP) is accepted without a lock. On any other failure closes
// `fd` and throws sysfileExp (FileCode::Open) "SetShareMode - failed set file
// sharing mode", with "sharing mode conflict" for a lock held elsewhere.
// `path` only goes into the message.
void SetShareMode(int fd, int share, const stringEx& path);

// lseek64(fd, offset, whence). Returns the new position. Throws sysfileExp
// (FileCode::Seek) "PosixSeekFile - error seek file pointer".
int64_t PosixSeekFile(int fd, int64_t offset, int whence);

// Record locks on a range of `fd`, whose start and length are 32-bit.
// `type` is F_RDLCK or F_WRLCK. With `wait`, blocks until the range is free
// (F_SETLKW) and returns true; without, returns false when another process
// holds a conflicting lock (EACCES, EAGAIN). Throws sysfileExp
// (FileCode::Lock) "PosixLockFile - failed lock file region" otherwise.
bool PosixLockFile(int fd, uint32_t from, uint32_t length, int type, bool wait);
// Releases the record locks of this process on the range. Throws sysfileExp
// (FileCode::Unlock) "PosixUnLockFile - failed unlock file region".
void PosixUnLockFile(int fd, uint32_t from, uint32_t length);

class CSysFile {
  public:
    // A closed file.
    CSysFile() noexcept = default;
    // Shares the descriptor of `other` (one atomic increment).
    CSysFile(const CSysFile& other) noexcept;
    // Takes over `other`, which is left closed.
    CSysFile(CSysFile&& other) noexcept;
    // Releases this value's share first, so it throws what Close throws.
    CSysFile& operator=(const CSysFile& other);
    CSysFile& operator=(CSysFile&& other);
    // Releases this value's share, closing the descriptor if it was the
    // last. A failing close throws sysfileExp (FileCode::Close), unless an
    // exception is already propagating, when the failure is dropped.
    virtual ~CSysFile() noexcept(false);

    // ---- open and close ------------------------------------------------------

    // Makes `path` full (CDir::ConvToFullPath) and opens it with
    // PosixOpenFile (see there for `access`, `create`, `share`, `mode` and
    // `options`). On success this value owns the new descriptor alone and
    // holds the full path; its former descriptor is released afterwards. On
    // failure the former descriptor stays in place but the path is empty.
    // Throws sysfileExp (FileCode::Open): what PosixOpenFile throws, or
    // "CSysFile::Open - failed determine the file path to open" wrapping the
    // path failure (an empty path, for one). Throws sysfileExp
    // (FileCode::Close) if releasing the former descriptor fails, with the
    // new one already in place.
    void Open(const stringEx& path, int access, int create = 0, int share = FileShare::None,
              uint32_t mode = 0666, uint32_t options = 0);
    // Borrows a console stream (ConsoleStream: descriptor 0, 1 or 2) without
    // owning it; the path is empty. Throws sysfileExp (FileCode::Open)
    // "CSysFile::Open - unknown console type: " and the number for anything
    // else.
    void Open(int console);
    // A new value with the path of this one opened anew (create 0, mode
    // 0666); this value is untouched. Throws sysfileExp (FileCode::Open)
    // "CSysFile::ReOpen - don't know how to reopen, empty path" when there is
    // no path, else what Open throws.
    CSysFile ReOpen(int access, int share = FileShare::None, uint32_t options = 0) const;
    // A new owning value on a duplicate of the descriptor (close-on-exec),
    // with the same path. It shares the position and the share lock. Throws
    // sysfileExp (FileCode::Duplicate).
    CSysFile Duplicate() const;
    // Hands the descriptor to the caller, who then owns it, and leaves this
    // value closed. Only the sole owner can: throws sysfileExp
    // (FileCode::Disclaim) "CSysFile::Disclaim - ownership check failed" for
    // a copy that is shared, a borrowed console stream or a closed value.
    int Disclaim();
    // Releases this value's share of the descriptor and leaves it closed;
    // the last owner closes the descriptor. Does nothing on a closed value.
    // Throws sysfileExp (FileCode::Close) "CSysFile::__Close - error close
    // file descriptor"; the value is closed all the same.
    void Close();

    bool IsOpen() const noexcept { return m_handle >= 0; }
    // The descriptor, -1 when closed. Still owned by this value.
    int GetHandle() const noexcept { return m_handle; }
    // The full path that was opened; empty for a console stream.
    const stringEx& GetPath() const noexcept { return m_path; }

    // ---- transfer --------------------------------------------------------------
    // One system call each, no loop: a short transfer is returned as it is.

    // Reads up to `size` bytes into `buffer`. Returns the count, 0 at the
    // end. Throws sysfileExp (FileCode::Read) "CSysFile::Read - failed
    // reading file".
    int64_t Read(void* buffer, uint64_t size);
    // Writes up to `size` bytes from `buffer` (0 is a valid size). Returns
    // the count. Throws sysfileExp (FileCode::Write) with the same head line
    // as Read, "CSysFile::Read - failed reading file": only the description
    // tells the direction.
    int64_t Write(const void* buffer, uint64_t size);

    // ---- position and size -------------------------------------------------------

    // Move the position relative to the start, the position or the end, and
    // return the new position. Throw sysfileExp (FileCode::Seek)
    // "CSysFile::SeekBegin - failed seeking in file" (or SeekCurrent,
    // SeekEnd) wrapping the text of PosixSeekFile.
    int64_t SeekBegin(int64_t offset);
    int64_t SeekCurrent(int64_t offset);
    int64_t SeekEnd(int64_t offset);
    // The position. Throws sysfileExp (FileCode::GetPosition)
    // "CSysFile::GetCurrentPos - failed get current position" wrapping
    // PosixSeekFile's text.
    int64_t GetCurrentPos() const;
    // The size, by seeking to the end and back; the position is unchanged.
    // Throws sysfileExp (FileCode::GetSize) "CSysFile::GetSize - failed
    // retrive file size" wrapping PosixSeekFile's text (ESPIPE on a pipe).
    int64_t GetSize() const;
    // Cuts or extends the file to the current position. Throws what
    // GetCurrentPos throws, or sysfileExp (FileCode::Resize)
    // "CSysFile::ResizeToCurrentPos - failed set the size of shared memory
    // object".
    void ResizeToCurrentPos();
    // fsync. Throws sysfileExp (FileCode::Flush) "CSysFile::Flush - failed
    // flush the file".
    void Flush();

    // ---- range locks ------------------------------------------------------------------
    // fcntl record locks: per process, not per value, and released when any
    // descriptor of the file is closed in this process. `type` is F_RDLCK or
    // F_WRLCK.

    // Waits until the range is locked. Throws sysfileExp (FileCode::Lock)
    // "CSysFile::Lock - failed lock file" wrapping PosixLockFile's text.
    void Lock(uint32_t from, uint32_t length, int type);
    // Returns false at once if another process holds a conflicting lock.
    // Throws sysfileExp (FileCode::Lock) "CSysFile::TryLock - error occured
    // while trying to lock file" wrapping PosixLockFile's text.
    bool TryLock(uint32_t from, uint32_t length, int type);
    // Throws sysfileExp (FileCode::Unlock) "CSysFile::UnLock - failed unlock
    // file" wrapping PosixUnLockFile's text.
    void UnLock(uint32_t from, uint32_t length);

    // ---- times ----------------------------------------------------------------------

    // Stores through each non-null pointer: the creation time, which this
    // platform doesn't keep (the null CTime), and the access and modification
    // times, each as its seconds less the local zone bias. With all pointers
    // null it only checks that fstat works. Throws sysfileExp
    // (FileCode::GetTime) "CSysFile::GetTime - failed retrive the file
    // status".
    void GetTime(CTime* creation, CTime* access, CTime* modify) const;
    // Sets the access and modification times of the path with utime, to whole
    // seconds; `creation` is ignored. A null pointer keeps the present value.
    // Throws timeExp (TimeCode::OutOfRange) from CTime::GetTime_T for a value
    // beyond time_t, what GetTime throws when a present value must be read,
    // and sysfileExp (FileCode::SetTime) "CSysFile::SetTime - error setting
    // the file time".
    void SetTime(const CTime* creation, const CTime* access, const CTime* modify);

  private:
    using Counter = std::atomic<int32_t>;

    // Drops this value's share without touching the fields of the others;
    // closes the descriptor when it was the last. Leaves this value closed.
    void Release();
    // close(2) of the descriptor, with the close text.
    static void __Close(int handle, const stringEx& path);

    int32_t m_handle = -1;
    Counter* m_owner = nullptr;
    stringEx m_path;
};

}  // namespace Orlo

#endif  // ORLO_SYSFILE_H
