// Tests of the lexer, in both instantiations: a pattern and its syntax
// flags in, the exact token stream out, with the flags after the pattern
// head, the re_info notes and the error.
//
// A stream is written compactly, one token per word: "p:a" a plain `a`,
// "p:#10" a plain character written by its (signed) value, "*:1" a greedy
// star, "X::" the end of a `[: :]` item, "e" the end. Tokens that carry a
// value show it; the rest show their code alone, except `}`, whose value in
// basic syntax is whatever the last token left there. Where the 8-bit
// token value of narrow text changes a case, the case gives the narrow
// stream (and notes) apart.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "engine_support.h"
#include "regex/lexer.h"

namespace {

using namespace re_test;
using namespace Orlo;

constexpr int BRE = REG_BASIC;
constexpr int ERE = REG_EXTENDED;
constexpr int ARE = REG_ADVANCED;
constexpr int Q = REG_QUOTE;
constexpr int kSameFlags = -1;
constexpr long kSameNotes = -1;

struct LexCase {
    int flags;
    std::string pattern;
    const char* tokens;
    long notes = 0;
    int error = REG_OKAY;
    int final_flags = kSameFlags;
    int groups = 0;  // capturing groups opened before the pattern is read
    const char* narrow_tokens = nullptr;
    long narrow_notes = kSameNotes;
};

template <class CharT>
class LexerTest : public ::testing::Test {};
TYPED_TEST_SUITE(LexerTest, CharTypes);

// Pattern bytes as characters: narrow bytes above 0x7f stay negative, wide
// ones become the code points of the same number.
template <class CharT>
std::basic_string<CharT> Widen(const std::string& s) {
    std::basic_string<CharT> out;
    for (char c : s)
        out.push_back(sizeof(CharT) == 1 ? CharT(c) : CharT(static_cast<unsigned char>(c)));
    return out;
}

std::string Character(long value) {
    std::string out;
    if (value > ' ' && value < 0x7f)
        out += char(value);
    else
        out.append("#").append(std::to_string(value));
    return out;
}

std::string Describe(int type, long value) {
    const std::string code(1, char(type));
    switch (type) {
        case PLAIN:
        case END:
            return code + ":" + Character(value);
        case DIGIT:
        case BACKREF:
        case LACON:
        case GROUP_OPEN:
        case BRACKET_OPEN:
        case BOUND_CLOSE:
        case STAR:
        case PLUS:
        case QUESTION:
            return code + ":" + std::to_string(value);
        default:
            return code;
    }
}

struct LexResult {
    std::string tokens;
    int flags;
    long notes;
    int error;
    std::string faults;  // broken promises of the stepping contract
};

// A lexer started on `pattern`, as the parser starts one.
template <class CharT>
struct Lexing {
    Lexing(int flags, const std::string& pattern, int groups = 0) : text(Widen<CharT>(pattern)) {
        v.re = &re;
        v.cflags = flags;
        v.now = text.data();
        v.stop = text.data() + text.size();
        v.nsubexp = groups;
        lexstart(&v);
    }
    const std::basic_string<CharT> text;
    Orlo::regex_t re{};
    parse_vars<CharT> v{};
};

template <class CharT>
LexResult Lex(int flags, const std::string& pattern, int groups = 0) {
    Lexing<CharT> l(flags, pattern, groups);
    parse_vars<CharT>& v = l.v;
    LexResult result;
    for (int n = 0; n < 2000; ++n) {
        if (!result.tokens.empty()) result.tokens += ' ';
        result.tokens += Describe(v.nexttype, long(v.nextvalue));
        if (v.nexttype == EOS) break;
        const int ok = next_token(&v);
        if (ok != (v.err == REG_OKAY ? 1 : 0)) result.faults += "return value; ";
        if (v.err != REG_OKAY && v.nexttype != EOS) result.faults += "error without EOS; ";
    }
    if (v.savenow != nullptr) result.faults += "still nested at the end; ";
    result.flags = v.cflags;
    result.notes = l.re.re_info;
    result.error = v.err;
    return result;
}

template <class CharT>
void Check(const LexCase& c) {
    const bool narrow = sizeof(CharT) == 1;
    const LexResult got = Lex<CharT>(c.flags, c.pattern, c.groups);
    const char* tokens = narrow && c.narrow_tokens ? c.narrow_tokens : c.tokens;
    const long notes = narrow && c.narrow_notes != kSameNotes ? c.narrow_notes : c.notes;
    std::ostringstream where;
    where << "pattern \"" << c.pattern << "\", flags " << c.flags;
    SCOPED_TRACE(where.str());
    EXPECT_EQ(got.tokens, tokens);
    EXPECT_EQ(got.error, c.error);
    EXPECT_EQ(got.notes, notes);
    EXPECT_EQ(got.flags, c.final_flags == kSameFlags ? c.flags : c.final_flags);
    EXPECT_EQ(got.faults, "");
}

template <class CharT>
void CheckAll(const std::vector<LexCase>& cases) {
    for (const LexCase& c : cases)
        Check<CharT>(c);
}

constexpr long NONPOSIX = REG_UNONPOSIX;
constexpr long UNSPEC = REG_UUNSPEC;
constexpr long UNPORT = REG_UUNPORT;
constexpr long LOCALE = REG_ULOCALE;

// A hexadecimal escape reads at most 255 digits.
const std::string kHex256 = "\\x" + std::string(254, '0') + "41";

constexpr long BACKREF_NOTE = NONPOSIX | REG_UBACKREF;
constexpr long OCTAL_NOTE = NONPOSIX | UNPORT;
constexpr long NOTES = NONPOSIX | LOCALE;
constexpr long IN_BRACKET = NOTES | REG_UBBS;
constexpr int X = REG_EXPANDED;

// One row per lexing rule, in both instantiations.
TYPED_TEST(LexerTest, TokenStreams) {
    CheckAll<TypeParam>({
        // extended text
        {ERE, "", "e"},
        {ERE, "a|b.^$", "p:a | p:b . ^ $ e"},
        {ERE, "a*+?", "p:a *:1 +:1 ?:1 e"},
        {ERE, "(a)", "(:1 p:a ) e"},
        {ERE | REG_NOSUB, "(a)", "(:0 p:a ) e"},
        {ERE, "()", "(:1 ) e", UNSPEC},
        {ERE, "(?i)a", "(:1 ?:1 p:i ) p:a e"},  // options need REG_ADVF
        {ERE, "\\.\\a\\1", "p:. p:a p:1 e", REG_UBSALNUM | UNSPEC},
        {ERE, "a\\", "p:a e", 0, REG_EESCAPE},
        {ERE, "a{", "p:a p:{ e", REG_UBRACES | UNSPEC},
        {ERE, "a{1", "p:a { d:1 e", REG_UBOUNDS, REG_EBRACE},
        {ERE, "a{1,23}?", "p:a { d:1 , d:2 d:3 }:1 ?:1 e", REG_UBOUNDS},
        {ERE, "[[:<:]]a[[:>:]]b", "< p:a > p:b e", NONPOSIX},
        {ERE, "[[:<:]", "[:1 C p:< X:: e", LOCALE, REG_EBRACK},
        // advanced text
        {ARE, "a*?b+?c??", "p:a *:0 p:b +:0 p:c ?:0 e", NONPOSIX},
        {ARE, "a{1}?b{2,}c", "p:a { d:1 }:0 p:b { d:2 , }:1 p:c e", REG_UBOUNDS | NONPOSIX},
        {ARE, "(?:a)(?:)", "(:0 p:a ) (:0 ) e", NONPOSIX | UNSPEC},
        {ARE, "(?=a)(?!b)", "L:1 p:a ) L:0 p:b ) e", NONPOSIX | REG_ULOOKAHEAD},
        {ARE, "a(?#note)b", "p:a p:b e", NONPOSIX},
        {ARE, "a(?#unterminated", "p:a e", NONPOSIX},
        {ARE, "a(?", "p:a e", NONPOSIX, REG_BADRPT},
        {ARE, "a(?i)", "p:a e", NONPOSIX, REG_BADRPT},  // options only at the head
        // basic text
        {BRE, "*a*", "p:* p:a *:1 e"},
        {BRE, "\\(*a\\)", "(:1 p:* p:a ) e"},
        {BRE, "^*", "^ p:* e"},
        {BRE, "\\(^a\\)", "(:1 ^ p:a ) e", UNSPEC},
        {BRE, "a$", "p:a $ e"},
        {BRE, "a|b+c?(d){e}", "p:a p:| p:b p:+ p:c p:? p:( p:d p:) p:{ p:e p:} e"},
        {BRE, "\\<a\\>[[:<:]]", "< p:a > < e", NONPOSIX},
        {BRE, "\\1\\9", "b:1 b:9 e", REG_UBACKREF},
        {BRE, "\\a\\.\\0", "p:a p:. p:0 e", REG_UBSALNUM | UNSPEC},
        // The group opener of basic syntax always captures.
        {BRE | REG_NOSUB, "\\(a\\)", "(:1 p:a ) e"},
        // literal text
        {Q, "a.*[\\(", "p:a p:. p:* p:[ p:\\ p:( e"},
        {Q | REG_EXPANDED, "a #b", "p:a p:#32 p:# p:b e"},
        // basic bounds: `\}` shows the last digit read, the bound's preference
        {BRE, "a\\{1,2\\}", "p:a { d:1 , d:2 }:2 e", REG_UBOUNDS},
        {BRE, "a\\{10,\\}", "p:a { d:1 d:0 , }:0 e", REG_UBOUNDS},  // the digit, not the number
        {BRE, "a\\{1", "p:a { d:1 e", REG_UBOUNDS, REG_EBRACE},
        {BRE, "a\\{1}", "p:a { d:1 e", REG_UBOUNDS, REG_BADBR},
        {BRE, "a\\{x\\}", "p:a { e", REG_UBOUNDS, REG_BADBR},
        // brackets
        {ERE, "[]a]", "[:1 p:] p:a ] e"},
        {ERE, "[a-z]", "[:1 p:a R p:z ] e"},
        {ERE, "[-a-]", "[:1 p:- p:a p:- ] e"},
        {ERE, "[[.-.][=a=][:alpha:]]", "[:1 I p:- X:. E p:a X:= C p:a p:l p:p p:h p:a X:: ] e",
         LOCALE},
        {ERE, "[[.a].]]", "[:1 I p:a p:] X:. ] e"},
        {ERE, "[[:a:b:]]", "[:1 C p:a p:: p:b X:: ] e", LOCALE},
        {ERE, "[a]{1}", "[:1 p:a ] { d:1 }:1 e", REG_UBOUNDS},  // back to extended text
        {ERE | REG_EXPANDED, "[ #]", "[:1 p:#32 p:# ] e"},      // no skipping inside
        {ERE, "[\\d]", "[:1 p:\\ p:d ] e", REG_UBBS},           // no escapes without ADVF
        {ERE, "[a", "[:1 p:a e", 0, REG_EBRACK},
        {ERE, "[\\", "[:1 p:\\ e", REG_UBBS, REG_EBRACK},
        {ARE, "[\\", "[:1 e", REG_UBBS | NONPOSIX, REG_EESCAPE},
        // escapes
        {ARE, "\\.\\*\\\\\\-", "p:. p:* p:\\ p:- e"},
        {ARE, "\\\xe9", "p:#233 e", 0, REG_OKAY, kSameFlags, 0, "p:#-23 e"},
        {ARE, "\\a\\e", "p:#7 p:#27 e", NONPOSIX | LOCALE | UNPORT},
        {ARE, "\\b\\B\\f\\n\\r\\t\\v", "p:#8 p:\\ p:#12 p:#10 p:#13 p:#9 p:#11 e", NONPOSIX},
        {ARE, "\\y\\Y", "w W e", NONPOSIX | LOCALE},
        {ARE, "\\cA\\c[\\c\xe1", "p:#1 p:#27 p:#1 e", NONPOSIX | UNPORT},
        {ARE, "\\c", "e", NONPOSIX | UNPORT, REG_EESCAPE},
        {ARE, "\\u00411\\U00000042", "p:A p:1 p:B e", NONPOSIX},
        {ARE, "\\U0001F600", "p:#128512 e", NONPOSIX, REG_OKAY, kSameFlags, 0, "p:#0 e"},
        {ARE, "\\u004", "e", NONPOSIX, REG_EESCAPE},
        {ARE, "\\x41\\x4g", "p:A p:#4 p:g e", NONPOSIX | UNPORT},
        {ARE, "\\x141", "p:#321 e", NONPOSIX | UNPORT, REG_OKAY, kSameFlags, 0, "p:A e"},
        {ARE, kHex256, "p:#4 p:1 e", NONPOSIX | UNPORT},  // at most 255 digits
        {ARE, "\\xg", "e", NONPOSIX | UNPORT, REG_EESCAPE},
        {ARE, "\\0\\0101\\08", "p:#0 p:#8 p:1 p:#0 p:8 e", NONPOSIX | UNPORT},
        {ARE, "\\q", "e", NONPOSIX, REG_EESCAPE},
        // back references and octal
        {ARE, "\\9", "b:9 e", BACKREF_NOTE},  // one digit is always a reference
        {ARE, "\\12", "p:#10 e", OCTAL_NOTE, REG_OKAY, kSameFlags, 11},
        {ARE, "\\12", "b:12 e", BACKREF_NOTE, REG_OKAY, kSameFlags, 12},
        {ARE, "\\1104", "p:H p:4 e", OCTAL_NOTE},     // octal takes three digits
        {ARE, "\\81", "e", OCTAL_NOTE, REG_EESCAPE},  // no octal digit at all
        // The number is compared after the cut to CharT: narrow 256 is 0.
        {ARE, "\\256", "p:#174 e", OCTAL_NOTE, REG_OKAY, kSameFlags, 0, "b:0 e", BACKREF_NOTE},
        {ARE, "\\200", "p:#128 e", OCTAL_NOTE, REG_OKAY, kSameFlags, 0, "b:-56 e", BACKREF_NOTE},
        {ARE, "[\\1]", "[:1 e", BACKREF_NOTE | REG_UBBS, REG_EESCAPE},
        // class escapes
        {ARE, "\\d+", "[:1 C p:d p:i p:g p:i p:t X:: ] +:1 e", NOTES},
        {ARE, "a\\wb", "p:a [:1 C p:a p:l p:n p:u p:m X:: p:_ ] p:b e", NOTES},
        {ARE, "\\D", "[:0 C p:d p:i p:g p:i p:t X:: ] e", NOTES},
        {ARE, "[\\d]", "[:1 C p:d p:i p:g p:i p:t X:: ] e", IN_BRACKET},
        {ARE, "[\\w-z]", "[:1 C p:a p:l p:n p:u p:m X:: p:_ R p:z ] e", IN_BRACKET},
        {ARE, "[\\d", "[:1 C p:d p:i p:g p:i p:t X:: e", IN_BRACKET, REG_EBRACK},
        {ARE, "[\\D]", "[:1 e", IN_BRACKET, REG_EESCAPE},
        {ARE, "[\\m]", "[:1 e", NONPOSIX | REG_UBBS, REG_EESCAPE},
        {ARE, "[\\n\\x41\\]]", "[:1 p:#10 p:A p:] ] e", NONPOSIX | REG_UBBS | UNPORT},
        // expanded skips blanks and comments
        {ERE | X, " a b\t#c\n\vc #d", "p:a p:b p:c e", NONPOSIX},
        {ERE | X, "a { 1 , 2 } ", "p:a { d:1 , d:2 }:1 e", NONPOSIX | REG_UBOUNDS},
        {ARE | X, "a\\ b", "p:a p:#32 p:b e"},
        {BRE | X, "a $ ", "p:a $ e", NONPOSIX},
        {BRE | X, "\\(a $ \\)", "(:1 p:a $ ) e", NONPOSIX | UNSPEC},
        // Only ASCII white space is skipped; a no-break space is text.
        {ERE | X, " \xa0", "p:#160 e", NONPOSIX, REG_OKAY, kSameFlags, 0, "p:#-96 e"},
        // directors
        {ERE, "***=a.b", "p:a p:. p:b e", NONPOSIX, REG_OKAY, Q},
        {ARE | REG_EXPANDED | REG_NEWLINE | REG_ICASE, "***=a b", "p:a p:#32 p:b e", NONPOSIX,
         REG_OKAY, Q | REG_ICASE},
        {BRE, "***:a+?", "p:a +:0 e", NONPOSIX, REG_OKAY, ARE},
        {BRE, "***:(?i)a", "p:a e", NONPOSIX, REG_OKAY, ARE | REG_ICASE},
        {ERE, "***?a", "e", 0, REG_BADPAT},
        {ERE, "***x", "e", 0, REG_BADRPT},
        {ERE, "***", "*:1 *:1 *:1 e"},  // too short to be a director
        // embedded options
        {ARE, "(?b)\\(a*", "(:1 p:a *:1 e", NONPOSIX, REG_OKAY, BRE},
        {ARE | REG_ICASE, "(?c)a", "p:a e", NONPOSIX, REG_OKAY, ARE},
        {ARE, "(?e)a*?", "p:a *:1 ?:1 e", NONPOSIX, REG_OKAY, ERE},
        {ARE, "(?i)", "e", NONPOSIX, REG_OKAY, ARE | REG_ICASE},
        {ARE | REG_NLANCH, "(?p)", "e", NONPOSIX, REG_OKAY, ARE | REG_NLSTOP},
        {ARE | REG_ICASE, "(?q)a.*", "p:a p:. p:* e", NONPOSIX, REG_OKAY, Q | REG_ICASE},
        {ARE | REG_NEWLINE, "(?s)", "e", NONPOSIX, REG_OKAY, ARE},
        {ARE | X, "(?t) a", "p:#32 p:a e", NONPOSIX, REG_OKAY, ARE},
        {ARE | REG_NLSTOP, "(?w)", "e", NONPOSIX, REG_OKAY, ARE | REG_NLANCH},
        {ARE, "(?x) a # c", "p:a e", NONPOSIX, REG_OKAY, ARE | X},
        {ARE, "(?wp)", "e", NONPOSIX, REG_OKAY, ARE | REG_NLSTOP},  // the later letter wins
        // Literal text keeps neither blanks nor line anchors, whatever the order.
        {ARE, "(?xmq)a b", "p:a p:#32 p:b e", NONPOSIX, REG_OKAY, Q},
        {ARE, "(?qe)a+", "p:a +:1 e", NONPOSIX, REG_OKAY, ERE},
        {ARE, "(?=a)", "L:1 p:a ) e", NONPOSIX | REG_ULOOKAHEAD},  // not an option group
        // bad embedded options
        {ARE, "(?z)a", "e", NONPOSIX, REG_BADOPT},
        {ARE, "(?i", "e", NONPOSIX, REG_BADOPT, ARE | REG_ICASE},
        {ARE, "(?1)", "e", NONPOSIX, REG_BADRPT},  // a digit opens no option group
        // anchored compile starts with string begin
        {ERE | REG_BOSONLY, "a", "A p:a e"},
        // The implicit anchor is the first token, so a basic `^` after it is
        // text and a `*` has something to repeat.
        {BRE | REG_BOSONLY, "^*", "A p:^ *:1 e"},
        {ERE | REG_BOSONLY, "***?", "e", 0, REG_BADPAT},
    });
}

TYPED_TEST(LexerTest, ErrorsAreStickyAndFirstWins) {
    Lexing<TypeParam> l(ERE, "a{1x");
    while (next_token(&l.v) != 0) {
    }
    EXPECT_EQ(l.v.err, REG_BADBR);
    set_error(&l.v, REG_ESPACE);
    EXPECT_EQ(next_token(&l.v), 0);
    EXPECT_EQ(l.v.nexttype, EOS);
    EXPECT_EQ(l.v.err, REG_BADBR);
}

TYPED_TEST(LexerTest, WordCharactersAreReadInPlaceOfThePattern) {
    Lexing<TypeParam> l(BRE, "ab");
    lexword(&l.v);
    std::string tokens = Describe(l.v.nexttype, long(l.v.nextvalue));
    while (l.v.nexttype != EOS && next_token(&l.v))
        tokens.append(" ").append(Describe(l.v.nexttype, long(l.v.nextvalue)));
    EXPECT_EQ(tokens, "p:a [:1 C p:a p:l p:n p:u p:m X:: p:_ ] p:b e");
    EXPECT_EQ(l.v.err, REG_OKAY);
    EXPECT_EQ(l.v.lexcon, L_BRE);
    EXPECT_EQ(l.v.savenow, nullptr);
}

}  // namespace
