// Enumeration: wildcard patterns with and without a directory part, the
// order of results, and which failures end an enumeration and which are
// passed over. Results come in readdir order, which differs between file
// systems, so the order is checked against a reference walk.

#include <dirent.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "file/file_test_support.h"
#include "orlo/dir.h"

namespace Orlo {
namespace {

using filetest::Catch;
using filetest::Ex;
using filetest::PutFile;
using filetest::Str;
using Names = std::vector<std::string>;

Names Strs(const PathList& list) {
    Names names;
    for (const stringEx& path : list)
        names.push_back(Str(path));
    return names;
}

Names Sorted(Names names) {
    std::sort(names.begin(), names.end());
    return names;
}

// The entries of `dir` in readdir order, but "." and "..".
Names ReaddirOrder(const std::string& dir) {
    Names names;
    DIR* stream = opendir(dir.c_str());
    if (!stream) return names;
    while (const dirent* entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(stream);
    return names;
}

bool StatIsDir(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void ReferenceSubDirs(const std::string& dir, Names& out) {
    for (const std::string& name : ReaddirOrder(dir)) {
        if (!StatIsDir(dir + "/" + name)) continue;
        out.push_back(dir + "/" + name);
        ReferenceSubDirs(dir + "/" + name, out);
    }
}

class DirEnum : public ::testing::Test {
  protected:
    void Make(std::initializer_list<const char*> dirs, std::initializer_list<const char*> files) {
        for (const char* dir : dirs)
            ASSERT_EQ(mkdir((tree / dir).c_str(), 0755), 0) << dir;
        for (const char* file : files)
            PutFile(tree / file, file);
    }
    void MakeLink(const char* target, const char* link) {
        ASSERT_EQ(symlink(target, (tree / link).c_str()), 0) << link;
    }
    Names Files(const std::string& pattern, bool recursive, bool hidden = true,
                bool tolerant = true) {
        PathList list;
        CDir(Ex(tree.root)).GetAllFiles(list, Ex(pattern), recursive, hidden, tolerant);
        return Strs(list);
    }
    filetest::Thrown FilesFailure(bool recursive, bool tolerant) {
        return Catch<dirExp>([&] { Files("*", recursive, true, tolerant); });
    }
    std::string Full(const std::string& relative) const { return tree / relative; }

    filetest::TempTree tree;
};

TEST_F(DirEnum, WildcardsMatchTheBareNameOnly) {
    Make({"sub", "sub/deeper", "dir.txt"}, {"abc", "a.txt", "A.TXT", "b.TXT", ".profile",
                                            "new\nline", "\xff\xfe.bin", "sub/x.c", "sub/y.h"});
    ASSERT_EQ(mkfifo((tree / "fifo").c_str(), 0644), 0);
    MakeLink("abc", "to_file");
    MakeLink("sub", "to_dir");
    struct Case {
        std::string pattern;
        bool hidden;
        Names expected;  // relative to the root
    } cases[] = {
        {"*",
         true,
         {"abc", "a.txt", "A.TXT", "b.TXT", ".profile", "new\nline", "\xff\xfe.bin", "fifo",
          "to_file"}},
        {"",
         false,
         {"abc", "a.txt", "A.TXT", "b.TXT", "new\nline", "\xff\xfe.bin", "fifo", "to_file"}},
        {"a?c", true, {"abc"}},
        {"*.TXT", true, {"A.TXT", "b.TXT"}},  // case-sensitive; "dir.txt" is a directory
        {"\xff*", true, {"\xff\xfe.bin"}},
        {"sub/*.c", true, {"sub/x.c"}},
        {"sub/", true, {"sub/x.c", "sub/y.h"}},
        {"to_dir/y.?", true, {"to_dir/y.h"}},
        {"sub/deeper/../*.h", true, {"sub/y.h"}},
        {tree / "sub/*", true, {"sub/x.c", "sub/y.h"}},
    };
    for (const Case& c : cases) {
        Names expected;
        for (const std::string& name : c.expected)
            expected.push_back(Full(name));
        EXPECT_EQ(Sorted(Files(c.pattern, false, c.hidden)), Sorted(expected)) << c.pattern;
    }
    EXPECT_EQ(Catch<dirExp>([&] { Files("nosuch/*", false); }).code, DirCode::EnumFiles);
}

TEST_F(DirEnum, RecursionFollowsTheWalkOrder) {
    Make({"a", "a/b", "a/b/c", "d", ".hid", ".hid/in"},
         {"f1", "a/f3", "a/b/f4", "a/b/c/f5", "d/f6", ".hid/in/f9"});
    MakeLink("../d", "a/to_d");  // a link to a directory is walked like one
    Names dirs;
    ReferenceSubDirs(tree.root, dirs);
    PathList subDirs;
    CDir(Ex(tree.root)).GetAllSubDirs(subDirs, stringEx("*"), true, true, false, false);
    EXPECT_EQ(Strs(subDirs), dirs) << "depth first, each directory before its entries";
    Names all{tree.root}, reference;
    all.insert(all.end(), dirs.begin(), dirs.end());
    for (const std::string& dir : all)
        for (const std::string& name : ReaddirOrder(dir))
            if (!StatIsDir(dir + "/" + name)) reference.push_back(dir + "/" + name);
    EXPECT_EQ(Files("*", true), reference);

    // Without hidden names, ".hid" is neither listed nor walked.
    for (const std::string& path : Files("*", true, false))
        EXPECT_EQ(path.find(".hid"), std::string::npos) << path;

    // The pattern decides what is listed, never where the walk goes.
    PathList deepOnly;
    CDir(Ex(tree.root)).GetAllSubDirs(deepOnly, stringEx("c"), true, true, false, false);
    EXPECT_EQ(Strs(deepOnly), Names{Full("a/b/c")});

    PathList dots;
    CDir(Ex(tree / "d")).GetAllSubDirs(dots, stringEx("*"), true, true, true, false);
    EXPECT_EQ(Sorted(Strs(dots)), Sorted({Full("d/."), Full("d/..")})) << "listed, never walked";
}

// The failure table: where an entry that can't be examined stands decides
// what happens, and `tolerant` only counts below the first level.
TEST_F(DirEnum, DanglingLinkInTheTopDirectory) {
    Make({}, {"a"});
    MakeLink("nothing", "bad");
    // The file pass: before the first file it hides the directory, after it
    // it fails the call, tolerant or not.
    const bool badFirst = ReaddirOrder(tree.root).front() == "bad";
    for (const bool tolerant : {false, true}) {
        if (badFirst) {
            EXPECT_EQ(Files("*", false, true, tolerant), Names{}) << tolerant;
        } else {
            const filetest::Thrown thrown = FilesFailure(false, tolerant);
            EXPECT_EQ(thrown.message,
                      "CDir::GetAllFiles - failed find files\n  base dir = " + tree.root +
                          "/\n@ PosixStat - failed retrive the status of giving "
                          "path\n  file path  = " +
                          Full("bad") +
                          "\n  error code = 2\n  error desc = a component of the "
                          "path does not exist, or the path is an empty string");
            EXPECT_EQ(thrown.code, DirCode::EnumFiles);
        }
        // The walk at the top level fails the call in either mode.
        EXPECT_EQ(FilesFailure(true, tolerant).code, DirCode::EnumFiles);
    }
}

TEST_F(DirEnum, FailureBelowTheTopDropsOnlyThatSubtreeWhenTolerant) {
    Make({"sub", "sib"}, {"top", "sib/f"});
    MakeLink("nothing", "sub/bad");  // alone, so the file pass skips it silently
    EXPECT_EQ(Sorted(Files("*", true)), Sorted({Full("top"), Full("sib/f")}));
    const filetest::Thrown thrown = FilesFailure(true, false);
    const std::string walk = "@ CDir::GetAllSubDirs - failed find subdirs\n  base dir = ";
    EXPECT_NE(thrown.message.find(walk + tree.root + "/\n" + walk + Full("sub/") + "\n"),
              std::string::npos)
        << thrown.message;
}

TEST_F(DirEnum, UnreadableDirectoriesReadAsEmpty) {
    Make({"open", "shut", "shut/inner"}, {"top", "open/f", "shut/f", "shut/inner/g"});
    ASSERT_EQ(chmod(tree.root.c_str(), 0755), 0);
    ASSERT_EQ(chmod((tree / "shut").c_str(), 0), 0);
    const std::string root = tree.root;
    const int status = filetest::RunInChild(
        [&] {
            if (access(root.c_str(), R_OK | X_OK) != 0) return 77;  // the tree is out of reach
            for (const bool tolerant : {false, true}) {
                PathList list;
                CDir(Ex(root)).GetAllFiles(list, stringEx("*"), true, true, tolerant);
                if (Sorted(Strs(list)) != Sorted({root + "/open/f", root + "/top"})) return 1;
                PathList none;
                CDir(Ex(root + "/shut"), false, true)
                    .GetAllFiles(none, stringEx("*"), true, true, tolerant);
                if (!none.empty()) return 2;
            }
            return 0;
        },
        true);
    if (status == 77) GTEST_SKIP() << "the temporary directory isn't reachable without root";
    EXPECT_EQ(status, 0);
}

TEST_F(DirEnum, SymbolicLinkLoopsEndWhenTheSystemRefuses) {
    Make({"d", "up"}, {"f.txt"});
    MakeLink(".", "d/self");  // alone in its directory
    // Tolerant: the walk goes down d/self/self/... until ELOOP and drops the rest.
    EXPECT_EQ(Files("*", true), Names{Full("f.txt")});
    EXPECT_TRUE(
        FilesFailure(true, false)
            .message.ends_with("too many symbolic links encountered while traversing the path"));
    // A link back to an ancestor: every pass through it finds f.txt again.
    MakeLink("..", "up/back");
    const Names found = Files("*.txt", true);
    EXPECT_GT(found.size(), 10u);
    for (const std::string& path : found)
        EXPECT_TRUE(path.ends_with("/f.txt")) << path;
}

TEST_F(DirEnum, CookieCopiesShareOneStream) {
    Make({}, {"a", "b", "c"});
    const stringEx dir = Ex(tree.root);
    CDirCookie first;
    stringEx path;
    Names seen;
    ASSERT_TRUE(CDir::NextFile(dir, first, path, true));
    seen.push_back(Str(path));
    {
        CDirCookie copy(first);
        ASSERT_TRUE(CDir::NextFile(dir, copy, path, true));
        seen.push_back(Str(path));
    }  // the copy's release leaves the stream open for `first`
    while (CDir::NextFile(dir, first, path, true))
        seen.push_back(Str(path));
    EXPECT_TRUE(first.IsNull()) << "the end of the directory releases the cookie";
    EXPECT_EQ(Sorted(seen), Sorted({Full("a"), Full("b"), Full("c")}));
    CDirCookie gone;
    EXPECT_FALSE(CDir::NextDir(Ex(tree / "missing"), gone, path, true, true));
}

}  // namespace
}  // namespace Orlo
