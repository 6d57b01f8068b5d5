// The NFA layer; see nfa.h for the design.
//
// Traversals. Automata can be huge (`(a{255}){255}` makes tens of thousands
// of states in a chain), so no traversal here recurses once per state:
// reachability uses an explicit list of states, and `delsub` keeps its path
// back to `lp` in the states' `tmp` links. `tmp` is null outside a
// traversal, and every traversal clears what it set.
//
// Iterating while rewriting. The optimisation passes walk the state list
// and each state's out-arcs while they free arcs and states. An arc's
// successor is saved before the arc is handled; a rewrite frees only arcs
// of the states it works on, and frees the current state only when the arc
// in hand was its last out-arc. The next state is read after its
// predecessor is done (see `next_state`), as a rewrite may free the state
// that followed it.

#include "regex/nfa.h"
#include "regex/alloc.h"

#include <algorithm>
#include <vector>

#include <cstdlib>

#include "regex/colormap.h"

namespace Orlo::IMPL::re {
namespace {

// ---- helpers ---------------------------------------------------------------

// A growable array of states, for the traversals.
class state_list {
  public:
    state_list() = default;
    state_list(const state_list&) = delete;
    state_list& operator=(const state_list&) = delete;
    ~state_list() { free(m_items); }

    // False when memory runs out; the caller reports it.
    bool push(state* s) {
        if (m_size == m_space && !grow()) return false;
        m_items[m_size++] = s;
        return true;
    }
    state* pop() { return m_items[--m_size]; }
    bool empty() const { return m_size == 0; }
    size_t size() const { return m_size; }
    state* operator[](size_t i) const { return m_items[i]; }

  private:
    bool grow() {
        const size_t space = m_space ? m_space * 2 : 64;
        void* items = re_realloc(m_items, space * sizeof(state*));
        if (!items) return false;
        m_items = static_cast<state**>(items);
        m_space = space;
        return true;
    }

    state** m_items = nullptr;
    size_t m_size = 0;
    size_t m_space = 0;
};

template <class CharT>
bool push_or_fail(nfa<CharT>* nfa, state_list& list, state* s) {
    if (list.push(s)) return true;
    set_error(nfa->v, REG_ESPACE);
    return false;
}

// Arcs that test a character's colour, and therefore live on colour chains.
bool is_colored_type(int type) {
    return type == PLAIN || type == AHEAD || type == BEHIND;
}

template <class CharT>
bool keeps_color_chains(const nfa<CharT>* nfa) {
    return nfa->parent == nullptr;
}

// The state after `s` in the list once `s`'s arcs have been handled:
// `s->next` while `s` lives; the successor saved beforehand when `s` was
// freed; null (end of this pass) when that one was freed too.
state* next_state(const state* s, state* saved_next) {
    if (s->no != FREESTATE) return s->next;
    if (saved_next && saved_next->no != FREESTATE) return saved_next;
    return nullptr;
}

void destroystate(state* s) {
    arcbatch* batch = s->oas.next;
    while (batch) {
        arcbatch* next = batch->next;
        free(batch);
        batch = next;
    }
    free(s);
}

// An unused arc from the store of `s`: its free list, the inline batch, or
// a new batch of which the rest goes on the free list.
template <class CharT>
arc* allocarc(nfa<CharT>* nfa, state* s) {
    if (arc* a = s->free) {
        s->free = a->outchain;
        return a;
    }
    if (s->noas < ABSIZE) return &s->oas.a[s->noas++];
    arcbatch* batch = static_cast<arcbatch*>(re_malloc(sizeof(arcbatch)));
    if (!batch) {
        set_error(nfa->v, REG_ESPACE);
        return nullptr;
    }
    batch->next = s->oas.next;
    s->oas.next = batch;
    for (int i = 1; i < ABSIZE; ++i) {
        batch->a[i].type = 0;
        batch->a[i].outchain = i + 1 < ABSIZE ? &batch->a[i + 1] : s->free;
    }
    s->free = &batch->a[1];
    return &batch->a[0];
}

void unlink_out(state* from, arc* victim) {
    if (victim->outchainrev)
        victim->outchainrev->outchain = victim->outchain;
    else
        from->outs = victim->outchain;
    if (victim->outchain) victim->outchain->outchainrev = victim->outchainrev;
    from->nouts--;
}

void unlink_in(state* to, arc* victim) {
    if (victim->inchainrev)
        victim->inchainrev->inchain = victim->inchain;
    else
        to->ins = victim->inchain;
    if (victim->inchain) victim->inchain->inchainrev = victim->inchainrev;
    to->nins--;
}

// Whether from -> to already has an arc of this type and colour. Such an arc
// is both an out-arc of `from` and an in-arc of `to`, so the shorter of the
// two lists answers: at the hub states of a long alternation one side holds
// an arc per alternative while the other holds one or two.
bool has_arc(const state* from, const state* to, int type, color co) {
    if (from->nouts <= to->nins) {
        for (const arc* a = from->outs; a; a = a->outchain)
            if (a->to == to && a->co == co && a->type == type) return true;
    } else {
        for (const arc* a = to->ins; a; a = a->inchain)
            if (a->from == from && a->co == co && a->type == type) return true;
    }
    return false;
}

// ---- cleanup ---------------------------------------------------------------

enum class direction { forward, backward };

// Sets `tmp` to `mark` on `start` and on every state reachable from it
// (forward along out-arcs, backward along in-arcs) whose `tmp` is `okay`.
// False, with REG_ESPACE, when memory runs out.
template <class CharT>
bool mark_reachable(nfa<CharT>* nfa, state* start, direction dir, const state* okay, state* mark) {
    if (start->tmp != okay) return true;
    state_list pending;
    start->tmp = mark;
    if (!push_or_fail(nfa, pending, start)) return false;
    while (!pending.empty()) {
        state* s = pending.pop();
        arc* a = dir == direction::forward ? s->outs : s->ins;
        for (; a; a = dir == direction::forward ? a->outchain : a->inchain) {
            state* next = dir == direction::forward ? a->to : a->from;
            if (next->tmp != okay) continue;
            next->tmp = mark;
            if (!push_or_fail(nfa, pending, next)) return false;
        }
    }
    return true;
}

// ---- fixempties ------------------------------------------------------------

// Removes one EMPTY arc. Its source's in-arcs are copied to its target, or
// its target's out-arcs to its source, whichever touches fewer arcs; a state
// left without arcs on that side hands the rest over and goes.
template <class CharT>
bool unempty(nfa<CharT>* nfa, arc* a) {
    state* from = a->from;
    state* to = a->to;
    if (from == to) {
        freearc(nfa, a);
        return true;
    }
    bool use_from = true;
    if (from->nouts > to->nins)
        use_from = false;
    else if (from->nouts == to->nins && from->nins > to->nouts)
        use_from = false;
    freearc(nfa, a);
    if (use_from) {
        if (from->nouts == 0) {
            moveins(nfa, from, to);
            freestate(nfa, from);
        } else {
            copyins(nfa, from, to);
        }
    } else {
        if (to->nins == 0) {
            moveouts(nfa, to, from);
            freestate(nfa, to);
        } else {
            copyouts(nfa, to, from);
        }
    }
    return true;
}

// ---- constraints -----------------------------------------------------------

enum class fit { incompatible, satisfied, compatible };

// What meeting arc `a` does to constraint `con` as it moves past it.
fit combine(const arc* con, const arc* a) {
    const fit by_colour = con->co == a->co ? fit::satisfied : fit::incompatible;
    switch (con->type) {
        case '^':
            switch (a->type) {
                case '^':
                    return by_colour;
                case '$':
                case AHEAD:
                case LACON:
                    return fit::compatible;
                default:
                    return fit::incompatible;  // PLAIN, BEHIND
            }
        case '$':
            switch (a->type) {
                case '$':
                    return by_colour;
                case '^':
                case BEHIND:
                case LACON:
                    return fit::compatible;
                default:
                    return fit::incompatible;  // PLAIN, AHEAD
            }
        case BEHIND:
            switch (a->type) {
                case PLAIN:
                case BEHIND:
                    return by_colour;
                case '$':
                case AHEAD:
                case LACON:
                    return fit::compatible;
                default:
                    return fit::incompatible;  // '^'
            }
        case AHEAD:
            switch (a->type) {
                case PLAIN:
                case AHEAD:
                    return by_colour;
                case '^':
                case BEHIND:
                case LACON:
                    return fit::compatible;
                default:
                    return fit::incompatible;  // '$'
            }
    }
    return fit::incompatible;
}

// Moves backward constraint `con` in front of the arcs that enter its
// source. True when something changed.
template <class CharT>
bool pull(nfa<CharT>* nfa, arc* con) {
    state* from = con->from;
    state* to = con->to;
    if (from == to) {
        freearc(nfa, con);
        return true;
    }
    if (from->flag) return false;
    if (from->nins == 0) {
        freearc(nfa, con);
        return true;
    }
    // The source's other out-arcs must not see the constraint: work on a
    // copy of the source that has `con` alone.
    if (from->nouts > 1) {
        state* s = newstate(nfa);
        if (!s) return false;
        copyins(nfa, from, s);
        cparc(nfa, con, s, to);
        freearc(nfa, con);
        from = s;
        con = from->outs;
    }
    for (arc *a = from->ins, *next; a && !has_error(nfa->v); a = next) {
        next = a->inchain;
        switch (combine(con, a)) {
            case fit::incompatible:
                freearc(nfa, a);
                break;
            case fit::satisfied:
                break;
            case fit::compatible: {
                state* s = newstate(nfa);
                if (!s) return false;
                cparc(nfa, a, s, to);
                cparc(nfa, con, a->from, s);
                freearc(nfa, a);
                break;
            }
        }
    }
    // What still enters `from` satisfies the constraint by itself.
    moveins(nfa, from, to);
    dropstate(nfa, from);
    return true;
}

// The mirror of `pull`: moves forward constraint `con` past the arcs that
// leave its target.
template <class CharT>
bool push(nfa<CharT>* nfa, arc* con) {
    state* from = con->from;
    state* to = con->to;
    if (from == to) {
        freearc(nfa, con);
        return true;
    }
    if (to->flag) return false;
    if (to->nouts == 0) {
        freearc(nfa, con);
        return true;
    }
    if (to->nins > 1) {
        state* s = newstate(nfa);
        if (!s) return false;
        copyouts(nfa, to, s);
        cparc(nfa, con, from, s);
        freearc(nfa, con);
        to = s;
        con = to->ins;
    }
    for (arc *a = to->outs, *next; a && !has_error(nfa->v); a = next) {
        next = a->outchain;
        switch (combine(con, a)) {
            case fit::incompatible:
                freearc(nfa, a);
                break;
            case fit::satisfied:
                break;
            case fit::compatible: {
                state* s = newstate(nfa);
                if (!s) return false;
                cparc(nfa, a, from, s);
                cparc(nfa, con, s, a->to);
                freearc(nfa, a);
                break;
            }
        }
    }
    moveouts(nfa, to, from);
    dropstate(nfa, to);
    return true;
}

// How much a propagation may do before it is taken for a runaway. Moving
// constraints through a loop that a constraint can cross without reading a
// character (`(^$)*`, `(\y)+`) never settles, and long runs of constraints
// multiply states; both would otherwise take all memory and time. Real
// patterns stay far below these bounds.
inline constexpr int kMaxPropagatedStates = 100000;
inline constexpr long kMaxPropagationSteps = 1000000;
inline constexpr int kMinPropagationPasses = 2000;          // plus one per state
inline constexpr long long kMaxPropagationWork = 50000000;  // arcs looked at by newarc

// Runs `step` on every arc of the given types until a whole pass changes
// nothing; REG_ESPACE when the work runs past the bounds above.
template <class CharT, class Step>
void propagate(nfa<CharT>* nfa, int type1, int type2, Step step, bool bounded = true) {
    const int firstNew = nfa->nstates;
    const long long firstWork = nfa->work;
    const long maxPasses = kMinPropagationPasses + long(nfa->nstates);
    long steps = 0;
    long passes = 0;
    bool progress;
    do {
        progress = false;
        if (bounded && ++passes > maxPasses) set_error(nfa->v, REG_ESPACE);
        for (state* s = nfa->states; s && !has_error(nfa->v);) {
            state* saved_next = s->next;
            for (arc *a = s->outs, *next; a && !has_error(nfa->v); a = next) {
                next = a->outchain;
                if (a->type != type1 && a->type != type2) continue;
                if (step(nfa, a)) progress = true;
                if (bounded && (++steps > kMaxPropagationSteps ||
                                nfa->nstates - firstNew > kMaxPropagatedStates ||
                                nfa->work - firstWork > kMaxPropagationWork))
                    set_error(nfa->v, REG_ESPACE);
            }
            s = next_state(s, saved_next);
        }
    } while (progress && !has_error(nfa->v));
}

// ---- makesearch ------------------------------------------------------------
template <class CharT>
bool is_anchored(const nfa<CharT>* nfa) {
    for (const arc* a = nfa->pre->outs; a; a = a->outchain)
        if (a->co != nfa->bos[0] && a->co != nfa->bos[1]) return false;
    return true;
}

bool entered_only_from(const state* s, const state* pre) {
    for (const arc* a = s->ins; a; a = a->inchain)
        if (a->from != pre) return false;
    return true;
}

// Splits `s` in two: `s` keeps the arcs from `pre`, a copy takes all others.
template <class CharT>
void split_progress(nfa<CharT>* nfa, state* s) {
    state* progress = newstate(nfa);
    if (!progress) return;
    copyouts(nfa, s, progress);
    for (arc *a = s->ins, *next; a; a = next) {
        next = a->inchain;
        if (a->from == nfa->pre) continue;
        cparc(nfa, a, a->from, progress);
        freearc(nfa, a);
    }
}

// ---- compact ---------------------------------------------------------------
bool carc_less(const carc& a, const carc& b) {
    return a.co < b.co || (a.co == b.co && a.to < b.to);
}

// Sorts the arcs from `first` to `last` inclusive. One or two arcs are left
// as they are, since matching does not depend on the order. Arcs that
// compare equal are equal in every field, so any sort gives the same list;
// an O(n log n) one keeps the start of a long alternation, with an arc per
// alternative, from costing quadratic time.
void carcsort(carc* first, carc* last) {
    if (last - first <= 1) return;
    std::sort(first, last + 1, carc_less);
}

// Writes the arc list of `s` at `ca`; returns the position after it.
// The number of characters that every match of `cnfa` has, or -1 when
// matches may differ in length. Every path from `pre` to `post` reads the
// character before the match and the one after it (or the string's ends)
// besides the match itself; look-ahead arcs read nothing. So the length is
// fixed when each state lies at one distance from `pre`, counted in
// character arcs.
int fixed_length(const cnfa* cnfa) {
    const size_t n = size_t(cnfa->nstates);
    int* distance = static_cast<int*>(re_malloc(2 * n * sizeof(int)));
    if (!distance) return -1;  // unknown: matching only takes the longer way
    int* pending = distance + n;
    for (size_t i = 0; i < n; ++i)
        distance[i] = -1;
    int npending = 0;
    distance[cnfa->pre] = 0;
    pending[npending++] = cnfa->pre;
    int result = 0;
    while (npending > 0 && result == 0) {
        const int s = pending[--npending];
        for (const carc* ca = cnfa->states[s] + 1; ca->co != COLORLESS; ++ca) {
            const int d = distance[s] + (ca->co < cnfa->ncolors ? 1 : 0);
            if (distance[ca->to] == d) continue;
            if (distance[ca->to] >= 0) {  // two lengths, or a loop
                result = -1;
                break;
            }
            distance[ca->to] = d;
            pending[npending++] = ca->to;
        }
    }
    const int total = distance[cnfa->post];
    free(distance);
    return (result == 0 && total >= 2) ? total - 2 : -1;
}

template <class CharT>
carc* compact_state(nfa<CharT>* nfa, cnfa* cnfa, const state* s, carc* ca) {
    cnfa->states[s->no] = ca;
    *ca++ = carc{0, 0};
    carc* first = ca;
    for (const arc* a = s->outs; a; a = a->outchain) {
        switch (a->type) {
            case PLAIN:
                *ca++ = carc{a->co, a->to->no};
                break;
            case LACON:
                *ca++ = carc{color(cnfa->ncolors + a->co), a->to->no};
                cnfa->flags |= HASLACONS;
                break;
            default:
                set_error(nfa->v, REG_ASSERT);
                break;
        }
    }
    carcsort(first, ca - 1);
    *ca++ = carc{COLORLESS, 0};
    return ca;
}

}  // namespace

// ---- automata and states ---------------------------------------------------
template <class CharT>
nfa<CharT>* newnfa(parse_vars<CharT>* v, colormap<CharT>* cm,
                   std::type_identity_t<nfa<CharT>>* parent) {
    auto* n = static_cast<nfa<CharT>*>(re_malloc(sizeof(nfa<CharT>)));
    if (!n) {
        set_error(v, REG_ESPACE);
        return nullptr;
    }
    *n = nfa<CharT>{};
    n->cm = cm;
    n->v = v;
    n->parent = parent;
    n->work = 0;
    n->bos[0] = n->bos[1] = COLORLESS;
    n->eos[0] = n->eos[1] = COLORLESS;
    n->post = newfstate(n, '@');
    n->pre = newfstate(n, '>');
    n->init = newstate(n);
    n->final = newstate(n);
    if (!has_error(v)) {
        rainbow(n, cm, PLAIN, COLORLESS, n->pre, n->init);
        rainbow(n, cm, PLAIN, COLORLESS, n->final, n->post);
        newarc(n, '^', 1, n->pre, n->init);
        newarc(n, '^', 0, n->pre, n->init);
        newarc(n, '$', 1, n->final, n->post);
        newarc(n, '$', 0, n->final, n->post);
    }
    if (has_error(v)) {
        freenfa(n);
        return nullptr;
    }
    return n;
}

template <class CharT>
void freenfa(nfa<CharT>* nfa) {
    long freed = 0;
    for (state *s = nfa->states, *next; s; s = next, ++freed) {
        next = s->next;
        destroystate(s);
    }
    for (state *s = nfa->free, *next; s; s = next, ++freed) {
        next = s->next;
        destroystate(s);
    }
    nfa->v->statesHeld -= freed;
    // The map outlives the NFA: its arc chains must not point into freed
    // states.
    if (keeps_color_chains(nfa) && nfa->cm)
        for (size_t co = 0; co <= nfa->cm->max; ++co)
            nfa->cm->cd[co].arcs = nullptr;
    free(nfa);
}

// Bounds on the automata of one compilation. Nesting and bounds multiply
// states: every group of a deep nest gets an automaton of all it holds, and
// `((a{255}){255}){255}` asks for 16 million copies of `a`. Such patterns
// would take minutes or all the memory there is; they end with REG_ESPACE
// instead, within a few seconds and well under a gigabyte. States made
// counts the work (500 groups in a row make 2.5 million, a 20,000-deep
// nest would make 4.8 billion); states held counts the memory, about 800
// bytes each with their arcs (a list of 50,000 words holds 0.8 million).
inline constexpr long kMaxStatesMade = 20000000;
inline constexpr long kMaxStatesHeld = 1000000;

template <class CharT>
state* newstate(nfa<CharT>* nfa) {
    if (++nfa->v->statesMade > kMaxStatesMade) {
        set_error(nfa->v, REG_ESPACE);
        return nullptr;
    }
    state* s = nfa->free;
    if (s) {
        nfa->free = s->next;
    } else {
        if (++nfa->v->statesHeld > kMaxStatesHeld) {
            set_error(nfa->v, REG_ESPACE);
            return nullptr;
        }
        s = static_cast<state*>(re_malloc(sizeof(state)));
        if (!s) {
            set_error(nfa->v, REG_ESPACE);
            return nullptr;
        }
        s->free = nullptr;
        s->oas.next = nullptr;
        s->noas = 0;
    }
    s->no = nfa->nstates++;
    s->flag = 0;
    s->nins = 0;
    s->ins = nullptr;
    s->nouts = 0;
    s->outs = nullptr;
    s->tmp = nullptr;
    s->next = nullptr;
    s->prev = nfa->slast;
    if (nfa->slast)
        nfa->slast->next = s;
    else
        nfa->states = s;
    nfa->slast = s;
    return s;
}

template <class CharT>
state* newfstate(nfa<CharT>* nfa, int flag) {
    state* s = newstate(nfa);
    if (s) s->flag = char(flag);
    return s;
}

template <class CharT>
void dropstate(nfa<CharT>* nfa, state* s) {
    while (arc* a = s->ins)
        freearc(nfa, a);
    while (arc* a = s->outs)
        freearc(nfa, a);
    freestate(nfa, s);
}

template <class CharT>
void freestate(nfa<CharT>* nfa, state* s) {
    s->no = FREESTATE;
    s->flag = 0;
    if (s->next)
        s->next->prev = s->prev;
    else
        nfa->slast = s->prev;
    if (s->prev)
        s->prev->next = s->next;
    else
        nfa->states = s->next;
    s->prev = nullptr;
    s->next = nfa->free;
    nfa->free = s;
}

// ---- arcs ------------------------------------------------------------------
template <class CharT>
void newarc(nfa<CharT>* nfa, int type, color co, state* from, state* to) {
    if (has_error(nfa->v)) return;
    // A colour test without a colour: pseudo-colours were never made.
    if (is_colored_type(type) && co < 0) {
        set_error(nfa->v, REG_ASSERT);
        return;
    }
    // The cost charged against the propagation bounds: the source's out-arcs
    // plus one for each arc asked for. It measures how far the automaton has
    // grown, not how the duplicate is found, so a pattern meets the bounds at
    // the same point whichever list `has_arc` searches.
    nfa->work += from->nouts + 1;
    if (has_arc(from, to, type, co)) return;
    arc* a = allocarc(nfa, from);
    if (!a) return;
    a->type = type;
    a->co = co;
    a->from = from;
    a->to = to;
    a->outchain = from->outs;
    a->outchainrev = nullptr;
    if (from->outs) from->outs->outchainrev = a;
    from->outs = a;
    from->nouts++;
    a->inchain = to->ins;
    a->inchainrev = nullptr;
    if (to->ins) to->ins->inchainrev = a;
    to->ins = a;
    to->nins++;
    a->colorchain = nullptr;
    a->colorchainrev = nullptr;
    if (is_colored_type(type) && keeps_color_chains(nfa)) colorchain(nfa->cm, a);
}

template <class CharT>
void freearc(nfa<CharT>* nfa, arc* victim) {
    state* from = victim->from;
    if (is_colored_type(victim->type) && keeps_color_chains(nfa)) uncolorchain(nfa->cm, victim);
    unlink_out(from, victim);
    unlink_in(victim->to, victim);
    victim->type = 0;
    victim->from = nullptr;
    victim->to = nullptr;
    victim->inchain = nullptr;
    victim->inchainrev = nullptr;
    victim->outchainrev = nullptr;
    victim->outchain = from->free;
    from->free = victim;
}

template <class CharT>
void cparc(nfa<CharT>* nfa, const arc* oa, state* from, state* to) {
    newarc(nfa, oa->type, oa->co, from, to);
}

arc* findarc(const state* s, int type, color co) {
    for (arc* a = s->outs; a; a = a->outchain)
        if (a->type == type && a->co == co) return a;
    return nullptr;
}

template <class CharT>
void moveins(nfa<CharT>* nfa, state* old, state* newst) {
    while (arc* a = old->ins) {
        cparc(nfa, a, a->from, newst);
        freearc(nfa, a);
    }
}

template <class CharT>
void moveouts(nfa<CharT>* nfa, state* old, state* newst) {
    while (arc* a = old->outs) {
        cparc(nfa, a, newst, a->to);
        freearc(nfa, a);
    }
}

template <class CharT>
void copyins(nfa<CharT>* nfa, const state* old, state* newst) {
    for (const arc* a = old->ins; a; a = a->inchain)
        cparc(nfa, a, a->from, newst);
}

template <class CharT>
void copyouts(nfa<CharT>* nfa, const state* old, state* newst) {
    for (const arc* a = old->outs; a; a = a->outchain)
        cparc(nfa, a, newst, a->to);
}

// A depth-first walk from `lp` that frees each arc once the state it leads
// to has been emptied, and each state once nothing enters it. `tmp` holds
// the state the walk came from (`lp` names itself), so it also marks the
// states in progress; `rp`, marked too, is never entered.
template <class CharT>
void delsub(nfa<CharT>* nfa, state* lp, state* rp) {
    if (lp == rp) return;
    rp->tmp = rp;
    lp->tmp = lp;
    state* s = lp;
    for (;;) {
        arc* a = s->outs;
        if (!a) {
            state* back = s->tmp;
            s->tmp = nullptr;
            if (back == s) break;
            s = back;
            continue;
        }
        state* to = a->to;
        if (to->nouts != 0 && to->tmp == nullptr) {
            to->tmp = s;
            s = to;
            continue;
        }
        freearc(nfa, a);
        if (to->nins == 0 && to->tmp == nullptr) freestate(nfa, to);
    }
    rp->tmp = nullptr;
}

// Two passes: give every state between `start` and `stop` its copy (kept in
// `tmp`; `stop`'s is `to`), then copy the arcs between the copies.
template <class CharT>
void dupnfa(nfa<CharT>* nfa, state* start, state* stop, state* from, state* to) {
    if (start == stop) {
        newarc(nfa, EMPTY, 0, from, to);
        return;
    }
    state_list reached;
    stop->tmp = to;
    start->tmp = from;
    bool ok = push_or_fail(nfa, reached, start);
    for (size_t i = 0; ok && i < reached.size(); ++i) {
        for (const arc* a = reached[i]->outs; ok && a; a = a->outchain) {
            state* next = a->to;
            if (next->tmp) continue;
            ok = push_or_fail(nfa, reached, next) && (next->tmp = newstate(nfa)) != nullptr;
        }
    }
    for (size_t i = 0; ok && i < reached.size(); ++i)
        for (const arc* a = reached[i]->outs; a; a = a->outchain)
            cparc(nfa, a, reached[i]->tmp, a->to->tmp);
    for (size_t i = 0; i < reached.size(); ++i)
        reached[i]->tmp = nullptr;
    stop->tmp = nullptr;
}

// ---- optimisation ----------------------------------------------------------
template <class CharT>
long optimize(nfa<CharT>* nfa, FILE* trace) {
    if (trace) fputs("\ninitial cleanup:\n", trace);
    cleanup(nfa);
    if (trace) fputs("\nempties:\n", trace);
    fixempties(nfa);
    if (trace) fputs("\nconstraints:\n", trace);
    pullback(nfa);
    pushfwd(nfa);
    if (trace) fputs("\nfinal cleanup:\n", trace);
    cleanup(nfa);
    return analyze(nfa);
}

// Marks the states reachable from `pre` (tmp = pre), then among them those
// that reach `post` (tmp = post); drops the unflagged rest. When marking
// fails for want of memory, nothing is dropped.
template <class CharT>
void cleanup(nfa<CharT>* nfa) {
    const bool marked = mark_reachable(nfa, nfa->pre, direction::forward, nullptr, nfa->pre) &&
                        mark_reachable(nfa, nfa->post, direction::backward, nfa->pre, nfa->post);
    for (state *s = nfa->states, *next; marked && s; s = next) {
        next = s->next;
        if (s->tmp != nfa->post && !s->flag) dropstate(nfa, s);
    }
    int n = 0;
    for (state* s = nfa->states; s; s = s->next) {
        s->tmp = nullptr;
        s->no = n++;
    }
    nfa->nstates = n;
}

template <class CharT>
void fixempties(nfa<CharT>* nfa) {
    // Removing empty arcs always ends: only constraints can run away.
    propagate(nfa, EMPTY, EMPTY, unempty<CharT>, false);
}

template <class CharT>
void pullback(nfa<CharT>* nfa) {
    propagate(nfa, '^', BEHIND, pull<CharT>);
    for (arc *a = nfa->pre->outs, *next; a && !has_error(nfa->v); a = next) {
        next = a->outchain;
        if (a->type != '^') continue;
        newarc(nfa, PLAIN, nfa->bos[a->co], a->from, a->to);
        freearc(nfa, a);
    }
}

template <class CharT>
void pushfwd(nfa<CharT>* nfa) {
    propagate(nfa, '$', AHEAD, push<CharT>);
    for (arc *a = nfa->post->ins, *next; a && !has_error(nfa->v); a = next) {
        next = a->inchain;
        if (a->type != '$') continue;
        newarc(nfa, PLAIN, nfa->eos[a->co], a->from, a->to);
        freearc(nfa, a);
    }
}

template <class CharT>
long analyze(const nfa<CharT>* nfa) {
    if (has_error(nfa->v)) return 0;
    if (!nfa->pre->outs) return REG_UIMPOSSIBLE;
    for (const arc* a = nfa->pre->outs; a; a = a->outchain)
        for (const arc* b = a->to->outs; b; b = b->outchain)
            if (b->to == nfa->post) return REG_UEMPTYMATCH;
    return 0;
}

template <class CharT>
void makesearch(parse_vars<CharT>* v, nfa<CharT>* nfa) {
    state* pre = nfa->pre;
    if (!is_anchored(nfa)) {
        rainbow(nfa, nfa->cm, PLAIN, COLORLESS, pre, pre);
        newarc(nfa, PLAIN, nfa->bos[0], pre, pre);
        newarc(nfa, PLAIN, nfa->bos[1], pre, pre);
    }
    // The successors of `pre` that can also be entered after progress; `tmp`
    // marks those already listed.
    state_list split;
    for (arc* a = pre->outs; a && !has_error(v); a = a->outchain) {
        state* s = a->to;
        if (s->tmp || entered_only_from(s, pre)) continue;
        if (!push_or_fail(nfa, split, s)) break;
        s->tmp = s;
    }
    for (size_t i = 0; i < split.size(); ++i) {
        if (!has_error(v)) split_progress(nfa, split[i]);
        split[i]->tmp = nullptr;
    }
}

// ---- compact form ----------------------------------------------------------
template <class CharT>
void compact(nfa<CharT>* nfa, cnfa* cnfa) {
    if (has_error(nfa->v)) return;
    const int nstates = nfa->nstates;
    size_t narcs = 0;
    for (const state* s = nfa->states; s; s = s->next) {
        if (s->no < 0 || s->no >= nstates) {
            set_error(nfa->v, REG_ASSERT);
            return;
        }
        narcs += size_t(s->nouts) + 2;
    }
    auto* states = static_cast<carc**>(re_malloc(size_t(nstates) * sizeof(carc*)));
    auto* arcs = static_cast<carc*>(re_malloc(narcs * sizeof(carc)));
    if (!states || !arcs) {
        free(states);
        free(arcs);
        set_error(nfa->v, REG_ESPACE);
        return;
    }
    *cnfa = re::cnfa{};
    cnfa->ncolors = maxcolor(nfa->cm) + 1;
    cnfa->pre = nfa->pre->no;
    cnfa->post = nfa->post->no;
    cnfa->bos[0] = nfa->bos[0];
    cnfa->bos[1] = nfa->bos[1];
    cnfa->eos[0] = nfa->eos[0];
    cnfa->eos[1] = nfa->eos[1];
    cnfa->states = states;
    cnfa->arcs = arcs;
    carc* ca = arcs;
    for (const state* s = nfa->states; s; s = s->next)
        ca = compact_state(nfa, cnfa, s, ca);
    // Being in `pre` or a successor of it means no progress since the start.
    states[nfa->pre->no]->co = 1;
    for (const arc* a = nfa->pre->outs; a; a = a->outchain)
        states[a->to->no]->co = 1;
    cnfa->nstates = nstates;
    cnfa->fixedlen = fixed_length(cnfa);
    if (has_error(nfa->v)) freecnfa(cnfa);
}

void freecnfa(cnfa* cnfa) {
    free(cnfa->states);
    free(cnfa->arcs);
    *cnfa = re::cnfa{};
}

template <class CharT>
long nfanode(parse_vars<CharT>* v, subre* t, FILE* trace) {
    if (trace) {
        char id[32];
        if (t->retry)
            snprintf(id, sizeof id, "%d", int(t->retry));
        else
            snprintf(id, sizeof id, "%p", static_cast<void*>(t));
        fprintf(trace, "\n\n\n========= TREE NODE %s ==========\n", id);
    }
    nfa<CharT>* child = newnfa(v, v->nfa->cm, v->nfa);
    if (!child) return 0;
    dupnfa(child, t->begin, t->end, child->init, child->final);
    long verdict = 0;
    if (!has_error(v)) {
        specialcolors(child);
        verdict = optimize(child, trace);
    }
    compact(child, &t->cnfa);
    freenfa(child);
    return verdict;
}

template <class CharT>
long nfatree(parse_vars<CharT>* v, subre* t, FILE* trace) {
    if (t->left) nfatree(v, t->left, trace);
    if (t->right) nfatree(v, t->right, trace);
    return nfanode(v, t, trace);
}

// ---- instantiations --------------------------------------------------------
#define ORLO_RE_INSTANTIATE_NFA(CharT)                                              \
    template nfa<CharT>* newnfa(parse_vars<CharT>*, colormap<CharT>*, nfa<CharT>*); \
    template void freenfa(nfa<CharT>*);                                             \
    template state* newstate(nfa<CharT>*);                                          \
    template state* newfstate(nfa<CharT>*, int);                                    \
    template void dropstate(nfa<CharT>*, state*);                                   \
    template void freestate(nfa<CharT>*, state*);                                   \
    template void newarc(nfa<CharT>*, int, color, state*, state*);                  \
    template void freearc(nfa<CharT>*, arc*);                                       \
    template void cparc(nfa<CharT>*, const arc*, state*, state*);                   \
    template void moveins(nfa<CharT>*, state*, state*);                             \
    template void moveouts(nfa<CharT>*, state*, state*);                            \
    template void copyins(nfa<CharT>*, const state*, state*);                       \
    template void copyouts(nfa<CharT>*, const state*, state*);                      \
    template void delsub(nfa<CharT>*, state*, state*);                              \
    template void dupnfa(nfa<CharT>*, state*, state*, state*, state*);              \
    template long optimize(nfa<CharT>*, FILE*);                                     \
    template void cleanup(nfa<CharT>*);                                             \
    template void fixempties(nfa<CharT>*);                                          \
    template void pullback(nfa<CharT>*);                                            \
    template void pushfwd(nfa<CharT>*);                                             \
    template long analyze(const nfa<CharT>*);                                       \
    template void makesearch(parse_vars<CharT>*, nfa<CharT>*);                      \
    template void compact(nfa<CharT>*, cnfa*);                                      \
    template long nfanode(parse_vars<CharT>*, subre*, FILE*);                       \
    template long nfatree(parse_vars<CharT>*, subre*, FILE*);

ORLO_RE_INSTANTIATE_NFA(char)
ORLO_RE_INSTANTIATE_NFA(wchar_t)

#undef ORLO_RE_INSTANTIATE_NFA

}  // namespace Orlo::IMPL::re
