// Helpers for the file module tests: a temporary directory removed however
// the test ends, raw file access that doesn't go through the code under
// test, a catcher for what a call throws, a forked child with a deadline,
// a logger that keeps its records, and guards for process-wide state.

#ifndef ORLO_TESTS_FILE_FILE_TEST_SUPPORT_H
#define ORLO_TESTS_FILE_FILE_TEST_SUPPORT_H

#include <fcntl.h>
#include <ftw.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "orlo/exceptions.h"
#include "orlo/log.h"
#include "orlo/stringEx.h"

namespace filetest {

inline std::string Str(const Orlo::basic_buffer<char>& s) {
    return std::string(s.c_str(), s.size());
}

inline Orlo::stringEx Ex(const std::string& s) {
    return Orlo::stringEx(s.data(), uint32_t(s.size()));
}

struct Thrown {
    std::string message;
    int32_t code = -1;
};

// The message and code of what `call` throws as E; a failure when it
// throws nothing.
template <class E = Orlo::byExp, class Call>
Thrown Catch(Call&& call) {
    try {
        call();
    } catch (const E& e) {
        return {Str(e.message), e.code};
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

// A directory made with mkdtemp, removed with all it holds; permissions
// that tests take away are given back first.
class TempTree {
  public:
    TempTree() {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/orlo_file_XXXXXX";
        if (!mkdtemp(pattern.data())) ADD_FAILURE() << "mkdtemp failed";
        root = pattern;
    }
    ~TempTree() {
        nftw(
            root.c_str(),
            [](const char* path, const struct stat*, int type, FTW*) {
                if (type == FTW_D || type == FTW_DNR) chmod(path, 0700);
                return 0;
            },
            16, FTW_PHYS);
        nftw(
            root.c_str(),
            [](const char* path, const struct stat*, int, FTW*) { return remove(path); }, 16,
            FTW_DEPTH | FTW_PHYS);
    }
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    std::string operator/(const std::string& relative) const { return root + "/" + relative; }

    std::string root;
};

inline void PutFile(const std::string& path, const std::string& bytes) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0) << path;
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    close(fd);
}

inline std::string GetFile(const std::string& path) {
    std::string bytes;
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return "<missing>";
    char chunk[65536];
    for (ssize_t got; (got = read(fd, chunk, sizeof chunk)) > 0;)
        bytes.append(chunk, size_t(got));
    close(fd);
    return bytes;
}

inline bool Present(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0;
}

inline bool IsOpenDescriptor(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

// Runs `body` in a forked child and returns its exit status, or 128 + the
// signal that ended it. The child is killed after `seconds`, so a call that
// hangs fails the test instead of holding it. With `unprivileged`, a child
// of root first becomes "nobody" (65534), so permissions apply to it.
inline int RunInChild(const std::function<int()>& body, bool unprivileged = false,
                      unsigned seconds = 20) {
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(seconds);
        if (unprivileged && geteuid() == 0) {
            if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(90);
        }
        int status = 99;
        try {
            status = body();
        } catch (...) {
            status = 98;
        }
        _exit(status);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

struct LogRecord {
    int level;
    std::string name, text;
};

// Installs a log with a logger that keeps every record, for the guard's life.
class CapturedLog {
  public:
    CapturedLog() : m_logger(std::make_shared<Keeper>()) {
        auto log = std::make_shared<Orlo::CLog>();
        log->PushLogger(m_logger);
        Orlo::CLog::SetCurrent(log);
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    ~CapturedLog() { Orlo::CLog::SetCurrent(nullptr); }

    const std::vector<LogRecord>& records() const { return m_logger->records; }

  private:
    struct Keeper : Orlo::ILogger {
        bool Write(const Orlo::CTime&, int level, const Orlo::stringEx& name,
                   const Orlo::stringEx& text) override {
            records.push_back({level, Str(name), Str(text)});
            return true;
        }
        std::vector<LogRecord> records;
    };
    std::shared_ptr<Keeper> m_logger;
};

// Keeps the working directory and restores it at the end.
class WorkDirGuard {
  public:
    WorkDirGuard() : m_fd(open(".", O_RDONLY | O_DIRECTORY)) {}
    ~WorkDirGuard() {
        if (m_fd >= 0 && fchdir(m_fd) == 0) close(m_fd);
    }
    WorkDirGuard(const WorkDirGuard&) = delete;
    WorkDirGuard& operator=(const WorkDirGuard&) = delete;

  private:
    int m_fd;
};

// Sets (or with null clears) an environment variable and puts the old value back.
class EnvGuard {
  public:
    EnvGuard(const char* name, const char* value) : m_name(name) {
        const char* old = getenv(name);
        m_had = old != nullptr;
        if (old) m_old = old;
        if (value) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ~EnvGuard() {
        if (m_had) {
            setenv(m_name, m_old.c_str(), 1);
        } else {
            unsetenv(m_name);
        }
    }
    EnvGuard(const EnvGuard&) = delete;
    EnvGuard& operator=(const EnvGuard&) = delete;

  private:
    const char* m_name;
    std::string m_old;
    bool m_had = false;
};

}  // namespace filetest

#endif  // ORLO_TESTS_FILE_FILE_TEST_SUPPORT_H
