// Runs the built mendo binary, or any other program, the way a user's shell
// would, but with an argv list and no shell: bytes in on standard input,
// exact bytes out on standard output and standard error, and the exit status.

#ifndef MENDO_TESTS_CLI_RUN_MENDO_H
#define MENDO_TESTS_CLI_RUN_MENDO_H

#include <ostream>
#include <string>
#include <vector>

namespace mendo_test {

struct RunResult {
    std::string out;
    std::string err;
    int status = -1;  // exit status 0..255, or -1 if the process did not exit normally
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

// Shows bytes with escapes for control and high bytes, for failure output.
std::string Printable(const std::string& bytes);

// The command line as a user would type it, for failure output.
std::string CommandLine(const std::vector<std::string>& args, const std::string& program = "mendo");

}  // namespace mendo_test

#endif  // MENDO_TESTS_CLI_RUN_MENDO_H
