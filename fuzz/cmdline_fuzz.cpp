// The option store's text parser: CCmdLine::ParseText, then the questions a
// tool asks of the table.
//
// Input: byte 0 options (bit 0 expand the environment, bits 1-2 skip), then
// the prefixes up to the first zero byte, the suffixes up to the next, and
// the command text.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "cmdline.h"
#include "fuzz_support.h"
#include "orlo/stringEx.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orlo;
    orlo_fuzz::Input in(data, size);
    const uint8_t o = in.Byte();
    const uint8_t *pre, *suf, *t;
    size_t prelen, suflen, tlen;
    in.Until(0, pre, prelen);
    in.Until(0, suf, suflen);
    in.Rest(t, tlen);
    if (tlen > 4096) return 0;

    const stringEx prefixes(reinterpret_cast<const char*>(pre), static_cast<uint32_t>(prelen));
    const stringEx suffixes(reinterpret_cast<const char*>(suf), static_cast<uint32_t>(suflen));
    const stringEx text(reinterpret_cast<const char*>(t), static_cast<uint32_t>(tlen));

    CCmdLine cmd(prefixes, suffixes, (o >> 1) & 3);
    const bool parsed = cmd.ParseText(text, o & 1);
    if (tlen == 0) ORLO_FUZZ_CHECK(!parsed);

    const uint32_t n = static_cast<uint32_t>(cmd.args.size());
    ORLO_FUZZ_CHECK(cmd.switchCount <= n);
    // Empty words are dropped.
    for (const CCmdArg& arg : cmd.args)
        ORLO_FUZZ_CHECK(!arg.raw.empty());

    uint32_t switches = 0;
    for (uint32_t i = 0; i < n + 2; ++i) {
        const bool sw = cmd.IsSwitch(i), free = cmd.IsFreeArg(i);
        ORLO_FUZZ_CHECK(!(sw && free));
        if (i < cmd.skip || i >= n) {
            ORLO_FUZZ_CHECK(!sw && !free);
            continue;
        }
        ORLO_FUZZ_CHECK(sw || free);
        if (!sw) continue;
        ++switches;
        const stringEx name = cmd.NameAt(i);
        ORLO_FUZZ_CHECK(!name.empty());
        // Some occurrence of a present switch is found, by either lookup.
        ORLO_FUZZ_CHECK(cmd.CountSwitchCase(name) >= 1);
        ORLO_FUZZ_CHECK(cmd.CountSwitch(name) >= cmd.CountSwitchCase(name));
        ORLO_FUZZ_CHECK(cmd.FindSwitchCase(name) <= i);
        ORLO_FUZZ_CHECK(cmd.FindSwitch(name) <= i);
        (void)cmd.GetValue(name);
        (void)cmd.GetValueCase(name, 1);
        (void)cmd.ValueAt(i);
    }
    ORLO_FUZZ_CHECK(switches <= cmd.switchCount);
    for (uint32_t i = 0; i < 4; ++i)
        (void)cmd.GetFreeArg(i);

    std::vector<CCmdArg> all;
    ORLO_FUZZ_CHECK(cmd.GetAll(all) == (n > cmd.skip ? n - cmd.skip : 0));

    // Parsing the same table again changes nothing.
    const uint32_t before = cmd.switchCount;
    cmd.Parse();
    ORLO_FUZZ_CHECK(cmd.switchCount == before);
    return 0;
}
