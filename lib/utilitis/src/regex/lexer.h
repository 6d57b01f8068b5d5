// The lexer: the pattern as a stream of tokens, one token of look-ahead.
//
// The parser sees one token at a time, in `v->nexttype` and `v->nextvalue`,
// and asks for the next with `next_token`; the token before it stays in
// `v->lasttype`, which is all the memory a few context rules need (a basic
// `*` is plain at the start of an expression, a `]` is plain first in a
// bracket). What a character means depends on the lexical context
// `v->lexcon`: pattern text of each syntax, literal text, the inside of a
// bound, of a bracket, and of the three bracket items. The context changes
// as tokens open and close those regions.
//
// Before the first token, `lexstart` reads the pattern head: the `***=`,
// `***:` and `***?` prefixes and an embedded-option group such as `(?ix)`,
// which change `v->cflags` for the whole compilation.
//
// The class escapes (`\d`, `\W`, ...) and the word-character set behind
// word boundaries are not special-cased in the parser: the lexer reads a
// short fixed string such as "[[:digit:]]" in place of the pattern for a
// while (`lexnest`), and returns to the pattern on its own when the string
// is used up. Only one such string is read at a time.
//
// `nextvalue` is a CharT, so in narrow text every value, including
// numeric escapes and back-reference numbers, is cut to a signed byte:
// `\x141` is `A`, and `\200` may come out as a negative back reference.
// A token without a value leaves `nextvalue` as it was; the basic bound
// close `\}` relies on that to carry the last digit of its bound.
//
// Errors go through `set_error`, which also turns the current token into
// EOS, so a failing pattern ends its token stream at the first fault. The
// lexer allocates nothing.
//
// Implementation details only, past this point.

#ifndef ORLO_SRC_REGEX_LEXER_H
#define ORLO_SRC_REGEX_LEXER_H

#include "regex/guts.h"

namespace Orlo::IMPL::re {

// ---- tokens ------------------------------------------------------------------
// EMPTY (before the first token), PLAIN (a character) and LACON (a
// look-ahead opens; value 1 positive, 0 negative) share their codes with the
// NFA's arc types and are defined in guts.h.

inline constexpr int EOS = 'e';         // end of the pattern, or an error
inline constexpr int DIGIT = 'd';       // a digit inside a bound; value 0-9
inline constexpr int BACKREF = 'b';     // value: the group number
inline constexpr int COLLEL = 'I';      // `[.` opens a collating element
inline constexpr int ECLASS = 'E';      // `[=` opens an equivalence class
inline constexpr int CCLASS = 'C';      // `[:` opens a named class
inline constexpr int END = 'X';         // `.]`, `=]`, `:]`; value: its first character
inline constexpr int RANGE = 'R';       // the hyphen of a range
inline constexpr int SBEGIN = 'A';      // start of the string
inline constexpr int SEND = 'Z';        // end of the string
inline constexpr int WBDRY = 'w';       // a word boundary
inline constexpr int NWBDRY = 'W';      // not a word boundary
inline constexpr int WORD_START = '<';  // the start of a word
inline constexpr int WORD_END = '>';    // the end of a word

// Punctuation tokens are their own characters.
inline constexpr int GROUP_OPEN = '(';     // value 1 capturing, 0 not
inline constexpr int GROUP_CLOSE = ')';    // value ')'
inline constexpr int BRACKET_OPEN = '[';   // value 1 plain, 0 complemented
inline constexpr int BRACKET_CLOSE = ']';  // no value
inline constexpr int BOUND_OPEN = '{';     // no value
inline constexpr int BOUND_CLOSE = '}';    // value 1 greedy, 0 not; basic: stale, see above
inline constexpr int STAR = '*';           // the quantifiers: value 1 greedy, 0 not
inline constexpr int PLUS = '+';
inline constexpr int QUESTION = '?';
inline constexpr int DOT = '.';  // the rest have no value
inline constexpr int CARET = '^';
inline constexpr int DOLLAR = '$';
inline constexpr int BAR = '|';
inline constexpr int COMMA = ',';

// ---- lexical contexts --------------------------------------------------------

inline constexpr int L_ERE = 1;    // extended and advanced pattern text
inline constexpr int L_BRE = 2;    // basic pattern text
inline constexpr int L_Q = 3;      // literal pattern text
inline constexpr int L_EBND = 4;   // inside `{...}`
inline constexpr int L_BBND = 5;   // inside `\{...\}`
inline constexpr int L_BRACK = 6;  // inside `[...]`
inline constexpr int L_CEL = 7;    // inside `[. .]`
inline constexpr int L_ECL = 8;    // inside `[= =]`
inline constexpr int L_CCL = 9;    // inside `[: :]`

// ---- entries -------------------------------------------------------------------

// Starts reading `v->now`..`v->stop`: applies the pattern's prefix and
// embedded options to `v->cflags` (unless REG_QUOTE is already set), picks
// the starting context from the resulting flags, and reads the first token.
// A bad prefix or option sets the error and leaves EOS as the token.
template <class CharT>
void lexstart(parse_vars<CharT>* v);

// Moves to the next token. Returns 1, or 0 when an error is, or becomes,
// pending; the token is then EOS. At the end of the pattern the token is
// EOS and stays so on further calls.
template <class CharT>
int next_token(parse_vars<CharT>* v);

// Reads `begin`..`end`, a string that outlives the compilation, in place
// of the pattern until it is used up; `next_token` then returns to the
// pattern by itself. Must not be called while such a string is being read.
template <class CharT>
void lexnest(parse_vars<CharT>* v, const CharT* begin, const CharT* end);

// `lexnest` on the word-character bracket "[[:alnum:]_]"; the parser builds
// the word-boundary tests from it.
template <class CharT>
void lexword(parse_vars<CharT>* v);

}  // namespace Orlo::IMPL::re

#endif  // ORLO_SRC_REGEX_LEXER_H
