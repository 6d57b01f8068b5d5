// Process runner for the command-line tests: fork, exec, and a poll loop
// that feeds standard input while draining both outputs, so that large
// inputs and outputs can't deadlock on full pipes.

#include "cli/run_mendo.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>

namespace mendo_test {
namespace {

void MakePipe(int fds[2]) {
    if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
}

// Reads what is there, at most `most` bytes; returns false at end of stream.
bool Drain(int fd, std::string& into, size_t most = 65536) {
    char buffer[65536];
    ssize_t n = read(fd, buffer, std::min(most, sizeof buffer));
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    if (n <= 0) return false;
    into.append(buffer, size_t(n));
    return true;
}

// The test process may ignore signals (the library ignores SIGPIPE), and an
// ignored signal stays ignored across exec.
void DefaultSignals() {
    for (int signo = 1; signo < NSIG; ++signo)
        signal(signo, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

RunResult RunMendo(const std::vector<std::string>& args, const std::string& input,
                   const std::string& workDir, size_t addressSpaceLimit, size_t stdoutReadLimit) {
    return RunProgram(MENDO_BINARY, args, input, workDir, addressSpaceLimit, stdoutReadLimit);
}

RunResult RunProgram(const std::string& path, const std::vector<std::string>& args,
                     const std::string& input, const std::string& workDir, size_t addressSpaceLimit,
                     size_t stdoutReadLimit) {
    int in[2], out[2], err[2];
    MakePipe(in);
    MakePipe(out);
    MakePipe(err);

    std::vector<char*> argv;
    std::string program = path;
    argv.push_back(program.data());
    std::vector<std::string> words = args;
    for (auto& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);

    pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("fork failed");
    if (pid == 0) {
        DefaultSignals();
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        if (!workDir.empty() && chdir(workDir.c_str()) != 0) _exit(127);
        if (addressSpaceLimit) {
            rlimit limit{addressSpaceLimit, addressSpaceLimit};
            setrlimit(RLIMIT_AS, &limit);
        }
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);

    // The runner must survive the child closing its input early.
    signal(SIGPIPE, SIG_IGN);
    fcntl(in[1], F_SETFL, O_NONBLOCK);
    RunResult result;
    size_t written = 0;
    int inFd = in[1];
    if (input.empty()) {
        close(inFd);
        inFd = -1;
    }
    bool outOpen = true, errOpen = true;
    while (outOpen || errOpen) {
        pollfd fds[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {inFd, POLLOUT, 0}};
        fds[0].fd = outOpen ? out[0] : -1;
        fds[1].fd = errOpen ? err[0] : -1;
        if (poll(fds, 3, -1) < 0 && errno != EINTR) break;
        if (fds[0].revents) {
            const size_t most = stdoutReadLimit ? stdoutReadLimit - result.out.size() : 65536;
            outOpen = Drain(out[0], result.out, most);
            if (stdoutReadLimit && result.out.size() >= stdoutReadLimit && outOpen) {
                close(out[0]);
                out[0] = -1;
                outOpen = false;
            }
        }
        if (fds[1].revents) errOpen = Drain(err[0], result.err);
        if (inFd >= 0 && fds[2].revents) {
            ssize_t n = write(inFd, input.data() + written, input.size() - written);
            if (n > 0) written += size_t(n);
            if (n < 0 && errno != EAGAIN && errno != EINTR) written = input.size();
            if (written == input.size()) {
                close(inFd);
                inFd = -1;
            }
        }
    }
    if (inFd >= 0) close(inFd);
    if (out[0] >= 0) close(out[0]);
    close(err[0]);

    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string Printable(const std::string& bytes) {
    std::string shown;
    for (unsigned char c : bytes) {
        if (c == '\n') {
            shown += "\\n\n";
        } else if (c == '\\') {
            shown += "\\\\";
        } else if (c < 0x20 || c >= 0x7F) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            shown += hex;
        } else {
            shown += char(c);
        }
    }
    return shown;
}

std::string CommandLine(const std::vector<std::string>& args, const std::string& program) {
    std::string line = program;
    for (const auto& a : args)
        line += " '" + a + "'";
    return line;
}

}  // namespace mendo_test
