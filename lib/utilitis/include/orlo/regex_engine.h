// The regular-expression engine: three entries, two character types.
//
// engine_compile turns a pattern (pointer and length, no terminator needed)
// into a compiled record in a caller-owned regex_t; engine_exec matches it
// against a text (pointer and length; zero characters are ordinary) and
// reports where the match and its groups lie; engine_free releases it.
// The engine is one body of code instantiated for narrow text (char, a
// 256-entry colour map) and wide text (wchar_t, a two-level map over the low
// 16 bits of each character). A record compiled by one instantiation and
// handed to the other gives REG_MIXED.
//
// Failures are small integer codes, never exceptions: a failed allocation
// is REG_ESPACE. A failed compilation leaves the record released
// (re_magic 0, re_guts null): the caller must not free it again.
//
// Thread-safety: engine_compile uses only its own allocations. After it
// returns, the record is read-only; any number of threads may run
// engine_exec on one record at once.
//
// Most code wants the front (orlo/regex.h), not these entries.

#ifndef ORLO_REGEX_ENGINE_H
#define ORLO_REGEX_ENGINE_H

#include <cstddef>
#include <cstdint>

// The C library's <regex.h> (which some headers, test frameworks among
// them, bring in) defines macros with some of these names; they would
// rewrite the constants below, so they are dropped here. A file that needs
// both must keep the C library's use apart from this header.
#undef REG_EXTENDED
#undef REG_ICASE
#undef REG_NEWLINE
#undef REG_NOSUB
#undef REG_NOTBOL
#undef REG_NOTEOL
#undef REG_STARTEND
#undef REG_NOMATCH
#undef REG_BADPAT
#undef REG_ECOLLATE
#undef REG_ECTYPE
#undef REG_EESCAPE
#undef REG_ESUBREG
#undef REG_EBRACK
#undef REG_EPAREN
#undef REG_EBRACE
#undef REG_BADBR
#undef REG_ERANGE
#undef REG_ESPACE
#undef REG_BADRPT

namespace Orlo {

// ---- compile flags --------------------------------------------------------------
inline constexpr int REG_BASIC = 0;          // basic patterns
inline constexpr int REG_EXTENDED = 0x1;     // extended patterns
inline constexpr int REG_ADVF = 0x2;         // advanced features over extended
inline constexpr int REG_ADVANCED = 0x3;     // advanced patterns
inline constexpr int REG_QUOTE = 0x4;        // the pattern is a literal string
inline constexpr int REG_ICASE = 0x8;        // ignore case
inline constexpr int REG_NOSUB = 0x10;       // no sub-match reporting
inline constexpr int REG_EXPANDED = 0x20;    // white space and # comments are skipped
inline constexpr int REG_NLSTOP = 0x40;      // . and [^...] do not match a newline
inline constexpr int REG_NLANCH = 0x80;      // ^ and $ also match at newlines
inline constexpr int REG_NEWLINE = 0xc0;     // both of the above
inline constexpr int REG_PEND = 0x100;       // reserved
inline constexpr int REG_EXPECT = 0x200;     // the caller wants rm_detail_t
inline constexpr int REG_BOSONLY = 0x400;    // anchored at the string start
inline constexpr int REG_DUMP = 0x800;       // reserved
inline constexpr int REG_FAKE = 0x1000;      // test switch for equivalence classes
inline constexpr int REG_PROGRESS = 0x2000;  // compile progress dumps to stdout

// ---- exec flags -----------------------------------------------------------------
inline constexpr int REG_NOTBOL = 0x1;    // the text start is no line or string start
inline constexpr int REG_NOTEOL = 0x2;    // the text end is no line or string end
inline constexpr int REG_STARTEND = 0x4;  // accepted; the length is always explicit
inline constexpr int REG_FTRACE = 0x8;    // accepted; no visible effect
inline constexpr int REG_MTRACE = 0x10;   // reserved
inline constexpr int REG_SMALL = 0x20;    // tiny state cache, to exercise eviction

// ---- re_info bits -----------------------------------------------------------------
inline constexpr long REG_UBACKREF = 0x1;
inline constexpr long REG_ULOOKAHEAD = 0x2;
inline constexpr long REG_UBOUNDS = 0x4;
inline constexpr long REG_UBRACES = 0x8;
inline constexpr long REG_UBSALNUM = 0x10;
inline constexpr long REG_UPBOTCH = 0x20;
inline constexpr long REG_UBBS = 0x40;
inline constexpr long REG_UNONPOSIX = 0x80;
inline constexpr long REG_UUNSPEC = 0x100;
inline constexpr long REG_UUNPORT = 0x200;
inline constexpr long REG_ULOCALE = 0x400;
inline constexpr long REG_UEMPTYMATCH = 0x800;
inline constexpr long REG_UIMPOSSIBLE = 0x1000;
inline constexpr long REG_USHORTEST = 0x2000;

// ---- error codes ------------------------------------------------------------------
inline constexpr int REG_OKAY = 0;      // success
inline constexpr int REG_NOMATCH = 1;   // no match
inline constexpr int REG_BADPAT = 2;    // invalid pattern; also the ***? prefix
inline constexpr int REG_ECOLLATE = 3;  // unknown collating element
inline constexpr int REG_ECTYPE = 4;    // unknown class name
inline constexpr int REG_EESCAPE = 5;   // invalid escape, or trailing backslash
inline constexpr int REG_ESUBREG = 6;   // back reference to a missing group
inline constexpr int REG_EBRACK = 7;    // bracket not closed
inline constexpr int REG_EPAREN = 8;    // parentheses not balanced
inline constexpr int REG_EBRACE = 9;    // { not closed
inline constexpr int REG_BADBR = 10;    // invalid bound
inline constexpr int REG_ERANGE = 11;   // invalid range
inline constexpr int REG_ESPACE = 12;   // out of memory
inline constexpr int REG_BADRPT = 13;   // quantifier without operand, bad (? or *** prefix
inline constexpr int REG_ASSERT = 15;   // internal inconsistency
inline constexpr int REG_INVARG = 16;   // invalid argument
inline constexpr int REG_MIXED = 17;    // record of the other character size
inline constexpr int REG_BADOPT = 18;   // bad embedded option letter

inline constexpr int32_t REMAGIC = 0xfed7;

// The release entry of one instantiation; engine_free calls through it.
struct regex_t;

struct regex_fns {
    void (*free)(regex_t* re);
};

// A compiled pattern, owned by the caller.
struct regex_t {
    int32_t re_magic = 0;           // REMAGIC while live, 0 after release
    size_t re_nsub = 0;             // number of capturing groups
    long re_info = 0;               // REG_U... properties of the pattern
    int32_t re_csize = 0;           // size of one character: 1 or 4
    const void* re_endp = nullptr;  // reserved
    void* re_guts = nullptr;        // the compiled form
    const regex_fns* re_fns = nullptr;
};

// Offsets from the start of the searched text; -1 in both for a group that
// took no part in the match.
struct regmatch_t {
    long rm_so;
    long rm_eo;
};

// With REG_EXPECT: the span of text the engine had to look at.
struct rm_detail_t {
    regmatch_t rm_extend;
};

// Compiles `length` characters at `pattern` under `flags`. Returns REG_OKAY
// or an error code; on error `re` is left released.
int engine_compile(regex_t* re, const char* pattern, size_t length, int flags);
int engine_compile(regex_t* re, const wchar_t* pattern, size_t length, int flags);

// Finds the leftmost match in `length` characters at `text`. Fills
// min(nmatch, groups + 1) entries of `pmatch` (the whole match first) when a
// match is found. Returns REG_OKAY, REG_NOMATCH or an error code.
int engine_exec(regex_t* re, const char* text, size_t length, rm_detail_t* details, size_t nmatch,
                regmatch_t pmatch[], int flags);
int engine_exec(regex_t* re, const wchar_t* text, size_t length, rm_detail_t* details,
                size_t nmatch, regmatch_t pmatch[], int flags);

// Releases what engine_compile built. A null `re` is ignored.
void engine_free(regex_t* re);

}  // namespace Orlo

#endif  // ORLO_REGEX_ENGINE_H
