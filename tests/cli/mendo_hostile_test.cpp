// mendo when the world around it moves: files changed, deleted or locked by
// others during a run, a write cut short by the file-size limit, outputs
// whose readers leave, a link loop under -s, 100,000 files in one folder and
// 2 GiB on standard input. Every run has a time limit, so that a hang fails
// instead of blocking the suite, and outputs and files are compared exactly.
//
// Where timing would decide, the run is made deterministic: it starts with a
// full standard error pipe and a locked file early in its list, so mendo
// waits to report that file's read failure with the files before it done and
// those after it unread, and the test changes the next file meanwhile. The
// races (HostileRaces) are real, and accept what some interleaving allows:
// a whole file or a failure's report, never a torn file.

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include "cli/run_mendo.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using mendo_test::Printable;
using mendo_test::RunResult;
using mendo_test::RunSpec;
using mendo_test::RunWith;
using Args = std::vector<std::string>;
using Clock = std::chrono::steady_clock;
using Tree = std::map<std::string, std::string>;  // path below the root -> what stands there

// Sanitized builds run the largest cases on smaller sizes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

// Long enough for the largest case in a sanitized build.
constexpr auto kRunTimeout = std::chrono::milliseconds(kSanitized ? 600s : 180s);
constexpr time_t kOld = 1000000000;  // the time stamp of every file a test writes

// Appends piecewise: g++ -O3 warns on chains of + around std::to_string.
template <class... Parts>
std::string Cat(const Parts&... parts) {
    std::string text;
    ((text += parts), ...);
    return text;
}

std::string Repeat(const std::string& piece, size_t times) {
    std::string text;
    for (size_t i = 0; i < times; ++i)
        text += piece;
    return text;
}

std::string CountLine(uint64_t count, const std::string& path) {
    return Cat("\n## ", std::to_string(count), " replacements in file: ", path, "\n");
}
std::string TotalLine(uint64_t total) {
    return Cat("\n## total replaced ", std::to_string(total), " matchs\n");
}
std::string ReadFailure(const std::string& path) {
    return Cat("[ERROR] failed reading file: ", path, "\n");
}
std::string WriteFailure(const std::string& path, const std::string& message) {
    return Cat("[ERROR] can't write to file: ", path, "\n  ", message, "\n");
}
// The guarded write's exclusive lock, refused because another holds the file.
std::string ShareConflict(const std::string& path) {
    return Cat("SetShareMode - failed set file sharing mode\n  file path    = ", path,
               "\n  sharing mode = exclusive\n  error code   = ", std::to_string(EAGAIN),
               "\n  error desc   = sharing mode conflict");
}
// A write that the file-size limit refuses; the library words it as a read.
std::string FileTooBig(const std::string& path) {
    return Cat("CSysFile::Read - failed reading file\n  file path  = ", path,
               "\n  error code = ", std::to_string(EFBIG),
               "\n  error desc = no room for write, or offset out-of-range");
}

void ExpectRun(const RunResult& r, int status, const std::string& out, const std::string& err) {
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, status) << "-1: killed by a signal";
    EXPECT_EQ(r.out, out) << Printable(r.out);
    EXPECT_EQ(r.err, err) << Printable(r.err);
}

void Overwrite(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// Without following links, and far quicker than fs::remove_all over a
// folder of 100,000 files.
void RemoveTree(const std::string& root) {
    nftw(
        root.c_str(), [](const char* path, const struct stat*, int, FTW*) { return remove(path); },
        16, FTW_DEPTH | FTW_PHYS);
}

bool WaitFor(const std::function<bool()>& condition) {
    const auto until = Clock::now() + 30s;
    while (!condition()) {
        if (Clock::now() > until) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

class HostileDir : public ::testing::Test {
  protected:
    explicit HostileDir(std::string base = "/tmp") : root_(std::move(base)) {}

    void SetUp() override {
        root_ += "/mendo-hostile-XXXXXX";
        ASSERT_NE(mkdtemp(root_.data()), nullptr);
    }
    void TearDown() override { RemoveTree(root_); }
    void Empty() const {
        RemoveTree(root_);
        fs::create_directory(root_);
    }

    std::string Path(const std::string& relative) const { return root_ + "/" + relative; }

    // Dated back, so that a rewrite shows even within one second.
    void Build(const Tree& files) const {
        for (const auto& [relative, bytes] : files) {
            fs::create_directories(fs::path(Path(relative)).parent_path());
            Overwrite(Path(relative), bytes);
            struct timespec old[2] = {{kOld, 0}, {kOld, 0}};
            utimensat(AT_FDCWD, Path(relative).c_str(), old, 0);
        }
    }

    std::string Read(const std::string& relative) const {
        std::stringstream text;
        text << std::ifstream(Path(relative), std::ios::binary).rdbuf();
        return text.str();
    }

    // What stands at `relative`, links not followed: a file's bytes (its size
    // alone when too large to compare), or in brackets what else.
    std::string What(const std::string& relative) const {
        struct stat info {};
        lstat(Path(relative).c_str(), &info);
        if (S_ISLNK(info.st_mode)) return Cat("<link to ", fs::read_symlink(Path(relative)), ">");
        if (S_ISDIR(info.st_mode)) return "<directory>";
        if (!S_ISREG(info.st_mode)) return "<other>";
        if (info.st_size > (64 << 20)) return Cat("<", std::to_string(info.st_size), " bytes>");
        return Read(relative);
    }
    Tree Snapshot() const {
        Tree tree;
        for (const auto& entry : fs::recursive_directory_iterator(root_)) {
            const std::string relative = entry.path().lexically_relative(root_);
            tree[relative] = What(relative);
        }
        return tree;
    }

    RunSpec Spec(Args args, const char* extra = "") const {
        if (*extra) args.push_back(extra);
        RunSpec spec;
        spec.args = args;
        spec.workDir = root_;
        spec.timeout = kRunTimeout;
        return spec;
    }

    std::string root_;
};

constexpr int kRecordLock = -1;  // an fcntl write lock over the whole file, not a flock

// Holds `lock` (LOCK_SH, LOCK_EX or kRecordLock) on `path` while it lives.
// mendo runs in a process of its own, to which this one is another holder.
struct HeldLock {
    HeldLock(const std::string& path, int lock) : fd(open(path.c_str(), O_RDWR | O_CLOEXEC)) {
        struct flock whole {};
        whole.l_type = F_WRLCK;
        held = fd >= 0 &&
               (lock == kRecordLock ? fcntl(fd, F_SETLK, &whole) : flock(fd, lock | LOCK_NB)) == 0;
    }
    ~HeldLock() { close(fd); }

    const int fd;
    bool held;
};

// a.txt, p.txt, b.txt and c.txt are listed, and p.txt is locked: with a.txt
// done, mendo waits to report p.txt's failure, and the test changes b.txt.
// mendo takes what stands there when its turn comes: a file of another size
// whole, a missing or unreadable one as a read failure, and it creates
// nothing in its place.
TEST_F(HostileDir, AFileThatChangesBetweenListingAndReadIsTakenAsItIsThen) {
    const std::string b = Path("b.txt");
    struct ChangeCase {
        const char* name;
        uint64_t bCount;  // replacements in what mendo reads at b.txt; 0: no count line
        bool bReadFails;
        Tree bAfter;  // what stands at b.txt, and at any name the change made, afterwards
        std::function<void()> change;
    };
    // clang-format off
    const ChangeCase cases[] = {
        {"grown in place", 100000, false, {{"b.txt", Repeat("the ", 100000)}},
         [&] { Overwrite(b, Repeat("teh ", 100000)); }},
        {"shrunk in place", 1, false, {{"b.txt", "the"}},
         [&] { Overwrite(b, "teh"); }},
        {"cut to nothing", 0, false, {{"b.txt", ""}},
         [&] { ASSERT_EQ(truncate(b.c_str(), 0), 0); }},
        {"replaced by another file under its name", 2, false, {{"b.txt", "the the"}},
         [&] { Overwrite(b + ".new", "teh teh");
               ASSERT_EQ(rename((b + ".new").c_str(), b.c_str()), 0); }},
        {"grown to 2^32 + 10 bytes (sparse), past one string", 0, true,
         {{"b.txt", "<4294967306 bytes>"}},
         [&] { ASSERT_EQ(truncate(b.c_str(), off_t(4294967306)), 0); }},
        {"deleted", 0, true, {},
         [&] { ASSERT_EQ(unlink(b.c_str()), 0); }},
        {"a directory in its place", 0, true, {{"b.txt", "<directory>"}},
         [&] { ASSERT_TRUE(unlink(b.c_str()) == 0 && mkdir(b.c_str(), 0755) == 0); }},
        {"a dangling link in its place", 0, true, {{"b.txt", "<link to gone.dat>"}},
         [&] { ASSERT_TRUE(unlink(b.c_str()) == 0 && symlink("gone.dat", b.c_str()) == 0); }},
        {"a link to a file no pattern names, read and written through the link", 1, false,
         {{"b.txt", "<link to d.dat>"}, {"d.dat", "the d\n"}},
         [&] { Overwrite(Path("d.dat"), "teh d\n");
               ASSERT_TRUE(unlink(b.c_str()) == 0 && symlink("d.dat", b.c_str()) == 0); }},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Empty();
        Build({{"a.txt", "teh a\n"},
               {"p.txt", "teh p\n"},
               {"b.txt", Repeat("teh ", 1000)},
               {"c.txt", "teh c\n"}});
        HeldLock pLock(Path("p.txt"), LOCK_EX);
        ASSERT_TRUE(pLock.held);

        RunSpec spec =
            Spec({"a.txt", "p.txt", "b.txt", "c.txt", "-f:teh", "-t:the", "-frc", "-trc"});
        spec.whileStderrFull = [&] {
            EXPECT_TRUE(WaitFor([&] { return Read("a.txt") == "the a\n"; }))
                << "a.txt not rewritten";
            c.change();
        };
        const auto r = RunWith(spec);

        const std::string bLine = c.bCount ? CountLine(c.bCount, b) : "";
        ExpectRun(r, 0,
                  Cat(CountLine(1, Path("a.txt")), bLine, CountLine(1, Path("c.txt")),
                      TotalLine(2 + c.bCount)),
                  ReadFailure(Path("p.txt")) + (c.bReadFails ? ReadFailure(b) : ""));
        Tree after = c.bAfter;
        after.insert({{"a.txt", "the a\n"}, {"p.txt", "teh p\n"}, {"c.txt", "the c\n"}});
        EXPECT_EQ(Snapshot(), after);
    }
}

// mendo's read takes a shared flock and its write an exclusive one, neither
// waiting: a shared holder lets mendo read but not write, an exclusive one
// neither. A record lock is another mechanism and stops nothing.
TEST_F(HostileDir, AFileAnotherHolderLocksIsReportedAndLeftAlone) {
    const std::string a = Path("a.txt"), b = Path("b.txt");
    struct LockCase {
        const char* name;
        int lock;
        const char* extra;  // a switch more, or ""
        std::string out, err;
        int status;
        bool aRewritten, bRewritten;
    };
    const LockCase cases[] = {
        {"shared", LOCK_SH, "", CountLine(1, b) + TotalLine(1), WriteFailure(a, ShareConflict(a)),
         0, false, true},
        {"shared, -stdout only reads", LOCK_SH, "-stdout", "the a\nthe b\n" + TotalLine(2), "", 0,
         false, false},
        {"exclusive, -stdout", LOCK_EX, "-stdout", "the b\n" + TotalLine(1), ReadFailure(a), 0,
         false, false},
        {"exclusive, -errstop", LOCK_EX, "-errstop", "", ReadFailure(a), 255, false, false},
        {"a record lock is no flock", kRecordLock, "",
         CountLine(1, a) + CountLine(1, b) + TotalLine(2), "", 0, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Build({{"a.txt", "teh a\n"}, {"b.txt", "teh b\n"}});
        HeldLock holder(a, c.lock);
        ASSERT_TRUE(holder.held);

        ExpectRun(RunWith(Spec({"a.txt", "b.txt", "-f:teh", "-t:the", "-frc", "-trc"}, c.extra)),
                  c.status, c.out, c.err);
        EXPECT_EQ(Read("a.txt"), c.aRewritten ? "the a\n" : "teh a\n");
        EXPECT_EQ(Read("b.txt"), c.bRewritten ? "the b\n" : "teh b\n");
        struct stat info {};
        EXPECT_TRUE(stat(a.c_str(), &info) == 0 && (info.st_mtime != kOld) == c.aRewritten)
            << "a.txt's time stamp tells another story";
    }
}

// The guarded write empties the file once it holds the lock and keeps no
// copy, so a write stopped by the file-size limit leaves the result's first
// `limit` bytes. mendo ignores SIGXFSZ: a short write is counted as done,
// without a word, and only a write refused outright is reported.
TEST_F(HostileDir, AWriteCutShortByTheFileSizeLimitLeavesWhatGotThrough) {
    const std::string a = Path("a.txt"), b = Path("b.txt");
    const std::string result = Repeat("theee.", 1024);  // 6144 bytes, from 4096
    const std::string bothCounted = CountLine(1024, a) + CountLine(1, b) + TotalLine(1025);
    const std::string noRoom = WriteFailure(a, FileTooBig(a));
    struct LimitCase {
        const char* name;
        uint64_t limit;
        const char* extra;  // a switch more, or ""
        std::string out, err;
        int status;
        std::string aAfter, bAfter;
    };
    const LimitCase cases[] = {
        {"exactly the new size", 6144, "", bothCounted, "", 0, result, "theee"},
        {"one byte short", 6143, "", bothCounted, "", 0, result.substr(0, 6143), "theee"},
        {"the old size", 4096, "", bothCounted, "", 0, result.substr(0, 4096), "theee"},
        {"no room at all", 0, "", "", noRoom + WriteFailure(b, FileTooBig(b)), 0, "", ""},
        {"no room at all, -errstop", 0, "-errstop", "", noRoom, 255, "", "teh"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Build({{"a.txt", Repeat("teh.", 1024)}, {"b.txt", "teh"}});
        RunSpec spec = Spec({"a.txt", "b.txt", "-f:teh", "-t:theee", "-frc", "-trc"}, c.extra);
        spec.limits = {{RLIMIT_FSIZE, c.limit}};
        ExpectRun(RunWith(spec), c.status, c.out, c.err);
        EXPECT_EQ(Read("a.txt"), c.aAfter);
        EXPECT_EQ(Read("b.txt"), c.bAfter);
    }
}

// `mendo ... | head -c N`, at the start and deep into a large output: the
// write into the closed pipe fails (SIGPIPE is ignored), the rest of the
// output is dropped without a word, and the run ends as usual.
TEST(HostileClosedOutput, APipeReaderThatLeavesEarlyCostsOnlyTheOutput) {
    const std::string input(size_t(16) << 20, 'a');  // far more than a widened pipe holds
    for (const char* strategy : {"-exp", "-noexp"}) {
        for (size_t keep : {size_t(0), size_t(1) << 20, size_t(3) << 20}) {
            SCOPED_TRACE(Cat(strategy, ", reader keeps ", std::to_string(keep)));
            RunSpec spec;
            spec.args = {"-f:a", "-t:b", "-trc", strategy};
            spec.input = input;
            spec.stdoutReadLimit = keep;
            spec.timeout = kRunTimeout;
            ExpectRun(RunWith(spec), 0, std::string(keep, 'b'), "");
        }
    }
}

// With files the outputs carry only reports: closing them stops no rewrite
// and changes no status.
TEST_F(HostileDir, ClosedOutputsDoNotStopTheRewrites) {
    const std::string a = Path("a.txt"), b = Path("b.txt"), p = Path("p.txt");
    struct ClosedCase {
        const char* name;
        bool stdoutClosed, stderrClosed;
        const char* extra;  // a switch more, or ""
        std::string out, err;
        int status;
        std::string bAfter;
    };
    const ClosedCase cases[] = {
        {"standard output closed", true, false, "", "", ReadFailure(p), 0, "the b\n"},
        {"standard error closed", false, true, "", CountLine(1, a) + CountLine(1, b) + TotalLine(2),
         "", 0, "the b\n"},
        {"both closed", true, true, "", "", "", 0, "the b\n"},
        {"standard error closed, -errstop", false, true, "-errstop", CountLine(1, a), "", 255,
         "teh b\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Build({{"a.txt", "teh a\n"}, {"b.txt", "teh b\n"}});
        unlink(p.c_str());
        ASSERT_EQ(mkfifo(p.c_str(), 0644), 0);  // a read failure that never waits

        RunSpec spec =
            Spec({"a.txt", "p.txt", "b.txt", "-f:teh", "-t:the", "-frc", "-trc"}, c.extra);
        if (c.stdoutClosed) spec.stdoutReadLimit = 0;
        if (c.stderrClosed) spec.stderrReadLimit = 0;
        ExpectRun(RunWith(spec), c.status, c.out, c.err);
        EXPECT_EQ(Read("a.txt"), "the a\n");
        EXPECT_EQ(Read("b.txt"), c.bAfter);
    }
}

// A link to a directory is followed as one, without a test for loops, until
// a path holds more links than one lookup follows (40 on Linux) and stat
// refuses it with ELOOP. Below the top level that drops the subtree and the
// run goes on, so a file in the loop is listed once per depth: rewritten
// the first time, without a match after that.
constexpr int kLinksPerLookup = 40;
constexpr char kFatalListing[] =
    "[FATAL ERROR] Orlo runtime lib error: CDir::GetAllFiles - failed find files\n  base dir = ";

// Up to the system's words for ELOOP, which end the message.
std::string RefusedStat(const std::string& path) {
    return Cat("@ PosixStat - failed retrive the status of giving path\n  file path  = ", path,
               "\n  error code = ", std::to_string(ELOOP), "\n  error desc = ");
}

// The fatal error of a listing that a refused path ended: the head, then
// `wrapping`, and somewhere after it the refused stat of `refused`, which is
// the innermost report and whose last line, the system's words, ends it all.
void ExpectRefusedListing(const std::string& err, const std::string& root,
                          const std::string& wrapping, const std::string& refused) {
    EXPECT_EQ(err.rfind(Cat(kFatalListing, root, "/\n", wrapping), 0), 0u) << err;
    const size_t at = err.find(RefusedStat(refused));
    ASSERT_NE(at, std::string::npos) << err;
    EXPECT_EQ(err.find("\n@ ", at), std::string::npos) << "the refused stat is the innermost";
    EXPECT_EQ(err.find('\n', at + RefusedStat(refused).size()), err.size() - 1) << err;
}

// The name among `names` that readdir gives first in `dir`.
std::string FirstListed(const std::string& dir, const std::set<std::string>& names) {
    for (const auto& entry : fs::directory_iterator(dir)) {
        if (names.count(entry.path().filename())) return entry.path().filename();
    }
    return "";
}

TEST_F(HostileDir, ALinkLoopUnderSEndsWhereTheSystemRefusesThePath) {
    struct LoopCase {
        const char* name;
        std::string link, target;
        bool withC;  // links/c.txt inside the loop, beside the link
    };
    const LoopCase cases[] = {
        {"a link up to its parent, alone in its folder", "links/up", "..", false},
        {"an absolute link to the top, alone in its folder", "links/top", root_, false},
        // The deepest copy of links/ holds c.txt and a link that stat
        // refuses, and readdir's order decides. If the link comes first the
        // rest of that folder is hidden: c.txt is listed at each depth but
        // the deepest, and a.txt, outside the loop, once.
        {"a link to its own folder, beside a file", "links/self", ".", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Empty();
        Build({{"a.txt", "teh"}});
        if (c.withC) Build({{"links/c.txt", "teh"}});
        fs::create_directories(Path("links"));
        ASSERT_EQ(symlink(c.target.c_str(), Path(c.link).c_str()), 0);
        const std::string linkName = fs::path(c.link).filename();

        // -stdout prints every listing of a file.
        const auto listed = RunWith(Spec({"*.txt", "-s", "-f:teh", "-t:the", "-stdout", "-trc"}));
        const auto rewrite = RunWith(Spec({"*.txt", "-s", "-f:teh", "-t:the", "-frc", "-trc"}));
        if (c.withC && FirstListed(Path("links"), {"c.txt", linkName}) == "c.txt") {
            // A later entry that stat refuses fails the whole listing.
            const std::string deepest = Path("links") + Repeat("/" + linkName, kLinksPerLookup + 1);
            for (const auto* r : {&listed, &rewrite}) {
                EXPECT_FALSE(r->timedOut);
                EXPECT_EQ(r->status, 0);
                EXPECT_EQ(r->out, "");
                ExpectRefusedListing(r->err, root_, RefusedStat(deepest), deepest);
            }
            EXPECT_EQ(Read("a.txt"), "teh");
            continue;
        }
        const int visits = kLinksPerLookup + 1;
        ExpectRun(listed, 0, Repeat("the", visits) + TotalLine(visits), "");
        std::string out = CountLine(1, Path("a.txt"));
        if (c.withC) out += CountLine(1, Path("links/c.txt"));
        ExpectRun(rewrite, 0, out + TotalLine(c.withC ? 2 : 1), "");
        EXPECT_EQ(Read("a.txt"), "the");
    }
}

// Without tolerance the refused path below the top ends the listing: a fatal
// error that wraps the walk's failures level by level, and no file touched.
TEST_F(HostileDir, ALinkLoopUnderSWithErrstopIsAFatalListingError) {
    Build({{"a.txt", "teh"}});
    fs::create_directories(Path("links"));
    ASSERT_EQ(symlink("..", Path("links/up").c_str()), 0);
    const auto r = RunWith(Spec({"*.txt", "-s", "-f:teh", "-t:the", "-errstop"}));
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    ExpectRefusedListing(
        r.err, root_,
        Cat("@ CDir::GetAllSubDirs - failed find subdirs\n  base dir = ", root_, "/\n"),
        root_ + Repeat("/links/up", kLinksPerLookup + 1));
    EXPECT_EQ(Read("a.txt"), "teh");
}

// Making and removing 100,000 files on a journalled disk costs far more than
// mendo does, and varies with the machine's load; in memory it is quick.
class HostileManyFiles : public HostileDir {
  protected:
    HostileManyFiles() : HostileDir(fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp") {}
};

TEST_F(HostileManyFiles, AHundredThousandFilesInOneFolderAreAllRewritten) {
    const size_t count = kSanitized ? 20000 : 100000;
    const std::string dir = Path("many");
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    const auto content = [](const std::string& name, const char* word) {
        return Cat(word, " ", name, "\n");  // each file its own bytes
    };
    for (size_t i = 0; i < count; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "f%06zu.txt", i);
        Overwrite(dir + "/" + name, content(name, "teh"));
    }
    std::string out;  // the count lines, in the folder's own readdir order
    for (const auto& entry : fs::directory_iterator(dir))
        out += CountLine(1, entry.path());

    RunSpec spec = Spec({"*.txt", "-f:teh", "-t:the", "-frc", "-trc"});
    spec.workDir = dir;
    const auto start = Clock::now();
    const auto r = RunWith(spec);
    const std::chrono::duration<double> took = Clock::now() - start;
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(r.out == out + TotalLine(count)) << "the count lines differ";
    size_t right = 0;
    for (const auto& entry : fs::directory_iterator(dir))
        right += Read("many/" + entry.path().filename().string()) ==
                 content(entry.path().filename(), "the");
    EXPECT_EQ(right, count) << "files not rewritten";
    EXPECT_LT(took.count(), kSanitized ? 120 : 30);
}

// Numbered text, so that a block out of place or a byte lost shows at once:
// `head`, the block's number in 8 hex digits and a filler to 64 bytes of
// input.
struct Blocks {
    explicit Blocks(const std::string& head)
        : block(head + " 00000000 " + std::string(50, '-') + "\n") {}
    void AppendTo(std::string& text) {
        text += block;
        for (uint64_t number = next++, at = text.size() - 53; number; number >>= 4, --at)
            text[at] = "0123456789abcdef"[number & 15];
    }

    const std::string block;
    uint64_t next = 0;  // the number of the next block
};

// The whole input is held in one string, and 2 GiB is past any signed 32-bit
// count. Out comes the input replaced, the stray 0xFF of the end-of-input
// read, and the total. Neither is ever held whole here.
TEST(HostileHugeStdin, TwoGibibytesOnStandardInputComeOutWhole) {
    const uint64_t blocks = (kSanitized ? uint64_t(256) << 20 : uint64_t(2) << 30) / 64;
    Blocks input("teh"), output("ThE!");
    std::string made, want;  // input made for the pipe, output expected but not yet seen
    uint64_t got = 0, firstDifference = UINT64_MAX;
    RunSpec spec;
    spec.args = {"-f:teh", "-t:ThE!", "-trc"};
    spec.timeout = kRunTimeout;
    spec.source = [&](char* buffer, size_t room) {
        made.clear();
        while (made.size() + 64 <= room && input.next < blocks)
            input.AppendTo(made);
        std::memcpy(buffer, made.data(), made.size());
        return made.size();
    };
    spec.sink = [&](std::string_view chunk) {
        while (want.size() < chunk.size() && output.next < blocks)
            output.AppendTo(want);
        if (output.next == blocks) {  // then the end, once
            want += Cat("\xFF", TotalLine(blocks));
            ++output.next;
        }
        const auto same = std::mismatch(chunk.begin(), chunk.end(), want.begin(), want.end());
        if (same.first != chunk.end() && firstDifference == UINT64_MAX)
            firstDifference = got + uint64_t(same.first - chunk.begin());
        want.erase(0, chunk.size());
        got += chunk.size();
    };
    const auto start = Clock::now();
    const auto r = RunWith(spec);
    const std::chrono::duration<double> took = Clock::now() - start;
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "") << Printable(r.err);
    EXPECT_EQ(firstDifference, UINT64_MAX) << "the output differs from byte " << firstDifference;
    EXPECT_TRUE(output.next > blocks && want.empty()) << "the output ends early, at byte " << got;
    EXPECT_LT(took.count(), kSanitized ? 300 : 90);
}

std::string Numbered(size_t i) {
    return Cat("f", std::to_string(i), ".txt");
}

class HostileRaces : public HostileDir {
  protected:
    // The reports a file may get, exactly as printed: a count line with its
    // count, or a failure with 0.
    using Allowed = std::vector<std::pair<std::string, uint64_t>>;

    // What every interleaving must give over f0.txt to f<files - 1>.txt: a
    // clean end, each file named by exactly one of its allowed reports (count
    // lines on standard output, failures on standard error), nothing else,
    // and a total that adds the counts up.
    void ExpectOneReportEach(const RunResult& r, size_t files,
                             const std::function<Allowed(const std::string& path)>& allowed) {
        EXPECT_FALSE(r.timedOut);
        EXPECT_EQ(r.status, 0);
        const std::string &out = r.out, &err = r.err;
        uint64_t counted = 0;
        size_t accounted = 0;  // bytes of the outputs that some report explains
        for (size_t i = 0; i < files; ++i) {
            int reports = 0;
            for (const auto& [report, count] : allowed(Path(Numbered(i)))) {
                const std::string& text = count ? out : err;
                for (size_t at = text.find(report); at != std::string::npos;
                     at = text.find(report, at + 1), ++reports) {
                    counted += count;
                    accounted += report.size();
                }
            }
            EXPECT_EQ(reports, 1) << Numbered(i) << " must be reported exactly once";
        }
        const std::string total = TotalLine(counted);
        EXPECT_TRUE(out.ends_with(total)) << Printable(out);
        EXPECT_EQ(accounted + total.size(), out.size() + err.size())
            << "reports that no interleaving gives:\n"
            << Printable(out + err);
    }
};

// A writer that plays by the rules (an exclusive flock around its truncate
// and write, as a second mendo would) rewrites the files, short or long,
// while mendo runs. Whatever the interleaving, each file ends whole, as one
// of the versions or its replacement, and is reported exactly once.
TEST_F(HostileRaces, ALockingWriterBesideTheRunLeavesOnlyWholeFiles) {
    const size_t files = 400;
    const std::string shortText = "teh\n", longText = Repeat("teh ", 20000);
    for (size_t i = 0; i < files; ++i)
        Build({{Numbered(i), shortText}});
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> rewrites{0};
    std::thread writer([&] {
        std::mt19937 random(7);
        while (!stop.load()) {
            const std::string path = Path(Numbered(random() % files));
            const std::string& text = random() % 2 ? longText : shortText;
            int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
            if (fd < 0) continue;
            if (flock(fd, LOCK_EX) == 0 && ftruncate(fd, 0) == 0 &&
                write(fd, text.data(), text.size()) == ssize_t(text.size()))
                ++rewrites;
            close(fd);  // and the lock with it
        }
    });
    WaitFor([&] { return rewrites.load() > 0; });
    const auto r = RunWith(Spec({"*.txt", "-f:teh", "-t:the", "-frc", "-trc"}));
    stop = true;
    writer.join();

    ExpectOneReportEach(r, files, [](const std::string& path) -> Allowed {
        return {{CountLine(1, path), 1},
                {CountLine(20000, path), 20000},
                {ReadFailure(path), 0},
                {WriteFailure(path, ShareConflict(path)), 0}};
    });
    const std::set<std::string> wholeFiles = {shortText, longText, "the\n", Repeat("the ", 20000)};
    for (size_t i = 0; i < files; ++i)
        EXPECT_TRUE(wholeFiles.count(Read(Numbered(i)))) << Numbered(i) << " is no whole version";
}

// A deleter removes half of the files, from the first count line on (so the
// listing is complete). A file gone before its read is a read failure and
// stays away; one gone between read and write is made anew by the write,
// whole; one gone after is simply gone.
TEST_F(HostileRaces, ADeleterBesideTheRunLeavesOnlyWholeFilesOrNone) {
    const size_t files = 1000;
    std::vector<std::string> doomed;
    for (size_t i = 0; i < files; ++i) {
        doomed.push_back(Numbered(i));
        Build({{Numbered(i), Cat("teh ", std::to_string(i), "\n")}});
    }
    std::shuffle(doomed.begin(), doomed.end(), std::mt19937(11));
    doomed.resize(files / 2);

    std::atomic<bool> started{false}, stop{false};
    std::thread deleter([&] {
        WaitFor([&] { return started.load() || stop.load(); });
        for (const auto& name : doomed) {
            unlink(Path(name).c_str());
            std::this_thread::sleep_for(20us);
        }
    });
    std::string out;
    RunSpec spec = Spec({"*.txt", "-f:teh", "-t:the", "-frc", "-trc"});
    spec.sink = [&](std::string_view chunk) {
        out.append(chunk);
        started = true;
    };
    auto r = RunWith(spec);
    stop = true;
    deleter.join();

    r.out = out;
    ExpectOneReportEach(r, files, [](const std::string& path) -> Allowed {
        return {{CountLine(1, path), 1}, {ReadFailure(path), 0}};
    });
    const std::set<std::string> gone(doomed.begin(), doomed.end());
    for (size_t i = 0; i < files; ++i) {
        const std::string name = Numbered(i);
        if (access(Path(name).c_str(), F_OK) != 0) {
            EXPECT_TRUE(gone.count(name)) << name << " vanished without being deleted";
        } else {
            EXPECT_EQ(r.err.find(ReadFailure(Path(name))), std::string::npos)
                << name << " failed its read yet exists";
            EXPECT_EQ(Read(name), Cat("the ", std::to_string(i), "\n")) << name;
        }
    }
}

}  // namespace
