// Process runner for the command-line tests: fork, exec, and a poll loop
// that feeds standard input while draining both outputs, so that large
// inputs and outputs can't deadlock on full pipes. Inputs and outputs can
// be streamed, so that a run of gigabytes needs no copy of them here, and a
// time limit turns a hang into a failed run.

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
#include <string_view>

namespace mendo_test {
namespace {

using Clock = std::chrono::steady_clock;

void MakePipe(int fds[2]) {
    if (pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
}

void CloseFd(int& fd) {
    if (fd >= 0) close(fd);
    fd = -1;
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

// Shrinks the pipe that `fd` writes into and fills it to the brim, so that
// the next write waits for a reader. Returns the bytes it holds.
size_t FillPipe(int fd) {
    fcntl(fd, F_SETPIPE_SZ, 4096);  // the smallest; a refusal only costs more filler
    const int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    const std::string page(4096, '.');
    size_t filled = 0;
    for (;;) {
        ssize_t n = write(fd, page.data(), page.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        filled += size_t(n);
    }
    fcntl(fd, F_SETFL, flags);  // the child's end blocks, as a shell's pipe does
    return filled;
}

// The parent's reading end of one of the child's outputs.
struct Reader {
    int fd = -1;
    std::optional<size_t> limit;  // close after this many bytes
    size_t skip = 0;              // bytes that the parent put there itself
    size_t seen = 0;

    bool open() const { return fd >= 0; }

    // Reads what is there and hands it on; closes the end at end of stream
    // or at the limit.
    void Pump(std::vector<char>& buffer, const std::function<void(std::string_view)>& deliver) {
        size_t most = buffer.size();
        if (limit) most = std::min(most, *limit + skip - seen);
        ssize_t n = read(fd, buffer.data(), most);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) return;
        if (n <= 0) {
            CloseFd(fd);
            return;
        }
        size_t from = 0;
        if (seen < skip) from = std::min(size_t(n), skip - seen);
        seen += size_t(n);
        if (size_t(n) > from) deliver({buffer.data() + from, size_t(n) - from});
        if (limit && seen >= *limit + skip) CloseFd(fd);
    }
};

constexpr Clock::time_point kNever = Clock::time_point::max();

// What remains of the time limit, for poll: -1 without one.
int PollTimeout(Clock::time_point deadline) {
    if (deadline == kNever) return -1;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return int(std::max<int64_t>(0, left.count()));
}

}  // namespace

RunResult RunMendo(const std::vector<std::string>& args, const std::string& input,
                   const std::string& workDir, size_t addressSpaceLimit, size_t stdoutReadLimit) {
    return RunProgram(MENDO_BINARY, args, input, workDir, addressSpaceLimit, stdoutReadLimit);
}

RunResult RunProgram(const std::string& path, const std::vector<std::string>& args,
                     const std::string& input, const std::string& workDir, size_t addressSpaceLimit,
                     size_t stdoutReadLimit) {
    RunSpec spec;
    spec.program = path;
    spec.args = args;
    spec.input = input;
    spec.workDir = workDir;
    if (addressSpaceLimit) spec.limits.push_back({RLIMIT_AS, addressSpaceLimit});
    if (stdoutReadLimit) spec.stdoutReadLimit = stdoutReadLimit;
    return RunWith(spec);
}

RunResult RunWith(const RunSpec& spec) {
    int in[2], out[2], err[2];
    MakePipe(in);
    MakePipe(out);
    MakePipe(err);
    const size_t errFiller = spec.whileStderrFull ? FillPipe(err[1]) : 0;

    std::string program = spec.program.empty() ? std::string(MENDO_BINARY) : spec.program;
    std::vector<std::string> words = spec.args;
    std::vector<char*> argv;
    argv.push_back(program.data());
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
        if (!spec.workDir.empty() && chdir(spec.workDir.c_str()) != 0) _exit(127);
        for (const auto& [resource, value] : spec.limits) {
            rlimit limit{rlim_t(value), rlim_t(value)};
            setrlimit(resource, &limit);
        }
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);

    // The runner must survive the child closing its input early.
    signal(SIGPIPE, SIG_IGN);
    Reader outEnd{out[0], spec.stdoutReadLimit};
    Reader errEnd{err[0], spec.stderrReadLimit, errFiller};
    if (outEnd.limit == size_t(0)) CloseFd(outEnd.fd);
    if (errEnd.limit == size_t(0)) CloseFd(errEnd.fd);
    if (spec.whileStderrFull) spec.whileStderrFull();

    Clock::time_point deadline = spec.timeout.count() > 0 ? Clock::now() + spec.timeout : kNever;
    RunResult result;
    auto killForTime = [&] {
        if (result.timedOut) return;
        kill(pid, SIGKILL);
        result.timedOut = true;
    };

    int inFd = in[1];
    fcntl(inFd, F_SETFL, O_NONBLOCK);
    std::vector<char> chunk;  // streamed input not yet written
    std::string_view pending = spec.input;
    if (!spec.source && spec.input.empty()) CloseFd(inFd);

    std::vector<char> buffer(size_t(1) << 20);
    const auto toOut = [&](std::string_view bytes) {
        if (spec.sink) {
            spec.sink(bytes);
        } else {
            result.out.append(bytes);
        }
    };
    const auto toErr = [&](std::string_view bytes) { result.err.append(bytes); };
    while (outEnd.open() || errEnd.open() || inFd >= 0) {
        pollfd fds[3] = {{outEnd.fd, POLLIN, 0}, {errEnd.fd, POLLIN, 0}, {inFd, POLLOUT, 0}};
        int ready = poll(fds, 3, PollTimeout(deadline));
        if (ready < 0 && errno != EINTR) break;
        if (ready == 0 && deadline != kNever && Clock::now() >= deadline) {
            killForTime();
            CloseFd(inFd);
            deadline = kNever;  // the outputs end with the child
            continue;
        }
        if (fds[0].revents) outEnd.Pump(buffer, toOut);
        if (fds[1].revents) errEnd.Pump(buffer, toErr);
        if (inFd >= 0 && fds[2].revents) {
            if (pending.empty() && spec.source) {
                chunk.resize(size_t(1) << 20);
                chunk.resize(spec.source(chunk.data(), chunk.size()));
                pending = {chunk.data(), chunk.size()};
            }
            ssize_t n = pending.empty() ? 0 : write(inFd, pending.data(), pending.size());
            if (n > 0) pending.remove_prefix(size_t(n));
            const bool refused = n < 0 && errno != EAGAIN && errno != EINTR;
            if (refused || pending.empty()) {
                if (refused || !spec.source || chunk.empty()) CloseFd(inFd);
            }
        }
    }
    CloseFd(inFd);
    CloseFd(outEnd.fd);
    CloseFd(errEnd.fd);

    // The outputs may close before the child ends; the time limit still holds.
    int status = 0;
    for (;;) {
        pid_t done = waitpid(pid, &status, deadline == kNever ? 0 : WNOHANG);
        if (done == pid) break;
        if (done < 0 && errno != EINTR) break;
        if (done == 0) {
            if (Clock::now() >= deadline) {
                killForTime();
                deadline = kNever;
            } else {
                usleep(1000);
            }
        }
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
