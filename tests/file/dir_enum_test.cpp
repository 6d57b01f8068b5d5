// Enumeration: wildcard patterns with and without a directory part, the
// order of results, and which failures end an enumeration and which are
// passed over. Results come in readdir order, which differs between file
// systems, so the order is checked against a reference walk that reads the
// same directories with readdir and stat in the most direct way.

#include <dirent.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "file/dir_test_support.h"
#include "orlo/dir.h"

namespace Orlo {
namespace {

using dirtest::Catch;
using dirtest::Ex;
using dirtest::PutFile;
using dirtest::Str;
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

// ---- reference walk ----------------------------------------------------------------

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

// Every non-directory of the tree, directory by directory in walk order.
Names ReferenceFiles(const std::string& root) {
    Names dirs{root};
    ReferenceSubDirs(root, dirs);
    Names files;
    for (const std::string& dir : dirs)
        for (const std::string& name : ReaddirOrder(dir))
            if (!StatIsDir(dir + "/" + name)) files.push_back(dir + "/" + name);
    return files;
}

// ---- fixtures ------------------------------------------------------------------------

class DirEnum : public ::testing::Test {
  protected:
    void MakeDirs(std::initializer_list<const char*> dirs) {
        for (const char* dir : dirs)
            ASSERT_EQ(mkdir((tree / dir).c_str(), 0755), 0) << dir;
    }
    void MakeFiles(std::initializer_list<const char*> files) {
        for (const char* file : files)
            PutFile(tree / file, file);
    }
    void MakeLink(const char* target, const char* link) {
        ASSERT_EQ(symlink(target, (tree / link).c_str()), 0) << link;
    }

    Names Files(const char* pattern, bool recursive, bool hidden = true, bool tolerant = true) {
        PathList list;
        CDir(Ex(tree.root)).GetAllFiles(list, stringEx(pattern), recursive, hidden, tolerant);
        return Strs(list);
    }
    dirtest::Thrown FilesFailure(bool recursive, bool tolerant) {
        return Catch<dirExp>([&] { Files("*", recursive, true, tolerant); });
    }
    std::string Full(const std::string& relative) const { return tree / relative; }

    dirtest::TempTree tree;
};

TEST_F(DirEnum, WildcardsMatchTheBareNameOnly) {
    MakeDirs({"sub", "sub/deeper", "dir.txt"});
    MakeFiles({"abc", "ac", "a.txt", "A.TXT", "b.TXT", ".profile", "sp ace", "new\nline",
               "\xff\xfe.bin", "sub/x.c", "sub/y.h", "sub/deeper/z.c"});
    MakeLink("abc", "to_file");
    MakeLink("sub", "to_dir");
    const std::string all[] = {"abc",      "ac",     "a.txt",     "A.TXT",        "b.TXT",
                               ".profile", "sp ace", "new\nline", "\xff\xfe.bin", "to_file"};
    struct Case {
        const char* pattern;
        bool hidden;
        Names expected;  // relative to the root
    };
    const Case cases[] = {
        {"*", true, Names(std::begin(all), std::end(all))},
        {"*",
         false,
         {"abc", "ac", "a.txt", "A.TXT", "b.TXT", "sp ace", "new\nline", "\xff\xfe.bin",
          "to_file"}},
        {"", true, Names(std::begin(all), std::end(all))},
        {"a?c", true, {"abc"}},
        {"*.TXT", true, {"A.TXT", "b.TXT"}},  // case-sensitive; "dir.txt" is a directory
        {"*\n*", true, {"new\nline"}},
        {"\xff*", true, {"\xff\xfe.bin"}},
        {"sub/*.c", true, {"sub/x.c"}},
        {"sub/", true, {"sub/x.c", "sub/y.h"}},
        {"to_dir/y.?", true, {"to_dir/y.h"}},
        {"sub/deeper/../*.h", true, {"sub/y.h"}},
        {"./*.c", true, {}},  // "./" is no directory part: the name part is "./*.c"
    };
    for (const Case& c : cases) {
        Names expected;
        for (const std::string& name : c.expected)
            expected.push_back(Full(name));
        EXPECT_EQ(Sorted(Files(c.pattern, false, c.hidden)), Sorted(expected)) << c.pattern;
    }
    EXPECT_EQ(Sorted(Files((tree / "sub/*").c_str(), false)),
              Sorted({Full("sub/x.c"), Full("sub/y.h")}))
        << "an absolute directory part";
}

TEST_F(DirEnum, AppendsAndCountsTheWholeList) {
    MakeFiles({"one", "two"});
    PathList list(5, stringEx("old"));
    stringEx pattern;
    EXPECT_EQ(CDir(Ex(tree.root)).GetAllFiles(list, pattern, false, true, false), 7u);
    EXPECT_EQ(Str(pattern), "*") << "an empty pattern becomes \"*\" for the caller too";
    EXPECT_EQ(Str(list[0]), "old");
}

TEST_F(DirEnum, ResultsFollowTheWalkOrder) {
    MakeDirs({"a", "a/b", "a/b/c", "d", "d/e", ".hid", ".hid/in"});
    MakeFiles(
        {"f1", "f2", "a/f3", "a/b/f4", "a/b/c/f5", "d/f6", "d/e/f7", ".hid/f8", ".hid/in/f9"});
    MakeLink("../d", "a/to_d");  // a link to a directory is walked like one
    EXPECT_EQ(Files("*", true), ReferenceFiles(tree.root));

    Names dirs;
    ReferenceSubDirs(tree.root, dirs);
    PathList subDirs;
    CDir(Ex(tree.root)).GetAllSubDirs(subDirs, stringEx("*"), true, true, false, false);
    EXPECT_EQ(Strs(subDirs), dirs) << "depth first, each directory before its entries";

    // Without hidden names, ".hid" is neither listed nor walked.
    PathList visible;
    CDir(Ex(tree.root)).GetAllSubDirs(visible, stringEx("*"), true, false, false, false);
    for (const stringEx& dir : visible)
        EXPECT_EQ(Str(dir).find(".hid"), std::string::npos) << Str(dir);
    EXPECT_EQ(visible.size(), dirs.size() - 2);

    // The pattern decides what is listed, never where the walk goes.
    PathList deepOnly;
    CDir(Ex(tree.root)).GetAllSubDirs(deepOnly, stringEx("c"), true, true, false, false);
    EXPECT_EQ(Strs(deepOnly), Names{Full("a/b/c")});
}

TEST_F(DirEnum, DotsAreListedOnlyOnRequestAndNeverWalked) {
    MakeDirs({"a"});
    PathList list;
    CDir(Ex(tree.root)).GetAllSubDirs(list, stringEx("*"), true, true, true, false);
    EXPECT_EQ(Sorted(Strs(list)),
              Sorted({Full("."), Full(".."), Full("a"), Full("a/."), Full("a/..")}));
    PathList files;
    CDir(Ex(tree.root)).GetAllFiles(files, stringEx(".*"), false, true, false);
    EXPECT_TRUE(files.empty()) << "\".\" and \"..\" are never files";
}

TEST_F(DirEnum, MissingPatternDirectoryIsAFailure) {
    const dirtest::Thrown thrown = Catch<dirExp>([&] { Files("nosuch/*", false); });
    char cwd[4096];
    ASSERT_TRUE(getcwd(cwd, sizeof cwd));
    EXPECT_EQ(thrown.message,
              "CDir::GetAllFiles - failed find files\n"
              "  base dir = " +
                  tree.root +
                  "/\n"
                  "@ CDir::Open - error open dir, not exist\n"
                  "  dir to open         = " +
                  tree.root + "/nosuch/\n  current working dir = " + cwd);
    EXPECT_EQ(thrown.code, DirCode::EnumFiles);
}

// The failure table: where an entry that can't be examined stands decides
// what happens, and `tolerant` only counts below the first level.
TEST_F(DirEnum, DanglingLinkInTheTopDirectory) {
    MakeFiles({"a"});
    MakeLink("nothing", "bad");
    const std::string inner =
        "@ PosixStat - failed retrive the status of giving path\n"
        "  file path  = " +
        Full("bad") +
        "\n  error code = 2\n"
        "  error desc = a component of the path does not exist, or the path is an empty string";
    const std::string head =
        "CDir::GetAllFiles - failed find files\n  base dir = " + tree.root + "/\n";

    // The file pass: before the first file it hides the directory, after it
    // it fails the call, tolerant or not.
    const Names order = ReaddirOrder(tree.root);
    const bool badFirst = order.front() == "bad";
    for (const bool tolerant : {false, true}) {
        if (badFirst) {
            EXPECT_EQ(Files("*", false, true, tolerant), Names{}) << tolerant;
        } else {
            const dirtest::Thrown thrown = FilesFailure(false, tolerant);
            EXPECT_EQ(thrown.message, head + inner);
            EXPECT_EQ(thrown.code, DirCode::EnumFiles);
        }
    }
    // The walk at the top level fails the call in either mode.
    for (const bool tolerant : {false, true}) {
        EXPECT_EQ(FilesFailure(true, tolerant).message,
                  head + "@ CDir::GetAllSubDirs - failed find subdirs\n  base dir = " + tree.root +
                      "/\n" + inner);
    }
}

TEST_F(DirEnum, FailureBelowTheTopDropsOnlyThatSubtreeWhenTolerant) {
    MakeDirs({"sub", "sib"});
    MakeFiles({"top", "sib/f"});
    MakeLink("nothing", "sub/bad");  // alone, so the file pass skips it silently
    EXPECT_EQ(Sorted(Files("*", true)), Sorted({Full("top"), Full("sib/f")}));

    const dirtest::Thrown thrown = FilesFailure(true, false);
    EXPECT_EQ(thrown.code, DirCode::EnumFiles);
    const std::string walk = "@ CDir::GetAllSubDirs - failed find subdirs\n  base dir = ";
    EXPECT_NE(thrown.message.find(walk + tree.root + "/\n" + walk + Full("sub/") + "\n"),
              std::string::npos)
        << thrown.message;
}

TEST_F(DirEnum, UnreadableDirectoriesReadAsEmpty) {
    MakeDirs({"open", "shut", "shut/inner"});
    MakeFiles({"top", "open/f", "shut/f", "shut/inner/g"});
    ASSERT_EQ(chmod(tree.root.c_str(), 0755), 0);
    ASSERT_EQ(chmod((tree / "shut").c_str(), 0), 0);
    const std::string root = tree.root;
    const int status = dirtest::RunInChild(
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
    MakeDirs({"d", "up"});
    MakeFiles({"f.txt"});
    MakeLink(".", "d/self");  // alone in its directory
    // Tolerant: the walk goes down d/self/self/... until ELOOP and drops the
    // rest; the deepest directory's only entry can't be examined, silently.
    EXPECT_EQ(Files("*", true), Names{Full("f.txt")});

    const dirtest::Thrown thrown = FilesFailure(true, false);
    EXPECT_EQ(thrown.code, DirCode::EnumFiles);
    const std::string eloop = "too many symbolic links encountered while traversing the path";
    EXPECT_EQ(thrown.message.substr(thrown.message.size() - eloop.size()), eloop);

    // A link back to an ancestor: every pass through it finds f.txt again.
    MakeLink("..", "up/back");
    const Names found = Files("*.txt", true);
    EXPECT_GT(found.size(), 10u);
    for (const std::string& path : found)
        EXPECT_EQ(path.substr(path.size() - 6), "/f.txt");
}

TEST_F(DirEnum, SpecialFilesAreFiles) {
    ASSERT_EQ(mkfifo((tree / "fifo").c_str(), 0644), 0);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socketPath = tree / "sock";
    ASSERT_LT(socketPath.size(), sizeof address.sun_path);
    socketPath.copy(address.sun_path, socketPath.size());
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(Sorted(Files("*", false)), Sorted({Full("fifo"), Full("sock")}));
    close(fd);
}

TEST_F(DirEnum, CookieCopiesShareOneStream) {
    MakeFiles({"a", "b", "c", "d"});
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
    EXPECT_TRUE(path.empty());
    EXPECT_EQ(Sorted(seen), Sorted({Full("a"), Full("b"), Full("c"), Full("d")}));

    // A directory that can't be opened ends at once, without a word.
    CDirCookie gone;
    EXPECT_FALSE(CDir::NextDir(Ex(tree / "missing"), gone, path, true, true));
    EXPECT_TRUE(gone.IsNull());
}

}  // namespace
}  // namespace Orlo
