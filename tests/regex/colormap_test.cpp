// Tests of the colour map, in both instantiations.
//
// The central check runs a sequence of brackets and compares the whole map
// with what the brackets imply: two characters share a colour exactly when
// they lie in the same brackets; each bracket's arcs carry its members'
// colours once each; the counts add up to the domain; every coloured arc
// is on its colour's chain. The wide map's leaf sharing is checked on its
// own, since a correct partition can still cost a leaf per character.

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "engine_support.h"

namespace {

using namespace re_test;

template <class CharT>
class ColormapTest : public ::testing::Test {};
TYPED_TEST_SUITE(ColormapTest, CharTypes);

// Whether the bracket item holds the map position `u`: narrow items compare
// as signed bytes; wide ones are folded onto the low 16 bits.
template <class CharT>
bool Holds(const Item& item, uint32_t u) {
    if constexpr (sizeof(CharT) == 1) {
        const int c = int8_t(u);
        return int8_t(item.first) <= c && c <= int8_t(item.last);
    } else {
        if (item.last - item.first >= 0xffff) return true;
        const uint32_t lo = item.first & 0xffff;
        const uint32_t hi = item.last & 0xffff;
        return lo <= hi ? lo <= u && u <= hi : u >= lo || u <= hi;
    }
}

template <class CharT>
std::vector<bool> Membership(const std::vector<std::vector<Item>>& brackets, uint32_t u) {
    std::vector<bool> in;
    for (const std::vector<Item>& bracket : brackets) {
        bool held = false;
        for (const Item& item : bracket)
            held = held || Holds<CharT>(item, u);
        in.push_back(held);
    }
    return in;
}

// The PLAIN, AHEAD and BEHIND arcs of the NFA, by colour.
template <class CharT>
std::map<color, std::set<const arc*>> ColouredArcs(const nfa<CharT>* n) {
    std::map<color, std::set<const arc*>> arcs;
    for (const state* s : States(n))
        for (const arc* a = s->outs; a; a = a->outchain)
            if (a->type == PLAIN || a->type == AHEAD || a->type == BEHIND) arcs[a->co].insert(a);
    return arcs;
}

template <class CharT>
void CheckColourChains(const Compilation<CharT>& c) {
    const auto expected = ColouredArcs(c.nfa);
    for (size_t co = 0; co <= c.cm->max; ++co) {
        std::set<const arc*> chained;
        const arc* previous = nullptr;
        for (const arc* a = c.cm->cd[co].arcs; a; a = a->colorchain) {
            EXPECT_EQ(a->co, color(co));
            EXPECT_EQ(a->colorchainrev, previous) << "colour " << co;
            chained.insert(a);
            previous = a;
        }
        const auto it = expected.find(color(co));
        EXPECT_EQ(chained, it == expected.end() ? std::set<const arc*>{} : it->second)
            << "colour " << co;
    }
}

template <class CharT>
void CheckMap(const Compilation<CharT>& c, const std::vector<std::vector<Item>>& brackets,
              const std::vector<std::pair<state*, state*>>& ends) {
    std::map<std::vector<bool>, color> colour_of;
    std::map<color, std::vector<bool>> members_of;
    std::map<color, size_t> count;
    std::vector<std::set<color>> bracket_colours(brackets.size());
    for (uint32_t u = 0; u < map_shape<CharT>::domain; ++u) {
        const color co = getcolor(c.cm, CharT(u));
        ASSERT_TRUE(co >= 0 && size_t(co) <= c.cm->max) << u;
        ASSERT_FALSE(c.cm->cd[co].flags & (FREECOL | PSEUDO)) << u;
        const std::vector<bool> in = Membership<CharT>(brackets, u);
        const auto [by_members, new_members] = colour_of.emplace(in, co);
        ASSERT_EQ(by_members->second, co) << "character " << u << " split from its peers";
        const auto [by_colour, new_colour] = members_of.emplace(co, in);
        ASSERT_EQ(by_colour->second, in) << "character " << u << " shares colour " << co;
        ++count[co];
        for (size_t b = 0; b < brackets.size(); ++b)
            if (in[b]) bracket_colours[b].insert(co);
    }
    for (size_t co = 0; co <= c.cm->max; ++co) {
        const colordesc& cd = c.cm->cd[co];
        if (cd.flags & FREECOL) continue;
        EXPECT_EQ(cd.nchrs, count[color(co)]) << "colour " << co;
        EXPECT_EQ(cd.sub, NOSUB) << "colour " << co << " left open";
    }
    for (size_t b = 0; b < brackets.size(); ++b) {
        const std::multiset<color> arcs = ArcColours(ends[b].first, ends[b].second);
        EXPECT_EQ(arcs, std::multiset<color>(bracket_colours[b].begin(), bracket_colours[b].end()))
            << "bracket " << b;
    }
    CheckColourChains(c);
}

struct BracketCase {
    const char* why;
    std::vector<std::vector<Item>> brackets;
    int expect_max = -1;  // the highest colour afterwards, when it matters
};

template <class CharT>
void RunBracketCases(const std::vector<BracketCase>& cases) {
    for (const BracketCase& row : cases) {
        SCOPED_TRACE(row.why);
        Compilation<CharT> c;
        std::vector<std::pair<state*, state*>> ends;
        for (const std::vector<Item>& bracket : row.brackets) {
            state* lp = newstate(c.nfa);
            state* rp = newstate(c.nfa);
            c.Bracket(bracket, lp, rp);
            ends.emplace_back(lp, rp);
        }
        ASSERT_EQ(c.v.err, Orlo::REG_OKAY);
        CheckMap(c, row.brackets, ends);
        if (row.expect_max >= 0) {
            EXPECT_EQ(c.cm->max, size_t(row.expect_max));
        }
    }
}

std::vector<std::vector<Item>> SingleCharBrackets(int n) {
    std::vector<std::vector<Item>> brackets;
    for (int i = 0; i < n; ++i)
        brackets.push_back({{char32_t('A' + i), char32_t('A' + i)}});
    return brackets;
}

const std::vector<BracketCase> kBothCases = {
    {"no bracket: all WHITE", {}, 0},
    {"one bracket", {{{'a', 'a'}, {'b', 'b'}, {'c', 'c'}}}, 1},
    {"overlapping brackets split a colour", {{{'a', 'a'}, {'b', 'b'}}, {{'b', 'b'}, {'c', 'c'}}}},
    {"the same bracket twice: the sub-colour takes the emptied parent's place",
     {{{'a', 'a'}, {'b', 'b'}}, {{'a', 'a'}, {'b', 'b'}}}},
    {"the freed colour is reused",
     {{{'a', 'a'}, {'b', 'b'}}, {{'a', 'a'}, {'b', 'b'}}, {{'c', 'c'}}},
     2},
    {"a character inside an earlier range", {{{'a', 'z'}}, {{'m', 'm'}}}},
    {"duplicate items draw one arc per colour", {{{'a', 'a'}, {'a', 'a'}, {'a', 'c'}, {'b', 'b'}}}},
    {"thirty colours outgrow the inline descriptors", SingleCharBrackets(30), 30},
};

const std::vector<BracketCase> kNarrowCases = {
    {"high bytes form a signed range", {{{0x80, 0xff}}}},
    {"every byte: WHITE empties but is kept", {{{0x80, 0x7f}}}},
    {"a range crossing zero", {{{0xf0, 0x10}}, {{0x05, 0x05}}}},
};

const std::vector<BracketCase> kWideCases = {
    {"whole blocks share one solid leaf", {{{0x100, 0x2ff}}}},
    {"partial blocks on both sides of a whole one", {{{0xf0, 0x210}}}},
    {"a range over part of a solid block", {{{0x100, 0x1ff}}, {{0x180, 0x280}}}},
    {"a split block is recoloured run by run", {{{0x105, 0x105}}, {{0x100, 0x1ff}}}},
    {"characters above the plane fold onto it", {{{0x10041, 0x10041}}, {{'A', 'A'}}}},
    {"a range wrapping past the plane's end", {{{0xfff0, 0x10010}}}},
    {"a range longer than the plane covers all", {{{0x5, 0x20004}}, {{'q', 'q'}}}},
    {"every character: WHITE empties but is kept", {{{0, 0xffff}}}},
    {"blocks split twice", {{{0x100, 0x4ff}}, {{0x200, 0x2ff}}, {{0x300, 0x5ff}}}},
};

TYPED_TEST(ColormapTest, BracketsPartitionTheCharacters) {
    RunBracketCases<TypeParam>(kBothCases);
    RunBracketCases<TypeParam>(sizeof(TypeParam) == 1 ? kNarrowCases : kWideCases);
}

// Sub-colours of the open bracket, `but`, free and pseudo-colours are not
// "any character"; a complement leaves out the bracket's colours.
TYPED_TEST(ColormapTest, RainbowAndComplement) {
    Compilation<TypeParam> c;
    specialcolors(c.nfa);
    state* s = newstate(c.nfa);
    c.Char('a', s, newstate(c.nfa));
    c.Bracket({{'b', 'b'}, {'c', 'c'}}, s, newstate(c.nfa));
    c.Bracket({{'b', 'b'}, {'c', 'c'}}, s, newstate(c.nfa));  // frees a colour
    state* left = newstate(c.nfa);
    c.Bracket({{'a', 'a'}, {'k', 'm'}}, left, newstate(c.nfa));
    const color a = c.Colour('a');
    const color b = c.Colour('b');
    const color k = c.Colour('k');
    state* lp = newstate(c.nfa);
    state* rp = newstate(c.nfa);
    colorcomplement(c.nfa, c.cm, PLAIN, left, lp, rp);
    EXPECT_EQ(ArcColours(lp, rp), (std::multiset<color>{WHITE, b}));

    const color d = subcolor(c.cm, TypeParam('d'));  // left open
    ASSERT_NE(d, WHITE);
    state* from = newstate(c.nfa);
    state* to = newstate(c.nfa);
    rainbow(c.nfa, c.cm, PLAIN, a, from, to);
    EXPECT_EQ(ArcColours(from, to), (std::multiset<color>{WHITE, b, k}));
    okcolors(c.nfa, c.cm);
}

TYPED_TEST(ColormapTest, SpecialColoursArePseudoAndShared) {
    Compilation<TypeParam> c;
    specialcolors(c.nfa);
    std::set<color> seen;
    for (color co : {c.nfa->bos[0], c.nfa->bos[1], c.nfa->eos[0], c.nfa->eos[1]}) {
        ASSERT_GT(co, WHITE);
        EXPECT_EQ(c.cm->cd[co].flags, PSEUDO);
        EXPECT_EQ(c.cm->cd[co].nchrs, 1u);
        seen.insert(co);
    }
    EXPECT_EQ(seen.size(), 4u);

    nfa<TypeParam>* child = newnfa(&c.v, c.cm, c.nfa);
    ASSERT_NE(child, nullptr);
    specialcolors(child);
    EXPECT_EQ(c.cm->max, 4u) << "a child makes no colours";
    EXPECT_EQ(child->bos[1], c.nfa->bos[1]);
    EXPECT_EQ(child->eos[0], c.nfa->eos[0]);
    EXPECT_EQ(ArcColours(child->pre, child->init), (std::multiset<color>{WHITE}));
    freenfa(child);
}

// The free list hands back freed colours first; freeing the highest colour
// lowers `max` past every free colour below it and drops those from the list.
TYPED_TEST(ColormapTest, FreedColoursAreReusedAndMaxShrinks) {
    Compilation<TypeParam> c;
    for (int i = 1; i <= 5; ++i)
        ASSERT_EQ(newcolor(c.cm), color(i));
    freecolor(c.cm, 2);
    freecolor(c.cm, 4);
    EXPECT_EQ(c.cm->max, 5u);
    EXPECT_EQ(newcolor(c.cm), 4) << "the latest freed comes first";
    freecolor(c.cm, 4);
    freecolor(c.cm, 3);
    freecolor(c.cm, 5);
    EXPECT_EQ(c.cm->max, 1u);
    EXPECT_EQ(c.cm->free, 0) << "nothing above max stays listed";
    EXPECT_EQ(newcolor(c.cm), 2);
    freecolor(c.cm, WHITE);
    EXPECT_FALSE(c.cm->cd[WHITE].flags & FREECOL) << "0 ends the free list";
}

TYPED_TEST(ColormapTest, NothingHappensWithAnErrorPending) {
    Compilation<TypeParam> c;
    state* lp = newstate(c.nfa);
    state* rp = newstate(c.nfa);
    set_error(&c.v, Orlo::REG_ESPACE);
    EXPECT_EQ(newcolor(c.cm), COLORLESS);
    EXPECT_EQ(subcolor(c.cm, TypeParam('a')), COLORLESS);
    EXPECT_EQ(c.Colour('a'), WHITE);
    subrange(&c.v, TypeParam('a'), TypeParam('z'), lp, rp);
    newarc(c.nfa, PLAIN, WHITE, lp, rp);
    EXPECT_EQ(lp->nouts, 0);
    EXPECT_EQ(maxcolor(c.cm), COLORLESS);
}

// ---- the wide tree ---------------------------------------------------------

using WideCompilation = Compilation<wchar_t>;

std::set<const color*> PrivateLeaves(const WideCompilation& c) {
    std::set<const color*> leaves;
    for (const color* leaf : c.cm->tree.ptr)
        if (leaf != c.cm->tree.fill && c.cm->cd[leaf[0]].block != leaf) leaves.insert(leaf);
    return leaves;
}

bool AllOf(const color* leaf, color co) {
    for (size_t i = 0; i < BYTTAB; ++i)
        if (leaf[i] != co) return false;
    return true;
}

// Writing copies the fill leaf once; a bracket over whole blocks points
// them all at one solid leaf, which is copied, not written, when one of its
// characters later leaves it.
TEST(WideColormap, LeavesAreSharedUntilWritten) {
    WideCompilation c;
    c.Char('a', newstate(c.nfa), newstate(c.nfa));
    c.Char('b', newstate(c.nfa), newstate(c.nfa));
    EXPECT_EQ(PrivateLeaves(c).size(), 1u);
    EXPECT_TRUE(AllOf(c.cm->tree.fill, WHITE));
    c.Bracket({{0x100, 0x7fff}}, newstate(c.nfa), newstate(c.nfa));
    const color co = c.Colour(0x100);
    const color* block = c.cm->cd[co].block;
    ASSERT_NE(block, nullptr);
    for (size_t hi = 1; hi < 0x80; ++hi)
        ASSERT_EQ(c.cm->tree.ptr[hi], block) << hi;
    EXPECT_EQ(c.cm->tree.ptr[0x80], c.cm->tree.fill);
    EXPECT_EQ(PrivateLeaves(c).size(), 1u);

    c.Char(0x150, newstate(c.nfa), newstate(c.nfa));
    EXPECT_NE(c.cm->tree.ptr[1], block);
    EXPECT_EQ(c.cm->tree.ptr[2], block);
    EXPECT_TRUE(AllOf(block, co)) << "the shared leaf must not change";
    EXPECT_EQ(PrivateLeaves(c).size(), 2u);
}

// [^a] as the parser builds it: the bracket between two scratch states,
// then the complement. It must cost one leaf, not 65535 writes.
TEST(WideColormap, AComplementCostsOneLeaf) {
    WideCompilation c;
    specialcolors(c.nfa);
    state* left = newstate(c.nfa);
    state* right = newstate(c.nfa);
    c.Bracket({{'a', 'a'}}, left, right);
    state* lp = newstate(c.nfa);
    state* rp = newstate(c.nfa);
    colorcomplement(c.nfa, c.cm, PLAIN, left, lp, rp);
    EXPECT_EQ(PrivateLeaves(c).size(), 1u);
    EXPECT_EQ(ArcColours(lp, rp), (std::multiset<color>{WHITE}));
    EXPECT_EQ(c.cm->cd[WHITE].nchrs, 65535u);
}

}  // namespace
