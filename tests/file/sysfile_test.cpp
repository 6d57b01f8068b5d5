// CSysFile and its free helpers on real files in a temporary directory: the
// members' effect checked against the system's own view of the file, the
// share modes across descriptors and processes, range locks across
// processes, ownership of the descriptor, the warnings of the open, FIFOs
// that must never hold up an open, and the failure texts byte for byte.

#include "orlo/sysfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "file/sysfile_test_support.h"
#include "orlo/exceptions.h"
#include "orlo/time.h"

namespace Orlo {
namespace {

using filetest::CapturedLog;
using filetest::Catch;
using filetest::IsOpenDescriptor;
using filetest::Lines;
using filetest::OpenDescriptorCount;
using filetest::ReadRaw;
using filetest::RunInChild;
using filetest::Signal;
using filetest::TempDir;
using filetest::Text;
using filetest::WriteRaw;

stringEx S(const std::string& text) {
    return stringEx(text.c_str(), uint32_t(text.size()));
}

std::string ReadAll(CSysFile& file, uint64_t size) {
    std::string bytes(size, '\0');
    const int64_t count = file.Read(bytes.data(), size);
    bytes.resize(size_t(count < 0 ? 0 : count));
    return bytes;
}

// ---- members on a real file ------------------------------------------------------------

TEST(SysFile, ReadWriteSeekAndResizeAgreeWithTheFile) {
    TempDir dir;
    const std::string path = dir / "data.txt";
    CSysFile file;
    file.Open(S(path), O_RDWR, O_CREAT);
    EXPECT_EQ(Text(file.GetPath()), path);

    EXPECT_EQ(file.Write("hello world", 11), 11);
    EXPECT_EQ(file.Write("", 0), 0) << "a zero-byte write is a write";
    EXPECT_EQ(file.GetCurrentPos(), 11);
    EXPECT_EQ(file.SeekBegin(6), 6);
    EXPECT_EQ(file.GetSize(), 11);
    EXPECT_EQ(file.GetCurrentPos(), 6) << "GetSize moved the position";
    EXPECT_EQ(ReadAll(file, 100), "world") << "a short read is returned as it is";
    EXPECT_EQ(ReadAll(file, 100), "") << "0 at the end";
    EXPECT_EQ(file.SeekEnd(-5), 6);
    EXPECT_EQ(file.SeekCurrent(-1), 5);
    file.ResizeToCurrentPos();
    file.Flush();
    EXPECT_EQ(ReadRaw(path), "hello");
    EXPECT_EQ(file.GetSize(), 5);

    EXPECT_EQ(file.SeekEnd(3), 8);
    file.ResizeToCurrentPos();
    EXPECT_EQ(ReadRaw(path), std::string("hello\0\0\0", 8)) << "resize also extends";
}

TEST(SysFile, OpenStoresTheFullPathAndCreatesWithTheGivenMode) {
    TempDir dir;
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    const mode_t oldMask = umask(022);
    CSysFile file;
    try {
        file.Open("sub/../made.txt", O_WRONLY, O_CREAT, FileShare::None, 0640);
    } catch (const byExp& e) {
        ADD_FAILURE() << Text(e.message);
    }
    umask(oldMask);
    ASSERT_EQ(chdir(cwd), 0);
    EXPECT_EQ(Text(file.GetPath()), dir / "made.txt");
    struct stat status {};
    ASSERT_EQ(stat((dir / "made.txt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST(SysFile, DescriptorsCloseOnExecAndBlockAgainAfterTheOpen) {
    TempDir dir;
    WriteRaw(dir / "f", "x");
    struct Case {
        int create;
        bool nonBlocking;
    } cases[] = {{0, false}, {O_NONBLOCK, true}};
    for (const Case& c : cases) {
        CSysFile file;
        file.Open(S(dir / "f"), O_RDONLY, c.create);
        EXPECT_TRUE(fcntl(file.GetHandle(), F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ(bool(fcntl(file.GetHandle(), F_GETFL) & O_NONBLOCK), c.nonBlocking)
            << "create " << c.create;
        const CSysFile copy = file.Duplicate();
        EXPECT_TRUE(fcntl(copy.GetHandle(), F_GETFD) & FD_CLOEXEC) << "a duplicate";
    }
}

TEST(SysFile, TimesRoundTripThroughCTime) {
    TempDir dir;
    const std::string path = dir / "t";
    WriteRaw(path, "x");
    CSysFile file;
    file.Open(S(path), O_RDWR);

    const CTime access(int64_t(1000000000) * kUsPerSecond);
    const CTime modify(int64_t(1000003600) * kUsPerSecond + 999999);  // sub-seconds drop
    file.SetTime(nullptr, &access, &modify);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_atime, 1000000000);
    EXPECT_EQ(status.st_mtime, 1000003600);

    // The library reports file times with the local zone bias taken off.
    const int64_t bias = int64_t(IMPL::LocalZoneBias()) * kUsPerMinute;
    CTime creation(5), readAccess, readModify;
    file.GetTime(&creation, &readAccess, &readModify);
    EXPECT_TRUE(creation.IsNull()) << "no creation time on this platform";
    EXPECT_EQ(readAccess.us, 1000000000 * kUsPerSecond - bias);
    EXPECT_EQ(readModify.us, 1000003600 * kUsPerSecond - bias);
    file.GetTime(nullptr, nullptr, nullptr);

    // A null argument keeps the present value exactly.
    const CTime later(int64_t(1200000000) * kUsPerSecond);
    file.SetTime(nullptr, nullptr, &later);
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_atime, 1000000000);
    EXPECT_EQ(status.st_mtime, 1200000000);
    file.SetTime(nullptr, &later, nullptr);
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_atime, 1200000000);
    EXPECT_EQ(status.st_mtime, 1200000000);
}

// ---- ownership ---------------------------------------------------------------------------

TEST(SysFileOwnership, TheLastCopyClosesTheDescriptor) {
    TempDir dir;
    WriteRaw(dir / "f", "abc");
    CSysFile first;
    first.Open(S(dir / "f"), O_RDONLY);
    const int fd = first.GetHandle();
    {
        CSysFile copy = first;
        CSysFile assigned;
        assigned = copy;
        first.Close();
        EXPECT_FALSE(first.IsOpen());
        EXPECT_TRUE(first.GetPath().empty());
        EXPECT_TRUE(IsOpenDescriptor(fd)) << "closed while copies remain";
        copy.SeekBegin(1);
        EXPECT_EQ(assigned.GetCurrentPos(), 1) << "copies share the position";
        copy.Close();
        EXPECT_TRUE(IsOpenDescriptor(fd));
    }
    EXPECT_FALSE(IsOpenDescriptor(fd)) << "the last copy didn't close";
}

TEST(SysFileOwnership, AssignmentReleasesTheFormerDescriptor) {
    TempDir dir;
    WriteRaw(dir / "a", "a");
    WriteRaw(dir / "b", "b");
    CSysFile a, b;
    a.Open(S(dir / "a"), O_RDONLY);
    b.Open(S(dir / "b"), O_RDONLY);
    const int formerA = a.GetHandle();
    a = b;
    EXPECT_FALSE(IsOpenDescriptor(formerA));
    EXPECT_EQ(a.GetHandle(), b.GetHandle());
    a = std::move(b);
    EXPECT_FALSE(b.IsOpen());
    EXPECT_EQ(ReadAll(a, 10), "b");
}

TEST(SysFileOwnership, DisclaimHandsOverOnlyFromTheSoleOwner) {
    TempDir dir;
    WriteRaw(dir / "f", "abc");
    CSysFile file;
    file.Open(S(dir / "f"), O_RDONLY);
    {
        const CSysFile copy = file;
        const sysfileExp e = Catch<sysfileExp>([&] { file.Disclaim(); });
        EXPECT_EQ(Text(e.message), "CSysFile::Disclaim - ownership check failed");
        EXPECT_EQ(e.code, FileCode::Disclaim);
        EXPECT_TRUE(file.IsOpen()) << "a refused disclaim took the descriptor";
    }
    const int fd = file.Disclaim();
    EXPECT_FALSE(file.IsOpen());
    file.Close();
    EXPECT_TRUE(IsOpenDescriptor(fd)) << "the caller owns it now";
    close(fd);

    CSysFile console;
    console.Open(ConsoleStream::Error);
    EXPECT_EQ(Catch<sysfileExp>([&] { console.Disclaim(); }).code, FileCode::Disclaim)
        << "a borrowed stream";
    EXPECT_EQ(Catch<sysfileExp>([&] { CSysFile().Disclaim(); }).code, FileCode::Disclaim)
        << "a closed value";
}

TEST(SysFileOwnership, ConsoleStreamsAreBorrowedNotClosed) {
    for (int console : {0, 1, 2}) {
        const int spare = dup(console);  // the stream may be closed in CI; keep it alive
        {
            CSysFile stream;
            stream.Open(console);
            EXPECT_EQ(stream.GetHandle(), console);
            EXPECT_TRUE(stream.GetPath().empty());
            CSysFile copy = stream;
            copy.Close();
        }
        EXPECT_TRUE(IsOpenDescriptor(console)) << "console " << console << " was closed";
        close(spare);
    }
}

TEST(SysFileOwnership, ReOpenAndDuplicateMakeIndependentOwners) {
    TempDir dir;
    WriteRaw(dir / "f", "0123456789");
    CSysFile file;
    file.Open(S(dir / "f"), O_RDONLY);
    file.SeekBegin(4);

    CSysFile again = file.ReOpen(O_RDONLY);
    EXPECT_NE(again.GetHandle(), file.GetHandle());
    EXPECT_EQ(again.GetPath(), file.GetPath());
    EXPECT_EQ(again.GetCurrentPos(), 0) << "a new open, a position of its own";
    EXPECT_EQ(file.GetCurrentPos(), 4) << "the source was touched";

    CSysFile twin = file.Duplicate();
    EXPECT_EQ(twin.GetPath(), file.GetPath());
    EXPECT_EQ(twin.GetCurrentPos(), 4) << "a duplicate shares the position";
    const int fd = file.GetHandle();
    file.Close();
    EXPECT_FALSE(IsOpenDescriptor(fd));
    EXPECT_EQ(ReadAll(twin, 10), "456789") << "the duplicate outlives its source";
    const int twinFd = twin.Disclaim();
    close(twinFd);
}

TEST(SysFileOwnership, AFailedOpenKeepsTheFormerDescriptorButNotItsPath) {
    TempDir dir;
    WriteRaw(dir / "held", "x");
    CSysFile holder;
    holder.Open(S(dir / "held"), O_RDONLY, 0, FileShare::Exclusive);

    CSysFile file;
    file.Open(S(dir / "held"), O_RDONLY, 0, FileShare::None);
    const int fd = file.GetHandle();
    const int before = OpenDescriptorCount();
    Catch<sysfileExp>([&] { file.Open(S(dir / "held"), O_RDONLY, 0, FileShare::Shared); });
    Catch<sysfileExp>([&] { file.Open(S(dir / "missing"), O_RDONLY); });
    EXPECT_EQ(OpenDescriptorCount(), before) << "a failed open leaked a descriptor";
    EXPECT_EQ(file.GetHandle(), fd);
    EXPECT_TRUE(IsOpenDescriptor(fd));
    EXPECT_TRUE(file.GetPath().empty());
}

// ---- share modes ------------------------------------------------------------------------

TEST(SysFileShare, TwoOpensOfOneFileFollowTheShareTable) {
    struct Case {
        int first;
        int second;
        bool conflict;
    } cases[] = {
        {FileShare::Shared, FileShare::Shared, false},
        {FileShare::Shared, FileShare::Exclusive, true},
        {FileShare::Exclusive, FileShare::Shared, true},
        {FileShare::Exclusive, FileShare::Exclusive, true},
        {FileShare::None, FileShare::Exclusive, false},
        {FileShare::Exclusive, FileShare::None, false},
        {FileShare::Exclusive, 7, false},  // an unknown share takes no lock
    };
    TempDir dir;
    const std::string path = dir / "shared";
    WriteRaw(path, "x");
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.first << " then " << c.second);
        CSysFile first, second;
        first.Open(S(path), O_RDWR, 0, c.first);
        if (!c.conflict) {
            second.Open(S(path), O_RDWR, 0, c.second);
            continue;
        }
        const sysfileExp e = Catch<sysfileExp>([&] { second.Open(S(path), O_RDWR, 0, c.second); });
        const std::string mode = c.second == FileShare::Shared ? "shared" : "exclusive";
        EXPECT_EQ(e.code, FileCode::Open);
        EXPECT_EQ(Text(e.message),
                  Lines({"SetShareMode - failed set file sharing mode", "  file path    = " + path,
                         "  sharing mode = " + mode, "  error code   = 11",
                         "  error desc   = sharing mode conflict"}));
        first.Close();
        second.Open(S(path), O_RDWR, 0, c.second);  // the lock went with the descriptor
    }
}

TEST(SysFileShare, TheLockBelongsToTheOpenFileNotToOneValue) {
    TempDir dir;
    const std::string path = dir / "f";
    WriteRaw(path, "x");
    CSysFile holder;
    holder.Open(S(path), O_RDONLY, 0, FileShare::Exclusive);
    CSysFile twin = holder.Duplicate();
    holder.Close();
    CSysFile other;
    const sysfileExp e =
        Catch<sysfileExp>([&] { other.Open(S(path), O_RDONLY, 0, FileShare::Shared); });
    EXPECT_EQ(e.code, FileCode::Open) << "closing one descriptor of the open file dropped its lock";
    twin.Close();
    other.Open(S(path), O_RDONLY, 0, FileShare::Shared);
}

TEST(SysFileShare, AnotherProcessFailsAtOnceInsteadOfWaiting) {
    TempDir dir;
    const std::string path = dir / "f";
    WriteRaw(path, "x");
    struct Case {
        int held;
        int tried;
        int expected;  // the child's exit: 0 opened, 1 conflict
    } cases[] = {
        {FileShare::Exclusive, FileShare::Shared, 1},
        {FileShare::Shared, FileShare::Exclusive, 1},
        {FileShare::Shared, FileShare::Shared, 0},
    };
    for (const Case& c : cases) {
        CSysFile holder;
        holder.Open(S(path), O_RDWR, 0, c.held);
        const auto started = std::chrono::steady_clock::now();
        const int result = RunInChild([&] {
            CSysFile file;
            try {
                file.Open(S(path), O_RDWR, 0, c.tried);
            } catch (const sysfileExp& e) {
                return Text(e.message).ends_with("sharing mode conflict") ? 1 : 2;
            }
            return 0;
        });
        EXPECT_EQ(result, c.expected) << c.held << " held, " << c.tried << " tried";
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    }
}

// ---- range locks ------------------------------------------------------------------------

TEST(SysFileLock, RangesExcludeOtherProcessesByOverlapAndType) {
    TempDir dir;
    const std::string path = dir / "locked";
    WriteRaw(path, std::string(100, 'x'));
    CSysFile file;
    file.Open(S(path), O_RDWR);
    file.Lock(10, 10, F_WRLCK);  // bytes 10..19
    file.Lock(50, 10, F_RDLCK);  // bytes 50..59

    struct Case {
        uint32_t from, length;
        int type;
        bool granted;
    } cases[] = {
        {0, 10, F_WRLCK, true},    // ends just before
        {20, 10, F_WRLCK, true},   // starts just after
        {15, 10, F_WRLCK, false},  // overlaps the end
        {0, 11, F_RDLCK, false},   // overlaps the start; a read lock too
        {55, 2, F_RDLCK, true},    // read beside read
        {55, 2, F_WRLCK, false},   // write inside read
    };
    const auto tryInChild = [&](const Case& c) {
        return RunInChild([&] {
            CSysFile other;
            other.Open(S(path), O_RDWR);
            return other.TryLock(c.from, c.length, c.type) ? 1 : 0;
        });
    };
    for (const Case& c : cases)
        EXPECT_EQ(tryInChild(c), c.granted ? 1 : 0) << c.from << "+" << c.length << " " << c.type;

    file.UnLock(10, 10);
    EXPECT_EQ(tryInChild({15, 10, F_WRLCK, true}), 1) << "still locked after UnLock";
}

TEST(SysFileLock, LockWaitsForTheHolder) {
    TempDir dir;
    const std::string path = dir / "locked";
    WriteRaw(path, "x");
    CSysFile file;
    file.Open(S(path), O_RDWR);
    file.Lock(0, 1, F_WRLCK);
    Signal waiting;
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        alarm(10);
        CSysFile other;
        other.Open(S(path), O_RDWR);
        waiting.Raise();
        other.Lock(0, 1, F_WRLCK);
        _exit(other.TryLock(0, 1, F_WRLCK) ? 0 : 1);  // own locks never conflict
    }
    ASSERT_TRUE(waiting.Wait());
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, WNOHANG), 0) << "Lock didn't wait";
    file.UnLock(0, 1);
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

// ---- the open's warnings ------------------------------------------------------------------

TEST(SysFileOpen, DirectIoIsDroppedWithOneWarningWhereRefused) {
    TempDir dir;
    WriteRaw(dir / "direct", "x");
    // Whether a file system takes O_DIRECT is asked of the system first; the
    // proc file system refuses it, most disk file systems take it.
    for (const std::string& path : {dir / "direct", std::string("/proc/self/status")}) {
        SCOPED_TRACE(path);
        const int probe = open(path.c_str(), O_RDONLY | O_DIRECT);
        const bool supported = probe >= 0;
        if (supported) close(probe);

        CapturedLog log;
        CSysFile file;
        file.Open(S(path), O_RDONLY, 0, FileShare::None, 0666, FileOption::DirectIo);
        EXPECT_EQ(bool(fcntl(file.GetHandle(), F_GETFL) & O_DIRECT), supported);
        if (supported) {
            EXPECT_TRUE(log.records().empty());
            continue;
        }
        ASSERT_EQ(log.records().size(), 1u);
        EXPECT_EQ(log.records()[0].level, LogLevel::Warning);
        EXPECT_EQ(log.records()[0].name, "util.sysfile");
        EXPECT_EQ(log.records()[0].text,
                  Lines({"PosixOpenFile - failed set direct io (no buffer) access mode",
                         "  file path = " + path, ""}));
    }
}

TEST(SysFileOpen, ARefusedAccessAdviceIsLoggedAndTheOpenGoesOn) {
    TempDir dir;
    const std::string path = dir / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    // A peer that both reads and writes, so that this test can't hang on the
    // open whatever the open does with FIFOs.
    const int peer = open(path.c_str(), O_RDWR | O_NONBLOCK);
    CapturedLog log;
    CSysFile file;
    file.Open(S(path), O_RDONLY, 0, FileShare::None, 0666,
              FileOption::AdviseSequential | FileOption::AdviseRandom);
    EXPECT_TRUE(file.IsOpen());
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].name, "util.sysfile");
    EXPECT_EQ(log.records()[0].text,
              Lines({"PosixOpenFile - failed set access advice", "  file path  = " + path,
                     "  error code = 29",
                     "  error desc = the file is associated with a pipe or fifo device"}));
    close(peer);
}

// ---- FIFOs ----------------------------------------------------------------------------------
// A pattern of the tool may match a FIFO, which the whole-file read then
// opens. Each case runs in a child with a deadline, so that a hang is a
// failure (status 1014, SIGALRM) and not a stuck test run.

TEST(SysFileFifo, AnOpenForReadingNeverWaitsForAWriter) {
    TempDir dir;
    const std::string path = dir / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    const std::string sizeFailure =
        Lines({"CSysFile::GetSize - failed retrive file size", "  file path = " + path,
               "@ PosixSeekFile - error seek file pointer", "  sys error  = 29",
               "  error desc = the fildes argument is associated with a pipe, fifo, or socket"});
    const int result = RunInChild(
        [&] {
            CSysFile file;
            file.Open(S(path), O_RDONLY, 0, FileShare::Shared);
            if (fcntl(file.GetHandle(), F_GETFL) & O_NONBLOCK) return 3;
            char byte;
            if (file.Read(&byte, 1) != 0) return 4;  // no writer: the end, at once
            const sysfileExp e = Catch<sysfileExp>([&] { file.GetSize(); });
            return e.code == FileCode::GetSize && Text(e.message) == sizeFailure ? 0 : 5;
        },
        5);
    EXPECT_EQ(result, 0) << "1014 is SIGALRM: the open hung";
}

TEST(SysFileFifo, AnOpenForWritingWithoutReaderFailsAtOnce) {
    TempDir dir;
    const std::string path = dir / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    const std::string expected = Lines(
        {"PosixOpenFile - failed open specified file", "  file path  = " + path, "  error code = 6",
         "  error desc = the device associated with this special file does not exist, or "
         "fifo opened without reading peer"});
    const int result = RunInChild(
        [&] {
            CSysFile file;
            const sysfileExp e = Catch<sysfileExp>(
                [&] { file.Open(S(path), O_WRONLY, O_CREAT, FileShare::Exclusive); });
            return Text(e.message) == expected ? 0 : 1;
        },
        5);
    EXPECT_EQ(result, 0) << "1014 is SIGALRM: the open hung";
}

// ---- failure texts --------------------------------------------------------------------------

struct FailureCase {
    const char* name;
    std::function<void()> action;
    int32_t code;
    std::string message;
};

TEST(SysFileFailure, TextsAndCodesAreExact) {
    TempDir dir;
    const std::string file = dir / "file";
    const std::string missing = dir / "missing";
    const std::string fifo = dir / "fifo";
    WriteRaw(file, "abc");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    const int fifoReader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);

    CSysFile closed, readOnly, writeOnly, directory, fifoWriter;
    readOnly.Open(S(file), O_RDONLY);
    readOnly.SeekBegin(3);
    writeOnly.Open(S(file), O_WRONLY);
    directory.Open(S(dir.path()), O_RDONLY);
    fifoWriter.Open(S(fifo), O_WRONLY);
    close(fifoReader);  // the next write breaks the pipe
    const CTime someTime(0);
    char buffer[8];

    const std::string openHead = "PosixOpenFile - failed open specified file";
    const std::string readHead = "CSysFile::Read - failed reading file";
    const std::string seekHead = "@ PosixSeekFile - error seek file pointer";
    const std::string lockHead = "@ PosixLockFile - failed lock file region";
    const std::string badFdCode = "  error code = 9";
    const std::string badFdDesc = "  error desc = invalid file descriptor";
    const FailureCase cases[] = {
        {"missing file", [&] { CSysFile().Open(S(missing), O_RDONLY); }, FileCode::Open,
         Lines({openHead, "  file path  = " + missing, "  error code = 2",
                "  error desc = file dose not exists or can't be created"})},
        {"directory for writing", [&] { CSysFile().Open(S(dir.path()), O_WRONLY); }, FileCode::Open,
         Lines({openHead, "  file path  = " + dir.path(), "  error code = 21",
                "  error desc = the file is a directory and write permission is specified"})},
        {"exclusive create", [&] { CSysFile().Open(S(file), O_RDWR, O_CREAT | O_EXCL); },
         FileCode::Open,
         Lines({openHead, "  file path  = " + file, "  error code = 17",
                "  error desc = file already exists"})},
        {"empty path", [&] { CSysFile().Open("", O_RDONLY); }, FileCode::Open,
         Lines({"CSysFile::Open - failed determine the file path to open",
                "  file name  = ", "@ CDir::ConvToFullPath - nothing to convert"})},
        {"console type", [&] { CSysFile().Open(3); }, FileCode::Open,
         "CSysFile::Open - unknown console type: 3"},
        {"reopen without path", [&] { CSysFile().ReOpen(O_RDONLY); }, FileCode::Open,
         "CSysFile::ReOpen - don't know how to reopen, empty path"},
        {"read closed", [&] { closed.Read(buffer, 1); }, FileCode::Read,
         Lines({readHead, "  file path  = ", badFdCode, badFdDesc})},
        {"read a directory", [&] { directory.Read(buffer, 1); }, FileCode::Read,
         Lines({readHead, "  file path  = " + dir.path(), "  error code = 21",
                "  error desc = the file refers to a directory"})},
        {"write read-only", [&] { readOnly.Write("x", 1); }, FileCode::Write,
         Lines({readHead, "  file path  = " + file, badFdCode, badFdDesc})},
        {"write a broken pipe", [&] { fifoWriter.Write("x", 1); }, FileCode::Write,
         Lines({readHead, "  file path  = " + fifo, "  error code = 32",
                "  error desc = error writing pipe, pipe has been broken"})},
        {"seek before the start", [&] { readOnly.SeekBegin(-1); }, FileCode::Seek,
         Lines({"CSysFile::SeekBegin - failed seeking in file", "  file path = " + file, seekHead,
                "  sys error  = 22",
                "  error desc = invalide argument, or the resulting file offset would be "
                "negative for the file"})},
        {"seek end on a fifo", [&] { fifoWriter.SeekEnd(0); }, FileCode::Seek,
         Lines({"CSysFile::SeekEnd - failed seeking in file", "  file path = " + fifo, seekHead,
                "  sys error  = 29",
                "  error desc = the fildes argument is associated with a pipe, fifo, or socket"})},
        {"position closed", [&] { closed.GetCurrentPos(); }, FileCode::GetPosition,
         Lines({"CSysFile::GetCurrentPos - failed get current position", "  file path = ", seekHead,
                "  sys error  = 9", badFdDesc})},
        {"resize read-only", [&] { readOnly.ResizeToCurrentPos(); }, FileCode::Resize,
         Lines({"CSysFile::ResizeToCurrentPos - failed set the size of shared memory object",
                "  file path  = " + file, "  resize to  = 3", "  error code = 22",
                "  error desc = invalid size or there is no write permission"})},
        {"flush a fifo", [&] { fifoWriter.Flush(); }, FileCode::Flush,
         Lines({"CSysFile::Flush - failed flush the file", "  file path  = " + fifo,
                "  error code = 22", "  error desc = the file is not support this operation"})},
        {"duplicate closed", [&] { closed.Duplicate(); }, FileCode::Duplicate,
         Lines({"CSysFile::Duplicate - failed duplicate file descriptor",
                "  file path  = ", badFdCode, badFdDesc})},
        {"time of closed", [&] { closed.GetTime(nullptr, nullptr, nullptr); }, FileCode::GetTime,
         Lines({"CSysFile::GetTime - failed retrive the file status", "  file path  = ", badFdCode,
                badFdDesc})},
        {"set time without path", [&] { closed.SetTime(nullptr, &someTime, &someTime); },
         FileCode::SetTime,
         Lines({"CSysFile::SetTime - error setting the file time",
                "  file path  = ", "  error code = 2", "  error desc = file not exists"})},
        {"write lock on read-only", [&] { readOnly.Lock(0, 10, F_WRLCK); }, FileCode::Lock,
         Lines({"CSysFile::Lock - failed lock file", "  file path = " + file, lockHead,
                "  from       = 0", "  length     = 10", badFdCode,
                "  error desc = invalid file descriptor or wrong access mode, or the open mode "
                "does not match the lock type"})},
        {"unknown lock type", [&] { writeOnly.TryLock(4, 5, 7); }, FileCode::Lock,
         Lines({"CSysFile::TryLock - error occured while trying to lock file",
                "  file path = " + file, lockHead, "  from       = 4", "  length     = 5",
                "  error code = 22",
                "  error desc = invalid arguments or file does not support locking"})},
        {"unlock closed", [&] { closed.UnLock(1, 2); }, FileCode::Unlock,
         Lines({"CSysFile::UnLock - failed unlock file",
                "  file path = ", "@ PosixUnLockFile - failed unlock file region",
                "  from       = 1", "  length     = 2", badFdCode,
                "  error desc = invalid file descriptor or wrong access mode"})},
    };
    for (const FailureCase& c : cases) {
        const sysfileExp e = Catch<sysfileExp>(c.action);
        EXPECT_EQ(Text(e.message), c.message) << c.name;
        EXPECT_EQ(e.code, c.code) << c.name;
    }
}

TEST(SysFileFailure, AFileTheCallerMayNotReadIsRefused) {
    TempDir dir;
    const std::string path = dir / "secret";
    WriteRaw(path, "x");
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    ASSERT_EQ(chmod(dir.path().c_str(), 0755), 0);
    const std::string expected = Lines(
        {"PosixOpenFile - failed open specified file", "  file path  = " + path,
         "  error code = 13", "  error desc = permission denied or confilct flags compination"});
    const int result = RunInChild([&] {
        // Root reads everything; as another user the permission bits count.
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return 77;
        CSysFile file;
        const sysfileExp e = Catch<sysfileExp>([&] { file.Open(S(path), O_RDONLY); });
        return Text(e.message) == expected && e.code == FileCode::Open ? 0 : 1;
    });
    if (result == 77) GTEST_SKIP() << "can't drop root privileges to test permission bits";
    EXPECT_EQ(result, 0);
}

TEST(SysFileFailure, ACloseFailureReachesTheCallerButNotAnUnwindingOne) {
    TempDir dir;
    const std::string path = dir / "f";
    WriteRaw(path, "x");
    // Closing the descriptor behind the value's back makes its own close
    // fail with EBADF.
    CSysFile doomed;
    doomed.Open(S(path), O_RDONLY);
    close(doomed.GetHandle());
    const sysfileExp e = Catch<sysfileExp>([&] { doomed.Close(); });
    EXPECT_EQ(e.code, FileCode::Close);
    EXPECT_EQ(Text(e.message),
              Lines({"CSysFile::__Close - error close file descriptor", "  file path  = " + path,
                     "  sys error  = 9", "  error desc = invalid file descriptor"}));
    EXPECT_FALSE(doomed.IsOpen()) << "closed all the same";

    try {
        CSysFile unwinding;
        unwinding.Open(S(path), O_RDONLY);
        close(unwinding.GetHandle());
        throw std::runtime_error("first");
    } catch (const std::runtime_error& first) {
        EXPECT_STREQ(first.what(), "first") << "the destructor's failure replaced it";
    }
}

}  // namespace
}  // namespace Orlo
