// Process-level error handling: what happens when nothing else can help.
//
// Every program that links the library gets, before main, a set of
// handlers: ignored signals (a write to a closed pipe returns EPIPE instead
// of killing the process), a report for fatal signals, and handlers for an
// exhausted operator new, std::terminate and exceptions that escape an
// operation's declared list. Each writes one fatal record named
// "util.errhnd" through the log front (orlo/log.h), flushes it, and ends the
// process with _exit(-1), status 255 to the shell. With no log object
// installed the record goes nowhere and the process just ends.
//
// Installation is a counted initialiser: the static constructor of each
// module that needs the handlers calls InstallProcessHandlers, the first call
// does the work and the others only count. The library's link options keep
// this module in every program even when nothing in it is referenced, so a
// tool that never logs still ignores SIGPIPE. There is no removal.
//
// Declared exception lists: a public operation of the library documents
// which exception classes may leave it. GuardDeclared enforces that at the
// operation's edge; anything else is a programming fault and takes the
// unexpected path. (The language no longer calls an unexpected handler by
// itself, so this guard is the only way in.)

#ifndef ORLO_ERRHND_H
#define ORLO_ERRHND_H

#include <utility>

#include "orlo/stringEx.h"

namespace Orlo {

// The flushing exit. With `flushLog`, flushes the log front first
// (CLog::Flush); then _exit(-1). Runs no destructors and no exit functions,
// so files that were not flushed lose what they held.
[[noreturn]] void ExitProcess(bool flushLog);

namespace IMPL {

// Installs the process handlers on the first call; later calls only count.
// Called from static constructors, before main, on one thread.
void InstallProcessHandlers();

// The unexpected path: to be called from inside a catch handler whose
// exception is not on the operation's declared list. Writes the fatal
// record "an unexpected exception has occured, process aborted\n@ " and the
// exception's text (a byExp's message, a std::exception's what(), or
// "unknown system error"), flushes and ends the process.
[[noreturn]] void OnUnexpectedException();

// Inside a catch handler: rethrows the exception in flight if it is one of
// Allowed..., otherwise takes the unexpected path.
template <class First, class... Rest>
[[noreturn]] void RethrowIfDeclared() {
    try {
        throw;
    } catch (const First&) {
        throw;
    } catch (...) {
        if constexpr (sizeof...(Rest) > 0) {
            RethrowIfDeclared<Rest...>();
        } else {
            OnUnexpectedException();
        }
    }
}

// ---- implementation details, past this point ----------------------------------

// What the report of a fatal signal tells, taken from the handler's
// arguments, so that the text can be built without a real fault.
struct FatalSignalFacts {
    int signo = 0;
    int code = 0;                   // si_code
    int errnum = 0;                 // si_errno
    const void* address = nullptr;  // si_addr
    const void* context = nullptr;  // the handler's third argument
    long pid = 0;                   // getpid()
    unsigned long threadId = 0;     // pthread_self()
};

// The report of a fatal signal, a pure function of `facts`:
//   "invalid memory reference\n"
//   "  signal number   = 11 (SIGSEGV)\n"
//   "  reason code     = Address not mapped to object (1)\n"
//   "  pid             = 4242\n"
//   "  tid             = 140230\n"
//   "  error number    = Success (0)\n"
//   "  roughly address = 0x10\n"
//   "  thread context  = 0x7ffc..."          (no line feed at the end)
// The first line and the reason words depend on the signal and si_code.
// Throws std::bad_alloc only.
stringEx FatalSignalReport(const FatalSignalFacts& facts);

}  // namespace IMPL

// Runs `body` and lets out only exceptions of the classes Allowed... (and
// their subclasses); anything else ends the process through the unexpected
// path. Returns what `body` returns.
//   CMutex::CMutex(bool owned) { GuardDeclared<mutexExp>([&] { Create(owned); }); }
template <class... Allowed, class Body>
decltype(auto) GuardDeclared(Body&& body) {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        IMPL::RethrowIfDeclared<Allowed...>();
    }
}

}  // namespace Orlo

#endif  // ORLO_ERRHND_H
