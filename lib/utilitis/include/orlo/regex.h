// The handle on a compiled regular expression, as the rest of the system
// keeps it: a shared, reference-counted pointer that is empty for an empty
// pattern and after a failed compilation. Matching through an empty handle
// finds nothing.

#ifndef ORLO_REGEX_H
#define ORLO_REGEX_H

#include <atomic>
#include <cstdint>

#include "orlo/buffer.h"

namespace Orlo {

namespace IMPL {
struct compiled_regex;
}

class regex_handle {
  public:
    regex_handle() noexcept = default;
    regex_handle(const regex_handle& other) noexcept;
    regex_handle& operator=(const regex_handle& other) noexcept;
    ~regex_handle();

    // True for the empty pattern and for a pattern that did not compile.
    bool empty() const noexcept { return m_record == nullptr; }
    explicit operator bool() const noexcept { return m_record != nullptr; }

  private:
    void release() noexcept;

    IMPL::compiled_regex* m_record = nullptr;
    std::atomic<uint32_t>* m_refs = nullptr;
};

// Compiles `pattern` (which may be changed in place) for matching.
// `newline` makes the match newline-sensitive; `raw_flags` is the syntax
// (0 basic, 1 extended, 3 advanced, 4 literal); `expand` translates the
// backslash class letters first. A pattern that does not compile gives an
// empty handle and no message.
//
// The matching engine is not part of this build yet: every pattern gives
// the empty handle.
regex_handle compile_pattern_handle(byteEx& pattern, bool ignore_case, bool newline,
                                    uint8_t raw_flags, bool expand);

}  // namespace Orlo

#endif  // ORLO_REGEX_H
