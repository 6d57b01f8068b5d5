// mendo when the world around it moves: files that change, vanish or are
// locked by others while a run goes on, a write cut short by the file-size
// limit, outputs whose readers leave, a link that leads back up under -s, a
// folder of 100,000 files and 2 GiB on standard input.
//
// Each case runs the real binary under a time limit, so that a hang fails
// the test instead of blocking the suite, and checks the exact bytes of
// standard output and standard error, the status, and the files afterwards.
//
// Where timing would decide the outcome the case is made deterministic: the
// run starts with its standard error pipe full and a locked file early in
// its list, so mendo stops at that file's read failure message, when the
// files before it are done and those after it not yet read, and the test
// changes the next file in that pause. The cases of HostileRaces run a
// writer or a deleter beside mendo for real; they accept every outcome that
// some interleaving allows and nothing else: a whole file or the failure's
// message, never a torn file or a crash.

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
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
using mendo_test::RunSpec;
using mendo_test::RunWith;
using Args = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

// Sanitized builds run the same cases on smaller sizes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

// Long enough for the largest case in a sanitized build; a run that takes
// longer is killed and fails.
constexpr auto kRunTimeout = std::chrono::milliseconds(kSanitized ? 600s : 180s);

// ---- what mendo prints ---------------------------------------------------------------------

std::string CountLine(uint64_t count, const std::string& path) {
    std::string line = "\n## ";
    line += std::to_string(count);
    line += " replacements in file: ";
    line += path;
    line += "\n";
    return line;
}

std::string TotalLine(uint64_t total) {
    std::string line = "\n## total replaced ";
    line += std::to_string(total);
    line += " matchs\n";
    return line;
}

std::string ReadFailure(const std::string& path) {
    std::string line = "[ERROR] failed reading file: ";
    line += path;
    line += "\n";
    return line;
}

// The report of a failed write: the path, then the library's message behind
// two blanks.
std::string WriteFailure(const std::string& path, const std::string& message) {
    std::string text = "[ERROR] can't write to file: ";
    text += path;
    text += "\n  ";
    text += message;
    text += "\n";
    return text;
}

// The guarded write's exclusive lock, refused because another holds the file.
std::string ShareConflict(const std::string& path) {
    std::string text = "SetShareMode - failed set file sharing mode\n  file path    = ";
    text += path;
    text += "\n  sharing mode = exclusive\n  error code   = ";
    text += std::to_string(EAGAIN);
    text += "\n  error desc   = sharing mode conflict";
    return text;
}

// A write that the file-size limit refuses. Read and write share the head line.
std::string FileTooBig(const std::string& path) {
    std::string text = "CSysFile::Read - failed reading file\n  file path  = ";
    text += path;
    text += "\n  error code = ";
    text += std::to_string(EFBIG);
    text += "\n  error desc = no room for write, or offset out-of-range";
    return text;
}

// "f12.txt" and the like, built piecewise.
std::string Numbered(const char* head, size_t number, const char* tail) {
    std::string text = head;
    text += std::to_string(number);
    text += tail;
    return text;
}

std::string Repeat(const std::string& piece, size_t times) {
    std::string text;
    text.reserve(piece.size() * times);
    for (size_t i = 0; i < times; ++i)
        text += piece;
    return text;
}

// ---- the files around a run -----------------------------------------------------------------

// One entry of a tree as the tests see it, links not followed.
struct Node {
    enum Kind { kFile, kDirectory, kLink, kOther } kind = kFile;
    std::string bytes;  // a file's content, a link's target

    bool operator==(const Node&) const = default;
};

Node File(const std::string& bytes) {
    return {Node::kFile, bytes};
}
Node Directory() {
    return {Node::kDirectory, ""};
}
Node Link(const std::string& target) {
    return {Node::kLink, target};
}

// A file too large to compare: only its size is kept.
Node LargeFile(uint64_t size) {
    std::string shown = "(";
    shown += std::to_string(size);
    shown += " bytes)";
    return {Node::kFile, shown};
}

void PrintTo(const Node& node, std::ostream* os) {
    static const char* const kKinds[] = {"file", "directory", "link to", "other"};
    *os << kKinds[node.kind] << " \"" << Printable(node.bytes) << "\"";
}

using Tree = std::map<std::string, Node>;  // path below the root -> entry

// Removes a tree without following its links. (std::filesystem::remove_all
// takes minutes over a folder of 100,000 files.)
void RemoveTree(const std::string& root) {
    nftw(
        root.c_str(), [](const char* path, const struct stat*, int, FTW*) { return remove(path); },
        16, FTW_DEPTH | FTW_PHYS);
}

bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds most = 30s) {
    const auto until = Clock::now() + most;
    while (!condition()) {
        if (Clock::now() > until) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

class HostileDir : public ::testing::Test {
  protected:
    explicit HostileDir(std::string base = "/tmp") : base_(std::move(base)) {}

    void SetUp() override {
        std::string name = base_ + "/mendo-hostile-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        root_ = name;
    }
    void TearDown() override { RemoveTree(root_); }

    std::string Path(const std::string& relative) const { return root_ + "/" + relative; }

    // Writes with plain system calls, and dates the file back, so that a
    // rewrite shows even within one second.
    void Write(const std::string& relative, const std::string& bytes) const {
        const std::string path = Path(relative);
        fs::create_directories(fs::path(path).parent_path());
        int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        ASSERT_GE(fd, 0) << path;
        ASSERT_EQ(write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
        close(fd);
        struct timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
        utimensat(AT_FDCWD, path.c_str(), old, 0);
    }
    void Build(const Tree& tree) const {
        for (const auto& [path, node] : tree)
            Write(path, node.bytes);
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

    // Everything below the root, links not followed.
    Tree Snapshot() const {
        Tree tree;
        for (const auto& entry : fs::recursive_directory_iterator(root_)) {
            const std::string relative = entry.path().string().substr(root_.size() + 1);
            const fs::file_status status = entry.symlink_status();
            if (fs::is_symlink(status)) {
                tree[relative] = Link(fs::read_symlink(entry.path()).string());
            } else if (fs::is_directory(status)) {
                tree[relative] = Directory();
            } else if (!fs::is_regular_file(status)) {
                tree[relative] = {Node::kOther, ""};
            } else if (entry.file_size() > (64u << 20)) {
                tree[relative] = LargeFile(entry.file_size());
            } else {
                tree[relative] = File(Read(relative));
            }
        }
        return tree;
    }

    RunSpec Spec(const Args& args) const {
        RunSpec spec;
        spec.args = args;
        spec.workDir = root_;
        spec.timeout = kRunTimeout;
        return spec;
    }

    std::string base_;
    std::string root_;
};

// ---- locks that others hold ----------------------------------------------------------------

constexpr int kRecordLock = -1;  // an fcntl write lock over the whole file, not a flock

// Takes `lock` (LOCK_SH, LOCK_EX or kRecordLock) on its own open of `path`.
bool TakeLock(int fd, int lock) {
    if (lock != kRecordLock) return flock(fd, lock | LOCK_NB) == 0;
    struct flock range {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    return fcntl(fd, F_SETLK, &range) == 0;
}

enum class Holder { kThisProcess, kOtherProcess };

// Holds a lock on a file for as long as it lives: this process on an open
// file description of its own (flock locks belong to the description, so
// mendo's open conflicts with it all the same), or a child process that
// waits until it is let go.
class LockHolder {
  public:
    LockHolder(const std::string& path, int lock, Holder holder) {
        if (holder == Holder::kThisProcess) {
            fd_ = open(path.c_str(), O_RDWR | O_CLOEXEC);
            held_ = fd_ >= 0 && TakeLock(fd_, lock);
            return;
        }
        int ready[2], release[2];
        if (pipe2(ready, O_CLOEXEC) != 0) return;
        if (pipe2(release, O_CLOEXEC) != 0) {
            close(ready[0]);
            close(ready[1]);
            return;
        }
        child_ = fork();
        if (child_ == 0) {  // only async-signal-safe calls from here on
            close(ready[0]);
            close(release[1]);  // or the read below never sees the end
            int fd = open(path.c_str(), O_RDWR);
            char taken = fd >= 0 && TakeLock(fd, lock) ? 1 : 0;
            (void)!write(ready[1], &taken, 1);
            char ignored;
            (void)!read(release[0], &ignored, 1);  // until the parent closes its end
            _exit(0);
        }
        close(ready[1]);
        close(release[0]);
        release_ = release[1];
        char taken = 0;
        held_ = child_ > 0 && read(ready[0], &taken, 1) == 1 && taken == 1;
        close(ready[0]);
    }
    ~LockHolder() {
        if (fd_ >= 0) close(fd_);
        if (release_ >= 0) close(release_);
        if (child_ > 0) waitpid(child_, nullptr, 0);
    }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

    bool held() const { return held_; }

  private:
    int fd_ = -1;
    int release_ = -1;
    pid_t child_ = -1;
    bool held_ = false;
};

// ---- a file that changes between the listing and its read -------------------------------------

// a.txt, p.txt, b.txt and c.txt are listed. p.txt is locked, so its read
// fails, and mendo waits to print that failure on its full standard error
// pipe: a.txt is done, b.txt not yet read, and the test changes b.txt. mendo
// reads what stands there when its turn comes: a file of another size is
// taken whole, a missing or unreadable one is a read failure, and nothing is
// created in its place.
struct ChangeCase {
    const char* name;
    std::function<void(const std::string& b)> change;
    uint64_t bCount;  // replacements in what mendo reads at b.txt; 0: no count line
    bool bReadFails;
    Tree bAfter;  // what stands at b.txt (and at any name the change made) afterwards
};

void Rewrite(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

void Unlink(const std::string& path) {
    ASSERT_EQ(unlink(path.c_str()), 0) << path;
}

TEST_F(HostileDir, AFileThatChangesBetweenListingAndReadIsTakenAsItIsThen) {
    const std::string kB = Repeat("teh ", 1000);
    const uint64_t kHuge = (uint64_t(1) << 32) + 10;  // beyond one string; sparse, so no disk
    const ChangeCase cases[] = {
        {"grown in place",
         [](const std::string& b) { Rewrite(b, Repeat("teh ", 100000)); },
         100000,
         false,
         {{"b.txt", File(Repeat("the ", 100000))}}},
        {"shrunk in place",
         [](const std::string& b) { Rewrite(b, "teh"); },
         1,
         false,
         {{"b.txt", File("the")}}},
        {"cut to nothing",
         [](const std::string& b) { ASSERT_EQ(truncate(b.c_str(), 0), 0); },
         0,
         false,
         {{"b.txt", File("")}}},
        {"replaced by another file under its name",
         [](const std::string& b) {
             Rewrite(b + ".new", "teh teh");
             ASSERT_EQ(rename((b + ".new").c_str(), b.c_str()), 0);
         },
         2,
         false,
         {{"b.txt", File("the the")}}},
        {"grown past what one string holds",
         [&](const std::string& b) { ASSERT_EQ(truncate(b.c_str(), off_t(kHuge)), 0); },
         0,
         true,
         {{"b.txt", LargeFile(kHuge)}}},
        {"deleted", [](const std::string& b) { Unlink(b); }, 0, true, {}},
        {"a directory in its place",
         [](const std::string& b) {
             Unlink(b);
             ASSERT_EQ(mkdir(b.c_str(), 0755), 0);
         },
         0,
         true,
         {{"b.txt", Directory()}}},
        {"a dangling link in its place",
         [](const std::string& b) {
             Unlink(b);
             ASSERT_EQ(symlink("gone.dat", b.c_str()), 0);
         },
         0,
         true,
         {{"b.txt", Link("gone.dat")}}},
        {"a link to a file no pattern names",  // read and written through the link
         [](const std::string& b) {
             Rewrite(fs::path(b).replace_filename("d.dat"), "teh d\n");
             Unlink(b);
             ASSERT_EQ(symlink("d.dat", b.c_str()), 0);
         },
         1,
         false,
         {{"b.txt", Link("d.dat")}, {"d.dat", File("the d\n")}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RemoveTree(root_);
        fs::create_directory(root_);
        Build({{"a.txt", File("teh a\n")},
               {"p.txt", File("teh p\n")},
               {"b.txt", File(kB)},
               {"c.txt", File("teh c\n")}});
        const std::string a = Path("a.txt"), p = Path("p.txt"), b = Path("b.txt");
        LockHolder pLock(p, LOCK_EX, Holder::kThisProcess);
        ASSERT_TRUE(pLock.held());

        RunSpec spec =
            Spec({"a.txt", "p.txt", "b.txt", "c.txt", "-f:teh", "-t:the", "-frc", "-trc"});
        spec.pausedOutput = STDERR_FILENO;
        spec.whilePaused = [&](pid_t) {
            EXPECT_TRUE(WaitFor([&] { return Read("a.txt") == "the a\n"; }))
                << "a.txt was not rewritten";
            c.change(b);
        };
        const auto r = RunWith(spec);

        std::string out = CountLine(1, a);
        if (c.bCount) out += CountLine(c.bCount, b);
        out += CountLine(1, Path("c.txt"));
        out += TotalLine(2 + c.bCount);
        EXPECT_FALSE(r.timedOut);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.out, out) << Printable(r.out);
        EXPECT_EQ(r.err, ReadFailure(p) + (c.bReadFails ? ReadFailure(b) : "")) << Printable(r.err);
        Tree after = c.bAfter;
        after["a.txt"] = File("the a\n");
        after["p.txt"] = File("teh p\n");
        after["c.txt"] = File("the c\n");
        EXPECT_EQ(Snapshot(), after);
    }
}

// ---- a file another process holds ---------------------------------------------------------

// The reader takes a shared flock and the writer an exclusive one, neither
// waits: a shared holder lets mendo read but not write, an exclusive one
// lets it do neither. Record locks are another mechanism and stop nothing.
TEST_F(HostileDir, AFileAnotherHolderLocksIsReportedAndLeftAlone) {
    const std::string a = Path("a.txt"), b = Path("b.txt");
    const std::string readFailure = ReadFailure(a);
    const std::string writeFailure = WriteFailure(a, ShareConflict(a));
    const std::string bOnly = CountLine(1, b) + TotalLine(1);
    const std::string both = CountLine(1, a) + CountLine(1, b) + TotalLine(2);
    struct LockCase {
        const char* name;
        int lock;
        Holder holder;
        const char* extra;  // a switch more, or ""
        std::string out, err;
        int status;
        std::string aAfter, bAfter;
    };
    const LockCase cases[] = {
        {"shared, this process", LOCK_SH, Holder::kThisProcess, "", bOnly, writeFailure, 0,
         "teh a\n", "the b\n"},
        {"shared, another process", LOCK_SH, Holder::kOtherProcess, "", bOnly, writeFailure, 0,
         "teh a\n", "the b\n"},
        {"shared, -errstop", LOCK_SH, Holder::kOtherProcess, "-errstop", "", writeFailure, 255,
         "teh a\n", "teh b\n"},
        {"shared, -stdout only reads", LOCK_SH, Holder::kOtherProcess, "-stdout",
         "the a\nthe b\n" + TotalLine(2), "", 0, "teh a\n", "teh b\n"},
        {"exclusive, this process", LOCK_EX, Holder::kThisProcess, "", bOnly, readFailure, 0,
         "teh a\n", "the b\n"},
        {"exclusive, another process", LOCK_EX, Holder::kOtherProcess, "", bOnly, readFailure, 0,
         "teh a\n", "the b\n"},
        {"exclusive, -errstop", LOCK_EX, Holder::kOtherProcess, "-errstop", "", readFailure, 255,
         "teh a\n", "teh b\n"},
        {"exclusive, -stdout", LOCK_EX, Holder::kOtherProcess, "-stdout", "the b\n" + TotalLine(1),
         readFailure, 0, "teh a\n", "teh b\n"},
        {"a record lock is no flock", kRecordLock, Holder::kOtherProcess, "", both, "", 0,
         "the a\n", "the b\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Build({{"a.txt", File("teh a\n")}, {"b.txt", File("teh b\n")}});
        LockHolder holder(a, c.lock, c.holder);
        ASSERT_TRUE(holder.held());

        Args args = {"a.txt", "b.txt", "-f:teh", "-t:the", "-frc", "-trc"};
        if (*c.extra) args.push_back(c.extra);
        const auto r = RunWith(Spec(args));
        EXPECT_FALSE(r.timedOut);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.out, c.out) << Printable(r.out);
        EXPECT_EQ(r.err, c.err) << Printable(r.err);
        EXPECT_EQ(Read("a.txt"), c.aAfter);
        EXPECT_EQ(Read("b.txt"), c.bAfter);
        if (c.aAfter == "teh a\n") {
            EXPECT_EQ(ModifiedAt("a.txt"), 1000000000) << "a.txt was rewritten";
        }
    }
}

// ---- a write cut short --------------------------------------------------------------------

// The guarded write empties the file once it holds the lock and keeps no
// copy, so a write that the file-size limit stops leaves the file with what
// got through: the result's first `limit` bytes. mendo ignores SIGXFSZ, so
// the limit makes write() come back short, or fail when not one byte may be
// written. Only that failure is reported: what a write moved is not
// compared with the size, so a file cut short is counted as rewritten,
// without a word.
TEST_F(HostileDir, AWriteCutShortByTheFileSizeLimitLeavesWhatGotThrough) {
    const std::string a = Path("a.txt"), b = Path("b.txt");
    const std::string before = Repeat("teh.", 1024);    // 4096 bytes
    const std::string result = Repeat("theee.", 1024);  // 6144 bytes
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
        Build({{"a.txt", File(before)}, {"b.txt", File("teh")}});
        Args args = {"a.txt", "b.txt", "-f:teh", "-t:theee", "-frc", "-trc"};
        if (*c.extra) args.push_back(c.extra);
        RunSpec spec = Spec(args);
        spec.limits = {{RLIMIT_FSIZE, c.limit}};
        const auto r = RunWith(spec);
        EXPECT_FALSE(r.timedOut);
        EXPECT_EQ(r.status, c.status) << "-1: killed by SIGXFSZ";
        EXPECT_EQ(r.out, c.out) << Printable(r.out);
        EXPECT_EQ(r.err, c.err) << Printable(r.err);
        EXPECT_EQ(Read("a.txt"), c.aAfter);
        EXPECT_EQ(Read("b.txt"), c.bAfter);
    }
}

// ---- outputs whose readers leave -------------------------------------------------------------

// `mendo ... | head -c N` on a large output: the write into the closed pipe
// fails (SIGPIPE is ignored), the rest of the output is dropped without a
// word, and the run ends as usual.
TEST(HostileClosedOutput, APipeReaderThatLeavesEarlyCostsOnlyTheOutput) {
    const std::string input(size_t(16) << 20, 'a');  // far more than a widened pipe holds
    for (const char* strategy : {"-exp", "-noexp"}) {
        for (size_t keep : {size_t(0), size_t(1) << 20, size_t(3) << 20}) {
            std::string trace = strategy;
            trace += ", reader keeps ";
            trace += std::to_string(keep);
            SCOPED_TRACE(trace);
            RunSpec spec;
            spec.args = {"-f:a", "-t:b", "-trc", strategy};
            spec.input = input;
            spec.stdoutReadLimit = keep;
            spec.timeout = kRunTimeout;
            const auto r = RunWith(spec);
            EXPECT_FALSE(r.timedOut);
            EXPECT_EQ(r.status, 0) << "-1 means the process was killed, by SIGPIPE";
            EXPECT_EQ(r.out, std::string(keep, 'b'));
            EXPECT_EQ(r.err, "") << Printable(r.err);
        }
    }
}

// With files, the outputs only carry reports: closing them must not stop a
// single rewrite, nor change the status.
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
        Build({{"a.txt", File("teh a\n")}, {"b.txt", File("teh b\n")}});
        unlink(p.c_str());
        ASSERT_EQ(mkfifo(p.c_str(), 0644), 0);  // a read failure that never waits

        Args args = {"a.txt", "p.txt", "b.txt", "-f:teh", "-t:the", "-frc", "-trc"};
        if (*c.extra) args.push_back(c.extra);
        RunSpec spec = Spec(args);
        if (c.stdoutClosed) spec.stdoutReadLimit = 0;
        if (c.stderrClosed) spec.stderrReadLimit = 0;
        const auto r = RunWith(spec);
        EXPECT_FALSE(r.timedOut);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.out, c.out) << Printable(r.out);
        EXPECT_EQ(r.err, c.err) << Printable(r.err);
        EXPECT_EQ(Read("a.txt"), "the a\n");
        EXPECT_EQ(Read("b.txt"), c.bAfter);
    }
}

// ---- a link loop under -s -------------------------------------------------------------------

// A link to a directory counts as a directory and is followed without a
// test for loops; the walk goes down until a path holds more links than one
// lookup follows (40 on Linux) and stat refuses it with ELOOP. Below the top
// level that failure drops the subtree, and the run goes on. The same file
// is then listed once per depth: rewritten the first time, and found
// without a match after that.
constexpr int kLinksPerLookup = 40;

std::string RefusedStat(const std::string& path) {
    std::string text = "@ PosixStat - failed retrive the status of giving path\n  file path  = ";
    text += path;
    text += "\n  error code = ";
    text += std::to_string(ELOOP);
    text += "\n  error desc = ";
    return text;
}

// The name among `names` that readdir gives first in `dir`.
std::string FirstListed(const std::string& dir, const std::set<std::string>& names) {
    DIR* stream = opendir(dir.c_str());
    std::string first;
    while (dirent* entry = stream ? readdir(stream) : nullptr) {
        if (names.count(entry->d_name)) {
            first = entry->d_name;
            break;
        }
    }
    if (stream) closedir(stream);
    return first;
}

TEST_F(HostileDir, ALinkLoopUnderSEndsWhereTheSystemRefusesThePath) {
    struct LoopCase {
        const char* name;
        std::string link, target;
        Tree files;
        int visits;  // listings of a file when the walk ends cleanly
    };
    const LoopCase cases[] = {
        {"a link up to its parent, alone in its folder",
         "links/up",
         "..",
         {{"a.txt", File("teh")}},
         kLinksPerLookup + 1},
        {"an absolute link to the top, alone in its folder",
         "links/top",
         root_,
         {{"a.txt", File("teh")}},
         kLinksPerLookup + 1},
        // The deepest copy of links/ holds c.txt and a link that stat
        // refuses; which of the two readdir gives first decides the run. If
        // it is the link, the rest of that folder is hidden: c.txt is listed
        // at each depth but the deepest, a.txt (outside the loop) once.
        {"a link to its own folder, beside a file",
         "links/self",
         ".",
         {{"a.txt", File("teh")}, {"links/c.txt", File("teh")}},
         1 + kLinksPerLookup},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        RemoveTree(root_);
        fs::create_directory(root_);
        Build(c.files);
        fs::create_directories(Path("links"));
        ASSERT_EQ(symlink(c.target.c_str(), Path(c.link).c_str()), 0);
        const std::string linkName = fs::path(c.link).filename();
        const bool withC = c.files.count("links/c.txt") != 0;

        // Every listing of a file, each printed by -stdout.
        const auto listed = RunWith(Spec({"*.txt", "-s", "-f:teh", "-t:the", "-stdout", "-trc"}));
        const auto rewrite = RunWith(Spec({"*.txt", "-s", "-f:teh", "-t:the", "-frc", "-trc"}));
        for (const auto* r : {&listed, &rewrite}) {
            EXPECT_FALSE(r->timedOut);
            EXPECT_EQ(r->status, 0);
        }

        if (withC && FirstListed(Path("links"), {"c.txt", linkName}) == "c.txt") {
            // A later entry that stat refuses fails the whole listing.
            std::string deepest = Path("links");
            for (int i = 0; i < kLinksPerLookup; ++i)
                deepest += "/" + linkName;
            std::string head =
                "[FATAL ERROR] Orlo runtime lib error: CDir::GetAllFiles - failed "
                "find files\n  base dir = ";
            head += root_ + "/\n" + RefusedStat(deepest + "/" + linkName);
            for (const auto* r : {&listed, &rewrite}) {
                EXPECT_EQ(r->out, "");
                EXPECT_EQ(r->err.rfind(head, 0), 0u) << r->err;
                EXPECT_EQ(r->err.find('\n', head.size()), r->err.size() - 1) << r->err;
            }
            EXPECT_EQ(Snapshot().at("a.txt"), File("teh"));
            continue;
        }
        EXPECT_EQ(listed.out, Repeat("the", c.visits) + TotalLine(c.visits))
            << Printable(listed.out);
        EXPECT_EQ(listed.err, "");
        std::string out = CountLine(1, Path("a.txt"));
        if (withC) out += CountLine(1, Path("links/c.txt"));
        out += TotalLine(withC ? 2 : 1);
        EXPECT_EQ(rewrite.out, out);
        EXPECT_EQ(rewrite.err, "");
        EXPECT_EQ(Snapshot().at("a.txt"), File("the"));
    }
}

// Without tolerance the refused path below the top ends the listing: a fatal
// error that wraps the walk's failures level by level, and no file touched.
TEST_F(HostileDir, ALinkLoopUnderSWithErrstopIsAFatalListingError) {
    Build({{"a.txt", File("teh")}});
    fs::create_directories(Path("links"));
    ASSERT_EQ(symlink("..", Path("links/up").c_str()), 0);
    const auto r = RunWith(Spec({"*.txt", "-s", "-f:teh", "-t:the", "-errstop"}));
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
    std::string head =
        "[FATAL ERROR] Orlo runtime lib error: CDir::GetAllFiles - failed find "
        "files\n  base dir = ";
    head += root_ + "/\n@ CDir::GetAllSubDirs - failed find subdirs\n  base dir = " + root_ + "/\n";
    EXPECT_EQ(r.err.rfind(head, 0), 0u) << r.err;
    std::string refused = root_;
    for (int i = 0; i < kLinksPerLookup; ++i)
        refused += "/links/up";
    const std::string inner = RefusedStat(refused + "/links/up");
    const size_t at = r.err.find(inner);
    ASSERT_NE(at, std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("\n@ ", at), std::string::npos) << "the refused stat is the innermost";
    EXPECT_EQ(r.err.find('\n', at + inner.size()), r.err.size() - 1) << r.err;
    EXPECT_EQ(Read("a.txt"), "teh");
}

// ---- a folder of 100,000 files -------------------------------------------------------------

// Making and removing 100,000 files costs the test far more than mendo on a
// journalled disk, and varies with the load of the machine; in memory it
// is quick, so the folder goes there where the system has such a place.
class HostileManyFiles : public HostileDir {
  protected:
    HostileManyFiles() : HostileDir(fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp") {}
};

TEST_F(HostileManyFiles, AHundredThousandFilesInOneFolderAreAllRewritten) {
    const size_t count = kSanitized ? 20000 : 100000;
    const std::string dir = Path("many");
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    auto content = [](const std::string& name, const char* word) {
        return std::string(word) + " " + name + "\n";  // each file its own bytes
    };
    for (size_t i = 0; i < count; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "f%06zu.txt", i);
        const std::string bytes = content(name, "teh");
        int fd = open((dir + "/" + name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
        close(fd);
    }
    // The count lines come in readdir order, which is the folder's own.
    std::vector<std::string> names;
    std::string out;
    DIR* stream = opendir(dir.c_str());
    ASSERT_NE(stream, nullptr);
    while (dirent* entry = readdir(stream)) {
        if (entry->d_name[0] == '.') continue;
        names.push_back(entry->d_name);
        out += CountLine(1, dir + "/" + entry->d_name);
    }
    closedir(stream);
    ASSERT_EQ(names.size(), count);
    out += TotalLine(count);

    RunSpec spec = Spec({"*.txt", "-f:teh", "-t:the", "-frc", "-trc"});
    spec.workDir = dir;
    const auto start = Clock::now();
    const auto r = RunWith(spec);
    const auto took = Clock::now() - start;
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(r.out == out) << "the count lines differ; got " << r.out.size() << " bytes, "
                              << out.size() << " expected";
    size_t wrong = 0;
    for (const auto& name : names) {
        if (Read("many/" + name) != content(name, "the") && wrong++ < 5) {
            ADD_FAILURE() << name << " holds " << Printable(Read("many/" + name));
        }
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_LT(std::chrono::duration<double>(took).count(), kSanitized ? 120 : 30);
}

// ---- 2 GiB on standard input --------------------------------------------------------------

// Numbered blocks of text, produced and compared a piece at a time so that
// neither the input nor the output is ever held here. Block i is the head
// word, its number in 8 hex digits and a filler to 64 bytes of input: a
// block out of place or a lost byte shows at once.
class Blocks {
  public:
    Blocks(const std::string& head, uint64_t count, std::string tail = "")
        : block_(head + " 00000000 " + std::string(64 - 3 - 11, '-') + "\n"),
          count_(count),
          tail_(std::move(tail)) {}

    uint64_t size() const { return block_.size() * count_ + tail_.size(); }

    // The next `room` bytes, fewer at the end.
    size_t Next(char* buffer, size_t room) {
        size_t done = 0;
        while (done < room && index_ < count_) {
            if (offset_ == 0) Number(index_);
            const size_t n = std::min(room - done, block_.size() - offset_);
            std::memcpy(buffer + done, block_.data() + offset_, n);
            done += n;
            offset_ += n;
            if (offset_ == block_.size()) {
                offset_ = 0;
                ++index_;
            }
        }
        const size_t n = std::min(room - done, tail_.size() - tailDone_);
        if (index_ == count_ && n) {
            std::memcpy(buffer + done, tail_.data() + tailDone_, n);
            done += n;
            tailDone_ += n;
        }
        return done;
    }

  private:
    void Number(uint64_t i) {
        static const char kHex[] = "0123456789abcdef";
        const size_t at = block_.find(' ') + 1;
        for (int digit = 7; digit >= 0; --digit, i >>= 4)
            block_[at + size_t(digit)] = kHex[i & 15];
    }

    std::string block_;
    uint64_t count_;
    std::string tail_;
    uint64_t index_ = 0;
    size_t offset_ = 0;
    size_t tailDone_ = 0;
};

// The whole input is held in one string, and 2 GiB is past any signed
// 32-bit count. The output is the input replaced, with the stray 0xFF of
// the end-of-input read behind it and then the total line.
TEST(HostileHugeStdin, TwoGibibytesOnStandardInputComeOutWhole) {
    const uint64_t inputSize = kSanitized ? uint64_t(256) << 20 : uint64_t(2) << 30;
    const uint64_t blocks = inputSize / 64;
    Blocks input("teh", blocks);
    Blocks expected("ThE!", blocks, "\xFF" + TotalLine(blocks));
    ASSERT_EQ(input.size(), inputSize);

    uint64_t got = 0;
    uint64_t firstDifference = UINT64_MAX;
    std::vector<char> want;
    RunSpec spec;
    spec.args = {"-f:teh", "-t:ThE!", "-trc"};
    spec.timeout = kRunTimeout;
    spec.source = [&](char* buffer, size_t room) { return input.Next(buffer, room); };
    spec.sink = [&](std::string_view chunk) {
        if (firstDifference == UINT64_MAX) {
            want.resize(chunk.size());
            const size_t have = expected.Next(want.data(), want.size());
            const size_t same = std::mismatch(chunk.begin(), chunk.begin() + long(have),
                                              want.begin(), want.begin() + long(have))
                                    .first -
                                chunk.begin();
            if (same < chunk.size()) firstDifference = got + same;
        }
        got += chunk.size();
    };
    const auto start = Clock::now();
    const auto r = RunWith(spec);
    const auto took = Clock::now() - start;
    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "") << Printable(r.err);
    EXPECT_EQ(firstDifference, UINT64_MAX) << "the output differs from byte " << firstDifference;
    EXPECT_EQ(got, expected.size());
    EXPECT_LT(std::chrono::duration<double>(took).count(), kSanitized ? 300 : 90);
}

// ---- races for real -----------------------------------------------------------------------

class HostileRaces : public HostileDir {};

// What a run printed, taken apart: count lines and failures per file.
struct Reports {
    std::map<std::string, uint64_t> counts;
    std::set<std::string> readFailures, writeFailures;
    std::map<std::string, int> reportsOf;  // how many of the above name each file
    uint64_t total = 0;
    std::string unexpected;  // anything that fits no form
};

Reports TakeApart(const std::string& out, const std::string& err) {
    Reports reports;
    const std::string countHead = "\n## ", countMiddle = " replacements in file: ";
    const std::string totalHead = "\n## total replaced ";
    for (size_t at = 0; at < out.size();) {
        const size_t end = out.find('\n', at + 1);
        const std::string line = out.substr(at, end == std::string::npos ? end : end + 1 - at);
        at = end == std::string::npos ? out.size() : end + 1;
        if (line.rfind(totalHead, 0) == 0) {
            reports.total = std::stoull(line.substr(totalHead.size()));
        } else if (size_t middle = line.find(countMiddle);
                   line.rfind(countHead, 0) == 0 && middle != std::string::npos) {
            const std::string path = line.substr(middle + countMiddle.size(),
                                                 line.size() - 1 - middle - countMiddle.size());
            reports.counts[path] = std::stoull(line.substr(countHead.size()));
            ++reports.reportsOf[path];
        } else {
            reports.unexpected += line;
        }
    }
    const std::string readHead = "[ERROR] failed reading file: ";
    const std::string writeHead = "[ERROR] can't write to file: ";
    for (size_t at = 0; at < err.size();) {
        const size_t end = err.find('\n', at);
        const std::string head = err.substr(at, end - at);
        at = end == std::string::npos ? err.size() : end + 1;
        if (head.rfind(readHead, 0) == 0) {
            reports.readFailures.insert(head.substr(readHead.size()));
            ++reports.reportsOf[head.substr(readHead.size())];
        } else if (head.rfind(writeHead, 0) == 0) {
            const std::string path = head.substr(writeHead.size());
            const std::string detail = "  " + ShareConflict(path) + "\n";
            if (err.compare(at, detail.size(), detail) == 0) {
                reports.writeFailures.insert(path);
                ++reports.reportsOf[path];
                at += detail.size();
            } else {
                reports.unexpected += head + "\n";
            }
        } else {
            reports.unexpected += head + "\n";
        }
    }
    return reports;
}

// Another writer that plays by the rules (an exclusive flock around its
// truncate and write, as a second mendo would) rewrites the files, short or
// long, while mendo runs. Every read sees a whole version or fails, every
// write lands whole or fails; whatever the interleaving, each file ends as
// one of the versions or its replacement, and each is reported exactly once.
TEST_F(HostileRaces, ALockingWriterBesideTheRunLeavesOnlyWholeFiles) {
    const size_t files = 400;
    const std::string shortText = "teh\n", longText = Repeat("teh ", 20000);
    const uint64_t longCount = 20000;
    for (size_t i = 0; i < files; ++i)
        Write(Numbered("f", i, ".txt"), shortText);

    std::atomic<bool> stop{false};
    std::atomic<uint64_t> rewrites{0};
    std::thread writer([&] {
        std::mt19937 random(7);
        while (!stop.load()) {
            const std::string path = Path(Numbered("f", random() % files, ".txt"));
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

    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    Reports reports = TakeApart(r.out, r.err);
    EXPECT_EQ(reports.unexpected, "");
    uint64_t sum = 0;
    for (const auto& [path, count] : reports.counts) {
        EXPECT_TRUE(count == 1 || count == longCount) << path << ": " << count;
        sum += count;
    }
    EXPECT_EQ(reports.total, sum);
    const std::set<std::string> wholeFiles = {shortText, longText, "the\n", Repeat("the ", 20000)};
    for (size_t i = 0; i < files; ++i) {
        const std::string name = Numbered("f", i, ".txt");
        EXPECT_EQ(reports.reportsOf[Path(name)], 1) << name << " must be reported exactly once";
        const std::string bytes = Read(name);
        EXPECT_TRUE(wholeFiles.count(bytes))
            << name << " holds " << bytes.size() << " bytes, no whole version";
    }
}

// A deleter removes half of the files, starting once the first file has been
// rewritten (so the listing is complete). A file that went before its read
// is a read failure and stays away; one that goes between read and write is
// made anew by the write, whole; one that goes after is simply gone.
TEST_F(HostileRaces, ADeleterBesideTheRunLeavesOnlyWholeFilesOrNone) {
    const size_t files = 1000;
    std::vector<std::string> names;
    for (size_t i = 0; i < files; ++i) {
        names.push_back(Numbered("f", i, ".txt"));
        Write(names.back(), Numbered("teh ", i, "\n"));
    }
    std::vector<std::string> doomed = names;
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
    const auto r = RunWith(spec);
    stop = true;
    deleter.join();

    EXPECT_FALSE(r.timedOut);
    EXPECT_EQ(r.status, 0);
    Reports reports = TakeApart(out, r.err);
    EXPECT_EQ(reports.unexpected, "");
    EXPECT_TRUE(reports.writeFailures.empty());
    EXPECT_EQ(reports.total, reports.counts.size());
    const std::set<std::string> gone(doomed.begin(), doomed.end());
    for (size_t i = 0; i < files; ++i) {
        const std::string& name = names[i];
        const bool counted = reports.counts.count(Path(name)) != 0;
        const bool failed = reports.readFailures.count(Path(name)) != 0;
        EXPECT_EQ(reports.reportsOf[Path(name)], 1) << name << " must be reported exactly once";
        if (counted) {
            EXPECT_EQ(reports.counts.at(Path(name)), 1u) << name;
        }
        const bool exists = access(Path(name).c_str(), F_OK) == 0;
        if (exists) {
            EXPECT_TRUE(counted) << name;
            EXPECT_EQ(Read(name), Numbered("the ", i, "\n")) << name;
        } else {
            EXPECT_TRUE(gone.count(name)) << name << " vanished without being deleted";
        }
        if (failed) {
            EXPECT_FALSE(exists) << name << " failed its read yet exists";
        }
    }
}

}  // namespace
