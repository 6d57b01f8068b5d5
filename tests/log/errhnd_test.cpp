// The process-level handlers. The report of a fatal signal is checked as
// text; every road to the end of a process is taken for real in a child
// program (tests/programs/fatal_paths.cpp), judged by its exit status and
// the records its logger printed.

#include "orlo/errhnd.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

#include "orlo/exceptions.h"

namespace Orlo {
namespace {

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
        {SIGBUS, SI_TKILL, "hardware fault", "7 (SIGBUS)", "Unknown Reason (-6)"},
        {SIGFPE, 3, "arithmetic exception", "8 (SIGFPE)",
         "Unknown Reason (3)"},  // 3 skipped on purpose
        {SIGFPE, 8, "arithmetic exception", "8 (SIGFPE)", "Subscript out of range (8)"},
        {SIGILL, 8, "illegal instruction", "4 (SIGILL)", "Internal stack error (8)"},
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

TEST(GuardDeclared, LetsOutDeclaredClassesAndTheirSubclassesAndReturnsTheResult) {
    EXPECT_EQ(GuardDeclared<mutexExp>([] { return 42; }), 42);
    EXPECT_THROW(GuardDeclared<mutexExp>([] { throw mutexExp(stringEx("m"), 4); }), mutexExp);
    EXPECT_THROW(GuardDeclared<ioExp>([] { throw pipeExp(stringEx("p"), 7); }), pipeExp);
    EXPECT_THROW((GuardDeclared<mutexExp, semExp>([] { throw semExp(stringEx("s"), 4); })), semExp);
    EXPECT_THROW(GuardDeclared<std::exception>([] { throw std::runtime_error("r"); }),
                 std::runtime_error);
}

struct ChildResult {
    int status = -1;  // exit status, or -1 when the child was killed
    std::string out;
    pid_t pid = 0;
    std::string what;  // the command and its result, for failure messages
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        for (size_t at = 0, end; at < out.size(); at = end + 1) {
            end = std::min(out.find('\n', at), out.size());
            lines.push_back(out.substr(at, end - at));
        }
        return lines;
    }
};

// Runs the fatal_paths program with `args`, with the default disposition of
// every signal and an empty mask as from a shell: this process ignores
// SIGPIPE, and an ignored signal would stay ignored across exec.
ChildResult RunChild(std::vector<std::string> args) {
    std::string program = ORLO_TEST_PROGRAMS_DIR "/orlo_program_fatal_paths";
    std::vector<char*> argv{program.data()};
    for (auto& w : args)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    ChildResult r;
    r.pid = fork();
    if (r.pid < 0) throw std::runtime_error("fork failed");
    if (r.pid == 0) {
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
    for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) != 0;) {
        if (n > 0)
            r.out.append(buffer, size_t(n));
        else if (errno != EINTR)
            break;
    }
    close(out[0]);
    int status = 0;
    while (waitpid(r.pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) r.status = WEXITSTATUS(status);
    r.what = "fatal_paths";
    for (const auto& a : args)
        r.what += " " + a;
    r.what += "\n  status " + std::to_string(r.status) + ", raw " + std::to_string(status) +
              "\n--- output\n" + r.out;
    return r;
}

// True when `text` is `prefix` followed by one or more of `digits` only.
bool IsNumberLine(const std::string& text, const std::string& prefix, const char* digits) {
    if (text.compare(0, prefix.size(), prefix) != 0 || text.size() == prefix.size()) return false;
    return text.find_first_not_of(digits, prefix.size()) == std::string::npos;
}

void ExpectRoad(const std::vector<std::string>& args, int status, const std::string& out) {
    const ChildResult r = RunChild(args);
    if (r.status == 77) GTEST_SKIP() << "not available in this build: " << args[0];
    EXPECT_EQ(r.status, status) << r.what;
    EXPECT_EQ(r.out, out) << r.what;
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
        ExpectRoad({mode}, 255, "");
    }
    const std::string unexpected = "an unexpected exception has occured, process aborted\n@ ";
    const struct {
        const char* mode;
        std::string record;
    } cases[] = {
        {"new", "not enough memory, process aborted\n"},
        {"terminate", "process has been terminated in an unexpected way\n"},
        {"guard-byexp", unexpected + "CDir::ReadFile - read what ?\n"},
        {"guard-std", unexpected + "boom\n"},
        {"guard-other", unexpected + "unknown system error\n"},
    };
    for (const auto& c : cases)
        ExpectRoad({c.mode, "logged"}, 255, kFatalTag + c.record + kTwoFlushes);
    // Minimum level Off: no report, but the flush and the exit all the same.
    ExpectRoad({"debug-check", "off"}, 255, "<flush>\n");
}

TEST(ProcessHandlers, AFaultIsReportedWithItsSignalReasonAndAddress) {
    const ChildResult r = RunChild({"segv", "logged"});
    EXPECT_EQ(r.status, 255) << r.what;
    const std::vector<std::string> lines = r.Lines();
    ASSERT_EQ(lines.size(), 10u) << r.what;
    EXPECT_EQ(lines[0],
              kFatalTag + "unrecoverable underlaying error ocurred: invalid memory reference");
    EXPECT_EQ(lines[1], "  signal number   = 11 (SIGSEGV)");
    EXPECT_EQ(lines[2], "  reason code     = Address not mapped to object (1)");
    EXPECT_EQ(lines[3], "  pid             = " + std::to_string(r.pid));
    // The thread id and the context address vary: check their form.
    EXPECT_TRUE(IsNumberLine(lines[4], "  tid             = ", "0123456789")) << lines[4];
    EXPECT_EQ(lines[5], "  error number    = Success (0)");
    EXPECT_EQ(lines[6], "  roughly address = 0x10");
    EXPECT_TRUE(IsNumberLine(lines[7], "  thread context  = 0x", "0123456789abcdef")) << lines[7];
    EXPECT_EQ(lines[8] + lines[9], "<flush><flush>");
}

TEST(ProcessHandlers, AFaultInsideTheReportEndsAtOnce) {
    // The logger raises SIGBUS while writing the SIGSEGV record: the second
    // entry must not report again, nor flush.
    const ChildResult r = RunChild({"segv", "raising"});
    if (r.status == 77) GTEST_SKIP() << "not available in this build";
    EXPECT_EQ(r.status, 255) << r.what;
    EXPECT_EQ(r.out.rfind(kFatalTag + "unrecoverable underlaying error ocurred: ", 0), 0u)
        << r.what;
    EXPECT_EQ(r.out.find("\n<flush>"), std::string::npos) << r.what;
    EXPECT_EQ(r.out.find("(util.errhnd)", kFatalTag.size()), std::string::npos) << r.what;
}

TEST(ProcessHandlers, AFailedDebugCheckReportsItselfThenEndsThroughTheFlushingExit) {
    const ChildResult r = RunChild({"debug-check", "logged"});
    EXPECT_EQ(r.status, 255) << r.what;
    const std::vector<std::string> lines = r.Lines();
    ASSERT_EQ(lines.size(), 9u) << r.what;
    EXPECT_EQ(lines[0], "Fatal]   (debugger) debug checking failure");
    EXPECT_EQ(lines[1], "  expression    = \"1 + 1 == 3\"");
    EXPECT_EQ(lines[2], "  description   = \"arithmetic\"");
    EXPECT_TRUE(lines[3].starts_with("  file name     = \"") &&
                lines[3].ends_with("tests/programs/fatal_paths.cpp\""))
        << lines[3];
    EXPECT_TRUE(lines[4].ends_with("\"") && IsNumberLine(lines[4].substr(0, lines[4].size() - 1),
                                                         "  line number   = \"", "0123456789"))
        << lines[4];
    EXPECT_TRUE(lines[5].starts_with("  last compiled = \"")) << lines[5];
    EXPECT_EQ(lines[7] + lines[8], "<flush><flush>");
}

TEST(ProcessHandlers, AWriteToAClosedPipeFailsWithEpipeInsteadOfKilling) {
    ExpectRoad({"sigpipe"}, 0, "EPIPE\n");
}

}  // namespace
}  // namespace Orlo
