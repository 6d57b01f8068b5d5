// Tests of the NFA layer, in both instantiations: arc recycling, fragment
// deletion and copying, the optimiser's verdicts and the languages it
// preserves, the search automaton, and the compact layout that matching
// reads. Automata are built by hand the way the parser builds them;
// languages are checked by running the compact form over colour sequences.

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "engine_support.h"

namespace {

using namespace re_test;
using Orlo::REG_OKAY;
using Orlo::REG_UEMPTYMATCH;
using Orlo::REG_UIMPOSSIBLE;

template <class CharT>
class NfaTest : public ::testing::Test {};
TYPED_TEST_SUITE(NfaTest, CharTypes);

bool HasArc(const state* from, const state* to, int type, color co) {
    for (const arc* a = from->outs; a; a = a->outchain)
        if (a->to == to && a->type == type && a->co == co) return true;
    return false;
}

bool HasArcTo(const state* from, const state* to) {
    for (const arc* a = from->outs; a; a = a->outchain)
        if (a->to == to) return true;
    return false;
}

// Runs `body` on a thread with a 256 KiB stack, so that a traversal that
// recurses once per state fails on a few thousand states instead of the
// hundreds of thousands the default stack would take.
void RunWithSmallStack(const std::function<void()>& body) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 256 * 1024);
    pthread_t thread;
    auto run = [](void* arg) -> void* {
        (*static_cast<const std::function<void()>*>(arg))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attr, run, const_cast<std::function<void()>*>(&body)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

// Structural tests label EMPTY arcs with made-up colours: such arcs belong
// to no colour chain, so the colours need not exist.
constexpr int kLabel = EMPTY;

// Freed arcs are reused before anything new is taken.
TYPED_TEST(NfaTest, FreedArcsAreRecycled) {
    Compilation<TypeParam> c;
    state* from = newstate(c.nfa);
    for (int i = 0; i < 25; ++i)
        newarc(c.nfa, PLAIN, WHITE, from, newstate(c.nfa));
    std::set<arc*> freed;
    for (int i = 0; i < 5; ++i) {
        freed.insert(from->outs);
        freearc(c.nfa, from->outs);
    }
    EXPECT_EQ(from->nouts, 20);
    for (int i = 0; i < 5; ++i) {
        newarc(c.nfa, PLAIN, WHITE, from, newstate(c.nfa));
        EXPECT_EQ(freed.count(from->outs), 1u) << "arc " << i << " not recycled";
    }
}

// An arc that exists is refused whichever end holds the longer list (the
// shorter one is searched), and an arc that differs from it in type,
// colour, source or target is added, also when the states it joins are
// busy ones.
TYPED_TEST(NfaTest, DuplicatesAreRefusedWhicheverEndIsBusier) {
    static constexpr int kCrowd = 40;
    for (const bool busy_sources : {true, false}) {
        SCOPED_TRACE(busy_sources ? "sources have many out-arcs" : "targets have many in-arcs");
        Compilation<TypeParam> c;
        // A busy state has kCrowd arcs on its busy side, with the arc under
        // test among them when it has one.
        auto crowd = [&](state* s, int first) {
            for (int i = first; i < first + kCrowd / 2; ++i) {
                if (busy_sources)
                    newarc(c.nfa, kLabel, color(i), s, newstate(c.nfa));
                else
                    newarc(c.nfa, kLabel, color(i), newstate(c.nfa), s);
            }
        };
        state* from = newstate(c.nfa);
        state* to = newstate(c.nfa);
        state* busy = busy_sources ? from : to;
        crowd(busy, 100);
        newarc(c.nfa, kLabel, 7, from, to);
        crowd(busy, 200);
        const int outs = from->nouts;
        const int ins = to->nins;
        newarc(c.nfa, kLabel, 7, from, to);
        EXPECT_EQ(from->nouts, outs);
        EXPECT_EQ(to->nins, ins);

        state* other = newstate(c.nfa);
        crowd(other, 100);
        crowd(other, 200);
        const struct {
            int type;
            color co;
            state* from;
            state* to;
            const char* why;
        } differing[] = {
            {'^', 7, from, to, "type"},
            {kLabel, 8, from, to, "colour"},
            {kLabel, 7, other, to, "source"},
            {kLabel, 7, from, other, "target"},
        };
        for (const auto& d : differing) {
            const int before = d.from->nouts;
            newarc(c.nfa, d.type, d.co, d.from, d.to);
            EXPECT_EQ(d.from->nouts, before + 1) << "differs in " << d.why;
            EXPECT_TRUE(HasArc(d.from, d.to, d.type, d.co)) << "differs in " << d.why;
        }
    }
}

// A hub's out- and in-lists stay newest first and hold exactly the live
// arcs while arcs are freed from their heads, middles and tails and new ones
// are added, as when empties are removed at the start of a long
// alternation.
TYPED_TEST(NfaTest, FreeingAnywhereKeepsTheArcListsInOrder) {
    Compilation<TypeParam> c;
    state* hub = newstate(c.nfa);
    std::vector<arc*> outs;  // newest first, as the list runs
    std::vector<arc*> ins;
    auto add = [&](int i) {
        newarc(c.nfa, kLabel, color(i), hub, newstate(c.nfa));
        outs.insert(outs.begin(), hub->outs);
        newarc(c.nfa, kLabel, color(i), newstate(c.nfa), hub);
        ins.insert(ins.begin(), hub->ins);
    };
    auto drop = [&](std::vector<arc*>& model, size_t at) {
        freearc(c.nfa, model[at]);
        model.erase(model.begin() + long(at));
    };
    int next = 0;
    for (; next < 30; ++next)
        add(next);
    for (int round = 0; round < 20; ++round) {
        drop(outs, outs.size() / 2);
        drop(ins, ins.size() / 3);
        drop(outs, outs.size() - 1);
        drop(ins, 0);
        add(next++);
        add(next++);
    }
    std::vector<arc*> out_list, in_list;
    for (arc* a = hub->outs; a; a = a->outchain)
        out_list.push_back(a);
    for (arc* a = hub->ins; a; a = a->inchain)
        in_list.push_back(a);
    EXPECT_EQ(out_list, outs);
    EXPECT_EQ(in_list, ins);
    EXPECT_EQ(hub->nouts, int(outs.size()));
    EXPECT_EQ(hub->nins, int(ins.size()));
}

TYPED_TEST(NfaTest, DelsubRemovesEverythingBetweenItsEnds) {
    Compilation<TypeParam> c;
    state* lp = newstate(c.nfa);
    state* rp = newstate(c.nfa);
    state* s1 = c.Then(lp, kLabel, 1);
    state* s2 = c.Then(s1, kLabel, 2);
    newarc(c.nfa, kLabel, 3, s2, rp);
    newarc(c.nfa, kLabel, 4, s2, s1);  // a loop back
    newarc(c.nfa, kLabel, 5, s1, rp);
    newarc(c.nfa, kLabel, 6, s2, s2);
    state* beyond = c.Then(rp, kLabel, 7);

    delsub(c.nfa, lp, rp);
    EXPECT_EQ(lp->nouts, 0);
    EXPECT_EQ(rp->nins, 0);
    EXPECT_EQ(s1->no, FREESTATE);
    EXPECT_EQ(s2->no, FREESTATE);
    EXPECT_TRUE(HasArc(rp, beyond, kLabel, 7)) << "what lies past rp stays";
    for (const state* s : States(c.nfa))
        EXPECT_EQ(s->tmp, nullptr);
}

// Former fault class: traversals that recurse once per state overflow the
// stack on automata such as (a{255}){255}.
TYPED_TEST(NfaTest, LongChainsNeedNoDeepStack) {
    static constexpr int kLength = 10000;
    RunWithSmallStack([] {
        Compilation<TypeParam> c;
        state* lp = newstate(c.nfa);
        state* s = lp;
        for (int i = 0; i < kLength; ++i)
            s = c.Then(s, PLAIN, WHITE);
        state* rp = s;

        state* from = newstate(c.nfa);
        state* to = newstate(c.nfa);
        dupnfa(c.nfa, lp, rp, from, to);
        int steps = 0;
        for (const state* t = from; t != to && t->nouts == 1; t = t->outs->to)
            ++steps;
        EXPECT_EQ(steps, kLength);

        delsub(c.nfa, lp, rp);
        EXPECT_EQ(lp->nouts, 0);
        EXPECT_EQ(rp->nins, 0);

        // The copy, hung between init and final behind a run of empties.
        newarc(c.nfa, EMPTY, 0, c.nfa->init, from);
        state* e = to;
        for (int i = 0; i < kLength; ++i)
            e = c.Then(e, EMPTY, 0);
        newarc(c.nfa, EMPTY, 0, e, c.nfa->final);
        specialcolors(c.nfa);
        EXPECT_EQ(optimize(c.nfa, nullptr), 0);
        EXPECT_EQ(c.v.err, REG_OKAY);
        EXPECT_EQ(c.nfa->nstates, kLength + 3) << "pre, post, the chain and its end";
    });
}

// A text between the colours around it: its first character is what comes
// before (^ the string start, - a start that is none), its last what comes
// after ($ the string end, - an end that is none); any other is a character.
using Text = std::pair<std::u32string, bool>;

template <class CharT>
struct OptimizeCase {
    const char* why;
    std::function<void(Compilation<CharT>&, state* init, state* final)> build;
    long verdict;
    std::vector<Text> texts;
};

template <class CharT>
void ExpectTexts(const cnfa& cn, const Compilation<CharT>& c, const std::vector<Text>& texts) {
    for (const auto& [text, match] : texts) {
        const auto edge = [&](char32_t ch, const color* ends) {
            return ch == '-' ? ends[0] : ch == '^' || ch == '$' ? ends[1] : c.Colour(ch);
        };
        std::vector<color> colours{edge(text.front(), c.nfa->bos)};
        for (size_t i = 1; i + 1 < text.size(); ++i)
            colours.push_back(c.Colour(text[i]));
        colours.push_back(edge(text.back(), c.nfa->eos));
        EXPECT_EQ(Accepts(cn, colours), match) << std::string(text.begin(), text.end());
    }
}

template <class CharT>
std::vector<OptimizeCase<CharT>> OptimizeCases() {
    using C = Compilation<CharT>;
    return {
        {"a star matches empty",
         [](C& c, state* init, state* final) {
             state* s = c.Then(init, EMPTY, 0);
             c.Char('a', s, s);
             newarc(c.nfa, EMPTY, 0, s, final);
         },
         REG_UEMPTYMATCH,
         {{U"^$", true}, {U"^aaa$", true}, {U"^ab$", false}}},
        {"nothing reaches final",
         [](C& c, state* init, state*) { c.ThenChar(init, 'a'); },
         REG_UIMPOSSIBLE,
         {{U"^a$", false}}},
        {"a^b can never match",
         [](C& c, state* init, state* final) {
             state* s = c.Then(c.ThenChar(init, 'a'), '^', 1);
             c.Char('b', s, final);
         },
         REG_UIMPOSSIBLE,
         {{U"^ab$", false}}},
        // Pulling ^ back from a state that other arcs also enter must keep
        // those arcs' paths.
        {"(^|x)y",
         [](C& c, state* init, state* final) {
             state* m = c.Then(init, '^', 1);
             c.Char('x', init, m);
             c.Char('y', m, final);
         },
         0,
         {{U"^y$", true},
          {U"^xy$", true},
          {U"-y$", false},
          {U"xy$", false},
          {U"-xy$", true},
          {U"^x$", false}}},
        {"x($|y)",
         [](C& c, state* init, state* final) {
             state* m = c.ThenChar(init, 'x');
             newarc(c.nfa, '$', 1, m, final);
             c.Char('y', m, final);
         },
         0,
         {{U"^x$", true}, {U"^xy$", true}, {U"^x-", false}, {U"^xyy$", false}}},
        {"x, then the previous character is y: never",
         [](C& c, state* init, state* final) {
             c.Char('y', newstate(c.nfa), newstate(c.nfa));
             state* s = c.ThenChar(init, 'x');
             c.Char('a', c.Then(s, BEHIND, c.Colour('y')), final);
         },
         REG_UIMPOSSIBLE,
         {}},
        {"a look-behind at the start reaches the character before the text",
         [](C& c, state* init, state* final) {
             c.Char('x', newstate(c.nfa), newstate(c.nfa));
             c.Char('a', c.Then(init, BEHIND, c.Colour('x')), final);
         },
         0,
         {{U"xa$", true}, {U"^a$", false}, {U"ya$", false}}},
        {"a, then the next character is c, then b: never",
         [](C& c, state* init, state* final) {
             c.Char('c', newstate(c.nfa), newstate(c.nfa));
             state* s = c.ThenChar(init, 'a');
             c.Char('b', c.Then(s, AHEAD, c.Colour('c')), final);
         },
         REG_UIMPOSSIBLE,
         {}},
        {"a look-ahead at the end reaches the character after the text",
         [](C& c, state* init, state* final) {
             c.Char('y', newstate(c.nfa), newstate(c.nfa));
             newarc(c.nfa, AHEAD, c.Colour('y'), c.ThenChar(init, 'a'), final);
         },
         0,
         {{U"^ay", true}, {U"^a$", false}, {U"^az", false}}},
        {"a constraint on a loop",
         [](C& c, state* init, state* final) {
             state* s = c.Then(init, EMPTY, 0);
             c.Char('a', s, s);
             state* t = c.Then(s, '^', 1);
             c.Char('b', t, final);
         },
         0,
         {{U"^b$", true}, {U"^ab$", false}, {U"-b$", false}}},
    };
}

TYPED_TEST(NfaTest, OptimizeVerdictsAndLanguages) {
    for (const OptimizeCase<TypeParam>& row : OptimizeCases<TypeParam>()) {
        SCOPED_TRACE(row.why);
        Compilation<TypeParam> c;
        row.build(c, c.nfa->init, c.nfa->final);
        specialcolors(c.nfa);
        EXPECT_EQ(optimize(c.nfa, nullptr), row.verdict);
        ASSERT_EQ(c.v.err, REG_OKAY);
        if (row.verdict == REG_UIMPOSSIBLE) {
            EXPECT_EQ(c.nfa->pre->nouts, 0);
        }
        cnfa cn{};
        compact(c.nfa, &cn);
        ASSERT_EQ(c.v.err, REG_OKAY);
        ExpectTexts(cn, c, row.texts);
        freecnfa(&cn);
    }
}

// The end fixempties works on: by default the source, whose in-arcs are
// copied to the target; the target (its out-arcs copied back) when the
// source has more out-arcs than the target in-arcs, or, at a tie, more
// in-arcs than the target out-arcs. A side left with no arcs goes.
struct EndCase {
    const char* why;
    int ins_a, outs_a, ins_b, outs_b;  // counts besides the empty arc
    bool works_on_source;
    bool frees;
};

const EndCase kEndCases[] = {
    {"all equal: the source, which then has nothing left", 1, 0, 0, 1, true, true},
    {"tie, but the source has more in-arcs", 2, 0, 0, 1, false, true},
    {"the source has more out-arcs", 1, 1, 0, 1, false, true},
    {"the target has more in-arcs", 1, 0, 1, 1, true, true},
    {"tie, both keep arcs: copy into the target", 1, 1, 1, 1, true, false},
    {"tie, more in-arcs, both keep arcs: copy out of the target", 2, 1, 1, 1, false, false},
};

TYPED_TEST(NfaTest, FixemptiesWorksOnTheCheaperEnd) {
    for (const EndCase& row : kEndCases) {
        SCOPED_TRACE(row.why);
        Compilation<TypeParam> c;
        state* a = newstate(c.nfa);
        state* b = newstate(c.nfa);
        newarc(c.nfa, EMPTY, 0, a, b);
        std::vector<state*> preds, succs;
        for (int i = 0; i < row.ins_a; ++i) {
            preds.push_back(newstate(c.nfa));
            newarc(c.nfa, PLAIN, WHITE, preds.back(), a);
        }
        for (int i = 0; i < row.outs_a; ++i)
            c.Then(a, PLAIN, WHITE);
        for (int i = 0; i < row.ins_b; ++i)
            newarc(c.nfa, PLAIN, WHITE, newstate(c.nfa), b);
        for (int i = 0; i < row.outs_b; ++i)
            succs.push_back(c.Then(b, PLAIN, WHITE));

        fixempties(c.nfa);
        const state* worked = row.works_on_source ? a : b;
        const state* kept = row.works_on_source ? b : a;
        EXPECT_EQ(worked->no == FREESTATE, row.frees);
        EXPECT_NE(kept->no, FREESTATE);
        for (state* p : preds)
            for (state* q : succs)
                EXPECT_TRUE(HasArcTo(p, kept) && HasArcTo(kept, q));
        for (const state* s : States(c.nfa))
            for (const arc* x = s->outs; x; x = x->outchain)
                EXPECT_NE(x->type, EMPTY);
    }
}

// Unless every way out of pre is a string start, a match may begin
// anywhere: pre loops on every colour and both starts. A successor of pre
// is then entered from pre only, so being in one means no progress yet;
// the language is unchanged.
TYPED_TEST(NfaTest, MakesearchLoopsOnPreAndSplitsItsSuccessors) {
    Compilation<TypeParam> c;  // x*y
    state* s = c.Then(c.nfa->init, EMPTY, 0);
    c.Char('x', s, s);
    c.Char('y', s, c.nfa->final);
    specialcolors(c.nfa);
    ASSERT_EQ(optimize(c.nfa, nullptr), 0);
    makesearch(&c.v, c.nfa);
    state* pre = c.nfa->pre;
    for (color co : {WHITE, c.Colour('x'), c.Colour('y'), c.nfa->bos[0], c.nfa->bos[1]})
        EXPECT_TRUE(HasArc(pre, pre, PLAIN, co)) << co;
    EXPECT_FALSE(HasArc(pre, pre, PLAIN, c.nfa->eos[1]));
    for (const arc* a = c.nfa->pre->outs; a; a = a->outchain)
        for (const arc* in = a->to->ins; in; in = in->inchain)
            EXPECT_EQ(in->from, c.nfa->pre);

    cnfa cn{};
    compact(c.nfa, &cn);
    ASSERT_EQ(c.v.err, REG_OKAY);
    ExpectTexts(cn, c, {{U"^xxy$", true}, {U"^zzxy$", true}, {U"^y$", true}, {U"^xyz$", false}});
    freecnfa(&cn);

    Compilation<TypeParam> anchored;
    anchored.Char('a', anchored.Then(anchored.nfa->init, '^', 1), anchored.nfa->final);
    specialcolors(anchored.nfa);
    ASSERT_EQ(optimize(anchored.nfa, nullptr), 0);
    makesearch(&anchored.v, anchored.nfa);
    EXPECT_FALSE(HasArcTo(anchored.nfa->pre, anchored.nfa->pre)) << "anchored: no loop";
}

// Headers say whether a state means no progress yet; arcs are sorted by
// colour and target, look-ahead arcs above the colours, and short lists
// keep chain order.
TYPED_TEST(NfaTest, CompactLayout) {
    Compilation<TypeParam> c;
    state* init = c.nfa->init;
    state* m = newstate(c.nfa);
    state* n = newstate(c.nfa);
    c.Char('c', init, m);  // colours in the order c, a, b, x, y
    c.Char('a', init, m);
    c.Char('b', init, m);
    newarc(c.nfa, LACON, 2, m, n);
    c.Char('x', n, c.nfa->final);
    c.Char('y', n, c.nfa->final);
    specialcolors(c.nfa);
    ASSERT_EQ(optimize(c.nfa, nullptr), 0);
    cnfa cn{};
    compact(c.nfa, &cn);
    ASSERT_EQ(c.v.err, REG_OKAY);

    EXPECT_EQ(cn.flags, HASLACONS);
    for (const state* s : States(c.nfa)) {
        const carc* list = cn.states[s->no];
        const bool no_progress = s == c.nfa->pre || s == init;
        EXPECT_EQ(list[0].co, no_progress ? 1 : 0) << "header of " << s->no;
        int count = 0;
        while (list[1 + count].co != COLORLESS)
            ++count;
        EXPECT_EQ(count, s->nouts) << s->no;
        EXPECT_EQ(list[1 + count].to, 0);
        if (count <= 2) continue;
        for (int i = 2; i <= count; ++i)
            EXPECT_TRUE(list[i - 1].co < list[i].co ||
                        (list[i - 1].co == list[i].co && list[i - 1].to <= list[i].to))
                << "state " << s->no << " unsorted at " << i;
    }
    const carc* at_m = cn.states[m->no];
    EXPECT_EQ(at_m[1].co, cn.ncolors + 2) << "a look-ahead arc sits above the colours";
    EXPECT_EQ(at_m[1].to, n->no);
    const carc* at_init = cn.states[init->no];
    EXPECT_EQ(at_init[1].co, c.Colour('c'));
    EXPECT_EQ(at_init[3].co, c.Colour('b'));
    // Two arcs stay in chain order, the newest first.
    const carc* at_n = cn.states[n->no];
    EXPECT_EQ(at_n[1].co, c.Colour('y'));
    EXPECT_EQ(at_n[2].co, c.Colour('x'));
    freecnfa(&cn);
    EXPECT_EQ(cn.nstates, 0);
}

// a b* c, as a concatenation node over two leaves that meet at the state
// with the loop: the left leaf stops there, the right one starts there.
TYPED_TEST(NfaTest, NfatreeBuildsEveryNode) {
    Compilation<TypeParam> c;
    state* m = c.ThenChar(c.nfa->init, 'a');
    c.Char('b', m, m);
    c.Char('c', m, c.nfa->final);
    specialcolors(c.nfa);

    subre left{}, right{}, root{};
    left.op = right.op = '=';
    left.begin = root.begin = c.nfa->init;
    left.end = right.begin = m;
    right.end = root.end = c.nfa->final;
    root.op = '.';
    root.left = &left;
    root.right = &right;
    root.retry = 1;
    left.retry = 2;

    EXPECT_EQ(nfatree(&c.v, &root, nullptr), 0);
    ASSERT_EQ(c.v.err, REG_OKAY);

    const struct {
        const subre* node;
        std::vector<Text> texts;
    } expectations[] = {
        {&left, {{U"^a$", true}, {U"^ab$", false}}},
        {&right, {{U"^c$", true}, {U"^bbc$", true}, {U"^abc$", false}}},
        {&root, {{U"^ac$", true}, {U"^abbc$", true}, {U"^a$", false}}},
    };
    for (const auto& e : expectations) {
        ASSERT_GT(e.node->cnfa.nstates, 0);
        ExpectTexts(e.node->cnfa, c, e.texts);
    }
    EXPECT_EQ(m->nouts, 2) << "the main NFA is left as it was";
    for (subre* t : {&left, &right, &root})
        freecnfa(&t->cnfa);
}

}  // namespace
