// Runs the built mendo binary, or any other program, the way a user's shell
// would, but with an argv list and no shell: bytes in on standard input,
// exact bytes out on standard output and standard error, and the exit status.

#ifndef MENDO_TESTS_CLI_RUN_MENDO_H
#define MENDO_TESTS_CLI_RUN_MENDO_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace mendo_test {

struct RunResult {
    std::string out;
    std::string err;
    int status = -1;        // exit status 0..255, or -1 if the process did not exit normally
    bool timedOut = false;  // killed for running past RunSpec::timeout
};

// Everything a run can vary. RunMendo and RunProgram below are shorthands
// for the common case of whole bytes in and whole bytes out.
struct RunSpec {
    std::string program;  // empty: MENDO_BINARY
    std::vector<std::string> args;
    std::string workDir;  // empty: the current directory
    std::string input;    // standard input, unless `source` is set
    // Streamed standard input, for inputs too large to hold: called whenever
    // the pipe has room, it puts at most `room` bytes at `buffer` and returns
    // how many; 0 ends the input.
    std::function<size_t(char* buffer, size_t room)> source;
    // Streamed standard output: gets every chunk as it comes, and
    // RunResult::out stays empty.
    std::function<void(std::string_view chunk)> sink;
    // Read only this many bytes of standard output (error), then close the
    // reading end, as `| head -c N` does; 0 closes it before the child runs.
    std::optional<size_t> stdoutReadLimit;
    std::optional<size_t> stderrReadLimit;
    // setrlimit(resource, {value, value}) in the child, e.g. RLIMIT_FSIZE.
    std::vector<std::pair<int, uint64_t>> limits;
    // If set, the child starts with its standard error pipe full, so that its
    // first write there waits; this runs meanwhile, and the pipe is drained
    // once it returns. The bytes that filled the pipe are not part of the
    // result. (A child that widens the pipe first passes.)
    std::function<void()> whileStderrFull;
    // The child is killed when it runs longer than this; zero: no limit.
    std::chrono::milliseconds timeout{0};
};

// Runs MENDO_BINARY with `args` (argv[1..]) in `workDir` (empty: the current
// directory), feeding `input` on standard input. A non-zero
// `addressSpaceLimit` caps the child's address space (RLIMIT_AS, bytes). A
// non-zero `stdoutReadLimit` reads only that many bytes of standard output
// and then closes the reading end, as `mendo ... | head -c N` does. The child
// starts with every signal at its default disposition, as from a shell.
RunResult RunMendo(const std::vector<std::string>& args, const std::string& input = "",
                   const std::string& workDir = "", size_t addressSpaceLimit = 0,
                   size_t stdoutReadLimit = 0);

// The same for the program at `path`.
RunResult RunProgram(const std::string& path, const std::vector<std::string>& args,
                     const std::string& input = "", const std::string& workDir = "",
                     size_t addressSpaceLimit = 0, size_t stdoutReadLimit = 0);

// The run that `spec` describes.
RunResult RunWith(const RunSpec& spec);

// Shows bytes with escapes for control and high bytes, for failure output.
std::string Printable(const std::string& bytes);

// The command line as a user would type it, for failure output.
std::string CommandLine(const std::vector<std::string>& args, const std::string& program = "mendo");

}  // namespace mendo_test

#endif  // MENDO_TESTS_CLI_RUN_MENDO_H
