// Directory and file operations: what each leaves on disk, and the cases
// where following a link or removing before linking would destroy data
// that isn't theirs.

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "file/file_test_support.h"
#include "orlo/dir.h"

namespace Orlo {
namespace {

using filetest::Catch;
using filetest::Ex;
using filetest::GetFile;
using filetest::Present;
using filetest::PutFile;
using filetest::Str;
using filetest::Thrown;

class DirOps : public ::testing::Test {
  protected:
    stringEx At(const std::string& relative) const { return Ex(tree / relative); }
    std::string Full(const std::string& relative) const { return tree / relative; }

    filetest::TempTree tree;
};

TEST_F(DirOps, MakeDirMakesParentsOnlyWhenRecursive) {
    CDir::MakeDir(At("a/b/c/"), true);
    EXPECT_TRUE(IsDir(At("a/b/c")));
    CDir::MakeDir(At("a/b/c"), true);  // existing: fine when recursive
    const Thrown missingParent = Catch<dirExp>([&] { CDir::MakeDir(At("x/y"), false); });
    EXPECT_EQ(missingParent.message,
              "CDir::MakeDir - failed create dir\n  dir to create = " + Full("x/y") +
                  "\n  is recursive  = false\n  error code    = 2\n"
                  "  error desc    = a component of the path prefix does not exist");
    EXPECT_EQ(missingParent.code, DirCode::MakeDir);
}

TEST_F(DirOps, RemovalsTakeLinksNotTargets) {
    ASSERT_EQ(mkdir(Full("dir").c_str(), 0755), 0);
    PutFile(Full("dir/kept"), "k");
    PutFile(Full("file"), "f");
    ASSERT_EQ(symlink("dir", Full("to_dir").c_str()), 0);
    ASSERT_EQ(symlink("nothing", Full("dangling").c_str()), 0);
    for (const char* name : {"file", "to_dir/", "dangling"})
        CDir::RemoveFile(At(name));
    EXPECT_FALSE(Present(Full("file")) || Present(Full("to_dir")) || Present(Full("dangling")));
    EXPECT_EQ(GetFile(Full("dir/kept")), "k");
    for (const std::string& path : {std::string(), Full("dir"), Full("missing")})
        EXPECT_EQ(Catch<dirExp>([&] { CDir::RemoveFile(Ex(path), true); }).code,
                  DirCode::RemoveFile)
            << path;

    ASSERT_EQ(mkdir(Full("outside").c_str(), 0755), 0);
    PutFile(Full("outside/precious"), "p");
    CDir::MakeDir(At("t/sub/deep"), true);
    PutFile(Full("t/f"), "f");
    PutFile(Full("t/sub/deep/g"), "g");
    ASSERT_EQ(symlink(Full("outside").c_str(), Full("t/sub/link").c_str()), 0);
    ASSERT_EQ(symlink(Full("outside").c_str(), Full("alias").c_str()), 0);
    EXPECT_EQ(Catch<dirExp>([&] { CDir::RemoveDir(At("t")); }).code, DirCode::RemoveDir);
    // Files only: "t/f" goes, the sub-directory keeps the directory alive.
    EXPECT_EQ(Catch<dirExp>([&] { CDir::RemoveDir(At("t"), false, true); }).code,
              DirCode::RemoveDir);
    EXPECT_FALSE(Present(Full("t/f")));
    EXPECT_TRUE(Present(Full("t/sub/deep/g")));
    EXPECT_EQ(Catch<dirExp>([&] { CDir::RemoveDir(At("alias"), true, true); }).code,
              DirCode::RemoveDir);
    CDir::RemoveDir(At("t"), true, true);
    EXPECT_FALSE(Present(Full("t")));
    EXPECT_EQ(GetFile(Full("outside/precious")), "p") << "a link was followed";
}

TEST_F(DirOps, DuplicateFileCopiesOverWithoutTruncating) {
    std::string big(600000, 0);
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = char(i * 7 + i / 4096);
    PutFile(Full("big"), big);
    CDir::DuplicateFile(At("big"), At("copy"), false, true);
    EXPECT_EQ(GetFile(Full("copy")), big) << "crosses the copy unit twice";
    PutFile(Full("short"), "abc");
    PutFile(Full("long"), "0123456789");
    CDir::DuplicateFile(At("short"), At("long"), true);
    EXPECT_EQ(GetFile(Full("long")), "abc3456789") << "the old tail stays";
    CDir::DuplicateFile(stringEx("/dev/zero"), At("zero"), false);  // a device never ends
    EXPECT_EQ(GetFile(Full("zero")), "");
    EXPECT_EQ(Catch<dirExp>([&] { CDir::DuplicateFile(At("short"), At("long"), false); }).code,
              DirCode::DuplicateFile);
    EXPECT_EQ(Catch<dirExp>([&] { CDir::DuplicateFile(At("none"), At("new"), false); }).code,
              DirCode::DuplicateFile);
    EXPECT_FALSE(Present(Full("new")));
}

TEST_F(DirOps, TransferFileMovesAndGuardsTheDestination) {
    PutFile(Full("a"), "A");
    PutFile(Full("b"), "B");
    EXPECT_EQ(Catch<dirExp>([&] { CDir::TransferFile(At("a"), At("b"), false); }).code,
              DirCode::TransferFile);
    EXPECT_EQ(GetFile(Full("b")), "B");
    CDir::TransferFile(At("a"), At("b"), true);
    EXPECT_FALSE(Present(Full("a")));
    EXPECT_EQ(GetFile(Full("b")), "A");
    // Onto itself, even under another name: nothing may be lost.
    ASSERT_EQ(symlink(".", Full("here").c_str()), 0);
    CDir::TransferFile(At("b"), At("here/b"), true);
    EXPECT_EQ(GetFile(Full("b")), "A");

    struct stat here {
    }, shm{};
    if (stat(tree.root.c_str(), &here) != 0 || stat("/dev/shm", &shm) != 0 ||
        here.st_dev == shm.st_dev || access("/dev/shm", W_OK) != 0) {
        GTEST_SKIP() << "no second writable file system";
    }
    filetest::EnvGuard tmp("TMPDIR", "/dev/shm");
    filetest::TempTree other;
    EXPECT_EQ(Catch<dirExp>([&] {
                  CDir::TransferFile(At("b"), Ex(other / "b"), false, false, false);
              }).code,
              DirCode::TransferFile);
    EXPECT_EQ(GetFile(Full("b")), "A") << "a refused move lost the source";
    CDir::TransferFile(At("b"), Ex(other / "b"), false, true, true);
    EXPECT_FALSE(Present(Full("b")));
    EXPECT_EQ(GetFile(other / "b"), "A");
}

TEST_F(DirOps, LinksAndShortcutScripts) {
    CDir::MakeSymbolicLink("target", At("sym"));
    char target[64] = {};
    ASSERT_EQ(readlink(Full("sym").c_str(), target, sizeof target - 1), 6);
    EXPECT_STREQ(target, "target");
    EXPECT_EQ(Catch<dirExp>([&] { CDir::MakeSymbolicLink("other", At("sym")); }).code,
              DirCode::MakeSymbolicLink);
    PutFile(Full("orig"), "o");
    CDir::MakeHardLink(At("orig"), At("hard"));
    EXPECT_EQ(GetFile(Full("hard")), "o");

    // The script runs the target from the work folder with its own
    // arguments first, then the caller's.
    CDir::MakeSymbolicLink("/bin/sh", At("run it"), "-c 'pwd; echo \"$@\"' sh", Ex(tree.root));
    FILE* output = popen(("cd / && '" + Full("run it") + "' one two").c_str(), "r");
    ASSERT_TRUE(output);
    char line[4096] = {};
    std::string text;
    while (fgets(line, sizeof line, output))
        text += line;
    pclose(output);
    EXPECT_EQ(text, tree.root + "\none two\n");
}

TEST_F(DirOps, TemporaryFilesAreNewAndUnique) {
    const CDir dir(Ex(tree.root));
    const std::string first = Str(dir.GenTempFileName());
    const std::string second = Str(dir.GenTempFileName());
    EXPECT_NE(first, second);
    for (const std::string& name : {first, second}) {
        EXPECT_TRUE(name.starts_with(tree.root + "/") && name.ends_with(".tmp")) << name;
        EXPECT_EQ(GetFile(name), "") << "created, empty";
    }
    const CDir gone(At("gone"), false, true);
    EXPECT_EQ(Catch<dirExp>([&] { gone.GenTempFileName(); }).code, DirCode::InvalidObject);
}

}  // namespace
}  // namespace Orlo
