// Paths: full paths by text, the directory and name parts, Combine, Open,
// the status tests, and the lookups in $PATH, mounts and $TMPDIR. The tests
// run inside a temporary working directory with a known $HOME, so "$CWD"
// and "$HOME" in the tables stand for fixed texts.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "file/file_test_support.h"
#include "orlo/dir.h"

namespace Orlo {
namespace {

using filetest::Catch;
using filetest::Ex;
using filetest::PutFile;
using filetest::Str;

class DirPath : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(chdir(tree.root.c_str()), 0);
        cwd = Str(CDir::GetPwd());
    }
    std::string Expand(std::string text) const {
        for (const auto& [name, value] : {std::pair{"$CWD", cwd}, std::pair{"$HOME", kHome}}) {
            const size_t at = text.find(name);
            if (at != std::string::npos) text.replace(at, std::string(name).size(), value);
        }
        return text;
    }

    const std::string kHome = "/home/someone";
    filetest::WorkDirGuard keepWorkDir;
    filetest::TempTree tree;
    filetest::EnvGuard home{"HOME", "/home/someone"};
    std::string cwd;
};

TEST_F(DirPath, ConvToFullPathResolvesByText) {
    const std::pair<std::string, std::string> cases[] = {
        {"a/b", "$CWD/a/b"},
        {"a/./b/../c", "$CWD/a/c"},
        {".", "$CWD"},
        {"a/", "$CWD/a/"},
        {"/x/../../y", "/y"},
        {"//a//b/", "/a/b/"},
        {"/..", "/"},
        {"~/x/../y", "$HOME/y"},
        {"~x", "$CWD/~x"},
        {"/sp ace/new\nline/\xff\xfe", "/sp ace/new\nline/\xff\xfe"},
        {"../../../../../../../../../../../../../../../../..", "/"},
    };
    for (const auto& [path, full] : cases)
        EXPECT_EQ(Str(CDir::ConvToFullPath(Ex(path))), Expand(full)) << path;
}

TEST_F(DirPath, DirectoryAndNameParts) {
    struct Case {
        std::string path, dir, name;
    } cases[] = {
        {"a/b.c", "a/", "b.c"}, {"b.c", "./", "b.c"},   {"/x", "/", "x"},
        {"a/b/", "a/b/", ""},   {"./*.c", "./", "*.c"}, {"n\nl/s p", "n\nl/", "s p"},
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
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"sub/../a.txt", "$CWD/base/a.txt"},
        {"../x", "$CWD/x"},
        {"sub/", "$CWD/base/sub/"},
        {"/abs/../kept", "/abs/../kept"},  // absolute names are not touched
    };
    for (const auto& [name, combined] : cases)
        EXPECT_EQ(Str(base.Combine(Ex(name))), Expand(combined)) << name;
    EXPECT_EQ(Catch([] { CDir().Combine("a"); }).code, DirCode::InvalidObject);
}

TEST_F(DirPath, EmptyArgumentsAreRefused) {
    const stringEx none;
    stringEx text;
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"CDir::ConvToFullPath - nothing to convert", [&] { CDir::ConvToFullPath(none); }},
        {"CDir::GetPathDir - nothing to match", [&] { CDir::GetPathDir(none); }},
        {"CDir::GetPathFilename - nothing to match", [&] { CDir::GetPathFilename(none); }},
        {"CDir::Open - nothing to open", [&] { CDir().Open(none); }},
        {"CDir::RemoveDir - nothing to remove", [&] { CDir::RemoveDir(none); }},
        {"CDir::WriteFile - write what ?", [&] { CDir::WriteFile(none, text); }},
    };
    for (const auto& [message, call] : cases) {
        const filetest::Thrown thrown = Catch<dirExp>(call);
        EXPECT_EQ(thrown.message, message);
        EXPECT_EQ(thrown.code, DirCode::InvalidArgument) << message;
    }
}

TEST_F(DirPath, OpenChecksCreatesOrTellsWhere) {
    PutFile(tree / "file", "x");
    EXPECT_EQ(Str(CDir(stringEx("made/deep"), true).GetPath()), cwd + "/made/deep/");
    EXPECT_EQ(Str(CDir(stringEx("nowhere"), false, true).GetPath()), cwd + "/nowhere/");
    CDir dir(stringEx("made"));
    for (const char* path : {"nowhere", "file"}) {
        const filetest::Thrown thrown = Catch<dirExp>([&] { dir.Open(path); });
        EXPECT_EQ(thrown.message,
                  "CDir::Open - error open dir, not exist\n  dir to open         = " +
                      std::string(path) + "\n  current working dir = " + cwd);
        EXPECT_EQ(thrown.code, DirCode::OpenDir);
    }
    EXPECT_EQ(Str(dir.GetPath()), cwd + "/made/") << "a failed Open changed the object";
}

TEST_F(DirPath, StatusTestsFollowLinksAndNeverThrow) {
    PutFile(tree / "file", "x");
    ASSERT_EQ(mkdir((tree / "dir").c_str(), 0755), 0);
    ASSERT_EQ(symlink("dir", (tree / "to_dir").c_str()), 0);
    ASSERT_EQ(symlink("nothing", (tree / "dangling").c_str()), 0);
    ASSERT_EQ(mkfifo((tree / "fifo").c_str(), 0644), 0);
    struct Case {
        std::string path;
        bool file, dir;
    } cases[] = {
        {"file", true, false}, {"dir///", false, true},    {"to_dir", false, true},
        {"fifo", true, false}, {"dangling", false, false}, {"", false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(IsFile(Ex(c.path)), c.file) << c.path;
        EXPECT_EQ(IsDir(Ex(c.path)), c.dir) << c.path;
    }
    EXPECT_EQ(Catch<dirExp>([] { PosixStat("dangling"); }).code, DirCode::PathStatus);

    CDir::SetAttributes("file", 0640);
    EXPECT_EQ(CDir::GetAttributes("file") & 07777, 0640u);
    EXPECT_EQ(Catch<dirExp>([] { CDir::GetAttributes("missing"); }).code, DirCode::GetAttributes);
}

TEST_F(DirPath, WorkingDirectoryThatHasGoneIsAFailure) {
    ASSERT_EQ(mkdir((tree / "gone").c_str(), 0755), 0);
    ASSERT_EQ(chdir((tree / "gone").c_str()), 0);
    ASSERT_EQ(rmdir((tree / "gone").c_str()), 0);
    EXPECT_EQ(Catch<dirExp>([] { CDir::ConvToFullPath("relative"); }).code, DirCode::GetWorkDir);
    EXPECT_EQ(Str(CDir::ConvToFullPath("/abs/./x")), "/abs/x") << "needs no working directory";
}

TEST_F(DirPath, LookupsInPathMountsAndTmpdir) {
    ASSERT_EQ(mkdir((tree / "one").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((tree / "two").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((tree / "two/tool").c_str(), 0755), 0);  // a directory is no find
    PutFile(tree / "one/both", "1");
    PutFile(tree / "two/both", "2");
    PutFile(tree / "here", "0");
    const std::string path = tree / "two/tool:" + (tree / "one") + ":" + (tree / "two") + ":";
    {
        filetest::EnvGuard search("PATH", path.c_str());
        EXPECT_EQ(Str(CDir::FindInPath("both")), cwd + "/one/both");
        EXPECT_EQ(Str(CDir::FindInPath("here")), cwd + "/here") << "an empty entry is the cwd";
        EXPECT_EQ(Catch<dirExp>([] { CDir::FindInPath("tool"); }).code, DirCode::FindInPath);
    }

    EXPECT_EQ(Str(CDir::GetPathVolume("/")), "/");
    if (filetest::GetFile("/proc/mounts").find(" /proc proc ") != std::string::npos) {
        EXPECT_EQ(Str(CDir::GetPathVolume("/proc/../proc/self/status")), "/proc");
    }

    {
        filetest::EnvGuard tmp("TMPDIR", tree.root.c_str());
        EXPECT_EQ(Str(CDir::GetTempDir()), tree.root + "/");
    }
    filetest::EnvGuard tmp("TMPDIR", (tree / "missing").c_str());
    EXPECT_EQ(Str(CDir::GetTempDir()), "/tmp/");
}

}  // namespace
}  // namespace Orlo
