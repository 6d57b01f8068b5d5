// Runs one fuzz target's LLVMFuzzerTestOneInput over every file of the
// directories named on the command line, so that the committed seeds and
// the inputs that once crashed are checked by every ordinary test run,
// without libFuzzer. A missing directory is skipped; finding no input at all
// fails, so that a wrong path cannot pass unnoticed.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        const fs::path dir(argv[i]);
        if (!fs::is_directory(dir)) continue;
        for (const fs::directory_entry& entry : fs::directory_iterator(dir))
            if (entry.is_regular_file() && entry.path().filename() != "README")
                files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        std::fprintf(stderr, "no inputs found\n");
        return 1;
    }
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        std::fprintf(stderr, "%s\n", file.c_str());
        // A copy of exactly the file's size, so that a read past the end is
        // caught by a sanitizer build.
        std::vector<uint8_t> data(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(data.data(), data.size());
    }
    std::fprintf(stderr, "%zu inputs ran\n", files.size());
    return 0;
}
