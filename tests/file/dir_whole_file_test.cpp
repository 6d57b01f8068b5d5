// Whole files: read and write for the three string types, truncation and
// append, the share lock between a reader and a writer, files that must
// fail rather than hang or come back cut, and backup rotation and restore.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "file/file_test_support.h"
#include "orlo/dir.h"
#include "orlo/log.h"
#include "orlo/time.h"

namespace Orlo {
namespace {

using filetest::Catch;
using filetest::Ex;
using filetest::GetFile;
using filetest::Present;
using filetest::PutFile;
using filetest::Str;
using filetest::Thrown;

template <class Text>
std::string Bytes(const Text& text) {
    return std::string(reinterpret_cast<const char*>(text.c_str()),
                       text.size() * sizeof(typename Text::value_type));
}

template <class Text>
Text FromBytes(const std::string& bytes) {
    Text text;
    text.resize(uint32_t(bytes.size() / sizeof(typename Text::value_type)));
    std::copy(bytes.begin(), bytes.begin() + text.size() * sizeof(typename Text::value_type),
              reinterpret_cast<char*>(text.data()));
    return text;
}

class DirWholeFile : public ::testing::Test {
  protected:
    stringEx At(const std::string& relative) const { return Ex(tree / relative); }
    std::string Full(const std::string& relative) const { return tree / relative; }

    filetest::TempTree tree;
};

template <class Text>
void RoundTrip(const stringEx& path) {
    for (const std::string& bytes : {std::string(), std::string("z\0\xff\n\r\x80yz", 8)}) {
        const Text text = FromBytes<Text>(bytes);
        CDir::WriteFile(path, text);
        EXPECT_EQ(GetFile(Str(path)), Bytes(text));
        Text back = FromBytes<Text>("stale content");
        CDir::ReadFile(path, back);
        EXPECT_EQ(Bytes(back), Bytes(text));
        EXPECT_EQ(back.c_str()[back.size()], 0) << "terminated";
    }
}

TEST_F(DirWholeFile, RoundTripForEachStringType) {
    RoundTrip<stringEx>(At("s"));
    RoundTrip<byteEx>(At("b"));
    RoundTrip<wstringEx>(At("w"));
    PutFile(Full("odd"), "ABCDEFG");
    wstringEx wide;
    CDir::ReadFile(At("odd"), wide);
    EXPECT_EQ(Bytes(wide), "ABCD") << "a partial last unit is dropped";
}

TEST_F(DirWholeFile, DestinationIsEmptiedFirstAndNeverWrittenThrough) {
    stringEx text("old content");
    const stringEx sharer = text;
    EXPECT_THROW(CDir::ReadFile(At("missing"), text), sysfileExp);
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(Str(sharer), "old content") << "a shared block was written through";
    PutFile(Full("f"), "new");
    stringEx view = stringEx::view("literal");
    CDir::ReadFile(At("f"), view);  // would fault writing into the literal
    EXPECT_EQ(Str(view), "new");
}

TEST_F(DirWholeFile, WriteTruncatesAppendsAndCreates) {
    PutFile(Full("f"), "a long old content");
    CDir::WriteFile(At("f"), stringEx("new"));
    EXPECT_EQ(GetFile(Full("f")), "new");
    CDir::WriteFile(At("f"), stringEx("+more"), true, true);
    EXPECT_EQ(GetFile(Full("f")), "new+more");
    const mode_t old = umask(027);
    CDir::WriteFile(At("created"), stringEx("c"));
    umask(old);
    struct stat status {};
    ASSERT_EQ(stat(Full("created").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
    CDir dir(Ex(tree.root));
    dir.WriteFileAt("sub/../at", stringEx("at"));
    stringEx back;
    dir.ReadFileAt("at", back);
    EXPECT_EQ(Str(back), "at");
}

// The new content goes over the old and the file is cut behind it: no old
// byte may survive, whichever is longer, and a write cut short leaves only
// what was written, unreported, as emptying the file first would.
TEST_F(DirWholeFile, WriteLeavesNoOldByteEvenWhenCutShort) {
    const struct {
        size_t oldSize, newSize;
    } sizes[] = {{3000, 10}, {10, 3000}, {500, 500}, {500, 0}, {0, 0}};
    for (const auto& c : sizes) {
        PutFile(Full("f"), std::string(c.oldSize, 'o'));
        CDir::WriteFile(At("f"), stringEx(std::string(c.newSize, 'n').c_str()));
        EXPECT_EQ(GetFile(Full("f")), std::string(c.newSize, 'n')) << c.oldSize << " " << c.newSize;
    }

    // Under a file-size limit of 1 KiB (SIGXFSZ is ignored by the library).
    for (const size_t oldSize : {size_t(100), size_t(3000)}) {
        PutFile(Full("f"), std::string(oldSize, 'o'));
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const rlimit limit{1024, 1024};
            setrlimit(RLIMIT_FSIZE, &limit);
            try {
                CDir::WriteFile(At("f"), stringEx(std::string(5000, 'n').c_str()));
            } catch (...) {
                _exit(1);
            }
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
            << "a short write is not reported";
        EXPECT_EQ(GetFile(Full("f")), std::string(1024, 'n')) << oldSize;
    }

    // A first write that fails is the write's failure.
    const Thrown full = Catch<sysfileExp>([] { CDir::WriteFile(Ex("/dev/full"), stringEx("x")); });
    EXPECT_NE(full.message.find("error code = 28"), std::string::npos) << full.message;
}

TEST_F(DirWholeFile, ReaderAndWriterExcludeEachOther) {
    PutFile(Full("f"), "original");
    struct stat before {};
    ASSERT_EQ(stat(Full("f").c_str(), &before), 0);
    for (const int held : {LOCK_SH, LOCK_EX}) {
        const int fd = open(Full("f").c_str(), O_RDONLY);
        ASSERT_EQ(flock(fd, held | LOCK_NB), 0);
        const Thrown writer = Catch<sysfileExp>([&] { CDir::WriteFile(At("f"), stringEx("x")); });
        EXPECT_TRUE(writer.message.ends_with("sharing mode conflict")) << writer.message;
        stringEx text("stale");
        if (held == LOCK_EX) {
            const Thrown reader = Catch<sysfileExp>([&] { CDir::ReadFile(At("f"), text); });
            EXPECT_TRUE(reader.message.ends_with("sharing mode conflict")) << reader.message;
        } else {
            CDir::ReadFile(At("f"), text);  // readers share
            EXPECT_EQ(Str(text), "original");
        }
        close(fd);
    }
    struct stat after {};
    ASSERT_EQ(stat(Full("f").c_str(), &after), 0);
    EXPECT_EQ(GetFile(Full("f")), "original");
    EXPECT_TRUE(after.st_mtim.tv_sec == before.st_mtim.tv_sec &&
                after.st_mtim.tv_nsec == before.st_mtim.tv_nsec)
        << "a losing writer touched the file";
}

TEST_F(DirWholeFile, FilesTooLargeForAStringFailInsteadOfComingBackCut) {
    // Byte strings hold 2^32 - 3 bytes and a terminator; wide ones less.
    for (const uint64_t size : {0xFFFFFFFEull, 0x100000000ull}) {
        const int fd = open(Full("huge").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_EQ(ftruncate(fd, off_t(size)), 0) << "no sparse files here";
        close(fd);
        stringEx text("stale");
        const Thrown thrown = Catch<dirExp>([&] { CDir::ReadFile(At("huge"), text); });
        EXPECT_EQ(thrown.message,
                  "CDir::ReadFile - file too large to read into one string\n  file path  = " +
                      Full("huge") + "\n  file size  = " + std::to_string(size) +
                      "\n  size limit = 4294967293");
        EXPECT_EQ(thrown.code, DirCode::InvalidArgument);
        EXPECT_TRUE(text.empty());
        wstringEx wide;
        EXPECT_EQ(Catch<dirExp>([&] { CDir::ReadFile(At("huge"), wide); }).code,
                  DirCode::InvalidArgument);
    }
}

TEST_F(DirWholeFile, FifosFailWithoutHanging) {
    ASSERT_EQ(mkfifo(Full("fifo").c_str(), 0644), 0);
    const std::string fifo = Full("fifo");
    const int status = filetest::RunInChild(
        [&] {
            stringEx text;
            int failures = 0;
            const auto attempt = [&](auto&& call) {
                try {
                    call();
                } catch (const sysfileExp&) {
                    ++failures;
                }
            };
            attempt([&] { CDir::ReadFile(Ex(fifo), text); });
            const int writer = open(fifo.c_str(), O_RDWR);  // holds it open, writes nothing
            attempt([&] { CDir::ReadFile(Ex(fifo), text); });
            close(writer);
            attempt([&] { CDir::WriteFile(Ex(fifo), stringEx("x")); });  // no reader
            return failures == 3 ? 0 : 1;
        },
        false, 10);
    EXPECT_EQ(status, 0) << "142 means the child hung until the alarm";
}

class DirBackup : public DirWholeFile {
  protected:
    void SetUp() override {
        ASSERT_EQ(mkdir(Full("bak").c_str(), 0755), 0);
        PutFile(Full("a.tar.gz"), "archive");
        PutFile(Full("Makefile"), "all:");
    }
    std::vector<std::string> Copies() const {
        std::vector<std::string> names;
        PathList list;
        CDir(At("bak")).GetAllFiles(list, stringEx("*"), false, true, false);
        for (const stringEx& path : list)
            names.push_back(Str(CDir::GetPathFilename(path)));
        std::sort(names.begin(), names.end());
        return names;
    }
    static std::string Stamp() { return Str(CTime::now().Format("%Y%M%d_%H%T%S")); }
};

TEST_F(DirBackup, CopiesAreNamedByStemTimeAndExtension) {
    const CDir bak(At("bak"));
    struct Case {
        const char* file;
        std::string stem, extension;
    } cases[] = {{"a.tar.gz", "a.tar@", ".gz"}, {"Makefile", "Makefile@", "."}};
    for (const Case& c : cases) {
        const std::string before = Stamp();
        bak.BackupFile(At(c.file), 3);
        const std::string after = Stamp();
        const std::vector<std::string> copies = Copies();
        const auto copy = std::find_if(copies.begin(), copies.end(),
                                       [&](const std::string& n) { return n.starts_with(c.stem); });
        ASSERT_NE(copy, copies.end()) << c.file;
        EXPECT_TRUE(*copy == c.stem + before + c.extension || *copy == c.stem + after + c.extension)
            << *copy;
        EXPECT_EQ(GetFile(Full("bak/" + *copy)), GetFile(Full(c.file)));
    }
}

TEST_F(DirBackup, RotationKeepsTheNewest) {
    for (const char* old : {"a.tar@20200101_000000.gz", "a.tar@20210101_000000.gz",
                            "a.tar@20220101_000000.gz", "a.tar@note.txt", "Makefile@2020."})
        PutFile(Full("bak/") + old, old);
    const CDir bak(At("bak"));
    bak.BackupFile(At("a.tar.gz"), 3);
    const std::vector<std::string> copies = Copies();
    ASSERT_EQ(copies.size(), 5u);
    EXPECT_EQ(copies[0], "Makefile@2020.") << "another file's copies are not touched";
    EXPECT_EQ(copies[1], "a.tar@20210101_000000.gz") << "the oldest went";
    EXPECT_EQ(copies[2], "a.tar@20220101_000000.gz");
    EXPECT_TRUE(copies[3].starts_with("a.tar@2"));
    bak.BackupFile(At("a.tar.gz"), 0);
    EXPECT_EQ(Copies(), (std::vector<std::string>{"Makefile@2020.", "a.tar@note.txt"}));
}

TEST_F(DirBackup, RestorePutsTheNewestCopyBack) {
    const CDir bak(At("bak"));
    EXPECT_FALSE(bak.RestoreFile(At("a.tar.gz")));
    EXPECT_EQ(GetFile(Full("a.tar.gz")), "archive");
    PutFile(Full("bak/a.tar@20200101_000000.gz"), "older");
    PutFile(Full("bak/a.tar@20210101_000000.gz"), "newer");
    EXPECT_TRUE(bak.RestoreFile(At("a.tar.gz")));
    EXPECT_EQ(GetFile(Full("a.tar.gz")), "newer");
    EXPECT_EQ(Copies(), std::vector<std::string>{"a.tar@20200101_000000.gz"});
    ASSERT_EQ(unlink(Full("a.tar.gz").c_str()), 0);
    EXPECT_TRUE(bak.RestoreFile(At("a.tar.gz"))) << "a file that is gone is restored too";
    EXPECT_EQ(GetFile(Full("a.tar.gz")), "older");

    PutFile(Full("bak/a.tar@20230101_000000.gz"), "newest");
    filetest::CapturedLog log;
    EXPECT_FALSE(bak.RestoreFile(At("nodir/a.tar.gz")));
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].level, LogLevel::Error);
    EXPECT_EQ(log.records()[0].name, "util.dir.restore");
    EXPECT_TRUE(Present(Full("bak/a.tar@20230101_000000.gz"))) << "a failed restore keeps the copy";
}

}  // namespace
}  // namespace Orlo
