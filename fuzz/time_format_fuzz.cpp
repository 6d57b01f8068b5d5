// The text forms of time: CTime::Format / FormatTo and CTimeSpan::Format
// with any escapes, at any point of the 64-bit range and in any zone.
//
// Input: 8 bytes the point (microseconds), 2 bytes the zone (minutes east
// of UTC; -32768 is the local zone), then the format text.

#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "orlo/stringEx.h"
#include "orlo/time.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orlo;
    orlo_fuzz::Input in(data, size);
    const int64_t us = static_cast<int64_t>(in.U64());
    const int16_t zone = static_cast<int16_t>(in.U16());
    const uint8_t* t;
    size_t tlen;
    in.Rest(t, tlen);
    if (tlen > 1024) return 0;
    const stringEx format(reinterpret_cast<const char*>(t), static_cast<uint32_t>(tlen));

    const CTime time(us);
    const stringEx once = time.Format(format, zone);
    // Without '%' the text is copied as it is.
    if (format.find("%", 0, 1) == Orlo::npos) ORLO_FUZZ_CHECK(once == format);

    stringEx reused = stringEx::view("leftover");
    time.FormatTo(reused, format, zone);
    ORLO_FUZZ_CHECK(reused == once);
    // The text may be the output itself.
    stringEx self(format);
    time.FormatTo(self, self, zone);
    ORLO_FUZZ_CHECK(self == once);

    (void)CTimeSpan(us).Format(format);
    return 0;
}
