// The log front; see orlo/log.h.
//
// The process-wide object lives in a record built on first use and never
// destroyed: the process handlers and the static constructors and
// destructors of other modules may log at any moment, before this file's
// static constructor has run or after the exit functions. The record is
// built, at the latest, by this file's static constructor, which also
// registers the exit function that lets go of the current object, so a
// normal exit still flushes and closes the loggers.
//
// Every path that writes makes its cheap tests first (a current object, the
// level, a logger to write to) and formats only then, so a program that
// installs nothing never formats a record.

#include "orlo/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "orlo/errhnd.h"
#include "orlo/exceptions.h"
#include "orlo/exp_message.h"

namespace Orlo {
namespace {

// Holds a lock for a scope.
template <class Lock>
class Held {
  public:
    explicit Held(Lock& lock) : m_lock(lock) { m_lock.Lock(); }
    ~Held() { m_lock.UnLock(); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

  private:
    Lock& m_lock;
};

// Ends a va_list on every way out of a scope, a logger's exception included.
class ArgsEnd {
  public:
    explicit ArgsEnd(va_list& args) : m_args(args) {}
    ~ArgsEnd() { va_end(m_args); }
    ArgsEnd(const ArgsEnd&) = delete;
    ArgsEnd& operator=(const ArgsEnd&) = delete;

  private:
    va_list& m_args;
};

struct CurrentLog {
    FASTPDU_PCLOCK lock;  // `currentLock`
    std::shared_ptr<CLog> log;
};

void ReleaseCurrentAtExit() {
    // An exit function must not throw; a failure here only means the
    // loggers are not closed properly.
    try {
        CLog::SetCurrent(nullptr);
    } catch (...) {
    }
}

CurrentLog& Current() {
    static CurrentLog* const state = [] {
        auto* made = new CurrentLog;
        std::atexit(ReleaseCurrentAtExit);
        return made;
    }();
    return *state;
}

// Builds the record before main, so that the exit function is registered
// before any other module's and runs after theirs.
const struct LogModuleInit {
    LogModuleInit() { Current(); }
} g_logModuleInit;

// Formats into `firstSize` bytes; a text that doesn't fit is measured and
// formatted again in room of its exact size, so a record is never cut.
stringEx FormatRecord(uint32_t firstSize, const char* format, va_list args) {
    va_list measure, again;
    va_copy(measure, args);
    ArgsEnd endMeasure(measure);
    va_copy(again, args);
    ArgsEnd endAgain(again);

    stringEx text;
    text.FormatV(firstSize, format, args);
    if (uint64_t(text.size()) + 1 < firstSize) return text;
    const int needed = std::vsnprintf(nullptr, 0, format, measure);
    if (needed < 0 || uint64_t(needed) + 1 <= firstSize) return text;
    text.FormatV(uint32_t(needed) + 1, format, again);
    return text;
}

// Not in the family's table: this failure goes away with the logging thread.
constexpr int32_t kNoLoggingThread = 0;

}  // namespace

// ---- ILogger ---------------------------------------------------------------------

ILogger::~ILogger() = default;
void ILogger::Flush() {}
void ILogger::Notify() {}

// ---- level words -----------------------------------------------------------------

const char* CLog::LevelText(int level) noexcept {
    switch (level) {
        case LogLevel::Debug:
            return "debug only";
        case LogLevel::Info:
            return "info";
        case LogLevel::Warning:
            return "warning";
        case LogLevel::Error:
            return "error";
        case LogLevel::Notice:
            return "important notice";
        case LogLevel::Fatal:
            return "fatal error";
        case LogLevel::Off:
            return "disabled";
        default:
            return "unknown";
    }
}

const char* CLog::LevelTag(int level) noexcept {
    switch (level) {
        case LogLevel::Debug:
            return "Debug]   ";
        case LogLevel::Info:
            return "Info]    ";
        case LogLevel::Warning:
            return "Warning] ";
        case LogLevel::Error:
            return "Error]   ";
        case LogLevel::Notice:
            return "Notice]  ";
        case LogLevel::Fatal:
            return "Fatal]   ";
        default:
            return "Unknown] ";
    }
}

// ---- the process-wide object -------------------------------------------------------

void CLog::SetCurrent(std::shared_ptr<CLog> log) {
    CurrentLog& current = Current();
    Held held(current.lock);
    // Released here, under the lock, so that no record reaches an object
    // that is being destroyed.
    std::shared_ptr<CLog> old = std::exchange(current.log, std::move(log));
}

std::shared_ptr<CLog> CLog::GetCurrent() {
    CurrentLog& current = Current();
    Held held(current.lock);
    return current.log;
}

bool CLog::Accepts(int level) {
    CurrentLog& current = Current();
    Held held(current.lock);
    return current.log && current.log->PassesLevel(level) && current.log->HasLoggers();
}

void CLog::Flush() {
    CurrentLog& current = Current();
    Held held(current.lock);
    if (current.log) current.log->FlushLoggers();
}

void CLog::Log(int level, const stringEx& name, const stringEx& text) {
    CurrentLog& current = Current();
    Held held(current.lock);
    if (current.log) current.log->Write(level, name, text);
}

void CLog::LogV(int level, const char* name, const char* format, va_list args) {
    CurrentLog& current = Current();
    Held held(current.lock);
    if (current.log) current.log->WriteV(level, name, format, args);
}

// The body of each variadic form: gather the arguments and hand them on.
#define ORLO_FORWARD_ARGS(lastNamed, call) \
    va_list args;                          \
    va_start(args, lastNamed);             \
    ArgsEnd endArgs(args);                 \
    call

void CLog::Log(int level, const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, LogV(level, name, format, args));
}
void CLog::Debug(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, LogV(LogLevel::Debug, name, format, args));
}
void CLog::Info(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, LogV(LogLevel::Info, name, format, args));
}
void CLog::Warning(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, LogV(LogLevel::Warning, name, format, args));
}
void CLog::Error(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, LogV(LogLevel::Error, name, format, args));
}
void CLog::Notice(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, LogV(LogLevel::Notice, name, format, args));
}
void CLog::Fatal(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, LogV(LogLevel::Fatal, name, format, args));
}

void CLog::Write(int level, const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, WriteV(level, name, format, args));
}
void CLog::WriteDebug(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, WriteV(LogLevel::Debug, name, format, args));
}
void CLog::WriteInfo(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, WriteV(LogLevel::Info, name, format, args));
}
void CLog::WriteWarning(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, WriteV(LogLevel::Warning, name, format, args));
}
void CLog::WriteError(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, WriteV(LogLevel::Error, name, format, args));
}
void CLog::WriteNotice(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, WriteV(LogLevel::Notice, name, format, args));
}
void CLog::WriteFatal(const char* name, const char* format, ...) {
    ORLO_FORWARD_ARGS(format, WriteV(LogLevel::Fatal, name, format, args));
}

#undef ORLO_FORWARD_ARGS

void CLog::DebugCheckFailed(const char* expression, const char* description, const char* fileName,
                            int lineNumber, const char* compileDate, const char* compileTime,
                            const char* lastModified) {
    // The process ends whatever happens while reporting.
    try {
        CurrentLog& current = Current();
        Held held(current.lock);
        if (current.log && current.log->GetMinLevel() < LogLevel::Off) {
            current.log->Write(LogLevel::Fatal, stringEx::view("debugger"),
                               IMPL::DebugCheckReport(expression, description, fileName, lineNumber,
                                                      compileDate, compileTime, lastModified));
        }
    } catch (...) {
    }
    ExitProcess(true);
}

// ---- the log object ------------------------------------------------------------------

CLog::CLog(uint32_t formatSize) : m_formatSize(formatSize) {}

CLog::~CLog() noexcept {
    // The thread holds queued records; stopping it writes them out. A
    // failure can only lose those records.
    try {
        EnableThread(false, 0x7FFFFFFF);
    } catch (...) {
    }
}

void CLog::Write(int level, const stringEx& name, const stringEx& text) {
    if (!PassesLevel(level)) return;
    {
        Held held(m_lock);
        if (m_loggers.empty()) return;
        Deliver(level, name, text);
    }
    if (level == LogLevel::Fatal) FlushLoggers();
}

void CLog::WriteV(int level, const char* name, const char* format, va_list args) {
    if (!PassesLevel(level)) return;
    {
        Held held(m_lock);
        if (m_loggers.empty()) return;
        Deliver(level, stringEx::view(name), FormatRecord(m_formatSize, format, args));
    }
    if (level == LogLevel::Fatal) FlushLoggers();
}

void CLog::Deliver(int level, const stringEx& name, const stringEx& text) {
    const CTime when = CTime::now();
    // With a logging thread the record would be queued here instead; until
    // that exists, m_thread stays null and records go straight out.
    if (m_filter && !m_filter->Write(when, level, name, text)) return;
    // By index and by copy: a logger may log, or change the stack, from
    // inside its Write.
    for (size_t i = 0; i < m_loggers.size(); ++i) {
        const std::shared_ptr<ILogger> logger = m_loggers[i];
        if (logger) logger->Write(when, level, name, text);
    }
}

void CLog::FlushLoggers() {
    Held held(m_lock);
    // A logging thread would be drained here first.
    for (size_t i = 0; i < m_loggers.size(); ++i) {
        const std::shared_ptr<ILogger> logger = m_loggers[i];
        if (logger) logger->Flush();
    }
}

void CLog::PushLogger(std::shared_ptr<ILogger> logger) {
    if (!logger)
        throw logExp(ExpMessage("CLog::PushLogger - invalid logger handle"),
                     LogCode::InvalidLogger);
    Held held(m_lock);
    m_loggers.push_back(std::move(logger));
}

std::shared_ptr<ILogger> CLog::PopLogger() {
    Held held(m_lock);
    if (m_loggers.empty())
        throw logExp(ExpMessage("CLog::PopLogger - nothing to pop"), LogCode::NothingToPop);
    std::shared_ptr<ILogger> last = std::move(m_loggers.back());
    m_loggers.pop_back();
    return last;
}

bool CLog::HasLoggers() const {
    Held held(m_lock);
    return !m_loggers.empty();
}

void CLog::SetMinLevel(int32_t level) {
    Held held(m_lock);
    m_minLevel.store(level, std::memory_order_relaxed);
}

void CLog::SetFilter(std::shared_ptr<ILogger> filter) {
    Held held(m_lock);
    m_filter = std::move(filter);
}

void CLog::EnableThread(bool on, uint32_t /*queueCapacity*/) {
    Held held(m_lock);
    // Without a thread there is nothing to stop, and one can't be started
    // until the logging thread is part of the library.
    if (!on || m_thread) return;
    throw logExp(ExpMessage("CLog::EnableThread - logging thread not available"), kNoLoggingThread);
}

// ---- debug check report -----------------------------------------------------------------

namespace IMPL {
namespace {

void AppendQuoted(stringEx& report, const char* label, const char* value) {
    report.append(label);
    report.append(value ? value : "");
    report.push_back('"');
}

}  // namespace

stringEx DebugCheckReport(const char* expression, const char* description, const char* fileName,
                          int lineNumber, const char* compileDate, const char* compileTime,
                          const char* lastModified) {
    stringEx report("debug checking failure\n");
    AppendQuoted(report, "  expression    = \"", expression);
    AppendQuoted(report, "\n  description   = \"", description);
    AppendQuoted(report, "\n  file name     = \"", fileName);
    report.append("\n  line number   = \"");
    report.AppendInt(lineNumber, 10);
    report.append("\"\n  last compiled = \"");
    report.append(compileDate ? compileDate : "");
    report.push_back(' ');
    AppendQuoted(report, "", compileTime);
    AppendQuoted(report, "\n  last modified = \"", lastModified);
    return report;
}

}  // namespace IMPL
}  // namespace Orlo
