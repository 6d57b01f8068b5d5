// Copying and moving directory trees, and the file system queries. Trees are
// built from and compared as snapshots taken with lstat, so a link that
// should have become a file, or a file left with an old tail, shows. Failure
// texts are compared byte for byte; the cases kept are those where a copy
// would run forever, skip data silently, or a move would lose it.

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <map>
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

std::string CopyText(const std::string& head, const std::string& from, const std::string& to,
                     bool overwrite, bool subFiles) {
    const auto text = [](bool value) { return value ? "true" : "false"; };
    return head + "\n  dir to copy         = " + from + "\n  dir to copy to      = " + to +
           "\n  overwrite exist     = " + text(overwrite) +
           "\n  copy sub files      = " + text(subFiles);
}
std::string MoveText(const std::string& head, const std::string& from, const std::string& to) {
    return head + "\n  source dir = " + from + "\n  target dir = " + to;
}
const std::string kCopyFailed = "CDir::DuplicateDir - failed duplicate dir";
const std::string kCopyNesting = "CDir::DuplicateDir - dir nesting found in recursive copy mode";
const std::string kMoveFailed = "CDir::TransferDir - failed transfer dir";
const std::string kMoveNesting = "CDir::TransferDir - dir nesting found in recursive copy mode";
const std::string kDangling =
    "\n@ PosixStat - failed retrive the status of giving path\n  file path  = ";
const std::string kMissingEntry =
    "\n  error code = 2\n"
    "  error desc = a component of the path does not exist, or the path is an empty string";

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

    dirtest::TempTree tree;
};

// ---- DuplicateDir -------------------------------------------------------------------

TEST_F(DirTree, CopyRebuildsTheTreeWithLinksFollowed) {
    MakeSource();
    const Snapshot source = Take(Full("src"));
    CDir::DuplicateDir(At("src"), At("copy/"), false);
    EXPECT_EQ(Take(Full("copy")), CopyOfSource(true));
    CDir::DuplicateDir(At("src"), At("skeleton"), false, false);
    EXPECT_EQ(Take(Full("skeleton")), CopyOfSource(false));
    EXPECT_EQ(Take(Full("src")), source) << "the source is left as it was";
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
        std::string failure;  // the inner text of the failure, empty for none
    };
    const Case cases[] = {
        {"an empty target is filled", false, {}, copied, ""},
        {"an existing file stops the copy unless overwrite",
         false,
         {{"same", "file:old"}},
         {{"same", "file:old"}},
         "CDir::DuplicateFile - error copy file, dest already exists\n"
         "  source file       = " +
             Full("src/same") + "\n  destination file  = " + target + "/same"},
        {"overwrite replaces whole files and keeps the others",
         true,
         {{"mine", "file:mine"}, {"sub", "dir"}, {"sub/short", "file:0123456789"}},
         {{"mine", "file:mine"}, {"same", "file:new"}, {"sub", "dir"}, {"sub/short", "file:abc"}},
         ""},
        {"a link in the target is replaced, not written through",
         true,
         {{"same", "link:" + Full("precious")}},
         copied,
         ""},
        {"a file where the source has a directory",
         true,
         {{"sub", "file:in the way"}},
         {{"same", "file:new"}, {"sub", "file:in the way"}},
         "CDir::MakeDir - failed create dir\n  dir to create = " + target +
             "/sub\n  is recursive  = false\n  error code    = 17\n"
             "  error desc    = the path already exists"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Build(target, c.before);
        const auto copy = [&] { CDir::DuplicateDir(At("src"), Ex(target), c.overwrite); };
        if (c.failure.empty()) {
            copy();
        } else {
            const Thrown thrown = Catch<dirExp>(copy);
            EXPECT_EQ(
                thrown.message,
                CopyText(kCopyFailed, Full("src"), target, c.overwrite, true) + "\n@ " + c.failure);
            EXPECT_EQ(thrown.code, DirCode::DuplicateDir);
        }
        EXPECT_EQ(Take(target), c.after);
        EXPECT_EQ(GetFile(Full("precious")), "precious");
        CDir::RemoveDir(Ex(target), true, true);
    }
}

TEST_F(DirTree, CopyFailureTexts) {
    Build(Full("src"), {{"sub", "dir"}, {"f", "file:f"}});
    PutFile(Full("file"), "f");
    ASSERT_EQ(symlink("src", Full("alias").c_str()), 0);
    struct Case {
        const char* source;
        const char* target;
        std::string text;  // after the four argument lines
        int32_t code = DirCode::DuplicateDir;
    };
    const Case cases[] = {
        {"missing", "t",
         "\n@ CDir::DuplicateDir - failed open dir\n  dir path   = " + Full("missing") +
             "\n  error code = 2\n  error desc = the directory does not exist"},
        {"file", "t",
         "\n@ CDir::DuplicateDir - failed open dir\n  dir path   = " + Full("file") +
             "\n  error code = 20\n  error desc = the path is not a directory"},
        {"src", "no/parent",
         "\n@ CDir::MakeDir - failed create dir\n  dir to create = " + Full("no/parent") +
             "\n  is recursive  = false\n  error code    = 2\n"
             "  error desc    = a component of the path prefix does not exist"},
        {"src", "file",
         "\n@ CDir::MakeDir - failed create dir\n  dir to create = " + Full("file") +
             "\n  is recursive  = false\n  error code    = 17\n"
             "  error desc    = the path already exists"},
        // A target inside the source, by text or through a link, and the
        // source itself are refused before anything is made.
        {"src", "src/sub/new", "nesting"},
        {"src", "src/../src/", "nesting"},
        {"src", "alias/x", "nesting"},
    };
    for (const Case& c : cases) {
        const Thrown thrown =
            Catch<dirExp>([&] { CDir::DuplicateDir(At(c.source), At(c.target), true); });
        const std::string target = Str(CDir::ConvToFullPath(At(c.target)));
        const std::string shown = target.substr(0, target.find_last_not_of('/') + 1);
        const std::string expected =
            c.text == "nesting" ? CopyText(kCopyNesting, Full(c.source), shown, true, true)
                                : CopyText(kCopyFailed, Full(c.source), shown, true, true) + c.text;
        EXPECT_EQ(thrown.message, expected) << c.source << " -> " << c.target;
        EXPECT_EQ(thrown.code, c.code);
    }
    EXPECT_FALSE(Present(Full("t")) || Present(Full("no")) || Present(Full("src/sub/new")) ||
                 Present(Full("src/x")))
        << "nothing made";

    const Thrown empty = Catch<dirExp>([&] { CDir::DuplicateDir(At("src"), stringEx(), false); });
    EXPECT_EQ(empty.message, "CDir::DuplicateDir - nothing to copy");
    EXPECT_EQ(empty.code, DirCode::InvalidArgument);

    CDir::DuplicateDir(At("src"), At("src2"), false);
    EXPECT_EQ(Take(Full("src2")), Take(Full("src"))) << "a sibling named alike is no nesting";
}

TEST_F(DirTree, CopyStopsAtLinkLoopsAndDanglingLinks) {
    // Followed, a link back up the tree or into the target would copy
    // until the paths grew too long.
    Build(Full("loop"), {{"f", "file:f"}, {"sub", "dir"}, {"sub/up", "link:.."}});
    Build(Full("feed"), {{"into_target", "link:" + Full("t2")}});
    Build(Full("t2"), {});
    Build(Full("dangling"), {{"broken", "link:nowhere"}});
    struct Case {
        const char* source;
        const char* target;
        std::string text;
    };
    const Case cases[] = {
        {"loop", "t1", CopyText(kCopyNesting, Full("loop"), Full("t1"), false, true)},
        {"feed", "t2", CopyText(kCopyNesting, Full("feed"), Full("t2"), false, true)},
        {"dangling", "t3",
         CopyText(kCopyFailed, Full("dangling"), Full("t3"), false, true) + kDangling +
             Full("dangling/broken") + kMissingEntry},
    };
    for (const Case& c : cases) {
        const Thrown thrown =
            Catch<dirExp>([&] { CDir::DuplicateDir(At(c.source), At(c.target), false); });
        EXPECT_EQ(thrown.message, c.text);
        EXPECT_EQ(thrown.code, DirCode::DuplicateDir);
    }
    EXPECT_FALSE(Present(Full("t1/sub/up"))) << "refused before it was made";
}

TEST_F(DirTree, CopyOfAnUnreadableDirectoryFailsInsteadOfSkippingIt) {
    ASSERT_EQ(chmod(tree.root.c_str(), 0755), 0);
    ASSERT_EQ(mkdir(Full("shared").c_str(), 0777), 0);
    ASSERT_EQ(chmod(Full("shared").c_str(), 0777), 0);
    const std::string source = Full("shared/src");
    const std::string target = Full("shared/dst");
    const int status = dirtest::RunInChild(
        [&] {
            if (mkdir(source.c_str(), 0755) != 0) return 77;
            if (mkdir((source + "/locked").c_str(), 0) != 0) return 1;
            const Thrown thrown =
                Catch<dirExp>([&] { CDir::DuplicateDir(Ex(source), Ex(target), false); });
            return thrown.message == CopyText(kCopyFailed, source, target, false, true) +
                                         "\n@ CDir::DuplicateDir - failed open dir\n"
                                         "  dir path   = " +
                                         source +
                                         "/locked\n  error code = 13\n"
                                         "  error desc = permission denied"
                       ? 0
                       : 2;
        },
        true);
    if (status == 77) GTEST_SKIP() << "the temporary directory isn't reachable without root";
    EXPECT_EQ(status, 0);
}

// ---- TransferDir ----------------------------------------------------------------------

TEST_F(DirTree, MoveWithinAFileSystemRenamesAndKeepsLinks) {
    MakeSource();
    const Snapshot source = Take(Full("src"));
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat(Full("src/a/b/c/deep").c_str(), &before), 0);
    CDir::TransferDir(At("src/"), At("moved"), false);
    EXPECT_FALSE(Present(Full("src")));
    EXPECT_EQ(Take(Full("moved")), source);
    ASSERT_EQ(stat(Full("moved/a/b/c/deep").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "renamed, not copied";
}

TEST_F(DirTree, MoveAcrossFileSystemsCopiesThenRemoves) {
    struct stat here {};
    struct stat shm {};
    if (stat(tree.root.c_str(), &here) != 0 || stat("/dev/shm", &shm) != 0 ||
        here.st_dev == shm.st_dev || access("/dev/shm", W_OK) != 0) {
        GTEST_SKIP() << "no second writable file system";
    }
    dirtest::EnvGuard tmp("TMPDIR", "/dev/shm");
    dirtest::TempTree other;
    MakeSource();
    CDir::TransferDir(At("src"), Ex(other / "moved"), false);
    EXPECT_FALSE(Present(Full("src")));
    EXPECT_EQ(Take(other / "moved"), CopyOfSource(true));
    EXPECT_EQ(GetFile(Full("outside/far")), "far") << "a link's target is not the source's";

    // A copy that fails half-way leaves the source whole.
    Build(Full("half"), {{"kept", "file:kept"}, {"broken", "link:nowhere"}});
    const Thrown thrown =
        Catch<dirExp>([&] { CDir::TransferDir(At("half"), Ex(other / "half"), false); });
    EXPECT_EQ(thrown.message, MoveText(kMoveFailed, Full("half"), other / "half") + "\n@ " +
                                  CopyText(kCopyFailed, Full("half"), other / "half", false, true) +
                                  kDangling + Full("half/broken") + kMissingEntry);
    EXPECT_EQ(thrown.code, DirCode::TransferDir);
    EXPECT_EQ(Take(Full("half")), (Snapshot{{"kept", "file:kept"}, {"broken", "link:nowhere"}}));
}

TEST_F(DirTree, MoveOntoAnExistingTargetMergesOnlyWithOverwrite) {
    Build(Full("src"), {{"same", "file:new"}, {"only_src", "file:s"}});
    Build(Full("dst"), {{"same", "file:old and longer"}, {"only_dst", "file:d"}});
    const Thrown refused = Catch<dirExp>([&] { CDir::TransferDir(At("src"), At("dst"), false); });
    EXPECT_EQ(refused.message, MoveText(kMoveFailed, Full("src"), Full("dst")) +
                                   "\n  error code = 17\n"
                                   "  error desc = the target path already exists");
    EXPECT_EQ(refused.code, DirCode::TransferDir);
    EXPECT_EQ(GetFile(Full("dst/same")), "old and longer");

    CDir::TransferDir(At("src"), At("dst"), true);
    EXPECT_FALSE(Present(Full("src")));
    EXPECT_EQ(Take(Full("dst")),
              (Snapshot{{"same", "file:new"}, {"only_src", "file:s"}, {"only_dst", "file:d"}}));
}

TEST_F(DirTree, MoveFailureTexts) {
    Build(Full("src"), {{"sub", "dir"}});
    PutFile(Full("file"), "f");
    ASSERT_EQ(symlink("src", Full("alias").c_str()), 0);
    const std::string kNoSource =
        "\n  error code = 2\n"
        "  error desc = the source dir or a directory of the target path does not exist";
    const std::string kNotDir =
        "\n  error code = 20\n"
        "  error desc = the source is not a directory, or a component of a path prefix is not "
        "a directory";
    struct Case {
        const char* source;
        const char* target;
        std::string text;
    };
    const Case cases[] = {
        {"missing", "t", MoveText(kMoveFailed, Full("missing"), Full("t")) + kNoSource},
        {"file", "t", MoveText(kMoveFailed, Full("file"), Full("t")) + kNotDir},
        {"alias", "t", MoveText(kMoveFailed, Full("alias"), Full("t")) + kNotDir},
        {"src", "no/parent", MoveText(kMoveFailed, Full("src"), Full("no/parent")) + kNoSource},
        {"src", "src/sub/t", MoveText(kMoveNesting, Full("src"), Full("src/sub/t"))},
        {"src", "alias", MoveText(kMoveNesting, Full("src"), Full("alias"))},
    };
    for (const Case& c : cases) {
        const Thrown thrown =
            Catch<dirExp>([&] { CDir::TransferDir(At(c.source), At(c.target), true); });
        EXPECT_EQ(thrown.message, c.text) << c.source << " -> " << c.target;
        EXPECT_EQ(thrown.code, DirCode::TransferDir);
    }
    EXPECT_TRUE(Present(Full("src/sub"))) << "nothing moved";
    const Thrown empty = Catch<dirExp>([&] { CDir::TransferDir(stringEx(), At("t"), false); });
    EXPECT_EQ(empty.message, "CDir::TransferDir - nothing to move");
    EXPECT_EQ(empty.code, DirCode::InvalidArgument);
}

// ---- file system queries ---------------------------------------------------------------

TEST(DirStorage, RootAgreesWithTheSystem) {
    struct statvfs expected {};
    ASSERT_EQ(statvfs("/", &expected), 0);
    const StorageTopology topology = CDir::GetStorageTopology("/");
    EXPECT_EQ(topology.blockSize, expected.f_frsize);
    EXPECT_EQ(topology.totalBlocks, expected.f_blocks);
    EXPECT_LE(topology.availableBlocks, topology.freeBlocks);
    EXPECT_LE(topology.freeBlocks, topology.totalBlocks);
    const SpaceInfo space = CDir::GetSpaceInfo("/");
    EXPECT_EQ(space.totalBytes, uint64_t(expected.f_blocks) * expected.f_frsize);
    EXPECT_LE(space.availableBytes, space.freeBytes);
    EXPECT_LE(space.freeBytes, space.totalBytes);
}

TEST(DirStorage, MissingPathIsAFailure) {
    const std::string tail =
        "\n  file path  = /no/such/path\n  error code = 2\n"
        "  error desc = the file referred to by the path does not exist";
    const Thrown topology = Catch<dirExp>([] { CDir::GetStorageTopology("/no/such/path"); });
    EXPECT_EQ(topology.message,
              "CDir::GetStorageTopology - failed retrieve storage's topology info" + tail);
    EXPECT_EQ(topology.code, DirCode::PathStatus);
    const Thrown space = Catch<dirExp>([] { CDir::GetSpaceInfo("/no/such/path"); });
    EXPECT_EQ(space.message, "CDir::GetSpaceInfo - failed retrieve space info" + tail);
    EXPECT_EQ(space.code, DirCode::PathStatus);
}

}  // namespace
}  // namespace Orlo
