// Process-level error handling; see orlo/errhnd.h.
//
// Every handler follows one road: write one fatal record named
// "util.errhnd" through the log front, flush, _exit(-1). Each guards its
// own entry with a counter, because the road itself can fail the same way
// (an allocation in the record of an allocation failure, a fault inside the
// report of a fault): a second entry ends the process at once instead of
// looping. The counters are atomics so that two threads failing together
// still both reach _exit.
//
// The report of a fatal signal is built only when the record will reach a
// logger. A fault inside malloc leaves its lock held, and building a text
// would then hang the process; a program with no logger, like the mendo
// tool, goes straight to _exit.
//
// Installation runs from this file's static constructor. A static archive
// links an object file only when something refers to it, so the library's
// link options name the anchor symbol below as undefined, which pulls this
// file, and with it the handlers, into every program.

#include "orlo/errhnd.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <exception>
#include <new>

#include "orlo/exceptions.h"
#include "orlo/log.h"

// The symbol the link options ask for; see above.
extern "C" {
extern const int orlo_errhnd_anchor;
const int orlo_errhnd_anchor = 1;
}

namespace Orlo {
namespace {

constexpr const char* kRecordName = "util.errhnd";

int g_installCount = 0;
std::atomic<int> g_reportUnderWay{0};
std::atomic<int> g_newFailures{0};
std::atomic<int> g_terminations{0};

// Writes the fatal record; nothing may stop the road to _exit, so a
// logger's exception is dropped.
void WriteFatalRecord(const stringEx& text) {
    try {
        CLog::Fatal(stringEx::view(kRecordName), text);
    } catch (...) {
    }
}

// ---- the report of a fatal signal ----------------------------------------------------

struct SignalWords {
    int signo;
    const char* name;       // "SIGSEGV"
    const char* firstLine;  // "invalid memory reference"
};

constexpr SignalWords kFatalSignals[] = {
    {SIGBUS, "SIGBUS", "hardware fault"},      {SIGFPE, "SIGFPE", "arithmetic exception"},
    {SIGILL, "SIGILL", "illegal instruction"}, {SIGSEGV, "SIGSEGV", "invalid memory reference"},
    {SIGSYS, "SIGSYS", "invalid system call"}, {SIGTRAP, "SIGTRAP", "a breakpoint has reached"},
};

const SignalWords* FindFatalSignal(int signo) {
    for (const SignalWords& words : kFatalSignals)
        if (words.signo == signo) return &words;
    return nullptr;
}

// Reason words by si_code, index 0 unused; null entries are codes the
// table doesn't list. SIGFPE has no entry 3 on purpose.
constexpr const char* kBusReasons[] = {nullptr, "Invalid address alignment",
                                       "Nonexistent physical address",
                                       "Object specific hardware error"};
constexpr const char* kFpeReasons[] = {nullptr,
                                       "Integer divide by zero",
                                       "Integer overflow",
                                       nullptr,
                                       "Floating-point overflow",
                                       "Floating-point underflow",
                                       "Floating-point inexact result",
                                       "Invalid floating-point operation",
                                       "Subscript out of range"};
constexpr const char* kIllReasons[] = {nullptr,
                                       "Illegal opcode",
                                       "Illegal operand",
                                       "Illegal addressing mode",
                                       "Illegal trap",
                                       "Privileged opcode",
                                       "Privileged register",
                                       "Coprocessor error",
                                       "Internal stack error"};

template <size_t N>
const char* ReasonFromTable(const char* const (&table)[N], int code) {
    if (code <= 0 || size_t(code) >= N || !table[code]) return "Unknown Reason";
    return table[code];
}

// The words before " (code)"; SIGSYS has none.
const char* ReasonWords(int signo, int code) {
    switch (signo) {
        case SIGBUS:
            return ReasonFromTable(kBusReasons, code);
        case SIGFPE:
            return ReasonFromTable(kFpeReasons, code);
        case SIGILL:
            return ReasonFromTable(kIllReasons, code);
        case SIGSEGV:
            return code == SEGV_MAPERR ? "Address not mapped to object"
                                       : "Invalid permissions for mapped object";
        default:
            return "";
    }
}

void AppendReasonLine(stringEx& report, const IMPL::FatalSignalFacts& facts, bool known) {
    report.append("  reason code     = ");
    if (!known) {
        report.append("unknown\n");
        return;
    }
    if (facts.signo == SIGTRAP) {
        report.append("none\n");
        return;
    }
    report.append(ReasonWords(facts.signo, facts.code));
    report.append(" (");
    report.AppendInt(facts.code, 10);
    report.append(")\n");
}

// ---- the handlers ----------------------------------------------------------------------

void OnFatalSignal(int signo, siginfo_t* info, void* context) {
    if (g_reportUnderWay.exchange(1) != 0) _exit(-1);
    try {
        if (CLog::Accepts(LogLevel::Fatal)) {
            IMPL::FatalSignalFacts facts;
            facts.signo = signo;
            facts.code = info ? info->si_code : 0;
            facts.errnum = info ? info->si_errno : 0;
            facts.address = info ? info->si_addr : nullptr;
            facts.context = context;
            facts.pid = long(getpid());
            facts.threadId = static_cast<unsigned long>(pthread_self());
            CLog::Fatal(kRecordName, "unrecoverable underlaying error ocurred: %s",
                        IMPL::FatalSignalReport(facts).c_str());
        }
    } catch (...) {
    }
    ExitProcess(true);
}

void OnNewFailure() {
    if (g_newFailures.fetch_add(1) != 0) _exit(-1);
    WriteFatalRecord(stringEx::view("not enough memory, process aborted"));
    ExitProcess(true);
}

void OnTerminate() {
    if (g_terminations.fetch_add(1) != 0) _exit(-1);
    WriteFatalRecord(stringEx::view("process has been terminated in an unexpected way"));
    ExitProcess(true);
}

// ---- installation ------------------------------------------------------------------------

// A program that writes to a closed pipe, or is stopped by terminal or
// resource signals, should see an error return rather than die.
void IgnoreQuietSignals() {
    struct sigaction ignore;
    std::memset(&ignore, 0, sizeof ignore);
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    for (int signo : {SIGPIPE, SIGURG, SIGTTIN, SIGTTOU, SIGXFSZ, SIGXCPU})
        sigaction(signo, &ignore, nullptr);
}

void CatchFatalSignals() {
    struct sigaction report;
    std::memset(&report, 0, sizeof report);
    report.sa_sigaction = OnFatalSignal;
    report.sa_flags = SA_SIGINFO;
    sigemptyset(&report.sa_mask);
    for (const SignalWords& words : kFatalSignals)
        sigaction(words.signo, &report, nullptr);
}

// The first real-time signal is kept for the library's own use; blocking
// it here, before any thread exists, makes every later thread inherit that.
void BlockFirstRealTimeSignal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGRTMIN);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

const struct ProcessHandlersInit {
    ProcessHandlersInit() { IMPL::InstallProcessHandlers(); }
} g_processHandlersInit;

}  // namespace

void ExitProcess(bool flushLog) {
    if (flushLog) {
        // The process ends whatever a logger does in its flush.
        try {
            CLog::Flush();
        } catch (...) {
        }
    }
    _exit(-1);
}

namespace IMPL {

void InstallProcessHandlers() {
    if (g_installCount++ != 0) return;
    IgnoreQuietSignals();
    CatchFatalSignals();
    BlockFirstRealTimeSignal();
    std::set_new_handler(OnNewFailure);
    std::set_terminate(OnTerminate);
}

void OnUnexpectedException() {
    stringEx text;
    try {
        throw;
    } catch (const byExp& e) {
        text = e.message;
    } catch (const std::exception& e) {
        text = stringEx::view(e.what());
    } catch (...) {
        text = stringEx::view("unknown system error");
    }
    try {
        CLog::Fatal(kRecordName, "an unexpected exception has occured, process aborted\n@ %s",
                    text.c_str());
    } catch (...) {
    }
    ExitProcess(true);
}

stringEx FatalSignalReport(const FatalSignalFacts& facts) {
    const SignalWords* words = FindFatalSignal(facts.signo);
    stringEx report(words ? words->firstLine : "unknown system error");
    report.append("\n  signal number   = ");
    report.AppendInt(facts.signo, 10);
    if (words) {
        report.append(" (");
        report.append(words->name);
        report.push_back(')');
    }
    report.push_back('\n');
    AppendReasonLine(report, facts, words != nullptr);
    report.append("  pid             = ");
    report.AppendFormat("%ld", facts.pid);
    report.append("\n  tid             = ");
    report.AppendFormat("%lu", facts.threadId);
    report.append("\n  error number    = ");
    report.append(std::strerror(facts.errnum));
    report.append(" (");
    report.AppendInt(facts.errnum, 10);
    report.append(")\n  roughly address = ");
    report.AppendFormat("%p", facts.address);
    report.append("\n  thread context  = ");
    report.AppendFormat("%p", facts.context);
    return report;
}

}  // namespace IMPL
}  // namespace Orlo
