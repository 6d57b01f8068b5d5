// Directory and file operations: what each leaves on disk, the texts of
// their failures byte for byte, and the cases where following a link or
// removing before linking would destroy data that isn't theirs.

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "file/dir_test_support.h"
#include "orlo/dir.h"

namespace Orlo {
namespace {

using dirtest::Catch;
using dirtest::Ex;
using dirtest::GetFile;
using dirtest::Present;
using dirtest::PutFile;
using dirtest::Str;
using dirtest::Thrown;

class DirOps : public ::testing::Test {
  protected:
    stringEx At(const std::string& relative) const { return Ex(tree / relative); }
    std::string Full(const std::string& relative) const { return tree / relative; }

    dirtest::TempTree tree;
};

TEST_F(DirOps, MakeDirMakesParentsOnlyWhenRecursive) {
    CDir::MakeDir(At("a/b/c/"), true);
    EXPECT_TRUE(IsDir(At("a/b/c")));
    CDir::MakeDir(At("a/b/c"), true);  // existing: fine when recursive

    const Thrown missingParent = Catch<dirExp>([&] { CDir::MakeDir(At("x/y"), false); });
    EXPECT_EQ(missingParent.message,
              "CDir::MakeDir - failed create dir\n"
              "  dir to create = " +
                  Full("x/y") +
                  "\n  is recursive  = false\n"
                  "  error code    = 2\n"
                  "  error desc    = a component of the path prefix does "
                  "not exist");
    EXPECT_EQ(missingParent.code, DirCode::MakeDir);
    PutFile(Full("file"), "x");
    const Thrown overFile = Catch<dirExp>([&] { CDir::MakeDir(At("file/sub"), true); });
    EXPECT_EQ(overFile.message.substr(overFile.message.find("  dir to create")),
              "  dir to create = " + Full("file") +
                  "\n  is recursive  = true\n"
                  "  error code    = 17\n"
                  "  error desc    = the path already exists");
}

TEST_F(DirOps, RemoveFileRemovesLinksNotTargets) {
    ASSERT_EQ(mkdir(Full("dir").c_str(), 0755), 0);
    PutFile(Full("dir/kept"), "k");
    PutFile(Full("file"), "f");
    ASSERT_EQ(symlink("dir", Full("to_dir").c_str()), 0);
    ASSERT_EQ(symlink("nothing", Full("dangling").c_str()), 0);
    for (const char* name : {"file", "to_dir/", "dangling"}) {
        CDir::RemoveFile(At(name));
        EXPECT_FALSE(Present(Full(name).substr(0, Full(name).find_last_not_of('/') + 1))) << name;
    }
    EXPECT_EQ(GetFile(Full("dir/kept")), "k");

    struct Case {
        std::string path, tail;
    };
    const Case cases[] = {
        {"", "  file path  = \n  error desc = nothing to remove"},
        {Full("dir"), "  file path  = " + Full("dir") + "\n  error desc = the path is a directory"},
        {Full("missing"), "  file path  = " + Full("missing") +
                              "\n  error code = 2\n"
                              "  error desc = unexpect system error: No such file or directory"},
    };
    for (const Case& c : cases) {
        const Thrown thrown = Catch<dirExp>([&] { CDir::RemoveFile(Ex(c.path), true); });
        EXPECT_EQ(thrown.message, "CDir::RemoveFile - failed remove file\n" + c.tail);
        EXPECT_EQ(thrown.code, DirCode::RemoveFile);
    }
}

TEST_F(DirOps, ForcedRemovalLoosensPermissions) {
    ASSERT_EQ(mkdir(Full("shared").c_str(), 0777), 0);
    ASSERT_EQ(chmod(tree.root.c_str(), 0755), 0);
    ASSERT_EQ(chmod(Full("shared").c_str(), 0777), 0);
    const std::string dir = Full("shared/mine");
    const int status = dirtest::RunInChild(
        [&] {
            if (mkdir(dir.c_str(), 0755) != 0) return 77;
            PutFile(dir + "/f", "x");
            chmod(dir.c_str(), 0555);
            bool refused = false;
            try {
                CDir::RemoveFile(Ex(dir + "/f"), false);
            } catch (const dirExp& e) {
                refused =
                    Str(e.message).find("  error desc = permission denied") != std::string::npos;
            }
            CDir::RemoveFile(Ex(dir + "/f"), true);
            return refused && !Present(dir + "/f") ? 0 : 1;
        },
        true);
    if (status == 77) GTEST_SKIP() << "the temporary directory isn't reachable without root";
    EXPECT_EQ(status, 0);
}

TEST_F(DirOps, RemoveDirEmptiesByFlagsAndNeverFollowsLinks) {
    ASSERT_EQ(mkdir(Full("outside").c_str(), 0755), 0);
    PutFile(Full("outside/precious"), "p");
    CDir::MakeDir(At("t/sub/deep"), true);
    PutFile(Full("t/f"), "f");
    PutFile(Full("t/sub/deep/g"), "g");
    ASSERT_EQ(symlink(Full("outside").c_str(), Full("t/sub/link").c_str()), 0);

    const Thrown notEmpty = Catch<dirExp>([&] { CDir::RemoveDir(At("t")); });
    EXPECT_EQ(notEmpty.message,
              "CDir::RemoveDir - failed remove dir\n"
              "  dir to remove     = " +
                  Full("t") +
                  "\n  remove sub dirs   = false\n"
                  "  remove sub files  = false\n"
                  "  error code        = 39\n"
                  "  error desc        = the directory is not empty");
    EXPECT_EQ(notEmpty.code, DirCode::RemoveDir);

    // Files only: "t/f" goes, the sub-directory keeps the directory alive.
    EXPECT_EQ(Catch<dirExp>([&] { CDir::RemoveDir(At("t"), false, true); }).code,
              DirCode::RemoveDir);
    EXPECT_FALSE(Present(Full("t/f")));
    EXPECT_TRUE(Present(Full("t/sub/deep/g")));

    // A link to the directory is refused before anything is touched.
    ASSERT_EQ(symlink(Full("outside").c_str(), Full("alias").c_str()), 0);
    const Thrown alias = Catch<dirExp>([&] { CDir::RemoveDir(At("alias"), true, true); });
    EXPECT_NE(alias.message.find("  error desc        = the path is not a directory"),
              std::string::npos);

    CDir::RemoveDir(At("t"), true, true);
    EXPECT_FALSE(Present(Full("t")));
    EXPECT_EQ(GetFile(Full("outside/precious")), "p") << "a link inside the tree was followed";
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

    // A device never ends: only what it reports as its size (none) is copied.
    CDir::DuplicateFile(stringEx("/dev/zero"), At("zero"), false);
    EXPECT_EQ(GetFile(Full("zero")), "");

    const Thrown exists =
        Catch<dirExp>([&] { CDir::DuplicateFile(At("short"), At("long"), false); });
    EXPECT_EQ(exists.message,
              "CDir::DuplicateFile - error copy file, dest already exists\n"
              "  source file       = " +
                  Full("short") + "\n  destination file  = " + Full("long"));
    EXPECT_EQ(exists.code, DirCode::DuplicateFile);

    const Thrown missing =
        Catch<dirExp>([&] { CDir::DuplicateFile(At("none"), At("new"), false); });
    EXPECT_EQ(missing.message.substr(0, missing.message.find("@ ") + 2),
              "CDir::DuplicateFile - error copy file\n"
              "  source file       = " +
                  Full("none") + "\n  destination file  = " + Full("new") + "\n@ ");
    EXPECT_EQ(missing.code, DirCode::DuplicateFile);
    EXPECT_FALSE(Present(Full("new")));
}

TEST_F(DirOps, TransferFileMovesAndGuardsTheDestination) {
    PutFile(Full("a"), "A");
    PutFile(Full("b"), "B");
    const Thrown exists = Catch<dirExp>([&] { CDir::TransferFile(At("a"), At("b"), false); });
    EXPECT_EQ(exists.message,
              "CDir::TransferFile - error move file, dest already exists\n"
              "  from = " +
                  Full("a") + "\n  to   = " + Full("b"));
    EXPECT_EQ(exists.code, DirCode::TransferFile);

    CDir::TransferFile(At("a"), At("b"), true);
    EXPECT_FALSE(Present(Full("a")));
    EXPECT_EQ(GetFile(Full("b")), "A");

    // Onto itself, even under another name: nothing may be lost.
    ASSERT_EQ(symlink(".", Full("here").c_str()), 0);
    CDir::TransferFile(At("b"), At("here/b"), true);
    EXPECT_EQ(GetFile(Full("b")), "A");

    const Thrown missing =
        Catch<dirExp>([&] { CDir::TransferFile(At("none"), At("c"), true, false, false); });
    EXPECT_EQ(missing.message,
              "CDir::TransferFile - error link file to the target path\n"
              "  from                = " +
                  Full("none") + "\n  to                  = " + Full("c") +
                  "\n  allow copy & delete = false\n"
                  "  error code          = 2\n"
                  "  error description   = the old path or a directory of the "
                  "new path does not exist");
}

TEST_F(DirOps, TransferFileCopiesAcrossFileSystems) {
    struct stat here {
    }, shm{};
    if (stat(tree.root.c_str(), &here) != 0 || stat("/dev/shm", &shm) != 0 ||
        here.st_dev == shm.st_dev || access("/dev/shm", W_OK) != 0) {
        GTEST_SKIP() << "no second writable file system";
    }
    dirtest::EnvGuard tmp("TMPDIR", "/dev/shm");
    dirtest::TempTree other;
    PutFile(Full("a"), "across");
    const Thrown refused =
        Catch<dirExp>([&] { CDir::TransferFile(At("a"), Ex(other / "a"), false, false, false); });
    EXPECT_NE(refused.message.find("  error description   = the two paths are not on the same"),
              std::string::npos);
    CDir::TransferFile(At("a"), Ex(other / "a"), false, true, true);
    EXPECT_FALSE(Present(Full("a")));
    EXPECT_EQ(GetFile(other / "a"), "across");
}

TEST_F(DirOps, LinksAndShortcutScripts) {
    CDir::MakeSymbolicLink("target", At("sym"));
    char target[64] = {};
    ASSERT_EQ(readlink(Full("sym").c_str(), target, sizeof target - 1), 6);
    EXPECT_STREQ(target, "target");
    const Thrown exists = Catch<dirExp>([&] { CDir::MakeSymbolicLink("other", At("sym")); });
    EXPECT_EQ(exists.message,
              "CDir::MakeSymbolicLink - failed create symbolic link\n"
              "  old path     = other\n"
              "  new path     = " +
                  Full("sym") +
                  "\n  error number = 17\n"
                  "  error desc   = the new path already exists");
    EXPECT_EQ(exists.code, DirCode::MakeSymbolicLink);

    PutFile(Full("orig"), "o");
    CDir::MakeHardLink(At("orig"), At("hard"));
    EXPECT_EQ(GetFile(Full("hard")), "o");
    EXPECT_EQ(Catch<dirExp>([&] { CDir::MakeHardLink(At("orig"), At("hard")); }).code,
              DirCode::MakeHardLink);

    // The script runs the target from the work folder with its own
    // arguments first, then the caller's.
    CDir::MakeSymbolicLink("/bin/sh", At("run it"), "-c 'pwd; echo \"$@\"' sh", Ex(tree.root));
    EXPECT_EQ(CDir::GetAttributes(At("run it")) & 0777, 0755u);
    const std::string command = "cd / && '" + Full("run it") + "' one two";
    FILE* output = popen(command.c_str(), "r");
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
        EXPECT_EQ(name.substr(0, tree.root.size() + 1), tree.root + "/");
        EXPECT_EQ(name.substr(name.size() - 4), ".tmp");
        EXPECT_EQ(name.substr(tree.root.size() + 1).find_first_not_of("0123456789abcdef"),
                  name.size() - tree.root.size() - 5);
        EXPECT_EQ(GetFile(name), "") << "created, empty";
    }
    dirtest::EnvGuard tmp("TMPDIR", tree.root.c_str());
    EXPECT_EQ(Str(CDir::GetPathDir(CDir::GenTempFileNameInSysTempDir())), tree.root + "/");

    const CDir gone(At("gone"), false, true);
    const Thrown thrown = Catch<dirExp>([&] { gone.GenTempFileName(); });
    EXPECT_EQ(thrown.message,
              "CDir::GenTempFileName - invalid obj, or the base dir has been "
              "removed\n  base dir = " +
                  Full("gone/"));
    EXPECT_EQ(thrown.code, DirCode::InvalidObject);
}

}  // namespace
}  // namespace Orlo
