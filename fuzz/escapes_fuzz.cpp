// The escape translation (EscapeTranslate with the plain table) and the
// replacement template (ExpandTemplate) with a match vector taken from the
// input, whose offsets may point anywhere: the template must clip them.
//
// Input: byte 0 options (bit 0 drop unknown, bit 1 keep double, bit 2 wide,
// bits 4-7 number of match pairs), then 8 bytes per pair (offset, length,
// little-endian 32-bit), then the template up to the first zero byte, and
// the subject.

#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "orlo/buffer.h"
#include "orlo/escape_table.h"
#include "orlo/regex_replace.h"

namespace {

using namespace Orlo;

template <class CharT>
basic_buffer<CharT> Make(const uint8_t* p, size_t n) {
    basic_buffer<CharT> b;
    for (size_t i = 0; i < n; ++i) {
        const CharT ch = sizeof(CharT) == 1 ? static_cast<CharT>(p[i])
                                            : static_cast<CharT>(orlo_fuzz::Widen(p[i]));
        b.append(&ch, 1);
    }
    return b;
}

template <class CharT>
void Run(uint8_t o, const CRegMatch& match, const uint8_t* t, size_t tlen, const uint8_t* s,
         size_t slen) {
    basic_buffer<CharT> text = Make<CharT>(t, tlen);
    const uint32_t before = text.size();
    EscapeTranslate(text, static_cast<CharT>('\\'), plain_escape_table<CharT>(), o & 1, o & 2);
    // Every row of the plain table turns two elements into one.
    ORLO_FUZZ_CHECK(text.size() <= before);

    const basic_buffer<CharT> tmpl = Make<CharT>(t, tlen);
    const basic_buffer<CharT> subject = Make<CharT>(s, slen);
    const basic_buffer<CharT> out = ExpandTemplate(tmpl, match, subject);
    // Each template element yields at most the whole subject.
    ORLO_FUZZ_CHECK(out.size() <= static_cast<uint64_t>(tlen) * (slen + 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orlo_fuzz::Input in(data, size);
    const uint8_t o = in.Byte();
    CRegMatch match;
    for (int i = 0; i < (o >> 4); ++i) {
        const uint32_t off = in.U32();
        const uint32_t len = in.U32();
        match.emplace_back(off, len);
    }
    const uint8_t *t, *s;
    size_t tlen, slen;
    in.Until(0, t, tlen);
    in.Rest(s, slen);
    if (tlen > 4096 || slen > 4096) return 0;
    if (o & 4)
        Run<wchar_t>(o, match, t, tlen, s, slen);
    else
        Run<char>(o, match, t, tlen, s, slen);
    return 0;
}
