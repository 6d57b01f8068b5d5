// The regular-expression front and the replacement: compile_pattern_handle,
// then RegReplaceTo and RegReplace on one subject with one replacement.
//
// Input: byte 0 options, then the pattern up to the first zero byte, the
// replacement up to the next, and the subject.
//   byte 0: bits 0-1 syntax (basic, extended, advanced, literal), bit 2
//           ignore case, bit 3 newline, bit 4 expand class letters, bit 5
//           not-bol, bit 6 not-eol, bit 7 prepare the replacement's escapes.

#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "orlo/buffer.h"
#include "orlo/regex.h"
#include "orlo/regex_replace.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orlo;
    orlo_fuzz::Input in(data, size);
    const uint8_t o = in.Byte();
    const uint8_t *p, *r, *s;
    size_t plen, rlen, slen;
    in.Until(0, p, plen);
    if (orlo_fuzz::TooExpensive(p, plen)) return 0;
    in.Until(0, r, rlen);
    in.Rest(s, slen);

    static constexpr uint8_t kSyntax[] = {0, 1, 3, 4};
    const bool icase = o & 0x04, newline = o & 0x08, expand = o & 0x10;
    const bool notbol = o & 0x20, noteol = o & 0x40, prepare = o & 0x80;

    basic_buffer<char> pattern(reinterpret_cast<const char*>(p), static_cast<uint32_t>(plen));
    regex_handle handle = compile_pattern_handle(pattern, icase, newline, kSyntax[o & 3], expand);
    if (!handle) return 0;

    const basic_buffer<char> replacement(reinterpret_cast<const char*>(r),
                                         static_cast<uint32_t>(rlen));
    const basic_buffer<char> subject(reinterpret_cast<const char*>(s), static_cast<uint32_t>(slen));

    basic_buffer<char> out;
    const uint32_t n1 = RegReplaceTo(subject, out, handle, replacement, notbol, noteol, prepare);

    basic_buffer<char> inPlace(subject);
    const uint32_t n2 = RegReplace(inPlace, handle, replacement, notbol, noteol, prepare);

    // The two strategies may differ: after an empty match, and where one
    // asks the output and the other the changed buffer whether a search
    // starts a line. Each on its own: no match, no change; and at most one
    // match per position, the end included.
    if (n1 == 0) ORLO_FUZZ_CHECK(out == subject);
    if (n2 == 0) ORLO_FUZZ_CHECK(inPlace == subject);
    ORLO_FUZZ_CHECK(n1 <= slen + 1 && n2 <= slen + 1);
    // The subject was copied, not changed.
    ORLO_FUZZ_CHECK(subject.size() == slen);
    return 0;
}
