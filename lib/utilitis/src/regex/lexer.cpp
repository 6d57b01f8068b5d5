// The lexer's rules: one reader per lexical context, the escape reader they
// share, and the pattern-head prefixes, over either character type.
//
// `next_token` does the common steps (error check, the implicit leading
// anchor, the return from a nested string, blank skipping, the end of the
// pattern) and hands one character to the reader of the current context.
// A reader either produces a token, fails, or asks to be called again
// (`kReadAgain`): a `(?#...)` comment produces nothing, and a class escape
// produces a nested string whose first token is the one wanted. Looping
// rather than recursing keeps a pattern of a million comments off the
// stack, and keeps `lasttype` the token that the parser actually saw.
//
// Numbers are gathered in 32 unsigned bits, which wrap, and cut to CharT
// when stored; that is the same as accumulating in CharT itself, without
// the signed overflow.

#include "regex/lexer.h"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "regex/classes.h"

namespace Orlo::IMPL::re {
namespace {

// A reader's request to be run again on the input that follows.
constexpr int kReadAgain = -1;

// ---- fixed strings ---------------------------------------------------------

// A narrow literal widened to CharT, with static storage, so that `lexnest`
// and the name look-ups can read it in either instantiation.
template <class CharT, size_t N>
struct fixed_text {
    CharT chars[N - 1];
    constexpr const CharT* begin() const { return chars; }
    constexpr const CharT* end() const { return chars + (N - 1); }
};

template <class CharT, size_t N>
constexpr fixed_text<CharT, N> widen(const char (&text)[N]) {
    fixed_text<CharT, N> out{};
    for (size_t i = 0; i + 1 < N; ++i)
        out.chars[i] = CharT(text[i]);
    return out;
}

// What the class escapes stand for, outside a bracket and inside one. The
// complemented classes have no form inside a bracket.
template <class CharT>
constexpr auto kDigits = widen<CharT>("[[:digit:]]");
template <class CharT>
constexpr auto kSpaces = widen<CharT>("[[:space:]]");
template <class CharT>
constexpr auto kWordChars = widen<CharT>("[[:alnum:]_]");
template <class CharT>
constexpr auto kNonDigits = widen<CharT>("[^[:digit:]]");
template <class CharT>
constexpr auto kNonSpaces = widen<CharT>("[^[:space:]]");
template <class CharT>
constexpr auto kNonWordChars = widen<CharT>("[^[:alnum:]_]");
template <class CharT>
constexpr auto kDigitsItem = widen<CharT>("[:digit:]");
template <class CharT>
constexpr auto kSpacesItem = widen<CharT>("[:space:]");
template <class CharT>
constexpr auto kWordCharsItems = widen<CharT>("[:alnum:]_");

// Collating names of the two escapes that are looked up rather than fixed.
template <class CharT>
constexpr auto kAlertName = widen<CharT>("alert");
template <class CharT>
constexpr auto kEscapeName = widen<CharT>("ESC");

// ---- characters ------------------------------------------------------------

template <class CharT>
bool is_ascii(CharT c) {
    return c >= 0 && c < 0x80;
}
template <class CharT>
bool is_ascii_digit(CharT c) {
    return c >= '0' && c <= '9';
}
template <class CharT>
bool is_ascii_letter(CharT c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
template <class CharT>
bool is_ascii_alnum(CharT c) {
    return is_ascii_digit(c) || is_ascii_letter(c);
}
// The C library's test, asked only about ASCII: a wide or negative value
// is outside its domain.
template <class CharT>
bool is_ascii_space(CharT c) {
    return is_ascii(c) && std::isspace(static_cast<unsigned char>(c));
}

// The value of `c` as a digit of `base` (8, 10 or 16), or -1.
template <class CharT>
int digit_value(CharT c, int base) {
    int d = -1;
    if (c >= '0' && c <= '9')
        d = int(c - '0');
    else if (c >= 'a' && c <= 'f')
        d = int(c - 'a') + 10;
    else if (c >= 'A' && c <= 'F')
        d = int(c - 'A') + 10;
    return d < base ? d : -1;
}

// ---- position --------------------------------------------------------------

template <class CharT>
bool at_end(const parse_vars<CharT>* v) {
    return v->now >= v->stop;
}
template <class CharT>
size_t remaining(const parse_vars<CharT>* v) {
    return at_end(v) ? 0 : size_t(v->stop - v->now);
}
template <class CharT>
bool next_is(const parse_vars<CharT>* v, char c) {
    return !at_end(v) && *v->now == CharT(c);
}
// Whether the unread input begins with the ASCII `text`.
template <class CharT>
bool next_are(const parse_vars<CharT>* v, const char* text) {
    const CharT* p = v->now;
    for (; *text != '\0'; ++text, ++p)
        if (p >= v->stop || *p != CharT(*text)) return false;
    return true;
}

template <class CharT>
bool in_nested_text(const parse_vars<CharT>* v) {
    return v->savenow != nullptr;
}
template <class CharT>
void leave_nested_text(parse_vars<CharT>* v) {
    v->now = v->savenow;
    v->stop = v->savestop;
    v->savenow = nullptr;
    v->savestop = nullptr;
}

// ---- results ---------------------------------------------------------------

// A token without a value: `nextvalue` keeps what it had.
template <class CharT>
int token(parse_vars<CharT>* v, int type) {
    v->nexttype = type;
    return 1;
}
// The cast to CharT is where narrow values lose all but 8 bits.
template <class CharT>
int token(parse_vars<CharT>* v, int type, std::type_identity_t<CharT> value) {
    v->nexttype = type;
    v->nextvalue = value;
    return 1;
}
template <class CharT>
int fail(parse_vars<CharT>* v, int code) {
    set_error(v, code);
    return 0;
}

template <class CharT>
bool has_flag(const parse_vars<CharT>* v, int flag) {
    return (v->cflags & flag) != 0;
}

// Where a bracket returns to: the pattern text of the syntax in force.
template <class CharT>
int pattern_context(const parse_vars<CharT>* v) {
    return has_flag(v, REG_EXTENDED) ? L_ERE : L_BRE;
}

// ---- blanks and comments ---------------------------------------------------

// White space and `#` comments of an expanded pattern. A comment runs up to
// its newline, which the next round takes as white space.
template <class CharT>
void skip_blanks(parse_vars<CharT>* v) {
    if (!has_flag(v, REG_EXPANDED)) return;
    const CharT* start = v->now;
    for (;;) {
        while (!at_end(v) && is_ascii_space(*v->now))
            ++v->now;
        if (!next_is(v, '#')) break;
        while (!at_end(v) && *v->now != CharT('\n'))
            ++v->now;
    }
    if (v->now != start) note(v, REG_UNONPOSIX);
}

bool skips_blanks_in(int lexcon) {
    return lexcon == L_ERE || lexcon == L_BRE || lexcon == L_EBND || lexcon == L_BBND;
}

// ---- pattern head ----------------------------------------------------------

// The `***` director. Returns whether an option group may still follow.
template <class CharT>
bool read_director(parse_vars<CharT>* v) {
    if (remaining(v) < 4 || !next_are(v, "***")) return true;
    switch (v->now[3]) {
        case '?':
            set_error(v, REG_BADPAT);
            return false;
        case '=':
            v->now += 4;
            v->cflags &= ~(REG_ADVANCED | REG_EXPANDED | REG_NEWLINE);
            v->cflags |= REG_QUOTE;
            note(v, REG_UNONPOSIX);
            return false;
        case ':':
            v->now += 4;
            v->cflags |= REG_ADVANCED;
            note(v, REG_UNONPOSIX);
            return true;
        default:
            set_error(v, REG_BADRPT);
            return false;
    }
}

// Applies one embedded option letter; false for a letter that is none.
bool apply_option(int& flags, int letter) {
    switch (letter) {
        case 'b':
            flags &= ~(REG_ADVANCED | REG_QUOTE);
            return true;
        case 'c':
            flags &= ~REG_ICASE;
            return true;
        case 'e':
            flags = (flags | REG_EXTENDED) & ~(REG_ADVF | REG_QUOTE);
            return true;
        case 'i':
            flags |= REG_ICASE;
            return true;
        case 'm':
        case 'n':
            flags |= REG_NEWLINE;
            return true;
        case 'p':
            flags = (flags | REG_NLSTOP) & ~REG_NLANCH;
            return true;
        case 'q':
            flags = (flags | REG_QUOTE) & ~REG_ADVANCED;
            return true;
        case 's':
            flags &= ~REG_NEWLINE;
            return true;
        case 't':
            flags &= ~REG_EXPANDED;
            return true;
        case 'w':
            flags = (flags | REG_NLANCH) & ~REG_NLSTOP;
            return true;
        case 'x':
            flags |= REG_EXPANDED;
            return true;
        default:
            return false;
    }
}

// An option group `(?letters)` at the very head of an advanced pattern.
template <class CharT>
void read_embedded_options(parse_vars<CharT>* v) {
    if ((v->cflags & REG_ADVANCED) != REG_ADVANCED) return;
    if (remaining(v) < 3 || !next_are(v, "(?") || !is_ascii_letter(v->now[2])) return;
    note(v, REG_UNONPOSIX);
    v->now += 2;
    for (; !at_end(v) && is_ascii_letter(*v->now); ++v->now) {
        if (!apply_option(v->cflags, int(*v->now))) {
            set_error(v, REG_BADOPT);
            return;
        }
    }
    if (!next_is(v, ')')) {
        set_error(v, REG_BADOPT);
        return;
    }
    ++v->now;
    // Literal text has no blanks to skip and no lines to anchor at.
    if (has_flag(v, REG_QUOTE)) v->cflags &= ~(REG_EXPANDED | REG_NEWLINE);
}

template <class CharT>
void read_prefixes(parse_vars<CharT>* v) {
    if (has_flag(v, REG_QUOTE)) return;
    if (read_director(v)) read_embedded_options(v);
}

// ---- escapes ---------------------------------------------------------------

struct number {
    int digits;
    uint32_t value;  // wraps; cut to CharT when stored
};

// Up to `most` digits of `base` from the unread input.
template <class CharT>
number read_number(parse_vars<CharT>* v, int base, int most) {
    number n{0, 0};
    for (; n.digits < most && !at_end(v); ++n.digits, ++v->now) {
        const int d = digit_value(*v->now, base);
        if (d < 0) break;
        n.value = n.value * uint32_t(base) + uint32_t(d);
    }
    return n;
}

// A character given by `least` to `most` digits of `base`.
template <class CharT>
int numeric_escape(parse_vars<CharT>* v, int base, int least, int most) {
    const number n = read_number(v, base, most);
    if (n.digits < least) return fail(v, REG_EESCAPE);
    return token(v, PLAIN, CharT(n.value));
}

// An escape beginning with 1 to 9, the digit still unread: a back reference
// when it is one digit or names a group already opened, else octal. The
// comparison is made on the value as stored, so narrow text compares the
// cut value.
template <class CharT>
int numbered_escape(parse_vars<CharT>* v) {
    const CharT* start = v->now;
    const number n = read_number(v, 10, 255);
    const CharT group = CharT(n.value);
    if (n.digits == 1 || group <= v->nsubexp) {
        note(v, REG_UBACKREF);
        return token(v, BACKREF, group);
    }
    v->now = start;
    note(v, REG_UUNPORT);
    return numeric_escape(v, 8, 1, 3);
}

// The character the collating-name table gives `name`, or `fallback`. A
// miss is no fault of the pattern, so the look-up's error is undone.
template <class CharT, size_t N>
CharT named_character(parse_vars<CharT>* v, const fixed_text<CharT, N>& name, CharT fallback) {
    const int saved = v->err;
    const CharT c = element(v, name.begin(), name.end());
    const bool missing = has_error(v);
    v->err = saved;
    return missing ? fallback : c;
}

// Reads the escape after a backslash (a character is known to follow) into
// the token. Class escapes come back as CCLASS with their letter, for the
// caller to expand. Returns 0 on error.
template <class CharT>
int read_escape(parse_vars<CharT>* v) {
    const CharT c = *v->now++;
    if (!is_ascii_alnum(c)) return token(v, PLAIN, c);
    note(v, REG_UNONPOSIX);
    if (c >= '1' && c <= '9') {
        --v->now;
        return numbered_escape(v);
    }
    switch (c) {
        case 'a':
            note(v, REG_ULOCALE);
            return token(v, PLAIN, named_character(v, kAlertName<CharT>, CharT(7)));
        case 'A':
            return token(v, SBEGIN);
        case 'b':
            return token(v, PLAIN, 8);
        case 'B':
            return token(v, PLAIN, '\\');
        case 'c':
            note(v, REG_UUNPORT);
            if (at_end(v)) return fail(v, REG_EESCAPE);
            return token(v, PLAIN, CharT(*v->now++ & 0x1f));
        case 'd':
        case 's':
        case 'w':
        case 'D':
        case 'S':
        case 'W':
            note(v, REG_ULOCALE);
            return token(v, CCLASS, c);
        case 'e':
            note(v, REG_UUNPORT | REG_ULOCALE);
            return token(v, PLAIN, named_character(v, kEscapeName<CharT>, CharT(27)));
        case 'f':
            return token(v, PLAIN, 12);
        case 'm':
            return token(v, WORD_START);
        case 'M':
            return token(v, WORD_END);
        case 'n':
            return token(v, PLAIN, 10);
        case 'r':
            return token(v, PLAIN, 13);
        case 't':
            return token(v, PLAIN, 9);
        case 'u':
            return numeric_escape(v, 16, 4, 4);
        case 'U':
            return numeric_escape(v, 16, 8, 8);
        case 'v':
            return token(v, PLAIN, 11);
        case 'x':
            note(v, REG_UUNPORT);
            return numeric_escape(v, 16, 1, 255);
        case 'y':
            note(v, REG_ULOCALE);
            return token(v, WBDRY);
        case 'Y':
            note(v, REG_ULOCALE);
            return token(v, NWBDRY);
        case 'Z':
            return token(v, SEND);
        case '0':
            note(v, REG_UUNPORT);
            --v->now;
            return numeric_escape(v, 8, 1, 3);
        default:
            return fail(v, REG_EESCAPE);
    }
}

template <class CharT, size_t N>
void nest(parse_vars<CharT>* v, const fixed_text<CharT, N>& text) {
    lexnest(v, text.begin(), text.end());
}

// Expands a class escape read in pattern text into a whole bracket.
template <class CharT>
int nest_class(parse_vars<CharT>* v, CharT letter) {
    switch (letter) {
        case 'd':
            nest(v, kDigits<CharT>);
            break;
        case 's':
            nest(v, kSpaces<CharT>);
            break;
        case 'w':
            nest(v, kWordChars<CharT>);
            break;
        case 'D':
            nest(v, kNonDigits<CharT>);
            break;
        case 'S':
            nest(v, kNonSpaces<CharT>);
            break;
        case 'W':
            nest(v, kNonWordChars<CharT>);
            break;
        default:
            return fail(v, REG_ASSERT);
    }
    return kReadAgain;
}

// Expands a class escape read inside a bracket into bracket items. A
// complement cannot be one item among others, so those are refused.
template <class CharT>
int nest_class_items(parse_vars<CharT>* v, CharT letter) {
    switch (letter) {
        case 'd':
            nest(v, kDigitsItem<CharT>);
            break;
        case 's':
            nest(v, kSpacesItem<CharT>);
            break;
        case 'w':
            nest(v, kWordCharsItems<CharT>);
            break;
        default:
            return fail(v, REG_EESCAPE);
    }
    return kReadAgain;
}

// ---- pattern text ----------------------------------------------------------

// `[`, in either syntax: a word-boundary spelling, or a bracket.
template <class CharT>
int bracket_open(parse_vars<CharT>* v) {
    if (next_are(v, "[:<:]]") || next_are(v, "[:>:]]")) {
        const int type = v->now[2] == CharT('<') ? WORD_START : WORD_END;
        v->now += 6;
        note(v, REG_UNONPOSIX);
        return token(v, type);
    }
    v->lexcon = L_BRACK;
    if (!next_is(v, '^')) return token(v, BRACKET_OPEN, 1);
    ++v->now;
    return token(v, BRACKET_OPEN, 0);
}

// `*`, `+`, `?`: greedy, or with a second `?` under REG_ADVF, not.
template <class CharT>
int ere_quantifier(parse_vars<CharT>* v, int type) {
    if (!has_flag(v, REG_ADVF) || !next_is(v, '?')) return token(v, type, 1);
    ++v->now;
    note(v, REG_UNONPOSIX);
    return token(v, type, 0);
}

// `{` opens a bound only when a digit follows; otherwise it is literal.
template <class CharT>
int ere_brace(parse_vars<CharT>* v) {
    skip_blanks(v);
    if (at_end(v) || !is_ascii_digit(*v->now)) {
        note(v, REG_UBRACES | REG_UUNSPEC);
        return token(v, PLAIN, '{');
    }
    note(v, REG_UBOUNDS);
    v->lexcon = L_EBND;
    return token(v, BOUND_OPEN);
}

// `(?#...)` up to and including its `)`, or to the end of the pattern.
template <class CharT>
void skip_comment_group(parse_vars<CharT>* v) {
    while (!at_end(v) && *v->now != CharT(')'))
        ++v->now;
    if (!at_end(v)) ++v->now;
}

template <class CharT>
int ere_group(parse_vars<CharT>* v) {
    if (!has_flag(v, REG_ADVF) || !next_is(v, '?'))
        return token(v, GROUP_OPEN, has_flag(v, REG_NOSUB) ? 0 : 1);
    note(v, REG_UNONPOSIX);
    ++v->now;
    if (at_end(v)) return fail(v, REG_BADRPT);
    switch (*v->now++) {
        case ':':
            return token(v, GROUP_OPEN, 0);
        case '=':
            note(v, REG_ULOOKAHEAD);
            return token(v, LACON, 1);
        case '!':
            note(v, REG_ULOOKAHEAD);
            return token(v, LACON, 0);
        case '#':
            skip_comment_group(v);
            return kReadAgain;
        default:
            return fail(v, REG_BADRPT);
    }
}

template <class CharT>
int ere_escape(parse_vars<CharT>* v) {
    if (at_end(v)) return fail(v, REG_EESCAPE);
    if (!has_flag(v, REG_ADVF)) {
        const CharT c = *v->now++;
        if (is_ascii_alnum(c)) note(v, REG_UBSALNUM | REG_UUNSPEC);
        return token(v, PLAIN, c);
    }
    if (!read_escape(v)) return 0;
    if (v->nexttype == CCLASS) return nest_class(v, v->nextvalue);
    return 1;
}

template <class CharT>
int read_ere(parse_vars<CharT>* v, CharT c) {
    switch (c) {
        case '|':
        case '.':
        case '^':
        case '$':
            return token(v, int(c));
        case '*':
        case '+':
        case '?':
            return ere_quantifier(v, int(c));
        case '{':
            return ere_brace(v);
        case '(':
            return ere_group(v);
        case ')':
            if (v->lasttype == GROUP_OPEN) note(v, REG_UUNSPEC);
            return token(v, GROUP_CLOSE, ')');
        case '[':
            return bracket_open(v);
        case '\\':
            return ere_escape(v);
        default:
            return token(v, PLAIN, c);
    }
}

// At the start of an expression a basic `*` has nothing to repeat, and is
// literal.
template <class CharT>
bool starts_basic_expression(const parse_vars<CharT>* v) {
    return v->lasttype == EMPTY || v->lasttype == GROUP_OPEN || v->lasttype == CARET;
}

template <class CharT>
int bre_caret(parse_vars<CharT>* v) {
    if (v->lasttype == EMPTY) return token(v, CARET);
    if (v->lasttype != GROUP_OPEN) return token(v, PLAIN, '^');
    note(v, REG_UUNSPEC);
    return token(v, CARET);
}

// A basic `$` anchors only at the end of the pattern or of a group.
template <class CharT>
int bre_dollar(parse_vars<CharT>* v) {
    skip_blanks(v);
    if (at_end(v)) return token(v, DOLLAR);
    if (!next_are(v, "\\)")) return token(v, PLAIN, '$');
    note(v, REG_UUNSPEC);
    return token(v, DOLLAR);
}

template <class CharT>
int bre_escape(parse_vars<CharT>* v) {
    if (at_end(v)) return fail(v, REG_EESCAPE);
    const CharT c = *v->now++;
    if (c >= '1' && c <= '9') {
        note(v, REG_UBACKREF);
        return token(v, BACKREF, CharT(c - '0'));
    }
    switch (c) {
        case '(':
            return token(v, GROUP_OPEN, 1);
        case ')':
            return token(v, GROUP_CLOSE, ')');
        case '{':
            note(v, REG_UBOUNDS);
            v->lexcon = L_BBND;
            return token(v, BOUND_OPEN);
        case '<':
            note(v, REG_UNONPOSIX);
            return token(v, WORD_START);
        case '>':
            note(v, REG_UNONPOSIX);
            return token(v, WORD_END);
        default:
            if (is_ascii_alnum(c)) note(v, REG_UBSALNUM | REG_UUNSPEC);
            return token(v, PLAIN, c);
    }
}

template <class CharT>
int read_bre(parse_vars<CharT>* v, CharT c) {
    switch (c) {
        case '*':
            if (starts_basic_expression(v)) return token(v, PLAIN, c);
            return token(v, STAR, 1);
        case '.':
            return token(v, DOT);
        case '[':
            return bracket_open(v);
        case '^':
            return bre_caret(v);
        case '$':
            return bre_dollar(v);
        case '\\':
            return bre_escape(v);
        default:
            return token(v, PLAIN, c);
    }
}

// ---- bounds ------------------------------------------------------------------

template <class CharT>
int read_bound(parse_vars<CharT>* v, CharT c) {
    if (is_ascii_digit(c)) return token(v, DIGIT, CharT(c - '0'));
    if (c == ',') return token(v, COMMA);
    if (v->lexcon == L_EBND && c == '}') {
        v->lexcon = L_ERE;
        if (!has_flag(v, REG_ADVF) || !next_is(v, '?')) return token(v, BOUND_CLOSE, 1);
        ++v->now;
        note(v, REG_UNONPOSIX);
        return token(v, BOUND_CLOSE, 0);
    }
    if (v->lexcon == L_BBND && c == '\\' && next_is(v, '}')) {
        ++v->now;
        v->lexcon = L_BRE;
        return token(v, BOUND_CLOSE);  // the last digit stays in nextvalue
    }
    return fail(v, REG_BADBR);
}

// ---- brackets ----------------------------------------------------------------

// `[` inside a bracket: an item opener, or a literal bracket.
template <class CharT>
int bracket_item_open(parse_vars<CharT>* v) {
    if (at_end(v)) return fail(v, REG_EBRACK);
    switch (*v->now) {
        case '.':
            ++v->now;
            v->lexcon = L_CEL;
            return token(v, COLLEL);
        case '=':
            ++v->now;
            note(v, REG_ULOCALE);
            v->lexcon = L_ECL;
            return token(v, ECLASS);
        case ':':
            ++v->now;
            note(v, REG_ULOCALE);
            v->lexcon = L_CCL;
            return token(v, CCLASS);
        default:
            return token(v, PLAIN, '[');
    }
}

template <class CharT>
int bracket_escape(parse_vars<CharT>* v) {
    note(v, REG_UBBS);
    if (!has_flag(v, REG_ADVF)) return token(v, PLAIN, '\\');
    note(v, REG_UNONPOSIX);
    if (at_end(v)) return fail(v, REG_EESCAPE);
    if (!read_escape(v)) return 0;
    if (v->nexttype == PLAIN) return 1;
    if (v->nexttype == CCLASS) return nest_class_items(v, v->nextvalue);
    return fail(v, REG_EESCAPE);
}

template <class CharT>
int read_bracket(parse_vars<CharT>* v, CharT c) {
    switch (c) {
        case '[':
            return bracket_item_open(v);
        case ']':
            // First in the bracket, `]` is a member.
            if (v->lasttype == BRACKET_OPEN) return token(v, PLAIN, c);
            v->lexcon = pattern_context(v);
            return token(v, BRACKET_CLOSE);
        case '-':
            // First or last in the bracket, `-` is a member.
            if (v->lasttype == BRACKET_OPEN || next_is(v, ']')) return token(v, PLAIN, c);
            return token(v, RANGE);
        case '\\':
            return bracket_escape(v);
        default:
            return token(v, PLAIN, c);
    }
}

// Inside `[. .]`, `[= =]` or `[: :]`: everything up to the closing pair.
template <class CharT>
int read_bracket_item(parse_vars<CharT>* v, CharT c) {
    const char closer = v->lexcon == L_CEL ? '.' : v->lexcon == L_ECL ? '=' : ':';
    if (c != CharT(closer) || !next_is(v, ']')) return token(v, PLAIN, c);
    ++v->now;
    v->lexcon = L_BRACK;
    return token(v, END, c);
}

// ---- the step --------------------------------------------------------------------

template <class CharT>
int end_of_pattern(parse_vars<CharT>* v) {
    switch (v->lexcon) {
        case L_ERE:
        case L_BRE:
        case L_Q:
            return token(v, EOS);
        case L_EBND:
        case L_BBND:
            return fail(v, REG_EBRACE);
        default:
            return fail(v, REG_EBRACK);
    }
}

// One attempt at a token: 1, 0 on error, or kReadAgain.
template <class CharT>
int read_token(parse_vars<CharT>* v) {
    if (in_nested_text(v) && at_end(v)) leave_nested_text(v);
    if (skips_blanks_in(v->lexcon)) skip_blanks(v);
    if (at_end(v)) return end_of_pattern(v);
    const CharT c = *v->now++;
    switch (v->lexcon) {
        case L_ERE:
            return read_ere(v, c);
        case L_BRE:
            return read_bre(v, c);
        case L_Q:
            return token(v, PLAIN, c);
        case L_EBND:
        case L_BBND:
            return read_bound(v, c);
        case L_BRACK:
            return read_bracket(v, c);
        case L_CEL:
        case L_ECL:
        case L_CCL:
            return read_bracket_item(v, c);
        default:
            return fail(v, REG_ASSERT);
    }
}

}  // namespace

template <class CharT>
void lexstart(parse_vars<CharT>* v) {
    v->savenow = nullptr;
    v->savestop = nullptr;
    read_prefixes(v);
    v->lexcon = has_flag(v, REG_QUOTE) ? L_Q : pattern_context(v);
    if (has_error(v)) return;
    v->nexttype = EMPTY;
    next_token(v);
}

template <class CharT>
int next_token(parse_vars<CharT>* v) {
    if (has_error(v)) return 0;
    v->lasttype = v->nexttype;
    // An anchored compile reads as if the pattern began with `\A`.
    if (v->nexttype == EMPTY && has_flag(v, REG_BOSONLY)) return token(v, SBEGIN);
    int result;
    do {
        result = read_token(v);
    } while (result == kReadAgain);
    return result;
}

template <class CharT>
void lexnest(parse_vars<CharT>* v, const CharT* begin, const CharT* end) {
    v->savenow = v->now;
    v->savestop = v->stop;
    v->now = begin;
    v->stop = end;
}

template <class CharT>
void lexword(parse_vars<CharT>* v) {
    nest(v, kWordChars<CharT>);
}

#define ORLO_RE_INSTANTIATE_LEXER(CharT)                                   \
    template void lexstart(parse_vars<CharT>*);                            \
    template int next_token(parse_vars<CharT>*);                           \
    template void lexnest(parse_vars<CharT>*, const CharT*, const CharT*); \
    template void lexword(parse_vars<CharT>*);

ORLO_RE_INSTANTIATE_LEXER(char)
ORLO_RE_INSTANTIATE_LEXER(wchar_t)

#undef ORLO_RE_INSTANTIATE_LEXER

}  // namespace Orlo::IMPL::re
