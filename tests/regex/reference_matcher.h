// A reference matcher for the engine tests: patterns as small syntax trees,
// evaluated by brute force over sets of positions, so that its answers
// follow from the meaning of each construct and nothing else.
//
// ends(node, pos) is the set of positions where `node`, started at `pos`,
// can end; the whole subject stays visible for anchors, word tests and
// look-aheads. A search takes the leftmost start whose set is not empty,
// and there the longest end, or the shortest when the pattern as a whole
// prefers shorter matches.
//
// Subjects are at most 62 characters: a set of positions is one 64-bit word.
// Characters are code points; narrow text stores each byte as its unsigned
// value. Case and word-character properties are known only for ASCII and
// for the few other characters the tests use (see KnownChar).

#ifndef ORLO_TESTS_REGEX_REFERENCE_MATCHER_H
#define ORLO_TESTS_REGEX_REFERENCE_MATCHER_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace re_oracle {

struct Node {
    enum Kind {
        Literal,      // ch
        Any,          // .
        Bracket,      // items, negated
        Concat,       // kids, in order
        Alternation,  // kids, any one
        Group,        // kids[0]; capturing or not
        Repeat,       // kids[0], min to max (-1: no limit), lazy
        LineStart,    // ^
        LineEnd,      // $
        WordStart,    // \m
        WordEnd,      // \M
        WordEdge,     // \y
        NotWordEdge,  // \Y
        Ahead,        // (?=kids[0])
        NotAhead,     // (?!kids[0])
    };
    Kind kind = Literal;
    char32_t ch = 0;
    std::vector<std::pair<char32_t, char32_t>> items;  // single characters have first == second
    bool negated = false;
    bool capturing = true;
    int min = 0;
    int max = 0;
    bool lazy = false;
    bool braces = false;  // written as {m,n} even where *, + or ? would do
    std::vector<Node> kids;
};

// What changes the meaning of a tree: compile and exec options, and the
// character model (narrow text in the "C" locale, or wide text).
struct Options {
    bool wide = false;
    bool icase = false;
    bool nlstop = false;  // . and [^...] skip '\n'
    bool nlanch = false;  // ^ and $ also next to '\n'
    bool notbol = false;  // the subject start is not a line start
    bool noteol = false;  // the subject end is not a line end
};

// Characters beyond ASCII whose properties the model knows: in narrow text
// 0xE9, with no case and not a letter in the "C" locale; in wide text a
// case pair (U+0100, U+0101) and a letter without case (U+4E00).
inline bool KnownChar(char32_t c, bool wide) {
    if (c < 0x80) return true;
    return wide ? (c == 0x100 || c == 0x101 || c == 0x4E00) : c == 0xE9;
}

inline char32_t CheckedChar(char32_t c, bool wide) {
    if (!KnownChar(c, wide)) throw std::logic_error("reference matcher: unknown character");
    return c;
}

inline bool IsWordChar(char32_t c, bool wide) {
    CheckedChar(c, wide);
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')
        return true;
    return wide && c >= 0x80;
}

inline char32_t OtherCase(char32_t c, bool wide) {
    CheckedChar(c, wide);
    if (c >= 'a' && c <= 'z') return c - 'a' + 'A';
    if (c >= 'A' && c <= 'Z') return c - 'A' + 'a';
    if (wide && c == 0x100) return 0x101;
    if (wide && c == 0x101) return 0x100;
    return c;
}

// The order of range ends: narrow characters compare as signed char, so
// bytes from 0x80 up come before ASCII.
inline long RangeKey(char32_t c, bool wide) {
    return wide ? long(c) : long(static_cast<signed char>(static_cast<unsigned char>(c)));
}

class Matcher {
  public:
    using Set = uint64_t;

    Matcher(const std::u32string& subject, const Options& options)
        : s_(subject), o_(options), n_(int(subject.size())) {
        if (n_ > 62) throw std::logic_error("reference matcher: subject too long");
    }

    Set Ends(const Node& node, int pos) const {
        switch (node.kind) {
            case Node::Literal:
                return pos < n_ && SameChar(s_[pos], node.ch) ? Bit(pos + 1) : 0;
            case Node::Any:
                return pos < n_ && !StoppedNewline(s_[pos]) ? Bit(pos + 1) : 0;
            case Node::Bracket:
                if (pos >= n_ || InBracket(node, s_[pos]) == node.negated) return 0;
                return node.negated && StoppedNewline(s_[pos]) ? 0 : Bit(pos + 1);
            case Node::Concat: {
                Set at = Bit(pos);
                for (const Node& kid : node.kids)
                    at = Step(kid, at);
                return at;
            }
            case Node::Alternation: {
                Set all = 0;
                for (const Node& kid : node.kids)
                    all |= Ends(kid, pos);
                return all;
            }
            case Node::Group:
                return Ends(node.kids[0], pos);
            case Node::Repeat:
                return Repeated(node, pos);
            case Node::LineStart:
                return Holds(
                    (pos == 0 && !o_.notbol) || (o_.nlanch && pos > 0 && s_[pos - 1] == '\n'), pos);
            case Node::LineEnd:
                return Holds(
                    (pos == n_ && !o_.noteol) || (o_.nlanch && pos < n_ && s_[pos] == '\n'), pos);
            case Node::WordStart:
                return Holds(!WordBefore(pos) && WordAfter(pos), pos);
            case Node::WordEnd:
                return Holds(WordBefore(pos) && !WordAfter(pos), pos);
            case Node::WordEdge:
                return Holds(WordBefore(pos) != WordAfter(pos), pos);
            case Node::NotWordEdge:
                return Holds(WordBefore(pos) == WordAfter(pos), pos);
            case Node::Ahead:
                return Holds(Ends(node.kids[0], pos) != 0, pos);
            case Node::NotAhead:
                return Holds(Ends(node.kids[0], pos) == 0, pos);
        }
        throw std::logic_error("reference matcher: unknown node");
    }

    // The match of a search: leftmost start, then the longest end (or the
    // shortest); {-1, -1} when there is none.
    std::pair<int, int> Search(const Node& root, bool shortest) const {
        for (int start = 0; start <= n_; ++start) {
            const Set ends = Ends(root, start);
            if (ends == 0) continue;
            return {start, shortest ? __builtin_ctzll(ends) : 63 - __builtin_clzll(ends)};
        }
        return {-1, -1};
    }

  private:
    static Set Bit(int pos) { return Set(1) << pos; }
    static Set Holds(bool condition, int pos) { return condition ? Bit(pos) : 0; }

    // Every end of `node` started at any position of `from`.
    Set Step(const Node& node, Set from) const {
        Set to = 0;
        for (int pos = 0; pos <= n_; ++pos)
            if (from & Bit(pos)) to |= Ends(node, pos);
        return to;
    }

    // Exactly i iterations for i below min; from there on, every further
    // iteration up to max, or until nothing new is reached.
    Set Repeated(const Node& node, int pos) const {
        const Node& body = node.kids[0];
        Set at = Bit(pos);
        for (int i = 0; i < node.min; ++i)
            at = Step(body, at);
        Set all = at;
        if (node.max < 0) {
            for (Set fresh = at; fresh != 0;) {
                fresh = Step(body, fresh) & ~all;
                all |= fresh;
            }
            return all;
        }
        for (int i = node.min; i < node.max; ++i) {
            at = Step(body, at);
            all |= at;
        }
        return all;
    }

    bool SameChar(char32_t c, char32_t want) const {
        return c == want || (o_.icase && OtherCase(c, o_.wide) == want);
    }

    bool StoppedNewline(char32_t c) const { return o_.nlstop && c == '\n'; }

    // Membership before negation; without case, any case form of c counts.
    bool InBracket(const Node& node, char32_t c) const {
        for (char32_t form : {c, o_.icase ? OtherCase(c, o_.wide) : c}) {
            const long key = RangeKey(form, o_.wide);
            for (const auto& [first, last] : node.items)
                if (RangeKey(first, o_.wide) <= key && key <= RangeKey(last, o_.wide)) return true;
        }
        return false;
    }

    // Outside the subject there are no word characters, whatever the options.
    bool WordBefore(int pos) const { return pos > 0 && IsWordChar(s_[pos - 1], o_.wide); }
    bool WordAfter(int pos) const { return pos < n_ && IsWordChar(s_[pos], o_.wide); }

    const std::u32string& s_;
    Options o_;
    int n_;
};

}  // namespace re_oracle

#endif  // ORLO_TESTS_REGEX_REFERENCE_MATCHER_H
