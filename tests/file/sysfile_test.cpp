// CSysFile on real files in a temporary directory: the members checked
// against the system's view of the file, ownership of the descriptor, the
// share modes across descriptors and processes, range locks, the open's
// warnings, FIFOs that must never hold up an open, and the failure texts.

#include "orlo/sysfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "file/file_test_support.h"
#include "orlo/exceptions.h"
#include "orlo/time.h"

namespace Orlo {
namespace {

using filetest::CapturedLog;
using filetest::Catch;
using filetest::Ex;
using filetest::GetFile;
using filetest::IsOpenDescriptor;
using filetest::PutFile;
using filetest::RunInChild;
using filetest::Str;
using filetest::TempTree;
using filetest::Thrown;

std::string ReadAll(CSysFile& file, uint64_t size) {
    std::string bytes(size, '\0');
    const int64_t count = file.Read(bytes.data(), size);
    bytes.resize(size_t(count < 0 ? 0 : count));
    return bytes;
}

TEST(SysFile, ReadWriteSeekAndResizeAgreeWithTheFile) {
    TempTree dir;
    const std::string path = dir / "data.txt";
    CSysFile file;
    file.Open(Ex(path), O_RDWR, O_CREAT);
    EXPECT_EQ(file.Write("hello world", 11), 11);
    EXPECT_EQ(file.SeekBegin(6), 6);
    EXPECT_EQ(file.GetSize(), 11);
    EXPECT_EQ(file.GetCurrentPos(), 6) << "GetSize moved the position";
    EXPECT_EQ(ReadAll(file, 100), "world") << "a short read is returned as it is";
    EXPECT_EQ(ReadAll(file, 100), "");
    EXPECT_EQ(file.SeekEnd(-5), 6);
    EXPECT_EQ(file.SeekCurrent(-1), 5);
    file.ResizeToCurrentPos();
    EXPECT_EQ(GetFile(path), "hello");
    EXPECT_EQ(file.SeekEnd(3), 8);
    file.ResizeToCurrentPos();
    EXPECT_EQ(GetFile(path), std::string("hello\0\0\0", 8)) << "resize also extends";
}

TEST(SysFile, OpenStoresTheFullPathAndCreatesWithTheGivenMode) {
    TempTree dir;
    filetest::WorkDirGuard keep;
    ASSERT_EQ(chdir(dir.root.c_str()), 0);
    const mode_t oldMask = umask(022);
    CSysFile file;
    file.Open("sub/../made.txt", O_WRONLY, O_CREAT, FileShare::None, 0640);
    umask(oldMask);
    EXPECT_EQ(Str(file.GetPath()), dir / "made.txt");
    struct stat status {};
    ASSERT_EQ(stat((dir / "made.txt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);

    // Close on exec always; O_NONBLOCK only when the caller asked for it.
    for (const int create : {0, O_NONBLOCK}) {
        CSysFile other;
        other.Open(Ex(dir / "made.txt"), O_RDONLY, create);
        EXPECT_TRUE(fcntl(other.GetHandle(), F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ(fcntl(other.GetHandle(), F_GETFL) & O_NONBLOCK, create);
        EXPECT_TRUE(fcntl(other.Duplicate().GetHandle(), F_GETFD) & FD_CLOEXEC) << "a duplicate";
    }
}

TEST(SysFile, TimesRoundTripThroughCTime) {
    TempTree dir;
    const std::string path = dir / "t";
    PutFile(path, "x");
    CSysFile file;
    file.Open(Ex(path), O_RDWR);
    const CTime access(int64_t(1000000000) * kUsPerSecond);
    const CTime modify(int64_t(1000003600) * kUsPerSecond + 999999);  // sub-seconds drop
    file.SetTime(nullptr, &access, &modify);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_atime, 1000000000);
    EXPECT_EQ(status.st_mtime, 1000003600);

    // File times are reported with the local zone bias taken off.
    const int64_t bias = int64_t(IMPL::LocalZoneBias()) * kUsPerMinute;
    CTime creation(5), readAccess, readModify;
    file.GetTime(&creation, &readAccess, &readModify);
    EXPECT_TRUE(creation.IsNull());
    EXPECT_EQ(readAccess.us, 1000000000 * kUsPerSecond - bias);
    EXPECT_EQ(readModify.us, 1000003600 * kUsPerSecond - bias);

    const CTime later(int64_t(1200000000) * kUsPerSecond);
    file.SetTime(nullptr, nullptr, &later);  // a null argument keeps the present value
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_atime, 1000000000);
    EXPECT_EQ(status.st_mtime, 1200000000);
}

TEST(SysFileOwnership, CopiesShareTheDescriptorAndTheLastClosesIt) {
    TempTree dir;
    PutFile(dir / "a", "abc");
    PutFile(dir / "b", "b");
    CSysFile first, other;
    first.Open(Ex(dir / "a"), O_RDONLY);
    other.Open(Ex(dir / "b"), O_RDONLY);
    const int fd = first.GetHandle(), otherFd = other.GetHandle();
    {
        CSysFile copy = first;
        other = copy;
        EXPECT_FALSE(IsOpenDescriptor(otherFd)) << "assignment kept the former descriptor";
        first.Close();
        EXPECT_TRUE(first.GetPath().empty());
        EXPECT_TRUE(IsOpenDescriptor(fd)) << "closed while copies remain";
        copy.SeekBegin(1);
        EXPECT_EQ(other.GetCurrentPos(), 1) << "copies share the position";
        copy.Close();
        other = CSysFile();
    }
    EXPECT_FALSE(IsOpenDescriptor(fd)) << "the last copy didn't close";

    for (int console : {0, 1, 2}) {
        const int spare = dup(console);  // keep the stream alive even if CI closed it
        {
            CSysFile stream;
            stream.Open(console);
            EXPECT_EQ(stream.GetHandle(), console);
        }
        EXPECT_TRUE(IsOpenDescriptor(console)) << "console " << console << " was closed";
        close(spare);
    }
}

TEST(SysFileOwnership, DisclaimHandsOverOnlyFromTheSoleOwner) {
    TempTree dir;
    PutFile(dir / "f", "abc");
    CSysFile file;
    file.Open(Ex(dir / "f"), O_RDONLY);
    {
        const CSysFile copy = file;
        const Thrown e = Catch<sysfileExp>([&] { file.Disclaim(); });
        EXPECT_EQ(e.message, "CSysFile::Disclaim - ownership check failed");
        EXPECT_EQ(e.code, FileCode::Disclaim);
        EXPECT_TRUE(file.IsOpen());
    }
    const int fd = file.Disclaim();
    file.Close();
    EXPECT_TRUE(IsOpenDescriptor(fd)) << "the caller owns it now";
    close(fd);
}

TEST(SysFileOwnership, ReOpenAndDuplicateMakeIndependentOwners) {
    TempTree dir;
    PutFile(dir / "f", "0123456789");
    CSysFile file;
    file.Open(Ex(dir / "f"), O_RDONLY);
    file.SeekBegin(4);
    CSysFile again = file.ReOpen(O_RDONLY);
    EXPECT_NE(again.GetHandle(), file.GetHandle());
    EXPECT_EQ(again.GetPath(), file.GetPath());
    EXPECT_EQ(again.GetCurrentPos(), 0) << "a new open, a position of its own";
    CSysFile twin = file.Duplicate();
    EXPECT_EQ(twin.GetPath(), file.GetPath());
    file.Close();
    EXPECT_EQ(ReadAll(twin, 10), "456789") << "a duplicate shares the position and outlives";
}

TEST(SysFileOwnership, AFailedOpenKeepsTheFormerDescriptorButNotItsPath) {
    TempTree dir;
    PutFile(dir / "held", "x");
    CSysFile holder, file;
    holder.Open(Ex(dir / "held"), O_RDONLY, 0, FileShare::Exclusive);
    file.Open(Ex(dir / "held"), O_RDONLY, 0, FileShare::None);
    const int fd = file.GetHandle();
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = descriptors();
    Catch<sysfileExp>([&] { file.Open(Ex(dir / "held"), O_RDONLY, 0, FileShare::Shared); });
    Catch<sysfileExp>([&] { file.Open(Ex(dir / "missing"), O_RDONLY); });
    EXPECT_EQ(descriptors(), before) << "a failed open leaked a descriptor";
    EXPECT_EQ(file.GetHandle(), fd);
    EXPECT_TRUE(file.GetPath().empty());
}

TEST(SysFileShare, TwoOpensOfOneFileFollowTheShareTable) {
    struct Case {
        int first, second;
        bool conflict;
    } cases[] = {
        {FileShare::Shared, FileShare::Shared, false},
        {FileShare::Shared, FileShare::Exclusive, true},
        {FileShare::Exclusive, FileShare::Shared, true},
        {FileShare::None, FileShare::Exclusive, false},
        {FileShare::Exclusive, FileShare::None, false},
        {FileShare::Exclusive, 7, false},  // an unknown share takes no lock
    };
    TempTree dir;
    const std::string path = dir / "shared";
    PutFile(path, "x");
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.first << " then " << c.second);
        CSysFile first, second;
        first.Open(Ex(path), O_RDWR, 0, c.first);
        if (!c.conflict) {
            second.Open(Ex(path), O_RDWR, 0, c.second);
            continue;
        }
        const Thrown e = Catch<sysfileExp>([&] { second.Open(Ex(path), O_RDWR, 0, c.second); });
        const std::string mode = c.second == FileShare::Shared ? "shared" : "exclusive";
        EXPECT_EQ(e.code, FileCode::Open);
        EXPECT_EQ(e.message, "SetShareMode - failed set file sharing mode\n  file path    = " +
                                 path + "\n  sharing mode = " + mode +
                                 "\n  error code   = 11\n  error desc   = sharing mode conflict");
        first.Close();
        second.Open(Ex(path), O_RDWR, 0, c.second);  // the lock went with the descriptor
    }

    // The lock belongs to the open file, not to one value of it.
    CSysFile holder;
    holder.Open(Ex(path), O_RDONLY, 0, FileShare::Exclusive);
    CSysFile twin = holder.Duplicate();
    holder.Close();
    EXPECT_EQ(
        Catch<sysfileExp>([&] { CSysFile().Open(Ex(path), O_RDONLY, 0, FileShare::Shared); }).code,
        FileCode::Open);
}

TEST(SysFileShare, AnotherProcessFailsAtOnceInsteadOfWaiting) {
    TempTree dir;
    const std::string path = dir / "f";
    PutFile(path, "x");
    struct Case {
        int held, tried, expected;  // the child's exit: 0 opened, 1 conflict
    } cases[] = {
        {FileShare::Exclusive, FileShare::Shared, 1},
        {FileShare::Shared, FileShare::Exclusive, 1},
        {FileShare::Shared, FileShare::Shared, 0},
    };
    for (const Case& c : cases) {
        CSysFile holder;
        holder.Open(Ex(path), O_RDWR, 0, c.held);
        const auto started = std::chrono::steady_clock::now();
        const int result = RunInChild([&] {
            try {
                CSysFile().Open(Ex(path), O_RDWR, 0, c.tried);
            } catch (const sysfileExp& e) {
                return Str(e.message).ends_with("sharing mode conflict") ? 1 : 2;
            }
            return 0;
        });
        EXPECT_EQ(result, c.expected) << c.held << " held, " << c.tried << " tried";
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    }
}

TEST(SysFileLock, RangesExcludeOtherProcessesByOverlapAndType) {
    TempTree dir;
    const std::string path = dir / "locked";
    PutFile(path, std::string(100, 'x'));
    CSysFile file;
    file.Open(Ex(path), O_RDWR);
    file.Lock(10, 10, F_WRLCK);  // bytes 10..19
    file.Lock(50, 10, F_RDLCK);  // bytes 50..59
    struct Case {
        uint32_t from, length;
        int type;
        bool granted;
    } cases[] = {
        {0, 10, F_WRLCK, true},  {20, 10, F_WRLCK, true}, {15, 10, F_WRLCK, false},
        {0, 11, F_RDLCK, false}, {55, 2, F_RDLCK, true},  {55, 2, F_WRLCK, false},
    };
    const auto tryInChild = [&](const Case& c) {
        return RunInChild([&] {
            CSysFile other;
            other.Open(Ex(path), O_RDWR);
            return other.TryLock(c.from, c.length, c.type) ? 1 : 0;
        });
    };
    for (const Case& c : cases)
        EXPECT_EQ(tryInChild(c), c.granted ? 1 : 0) << c.from << "+" << c.length << " " << c.type;

    // Lock waits for the holder: the child is still waiting when its alarm rings.
    EXPECT_EQ(RunInChild(
                  [&] {
                      CSysFile other;
                      other.Open(Ex(path), O_RDWR);
                      other.Lock(15, 1, F_WRLCK);
                      return 0;
                  },
                  false, 1),
              128 + SIGALRM);
    file.UnLock(10, 10);
    EXPECT_EQ(tryInChild({15, 10, F_WRLCK, true}), 1) << "still locked after UnLock";
}

TEST(SysFileOpen, RefusedOptionsAreLoggedAndTheOpenGoesOn) {
    TempTree dir;
    const std::string fifo = dir / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    const int peer = open(fifo.c_str(), O_RDWR | O_NONBLOCK);  // so the open can't hang
    struct Case {
        std::string path;
        int option;
        std::string warning;
    } cases[] = {
        // The proc file system refuses O_DIRECT.
        {"/proc/self/status", FileOption::DirectIo,
         "PosixOpenFile - failed set direct io (no buffer) access mode\n"
         "  file path = /proc/self/status\n"},
        {fifo, FileOption::AdviseSequential,
         "PosixOpenFile - failed set access advice\n  file path  = " + fifo +
             "\n  error code = 29\n"
             "  error desc = the file is associated with a pipe or fifo device"},
    };
    for (const Case& c : cases) {
        CapturedLog log;
        CSysFile file;
        file.Open(Ex(c.path), O_RDONLY, 0, FileShare::None, 0666, c.option);
        EXPECT_TRUE(file.IsOpen());
        ASSERT_EQ(log.records().size(), 1u) << c.path;
        EXPECT_EQ(log.records()[0].level, LogLevel::Warning);
        EXPECT_EQ(log.records()[0].name, "util.sysfile");
        EXPECT_EQ(log.records()[0].text, c.warning);
    }
    close(peer);
}

// A pattern of the tool may match a FIFO. Each case runs in a child with a
// deadline, so that a hang (status 142, SIGALRM) fails instead of sticking.
TEST(SysFileFifo, OpensNeverWaitForAPeer) {
    TempTree dir;
    const std::string path = dir / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    const int reading = RunInChild(
        [&] {
            CSysFile file;
            file.Open(Ex(path), O_RDONLY, 0, FileShare::Shared);
            if (fcntl(file.GetHandle(), F_GETFL) & O_NONBLOCK) return 3;
            char byte;
            if (file.Read(&byte, 1) != 0) return 4;  // no writer: the end, at once
            return Catch<sysfileExp>([&] { file.GetSize(); }).code == FileCode::GetSize ? 0 : 5;
        },
        false, 5);
    EXPECT_EQ(reading, 0);
    const int writing = RunInChild(
        [&] {
            const Thrown e = Catch<sysfileExp>(
                [&] { CSysFile().Open(Ex(path), O_WRONLY, O_CREAT, FileShare::Exclusive); });
            return e.message.find("error code = 6\n") != std::string::npos ? 0 : 1;
        },
        false, 5);
    EXPECT_EQ(writing, 0);
}

TEST(SysFileFailure, MessagesNameTheCallAndCodesTheKind) {
    TempTree dir;
    const std::string file = dir / "file";
    PutFile(file, "abc");
    CSysFile closed, readOnly;
    readOnly.Open(Ex(file), O_RDONLY);
    char buffer[8];
    struct Case {
        std::function<void()> action;
        int32_t code;
        std::string message;  // whole, or the first line when it ends in '\n'
    } cases[] = {
        {[&] { CSysFile().Open(Ex(dir / "missing"), O_RDONLY); }, FileCode::Open,
         "PosixOpenFile - failed open specified file\n  file path  = " + dir / "missing" +
             "\n  error code = 2\n  error desc = file dose not exists or can't be created"},
        {[&] { readOnly.SeekBegin(-1); }, FileCode::Seek,
         "CSysFile::SeekBegin - failed seeking in file\n  file path = " + file +
             "\n@ PosixSeekFile - error seek file pointer\n  sys error  = 22\n"
             "  error desc = invalide argument, or the resulting file offset would be negative "
             "for the file"},
        {[&] { CSysFile().Open(3); }, FileCode::Open, "CSysFile::Open - unknown console type: 3"},
        {[&] { CSysFile().ReOpen(O_RDONLY); }, FileCode::Open,
         "CSysFile::ReOpen - don't know how to reopen, empty path"},
        {[&] { closed.Read(buffer, 1); }, FileCode::Read, "CSysFile::Read - failed reading file\n"},
        {[&] { readOnly.Write("x", 1); }, FileCode::Write,
         "CSysFile::Read - failed reading file\n"},
        {[&] { readOnly.Lock(0, 10, F_WRLCK); }, FileCode::Lock,
         "CSysFile::Lock - failed lock file\n"},
        {[&] { closed.UnLock(1, 2); }, FileCode::Unlock, "CSysFile::UnLock - failed unlock file\n"},
    };
    for (const Case& c : cases) {
        const Thrown e = Catch<sysfileExp>(c.action);
        EXPECT_EQ(c.message.ends_with('\n') ? e.message.substr(0, c.message.size()) : e.message,
                  c.message);
        EXPECT_EQ(e.code, c.code) << c.message;
    }
}

TEST(SysFileFailure, ACloseFailureReachesTheCallerButNotAnUnwindingOne) {
    TempTree dir;
    const std::string path = dir / "f";
    PutFile(path, "x");
    CSysFile doomed;
    doomed.Open(Ex(path), O_RDONLY);
    close(doomed.GetHandle());  // the value's own close now fails with EBADF
    const Thrown e = Catch<sysfileExp>([&] { doomed.Close(); });
    EXPECT_EQ(e.code, FileCode::Close);
    EXPECT_TRUE(e.message.starts_with("CSysFile::__Close - error close file descriptor\n"));
    EXPECT_FALSE(doomed.IsOpen()) << "closed all the same";
    try {
        CSysFile unwinding;
        unwinding.Open(Ex(path), O_RDONLY);
        close(unwinding.GetHandle());
        throw std::runtime_error("first");
    } catch (const std::runtime_error& first) {
        EXPECT_STREQ(first.what(), "first") << "the destructor's failure replaced it";
    }
}

}  // namespace
}  // namespace Orlo
