// The regular-expression engine on its own: compile, search, release.
//
// Input: byte 0 compile flags, byte 1 exec flags and width, then the
// pattern up to the first zero byte, then the subject.
//   byte 0: bits 0-1 syntax (basic, extended, advanced, literal), bit 2
//           ignore case, bit 3 REG_NLSTOP, bit 4 REG_NLANCH, bit 5
//           REG_EXPANDED, bit 6 REG_NOSUB. A literal pattern takes only
//           ignore case.
//   byte 1: bit 0 REG_NOTBOL, bit 1 REG_NOTEOL, bit 2 REG_SMALL, bit 3 wide
//           text, bit 4 ask for the details (REG_EXPECT).

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz_support.h"
#include "orlo/regex_engine.h"

namespace {

using namespace Orlo;

constexpr size_t kMaxGroups = 20;

template <class CharT>
void Run(const std::vector<CharT>& pattern, const std::vector<CharT>& subject, int cflags,
         int eflags, bool details) {
    // An empty vector may have no storage; the engine gets a real pointer.
    static const CharT kEmpty[1] = {};
    const CharT* pat = pattern.empty() ? kEmpty : pattern.data();
    const CharT* text = subject.empty() ? kEmpty : subject.data();
    regex_t re;
    int rc = engine_compile(&re, pat, pattern.size(), cflags);
    if (rc != REG_OKAY) {
        // A failed compilation leaves the record released.
        ORLO_FUZZ_CHECK(re.re_magic == 0 && re.re_guts == nullptr);
        return;
    }
    ORLO_FUZZ_CHECK(re.re_magic == REMAGIC);
    ORLO_FUZZ_CHECK(re.re_csize == static_cast<int32_t>(sizeof(CharT) == 1 ? 1 : 4));

    size_t nmatch = re.re_nsub + 1 < kMaxGroups ? re.re_nsub + 1 : kMaxGroups;
    regmatch_t pmatch[kMaxGroups];
    for (regmatch_t& m : pmatch)
        m = {-7, -7};
    rm_detail_t detail{};
    rc =
        engine_exec(&re, text, subject.size(), details ? &detail : nullptr, nmatch, pmatch, eflags);
    ORLO_FUZZ_CHECK(rc == REG_OKAY || rc == REG_NOMATCH || rc == REG_ESPACE);
    if (rc == REG_OKAY && !(cflags & REG_NOSUB)) {
        const long len = static_cast<long>(subject.size());
        ORLO_FUZZ_CHECK(0 <= pmatch[0].rm_so && pmatch[0].rm_so <= pmatch[0].rm_eo &&
                        pmatch[0].rm_eo <= len);
        for (size_t i = 1; i < nmatch; ++i) {
            const regmatch_t& m = pmatch[i];
            if (m.rm_so == -1 && m.rm_eo == -1) continue;
            ORLO_FUZZ_CHECK(0 <= m.rm_so && m.rm_so <= m.rm_eo && m.rm_eo <= len);
        }
    }
    engine_free(&re);
    ORLO_FUZZ_CHECK(re.re_magic == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orlo_fuzz::Input in(data, size);
    const uint8_t c = in.Byte();
    const uint8_t e = in.Byte();
    const uint8_t* p;
    size_t plen;
    in.Until(0, p, plen);
    if (orlo_fuzz::TooExpensive(p, plen)) return 0;
    const uint8_t* s;
    size_t slen;
    in.Rest(s, slen);

    static constexpr int kSyntax[] = {REG_BASIC, REG_EXTENDED, REG_ADVANCED, REG_QUOTE};
    int cflags = kSyntax[c & 3];
    if (c & 0x04) cflags |= REG_ICASE;
    if (cflags != REG_QUOTE && cflags != (REG_QUOTE | REG_ICASE)) {
        if (c & 0x08) cflags |= REG_NLSTOP;
        if (c & 0x10) cflags |= REG_NLANCH;
        if (c & 0x20) cflags |= REG_EXPANDED;
        if (c & 0x40) cflags |= REG_NOSUB;
    }
    const bool details = (e & 0x10) != 0;
    if (details) cflags |= REG_EXPECT;
    int eflags = 0;
    if (e & 0x01) eflags |= REG_NOTBOL;
    if (e & 0x02) eflags |= REG_NOTEOL;
    if (e & 0x04) eflags |= REG_SMALL;

    if (e & 0x08) {
        std::vector<wchar_t> wp, ws;
        for (size_t i = 0; i < plen; ++i)
            wp.push_back(orlo_fuzz::Widen(p[i]));
        for (size_t i = 0; i < slen; ++i)
            ws.push_back(orlo_fuzz::Widen(s[i]));
        Run(wp, ws, cflags, eflags, details);
    } else {
        Run(std::vector<char>(p, p + plen), std::vector<char>(s, s + slen), cflags, eflags,
            details);
    }
    return 0;
}
