// Process-level error handling: what happens when nothing else can help.
//
// Every program that links the library gets, before main, a set of
// handlers: ignored signals (a write to a closed pipe returns EPIPE instead
// of killing the process), a report for fatal signals, and handlers for an
// exhausted operator new, std::terminate and exceptions that escape an
// operation's declared list. Each writes one fatal record through the log
// front and ends the process with _exit(-1), status 255 to the shell.
//
// Declared exception lists: a public operation of the library documents
// which exception classes may leave it. GuardDeclared enforces that at the
// operation's edge; anything else is a programming fault and takes the
// unexpected path.

#ifndef ORLO_ERRHND_H
#define ORLO_ERRHND_H

#include <utility>

namespace Orlo {

// With `flushLog`, flushes the log front first; then _exit(-1). Runs no
// destructors and no exit functions.
[[noreturn]] void ExitProcess(bool flushLog);

namespace IMPL {

// Installs the process handlers on the first call; later calls only count.
void InstallProcessHandlers();

// The unexpected path: to be called from inside a catch handler whose
// exception is not on the operation's declared list. Writes the fatal
// record "an unexpected exception has occured, process aborted\n@ " with
// the exception's text and ends the process.
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
