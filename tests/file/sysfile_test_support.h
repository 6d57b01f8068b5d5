// Helpers for the descriptor and mapping tests: a temporary directory that
// goes away with the test, raw file access that doesn't go through the code
// under test, a child process with a deadline, a logger that keeps what it
// is given, and a catcher that hands back the exception a call threw.

#ifndef ORLO_TESTS_FILE_SYSFILE_TEST_SUPPORT_H
#define ORLO_TESTS_FILE_SYSFILE_TEST_SUPPORT_H

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "orlo/exceptions.h"
#include "orlo/log.h"

namespace Orlo::filetest {

inline std::string Text(const stringEx& text) {
    return std::string(text.c_str(), text.size());
}

// The lines of an expected message joined by line feeds, with none at the end.
inline std::string Lines(std::initializer_list<std::string> lines) {
    std::string text;
    for (const std::string& line : lines) {
        if (&line != lines.begin()) text += '\n';
        text += line;
    }
    return text;
}

// A fresh directory under $TMPDIR (or /tmp), removed with all it holds.
class TempDir {
  public:
    TempDir() {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/orlo-sysfile-XXXXXX";
        if (!mkdtemp(pattern.data())) ADD_FAILURE() << "mkdtemp failed";
        m_path = pattern;
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        nftw(
            m_path.c_str(),
            [](const char* path, const struct stat*, int, struct FTW*) { return remove(path); }, 16,
            FTW_DEPTH | FTW_PHYS);
    }

    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

  private:
    std::string m_path;
};

inline void WriteRaw(const std::string& path, const std::string& bytes) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0) << path;
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    close(fd);
}

inline std::string ReadRaw(const std::string& path) {
    std::string bytes;
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return "<missing>";
    char chunk[4096];
    ssize_t count = 0;
    while ((count = read(fd, chunk, sizeof chunk)) > 0)
        bytes.append(chunk, size_t(count));
    close(fd);
    return bytes;
}

// Whether `fd` names an open descriptor of this process.
inline bool IsOpenDescriptor(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

// The number of open descriptors of this process, to catch leaks.
inline int OpenDescriptorCount() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (readdir(dir))
            ++count;
        closedir(dir);
    }
    return count;
}

// Runs `work` and returns the exception of type E it threw; a test failure
// if it threw nothing or something else.
template <class E, class Work>
E Catch(Work&& work) {
    try {
        work();
    } catch (const E& caught) {
        return caught;
    } catch (const byExp& other) {
        ADD_FAILURE() << "another exception: " << Text(other.message);
        return E(other.message, other.code);
    }
    ADD_FAILURE() << "nothing thrown";
    return E(stringEx(), -1);
}

// Runs `body` in a forked child, which ends with its result as exit status
// (or 100 if `body` threw). SIGALRM after `seconds` ends a child that hangs,
// which the status shows. The child never returns into the test framework.
inline int RunInChild(const std::function<int()>& body, unsigned seconds = 10) {
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        alarm(seconds);
        int result = 100;
        try {
            result = body();
        } catch (...) {
        }
        _exit(result);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) return 1000 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

// A pipe for a child to say "ready" and for the parent to say "go on".
class Signal {
  public:
    Signal() {
        if (pipe(m_fds) != 0) ADD_FAILURE() << "pipe failed";
    }
    ~Signal() {
        close(m_fds[0]);
        close(m_fds[1]);
    }
    void Raise() const {
        const char byte = 1;
        (void)!write(m_fds[1], &byte, 1);
    }
    bool Wait() const {
        char byte = 0;
        return read(m_fds[0], &byte, 1) == 1;
    }

  private:
    int m_fds[2] = {-1, -1};
};

struct LogRecord {
    int level;
    std::string name;
    std::string text;
};

// Installs a log object with a logger that keeps every record, for the life
// of the guard.
class CapturedLog {
  public:
    CapturedLog() : m_logger(std::make_shared<Keeper>()) {
        auto log = std::make_shared<CLog>();
        log->PushLogger(m_logger);
        CLog::SetCurrent(log);
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    ~CapturedLog() { CLog::SetCurrent(nullptr); }

    const std::vector<LogRecord>& records() const { return m_logger->records; }

  private:
    struct Keeper : ILogger {
        bool Write(const CTime&, int level, const stringEx& name, const stringEx& text) override {
            records.push_back({level, Text(name), Text(text)});
            return true;
        }
        std::vector<LogRecord> records;
    };
    std::shared_ptr<Keeper> m_logger;
};

}  // namespace Orlo::filetest

#endif  // ORLO_TESTS_FILE_SYSFILE_TEST_SUPPORT_H
