// The number parsers of stringEx: ToInt, ToUInt and ToDouble, in both
// widths, and the printers they must agree with.
//
// Input: byte 0 the base selector (0: from the prefix, else 2..36), byte 1
// the start offset, byte 2 the element limit (255: no limit), then the text.

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "orlo/stringEx.h"

namespace {

using namespace Orlo;

template <class Text>
void Run(const Text& text, uint32_t pos, uint32_t max, int base) {
    using CharT = typename Text::value_type;
    uint32_t end = 0xdeadbeef;
    errno = 0;
    const int32_t i = text.ToInt(pos, max, base, &end);
    if (pos < text.size()) ORLO_FUZZ_CHECK(end <= text.size() && end >= pos);
    if (errno != ERANGE) {
        // What the parser read, the printer writes back in the same base.
        Text printed;
        printed.AppendInt(i, base == -1 ? 10 : base);
        errno = 0;
        const int32_t again = printed.ToInt(0, Orlo::npos, base == -1 ? 10 : base);
        ORLO_FUZZ_CHECK(errno == ERANGE || again == i || (base != 10 && base != -1 && i < 0));
    }

    end = 0xdeadbeef;
    errno = 0;
    const uint32_t u = text.ToUInt(pos, max, base, &end);
    if (pos < text.size()) ORLO_FUZZ_CHECK(end <= text.size() && end >= pos);
    if (errno != ERANGE) {
        Text printed;
        printed.AppendUInt(u, base == -1 ? 16 : base);
        errno = 0;
        ORLO_FUZZ_CHECK(printed.ToUInt(0, Orlo::npos, base == -1 ? 16 : base) == u);
    }

    end = 0xdeadbeef;
    (void)text.ToDouble(pos, max, &end);
    if (pos < text.size()) ORLO_FUZZ_CHECK(end <= text.size() && end >= pos);
    (void)sizeof(CharT);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    orlo_fuzz::Input in(data, size);
    const uint8_t b = in.Byte();
    const uint32_t pos = in.Byte() & 0x0f;
    const uint8_t m = in.Byte();
    const uint8_t* t;
    size_t tlen;
    in.Rest(t, tlen);
    if (tlen > 1024) return 0;
    // 0 selects the prefix rule; 1..35 give the bases 2..36.
    const int base = b % 36 == 0 ? -1 : b % 36 + 1;
    const uint32_t max = m == 255 ? Orlo::npos : m;

    const stringEx narrow(reinterpret_cast<const char*>(t), static_cast<uint32_t>(tlen));
    Run(narrow, pos, max, base);
    wstringEx wide;
    wide.AppendOtherWidth(narrow);
    Run(wide, pos, max, base);
    return 0;
}
