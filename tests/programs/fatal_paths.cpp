// A program that dies on purpose, for the tests of the process-level
// handlers: each mode takes one road to the end of a process (a fault, a
// failed allocation, std::terminate, an undeclared exception, a failed
// debug check) or checks that a road is closed (a write to a closed pipe).
//
//   orlo_program_fatal_paths MODE [LOGGER]
//
// LOGGER installs a log object whose logger writes each record to standard
// output as "TAG(NAME) TEXT\n" and each flush as "<flush>\n", with plain
// write calls, so that nothing is lost when the process ends with _exit:
//   logged     the logger, minimum level Debug
//   off        the logger, minimum level Off
//   raising    the logger, which raises SIGBUS after printing its record
// Without LOGGER no log object exists, as in the mendo tool.
//
// A road that returns exits with 0; one the tests can't take in this build
// exits with 77.

#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"
#include "orlo/log.h"

namespace {

using namespace Orlo;

void Print(std::string_view text) {
    while (!text.empty()) {
        ssize_t n = write(STDOUT_FILENO, text.data(), text.size());
        if (n <= 0) return;
        text.remove_prefix(size_t(n));
    }
}

class StdoutLogger : public ILogger {
  public:
    explicit StdoutLogger(bool raises) : m_raises(raises) {}

    bool Write(const CTime&, int level, const stringEx& name, const stringEx& text) override {
        std::string line = CLog::LevelTag(level);
        line.append("(").append(name.view()).append(") ").append(text.view()).append("\n");
        Print(line);
        if (m_raises) raise(SIGBUS);
        return true;
    }
    void Flush() override { Print("<flush>\n"); }

  private:
    bool m_raises;
};

void InstallLogger(std::string_view kind) {
    if (kind.empty()) return;
    auto log = std::make_shared<CLog>();
    log->PushLogger(std::make_shared<StdoutLogger>(kind == "raising"));
    if (kind == "off") log->SetMinLevel(LogLevel::Off);
    CLog::SetCurrent(log);
}

// A store to a fixed unmapped address, hidden from the optimiser.
void Fault() {
    volatile uintptr_t address = 16;
    *reinterpret_cast<volatile int*>(address) = 1;
}

void* volatile g_keep;

int FailAllocation() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 77;  // the sanitizer's allocator reports the failure itself
#else
    // A cap on the address space makes the failure certain whatever the
    // system's overcommit policy.
    rlimit limit{size_t(1) << 32, size_t(1) << 32};
    setrlimit(RLIMIT_AS, &limit);
    volatile size_t huge = size_t(1) << 40;
    g_keep = ::operator new(huge);
    return 0;
#endif
}

int WriteToClosedPipe() {
    int fds[2];
    if (pipe(fds) != 0) return 2;
    close(fds[0]);
    if (write(fds[1], "x", 1) < 0 && errno == EPIPE) Print("EPIPE\n");
    return 0;
}

int Run(std::string_view mode) {
    if (mode == "segv") Fault();
    if (mode == "new") return FailAllocation();
    if (mode == "terminate") std::terminate();
    if (mode == "guard-byexp")
        GuardDeclared<mutexExp>([] {
            throw dirExp(ExpMessage("CDir::ReadFile - read what ?"), DirCode::InvalidArgument);
        });
    if (mode == "guard-std") GuardDeclared<mutexExp>([] { throw std::runtime_error("boom"); });
    if (mode == "guard-other") GuardDeclared<mutexExp>([] { throw 7; });
    if (mode == "debug-check") ORLO_DEBUG_CHECK(1 + 1 == 3, "arithmetic");
    if (mode == "sigpipe") return WriteToClosedPipe();
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const std::string_view logger = argc > 2 ? argv[2] : "";
#if defined(__SANITIZE_THREAD__)
    // The thread sanitizer holds back a signal raised inside a handler until
    // the handler returns, which ours never does.
    if (logger == "raising") return 77;
#endif
    InstallLogger(logger);
    return Run(argv[1]);
}
