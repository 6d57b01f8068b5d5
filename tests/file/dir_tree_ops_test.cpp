// Copying and moving directory trees, and the file system queries. Trees are
// built from and compared as snapshots taken with lstat, so a link that
// should have become a file, or a file left with an old tail, shows. The
// failures kept are those where a copy would run forever, skip data
// silently, or a move would lose it.

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>

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

// Relative path -> "dir", "file:" + content, or "link:" + target.
using Snapshot = std::map<std::string, std::string>;

void Walk(const std::string& root, const std::string& relative, Snapshot& snapshot) {
    DIR* stream = opendir((root + "/" + relative).c_str());
    ASSERT_TRUE(stream) << relative;
    while (const dirent* entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        const std::string path = relative.empty() ? name : relative + "/" + name;
        const std::string full = root + "/" + path;
        struct stat status {};
        ASSERT_EQ(lstat(full.c_str(), &status), 0) << path;
        char target[4096] = {};
        if (S_ISDIR(status.st_mode)) {
            snapshot[path] = "dir";
            Walk(root, path, snapshot);
        } else if (S_ISLNK(status.st_mode) && readlink(full.c_str(), target, 4095) > 0) {
            snapshot[path] = std::string("link:") + target;
        } else {
            snapshot[path] = "file:" + GetFile(full);
        }
    }
    closedir(stream);
}

Snapshot Take(const std::string& root) {
    Snapshot snapshot;
    Walk(root, "", snapshot);
    return snapshot;
}

// Makes `root` if needed and what `snapshot` lists in it (parents sort first).
void Build(const std::string& root, const Snapshot& snapshot) {
    mkdir(root.c_str(), 0755);
    for (const auto& [path, what] : snapshot) {
        const std::string full = root + "/" + path;
        if (what == "dir") {
            ASSERT_EQ(mkdir(full.c_str(), 0755), 0) << path;
        } else if (what.starts_with("link:")) {
            ASSERT_EQ(symlink(what.substr(5).c_str(), full.c_str()), 0) << path;
        } else {
            PutFile(full, what.substr(5));
        }
    }
}

class DirTree : public ::testing::Test {
  protected:
    stringEx At(const std::string& relative) const { return Ex(tree / relative); }
    std::string Full(const std::string& relative) const { return tree / relative; }

    // Nested and empty directories, hidden names, links to a file and to a
    // directory inside the tree and to a directory outside it.
    void MakeSource() {
        Build(Full("outside"), {{"far", "file:far"}});
        Build(Full("src"), {{"a", "dir"},
                            {"a/b", "dir"},
                            {"a/b/c", "dir"},
                            {"a/b/c/deep", "file:deep"},
                            {"empty", "dir"},
                            {".hid", "dir"},
                            {".hid/inner", "file:inner"},
                            {"top", "file:top"},
                            {".dot", "file:dot"},
                            {"to_top", "link:top"},
                            {"to_b", "link:a/b"},
                            {"to_outside", "link:" + Full("outside")}});
    }
    // A copy of it: every link replaced by what it points to.
    static Snapshot CopyOfSource(bool subFiles) {
        Snapshot copy = {{"a", "dir"},      {"a/b", "dir"},       {"a/b/c", "dir"},
                         {"empty", "dir"},  {".hid", "dir"},      {"to_b", "dir"},
                         {"to_b/c", "dir"}, {"to_outside", "dir"}};
        if (!subFiles) return copy;
        copy.insert({{"top", "file:top"},
                     {".dot", "file:dot"},
                     {"a/b/c/deep", "file:deep"},
                     {".hid/inner", "file:inner"},
                     {"to_top", "file:top"},
                     {"to_b/c/deep", "file:deep"},
                     {"to_outside/far", "file:far"}});
        return copy;
    }

    filetest::TempTree tree;
};

TEST_F(DirTree, CopyRebuildsTheTreeWithLinksFollowed) {
    MakeSource();
    const Snapshot source = Take(Full("src"));
    CDir::DuplicateDir(At("src"), At("copy/"), false);
    EXPECT_EQ(Take(Full("copy")), CopyOfSource(true));
    CDir::DuplicateDir(At("src"), At("skeleton"), false, false);
    EXPECT_EQ(Take(Full("skeleton")), CopyOfSource(false));
    EXPECT_EQ(Take(Full("src")), source) << "the source is left as it was";
    CDir::DuplicateDir(At("src"), At("src2"), false);
    EXPECT_EQ(Take(Full("src2")), CopyOfSource(true)) << "a sibling named alike is no nesting";
}

TEST_F(DirTree, CopyIntoAnExistingTreeFollowsTheOverwriteRule) {
    Build(Full("src"), {{"same", "file:new"}, {"sub", "dir"}, {"sub/short", "file:abc"}});
    PutFile(Full("precious"), "precious");
    const std::string target = Full("dst");
    const Snapshot copied = {{"same", "file:new"}, {"sub", "dir"}, {"sub/short", "file:abc"}};
    struct Case {
        const char* name;
        bool overwrite;
        Snapshot before, after;
        bool fails;
    } cases[] = {
        {"an empty target is filled", false, {}, copied, false},
        {"an existing file stops the copy unless overwrite",
         false,
         {{"same", "file:old"}},
         {{"same", "file:old"}},
         true},
        {"overwrite replaces whole files and keeps the others",
         true,
         {{"mine", "file:mine"}, {"sub", "dir"}, {"sub/short", "file:0123456789"}},
         {{"mine", "file:mine"}, {"same", "file:new"}, {"sub", "dir"}, {"sub/short", "file:abc"}},
         false},
        {"a link in the target is replaced, not written through",
         true,
         {{"same", "link:" + Full("precious")}},
         copied,
         false},
        {"a file where the source has a directory",
         true,
         {{"sub", "file:in the way"}},
         {{"same", "file:new"}, {"sub", "file:in the way"}},
         true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Build(target, c.before);
        const auto copy = [&] { CDir::DuplicateDir(At("src"), Ex(target), c.overwrite); };
        if (c.fails) {
            EXPECT_EQ(Catch<dirExp>(copy).code, DirCode::DuplicateDir);
        } else {
            copy();
        }
        EXPECT_EQ(Take(target), c.after);
        EXPECT_EQ(GetFile(Full("precious")), "precious");
        CDir::RemoveDir(Ex(target), true, true);
    }
}

TEST_F(DirTree, CopyRefusesNestingLoopsAndDanglingLinks) {
    Build(Full("src"), {{"sub", "dir"}, {"f", "file:f"}});
    ASSERT_EQ(symlink("src", Full("alias").c_str()), 0);
    // Followed, a link back up the tree or into the target would copy until
    // the paths grew too long.
    Build(Full("loop"), {{"f", "file:f"}, {"sub", "dir"}, {"sub/up", "link:.."}});
    Build(Full("feed"), {{"into_target", "link:" + Full("t2")}});
    Build(Full("t2"), {});
    Build(Full("dangling"), {{"broken", "link:nowhere"}});
    const std::string nesting = "CDir::DuplicateDir - dir nesting found in recursive copy mode\n";
    const std::string failed = "CDir::DuplicateDir - failed duplicate dir\n";
    const std::tuple<const char*, const char*, std::string> cases[] = {
        {"src", "src/sub/new", nesting}, {"src", "src/../src/", nesting},
        {"src", "alias/x", nesting},     {"loop", "t1", nesting},
        {"feed", "t2", nesting},         {"dangling", "t3", failed},
        {"missing", "t4", failed},
    };
    for (const auto& [source, target, start] : cases) {
        const Thrown thrown =
            Catch<dirExp>([&] { CDir::DuplicateDir(At(source), At(target), true); });
        EXPECT_TRUE(thrown.message.starts_with(start)) << source << " -> " << target << "\n"
                                                       << thrown.message;
        EXPECT_EQ(thrown.code, DirCode::DuplicateDir);
    }
    EXPECT_FALSE(Present(Full("src/sub/new")) || Present(Full("src/x")) ||
                 Present(Full("t1/sub/up")) || Present(Full("t4")))
        << "refused before anything was made";
}

TEST_F(DirTree, CopyOfAnUnreadableDirectoryFailsInsteadOfSkippingIt) {
    ASSERT_EQ(chmod(tree.root.c_str(), 0755), 0);
    ASSERT_EQ(mkdir(Full("shared").c_str(), 0777), 0);
    ASSERT_EQ(chmod(Full("shared").c_str(), 0777), 0);
    const std::string source = Full("shared/src");
    const std::string target = Full("shared/dst");
    const int status = filetest::RunInChild(
        [&] {
            if (mkdir(source.c_str(), 0755) != 0) return 77;
            if (mkdir((source + "/locked").c_str(), 0) != 0) return 1;
            const Thrown thrown =
                Catch<dirExp>([&] { CDir::DuplicateDir(Ex(source), Ex(target), false); });
            return thrown.message.ends_with("  error code = 13\n  error desc = permission denied")
                       ? 0
                       : 2;
        },
        true);
    if (status == 77) GTEST_SKIP() << "the temporary directory isn't reachable without root";
    EXPECT_EQ(status, 0);
}

TEST_F(DirTree, MoveWithinAFileSystemRenamesAndMergesOnlyWithOverwrite) {
    MakeSource();
    const Snapshot source = Take(Full("src"));
    struct stat before {
    }, after{};
    ASSERT_EQ(stat(Full("src/a/b/c/deep").c_str(), &before), 0);
    CDir::TransferDir(At("src/"), At("moved"), false);
    EXPECT_FALSE(Present(Full("src")));
    EXPECT_EQ(Take(Full("moved")), source);
    ASSERT_EQ(stat(Full("moved/a/b/c/deep").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "renamed, not copied";

    Build(Full("src"), {{"same", "file:new"}, {"only_src", "file:s"}, {"sub", "dir"}});
    Build(Full("dst"), {{"same", "file:old and longer"}, {"only_dst", "file:d"}});
    ASSERT_EQ(symlink("src", Full("alias").c_str()), 0);
    for (const char* target : {"dst", "src/sub/t", "alias"})
        EXPECT_EQ(Catch<dirExp>([&] { CDir::TransferDir(At("src"), At(target), false); }).code,
                  DirCode::TransferDir)
            << target;
    EXPECT_EQ(GetFile(Full("dst/same")), "old and longer");
    CDir::RemoveDir(At("src/sub"));
    CDir::TransferDir(At("src"), At("dst"), true);
    EXPECT_FALSE(Present(Full("src")));
    EXPECT_EQ(Take(Full("dst")),
              (Snapshot{{"same", "file:new"}, {"only_src", "file:s"}, {"only_dst", "file:d"}}));
}

TEST_F(DirTree, MoveAcrossFileSystemsCopiesThenRemoves) {
    struct stat here {
    }, shm{};
    if (stat(tree.root.c_str(), &here) != 0 || stat("/dev/shm", &shm) != 0 ||
        here.st_dev == shm.st_dev || access("/dev/shm", W_OK) != 0) {
        GTEST_SKIP() << "no second writable file system";
    }
    filetest::EnvGuard tmp("TMPDIR", "/dev/shm");
    filetest::TempTree other;
    MakeSource();
    CDir::TransferDir(At("src"), Ex(other / "moved"), false);
    EXPECT_FALSE(Present(Full("src")));
    EXPECT_EQ(Take(other / "moved"), CopyOfSource(true));
    EXPECT_EQ(GetFile(Full("outside/far")), "far") << "a link's target is not the source's";

    // A copy that fails half-way leaves the source whole.
    Build(Full("half"), {{"kept", "file:kept"}, {"broken", "link:nowhere"}});
    EXPECT_EQ(Catch<dirExp>([&] { CDir::TransferDir(At("half"), Ex(other / "half"), false); }).code,
              DirCode::TransferDir);
    EXPECT_EQ(Take(Full("half")), (Snapshot{{"kept", "file:kept"}, {"broken", "link:nowhere"}}));
}

TEST(DirStorage, AgreesWithTheSystem) {
    struct statvfs expected {};
    ASSERT_EQ(statvfs("/", &expected), 0);
    const StorageTopology topology = CDir::GetStorageTopology("/");
    EXPECT_EQ(topology.blockSize, expected.f_frsize);
    EXPECT_EQ(topology.totalBlocks, expected.f_blocks);
    const SpaceInfo space = CDir::GetSpaceInfo("/");
    EXPECT_EQ(space.totalBytes, uint64_t(expected.f_blocks) * expected.f_frsize);
    EXPECT_LE(space.availableBytes, space.freeBytes);
    EXPECT_EQ(Catch<dirExp>([] { CDir::GetSpaceInfo("/no/such/path"); }).code, DirCode::PathStatus);
}

}  // namespace
}  // namespace Orlo
