// A reference matcher for the engine tests: patterns as small syntax trees,
// evaluated by brute force over sets of positions, so that its answers
// follow from the meaning of each construct and nothing else.
//
// Ends(node, pos) is the set of positions where `node`, started at `pos`,
// can end; the whole subject stays visible for anchors, word tests and
// look-aheads. A search takes the leftmost start with any end, and there
// the longest end, or the shortest when the pattern prefers shorter matches.
// Subjects are at most 62 code points (a set is one 64-bit word); narrow
// text stores each byte as its unsigned value.

#ifndef ORLO_TESTS_REGEX_REFERENCE_MATCHER_H
#define ORLO_TESTS_REGEX_REFERENCE_MATCHER_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace re_oracle {

struct Node {
    enum Kind {       // the oracle test relies on this order
        Literal,      // ch
        Any,          // .
        Bracket,      // items (a single character has first == last), negated
        Concat,       // kids, in order
        Alternation,  // kids, any one
        Group,        // kids[0]; capturing or not
        Repeat,       // kids[0], min to max (-1: no limit), lazy; braces: {m,n} for * + ?
        LineStart,    // ^
        LineEnd,      // $
        WordStart,    // \m
        WordEnd,      // \M
        WordEdge,     // \y
        NotWordEdge,  // \Y
        Ahead,        // (?=kids[0])
        NotAhead,     // (?!kids[0])
    };
    explicit Node(Kind k = Literal, char32_t c = 0) : kind(k), ch(c) {}

    Kind kind;
    char32_t ch;
    std::vector<std::pair<char32_t, char32_t>> items;
    bool negated = false, capturing = true, lazy = false, braces = false;
    int min = 0, max = 0;
    std::vector<Node> kids;
};

// Compile and exec options, and the character model (narrow text in the
// "C" locale, or wide text).
struct Options {
    bool wide = false;
    bool icase = false;
    bool nlstop = false;  // . and [^...] skip '\n'
    bool nlanch = false;  // ^ and $ also next to '\n'
    bool notbol = false;
    bool noteol = false;
};

// Properties are known for ASCII and a few others only: narrow 0xE9 (no
// case, not a letter in the "C" locale); wide U+0100/U+0101 (a case pair)
// and U+4E00 (a letter without case). Anything else is a fault of the test.
inline void CheckKnown(char32_t c, bool wide) {
    if (c >= 0x80 && !(wide ? (c == 0x100 || c == 0x101 || c == 0x4E00) : c == 0xE9))
        throw std::logic_error("reference matcher: unknown character");
}

inline bool IsWordChar(char32_t c, bool wide) {
    CheckKnown(c, wide);
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           (wide && c >= 0x80);
}

inline char32_t OtherCase(char32_t c, bool wide) {
    CheckKnown(c, wide);
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) return c ^ 0x20;
    return wide && (c == 0x100 || c == 0x101) ? c ^ 1 : c;
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
        const bool nl = o_.nlstop && pos < n_ && s_[pos] == '\n';  // a stopped newline
        Set all = 0;
        switch (node.kind) {
            case Node::Literal:
                return pos < n_ && SameChar(s_[pos], node.ch) ? Bit(pos + 1) : 0;
            case Node::Any:
                return pos < n_ && !nl ? Bit(pos + 1) : 0;
            case Node::Bracket:
                if (pos >= n_ || InBracket(node, s_[pos]) == node.negated) return 0;
                return node.negated && nl ? 0 : Bit(pos + 1);
            case Node::Concat:
                all = Bit(pos);
                for (const Node& kid : node.kids)
                    all = Step(kid, all);
                return all;
            case Node::Alternation:
                for (const Node& kid : node.kids)
                    all |= Ends(kid, pos);
                return all;
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
            case Node::WordEnd:
            case Node::WordEdge:
            case Node::NotWordEdge: {
                const bool b = WordBefore(pos), a = WordAfter(pos);
                const bool holds[] = {!b && a, b && !a, b != a, b == a};
                return Holds(holds[node.kind - Node::WordStart], pos);
            }
            case Node::Ahead:
            case Node::NotAhead:
                return Holds((Ends(node.kids[0], pos) != 0) == (node.kind == Node::Ahead), pos);
        }
        throw std::logic_error("reference matcher: unknown node");
    }

    // Leftmost start, then the longest end (or the shortest); {-1, -1} for none.
    std::pair<int, int> Search(const Node& root, bool shortest) const {
        for (int start = 0; start <= n_; ++start)
            if (const Set ends = Ends(root, start))
                return {start, shortest ? __builtin_ctzll(ends) : 63 - __builtin_clzll(ends)};
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
        Set at = Bit(pos);
        for (int i = 0; i < node.min; ++i)
            at = Step(node.kids[0], at);
        Set all = at;
        for (int i = node.min; node.max < 0 ? at != 0 : i < node.max; ++i) {
            at = Step(node.kids[0], at) & (node.max < 0 ? ~all : ~Set(0));
            all |= at;
        }
        return all;
    }

    bool SameChar(char32_t c, char32_t want) const {
        return c == want || (o_.icase && OtherCase(c, o_.wide) == want);
    }

    // Membership before negation; without case, any case form of c counts.
    bool InBracket(const Node& node, char32_t c) const {
        for (char32_t form : {c, o_.icase ? OtherCase(c, o_.wide) : c})
            for (const auto& [first, last] : node.items)
                if (RangeKey(first, o_.wide) <= RangeKey(form, o_.wide) &&
                    RangeKey(form, o_.wide) <= RangeKey(last, o_.wide))
                    return true;
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
