// mendo on real files: a small tree in a fresh temporary directory, the
// real binary run there, and every file's bytes (and the untouched files'
// time stamps) compared afterwards, with the exact lines printed.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "cli/run_mendo.h"

namespace {

using mendo_test::CommandLine;
using mendo_test::Printable;
using mendo_test::RunMendo;
using mendo_test::RunResult;
using Args = std::vector<std::string>;
using Tree = std::map<std::string, std::string>;  // relative path -> bytes

class MendoFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/mendo-files-XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        root_ = name;
    }
    void TearDown() override { std::system(("rm -rf '" + root_ + "'").c_str()); }

    std::string Path(const std::string& relative) const { return root_ + "/" + relative; }

    void Write(const std::string& relative, const std::string& bytes) {
        std::string path = Path(relative);
        for (size_t slash = path.find('/', root_.size() + 1); slash != std::string::npos;
             slash = path.find('/', slash + 1))
            mkdir(path.substr(0, slash).c_str(), 0755);
        std::ofstream(path, std::ios::binary) << bytes;
        // Old time stamps, so that a rewrite shows even within one second.
        struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
        utimensat(AT_FDCWD, path.c_str(), old, 0);
    }
    void Build(const Tree& tree) {
        for (const auto& [path, bytes] : tree)
            Write(path, bytes);
    }

    std::string Read(const std::string& relative) const {
        std::ifstream in(Path(relative), std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    time_t ModifiedAt(const std::string& relative) const {
        struct stat info {};
        stat(Path(relative).c_str(), &info);
        return info.st_mtime;
    }

    RunResult Run(const Args& args) const { return RunMendo(args, "", root_); }

    // Every file of `expected` holds exactly its bytes; those whose bytes are
    // those of `before` were not rewritten at all.
    void ExpectTree(const Tree& before, const Tree& expected, const Args& args) const {
        for (const auto& [path, bytes] : expected) {
            EXPECT_EQ(Read(path), bytes) << path << " after " << CommandLine(args);
            auto old = before.find(path);
            if (old != before.end() && old->second == bytes) {
                EXPECT_EQ(ModifiedAt(path), 1000000000) << path << " was rewritten";
            }
        }
    }

    std::string root_;
};

const Tree kTree = {
    {"a.txt", "teh cat\nteh dog\n"}, {"b.txt", "nothing here\n"},     {"c.log", "teh log\n"},
    {"sub/d.txt", "teh sub\n"},      {".hidden.txt", "teh hidden\n"},
};

TEST_F(MendoFiles, RewritesOnlyTheFilesWithAMatch) {
    Build(kTree);
    const Args args = {"*.txt", "-f:teh", "-t:the"};
    auto r = Run(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
    ExpectTree(kTree,
               {{"a.txt", "the cat\nthe dog\n"},
                {"b.txt", "nothing here\n"},
                {"c.log", "teh log\n"},
                {"sub/d.txt", "teh sub\n"},
                {".hidden.txt", "the hidden\n"}},
               args);
}

TEST_F(MendoFiles, SubFoldersWithS) {
    Build(kTree);
    const Args args = {"*.txt", "-fic:TEH", "-t:the", "-s", "-frc", "-trc"};
    auto r = Run(args);
    EXPECT_EQ(r.status, 0);
    ExpectTree(kTree, {{"a.txt", "the cat\nthe dog\n"}, {"sub/d.txt", "the sub\n"}}, args);
    // One count line per rewritten file, in enumeration order, then the total.
    for (const char* line :
         {"\n## 2 replacements in file: /a.txt\n", "\n## 1 replacements in file: /sub/d.txt\n",
          "\n## 1 replacements in file: /.hidden.txt\n"}) {
        std::string expected = line;
        expected.insert(expected.find(": ") + 2, root_);
        EXPECT_NE(r.out.find(expected), std::string::npos) << Printable(r.out);
    }
    EXPECT_EQ(r.out.substr(r.out.size() - 28), "\n## total replaced 4 matchs\n");
}

TEST_F(MendoFiles, PatternsWithADirectoryPartAndTwoPatternsForOneFile) {
    Build(kTree);
    const Args args = {"sub/*.txt", "sub/d.txt", "-f:teh", "-t:teh teh"};
    auto r = Run(args);
    EXPECT_EQ(r.status, 0);
    // Named twice: processed twice, the second time on the first result.
    ExpectTree(kTree, {{"sub/d.txt", "teh teh teh teh sub\n"}, {"a.txt", kTree.at("a.txt")}}, args);
}

TEST_F(MendoFiles, StdoutPrintsEveryFileAndRewritesNone) {
    Build({{"a.txt", "teh\n"}, {"b.txt", "x\n"}});
    const Args args = {"a.txt", "b.txt", "-f:teh", "-t:the", "-stdout", "-frc", "-trc"};
    auto r = Run(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "the\nx\n\n## total replaced 1 matchs\n");
    ExpectTree({{"a.txt", "teh\n"}, {"b.txt", "x\n"}}, {{"a.txt", "teh\n"}, {"b.txt", "x\n"}},
               args);
}

TEST_F(MendoFiles, EmptyFilesAreSkippedInEveryMode) {
    Build({{"empty.txt", ""}});
    for (const char* extra : {"-exp", "-noexp", "-stdout"}) {
        auto r = Run({"empty.txt", "-f:a", "-t:b", "-trc", extra});
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, "") << extra;
        EXPECT_EQ(r.err, "") << extra;
    }
}

TEST_F(MendoFiles, NoFileForThePatterns) {
    Build(kTree);
    for (const Args& args : {Args{"*.none", "-f:a", "-t:b"}, Args{"*.TXT", "-f:a", "-t:b"}}) {
        auto r = Run(args);
        EXPECT_EQ(r.status, 255) << CommandLine(args);
        EXPECT_EQ(r.err, "[FATAL ERROR] can't find the file(s)!\n");
        EXPECT_EQ(r.out, "");
    }
}

TEST_F(MendoFiles, StdioIgnoresThePatterns) {
    Build(kTree);
    auto r = RunMendo({"*.txt", "-stdio", "-f:teh", "-t:the"}, "teh", root_);
    EXPECT_EQ(r.out, "the\xFF");
    ExpectTree(kTree, kTree, {"-stdio"});
}

TEST_F(MendoFiles, AMissingPatternDirectoryIsAFatalLibraryError) {
    Build(kTree);
    auto r = Run({"nodir/*.txt", "-f:a", "-t:b"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err.rfind("[FATAL ERROR] Orlo runtime lib error: CDir::GetAllFiles - failed find "
                          "files\n",
                          0),
              0u)
        << r.err;
}

// Another holder of the file makes the guarded write fail: the file keeps its
// bytes, the run goes on (or stops with -errstop), and the count is dropped.
TEST_F(MendoFiles, AWriteFailureIsReportedAndTheFileKeptWhole) {
    Build({{"a.txt", "teh\n"}, {"b.txt", "teh\n"}});
    int fd = open(Path("a.txt").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(flock(fd, LOCK_SH | LOCK_NB), 0);

    const Args args = {"a.txt", "b.txt", "-f:teh", "-t:the", "-trc", "-frc"};
    auto r = Run(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err.rfind("[ERROR] can't write to file: " + Path("a.txt") + "\n  ", 0), 0u)
        << r.err;
    EXPECT_EQ(r.out,
              "\n## 1 replacements in file: " + Path("b.txt") + "\n\n## total replaced 1 matchs\n");
    EXPECT_EQ(Read("a.txt"), "teh\n");
    EXPECT_EQ(Read("b.txt"), "the\n");

    Write("b.txt", "teh\n");
    auto stop = Run({"a.txt", "b.txt", "-f:teh", "-t:the", "-trc", "-errstop"});
    EXPECT_EQ(stop.status, 255);
    EXPECT_EQ(stop.out, "");
    EXPECT_EQ(Read("b.txt"), "teh\n") << "-errstop ends the run at the first failure";
    close(fd);
}

TEST_F(MendoFiles, AReadFailureIsReportedAndSkipped) {
    Build({{"a.txt", "teh\n"}, {"b.txt", "teh\n"}});
    int fd = open(Path("a.txt").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);  // a writer holds it: no reading now

    auto r = Run({"a.txt", "b.txt", "-f:teh", "-t:the"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "[ERROR] failed reading file: " + Path("a.txt") + "\n");
    EXPECT_EQ(Read("b.txt"), "the\n");

    Write("b.txt", "teh\n");
    auto stop = Run({"a.txt", "b.txt", "-f:teh", "-t:the", "-errstop"});
    EXPECT_EQ(stop.status, 255);
    EXPECT_EQ(Read("b.txt"), "teh\n");
    close(fd);
}

TEST_F(MendoFiles, AFifoIsAReadFailureAndNeverHangs) {
    Build({{"a.txt", "teh\n"}});
    ASSERT_EQ(mkfifo(Path("pipe.txt").c_str(), 0644), 0);
    auto r = Run({"*.txt", "-f:teh", "-t:the"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "[ERROR] failed reading file: " + Path("pipe.txt") + "\n");
    EXPECT_EQ(Read("a.txt"), "the\n");
}

// A file too large for one string is refused whole: reported, never cut.
TEST_F(MendoFiles, AFileOfFourGigabytesIsAReadFailureAndLeftAlone) {
    Build({{"a.txt", "teh"}});
    const std::string big = Path("big.txt");
    int fd = open(big.c_str(), O_CREAT | O_WRONLY, 0644);
    ASSERT_GE(fd, 0);
    const off_t size = (off_t(1) << 32) + 10;  // sparse: costs no disk
    ASSERT_EQ(ftruncate(fd, size), 0);
    close(fd);

    auto r = Run({"*.txt", "-f:teh", "-t:the"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "[ERROR] failed reading file: " + big + "\n");
    struct stat info {};
    ASSERT_EQ(stat(big.c_str(), &info), 0);
    EXPECT_EQ(info.st_size, size);
    EXPECT_EQ(Read("a.txt"), "the");
}

// A link back to its own folder under -s: the walk ends (the system refuses
// the path at some depth) and the run ends, whatever it decides.
TEST_F(MendoFiles, ALinkLoopUnderSEndsTheRun) {
    Build({{"a.txt", "teh"}, {"sub/b.txt", "teh"}});
    ASSERT_EQ(symlink("..", Path("sub/up").c_str()), 0);
    auto r = Run({"*.txt", "-s", "-f:teh", "-t:the"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.err.empty() || r.err.rfind("[FATAL ERROR] Orlo runtime lib error: ", 0) == 0)
        << r.err;
}

TEST_F(MendoFiles, OddNamesAndBinaryContent) {
    const Tree tree = {{"with space.txt", std::string("a\0teh\xFF", 6)},
                       {"new\nline.txt", "teh"},
                       {"\xE9t\xE9.txt", "teh"}};
    Build(tree);
    const Args args = {"*.txt", "-f:teh", "-t:the"};
    auto r = Run(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    ExpectTree(tree,
               {{"with space.txt", std::string("a\0the\xFF", 6)},
                {"new\nline.txt", "the"},
                {"\xE9t\xE9.txt", "the"}},
               args);
}

TEST_F(MendoFiles, InPlaceStrategyAndUnusableRegexLeaveFilesAsTheyWere) {
    Build({{"a.txt", "teh teh"}});
    auto r = Run({"a.txt", "-f:teh", "-t:the", "-noexp"});
    EXPECT_EQ(Read("a.txt"), "the the");
    // A pattern that does not compile replaces nothing: the file stays, and
    // only -stdout shows the difference between the strategies.
    Write("a.txt", "abc");
    EXPECT_EQ(Run({"a.txt", "-r:(", "-t:x"}).out, "");
    EXPECT_EQ(ModifiedAt("a.txt"), 1000000000);
    EXPECT_EQ(Run({"a.txt", "-r:(", "-t:x", "-stdout"}).out, "");
    EXPECT_EQ(Run({"a.txt", "-r:(", "-t:x", "-stdout", "-noexp"}).out, "abc");
}

}  // namespace

// Files are written back while the next one is read; the run must still
// look as if one file followed the other.
TEST_F(MendoFiles, NamesOfOneFileSeeEachOthersResults) {
    Build({{"a.txt", "x"}});
    ASSERT_EQ(symlink("a.txt", Path("b.txt").c_str()), 0);
    ASSERT_EQ(link(Path("a.txt").c_str(), Path("c.txt").c_str()), 0);
    auto r = Run({"a.txt", "b.txt", "c.txt", "a.txt", "-f:x", "-t:xx", "-frc", "-trc"});
    EXPECT_EQ(r.out, "\n## 1 replacements in file: " + Path("a.txt") +
                         "\n\n## 2 replacements in file: " + Path("b.txt") +
                         "\n\n## 4 replacements in file: " + Path("c.txt") +
                         "\n\n## 8 replacements in file: " + Path("a.txt") +
                         "\n\n## total replaced 15 matchs\n");
    EXPECT_EQ(Read("a.txt"), std::string(16, 'x'));
}

TEST_F(MendoFiles, FailuresAmongManyFilesKeepTheirPlaceAndErrstopStopsThere) {
    Tree tree;
    std::vector<std::string> names;
    for (int i = 0; i < 30; ++i) {
        std::string name = "f";
        name += char('0' + i / 10);
        name += char('0' + i % 10);
        name += ".txt";
        tree[name] = "teh\n";
        names.push_back(name);
    }
    Build(tree);
    int unreadable = open(Path("f07.txt").c_str(), O_RDONLY);
    int unwritable = open(Path("f15.txt").c_str(), O_RDONLY);
    ASSERT_EQ(flock(unreadable, LOCK_EX | LOCK_NB), 0);
    ASSERT_EQ(flock(unwritable, LOCK_SH | LOCK_NB), 0);

    auto counts = [&](int to, bool sevenFails) {
        std::string out;
        for (int i = 0; i < to; ++i) {
            if ((i == 7 && sevenFails) || i == 15) continue;
            out += "\n## 1 replacements in file: " + Path(names[i]) + "\n";
        }
        return out;
    };
    Args args = names;
    args.insert(args.end(), {"-f:teh", "-t:the", "-frc", "-trc"});
    auto r = Run(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, counts(30, true) + "\n## total replaced 28 matchs\n");
    const std::string readError = "[ERROR] failed reading file: " + Path("f07.txt") + "\n";
    const std::string writeError = "[ERROR] can't write to file: " + Path("f15.txt") + "\n  ";
    EXPECT_EQ(r.err.rfind(readError + writeError, 0), 0u) << r.err;
    for (int i = 0; i < 30; ++i)
        EXPECT_EQ(Read(names[i]), i == 7 || i == 15 ? "teh\n" : "the\n") << names[i];

    // With -errstop the run ends at the read failure, then at the write
    // failure: nothing behind either is written, though it may have been
    // read already.
    for (const char* stopper : {"f07.txt", "f15.txt"}) {
        Build(tree);
        args.push_back("-errstop");
        auto stop = Run(args);
        args.pop_back();
        const bool sevenFails = stopper[2] == '7';
        const int at = sevenFails ? 7 : 15;
        EXPECT_EQ(stop.status, 255) << stopper;
        EXPECT_EQ(stop.out, counts(at, sevenFails)) << stopper;
        for (int i = 0; i < 30; ++i)
            EXPECT_EQ(Read(names[i]), i < at ? "the\n" : "teh\n") << names[i];
        close(unreadable);  // the second round stops at the write failure
    }
    close(unwritable);
}
