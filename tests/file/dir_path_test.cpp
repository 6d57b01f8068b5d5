// Paths: full paths by text, the directory and name parts, Combine, Open,
// the checked stat and the tests built on it, and the messages of the path
// functions, compared byte for byte. The tests run inside a temporary
// working directory with a known $HOME, so "$CWD" and "$HOME" in the tables
// stand for fixed texts.

#include <sys/socket.h>
#include <sys/un.h>

#include <gtest/gtest.h>

#include <string>

#include "file/dir_test_support.h"
#include "orlo/dir.h"

namespace Orlo {
namespace {

using dirtest::Catch;
using dirtest::Ex;
using dirtest::Str;

class DirPath : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(chdir(tree.root.c_str()), 0);
        char buffer[4096];
        ASSERT_TRUE(getcwd(buffer, sizeof buffer));
        cwd = buffer;
    }

    // `text` with "$CWD" and "$HOME" put in.
    std::string Expand(std::string text) const {
        for (const auto& [name, value] : {std::pair{"$CWD", cwd}, std::pair{"$HOME", kHome}}) {
            const size_t at = text.find(name);
            if (at != std::string::npos) text.replace(at, std::string(name).size(), value);
        }
        return text;
    }

    const std::string kHome = "/home/someone";
    dirtest::WorkDirGuard keepWorkDir;
    dirtest::TempTree tree;
    dirtest::EnvGuard home{"HOME", "/home/someone"};
    std::string cwd;
};

TEST_F(DirPath, ConvToFullPathResolvesByText) {
    struct Case {
        std::string path;
        std::string full;
    };
    const Case cases[] = {
        {"a/b", "$CWD/a/b"},
        {"a/./b/../c", "$CWD/a/c"},
        {".", "$CWD"},
        {"a/.", "$CWD/a"},
        {"a/", "$CWD/a/"},
        {"/x/../../y", "/y"},
        {"//a//b/", "/a/b/"},
        {"/", "/"},
        {"/..", "/"},
        {"/a/b/..", "/a"},
        {"~", "$HOME"},
        {"~/x/../y", "$HOME/y"},
        {"~x", "$CWD/~x"},
        {"/sp ace/new\nline/\xff\xfe", "/sp ace/new\nline/\xff\xfe"},
        // ".." at the root of a relative path climbs the working directory.
        {"../../../../../../../../../../../../../../../../..", "/"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Str(CDir::ConvToFullPath(Ex(c.path))), Expand(c.full)) << c.path;
    }
}

TEST_F(DirPath, DirectoryAndNameParts) {
    struct Case {
        std::string path, dir, name;
    };
    const Case cases[] = {
        {"a/b.c", "a/", "b.c"},       {"b.c", "./", "b.c"}, {"/x", "/", "x"},
        {"a/b/", "a/b/", ""},         {"/", "/", ""},       {"./*.c", "./", "*.c"},
        {"n\nl/s p", "n\nl/", "s p"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Str(CDir::GetPathDir(Ex(c.path))), c.dir) << c.path;
        EXPECT_EQ(Str(CDir::GetPathFilename(Ex(c.path))), c.name) << c.path;
    }
}

TEST_F(DirPath, CombineResolvesAgainstTheObject) {
    ASSERT_EQ(mkdir((tree / "base").c_str(), 0755), 0);
    const CDir base(stringEx("base"));
    EXPECT_EQ(Str(base.GetPath()), cwd + "/base/");
    struct Case {
        std::string name, combined;
    };
    const Case cases[] = {
        {"", ""},
        {"a.txt", "$CWD/base/a.txt"},
        {"sub/../a.txt", "$CWD/base/a.txt"},
        {"../x", "$CWD/x"},
        {"sub/", "$CWD/base/sub/"},
        {"/abs/../kept", "/abs/../kept"},  // absolute names are not touched
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Str(base.Combine(Ex(c.name))), Expand(c.combined)) << c.name;
    }
    EXPECT_EQ(Catch([] { CDir().Combine("a"); }).code, DirCode::InvalidObject);
}

TEST_F(DirPath, EmptyArgumentsAreRefusedWithTheirOwnText) {
    struct Case {
        const char* message;
        std::function<void()> call;
    };
    const stringEx none;
    stringEx text;
    const Case cases[] = {
        {"CDir::ConvToFullPath - nothing to convert", [&] { CDir::ConvToFullPath(none); }},
        {"CDir::GetPathDir - nothing to match", [&] { CDir::GetPathDir(none); }},
        {"CDir::GetPathFilename - nothing to match", [&] { CDir::GetPathFilename(none); }},
        {"CDir::GetPathVolume - path is empty", [&] { CDir::GetPathVolume(none); }},
        {"CDir::FindInPath - nothing to search", [&] { CDir::FindInPath(none); }},
        {"CDir::Open - nothing to open", [&] { CDir().Open(none); }},
        {"CDir::MakeDir - nothing to make", [&] { CDir::MakeDir(none, true); }},
        {"CDir::RemoveDir - nothing to remove", [&] { CDir::RemoveDir(none); }},
        {"CDir::MakeHardLink - nothing to make", [&] { CDir::MakeHardLink("a", none); }},
        {"CDir::MakeSymbolicLink - nothing to make", [&] { CDir::MakeSymbolicLink(none, "a"); }},
        {"CDir::ReadFile - read what ?", [&] { CDir::ReadFile(none, text); }},
        {"CDir::WriteFile - write what ?", [&] { CDir::WriteFile(none, text); }},
    };
    for (const Case& c : cases) {
        const dirtest::Thrown thrown = Catch<dirExp>(c.call);
        EXPECT_EQ(thrown.message, c.message);
        EXPECT_EQ(thrown.code, DirCode::InvalidArgument) << c.message;
    }
}

TEST_F(DirPath, OpenChecksCreatesOrTellsWhere) {
    dirtest::PutFile(tree / "file", "x");
    EXPECT_EQ(Str(CDir(stringEx("made/deep"), true).GetPath()), cwd + "/made/deep/");
    EXPECT_EQ(Str(CDir(stringEx("nowhere"), false, true).GetPath()), cwd + "/nowhere/");

    CDir dir(stringEx("made"));
    for (const char* path : {"nowhere", "file"}) {
        const dirtest::Thrown thrown = Catch<dirExp>([&] { dir.Open(path); });
        EXPECT_EQ(thrown.message,
                  "CDir::Open - error open dir, not exist\n"
                  "  dir to open         = " +
                      std::string(path) + "\n  current working dir = " + cwd);
        EXPECT_EQ(thrown.code, DirCode::OpenDir);
    }
    EXPECT_EQ(Str(dir.GetPath()), cwd + "/made/") << "a failed Open changed the object";
    EXPECT_EQ(CDir::GetPathSeparator(), 47);
}

TEST_F(DirPath, StatusTestsFollowLinksAndNeverThrow) {
    dirtest::PutFile(tree / "file", "x");
    ASSERT_EQ(mkdir((tree / "dir").c_str(), 0755), 0);
    ASSERT_EQ(symlink("dir", (tree / "to_dir").c_str()), 0);
    ASSERT_EQ(symlink("file", (tree / "to_file").c_str()), 0);
    ASSERT_EQ(symlink("nothing", (tree / "dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((tree / "fifo").c_str(), 0644), 0);
    struct Case {
        std::string path;
        bool file, dir;
    };
    const Case cases[] = {
        {"file", true, false},      {"dir", false, true},      {"dir///", false, true},
        {"to_dir", false, true},    {"to_file", true, false},  {"fifo", true, false},
        {"dangling", false, false}, {"missing", false, false}, {"", false, false},
        {"/", false, true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(IsFile(Ex(c.path)), c.file) << c.path;
        EXPECT_EQ(IsDir(Ex(c.path)), c.dir) << c.path;
    }
    const dirtest::Thrown thrown = Catch<dirExp>([] { PosixStat("dangling"); });
    EXPECT_EQ(thrown.message,
              "PosixStat - failed retrive the status of giving path\n"
              "  file path  = dangling\n"
              "  error code = 2\n"
              "  error desc = a component of the path does not exist, or the path is an empty "
              "string");
    EXPECT_EQ(thrown.code, DirCode::PathStatus);
}

TEST_F(DirPath, AttributesRoundTrip) {
    dirtest::PutFile(tree / "file", "x");
    CDir::SetAttributes("file", 0640);
    const uint32_t mode = CDir::GetAttributes("file");
    EXPECT_TRUE(S_ISREG(mode));
    EXPECT_EQ(mode & 07777, 0640u);
    const dirtest::Thrown thrown = Catch<dirExp>([] { CDir::SetAttributes("missing", 0600); });
    EXPECT_EQ(thrown.message,
              "CDir::SetAttributes - failed setting path attributes\n"
              "  file path  = missing\n"
              "  attributes = 0600\n"
              "  error code = 2\n"
              "  error desc = the file does not exist");
    EXPECT_EQ(Catch<dirExp>([] { CDir::GetAttributes("missing"); }).code, DirCode::GetAttributes);
}

TEST_F(DirPath, WorkingDirectoryThatHasGoneIsAFailure) {
    EXPECT_EQ(Str(CDir::GetPwd()), cwd);
    ASSERT_EQ(mkdir((tree / "gone").c_str(), 0755), 0);
    ASSERT_EQ(chdir((tree / "gone").c_str()), 0);
    ASSERT_EQ(rmdir((tree / "gone").c_str()), 0);
    const dirtest::Thrown thrown = Catch<dirExp>([] { CDir::ConvToFullPath("relative"); });
    EXPECT_EQ(thrown.message,
              "CDir::GetPwd - error get current working dir\n"
              "  system error no   = 2\n"
              "  system error desc = the current working dir has been removed");
    EXPECT_EQ(thrown.code, DirCode::GetWorkDir);
    EXPECT_EQ(Str(CDir::ConvToFullPath("/abs/./x")), "/abs/x") << "needs no working directory";
}

TEST_F(DirPath, FindInPathSearchesInOrder) {
    ASSERT_EQ(mkdir((tree / "one").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((tree / "two").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((tree / "two/tool").c_str(), 0755), 0);  // a directory is no find
    dirtest::PutFile(tree / "one/both", "1");
    dirtest::PutFile(tree / "two/both", "2");
    dirtest::PutFile(tree / "two/only", "2");
    dirtest::PutFile(tree / "here", "0");
    const std::string path = tree / "two/tool:" + (tree / "one") + ":" + (tree / "two") + ":";
    dirtest::EnvGuard search("PATH", path.c_str());
    EXPECT_EQ(Str(CDir::FindInPath("both")), cwd + "/one/both");
    EXPECT_EQ(Str(CDir::FindInPath("only")), cwd + "/two/only");
    EXPECT_EQ(Str(CDir::FindInPath("here")), cwd + "/here") << "an empty entry is the working dir";
    const dirtest::Thrown thrown = Catch<dirExp>([] { CDir::FindInPath("tool"); });
    EXPECT_EQ(thrown.message,
              "CDir::FindInPath - can't find file in path\n"
              "  file name         = tool\n"
              "  environment path  = " +
                  path);
    EXPECT_EQ(thrown.code, DirCode::FindInPath);
}

TEST_F(DirPath, VolumeIsTheDeepestMountPointAbove) {
    EXPECT_EQ(Str(CDir::GetPathVolume("/")), "/");
    const std::string volume = Str(CDir::GetPathVolume("."));
    EXPECT_TRUE(volume == "/" || (cwd.rfind(volume, 0) == 0 &&
                                  (cwd.size() == volume.size() || cwd[volume.size()] == '/')))
        << volume;
    if (dirtest::GetFile("/proc/mounts").find(" /proc proc ") != std::string::npos) {
        EXPECT_EQ(Str(CDir::GetPathVolume("/proc/self/status")), "/proc");
        EXPECT_EQ(Str(CDir::GetPathVolume("/proc/../proc")), "/proc");
    }
}

TEST_F(DirPath, TempDirPrefersAnExistingTmpdir) {
    {
        dirtest::EnvGuard tmp("TMPDIR", tree.root.c_str());
        EXPECT_EQ(Str(CDir::GetTempDir()), tree.root + "/");
    }
    dirtest::EnvGuard tmp("TMPDIR", (tree / "missing").c_str());
    EXPECT_EQ(Str(CDir::GetTempDir()), "/tmp/");
}

}  // namespace
}  // namespace Orlo
