// Percent-decoding of mendo's -ue texts (PercentDecode) and the wildcard
// match of stringEx (WildMatch).
//
// Input: byte 0 options (bit 0 plus is space, bit 1 ignore case, bits 2-3
// start offset), byte 1 the any-one wildcard, byte 2 the any-run wildcard,
// then the wildcard pattern up to the first zero byte, and the text.

#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "orlo/stringEx.h"
#include "text_prep.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orlo;
    orlo_fuzz::Input in(data, size);
    const uint8_t o = in.Byte();
    const char anyOne = static_cast<char>(in.Byte());
    const char anyRun = static_cast<char>(in.Byte());
    const uint8_t *p, *t;
    size_t plen, tlen;
    in.Until(0, p, plen);
    in.Rest(t, tlen);
    if (plen > 256 || tlen > 4096) return 0;

    const stringEx text(reinterpret_cast<const char*>(t), static_cast<uint32_t>(tlen));

    stringEx decoded(text);
    PercentDecode(decoded, o & 1);
    // Decoding only ever shortens.
    ORLO_FUZZ_CHECK(decoded.size() <= tlen);
    // Without '%' only the plus rule can change anything.
    if (text.find("%", 0, 1) == Orlo::npos && !(o & 1)) ORLO_FUZZ_CHECK(decoded == text);

    const stringEx pattern(reinterpret_cast<const char*>(p), static_cast<uint32_t>(plen));
    const uint32_t pos = (o >> 2) & 3;
    const bool exact = text.WildMatch(pattern.c_str(), pos, anyOne, anyRun, false);
    const bool nocase = text.WildMatch(pattern.c_str(), pos, anyOne, anyRun, true);
    // A match with case is a match without.
    if (exact) ORLO_FUZZ_CHECK(nocase);
    if (anyRun != '\0') {
        const char run[2] = {anyRun, '\0'};
        // A lone any-run wildcard matches any text that has something from pos.
        ORLO_FUZZ_CHECK(text.WildMatch(run, pos, anyOne == anyRun ? '\0' : anyOne, anyRun, o & 2) ==
                        (pos < tlen));
    }
    (void)decoded.WildMatch(pattern.c_str(), 0, anyOne, anyRun, o & 2);
    return 0;
}
