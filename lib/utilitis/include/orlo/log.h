// The log front: CLog, the one place where library code reports something
// without stopping, and ILogger, the interface of what takes the records.
//
// A record is a level (LogLevel, 0 debug to 5 fatal), a dotted name
// ("util.sysfile") and a text. It goes to the process-wide log object, which
// hands it to a filter, if one is set, and then to its stack of loggers,
// first pushed first. Code throws for failures that its caller must handle
// and logs what it decided to swallow.
//
// The process-wide object starts as nothing, and programs that install none
// pay almost nothing: every static call takes one lock, finds no object and
// returns without formatting its arguments. Likewise a record below the
// object's minimum level, or one for an object with no loggers, is dropped
// before its text is built; that is why each level has a variadic form that
// formats only after the test.
//
// The static functions (CLog::Info(...)) reach the current object under
// `currentLock`; the same operations exist as members for an object held
// directly (log.WriteInfo(...)), under the object's own `lock`. Lock order:
// `currentLock`, then `lock`. Both are recursive, so a logger may log.
//
// A fatal record is flushed before the call returns, because it is usually
// the last thing a process says: the handlers of orlo/errhnd.h write one and
// then _exit.

#ifndef ORLO_LOG_H
#define ORLO_LOG_H

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>
#include <vector>

#include "orlo/fast_lock.h"
#include "orlo/stringEx.h"
#include "orlo/time.h"

// printf checking of the variadic forms: a mismatch there is found at
// compile time instead of in a record nobody reads until it matters.
#define ORLO_LOG_PRINTF(formatIndex, firstArg) \
    __attribute__((format(printf, formatIndex, firstArg)))

namespace Orlo {

// Levels of a record. A log object drops records below its minimum level;
// Off as the minimum drops every record of the levels below it.
namespace LogLevel {
enum Value : int32_t {
    Debug = 0,
    Info = 1,
    Warning = 2,
    Error = 3,
    Notice = 4,
    Fatal = 5,
    Off = 6,
};
}  // namespace LogLevel

// Takes finished records and puts them somewhere. Loggers are handed to
// CLog as shared pointers and called under its lock, one thread at a time,
// so they need no lock of their own.
class ILogger {
  public:
    virtual ~ILogger();

    // Writes one record. `when` is the time of the record, `level` its
    // LogLevel (any value may arrive), `name` and `text` as the caller gave
    // them, line feeds included. The result matters only for a logger used
    // as a filter: false stops the record before the loggers see it.
    // Exceptions pass through CLog to the code that logged.
    virtual bool Write(const CTime& when, int level, const stringEx& name,
                       const stringEx& text) = 0;

    // Pushes out what the logger holds. Default: nothing.
    virtual void Flush();

    // A notification without arguments, for whatever a logger may want to
    // be told out of band (say, to reopen its file). Nothing in the library
    // sends it; the default does nothing.
    virtual void Notify();
};

namespace IMPL {
// The logging thread, which takes records off the callers' threads.
class CLoggingThread;
}  // namespace IMPL

class CLog {
  public:
    // First room, in bytes, in which a variadic record is formatted; a
    // longer text is formatted again in room of its exact size.
    static constexpr uint32_t kDefaultFormatSize = 256;

    // A log object with no loggers, no filter, no thread and minimum level
    // Debug. It receives records only once installed with SetCurrent (or
    // when its members are called directly).
    explicit CLog(uint32_t formatSize = kDefaultFormatSize);
    // Stops the logging thread, if any, so that queued records reach the
    // loggers, then releases the loggers. Never throws: the object is
    // usually released by a shared pointer, which can't let an exception out.
    ~CLog() noexcept;
    CLog(const CLog&) = delete;
    CLog& operator=(const CLog&) = delete;

    // ---- level words ----------------------------------------------------------------

    // The level in words: "debug only", "info", "warning", "error",
    // "important notice", "fatal error", "disabled" (6), "unknown".
    static const char* LevelText(int level) noexcept;
    // The tag a logger puts in a record, always nine characters, the closing
    // bracket and the padding included: "Debug]   ", "Info]    ",
    // "Warning] ", "Error]   ", "Notice]  ", "Fatal]   ", and "Unknown] "
    // for any other value, 6 included.
    static const char* LevelTag(int level) noexcept;

    // ---- the process-wide object ------------------------------------------------------
    // Every static function holds `currentLock` for its whole duration.

    // Replaces the current object (null removes it), destroying the old one
    // if this was its last reference.
    static void SetCurrent(std::shared_ptr<CLog> log);
    // The current object, or null.
    static std::shared_ptr<CLog> GetCurrent();
    // Whether a record of `level` would reach a logger now: there is a
    // current object, the level is not below its minimum, and it has
    // loggers. For callers whose text is costly to build.
    static bool Accepts(int level);
    // Waits for the logging thread to drain and flushes each logger of the
    // current object. Returns at once with no current object.
    static void Flush();

    // Writes a record to the current object. The stringEx forms take the
    // text as it stands; the others format it with printf rules, after the
    // level test, so with no current object (or a level below the minimum,
    // or no loggers) the arguments are never touched. Note that a "%" in a
    // text passed to a format form is a conversion. A fatal record is
    // flushed before the call returns. A logger's exception passes through.
    static void Log(int level, const stringEx& name, const stringEx& text);
    static void Log(int level, const char* name, const char* format, ...) ORLO_LOG_PRINTF(3, 4);
    static void Debug(const stringEx& name, const stringEx& text) {
        Log(LogLevel::Debug, name, text);
    }
    static void Debug(const char* name, const char* format, ...) ORLO_LOG_PRINTF(2, 3);
    static void Info(const stringEx& name, const stringEx& text) {
        Log(LogLevel::Info, name, text);
    }
    static void Info(const char* name, const char* format, ...) ORLO_LOG_PRINTF(2, 3);
    static void Warning(const stringEx& name, const stringEx& text) {
        Log(LogLevel::Warning, name, text);
    }
    static void Warning(const char* name, const char* format, ...) ORLO_LOG_PRINTF(2, 3);
    static void Error(const stringEx& name, const stringEx& text) {
        Log(LogLevel::Error, name, text);
    }
    static void Error(const char* name, const char* format, ...) ORLO_LOG_PRINTF(2, 3);
    static void Notice(const stringEx& name, const stringEx& text) {
        Log(LogLevel::Notice, name, text);
    }
    static void Notice(const char* name, const char* format, ...) ORLO_LOG_PRINTF(2, 3);
    static void Fatal(const stringEx& name, const stringEx& text) {
        Log(LogLevel::Fatal, name, text);
    }
    static void Fatal(const char* name, const char* format, ...) ORLO_LOG_PRINTF(2, 3);

    // The end of a failed debug check (see ORLO_DEBUG_CHECK). If there is a
    // current object and its minimum level is below Off, writes the report
    // of IMPL::DebugCheckReport as a fatal record named "debugger"; then
    // ends the process through ExitProcess(true), with or without a report.
    [[noreturn]] static void DebugCheckFailed(const char* expression, const char* description,
                                              const char* fileName, int lineNumber,
                                              const char* compileDate, const char* compileTime,
                                              const char* lastModified);

    // ---- members: the same records, for an object held directly ------------------------
    // Each takes `lock`; the rules are those of the static forms.

    void Write(int level, const stringEx& name, const stringEx& text);
    void Write(int level, const char* name, const char* format, ...) ORLO_LOG_PRINTF(4, 5);
    void WriteDebug(const stringEx& name, const stringEx& text) {
        Write(LogLevel::Debug, name, text);
    }
    void WriteDebug(const char* name, const char* format, ...) ORLO_LOG_PRINTF(3, 4);
    void WriteInfo(const stringEx& name, const stringEx& text) {
        Write(LogLevel::Info, name, text);
    }
    void WriteInfo(const char* name, const char* format, ...) ORLO_LOG_PRINTF(3, 4);
    void WriteWarning(const stringEx& name, const stringEx& text) {
        Write(LogLevel::Warning, name, text);
    }
    void WriteWarning(const char* name, const char* format, ...) ORLO_LOG_PRINTF(3, 4);
    void WriteError(const stringEx& name, const stringEx& text) {
        Write(LogLevel::Error, name, text);
    }
    void WriteError(const char* name, const char* format, ...) ORLO_LOG_PRINTF(3, 4);
    void WriteNotice(const stringEx& name, const stringEx& text) {
        Write(LogLevel::Notice, name, text);
    }
    void WriteNotice(const char* name, const char* format, ...) ORLO_LOG_PRINTF(3, 4);
    void WriteFatal(const stringEx& name, const stringEx& text) {
        Write(LogLevel::Fatal, name, text);
    }
    void WriteFatal(const char* name, const char* format, ...) ORLO_LOG_PRINTF(3, 4);

    // Waits for the logging thread to drain, then flushes each logger.
    void FlushLoggers();

    // ---- configuration --------------------------------------------------------------------

    // Puts `logger` on top of the stack: it sees each record after those
    // pushed before it. Throws logExp (InvalidLogger) "CLog::PushLogger -
    // invalid logger handle" for a null pointer.
    void PushLogger(std::shared_ptr<ILogger> logger);
    // Takes the last pushed logger off the stack and hands it back. Throws
    // logExp (NothingToPop) "CLog::PopLogger - nothing to pop" when the
    // stack is empty.
    std::shared_ptr<ILogger> PopLogger();
    // Whether the stack holds a logger.
    bool HasLoggers() const;

    // Records below `level` are dropped from now on; LogLevel::Off drops
    // every record of levels 0 to 5.
    void SetMinLevel(int32_t level);
    int32_t GetMinLevel() const noexcept { return m_minLevel.load(std::memory_order_relaxed); }

    // A logger asked first for each record; when its Write returns false
    // the record goes no further. Null removes it.
    void SetFilter(std::shared_ptr<ILogger> filter);

    // With `on`, routes records through a logging thread with a queue of
    // `queueCapacity` records; without, stops the thread after it has
    // written what it holds. Asking for the present condition does nothing.
    // The logging thread is not part of this build yet: turning it on
    // throws logExp "CLog::EnableThread - logging thread not available"
    // with code 0, and records always go straight to the loggers.
    void EnableThread(bool on, uint32_t queueCapacity);

  private:
    // The level test made before any formatting.
    bool PassesLevel(int level) const noexcept { return level >= GetMinLevel(); }
    void WriteV(int level, const char* name, const char* format, va_list args);
    // Hands a finished record to the filter and the loggers; `lock` held.
    void Deliver(int level, const stringEx& name, const stringEx& text);
    static void LogV(int level, const char* name, const char* format, va_list args);

    std::vector<std::shared_ptr<ILogger>> m_loggers;
    const uint32_t m_formatSize;
    std::atomic<int32_t> m_minLevel{LogLevel::Debug};
    std::shared_ptr<ILogger> m_filter;
    IMPL::CLoggingThread* m_thread = nullptr;
    mutable FASTPDU_PCLOCK m_lock;
};

namespace IMPL {

// The text of a failed debug check, a pure function of its arguments:
//   "debug checking failure\n"
//   "  expression    = \"p != nullptr\"\n"
//   "  description   = \"no buffer\"\n"
//   "  file name     = \"src/x.cpp\"\n"
//   "  line number   = \"42\"\n"
//   "  last compiled = \"Mar  5 2024 14:07:09\"\n"
//   "  last modified = \"Tue Mar  5 14:02:11 2024\""
// Null texts read as "".
stringEx DebugCheckReport(const char* expression, const char* description, const char* fileName,
                          int lineNumber, const char* compileDate, const char* compileTime,
                          const char* lastModified);

}  // namespace IMPL
}  // namespace Orlo

// A debug check: when `expression` is false, reports it with `description`
// and the place and stamps of this source file, then ends the process.
#define ORLO_DEBUG_CHECK(expression, description)                                                  \
    do {                                                                                           \
        if (!(expression))                                                                         \
            ::Orlo::CLog::DebugCheckFailed(#expression, description, __FILE__, __LINE__, __DATE__, \
                                           __TIME__, __TIMESTAMP__);                               \
    } while (0)

#endif  // ORLO_LOG_H
