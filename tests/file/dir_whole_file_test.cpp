// Whole files: read and write for the three string types, the emptying of
// the destination, truncation and append, the share lock between a reader
// and a writer, files that must fail rather than hang or come back cut, and
// the backup rotation and restore with what they log.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "file/dir_test_support.h"
#include "orlo/dir.h"
#include "orlo/log.h"
#include "orlo/time.h"

namespace Orlo {
namespace {

using dirtest::Catch;
using dirtest::Ex;
using dirtest::GetFile;
using dirtest::Present;
using dirtest::PutFile;
using dirtest::Str;
using dirtest::Thrown;

// The raw bytes of a wide string, 4 per unit, as the file holds them.
std::string Bytes(const wstringEx& text) {
    return std::string(reinterpret_cast<const char*>(text.c_str()), text.size() * 4);
}
std::string Bytes(const basic_buffer<char>& text) {
    return Str(text);
}

template <class Text>
Text FromBytes(const std::string& bytes) {
    Text text;
    text.resize(uint32_t(bytes.size() / sizeof(typename Text::value_type)));
    std::copy(bytes.begin(), bytes.begin() + text.size() * sizeof(typename Text::value_type),
              reinterpret_cast<char*>(text.data()));
    return text;
}

// Records what the library logs while it lives.
class LogCapture : public ILogger {
  public:
    struct Record {
        int level;
        std::string name, text;
    };
    bool Write(const CTime&, int level, const stringEx& name, const stringEx& text) override {
        records.push_back({level, Str(name), Str(text)});
        return true;
    }
    std::vector<Record> records;
};

class CaptureGuard {
  public:
    CaptureGuard() : capture(std::make_shared<LogCapture>()) {
        auto log = std::make_shared<CLog>();
        log->PushLogger(capture);
        CLog::SetCurrent(log);
    }
    ~CaptureGuard() { CLog::SetCurrent(nullptr); }
    std::shared_ptr<LogCapture> capture;
};

class DirWholeFile : public ::testing::Test {
  protected:
    stringEx At(const std::string& relative) const { return Ex(tree / relative); }
    std::string Full(const std::string& relative) const { return tree / relative; }

    dirtest::TempTree tree;
};

template <class Text>
void RoundTrip(const stringEx& path) {
    const std::string contents[] = {"", "abc", std::string("z\0\xff\n\r\x80yz", 8), "12345678"};
    for (const std::string& bytes : contents) {
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
    EXPECT_EQ(Catch<dirExp>([&] { CDir::ReadFile(stringEx(), text); }).code,
              DirCode::InvalidArgument);
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(Str(sharer), "old content") << "a shared block was written through";

    PutFile(Full("f"), "new");
    stringEx view = stringEx::view("literal");
    CDir::ReadFile(At("f"), view);  // would fault writing into the literal
    EXPECT_EQ(Str(view), "new");
    EXPECT_FALSE(view.is_view());

    stringEx failed("kept?");
    EXPECT_THROW(CDir::ReadFile(At("missing"), failed), sysfileExp);
    EXPECT_TRUE(failed.empty());
}

TEST_F(DirWholeFile, WriteTruncatesAppendsAndCreates) {
    PutFile(Full("f"), "a long old content");
    CDir::WriteFile(At("f"), stringEx("new"));
    EXPECT_EQ(GetFile(Full("f")), "new");
    CDir::WriteFile(At("f"), stringEx("+more"), true, true);
    EXPECT_EQ(GetFile(Full("f")), "new+more");
    CDir::WriteFile(At("f"), stringEx());
    EXPECT_EQ(GetFile(Full("f")), "");

    const mode_t old = umask(027);
    CDir::WriteFile(At("created"), stringEx("c"));
    umask(old);
    struct stat status {};
    ASSERT_EQ(stat(Full("created").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);

    const Thrown noDir = Catch<sysfileExp>([&] { CDir::WriteFile(At("nodir/f"), stringEx("x")); });
    EXPECT_NE(noDir.message.find("file dose not exists or can't be created"), std::string::npos);

    CDir dir(Ex(tree.root));
    dir.WriteFileAt("sub/../at", stringEx("at"));
    stringEx back;
    dir.ReadFileAt("at", back);
    EXPECT_EQ(Str(back), "at");
}

TEST_F(DirWholeFile, ReaderAndWriterExcludeEachOther) {
    PutFile(Full("f"), "original");
    struct stat before {};
    ASSERT_EQ(stat(Full("f").c_str(), &before), 0);
    for (const int held : {LOCK_SH, LOCK_EX}) {
        const int fd = open(Full("f").c_str(), O_RDONLY);
        ASSERT_EQ(flock(fd, held | LOCK_NB), 0);
        const Thrown writer = Catch<sysfileExp>([&] { CDir::WriteFile(At("f"), stringEx("x")); });
        EXPECT_NE(writer.message.find("sharing mode conflict"), std::string::npos);
        stringEx text("stale");
        if (held == LOCK_EX) {
            const Thrown reader = Catch<sysfileExp>([&] { CDir::ReadFile(At("f"), text); });
            EXPECT_NE(reader.message.find("sharing mode conflict"), std::string::npos);
            EXPECT_TRUE(text.empty());
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
    struct Case {
        uint64_t size;
        const char* limit;
    };
    // Byte strings hold 2^32 - 3 bytes and a terminator; wide ones a little
    // less in whole units.
    const Case cases[] = {{0xFFFFFFFEull, "4294967293"}, {0x100000000ull, "4294967293"}};
    for (const Case& c : cases) {
        const int fd = open(Full("huge").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_EQ(ftruncate(fd, off_t(c.size)), 0) << "no sparse files here";
        close(fd);
        stringEx text("stale");
        const Thrown thrown = Catch<dirExp>([&] { CDir::ReadFile(At("huge"), text); });
        EXPECT_EQ(thrown.message,
                  "CDir::ReadFile - file too large to read into one string\n"
                  "  file path  = " +
                      Full("huge") + "\n  file size  = " + std::to_string(c.size) +
                      "\n  size limit = " + c.limit);
        EXPECT_EQ(thrown.code, DirCode::InvalidArgument);
        EXPECT_TRUE(text.empty());
        byteEx bytes;
        EXPECT_EQ(Catch<dirExp>([&] { CDir::ReadFile(At("huge"), bytes); }).code,
                  DirCode::InvalidArgument);
    }
    wstringEx wide;
    EXPECT_NE(Catch<dirExp>([&] {
                  CDir::ReadFile(At("huge"), wide);
              }).message.find("  size limit = 4294967283"),
              std::string::npos);
}

TEST_F(DirWholeFile, SpecialFilesFailWithoutHanging) {
    ASSERT_EQ(mkfifo(Full("fifo").c_str(), 0644), 0);
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Full("sock").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const std::string fifo = Full("fifo"), sock = Full("sock");

    const int status = dirtest::RunInChild(
        [&] {
            stringEx text;
            int failures = 0;
            for (const std::string& path : {fifo, sock}) {
                try {
                    CDir::ReadFile(Ex(path), text);
                } catch (const sysfileExp&) {
                    ++failures;
                }
            }
            // A writer that holds the FIFO open and writes nothing.
            const int writer = open(fifo.c_str(), O_RDWR);
            try {
                CDir::ReadFile(Ex(fifo), text);
            } catch (const sysfileExp&) {
                ++failures;
            }
            close(writer);
            try {
                CDir::WriteFile(Ex(fifo), stringEx("x"));  // no reader
            } catch (const sysfileExp&) {
                ++failures;
            }
            CDir::ReadFile(stringEx("/dev/null"), text);
            return failures == 4 && text.empty() ? 0 : 1;
        },
        false, 10);
    EXPECT_EQ(status, 0) << "142 means the child hung until the alarm";
    close(listener);
}

// ---- backup and restore -------------------------------------------------------------------

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
    };
    const Case cases[] = {{"a.tar.gz", "a.tar@", ".gz"}, {"Makefile", "Makefile@", "."}};
    for (const Case& c : cases) {
        const std::string before = Stamp();
        bak.BackupFile(At(c.file), 3);
        const std::string after = Stamp();
        std::vector<std::string> copies = Copies();
        const auto copy = std::find_if(copies.begin(), copies.end(), [&](const std::string& n) {
            return n.rfind(c.stem, 0) == 0;
        });
        ASSERT_NE(copy, copies.end()) << c.file;
        EXPECT_TRUE(*copy == c.stem + before + c.extension || *copy == c.stem + after + c.extension)
            << *copy;
        EXPECT_EQ(GetFile(Full("bak/" + *copy)), GetFile(Full(c.file)));
    }
    bak.BackupFile(At("Makefile"), 3);  // the same second, most likely: no second copy
    EXPECT_LE(Copies().size(), 3u);
}

TEST_F(DirBackup, RotationKeepsTheNewest) {
    for (const char* old : {"a.tar@20200101_000000.gz", "a.tar@20210101_000000.gz",
                            "a.tar@20220101_000000.gz", "a.tar@note.txt", "Makefile@2020."})
        PutFile(Full("bak/") + old, old);
    const CDir bak(At("bak"));
    bak.BackupFile(At("a.tar.gz"), 3);
    std::vector<std::string> copies = Copies();
    ASSERT_EQ(copies.size(), 5u);
    EXPECT_EQ(copies[0], "Makefile@2020.") << "another file's copies are not touched";
    EXPECT_EQ(copies[1], "a.tar@20210101_000000.gz") << "the oldest went";
    EXPECT_EQ(copies[2], "a.tar@20220101_000000.gz");
    EXPECT_EQ(copies[3].substr(0, 6), "a.tar@");
    EXPECT_EQ(copies[4], "a.tar@note.txt");

    bak.BackupFile(At("a.tar.gz"), 0);
    EXPECT_EQ(Copies(), (std::vector<std::string>{"Makefile@2020.", "a.tar@note.txt"}));
}

TEST_F(DirBackup, CopiesThatWontGoAreLoggedAndSkipped) {
    for (const char* old : {"a.tar@1.gz", "a.tar@2.gz"})
        PutFile(Full("bak/") + old, old);
    ASSERT_EQ(chmod(tree.root.c_str(), 0755), 0);
    ASSERT_EQ(chmod(Full("bak").c_str(), 0555), 0);
    const std::string bak = Full("bak"), file = Full("a.tar.gz");
    const int status = dirtest::RunInChild(
        [&] {
            if (access(bak.c_str(), R_OK | X_OK) != 0) return 77;
            CaptureGuard log;
            CDir(Ex(bak)).BackupFile(Ex(file), 0);
            const auto& records = log.capture->records;
            if (records.size() != 2) return 1;
            for (const auto& record : records) {
                if (record.level != LogLevel::Warning || record.name != "util.dir.backup") return 2;
                if (record.text.rfind("failed remove backup file\n@ CDir::RemoveFile - failed "
                                      "remove file\n  file path  = " +
                                          bak + "/a.tar@",
                                      0) != 0) {
                    return 3;
                }
            }
            return 0;
        },
        true);
    if (status == 77) GTEST_SKIP() << "the temporary directory isn't reachable without root";
    EXPECT_EQ(status, 0);
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
    CaptureGuard log;
    EXPECT_FALSE(bak.RestoreFile(At("nodir/a.tar.gz")));
    ASSERT_EQ(log.capture->records.size(), 1u);
    const LogCapture::Record& record = log.capture->records[0];
    EXPECT_EQ(record.level, LogLevel::Error);
    EXPECT_EQ(record.name, "util.dir.restore");
    EXPECT_EQ(record.text.substr(0, record.text.find("\n  allow copy")),
              "failed restore the backup file\n"
              "  from = " +
                  Full("bak/a.tar@20230101_000000.gz") + "\n  to   = " + Full("nodir/a.tar.gz") +
                  "\n@ CDir::TransferFile - error link file to the target path\n"
                  "  from                = " +
                  Full("bak/a.tar@20230101_000000.gz") +
                  "\n  to                  = " + Full("nodir/a.tar.gz"));
    EXPECT_TRUE(Present(Full("bak/a.tar@20230101_000000.gz"))) << "a failed restore keeps the copy";
}

}  // namespace
}  // namespace Orlo
