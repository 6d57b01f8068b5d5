// Character vectors and bracket-item sets; see classes.h for the contracts.
//
// A `cvec` is one allocation: the record, then the (always empty) slots for
// multi-character elements, the characters, and the range bounds in pairs.
// The tables here are the collating names, looked up by first match so
// that every code keeps the order of its names, and the narrow classes,
// each with its members in the "C" locale and the C library test that
// replaces them under any other locale.

#include "regex/classes.h"
#include "regex/alloc.h"

#include <cctype>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "regex/unicode.h"

namespace Orlo::IMPL::re {
namespace {

template <class CharT>
constexpr bool kWide = map_shape<CharT>::levels == 2;

// ---- names -----------------------------------------------------------------

struct collating_name {
    const char* name;
    int code;
};

constexpr collating_name kCollatingNames[] = {
    {"NUL", 0},
    {"SOH", 1},
    {"STX", 2},
    {"ETX", 3},
    {"EOT", 4},
    {"ENQ", 5},
    {"ACK", 6},
    {"BEL", 7},
    {"alert", 7},
    {"BS", 8},
    {"backspace", 8},
    {"HT", 9},
    {"tab", 9},
    {"LF", 10},
    {"newline", 10},
    {"VT", 11},
    {"vertical-tab", 11},
    {"FF", 12},
    {"form-feed", 12},
    {"CR", 13},
    {"carriage-return", 13},
    {"SO", 14},
    {"SI", 15},
    {"DLE", 16},
    {"DC1", 17},
    {"DC2", 18},
    {"DC3", 19},
    {"DC4", 20},
    {"NAK", 21},
    {"SYN", 22},
    {"ETB", 23},
    {"CAN", 24},
    {"EM", 25},
    {"SUB", 26},
    {"ESC", 27},
    {"IS4", 28},
    {"FS", 28},
    {"IS3", 29},
    {"GS", 29},
    {"IS2", 30},
    {"RS", 30},
    {"IS1", 31},
    {"US", 31},
    {"space", 32},
    {"exclamation-mark", 33},
    {"quotation-mark", 34},
    {"number-sign", 35},
    {"dollar-sign", 36},
    {"percent-sign", 37},
    {"ampersand", 38},
    {"apostrophe", 39},
    {"left-parenthesis", 40},
    {"right-parenthesis", 41},
    {"asterisk", 42},
    {"plus-sign", 43},
    {"comma", 44},
    {"hyphen", 45},
    {"hyphen-minus", 45},
    {"period", 46},
    {"full-stop", 46},
    {"slash", 47},
    {"solidus", 47},
    {"zero", 48},
    {"one", 49},
    {"two", 50},
    {"three", 51},
    {"four", 52},
    {"five", 53},
    {"six", 54},
    {"seven", 55},
    {"eight", 56},
    {"nine", 57},
    {"colon", 58},
    {"semicolon", 59},
    {"less-than-sign", 60},
    {"equals-sign", 61},
    {"greater-than-sign", 62},
    {"question-mark", 63},
    {"commercial-at", 64},
    {"left-square-bracket", 91},
    {"backslash", 92},
    {"reverse-solidus", 92},
    {"right-square-bracket", 93},
    {"circumflex", 94},
    {"circumflex-accent", 94},
    {"underscore", 95},
    {"low-line", 95},
    {"grave-accent", 96},
    {"left-brace", 123},
    {"left-curly-bracket", 123},
    {"vertical-line", 124},
    {"right-brace", 125},
    {"right-curly-bracket", 125},
    {"tilde", 126},
    {"DEL", 127},
};
static_assert(sizeof kCollatingNames / sizeof kCollatingNames[0] == 95);

// The pattern text `startp`..`endp` spells `name` exactly.
template <class CharT>
bool spells(const CharT* startp, const CharT* endp, const char* name) {
    const size_t length = size_t(endp - startp);
    if (strlen(name) != length) return false;
    for (size_t i = 0; i < length; ++i)
        if (startp[i] != CharT(static_cast<unsigned char>(name[i]))) return false;
    return true;
}

// ---- case ------------------------------------------------------------------

char narrow_lower(char c) {
    return char(tolower(static_cast<unsigned char>(c)));
}
char narrow_upper(char c) {
    return char(toupper(static_cast<unsigned char>(c)));
}

template <class CharT>
CharT lower_case(CharT c) {
    if constexpr (kWide<CharT>)
        return UnicodeToLower(c);
    else
        return narrow_lower(c);
}

template <class CharT>
CharT upper_case(CharT c) {
    if constexpr (kWide<CharT>)
        return UnicodeToUpper(c);
    else
        return narrow_upper(c);
}

// `c`, then its lower-case and upper-case forms when they differ from it,
// and in wide text its title-case form when that differs from both `c` and
// the upper-case form. Returns how many were written; at most 4.
template <class CharT>
int case_variants(CharT c, CharT out[4]) {
    int n = 0;
    out[n++] = c;
    const CharT lc = lower_case(c);
    const CharT uc = upper_case(c);
    if (lc != c) out[n++] = lc;
    if (uc != c) out[n++] = uc;
    if constexpr (kWide<CharT>) {
        const CharT tc = UnicodeToTitle(c);
        if (tc != c && tc != uc) out[n++] = tc;
    }
    return n;
}

// The colour map sees only the low 16 bits of a wide character, so a range
// of 65536 characters or more already holds every case variant.
template <class CharT>
bool spans_whole_map(CharT a, CharT b) {
    if constexpr (kWide<CharT>)
        return int64_t(b) - int64_t(a) >= 0xffff;
    else
        return false;
}

template <class CharT>
cvec<CharT>* one_range(parse_vars<CharT>* v, CharT a, CharT b) {
    cvec<CharT>* cv = getcvec(v, 0, 1, 0);
    if (cv) addrange(cv, a, b);
    return cv;
}

// ---- narrow classes --------------------------------------------------------

struct narrow_class {
    const char* name;
    const char* members;  // in the "C" locale
    bool hasch;           // kept with the table; nothing reads it
    int (*test)(int);     // replaces `members` under any other locale; null: none
};

int test_alnum(int c) {
    return isalnum(c);
}
int test_alpha(int c) {
    return isalpha(c);
}
int test_cntrl(int c) {
    return iscntrl(c);
}
int test_digit(int c) {
    return isdigit(c);
}
int test_graph(int c) {
    return isgraph(c);
}
int test_lower(int c) {
    return islower(c);
}
int test_print(int c) {
    return isprint(c);
}
int test_punct(int c) {
    return ispunct(c);
}
int test_space(int c) {
    return isspace(c);
}
int test_upper(int c) {
    return isupper(c);
}
int test_xdigit(int c) {
    return isxdigit(c);
}

const narrow_class kNarrowClasses[] = {
    {"alnum", "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", true, test_alnum},
    {"alpha", "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", true, test_alpha},
    {"blank", " \t", false, nullptr},
    {"cntrl",
     "\007\b\t\n\v\f\r\001\002\003\004\005\006\016\017\020\021\022\023\024\025\026\027\030\031"
     "\032\033\034\035\036\037\177",
     false, test_cntrl},
    {"digit", "0123456789", false, test_digit},
    {"graph",
     "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
     "!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~",
     true, test_graph},
    {"lower", "abcdefghijklmnopqrstuvwxyz", true, test_lower},
    {"print",
     "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
     "!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~ ",
     true, test_print},
    {"punct", "!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~", false, test_punct},
    {"space", "\t\n\v\f\r ", false, test_space},
    {"upper", "ABCDEFGHIJKLMNOPQRSTUVWXYZ", false, test_upper},
    {"xdigit", "0123456789ABCDEFabcdef", false, test_xdigit},
};

bool in_c_locale() {
    const char* name = setlocale(LC_CTYPE, nullptr);
    return !name || strcmp(name, "C") == 0;
}

cvec<char>* narrow_class_members(parse_vars<char>* v, const narrow_class& cls) {
    if (!cls.test || in_c_locale()) {
        const size_t n = strlen(cls.members);
        cvec<char>* cv = getcvec(v, int(n), 0, 0);
        if (!cv) return nullptr;
        for (size_t i = 0; i < n; ++i)
            addchr(cv, cls.members[i]);
        return cv;
    }
    cvec<char>* cv = getcvec(v, 256, 0, 0);
    if (!cv) return nullptr;
    for (int c = 0; c < 256; ++c)
        if (cls.test(c)) addchr(cv, char(c));
    return cv;
}

cvec<wchar_t>* wide_class_members(parse_vars<wchar_t>* v, const unicode_class& cls) {
    cvec<wchar_t>* cv = getcvec(v, int(cls.nsingles), int(cls.nranges), 0);
    if (!cv) return nullptr;
    for (size_t i = 0; i < cls.nsingles; ++i)
        addchr(cv, wchar_t(cls.singles[i]));
    for (size_t i = 0; i < cls.nranges; ++i)
        addrange(cv, wchar_t(cls.ranges[i].first), wchar_t(cls.ranges[i].last));
    return cv;
}

// Whether the class text names `name`; with `cases` "lower" and "upper"
// name "alpha", since either, folded, is every letter.
template <class CharT>
bool names_class(const CharT* startp, const CharT* endp, bool cases, const char* name) {
    if (cases && (spells(startp, endp, "lower") || spells(startp, endp, "upper")))
        return strcmp(name, "alpha") == 0;
    return spells(startp, endp, name);
}

cvec<char>* find_class(parse_vars<char>* v, const char* startp, const char* endp, bool cases) {
    for (const narrow_class& cls : kNarrowClasses)
        if (names_class(startp, endp, cases, cls.name)) return narrow_class_members(v, cls);
    set_error(v, REG_ECTYPE);
    return nullptr;
}

cvec<wchar_t>* find_class(parse_vars<wchar_t>* v, const wchar_t* startp, const wchar_t* endp,
                          bool cases) {
    for (const unicode_class& cls : unicode_classes)
        if (names_class(startp, endp, cases, cls.name)) return wide_class_members(v, cls);
    set_error(v, REG_ECTYPE);
    return nullptr;
}

}  // namespace

// ---- character vectors -----------------------------------------------------

template <class CharT>
cvec<CharT>* newcvec(int nchrs, int nranges, int nmcces) {
    const size_t bytes = sizeof(cvec<CharT>) + size_t(nmcces) * sizeof(CharT*) +
                         (size_t(nchrs) + 2 * size_t(nranges)) * sizeof(CharT);
    auto* cv = static_cast<cvec<CharT>*>(re_malloc(bytes));
    if (!cv) return nullptr;
    cv->mcces = reinterpret_cast<CharT**>(cv + 1);
    cv->chrs = reinterpret_cast<CharT*>(cv->mcces + nmcces);
    cv->ranges = cv->chrs + nchrs;
    cv->chrspace = nchrs;
    cv->rangespace = nranges;
    cv->mccespace = nmcces;
    clearcvec(cv);
    return cv;
}

template <class CharT>
void freecvec(cvec<CharT>* cv) {
    free(cv);
}

template <class CharT>
void clearcvec(cvec<CharT>* cv) {
    cv->nchrs = 0;
    cv->nranges = 0;
    cv->nmcces = 0;
    cv->nmccechrs = 0;
}

template <class CharT>
void addchr(cvec<CharT>* cv, CharT c) {
    cv->chrs[cv->nchrs++] = c;
}

template <class CharT>
void addrange(cvec<CharT>* cv, CharT from, CharT to) {
    cv->ranges[2 * cv->nranges] = from;
    cv->ranges[2 * cv->nranges + 1] = to;
    cv->nranges++;
}

template <class CharT>
cvec<CharT>* getcvec(parse_vars<CharT>* v, int nchrs, int nranges, int nmcces) {
    cvec<CharT>* cv = v->cv;
    if (cv && cv->chrspace >= nchrs && cv->rangespace >= nranges && cv->mccespace >= nmcces) {
        clearcvec(cv);
        return cv;
    }
    if (cv) freecvec(cv);
    v->cv = newcvec<CharT>(nchrs, nranges, nmcces);
    if (!v->cv) set_error(v, REG_ESPACE);
    return v->cv;
}

// ---- bracket items ---------------------------------------------------------

template <class CharT>
CharT element(parse_vars<CharT>* v, const CharT* startp, const CharT* endp) {
    if (endp - startp == 1) return *startp;
    note(v, REG_ULOCALE);
    for (const collating_name& row : kCollatingNames)
        if (spells(startp, endp, row.name)) return CharT(row.code);
    set_error(v, REG_ECOLLATE);
    return 0;
}

template <class CharT>
cvec<CharT>* eclass(parse_vars<CharT>* v, CharT c, bool cases) {
    if ((v->cflags & REG_FAKE) && c == CharT('x')) {
        cvec<CharT>* cv = getcvec(v, 4, 0, 0);
        if (!cv) return nullptr;
        addchr(cv, CharT('x'));
        addchr(cv, CharT('y'));
        if (cases) {
            addchr(cv, CharT('X'));
            addchr(cv, CharT('Y'));
        }
        return cv;
    }
    if (cases) return allcases(v, c);
    cvec<CharT>* cv = getcvec(v, 1, 0, 0);
    if (cv) addchr(cv, c);
    return cv;
}

template <class CharT>
cvec<CharT>* cclass(parse_vars<CharT>* v, const CharT* startp, const CharT* endp, bool cases) {
    return find_class(v, startp, endp, cases);
}

template <class CharT>
cvec<CharT>* range(parse_vars<CharT>* v, CharT a, CharT b, bool cases) {
    if (a > b) {
        set_error(v, REG_ERANGE);
        return nullptr;
    }
    if (!cases || spans_whole_map(a, b)) return one_range(v, a, b);
    // Room for two entries per character and a little more; a run of
    // letters with three case forms each needs more, so count first.
    CharT forms[4];
    int needed = 0;
    for (int64_t c = a; c <= b; ++c)
        needed += case_variants(CharT(c), forms);
    const int room = int(2 * (int64_t(b) - int64_t(a)) + 6);
    cvec<CharT>* cv = getcvec(v, needed > room ? needed : room, 0, 0);
    if (!cv) return nullptr;
    for (int64_t c = a; c <= b; ++c) {
        const int n = case_variants(CharT(c), forms);
        for (int i = 0; i < n; ++i)
            addchr(cv, forms[i]);
    }
    return cv;
}

template <class CharT>
cvec<CharT>* allcases(parse_vars<CharT>* v, CharT c) {
    const CharT lc = lower_case(c);
    const CharT uc = upper_case(c);
    cvec<CharT>* cv = getcvec(v, 3, 0, 0);
    if (!cv) return nullptr;
    addchr(cv, lc);
    if (uc != lc) addchr(cv, uc);
    if constexpr (kWide<CharT>) {
        const CharT tc = UnicodeToTitle(c);
        if (tc != uc && tc != lc) addchr(cv, tc);
    }
    return cv;
}

// ---- back-reference comparators --------------------------------------------

template <class CharT>
int cmp(const CharT* a, const CharT* b, size_t length) {
    if (length == 0) return 0;
    return memcmp(a, b, length * sizeof(CharT));
}

template <class CharT>
int casecmp(const CharT* a, const CharT* b, size_t length) {
    for (size_t i = 0; i < length; ++i)
        if (a[i] != b[i] && lower_case(a[i]) != lower_case(b[i])) return 1;
    return 0;
}

// ---- instantiations --------------------------------------------------------

#define ORLO_RE_INSTANTIATE_CLASSES(CharT)                                              \
    template cvec<CharT>* newcvec(int, int, int);                                       \
    template void freecvec(cvec<CharT>*);                                               \
    template void clearcvec(cvec<CharT>*);                                              \
    template void addchr(cvec<CharT>*, CharT);                                          \
    template void addrange(cvec<CharT>*, CharT, CharT);                                 \
    template cvec<CharT>* getcvec(parse_vars<CharT>*, int, int, int);                   \
    template CharT element(parse_vars<CharT>*, const CharT*, const CharT*);             \
    template cvec<CharT>* eclass(parse_vars<CharT>*, CharT, bool);                      \
    template cvec<CharT>* cclass(parse_vars<CharT>*, const CharT*, const CharT*, bool); \
    template cvec<CharT>* range(parse_vars<CharT>*, CharT, CharT, bool);                \
    template cvec<CharT>* allcases(parse_vars<CharT>*, CharT);                          \
    template int cmp(const CharT*, const CharT*, size_t);                               \
    template int casecmp(const CharT*, const CharT*, size_t);

ORLO_RE_INSTANTIATE_CLASSES(char)
ORLO_RE_INSTANTIATE_CLASSES(wchar_t)

#undef ORLO_RE_INSTANTIATE_CLASSES

}  // namespace Orlo::IMPL::re
