// A user's word list for tests and benchmarks of large alternations:
// distinct lower-case words of 3 to 10 letters from a fixed seed.

#ifndef ORLO_TESTS_REGEX_WORD_LIST_H
#define ORLO_TESTS_REGEX_WORD_LIST_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace re_test {

inline std::vector<std::string> WordList(size_t n) {
    std::set<std::string> seen;
    std::vector<std::string> words;
    uint32_t seed = 20261121;
    auto next = [&seed](uint32_t bound) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 8) % bound;
    };
    while (words.size() < n) {
        std::string word;
        const uint32_t length = 3 + next(8);
        for (uint32_t i = 0; i < length; ++i)
            word += char('a' + next(26));
        if (seen.insert(word).second) words.push_back(word);
    }
    return words;
}

}  // namespace re_test

#endif  // ORLO_TESTS_REGEX_WORD_LIST_H
