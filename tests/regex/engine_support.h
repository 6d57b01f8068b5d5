// Test support for the engine's internals: a compilation context that the
// tests drive by hand instead of a parser, and a simulator that runs a compact automaton over
// a sequence of colours the way the matcher feeds it.

#ifndef ORLO_TESTS_REGEX_ENGINE_SUPPORT_H
#define ORLO_TESTS_REGEX_ENGINE_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "regex/classes.h"
#include "regex/colormap.h"
#include "regex/guts.h"
#include "regex/nfa.h"

namespace re_test {

using namespace Orlo::IMPL::re;

// Characters are written as char32_t in the tables and cut to CharT here;
// narrow bytes above 0x7f become negative, as in narrow patterns.
template <class CharT>
CharT Ch(char32_t c) {
    return CharT(c);
}

// Each char of `s` as one CharT (bytes above 0x7f stay negative in narrow
// and become the matching negative values in wide).
template <class CharT>
std::basic_string<CharT> Widen(const std::string& s) {
    std::basic_string<CharT> out;
    for (char c : s)
        out.push_back(CharT(c));
    return out;
}

// One bracket item: a single character (first == last) or a range.
struct Item {
    char32_t first;
    char32_t last;
};

// What the parser would own during a compilation: the record, the colour
// map, the top NFA and the working vector.
template <class CharT>
class Compilation {
  public:
    explicit Compilation(int cflags = 0) {
        v.re = &re;
        v.cflags = cflags;
        v.nlcolor = COLORLESS;
        cm = new colormap<CharT>();
        initcm(&v, cm);
        v.cm = cm;
        v.nfa = newnfa(&v, cm, nullptr);
        nfa = v.nfa;
    }
    ~Compilation() {
        if (nfa) freenfa(nfa);
        freecm(cm);
        delete cm;
        if (v.cv) freecvec(v.cv);
    }
    Compilation(const Compilation&) = delete;
    Compilation& operator=(const Compilation&) = delete;

    color Colour(char32_t c) const { return getcolor(cm, Ch<CharT>(c)); }

    // A bracket of `items` between lp and rp, closed as the parser closes
    // one: dovec, then okcolors.
    void Bracket(const std::vector<Item>& items, state* lp, state* rp) {
        cvec<CharT>* cv = getcvec(&v, int(items.size()), int(items.size()), 0);
        ASSERT_NE(cv, nullptr);
        for (const Item& item : items) {
            if (item.first == item.last)
                addchr(cv, Ch<CharT>(item.first));
            else
                addrange(cv, Ch<CharT>(item.first), Ch<CharT>(item.last));
        }
        dovec(&v, cv, lp, rp);
        okcolors(nfa, cm);
    }

    // A plain character: subcolor, one arc, okcolors.
    void Char(char32_t c, state* lp, state* rp) {
        newarc(nfa, PLAIN, subcolor(cm, Ch<CharT>(c)), lp, rp);
        okcolors(nfa, cm);
    }

    // A new state reached from `from` by one arc.
    state* Then(state* from, int type, color co) {
        state* to = newstate(nfa);
        newarc(nfa, type, co, from, to);
        return to;
    }

    // A new state reached from `from` by the character `c`.
    state* ThenChar(state* from, char32_t c) {
        state* to = newstate(nfa);
        Char(c, from, to);
        return to;
    }

    Orlo::regex_t re{};
    parse_vars<CharT> v{};
    colormap<CharT>* cm = nullptr;
    Orlo::IMPL::re::nfa<CharT>* nfa = nullptr;
};

// The colours of `text` as the matcher feeds them: the colour before the
// text (bos[1], or bos[0] when the start is no string start), the text,
// and the colour after it (eos[1], or eos[0]).
template <class CharT>
std::vector<color> Feed(const Compilation<CharT>& c, const std::u32string& text,
                        bool notbol = false, bool noteol = false) {
    std::vector<color> colours{c.nfa->bos[notbol ? 0 : 1]};
    for (char32_t ch : text)
        colours.push_back(c.Colour(ch));
    colours.push_back(c.nfa->eos[noteol ? 0 : 1]);
    return colours;
}

// Whether the automaton, started in `pre`, is in `post` after all of
// `colours`: a match of the whole text. Look-ahead arcs never fire.
inline bool Accepts(const cnfa& cn, const std::vector<color>& colours) {
    std::set<int> now{cn.pre};
    for (color co : colours) {
        std::set<int> next;
        for (int s : now)
            for (const carc* ca = cn.states[s] + 1; ca->co != COLORLESS; ++ca)
                if (ca->co == co) next.insert(ca->to);
        now = std::move(next);
    }
    return now.count(cn.post) != 0;
}

// Every state of the list, in order.
template <class CharT>
std::vector<state*> States(const nfa<CharT>* n) {
    std::vector<state*> all;
    for (state* s = n->states; s; s = s->next)
        all.push_back(s);
    return all;
}

// The colours of the PLAIN arcs from `from` to `to`.
inline std::multiset<color> ArcColours(const state* from, const state* to) {
    std::multiset<color> colours;
    for (const arc* a = from->outs; a; a = a->outchain)
        if (a->to == to && a->type == PLAIN) colours.insert(a->co);
    return colours;
}

using CharTypes = ::testing::Types<char, wchar_t>;

}  // namespace re_test

#endif  // ORLO_TESTS_REGEX_ENGINE_SUPPORT_H
