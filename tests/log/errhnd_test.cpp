// The process-level handlers. The report of a fatal signal is checked as
// text; every road to the end of a process is taken for real, in a child
// program (tests/programs/fatal_paths.cpp) run by fork and exec, with the
// signal dispositions a shell would give it, and judged by its exit status
// and the records its logger printed.

#include "orlo/errhnd.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

#include "orlo/exceptions.h"

namespace Orlo {
namespace {

// ---- the report of a fatal signal ------------------------------------------------------

IMPL::FatalSignalFacts Facts(int signo, int code) {
    IMPL::FatalSignalFacts facts;
    facts.signo = signo;
    facts.code = code;
    facts.pid = 4242;
    facts.threadId = 140230;
    facts.address = reinterpret_cast<const void*>(0x10);
    facts.context = reinterpret_cast<const void*>(0x7f00);
    return facts;
}

std::string Report(const IMPL::FatalSignalFacts& facts) {
    return std::string(IMPL::FatalSignalReport(facts).view());
}

TEST(FatalSignalReport, WholeText) {
    EXPECT_EQ(Report(Facts(SIGSEGV, 1)),
              "invalid memory reference\n"
              "  signal number   = 11 (SIGSEGV)\n"
              "  reason code     = Address not mapped to object (1)\n"
              "  pid             = 4242\n"
              "  tid             = 140230\n"
              "  error number    = Success (0)\n"
              "  roughly address = 0x10\n"
              "  thread context  = 0x7f00");

    IMPL::FatalSignalFacts trap = Facts(SIGTRAP, 2);
    trap.errnum = ENOENT;
    trap.address = nullptr;
    EXPECT_EQ(Report(trap),
              "a breakpoint has reached\n"
              "  signal number   = 5 (SIGTRAP)\n"
              "  reason code     = none\n"
              "  pid             = 4242\n"
              "  tid             = 140230\n"
              "  error number    = No such file or directory (2)\n"
              "  roughly address = (nil)\n"
              "  thread context  = 0x7f00");
}

// The first three lines of the report: what, the signal, the reason.
TEST(FatalSignalReport, WordsBySignalAndCode) {
    struct Case {
        int signo;
        int code;
        const char* first;
        const char* signal;
        const char* reason;
    };
    const Case cases[] = {
        // Any code but 1 reads as a permission fault, a sent signal too.
        {SIGSEGV, SI_USER, "invalid memory reference", "11 (SIGSEGV)",
         "Invalid permissions for mapped object (0)"},
        {SIGBUS, 3, "hardware fault", "7 (SIGBUS)", "Object specific hardware error (3)"},
        {SIGBUS, SI_TKILL, "hardware fault", "7 (SIGBUS)", "Unknown Reason (-6)"},
        {SIGFPE, 3, "arithmetic exception", "8 (SIGFPE)",
         "Unknown Reason (3)"},  // 3 skipped on purpose
        {SIGFPE, 8, "arithmetic exception", "8 (SIGFPE)", "Subscript out of range (8)"},
        {SIGILL, 0, "illegal instruction", "4 (SIGILL)", "Unknown Reason (0)"},
        {SIGILL, 8, "illegal instruction", "4 (SIGILL)", "Internal stack error (8)"},
        {SIGILL, 9, "illegal instruction", "4 (SIGILL)", "Unknown Reason (9)"},
        // No words, but the blank before " (" stays.
        {SIGSYS, 1, "invalid system call", "31 (SIGSYS)", " (1)"},
        {SIGUSR1, 3, "unknown system error", "10", "unknown"},
    };
    for (const Case& c : cases) {
        const std::string report = Report(Facts(c.signo, c.code));
        EXPECT_EQ(report.substr(0, report.find("\n  pid")),
                  std::string(c.first) + "\n  signal number   = " + c.signal +
                      "\n  reason code     = " + c.reason)
            << "signal " << c.signo << " code " << c.code;
    }
}

// ---- declared lists: what may pass --------------------------------------------------------

TEST(GuardDeclared, LetsOutDeclaredClassesAndTheirSubclassesAndReturnsTheResult) {
    EXPECT_EQ(GuardDeclared<mutexExp>([] { return 42; }), 42);
    EXPECT_THROW(GuardDeclared<mutexExp>([] { throw mutexExp(stringEx("m"), 4); }), mutexExp);
    EXPECT_THROW(GuardDeclared<ioExp>([] { throw pipeExp(stringEx("p"), 7); }), pipeExp);
    EXPECT_THROW((GuardDeclared<mutexExp, semExp>([] { throw semExp(stringEx("s"), 4); })), semExp);
    EXPECT_THROW(GuardDeclared<std::exception>([] { throw std::runtime_error("r"); }),
                 std::runtime_error);
}

// ---- the roads to the end of a process ------------------------------------------------------

struct ChildResult {
    int status = -1;  // exit status, or -1 when the child was killed
    int signal = 0;   // the signal that killed it
    std::string out;
    pid_t pid = 0;
};

// Runs the fatal_paths program with `args`. The child gets the default
// disposition of every signal and an empty mask, as from a shell: the
// test process itself ignores SIGPIPE (it links the library), and an
// ignored signal would stay ignored across exec.
ChildResult RunChild(const std::vector<std::string>& args) {
    std::string program = ORLO_TEST_PROGRAMS_DIR "/orlo_program_fatal_paths";
    std::vector<std::string> words = args;
    std::vector<char*> argv{program.data()};
    for (auto& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);

    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    ChildResult result;
    result.pid = fork();
    if (result.pid < 0) throw std::runtime_error("fork failed");
    if (result.pid == 0) {
        for (int signo = 1; signo < NSIG; ++signo)
            signal(signo, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        dup2(out[1], STDOUT_FILENO);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(out[1]);
    char buffer[4096];
    for (;;) {
        ssize_t n = read(out[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        result.out.append(buffer, size_t(n));
    }
    close(out[0]);
    int status = 0;
    while (waitpid(result.pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    return result;
}

std::string Describe(const std::vector<std::string>& args, const ChildResult& r) {
    std::string line = "orlo_program_fatal_paths";
    for (const auto& a : args)
        line += " " + a;
    return line + "\n  status " + std::to_string(r.status) + ", signal " +
           std::to_string(r.signal) + "\n--- output\n" + r.out;
}

// True when `text` is `prefix` followed by at least one character of `digits`
// and nothing else.
bool IsNumberLine(const std::string& text, const std::string& prefix, const char* digits) {
    if (text.compare(0, prefix.size(), prefix) != 0 || text.size() == prefix.size()) return false;
    return text.find_first_not_of(digits, prefix.size()) == std::string::npos;
}

struct RoadCase {
    std::vector<std::string> args;
    int status;
    std::string out;  // exact
};

void ExpectRoad(const RoadCase& c) {
    const ChildResult r = RunChild(c.args);
    if (r.status == 77) GTEST_SKIP() << "not available in this build: " << c.args[0];
    EXPECT_EQ(r.status, c.status) << Describe(c.args, r);
    EXPECT_EQ(r.out, c.out) << Describe(c.args, r);
}

const std::string kFatalTag = "Fatal]   (util.errhnd) ";
// A fatal record is flushed by the write itself, then by the flushing exit.
const std::string kTwoFlushes = "<flush>\n<flush>\n";

// Each road ends with 255: without a log object silently, with one after a
// single fatal record, flushed. operator new ends the process through the
// new handler: it never throws std::bad_alloc, which a caller might catch.
TEST(ProcessHandlers, EachRoadEndsWith255AfterOneFlushedFatalRecord) {
    for (const char* mode :
         {"segv", "new", "terminate", "guard-byexp", "guard-std", "guard-other", "debug-check"}) {
        ExpectRoad({{mode}, 255, ""});
    }
    const std::string unexpected = "an unexpected exception has occured, process aborted\n@ ";
    const RoadCase cases[] = {
        {{"new", "logged"}, 255, "not enough memory, process aborted\n"},
        {{"terminate", "logged"}, 255, "process has been terminated in an unexpected way\n"},
        {{"guard-byexp", "logged"}, 255, unexpected + "CDir::ReadFile - read what ?\n"},
        {{"guard-std", "logged"}, 255, unexpected + "boom\n"},
        {{"guard-other", "logged"}, 255, unexpected + "unknown system error\n"},
        // Minimum level Off: no report, but the flush and the exit all the same.
        {{"debug-check", "off"}, 255, ""},
    };
    for (const RoadCase& c : cases) {
        if (c.args[1] == "off") {
            ExpectRoad({c.args, c.status, "<flush>\n"});
        } else {
            ExpectRoad({c.args, c.status, kFatalTag + c.out + kTwoFlushes});
        }
    }
}

TEST(ProcessHandlers, AFaultIsReportedWithItsSignalReasonAndAddress) {
    const std::string head = kFatalTag +
                             "unrecoverable underlaying error ocurred: invalid memory reference\n"
                             "  signal number   = 11 (SIGSEGV)\n"
                             "  reason code     = Address not mapped to object (1)\n"
                             "  pid             = ";
    const ChildResult r = RunChild({"segv", "logged"});
    EXPECT_EQ(r.status, 255) << Describe({"segv", "logged"}, r);
    // The thread id and the context address vary: check their form.
    const std::string fixedHead = head + std::to_string(r.pid) + "\n";
    ASSERT_EQ(r.out.compare(0, fixedHead.size(), fixedHead), 0) << Describe({"segv", "logged"}, r);
    std::vector<std::string> rest;
    for (size_t at = fixedHead.size(); at < r.out.size();) {
        size_t end = r.out.find('\n', at);
        if (end == std::string::npos) end = r.out.size();
        rest.push_back(r.out.substr(at, end - at));
        at = end + 1;
    }
    ASSERT_EQ(rest.size(), 6u) << Describe({"segv", "logged"}, r);
    EXPECT_TRUE(IsNumberLine(rest[0], "  tid             = ", "0123456789")) << rest[0];
    EXPECT_EQ(rest[1], "  error number    = Success (0)");
    EXPECT_EQ(rest[2], "  roughly address = 0x10");
    EXPECT_TRUE(IsNumberLine(rest[3], "  thread context  = 0x", "0123456789abcdef")) << rest[3];
    EXPECT_EQ(rest[4], "<flush>");
    EXPECT_EQ(rest[5], "<flush>");
}

TEST(ProcessHandlers, AFaultInsideTheReportEndsAtOnce) {
    // The logger raises SIGBUS while writing the SIGSEGV record: the second
    // entry must not report again, nor flush.
    const ChildResult r = RunChild({"segv", "raising"});
    if (r.status == 77) GTEST_SKIP() << "not available in this build";
    EXPECT_EQ(r.status, 255) << Describe({"segv", "raising"}, r);
    EXPECT_EQ(r.out.rfind(kFatalTag + "unrecoverable underlaying error ocurred: ", 0), 0u)
        << Describe({"segv", "raising"}, r);
    EXPECT_EQ(r.out.find("\n<flush>"), std::string::npos) << Describe({"segv", "raising"}, r);
    EXPECT_EQ(r.out.find("(util.errhnd)", kFatalTag.size()), std::string::npos)
        << Describe({"segv", "raising"}, r);
}

TEST(ProcessHandlers, AFailedDebugCheckReportsItselfThenEndsThroughTheFlushingExit) {
    const ChildResult r = RunChild({"debug-check", "logged"});
    EXPECT_EQ(r.status, 255) << Describe({"debug-check", "logged"}, r);
    std::vector<std::string> lines;
    for (size_t at = 0; at < r.out.size();) {
        size_t end = r.out.find('\n', at);
        if (end == std::string::npos) end = r.out.size();
        lines.push_back(r.out.substr(at, end - at));
        at = end + 1;
    }
    ASSERT_EQ(lines.size(), 9u) << Describe({"debug-check", "logged"}, r);
    EXPECT_EQ(lines[0], "Fatal]   (debugger) debug checking failure");
    EXPECT_EQ(lines[1], "  expression    = \"1 + 1 == 3\"");
    EXPECT_EQ(lines[2], "  description   = \"arithmetic\"");
    const std::string fileTail = "tests/programs/fatal_paths.cpp\"";
    EXPECT_EQ(lines[3].rfind("  file name     = \"", 0), 0u);
    EXPECT_EQ(lines[3].substr(lines[3].size() - fileTail.size()), fileTail);
    EXPECT_TRUE(
        IsNumberLine(lines[4].substr(0, lines[4].size() - 1), "  line number   = \"", "0123456789"))
        << lines[4];
    EXPECT_EQ(lines[5].rfind("  last compiled = \"", 0), 0u);
    EXPECT_EQ(lines[7], "<flush>");
    EXPECT_EQ(lines[8], "<flush>");
}

TEST(ProcessHandlers, AWriteToAClosedPipeFailsWithEpipeInsteadOfKilling) {
    ExpectRoad({{"sigpipe"}, 0, "EPIPE\n"});
}

}  // namespace
}  // namespace Orlo
