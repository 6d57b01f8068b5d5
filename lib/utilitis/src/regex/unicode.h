// Unicode character properties for the wide regular-expression engine and
// the wide text services: case mapping, general category, and the member
// lists of the character classes.
//
// Every character is looked up by its low 16 bits only, so U+10041 has the
// properties of U+0041 (and maps to U+10061). The lookup is three indexed
// loads: a page map of 2048 bytes indexed by `c >> 5` names one of at most
// 256 distinct pages of 32 code points; the group map holds those pages one
// after the other, a byte per code point, naming one of at most 256 distinct
// property words:
//
//   bits 0-4    general category (UnicodeGeneralCategory)
//   bit 5       the title-case form is the adjacent code point: c + 1 when
//               the character has no upper-case form, c - 1 when it has
//   bit 6       has a lower-case form, c + delta
//   bit 7       has an upper-case form, c - delta
//   bits 22-31  delta, signed, read by arithmetic shift right by 22
//
// The tables are generated (unicode_tables.cpp, by tools/gen_unicode_tables.py)
// and cover the characters of the plane assigned up to one Unicode version,
// so that the pages fit a byte; later characters read as unassigned. A
// mapping that one shared 10-bit delta cannot express is left out, and the
// accessors return the character unchanged; the generated file lists them.
//
// Implementation details only, past this point.

#ifndef ORLO_SRC_REGEX_UNICODE_H
#define ORLO_SRC_REGEX_UNICODE_H

#include <cstddef>
#include <cstdint>

namespace Orlo::IMPL {

// General categories by number. The generator uses the same numbering;
// the families stay contiguous, letters being 1 to 5.
enum class UnicodeGeneralCategory : uint8_t {
    Cn,  // unassigned (or assigned after the covered version)
    Lu,  // upper-case letter
    Ll,  // lower-case letter
    Lt,  // title-case letter
    Lm,  // modifier letter
    Lo,  // other letter
    Mn,  // non-spacing mark
    Mc,  // spacing mark
    Me,  // enclosing mark
    Nd,  // decimal digit
    Nl,  // letter number
    No,  // other number
    Pc,  // connector punctuation
    Pd,  // dash
    Ps,  // opening punctuation
    Pe,  // closing punctuation
    Pi,  // initial quote
    Pf,  // final quote
    Po,  // other punctuation
    Sm,  // math symbol
    Sc,  // currency symbol
    Sk,  // modifier symbol
    So,  // other symbol
    Zs,  // space separator
    Zl,  // line separator
    Zp,  // paragraph separator
    Cc,  // control
    Cf,  // format
    Cs,  // surrogate
    Co,  // private use
};

inline constexpr uint32_t kUnicodeCategoryMask = 0x1f;
inline constexpr uint32_t kUnicodeAdjacentTitle = 1u << 5;
inline constexpr uint32_t kUnicodeHasLower = 1u << 6;
inline constexpr uint32_t kUnicodeHasUpper = 1u << 7;
inline constexpr int kUnicodeDeltaShift = 22;

extern const uint8_t unicode_page_map[2048];
extern const uint8_t unicode_group_map[];
extern const uint32_t unicode_properties[];
extern const char unicode_data_version[];        // of the database read, "15.0.0"
extern const char unicode_repertoire_version[];  // characters covered, "4.0"

// The property word of the low 16 bits of `c`.
inline uint32_t UnicodeProperties(wchar_t c) {
    const uint32_t low = uint32_t(c) & 0xffff;
    const uint32_t page = unicode_page_map[low >> 5];
    return unicode_properties[unicode_group_map[(page << 5) | (low & 31)]];
}

// The signed delta of a property word, as the 32-bit pattern that wrapping
// unsigned arithmetic adds or subtracts.
inline uint32_t UnicodeDelta(uint32_t props) {
    return uint32_t(int32_t(props) >> kUnicodeDeltaShift);
}

// The simple upper-case form of `c`, or `c` itself. The bits above 16 are
// kept: the delta applies to the whole value.
inline wchar_t UnicodeToUpper(wchar_t c) {
    const uint32_t props = UnicodeProperties(c);
    if (!(props & kUnicodeHasUpper)) return c;
    return wchar_t(uint32_t(c) - UnicodeDelta(props));
}

// The simple lower-case form of `c`, or `c` itself.
inline wchar_t UnicodeToLower(wchar_t c) {
    const uint32_t props = UnicodeProperties(c);
    if (!(props & kUnicodeHasLower)) return c;
    return wchar_t(uint32_t(c) + UnicodeDelta(props));
}

// The title-case form of `c`: the adjacent code point for the letters with
// a distinct title form (U+01C4 and U+01C6 both give U+01C5), otherwise
// the upper-case form of a character that has only that, otherwise `c`
// (a title-case letter, or one with both forms, stays as it is).
inline wchar_t UnicodeToTitle(wchar_t c) {
    const uint32_t props = UnicodeProperties(c);
    if (props & kUnicodeAdjacentTitle)
        return wchar_t(uint32_t(c) - 1 + ((props & kUnicodeHasUpper) ? 0 : 2));
    if ((props & (kUnicodeAdjacentTitle | kUnicodeHasLower | kUnicodeHasUpper)) == kUnicodeHasUpper)
        return wchar_t(uint32_t(c) - UnicodeDelta(props));
    return c;
}

// The general category of `c`; Cn for a character the tables do not cover.
inline UnicodeGeneralCategory UnicodeCategory(wchar_t c) {
    return UnicodeGeneralCategory(UnicodeProperties(c) & kUnicodeCategoryMask);
}

// The member lists of one character class of the wide engine: code points
// of the plane, ranges and lone points each sorted ascending, no two
// touching (a run of two or more is a range).
struct unicode_range {
    uint16_t first;
    uint16_t last;  // inclusive
};

struct unicode_class {
    const char* name;
    const unicode_range* ranges;  // null when nranges is 0
    size_t nranges;
    const uint16_t* singles;  // null when nsingles is 0
    size_t nsingles;
};

// alnum, alpha, ascii, blank, cntrl, digit, graph, lower, print, punct,
// space, upper, xdigit, in this order. Letters, digits (Nd), punctuation
// and controls follow the categories; graph is every letter, mark, number,
// punctuation and symbol; space, blank, ascii and xdigit are fixed lists.
// print has the members of alnum, not of graph and space: the wide engine
// keeps that behaviour on purpose.
inline constexpr size_t kUnicodeClassCount = 13;
extern const unicode_class unicode_classes[kUnicodeClassCount];

}  // namespace Orlo::IMPL

#endif  // ORLO_SRC_REGEX_UNICODE_H
